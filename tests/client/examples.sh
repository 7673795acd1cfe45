# Runs the programs of examples/clients against the real server: each replaces a text in a model, and all print the
# same.
#
#   examples.sh KESTORCTL EXAMPLES PROGRAM…     a program is a command line, such as "python3 replace.py"
set -u
kestorctl=$1 examples=$2
shift 2
folder=$(mktemp -d)
export KESTOR_HOME="$folder/home" XDG_RUNTIME_DIR="$folder" KESTOR_SYSTEM="$folder/none"
unset KESTOR_SERVER
trap '
  server=$("$kestorctl" status | sed -n "s/.*running, process \([0-9]*\).*/\1/p")
  [ -z "$server" ] || kill -9 "$server"
  rm -rf "$folder"' EXIT

failed() { printf '%s\n' "$1" >&2; exit 1; }

"$kestorctl" setup --reports "$folder/reports" --module "CT=$folder/contabil" >"$folder/log" || failed "no setup"
cp "$examples/contabil/XCT01.REL" "$folder/contabil"
for model in Balancete Razao; do
  "$kestorctl" legacy write CT 01 "$model" "$examples/contabil/$model.REL" >"$folder/log" || failed "$model is not written"
done
"$kestorctl" migrate CT 01 >"$folder/log"
"$kestorctl" read CT 01 Balancete -o "$folder/before"
places=$(grep -o Arial "$folder/before" | wc -l)
[ "$places" -gt 1 ] || failed "the model has the text $places times"
from=Arial
for program in "$@"; do
  to="$from+"
  told=$($program CT 01 Balancete "$from" "$to") || failed "$program ends with $?"
  [ "$told" = "$(printf 'Balancete\nRazao\nBalancete: %d replaced' "$places")" ] || failed "$program: $told"
  "$kestorctl" read CT 01 Balancete -o "$folder/after"
  sed "s/Arial/$to/g" "$folder/before" | cmp - "$folder/after" || failed "$program writes something else"
  $program CT 01 Nada a b >"$folder/log" 2>&1 && failed "$program changes what is not there"
  grep -q 'CT01Nada.RXL' "$folder/log" || failed "$program: $(cat "$folder/log")"
  from=$to
done
