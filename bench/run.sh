#!/bin/bash
# Builds the benchmarks into build-bench and prints the traversal table: build
# time and memory of kdTrees[0] over generated towns of 10k, 100k and 1M
# triangles and over a real model, rays per second of IntersectSWGeometry, and
# the same through Embree 3's rtcIntersect1 with the share of rays on which
# both name the same nearest triangle. With --gbench it also runs the Google
# Benchmark programs.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-bench"
model="${BRINDLEX_BENCH_MODEL:-/usr/share/assimp/models/glTF2/2CylinderEngine-glTF-Binary/2CylinderEngine.glb}"

if ! dpkg -s libembree-dev >/dev/null 2>&1; then
  apt-get install -y libembree-dev >/dev/null || echo "Embree 3 not installed: its columns stay empty" >&2
fi

cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DBRINDLEX_BENCHMARKS=ON \
  -DBRINDLEX_BENCH_MODEL="$model" >/dev/null
cmake --build "$build" --target trace_compare intersect_bench -j2 >/dev/null

scenes=(10000 100000 1000000)
[ -f "$model" ] && scenes+=("$model")

field() { sed -n "s/.* $1=\([^ ]*\).*/\1/p" <<<" $2"; }
printf '| scene | triangles | nodes | build s | tree MB | peak MB | walk layout s | walk layout MB | camera rays/s | random rays/s | camera rays/s, %s threads | random rays/s, %s threads | Embree build s | Embree camera rays/s | Embree random rays/s | ours / Embree, camera | same nearest triangle, camera | same nearest triangle, random |\n' \
  "$(nproc)" "$(nproc)"
printf '|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|---|\n'
for scene in "${scenes[@]}"; do
  row="$("$build/bench/trace_compare" "$scene")"
  cam="$(field cam_rps "$row")"
  ecam="$(field embree_cam_rps "$row")"
  ratio=""
  [ -n "$ecam" ] && ratio="$(awk -v a="$cam" -v b="$ecam" 'BEGIN { printf "%.0f%%", 100 * a / b }')"
  printf '| %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s | %s |\n' \
    "$(basename "$scene")" "$(field triangles "$row")" "$(field nodes "$row")" "$(field build_s "$row")" \
    "$(field tree_MB "$row")" "$(field peak_MB "$row")" "$(field layout_s "$row")" \
    "$(field layout_MB "$row")" "$cam" "$(field rnd_rps "$row")" \
    "$(field cam_rps_all "$row")" "$(field rnd_rps_all "$row")" "$(field embree_build_s "$row")" "$ecam" \
    "$(field embree_rnd_rps "$row")" "$ratio" "$(field agree_cam "$row")" "$(field agree_rnd "$row")"
done

if [ "${1:-}" = "--gbench" ]; then
  "$build/bench/intersect_bench" --benchmark_min_time=0.5
fi
