#!/bin/bash
# Builds the benchmarks into build-bench and prints the traversal table: build
# time and memory of kdTrees[0] over generated towns of 10k, 100k and 1M
# triangles and over a real model, rays per second of IntersectSWGeometry, and
# the same through Embree 3's rtcIntersect1 with the share of rays on which
# both name the same nearest triangle. Then the build of the 1M town on one
# worker and on all, and whole ray-traced frames of FZK-Haus on one worker
# and on all (bench/frame_rate; BRINDLEX_BENCH_FRAME_OPTIONS adds
# brindlex-render options, one more row each, separated by ";"; by default
# one row of the path tracer, "--path-tracing"). With --gbench
# it also runs the Google Benchmark programs. BRINDLEX_BENCH_BUILD names
# another build folder.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="${BRINDLEX_BENCH_BUILD:-$root/build-bench}"
model="${BRINDLEX_BENCH_MODEL:-/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb}"

# Embree stays a peer to measure against: the script never installs it.
dpkg -s libembree-dev >/dev/null 2>&1 || echo "Embree 3 not installed: its columns stay empty" >&2

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBRINDLEX_BENCHMARKS=ON \
  -DBRINDLEX_BENCH_MODEL="$model" >/dev/null
cmake --build "$build" --target trace_compare tree_digest frame_rate intersect_bench -j2 >/dev/null

# FZK-Haus is read in metres and scaled by 100, to the centimetres of
# brindlex-render's import.
building="${BRINDLEX_BENCH_BUILDING:-/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc}"
scenes=(10000 100000 1000000)
[ -f "$model" ] && scenes+=("$model")
[ -f "$building" ] && scenes+=("$building@100")

field() { sed -n "s/.* $1=\([^ ]*\).*/\1/p" <<<" $2"; }
percent() { [ -z "$2" ] || awk -v a="$1" -v b="$2" 'BEGIN { printf "%.0f%%", 100 * a / b }'; }
# Rates per processor-second of the tracing thread are what compares on a
# shared machine; wall-clock rates follow whatever else runs.
printf '| scene | triangles | nodes | build s | build processor s | tree MB | peak MB | walk layout s | walk layout MB | camera rays/s | random rays/s | camera rays/processor-s | random rays/processor-s | camera rays/s, %s threads | random rays/s, %s threads | Embree build s | Embree camera rays/processor-s | Embree random rays/processor-s | ours / Embree, camera | ours / Embree, random | same nearest triangle, camera | same nearest triangle, random |\n' \
  "$(nproc)" "$(nproc)"
printf '|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n'
for scene in "${scenes[@]}"; do
  row="$("$build/bench/trace_compare" "$scene")"
  cam="$(field cam_cpu_rps "$row")" rnd="$(field rnd_cpu_rps "$row")"
  ecam="$(field embree_cam_cpu_rps "$row")" ernd="$(field embree_rnd_cpu_rps "$row")"
  printf '| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n' \
    "$(basename "$scene")" "$(field triangles "$row")" "$(field nodes "$row")" "$(field build_s "$row")" \
    "$(field build_cpu_s "$row")" "$(field tree_MB "$row")" "$(field peak_MB "$row")" "$(field layout_s "$row")" \
    "$(field layout_MB "$row")" "$(field cam_rps "$row")" "$(field rnd_rps "$row")" "$cam" "$rnd" \
    "$(field cam_rps_all "$row")" "$(field rnd_rps_all "$row")" "$(field embree_build_s "$row")" "$ecam" "$ernd" \
    "$(percent "$cam" "$ecam")" "$(percent "$rnd" "$ernd")" "$(field agree_cam "$row")" "$(field agree_rnd "$row")"
done

# Build scaling: one worker (the process narrowed to one processor, which is
# what the engine counts its workers from) against all, alternated, medians
# of three.
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }
first_cpu="$(taskset -pc $$ | sed 's/.*: *//; s/[-,].*//')"
build_seconds() { DIGEST_BUILD_ONLY=1 "$@" "$build/bench/tree_digest" 1000000 2>&1 >/dev/null | sed -n 's/.*build_s=\([^ ]*\).*/\1/p'; }
one=() all=()
for run in 1 2 3; do
  one+=("$(build_seconds taskset -c "$first_cpu")")
  all+=("$(build_seconds env)")
done
one_s="$(printf '%s\n' "${one[@]}" | median)"
all_s="$(printf '%s\n' "${all[@]}" | median)"
printf '\n| build of the 1000000 town | 1 worker s | %s workers s | scaling |\n|---|---|---|---|\n' "$(nproc)"
printf '| median of 3, alternated | %s | %s | %s |\n' "$one_s" "$all_s" \
  "$(awk -v a="$one_s" -v b="$all_s" 'BEGIN { printf "%.2f", a / b }')"

# Whole frames: pixels per second of the median frame, one worker and all.
if [ -f "$building" ]; then
  printf '\n| frame of %s, 1280 x 720, options | pixels/s, 1 worker | pixels/s, %s workers | scaling | busy share | quiet scaling | same pixels |\n|---|---|---|---|---|---|---|\n' \
    "$(basename "$building")" "$(nproc)"
  IFS=";" read -r -a frame_options <<<"${BRINDLEX_BENCH_FRAME_OPTIONS---path-tracing}"
  for options in "" "${frame_options[@]}"; do
    # shellcheck disable=SC2086
    row="$("$build/bench/frame_rate" "$building" 1280 720 3 $options)"
    printf '| %s | %s | %s | %s | %s | %s | %s |\n' "${options:-none (ray tracer)}" \
      "$(field pixels_per_s_1 "$row")" "$(field pixels_per_s_all "$row")" "$(field scaling "$row")" \
      "$(field busy_all "$row")" "$(field quiet_scaling "$row")" "$(field same_pixels "$row")"
  done
fi

if [ "${1:-}" = "--gbench" ]; then
  "$build/bench/intersect_bench" --benchmark_min_time=0.5
fi
