#!/usr/bin/env bash
# Runs a command (a test) with a /dev/shm of its own.
#
# Sound libraries keep state for all programs of a user in /dev/shm: whenever PortAudio scans
# the devices, JACK's client library opens a lock database in /dev/shm/jack_db-<uid>, and a
# program killed while it holds that lock leaves every later scan of that user hanging until the
# folder is removed. The tests kill Kavot on purpose and run several sound tests at once; in a
# /dev/shm of their own they can neither be stopped by such a lock nor leave one behind.
#
# Uses a mount namespace (a user namespace too when not run by root). Where the system allows
# neither, the command runs as it is.
set -u

if [ "$(id -u)" -eq 0 ]; then
  ns=(unshare --mount --propagation private)
else
  ns=(unshare --user --map-root-user --mount --propagation private)
fi

# shellcheck disable=SC2016
inner='mount -t tmpfs -o mode=1777 kavot-test-shm /dev/shm && exec "$0" "$@"'
if command -v unshare >/dev/null 2>&1 && "${ns[@]}" sh -c 'mount -t tmpfs -o mode=1777 none /dev/shm' 2>/dev/null; then
  exec "${ns[@]}" sh -c "$inner" "$@"
fi
exec "$@"
