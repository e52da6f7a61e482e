#!/bin/sh
# Gives the installed tool and the product data to the tool's group, the way
# crontab is installed: the tool is setgid to the group, the task list and
# the reports directory belong to it, and users reach scans and reports only
# through the tool. The product directory is closed to everyone else: what
# the tool creates there for a user (the task list, the task store's
# journal) belongs to that user, who must not reach it but through the tool.
#
# usage: setup-privileges.sh TOOL PRODUCT_DIR GROUP
# GROUP is a group name (created as a system group when missing) or a
# numeric group id (used as it stands); an empty GROUP, or a caller that is
# not root, leaves the install as it is, usable by root alone.
set -eu
tool=$1
product=$2
group=$3

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

echo "-- schscan: $tool setgid $group; product data owned by group $group"
# chgrp clears the setgid bit, so the mode is set after the group.
chgrp "$group" "$tool" "$product" "$product/reports"
chmod 2755 "$tool"
chmod 2770 "$product"
chmod 2770 "$product/reports"
for data in "$product/tsklst.inf" "$product/reports/schdmain.rpt"; do
    if [ -e "$data" ]; then
        chgrp "$group" "$data"
    fi
done
if [ -e "$product/tsklst.inf" ]; then
    chmod 0660 "$product/tsklst.inf"
fi
