#!/usr/bin/env bash
# Builds schscan in Release, installs it (the tool in /usr/local/bin, the scan
# service in /usr/local/sbin with its systemd unit and manual page, the task
# store library, catalogue and reports directory in the product directory),
# starts the scan service and runs `schscan --help`.
#
# Under systemd the unit is enabled and (re)started. Without systemd the
# service is started in the background, detached, logging to
# /var/log/schscand.log, unless it runs already.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh
echo "==> Configuring build-release"
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DSCHSCAN_BUILD_TESTS=OFF
echo "==> Building"
cmake --build build-release -j"$(nproc)"
echo "==> Installing"
cmake --install build-release --prefix /usr/local

service=/usr/local/sbin/schscand
if [ -d /run/systemd/system ]; then
  echo "==> Starting the scan service with systemd"
  systemctl daemon-reload
  systemctl enable schscand.service
  # Starts it, or replaces a running one with this build.
  systemctl restart schscand.service
  echo "    schscand runs; see: systemctl status schscand, journalctl -u schscand"
else
  echo "==> Starting the scan service (systemd is not running here)"
  # The running service holds this lock.
  state_dir=$(sed -n 's/^SCHSCAN_STATE_DIR:[A-Z]*=//p' build-release/CMakeCache.txt)
  lock=$state_dir/schscand.lock
  running() { [ -e "$lock" ] && ! flock -n "$lock" true; }
  log=/var/log/schscand.log
  if running; then
    echo "    schscand runs already, with the build it was started with; to run this"
    echo "    build, stop it (SIGTERM) and run this script again"
  else
    # Low CPU and I/O priority and a private umask, as the systemd unit has.
    (umask 077 && exec setsid nice -n 10 ionice -c 2 -n 7 -t "$service" </dev/null >>"$log" 2>&1) &
    pid=$!
    for _ in $(seq 50); do
      if running || ! kill -0 "$pid" 2>/dev/null; then break; fi
      sleep 0.1
    done
    if ! running; then
      echo "error: schscand did not start; the end of $log:" >&2
      tail -n 5 "$log" >&2 || true
      exit 1
    fi
    echo "    schscand runs in the background (pid $pid), logging to $log;"
    echo "    it stops on SIGTERM, and a reboot does not start it again"
  fi
fi

echo "==> Starting schscan --help"
/usr/local/bin/schscan --help
