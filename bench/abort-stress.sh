#!/usr/bin/env bash
# Hundreds of random aborts under ThreadSanitizer: the demo house and a real
# building. Prints the time from abort to idle per kind of work; fails on
# any run that did not come back to the same picture, and on any report of
# ThreadSanitizer.
#   bench/abort-stress.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-300}"
cmake -S . -B build-tsan -DCMAKE_BUILD_TYPE=Release -DBRINDLEX_SANITIZER=thread -DBRINDLEX_BENCHMARKS=ON >/dev/null
cmake --build build-tsan --target abort_stress -j "$(nproc)" >/dev/null
export TSAN_OPTIONS="halt_on_error=1 second_deadlock_stack=1"
echo "== demo house, $runs runs"
build-tsan/bench/abort_stress --runs "$runs" --size 160 120
model=/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc
if [ -f "$model" ]; then
  echo "== $(basename "$model"), $runs runs"
  build-tsan/bench/abort_stress "$model" --runs "$runs" --size 160 120
fi
