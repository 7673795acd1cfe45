# A first tour with the installed programs. Builds the example clients against the installed files.
#
#   tour.sh PREFIX EXAMPLES-SCRIPT
set -eu
examples="$1/share/doc/kestor/examples" script="$2"
folder="$(mktemp -d)"
trap 'rm -rf "$folder"' EXIT
cd "$folder"
mkdir -m 700 run
export KESTOR_HOME="$folder/home" KESTOR_SYSTEM="$folder/system" XDG_RUNTIME_DIR="$folder/run"
unset KESTOR_SERVER

kestorctl setup --reports reports --module CT=contabil
echo content >model
kestorctl write CT 01 Vendas model
[ "$(kestorctl list CT 01)" = Vendas ]
kestorctl read CT 01 Vendas -o back
cmp model back
kestorctl status | tee status
grep -q "^class .*: $1/bin/kestor$" status
kill "$(sed -n 's/^server   running, process \([0-9]*\),.*/\1/p' status)"
[ "$(kestorctl complete stat | cut -f1)" = status ]

cc -o replace-c "$examples/clients/replace.c" $(pkg-config --cflags --libs kestor)
c++ -std=c++20 -o replace-cpp "$examples/clients/replace.cpp" $(pkg-config --cflags --libs kestor)
sh "$script" kestorctl "$examples" ./replace-c ./replace-cpp "python3 $examples/clients/replace.py"
