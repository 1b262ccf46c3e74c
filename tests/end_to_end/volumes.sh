#!/usr/bin/env bash
# The small volumes of the full-volume stories, one for each test: volumes.sh mount|unmount DIRECTORY LETTER...
# Mounts a tmpfs in DIRECTORY for each letter and makes it that drive of the Wine prefix. Where mounting is not
# permitted it says so and succeeds: the tests then find no drive and are skipped, with the reason.
set -u
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
prefix=${LAUNCHER_WINEPREFIX:-$root/build/wineprefix}
size=8m  # two runtimes of about 400 KB, the state, and a filler

action=${1:?mount or unmount} directory=${2:?directory}
shift 2

drop() {
  rm -f "$prefix/dosdevices/$1:"
  if mountpoint -q "$directory/$1"; then
    umount "$directory/$1" 2>/dev/null || umount -l "$directory/$1" || return 1
  fi
  if [ -d "$directory/$1" ]; then rmdir "$directory/$1"; fi
}

provide() {
  mkdir -p "$directory/$1"
  if ! mount -t tmpfs -o "size=$size,mode=0777" launcher-test "$directory/$1"; then
    echo "skipped: no volume $1: for the full-volume stories, since mounting a tmpfs is not permitted here"
    rmdir "$directory/$1"
    return 0
  fi
  ln -s "$directory/$1" "$prefix/dosdevices/$1:"
}

status=0
if [ "$action" = mount ]; then
  "$root/tools/wine" cmd /c exit 0 >/dev/null 2>&1 || status=1  # the prefix comes into being with the first program
fi
for letter in "$@"; do
  drop "$letter" || status=1  # also before mounting: an interrupted run may have left one
  if [ "$action" = mount ]; then provide "$letter" || status=1; fi
done
if [ "$action" = unmount ] && [ -d "$directory" ]; then rmdir "$directory" || status=1; fi
exit $status
