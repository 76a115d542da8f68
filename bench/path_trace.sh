#!/bin/bash
# Builds path_trace_compare into build-bench and prints the path-tracing
# table: for the demo house and a real building at 1280 x 720, paths per
# second with one worker (taskset -c 0) and with two, run in turns and
# taken as the median of ROUNDS runs; then, in one run with two workers, the
# time of 16 and 64 passes (timed within one render of 64) and an ordinary
# frame with and without ambient occlusion.
#
#   bench/path_trace.sh [ROUNDS] [PASSES_FOR_THE_WORKER_RATIO]
#
# WIDTH and HEIGHT in the environment change the size (a shorter run on a
# busy machine).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-bench"
rounds="${1:-3}"
ratioPasses="${2:-4}"
size=(--width "${WIDTH:-1280}" --height "${HEIGHT:-720}")
ifc="/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc"

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBRINDLEX_BENCHMARKS=ON >/dev/null
cmake --build "$build" --target path_trace_compare -j2 >/dev/null
program="$build/bench/path_trace_compare"

field() { sed -n "s/.* $1=\([^ ]*\).*/\1/p" <<<" $2"; }
median() { sort -g | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

# The IFC model is in metres; the engine's fixed distances (the reach of
# ambient occlusion, the offsets of continuation rays) are tuned for a
# smaller world unit, so it is scaled to centimetres.
scenes=("demo:1")
[ -f "$ifc" ] && scenes+=("$ifc:100")

printf '| scene | triangles | paths/s, 1 worker | paths/s, 2 workers | 2 / 1 workers | 16 passes, 2 workers | 64 passes, 2 workers | frame | frame with occlusion | occlusion / plain, clock | occlusion / plain, processor |\n'
printf '|---|---|---|---|---|---|---|---|---|---|---|\n'
for entry in "${scenes[@]}"; do
  scene="${entry%:*}"
  scale="${entry##*:}"
  one=() two=()
  for ((r = 0; r < rounds; r++)); do
    # One worker and two in turns, so that both meet the same load.
    row1="$(taskset -c 0 "$program" "$scene" --scale "$scale" "${size[@]}" --passes "$ratioPasses" --no-frames)"
    row2="$(taskset -c 0,1 "$program" "$scene" --scale "$scale" "${size[@]}" --passes "$ratioPasses" --no-frames)"
    echo "$row1" >&2
    echo "$row2" >&2
    one+=("$(field "paths_per_s_$ratioPasses" "$row1")")
    two+=("$(field "paths_per_s_$ratioPasses" "$row2")")
  done
  long="$(taskset -c 0,1 "$program" "$scene" --scale "$scale" "${size[@]}" --passes 16,64)"
  echo "$long" >&2
  m1="$(printf '%s\n' "${one[@]}" | median)"
  m2="$(printf '%s\n' "${two[@]}" | median)"
  printf '| %s | %s | %.0f | %.0f | %.2f | %s s | %s s | %s s | %s s | %s | %s |\n' \
    "$(basename "$scene")" "$(field triangles "$long")" "$m1" "$m2" "$(awk -v a="$m2" -v b="$m1" 'BEGIN { print a / b }')" \
    "$(field passes_16_s "$long")" "$(field passes_64_s "$long")" "$(field frame_s "$long")" \
    "$(field frame_ao_s "$long")" "$(field ao_ratio "$long")" "$(field ao_cpu_ratio "$long")"
done
