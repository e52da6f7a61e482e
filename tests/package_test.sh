#!/usr/bin/env bash
# Builds the Debian package, installs it into this machine with dpkg, checks
# what its maintainer scripts set up (the group, the modes, the store's link,
# the unit), runs the installed tool (a scripted add as root and as an
# ordinary user through the setgid tool, and a view; what the installed tool
# does for each user is the privilege test's) and the scan service (its enabled
# unit, and a run of each scan on a signature database of the test's own,
# under the unit's capabilities), removes it (scans stay) and purges it (scans
# and the service's state go). Needs root: exits 77, which CTest reports as
# skipped, otherwise, and also when the product is already installed by other
# means.
set -euo pipefail
source_dir=$1
build_dir=$2

if [ "$(id -u)" -ne 0 ]; then echo "skipped: the package test needs root"; exit 77; fi
product=/usr/lib/Korvane/Korvane
state=/var/lib/schscan
unit=/lib/systemd/system/schscand.service
if dpkg-query -W -f='${Status}' schscan 2>/dev/null | grep -q 'ok installed' ||
   [ -e "$product" ] || [ -e /usr/bin/schscan ] || [ -e "$state" ]; then
  echo "skipped: schscan is already installed on this machine ($product, $state or /usr/bin/schscan)"
  exit 77
fi

echo "==> Building the package"
cmake -S "$source_dir" -B "$build_dir" -DCMAKE_BUILD_TYPE=Release -DSCHSCAN_BUILD_TESTS=OFF \
      -DSCHSCAN_WERROR=ON >/dev/null
cmake --build "$build_dir" -j"$(nproc)" >/dev/null
rm -f "$build_dir"/schscan_*_amd64.deb
(cd "$build_dir" && cpack -G DEB >/dev/null)
deb=$(ls "$build_dir"/schscan_*_amd64.deb)
echo "    $deb"

if command -v lintian >/dev/null; then
  echo "==> lintian"
  lintian --fail-on error "$deb"
fi

scan_dir=$(mktemp -d /tmp/schscan-package-test.XXXXXX)
database=$(mktemp -d /tmp/schscan-package-db.XXXXXX)
chmod 0755 "$scan_dir"
cleanup() {
  dpkg --purge schscan >/dev/null 2>&1 || true
  rm -rf "$scan_dir" "$database"
}
trap cleanup EXIT

fail() { echo "FAILED: $*" >&2; exit 1; }
expect() {  # description, text that the output must contain, output
  grep -qF -- "$2" <<<"$3" || { printf '%s\n' "$3"; fail "$1"; }
}

echo "==> dpkg -i"
dpkg -i "$deb"
[ "$(stat -c '%G %a' /usr/bin/schscan)" = "schscan 2755" ] || fail "the tool is not setgid schscan"
[ "$(stat -c '%G %a' "$product/reports")" = "schscan 2770" ] || fail "reports directory modes"
[ "$(stat -c '%G %a' "$product/store")" = "schscan 2770" ] || fail "store directory modes"
[ "$(stat -c '%G %a' "$product")" = "schscan 755" ] || fail "the product directory is group-writable"
[ "$(readlink "$product/tsklst.inf")" = store/tsklst.inf ] || fail "no link to the store"
grep -qx 'ExecStart=/usr/sbin/schscand' "$unit" || fail "the unit does not start /usr/sbin/schscand"
[ -L /etc/systemd/system/multi-user.target.wants/schscand.service ] || fail "the unit is not enabled"

echo "==> Running the installed tool"
# name, daily, not first boot, 02:30:00, every day, no repeat, four options,
# report only, one directory, no more, confirm.
add_script() { printf '%s\n' "$1" 1 n 2 30 0 1 n y y y y 4 "$scan_dir" n y; }
out=$(add_script PackageRootScan | /usr/bin/schscan --add)
expect "add as root" "The scheduled scan PackageRootScan was added" "$out"
as_nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups -- "$@"; }
out=$(add_script PackageUserScan | as_nobody /usr/bin/schscan --add)
expect "add as nobody" "The scheduled scan PackageUserScan was added" "$out"
out=$(printf 'n\n' | as_nobody /usr/bin/schscan --view)
expect "view as nobody" "PackageUserScan" "$out"
if grep -q PackageRootScan <<<"$out"; then fail "nobody sees root's scan"; fi
if as_nobody cat "$product/tsklst.inf" >/dev/null 2>&1; then fail "nobody reads the store directly"; fi

echo "==> Running the installed service"
as_nobody /usr/sbin/schscand --help >/dev/null || fail "help for nobody"
status=0; as_nobody /usr/sbin/schscand --status >/dev/null 2>&1 || status=$?
[ "$status" = 2 ] || fail "--status for nobody: exit status $status, not 2"
marker=KORVANE-PACKAGE-TEST-MARKER
printf 'Korvane.Package.Marker:0:*:%s\n' "$(printf %s "$marker" | od -An -tx1 | tr -d ' \n')" \
  >"$database/package.ndb"
(umask 022 && echo "a file with $marker" >"$scan_dir/marked.txt")
# Each run as the unit starts one: no new privileges, its capabilities only.
caps=$(sed -n 's/^CapabilityBoundingSet=//p' "$unit" | tr '[:upper:]' '[:lower:]' | sed 's/cap_/+/g; s/ /,/g')
for scan in PackageRootScan PackageUserScan; do
  status=0
  (umask 077 && setpriv --no-new-privs --inh-caps=-all --bounding-set=-all,"$caps" -- \
     /usr/sbin/schscand --run "$scan" --database "$database") || status=$?
  [ "$status" = 1 ] || fail "--run $scan: exit status $status, not 1 (infected)"
done
out=$(printf 'n\n' | /usr/bin/schscan --reports)
expect "reports as root" "PackageRootScan" "$out"
expect "reports as root" "PackageUserScan" "$out"

echo "==> dpkg -r keeps the scans"
dpkg -r schscan
[ ! -e /usr/bin/schscan ] || fail "the tool is still installed"
[ -s "$product/tsklst.inf" ] || fail "removal lost the scans"
echo "==> dpkg --purge removes them"
dpkg --purge schscan
[ ! -e "$product/tsklst.inf" ] || fail "purge kept the scans"
[ ! -e "$state" ] || fail "purge kept the service's state"
[ ! -e /etc/systemd/system/schscand.service ] || fail "purge left the unit masked"
[ ! -e /etc/systemd/system/multi-user.target.wants/schscand.service ] || fail "purge left the unit enabled"
echo "package test passed"
