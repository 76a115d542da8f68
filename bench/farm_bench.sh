#!/usr/bin/env bash
# The render farm against one process on the same machine: `mpirun -np 3`
# (a coordinator and two render processes of one worker each, on two
# processors) against brindlex-render alone with a worker per processor.
# Runs alternate, and the medians are compared.
#   bench/farm_bench.sh [PROGRAM] [MODEL] [WIDTH] [HEIGHT] [RUNS]
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
program="${1:-$root/build/apps/brindlex-render}"
model="${2:-/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc}"
width="${3:-1920}"
height="${4:-1080}"
runs="${5:-3}"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
mpi=(mpirun --oversubscribe -np 3)
[ "$(id -u)" -eq 0 ] && mpi+=(--allow-run-as-root)

# Wall seconds and processor seconds (user and system, of every process
# the command started: mpirun waits for its ranks) of a command.
measure() {
  /usr/bin/time -f '%e %U %S' -o "$work/time" "$@" >/dev/null 2>"$work/last.err"
  awk '{ printf "%s %.2f\n", $1, $2 + $3 }' "$work/time"
}
median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

single=() farm=() single_cpu=() farm_cpu=()
for run in $(seq "$runs"); do
  read -r wall cpu < <(measure "$program" -q "$model" --width "$width" --height "$height" -o "$work/single.png")
  single+=("$wall") single_cpu+=("$cpu")
  read -r wall cpu < <(measure "${mpi[@]}" "$program" --mpi "$model" --width "$width" --height "$height" \
    -o "$work/farm.png")
  farm+=("$wall") farm_cpu+=("$cpu")
  per_tile=$(sed -n 's/.* \([0-9]*\) bytes sent per tile.*/\1/p' "$work/last.err")
  same=$(cmp -s "$work/single.png" "$work/farm.png" && echo yes || echo no)
  echo "run $run: single ${single[-1]} s (${single_cpu[-1]} s processor), farm ${farm[-1]} s" \
    "(${farm_cpu[-1]} s processor), ${per_tile} bytes per tile, same picture: $same" >&2
done
s=$(printf '%s\n' "${single[@]}" | median)
f=$(printf '%s\n' "${farm[@]}" | median)
sc=$(printf '%s\n' "${single_cpu[@]}" | median)
fc=$(printf '%s\n' "${farm_cpu[@]}" | median)
echo "| model | size | runs | single s | farm s | farm / single | single processor s | farm processor s | farm / single, processor | bytes per tile |"
printf '| %s | %s x %s | %s | %.2f | %.2f | %.3f | %.2f | %.2f | %.3f | %s |\n' "$(basename "$model")" "$width" \
  "$height" "$runs" "$s" "$f" "$(echo "$f / $s" | bc -l)" "$sc" "$fc" "$(echo "$fc / $sc" | bc -l)" "$per_tile"
