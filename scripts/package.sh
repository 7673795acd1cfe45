#!/usr/bin/env bash
# Makes the Debian packages kestor, libkestor1, libkestor-dev and python3-kestor in build/packages, and first installs
# what is missing.
#
#   scripts/package.sh            makes them, and has lintian look at them
#   scripts/package.sh --check    … and installs them in a bare system of their own, goes on a tour there, and removes
#                                 them, after which nothing may be left; unpacks them in a folder where no such system
#                                 can be made
set -euo pipefail
cd "$(dirname "$0")/.."
[ "$*" = "" ] || [ "$*" = --check ] || { echo "usage: scripts/package.sh [--check]" >&2; exit 2; }

scripts/setup.sh packages
SOURCE_DATE_EPOCH="$(git log -1 --format=%ct 2>/dev/null || date +%s)"
export SOURCE_DATE_EPOCH
cmake --preset packages >/dev/null
cmake --build --preset packages
rm -rf build/packages
mkdir -p build/packages
(cd build/release && cpack >cpack.log 2>&1) || { cat build/release/cpack.log; exit 1; }
rm -rf build/packages/_CPack_Packages
# The packages go to no distribution, so no bug report asks for the first upload. CPack calls ldconfig in addition to
# the trigger.
lintian --allow-root --fail-on error,warning --suppress-tags initial-upload-closes-no-bugs,maintscript-calls-ldconfig \
  build/packages/*.deb
ls build/packages/*.deb
[ "$*" = --check ] || exit 0

fail() { echo "package.sh: $*" >&2; exit 1; }

folder="$(mktemp -d "${TMPDIR:-/tmp}/kestor-packages-XXXXXX")"
trap 'rm -rf --one-file-system "$folder"' EXIT
root="$folder/root"
mkdir "$root"

# Lists the files of the system, without its own records and temporary files.
contents() { (cd "$root" && find . -xdev \( -path ./var -o -path ./tmp -o -path ./run \) -prune -o -print | sort); }

# Runs in a bare system of its own, with what building a client needs. Its processes end with it.
in_a_bare_system() {
  local suite
  suite="$(. /etc/os-release && echo "$VERSION_CODENAME")"
  [ "$(id -u)" -eq 0 ] && unshare --mount --pid --fork true 2>/dev/null || return 1
  debootstrap --variant=minbase --include=g++,pkgconf,python3 "$suite" "$root" >"$folder/log" 2>&1 || return 1
  mkdir "$root/packages"
  cp build/packages/*.deb packaging/tour.sh tests/client/examples.sh "$root/packages"
  contents >"$folder/before"
  unshare --mount --pid --fork sh -e -c '
    mount -t proc proc "$1/proc"
    export DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8
    chroot "$1" sh -e -c "apt-get update -q; apt-get install -q -y /packages/*.deb
      sh /packages/tour.sh /usr /packages/examples.sh
      apt-get purge -q -y --autoremove kestor libkestor1 libkestor-dev python3-kestor"
  ' sh "$root" >"$folder/log" 2>&1 || { cat "$folder/log"; fail "the packages do not work in a bare system"; }
}

in_a_folder() {
  local package library
  rm -rf --one-file-system "$root"
  mkdir "$root"
  for package in build/packages/*.deb; do dpkg-deb -x "$package" "$root"; done
  library="$(dirname "$(echo "$root"/usr/lib/*/libkestor.so.1)")"
  contents >"$folder/before"
  PATH="$root/usr/bin:$PATH" LD_LIBRARY_PATH="$library" PKG_CONFIG_PATH="$library/pkgconfig" \
    PYTHONDONTWRITEBYTECODE=1 PYTHONPATH="$root/usr/lib/python3/dist-packages" \
    sh packaging/tour.sh "$root/usr" "$PWD/tests/client/examples.sh" >"$folder/log" 2>&1 ||
    { cat "$folder/log"; fail "the packages do not work in a folder"; }
}

place="in a bare system, and removed"
in_a_bare_system || { in_a_folder && place="in a folder: no bare system can be made here"; }
contents | diff "$folder/before" - || fail "these files are left (>) or lost (<)"
echo "The packages work ($place)."
