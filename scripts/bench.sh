#!/usr/bin/env bash
# Runs the benchmarks, each with a baseline in the same run; docs/performance.md explains the figures.
#
#   scripts/bench.sh            all benchmarks, and the table of ratios; as root, renumbering and migration once more on
#                               file systems made for it (6 GiB each in TMPDIR, one after the other)
#   scripts/bench.sh --once     every benchmark a moment only, to see that it runs
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh tests
cmake --preset release -DKESTOR_TESTS=OFF -DKESTOR_BENCH=ON >/dev/null
cmake --build --preset release
if [ "${1:-}" = --once ]; then
  build/release/bin/kestor_bench --once
  exit
fi
build/release/bin/kestor_bench
[ "$(id -u)" = 0 ] || exit 0

place=$(mktemp -d)
clear_place() {
  ! mountpoint -q "$place/mounted" || umount "$place/mounted"
  rm -rf --one-file-system "$place"
}
trap clear_place EXIT
mkdir "$place/mounted"

# on KIND [OPTION]: measures on a file system of that kind.
on() {
  if ! grep -qw "$1" /proc/filesystems || ! command -v "mkfs.$1" >/dev/null; then
    echo "no $1 here"
    return
  fi
  local inodes=()
  [ "$1" != ext4 ] || inodes=(-i 4096) # for small files
  rm -f "$place/image"
  truncate -s 6G "$place/image"
  "mkfs.$1" -q "${inodes[@]}" "$place/image"
  mount -o loop "$place/image" "$place/mounted"
  echo "On ${2:+an aged }$1:"
  TMPDIR=$place/mounted build/release/bin/kestor_bench ${2:+"$2"} --benchmark_filter='Migration|Renumbering'
  umount "$place/mounted"
}
on ext4
on xfs
on btrfs
on ext4 --aged
