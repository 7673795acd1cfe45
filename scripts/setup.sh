#!/usr/bin/env bash
# Installs the Debian packages that this project is built with, as root or through sudo; if neither is possible, says
# what to install. Does and asks nothing if everything is there.
#
#   scripts/setup.sh            what building the programs takes
#   scripts/setup.sh tests      … and the tests and benchmarks
#   scripts/setup.sh checks     … and everything that .ci/run uses
#   scripts/setup.sh network    what scripts/network.sh takes beyond the tests
#   scripts/setup.sh prove      … and everything that scripts/prove.sh uses
#   scripts/setup.sh packages   what scripts/package.sh takes beyond the programs
set -euo pipefail

packages=(g++ cmake ninja-build libarchive-dev libcli11-dev libcsv-dev libexpat1-dev libpango1.0-dev nettle-dev
  nlohmann-json3-dev pkgconf)
tests=(python3 poppler-utils libgtest-dev libgmock-dev libbenchmark-dev libxml2-dev)
checks=(make clang clang-format clang-tidy libclang-rt-dev)
network=(iproute2 xfsprogs glusterfs-server glusterfs-client moosefs-master moosefs-chunkserver moosefs-client)
packaging=(debootstrap dpkg-dev file lintian python3)
case "${1:-programs}" in
  programs) ;;
  tests) packages+=("${tests[@]}") ;;
  checks) packages+=("${tests[@]}" "${checks[@]}") ;;
  network) packages+=("${tests[@]}" "${network[@]}") ;;
  prove) packages+=("${tests[@]}" "${checks[@]}" "${network[@]}" chromium chromium-driver valgrind) ;;
  packages) packages+=("${packaging[@]}") ;;
  *) echo "usage: scripts/setup.sh [programs|tests|checks|network|prove|packages]" >&2; exit 2 ;;
esac

missing() {
  local package
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || echo "$package"
  done
}

mapfile -t missing < <(missing "${packages[@]}")
[ "${#missing[@]}" -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
  sudo -v 2>/dev/null || {
    # Includes those of the tests, so that a user has to ask for packages only once.
    mapfile -t missing < <(missing "${packages[@]}" "${tests[@]}" | sort -u)
    echo "Please run as root: apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  }
fi

log="$(mktemp "${TMPDIR:-/tmp}/kestor-setup-XXXXXX.log")"
echo "Installing (log: $log): ${missing[*]}"
{
  "${as_root[@]}" apt-get update -q &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
} >"$log" 2>&1 </dev/null || {
  printf 'The installation failed. The end of %s:\n' "$log" >&2
  tail -n 30 "$log" >&2
  exit 1
}
rm "$log"
