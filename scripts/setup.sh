#!/usr/bin/env bash
# Installs what this project is built with, from Debian's packages; does and asks for nothing when all is there.
#
#   scripts/setup.sh            what building the programs takes
#   scripts/setup.sh tests      … and the tests and benchmarks
#   scripts/setup.sh checks     … and everything that .ci/run uses
#   scripts/setup.sh network    what scripts/network.sh takes beyond the tests
#   scripts/setup.sh prove      … and everything that scripts/prove.sh uses
#   scripts/setup.sh packages   what scripts/package.sh takes beyond the programs
set -euo pipefail

packages=(g++ cmake ninja-build libarchive-dev libcli11-dev libexpat1-dev nettle-dev nlohmann-json3-dev)
tests=(python3 libgtest-dev libgmock-dev libbenchmark-dev libxml2-dev)
checks=(make clang clang-format clang-tidy libclang-rt-dev)
network=(iproute2 xfsprogs glusterfs-server glusterfs-client moosefs-master moosefs-chunkserver moosefs-client)
packaging=(debootstrap dpkg-dev file lintian pkgconf python3)
case "${1:-programs}" in
  programs) ;;
  tests) packages+=("${tests[@]}") ;;
  checks) packages+=("${tests[@]}" "${checks[@]}") ;;
  network) packages+=("${tests[@]}" "${network[@]}") ;;
  prove) packages+=("${tests[@]}" "${checks[@]}" "${network[@]}" valgrind) ;;
  packages) packages+=("${packaging[@]}") ;;
  *) echo "usage: scripts/setup.sh [programs|tests|checks|network|prove|packages]" >&2; exit 2 ;;
esac

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed' || missing+=("$package")
done
[ "${#missing[@]}" -eq 0 ] && exit 0

echo "Installing: ${missing[*]}"
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  command -v sudo >/dev/null || { echo "Please install as root: apt-get install ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
"${as_root[@]}" apt-get update -q
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get install -q -y --no-install-recommends "${missing[@]}"
