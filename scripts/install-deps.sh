#!/usr/bin/env bash
# Installs what building and testing schscan and schscand need on Debian 12
# (libclamav, the date library with its time zones, libsystemd), and the
# en_US.UTF-8 locale (without it every text shows as its key). Idempotent:
# it installs only what is missing.
set -euo pipefail

packages=(cmake g++ make pkg-config gettext locales libgtest-dev libgmock-dev
          libsqlite3-dev sqlite3 util-linux libbenchmark-dev
          libclamav-dev libhowardhinnant-date-dev tzdata libsystemd-dev systemd
          clang clang-tidy cppcheck libclang-rt-14-dev lintian passwd)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if ((${#missing[@]})); then
  echo "==> Installing Debian packages: ${missing[*]}"
  if [ "$(id -u)" -ne 0 ]; then echo "error: run as root to install packages" >&2; exit 1; fi
  apt-get update -q
  DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "${missing[@]}"
else
  echo "==> Build dependencies already installed"
fi

if locale -a 2>/dev/null | grep -qix 'en_US.utf8'; then
  echo "==> Locale en_US.UTF-8 present"
else
  echo "==> Generating locale en_US.UTF-8"
  if [ "$(id -u)" -ne 0 ]; then echo "error: run as root to generate the locale" >&2; exit 1; fi
  if [ -f /etc/locale.gen ] && grep -q '^# *en_US.UTF-8 UTF-8' /etc/locale.gen; then
    sed -i 's/^# *en_US.UTF-8 UTF-8/en_US.UTF-8 UTF-8/' /etc/locale.gen
    locale-gen
  else
    localedef -i en_US -c -f UTF-8 en_US.UTF-8
  fi
fi
