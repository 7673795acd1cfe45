#!/usr/bin/env bash
# Measures, always beside a baseline in the same run; docs/performance.md says what the figures mean.
#
#   scripts/bench.sh            all benchmarks, and the table of ratios
#   scripts/bench.sh --once     every benchmark a moment only, to see that it runs
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh tests
cmake --preset release -DKESTOR_TESTS=OFF -DKESTOR_BENCH=ON >/dev/null
cmake --build --preset release
if [ "${1:-}" = --once ]; then
  build/release/bin/kestor_bench --once
else
  build/release/bin/kestor_bench
fi
