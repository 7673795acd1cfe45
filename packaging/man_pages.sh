#!/bin/sh
# Makes the manual pages of the programs from their own help texts, so that the two cannot differ.
#
#   packaging/man_pages.sh FOLDER VERSION KESTOR KESTORCTL
set -eu
folder="$1" version="$2" kestor="$3" kestorctl="$4"
program="$(dirname "$0")/man_page.awk"

# page NAME SEE-ALSO TEXT
page() {
  printf '%s\n' "$3" | awk -v name="$1" -v version="$version" -v above="$2" -f "$program" | gzip -9n >"$folder/$1.1.gz"
}

# command_page NAME SEE-ALSO [WORD…]: the page of a command, and of all commands in it.
command_page() (
  name="$1" above="$2"
  shift 2
  text="$("$kestorctl" help "$@")"
  page "$name" "$above" "$text"
  for command in $(printf '%s\n' "$text" | sed -n '/^Subcommands:$/,/^$/s/^  \([a-z]*\) .*/\1/p'); do
    command_page "$name-$command" "$name" "$@" "$command"
  done
)

rm -rf "$folder"
mkdir -p "$folder"
text="$("$kestor" --help)"
page kestor kestorctl "$text"
command_page kestorctl kestor
