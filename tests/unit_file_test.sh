#!/usr/bin/env bash
# The service's systemd unit and manual page as an install into /usr/local
# leaves them: the unit lies where systemd reads it and names the installed
# binary, `systemd-analyze verify` finds nothing to say about it, and groff
# has no warning for the page. Runs without systemd as process 1: verify
# loads a copy whose ExecStart names the binary under DESTDIR, and finds the
# manual page through MANPATH. A unit with a mistake must fail the same check.
set -euo pipefail
build_dir=$1

root=$(mktemp -d /tmp/schscand-unit-test.XXXXXX)
trap 'rm -rf "$root"' EXIT
fail() { echo "FAILED: $*" >&2; exit 1; }

DESTDIR=$root cmake --install "$build_dir" --prefix /usr/local >/dev/null
unit=$root/usr/local/lib/systemd/system/schscand.service
[ -f "$unit" ] || fail "no unit in /usr/local/lib/systemd/system"
grep -qx 'ExecStart=/usr/local/sbin/schscand' "$unit" || fail "ExecStart does not name the installed binary"
[ -x "$root/usr/local/sbin/schscand" ] || fail "no binary in /usr/local/sbin"

mkdir "$root/verify"
verify() {  # the unit, with extra lines; passes when verify exits 0 and says nothing
  { sed "s|^ExecStart=/usr/local/|ExecStart=$root/usr/local/|" "$unit"; printf '%s\n' "$@"; } \
    >"$root/verify/schscand.service"
  local said
  if said=$(MANPATH=$root/usr/local/share/man systemd-analyze verify \
              "$root/verify/schscand.service" 2>&1) && [ -z "$said" ]; then
    return 0
  fi
  printf '%s\n' "$said"
  return 1
}
verify || fail "systemd-analyze verify complains about the unit"
if verify '[Service]' 'ProtectHomes=yes' >/dev/null; then fail "verify passes a misspelt directive"; fi

page=$root/usr/local/share/man/man8/schscand.8.gz
warnings=$(zcat "$page" | groff -man -ww -z 2>&1)
[ -z "$warnings" ] || { printf '%s\n' "$warnings"; fail "groff warns about schscand(8)"; }
echo "unit file test passed"
