#!/usr/bin/env bash
# The render farm under mpirun on this machine: a coordinator and two render
# processes against one process rendering the same picture.
#   farm_mpi_test.sh BRINDLEX_RENDER WORK_FOLDER
set -uo pipefail
program=$1
work=$2
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
# A farm that hangs fails the test instead of holding up the run.
mpi=(timeout -k 10 240 mpirun --oversubscribe -np 3)
[ "$(id -u)" -eq 0 ] && mpi+=(--allow-run-as-root)
failures=0
# "W H" of a PNG that begins with its signature and ends with IEND.
png_size() {
  [ "$(head -c 8 "$1" 2>/dev/null | od -An -tx1 | tr -d ' \n')" = 89504e470d0a1a0a ] || return 1
  [ "$(tail -c 8 "$1" | head -c 4)" = IEND ] || return 1
  echo $((0x$(od -An -tx1 -j16 -N4 "$1" | tr -d ' \n'))) $((0x$(od -An -tx1 -j20 -N4 "$1" | tr -d ' \n')))
}
fail() {
  echo "FAILED: $*"
  failures=$((failures + 1))
}

# Ray tracing without anything random (photons of a single process come
# from the system's random source, soft shadows and ambient occlusion too)
# is deterministic: the farm's picture must be the single process's, byte
# for byte. Sizes: edge tiles narrower and lower than 32 pixels (100 x 70:
# 4 and 6), tiles of one row (33 x 1: 32 x 1 and 1 x 1), an exact grid
# (96 x 64), and antialiasing on and off.
cat >fixed.json <<'JSON'
{"renderOptions": {"DoPhotonMapping": false, "DoRayTracedSoftShadows": false, "DoAmbientOcclusion": false}}
JSON
for case in "100 70 2" "33 1 0" "96 64 4"; do
  read -r width height antialias <<<"$case"
  name="rt_${width}x${height}"
  "$program" -q --scene fixed.json --width "$width" --height "$height" --antialias "$antialias" \
    -o "$name-single.png" || fail "$name: single process"
  "${mpi[@]}" "$program" --mpi -q --scene fixed.json --width "$width" --height "$height" \
    --antialias "$antialias" -o "$name-farm.png" || fail "$name: farm exit code"
  cmp -s "$name-single.png" "$name-farm.png" || fail "$name: the farm's picture differs"
done

# The HDR picture, written beside the farm's PNG, is the single process's
# too: the same running mean in the same half floats, before the tone map
# and with the background's alpha.
sed 's/}}$/, "DoHDRTonalMapping": true}}/' fixed.json >hdr.json
"$program" -q --scene hdr.json --alpha --width 40 --height 30 -o hdr-single.exr || fail "hdr: single process"
"${mpi[@]}" "$program" --mpi -q --scene hdr.json --alpha --width 40 --height 30 -o hdr-farm.png --hdr hdr-farm.exr ||
  fail "hdr: farm exit code"
cmp -s hdr-single.exr hdr-farm.exr || fail "hdr: the farm's HDR picture differs"

# With a distributed server every render process shoots the same photons
# from a seeded generator: tiles from either process agree, so two farm
# renders, which deal their tiles differently, give the same picture. The
# demo house is in metres: a gather radius of 0.3 (the default 24 would
# gather the whole house at every point) and 100,000 photons a list.
cat >photons.json <<'JSON'
{"renderOptions": {"DoPhotonMapping": true, "DoIndirectLighting": true, "GetPhotonLevel": 1,
  "GetPhotonRadius": 0.3, "DoRayTracedSoftShadows": false, "DoAmbientOcclusion": false}}
JSON
for run in 1 2; do
  "${mpi[@]}" "$program" --mpi -q --scene photons.json --width 100 --height 70 -o "photons-$run.png" ||
    fail "photons: farm exit code"
done
cmp -s photons-1.png photons-2.png || fail "photons: two farm renders differ"

# Path tracing: each pass is random, so the pictures agree only on average.
"$program" -q --width 100 --height 70 --path-tracing --passes 4 -o pt-single.png || fail "pt: single"
"${mpi[@]}" "$program" --mpi -q --width 100 --height 70 --path-tracing --passes 4 -o pt-farm.png ||
  fail "pt: farm exit code"
single_mean=$(convert pt-single.png -format '%[fx:mean]' info:)
farm_mean=$(convert pt-farm.png -format '%[fx:mean]' info:)
awk -v a="$single_mean" -v b="$farm_mean" 'BEGIN { d = a - b; exit !(d < 0.02 && d > -0.02) }' ||
  fail "pt: mean $farm_mean of the farm against $single_mean"

# Checkpoints: a copy of the picture after pass 25, beside it.
"${mpi[@]}" "$program" --mpi -q --width 40 --height 30 --path-tracing --passes 26 --checkpoints \
  -o "$PWD/cp.png" || fail "checkpoints: farm exit code"
[ "$(ls CheckPoint 2>/dev/null)" = "cp_25.png" ] || fail "checkpoints: not exactly the copy of pass 25"
[ "$(png_size CheckPoint/cp_25.png)" = "40 30" ] || fail "checkpoints: copy unreadable"

# Without mpirun there is no render process: a clear refusal.
"$program" --mpi -q -o alone.png 2>alone.err
[ $? -eq 2 ] && grep -q "mpirun -np N" alone.err || fail "--mpi alone: $(cat alone.err)"

# A model that no render process can load: said once, by the coordinator.
"${mpi[@]}" "$program" --mpi -q "$PWD/missing.obj" -o missing.png 2>missing.err
[ $? -eq 2 ] && [ "$(grep -c 'missing.obj' missing.err)" -eq 1 ] || fail "missing model: $(grep missing missing.err)"

# The process id of rank 1 among the children of mpirun, itself a child of
# `timeout` `$1`.
rank_one() {
  for child in $(pgrep -P "$(pgrep -P "$1" -x mpirun)"); do
    tr '\0' '\n' <"/proc/$child/environ" 2>/dev/null | grep -qx OMPI_COMM_WORLD_RANK=1 && echo "$child"
  done
}

# Waits up to 60 s for `$1` to succeed.
wait_for() {
  for _ in $(seq 600); do
    eval "$1" && return 0
    sleep 0.1
  done
  return 1
}

# By default Open MPI ends the whole job when a process dies. The picture on
# disk is then the last complete pass, never a half-written one.
"${mpi[@]}" "$program" --mpi -q --width 200 --height 120 --path-tracing --passes 60000 -o killed.png &
farm=$!
if wait_for "[ -s killed.png ]"; then
  sleep 0.5
  victim=$(rank_one $farm)
  [ -n "$victim" ] && kill -9 "$victim"
  wait $farm && fail "killed: mpirun reported success"
  [ "$(png_size killed.png)" = "200 120" ] || fail "killed: no complete picture left"
else
  kill $farm
  fail "killed: no pass was ever saved"
fi

# Told to carry on, Open MPI leaves the job running: the coordinator deals
# the lost process's tiles to the other one, and the picture is whole.
"$program" -q --scene fixed.json --width 640 --height 400 -o recover-single.png || fail "recover: single"
"${mpi[@]}" --mca orte_abort_on_non_zero_status 0 "$program" --mpi --scene fixed.json --width 640 --height 400 \
  -o recover-farm.png 2>recover.err &
farm=$!
if wait_for "grep -q '^blocks [1-9]' recover.err"; then
  victim=$(rank_one $farm)
  [ -n "$victim" ] && kill -9 "$victim"
else
  fail "recover: no progress"
fi
wait $farm
grep -q "render process 1 is lost" recover.err || fail "recover: the loss was not noticed"
cmp -s recover-single.png recover-farm.png || fail "recover: the picture differs after the loss"

[ $failures -eq 0 ] && echo "all farm cases passed"
exit $((failures > 0))
