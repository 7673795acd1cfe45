#!/usr/bin/env bash
# Simulates two machines that mount one volume, for the contention test and the benchmarks: two network namespaces, and
# a third one that serves the volume. Needs root, /dev/fuse, and the packages of `scripts/setup.sh network`.
#
#   machines.sh up KIND          glusterfs (one brick), replicated (GlusterFS, three bricks) or moosefs; then
#                                FOLDER/a and FOLDER/b are the mounts
#   machines.sh kill-client a|b  ends the process behind a mount, as a crash does
#   machines.sh mount a|b        mounts again
#   machines.sh kill-brick       ends one of the processes that hold a replicated volume; others have none to spare
#   machines.sh down             ends and removes all of it
#
# FOLDER is $KESTOR_MACHINES. $KESTOR_VOLUME_OPTIONS are the volume's options for GlusterFS, NAME=VALUE each; by default
# those that docs/administration.md asks for.
set -euo pipefail
folder="${KESTOR_MACHINES:?the folder for the mounts}"
private="$folder/private"
served=10.77.0.1
name="kestor-$(cksum <<<"$folder" | cut -d ' ' -f 1)"
coherent="performance.quick-read=off performance.io-cache=off performance.read-ahead=off performance.write-behind=off
  performance.stat-prefetch=off performance.open-behind=off performance.readdir-ahead=off performance.nl-cache=off"
options="${KESTOR_VOLUME_OPTIONS-$coherent}"

within() { nsenter --net="/run/netns/$name-$1" -- "${@:2}"; }

wait_for() {
  local attempt
  for attempt in {1..150}; do
    "$@" >/dev/null 2>&1 && return
    sleep 0.1
  done
  echo "machines.sh: waited in vain for: $*" >&2
  return 1
}

connect() {
  local machine number=0
  for machine in served a b; do
    ip netns add "$name-$machine"
    within "$machine" ip link set lo up
  done
  within served ip address add "$served/32" dev lo
  for machine in a b; do
    number=$((number + 1))
    ip link add "to-$machine" netns "$name-served" type veth peer name uplink netns "$name-$machine"
    within served ip address add "10.77.$number.1/24" dev "to-$machine"
    within served ip link set "to-$machine" up
    within "$machine" ip address add "10.77.$number.2/24" dev uplink
    within "$machine" ip link set uplink up
    within "$machine" ip route add "$served/32" via "10.77.$number.1"
  done
}

# disk FOLDER: makes a separate file system, because bricks on one file system would share its journal.
disk() {
  mkdir -p "$1"
  truncate -s 2G "$1.image"
  mkfs.xfs -q "$1.image"
  mount -o loop "$1.image" "$1"
}

gluster() { within served gluster --glusterd-sock="$private/socket" --mode=script --log-file="$private/gluster.log" "$@"; }

serve_gluster() {
  local bricks="$1" number option kind=() paths=()
  mkdir "$private/state"
  cat >"$private/glusterd.vol" <<VOLUME
volume management
    type mgmt/glusterd
    option working-directory $private/state
    option run-directory $private/state/run
    option glusterd-sockfile $private/socket
    option transport-type socket
    option transport.socket.bind-address $served
    option transport.socket.listen-port 24007
    option max-port 60999
end-volume
VOLUME
  within served glusterd -f "$private/glusterd.vol" -l "$private/glusterd.log" -p "$private/glusterd.pid"
  wait_for gluster pool list
  for ((number = 1; number <= bricks; number++)); do
    disk "$private/brick$number"
    mkdir "$private/brick$number/data"
    paths+=("$served:$private/brick$number/data")
  done
  [ "$bricks" -eq 1 ] || kind=(replica "$bricks")
  gluster volume create reports "${kind[@]}" transport tcp "${paths[@]}" force
  for option in $options; do gluster volume set reports "${option%%=*}" "${option#*=}"; done
  gluster volume start reports
}

serve_moose() {
  local moose="$private/moose"
  disk "$moose/chunks"
  mkdir -p "$moose/state"
  printf 'MFSM NEW' >"$moose/state/metadata.mfs"
  echo '* / rw,alldirs,maproot=0' >"$moose/exports.cfg"
  : >"$moose/topology.cfg"
  echo "$moose/chunks" >"$moose/disks.cfg"
  cat >"$moose/master.cfg" <<MASTER
WORKING_USER = mfs
WORKING_GROUP = mfs
DATA_PATH = $moose/state
EXPORTS_FILENAME = $moose/exports.cfg
TOPOLOGY_FILENAME = $moose/topology.cfg
MATOML_LISTEN_HOST = $served
MATOCS_LISTEN_HOST = $served
MATOCL_LISTEN_HOST = $served
SESSION_SUSTAIN_TIME = 60
MASTER
  cat >"$moose/chunks.cfg" <<CHUNKS
WORKING_USER = mfs
WORKING_GROUP = mfs
DATA_PATH = $moose/state
HDD_CONF_FILENAME = $moose/disks.cfg
MASTER_HOST = $served
CSSERV_LISTEN_HOST = $served
BIND_HOST = $served
CHUNKS
  chown -R mfs:mfs "$moose"
  within served mfsmaster -c "$moose/master.cfg" start
  within served mfschunkserver -c "$moose/chunks.cfg" start
}

mount_volume() {
  local mount="$folder/$1"
  mkdir -p "$mount"
  case "$(cat "$private/kind")" in
    moosefs) wait_for within "$1" mfsmount "$mount" -H "$served" ;;
    *) within "$1" glusterfs --volfile-server="$served" --volfile-id=reports --entry-timeout=0 -l "$private/mount-$1.log" "$mount" ;;
  esac
  wait_for mountpoint -q "$mount"
  # The volume's disks come up after the mount.
  wait_for cp "$private/kind" "$mount/.ready"
  rm "$mount/.ready"
  # By default MooseFS keeps deleted and replaced files for a day, which would fill the small disk.
  [ "$(cat "$private/kind")" != moosefs ] || within "$1" mfssettrashtime 0 "$mount" >/dev/null
}

# end SIGNAL PROCESS…
end() {
  local process
  for process in "${@:2}"; do kill "-$1" "$process" 2>/dev/null || true; done
}

processes_of() { [ ! -e "/run/netns/$name-$1" ] || ip netns pids "$name-$1"; }

down() {
  local machine mount device
  for mount in "$folder/a" "$folder/b"; do umount -l "$mount" 2>/dev/null || true; done
  for machine in a b served; do
    end KILL $(processes_of "$machine")
    ip netns delete "$name-$machine" 2>/dev/null || true
  done
  for mount in "$private"/brick? "$private/moose/chunks"; do
    ! mountpoint -q "$mount" || wait_for umount "$mount"
  done
  rm -rf --one-file-system "$folder"
  rm -f "/var/log/glusterfs/bricks/$(tr / - <<<"${private#/}")"-*
}

case "${1:-}" in
  up)
    mkdir -p "$private"
    # The servers' own user must reach its disk.
    chmod 711 "$folder" "$private"
    echo "$2" >"$private/kind"
    connect
    case "$2" in
      glusterfs) serve_gluster 1 ;;
      replicated) serve_gluster 3 ;;
      moosefs) serve_moose ;;
      *) echo "machines.sh: no kind of volume is called $2" >&2; exit 2 ;;
    esac
    mount_volume a
    mount_volume b
    ;;
  mount) mount_volume "$2" ;;
  kill-client)
    end KILL $(processes_of "$2")
    wait_for umount -l "$folder/$2"
    ;;
  kill-brick) [ "$(cat "$private/kind")" != replicated ] || end KILL "$(cat "$private"/state/run/vols/reports/*brick1-data.pid)" ;;
  down) down ;;
  *) sed -n '2,/^set/s/^# \{0,1\}//p' "$0"; exit 2 ;;
esac
