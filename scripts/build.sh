#!/usr/bin/env bash
# Builds the programs into build/release/bin, installing first what is missing.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh programs
cmake --preset release -DKESTOR_TESTS=OFF -DKESTOR_BENCH=OFF >/dev/null
cmake --build --preset release --target kestor kestorctl
