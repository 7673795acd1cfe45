#!/usr/bin/env bash
# Proves that nothing is lost if several machines share the reports on a network file system: for each kind of volume,
# two machines contend for a minute, are killed, lose their mount, and the volume loses a disk.
#
#   scripts/network.sh [RUNS]     once by default
#
# Needs root, /dev/fuse and the packages of `scripts/setup.sh network`. If this machine cannot mount such volumes, says
# why and proves nothing.
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-1}"

skip() {
  echo "Network file systems: not tried, $*."
  exit 0
}
[ "$(id -u)" -eq 0 ] || skip "only root can mount them"
(: </dev/fuse) 2>/dev/null || skip "there is no /dev/fuse that can be opened"
for tool in ip mkfs.xfs glusterd glusterfs mfsmaster mfschunkserver mfsmount; do
  command -v "$tool" >/dev/null || skip "$tool is missing: scripts/setup.sh network installs it"
done
unshare --net --mount true 2>/dev/null || skip "this machine allows no network and no mounts of its own"

scripts/setup.sh tests
cmake --preset debug -DKESTOR_BENCH=OFF >/dev/null
cmake --build --preset debug --target contention_test kestor kestorctl
PATH="$PWD/build/debug/bin:$PATH"

# The volumes' servers accept neither blanks nor long paths, and run as users of their own.
place="${TMPDIR:-/tmp}"
[[ "$place" != *[[:space:]]* && "${#place}" -le 40 ]] || place=/tmp
folder="$(mktemp -d "$place/kestor-network-XXXXXX")"
chmod 711 "$folder"
echo "If this is killed: KESTOR_MACHINES=$folder/machines tests/contention/machines.sh down"
export KESTOR_MACHINES="$folder/machines" KESTOR_LONG_TESTS=1 KESTOR_CONTENTION_MINUTES=1
export KESTOR_HOME="$folder/home" KESTOR_SYSTEM="$folder/system" XDG_RUNTIME_DIR="$folder/run"
mkdir -m 700 "$XDG_RUNTIME_DIR"
trap 'machines down || echo "network.sh: something of $folder is left"; rm -rf --one-file-system "$folder"' EXIT

machines() { tests/contention/machines.sh "$@" >"$folder/log" 2>&1 || { cat "$folder/log"; return 1; }; }

truncate -s 320M "$folder/image"
mkfs.xfs -q "$folder/image"
mkdir "$folder/disk"
mount -o loop "$folder/image" "$folder/disk" 2>/dev/null || skip "no file can be mounted as a disk"
umount "$folder/disk"

fail() {
  echo "network.sh: $*" >&2
  exit 1
}

server() { kestorctl --json status | grep '"pid"'; }

# A server that loses its mount reports it, and continues on the next mount.
lose_mount() {
  local model=(CT 01 Vendas) first warnings
  rm -rf "$KESTOR_HOME"
  kestorctl setup --reports "$KESTOR_MACHINES/a/Relatorios" --module CT="$folder" >/dev/null
  warnings="$(kestorctl status)"
  [[ "$warnings" != *warning* ]] || fail "status warns of a volume with the options that it asks for: $warnings"
  echo first | kestorctl write "${model[@]}" -
  first="$(server)"
  machines kill-client a
  ! kestorctl read "${model[@]}" 2>/dev/null || fail "a model is read without its volume"
  ! echo second | kestorctl write "${model[@]}" - 2>/dev/null || fail "a model is written without its volume"
  machines mount a
  [ "$(kestorctl read "${model[@]}" 2>/dev/null)" = first ] || fail "the model is not what it was before the mount went"
  [ "$(server)" = "$first" ] || fail "the server did not outlive its mount"
}

# If one machine rewrites a file in place, the other one reads the new content, even if it has just read the old one.
see_changes() {
  local name
  kestorctl --home "$folder/other" setup --reports "$KESTOR_MACHINES/b/Relatorios" --module CT="$folder" >/dev/null
  for name in Um Dois; do echo content | kestorctl write CT 01 "$name" -; done
  for name in Um Dois Um Dois Um Dois Um Dois; do
    kestorctl default CT 01 "$name"
    [ "$(kestorctl --home "$folder/other" default CT 01)" = "$name" ] || fail "the other machine has an older default"
  done
}

for ((run = 1; run <= runs; run++)); do
  for kind in moosefs replicated; do
    printf '%s, run %d of %d\n' "$kind" "$run" "$runs"
    machines up "$kind"
    lose_mount
    see_changes
    timeout -k 10 180 build/debug/bin/contention_test --gtest_brief=1
    machines down
  done
done
# The volume with its default options.
KESTOR_VOLUME_OPTIONS='' machines up glusterfs
mkdir "$KESTOR_MACHINES/a/Relatorios"
kestorctl status | grep -q '^warning .*performance.write-behind' || fail "status does not warn of caches"
