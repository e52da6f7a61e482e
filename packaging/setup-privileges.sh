#!/bin/sh
# Lays out the task store and gives the installed tool and the product data
# to the tool's group, the way crontab is installed: the tool is setgid to
# the group, and users reach scans and reports only through the tool.
#
# The task list and the side files of its write-ahead log live in
# PRODUCT_DIR/store/, a directory of their own; PRODUCT_DIR/tsklst.inf is a
# symbolic link to the task list there (a task list of an older install
# moves in). The group may write only the store's directory and the reports
# directory: never the product directory, which holds the task store library
# that the tool loads and the catalogue whose texts it prints as formats.
#
# usage: setup-privileges.sh TOOL PRODUCT_DIR GROUP
# GROUP is a group name (created as a system group when missing) or a
# numeric group id (used as it stands); an empty GROUP, or a caller that is
# not root, leaves the modes as they are, usable by root alone.
set -eu
tool=$1
product=$2
group=$3

mkdir -p "$product/store"
if [ -f "$product/tsklst.inf" ] && [ ! -L "$product/tsklst.inf" ]; then
    for file in tsklst.inf tsklst.inf-journal tsklst.inf-wal tsklst.inf-shm; do
        if [ -e "$product/$file" ]; then mv "$product/$file" "$product/store/$file"; fi
    done
fi
ln -sfn store/tsklst.inf "$product/tsklst.inf"

if [ -z "$group" ]; then
    echo "-- schscan: no group given; the tool is not setgid"
    exit 0
fi
if [ "$(id -u)" -ne 0 ]; then
    echo "-- schscan: not root; the tool is not setgid"
    exit 0
fi
case "$group" in
    *[!0-9]*)
        if ! getent group "$group" >/dev/null; then
            echo "-- schscan: creating the system group $group"
            groupadd --system "$group"
        fi
        ;;
esac

echo "-- schscan: $tool setgid $group; the store and the reports owned by group $group"
# chgrp clears the setgid bit, so the modes are set after the group.
chown -h root:root "$product/tsklst.inf"
chgrp "$group" "$tool" "$product" "$product/store" "$product/reports"
chmod 2755 "$tool"
chmod 0755 "$product"
chmod 2770 "$product/store" "$product/reports"
for data in "$product"/store/tsklst.inf* "$product/reports/schdmain.rpt"; do
    if [ -e "$data" ]; then chgrp "$group" "$data"; fi
done
for data in "$product"/store/tsklst.inf*; do
    if [ -e "$data" ]; then chmod 0660 "$data"; fi
done
