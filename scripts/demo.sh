#!/usr/bin/env bash
# Shows the server at work on a home of its own, step by step, and checks every step. Exits with 1 if a check fails.
# Builds the programs first; leaves nothing behind except the build.
#
#   scripts/demo.sh                  shows it
#   scripts/demo.sh --pictures DIR   … and puts pictures of a page and of the book there, which takes Chromium
set -euo pipefail
cd "$(dirname "$0")/.."
case "$#:${1:-}" in
  0:) pictures="" ;;
  2:--pictures) pictures="$(cd "$2" && pwd -P)" ;;
  *) echo "usage: scripts/demo.sh [--pictures DIR]" >&2; exit 2 ;;
esac

scripts/build.sh
export PATH="$(pwd -P)/build/release/bin:$PATH"

examples="$(pwd -P)/examples"
demo="$(mktemp -d "${TMPDIR:-/tmp}/kestor-demo-XXXXXX")"
export KESTOR_HOME="$demo/home" KESTOR_SYSTEM="$demo/system"
mkdir -m 700 "$demo/run"
export XDG_RUNTIME_DIR="$demo/run"
unset KESTOR_SERVER
server=""

server_runs() { [ -n "$server" ] && [ "$(readlink "/proc/$server/exe" 2>/dev/null)" = "$(command -v kestor)" ]; }

clean_up() {
  if server_runs; then kill "$server"; fi
  rm -rf "$demo"
}
trap clean_up EXIT
cd "$demo"

step() { printf '\n== %s\n' "$*"; }

fail() {
  printf '\nThe demonstration failed: %s\n' "$*" >&2
  exit 1
}

# Prints a command, runs it and checks its exit status: run STATUS COMMAND…
run() {
  local expected="$1" status=0 word
  shift
  printf '$'
  for word in "$@"; do
    case "$word" in
      *' '*) printf " '%s'" "$word" ;;
      *) printf ' %s' "$word" ;;
    esac
  done
  printf '\n'
  "$@" 2>&1 || status=$?
  [ "$status" -eq "$expected" ] || fail "'$*' ended with status $status instead of $expected"
  [ "$status" -eq 0 ] || printf '(exit status %d)\n' "$status"
}

step "A home is made: the folders are entered, the server is registered."
run 0 kestorctl setup --reports reports --module CT=contabil
run 0 kestorctl status
kestorctl status | grep -q '^server   not running$' || fail "a server runs before a client asked for one"

step "The first client that asks for a store starts the server. A model is written."
printf '<?xml version="1.0" encoding="UTF-8"?>\n<demonstration title="Vendas por m\303\252s"/>\n' > vendas.xml
run 0 kestorctl write CT 01 'Vendas por mês' vendas.xml --version 3
run 0 kestorctl status
server="$(kestorctl status | sed -n 's/^server   running, process \([0-9]*\),.*/\1/p')"
server_runs || fail "no server process runs"
echo "The server is process $server."

step "The model is read back: its version is told, its content is identical."
run 0 kestorctl read CT 01 'Vendas por mês' -o back.xml
run 0 cmp vendas.xml back.xml

step "A model that exists is not overwritten when that is not wanted: a notice, status 3."
run 3 kestorctl write CT 01 'Vendas por mês' back.xml --no-overwrite
run 3 kestorctl read CT 01 Nada

step "Models are listed; one of them becomes the default report."
run 0 kestorctl write CT 01 Exemplo vendas.xml
run 0 kestorctl list CT 01
run 0 kestorctl default CT 01 'Vendas por mês'
run 0 kestorctl default CT 01
[ "$(kestorctl default CT 01)" = 'Vendas por mês' ] || fail "it is not the default report"

step "A demonstration model that is deleted stays away, even when a model of that name is written again."
run 0 kestorctl delete CT 01 Exemplo --demo
run 0 kestorctl deleted CT 01
run 3 kestorctl write CT 01 Exemplo vendas.xml --check-demo
run 0 kestorctl write CT 01 Exemplo vendas.xml
run 0 kestorctl list CT 01
[ "$(kestorctl list CT 01)" = 'Vendas por mês' ] || fail "the deleted demonstration model is listed"

step "The fields that reports can use, from the catalogue that the application installed."
cp "$examples/contabil/XCT01.REL" contabil/
run 0 kestorctl fields CT 01

step "Models of the first generation, one of each layout; export settings and a filter beside one of them."
for model in Diario Razao Balancete 'Plano de contas'; do
  run 0 kestorctl legacy write CT 01 "$model" "$examples/contabil/$model.REL"
done
run 0 kestorctl legacy export put CT 01 Balancete "$examples/contabil/Balancete.REE"
run 0 kestorctl legacy filter put CT 01 Balancete "$examples/contabil/Balancete.filtro"
run 0 kestorctl legacy list CT 01
run 0 kestorctl legacy read CT 01 Balancete -o balancete.back
run 0 cmp "$examples/contabil/Balancete.REL" balancete.back
kestorctl legacy filter get CT 01 Balancete -o filtro.back
run 0 cmp "$examples/contabil/Balancete.filtro" filtro.back

step "They become report documents; one that was cut short stays, to be looked at."
head -c 200 "$examples/contabil/Razao.REL" > cut.rel
run 0 kestorctl legacy write CT 01 Cortado cut.rel
run 3 kestorctl migrate CT 01
run 0 kestorctl legacy list CT 01
[ "$(kestorctl legacy list CT 01)" = Cortado ] || fail "other models than the damaged one are left"
run 0 kestorctl list CT 01

step "What a report document says, and a field of it renumbered."
run 0 kestorctl show CT 01 Balancete
run 3 kestorctl renumber CT 01 302=301
kestorctl show CT 01 Balancete | grep -q '^ 301  SaldoMes ' || fail "the field has not been renumbered"

step "A report as the page that it describes, with sample lines; and as a PDF, with lines of a file, added up."
run 0 kestorctl preview CT 01 Balancete --rows 4
printf 'ContaCodigo;SaldoAtual;ContaGrau\n1.1;1.000,10;1\n1.1;0,90;2\n1.2;5;9\n' > saldos.csv
run 3 kestorctl preview CT 01 Balancete --data saldos.csv -o balancete.pdf
kestorctl preview CT 01 Balancete --data saldos.csv >saldos.txt 2>/dev/null || true
grep -q ' 1001,00$' saldos.txt || fail "the sum is not right"
run 3 kestorctl book book
ls book/models/*.svg >/dev/null || fail "the book has no picture"
if [ -n "$pictures" ]; then
  kestorctl preview CT 01 Balancete --rows 16 -o "$pictures/page.png"
  page="$(basename "$(grep -l '<h1>Balancete</h1>' book/models/*.html)")"
  chromium --headless --no-sandbox --disable-gpu --window-size=900,700 --user-data-dir="$demo/chromium" \
    --screenshot="$pictures/book.png" "file://$demo/book/models/$page" >chromium.log 2>&1 || fail "$(tail -n 1 chromium.log)"
fi

step "What the last change has changed; it is taken back, and the model is what it was, byte for byte."
run 3 kestorctl diff CT 01 Balancete
run 0 kestorctl undo CT 01
kestorctl show CT 01 Balancete | grep -q '^ 302  SaldoAnterior ' || fail "the renumbering has not been taken back"
run 0 kestorctl history CT 01 Balancete

step "Who uses a field, and what a person should look at: the model that was cut short, and one that is no report document."
run 3 kestorctl find --field SaldoAtual
run 3 kestorctl check

step "All models as one archive, which ordinary tools open; they come back into another installation, byte for byte."
run 0 kestorctl export models.tar
run 0 tar tf models.tar
kestorctl --home "$demo/other/home" setup --reports "$demo/other/reports" --module CT=contabil >/dev/null
run 0 kestorctl --home "$demo/other/home" import models.tar
for file in reports/*.RXL; do cmp "$file" "other/$file"; done || fail "a model is not what it was"
kestorctl list CT 01 >/dev/null
last_client=$SECONDS

step "On the disk: two bytes of version, low byte first, then the content."
run 0 ls -l reports
run 0 od -A d -t x1z -N 48 'reports/CT01Vendas por mês.RXL'
cmp -s <(printf '\003\000'; cat vendas.xml) 'reports/CT01Vendas por mês.RXL' || fail "the file holds something else"

step "About six seconds after its last client the server ends by itself."
[ "$(kestorctl status | sed -n 's/^server   running, process \([0-9]*\),.*/\1/p')" = "$server" ] ||
  fail "it is not the same server any more"
while server_runs; do
  [ $((SECONDS - last_client)) -le 30 ] || fail "the server still runs after 30 seconds"
  printf '.'
  sleep 0.5
done
waited=$((SECONDS - last_client))
printf ' gone after about %d seconds\n' "$waited"
[ "$waited" -ge 4 ] || fail "the server ended too early"
run 0 kestorctl status
kestorctl status | grep -q '^server   not running$' || fail "a server runs"
[ -z "$(find "$demo/run" -type s)" ] || fail "a socket was left behind"

printf '\nEverything was as it should be.\n'
