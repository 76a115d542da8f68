#!/usr/bin/env bash
# brindlex-view on a display of its own (Xvfb): the time from a mouse drag
# to the first complete ray-traced frame, and UpdateFrame after a camera
# move against one after a model change (the P key turns photon mapping on
# or off, which makes the engine rebuild its model), alternating.
#   bench/view_latency.sh [MODEL] [ROUNDS]   (default: FZK-Haus, 3 rounds)
set -euo pipefail
model=${1:-/usr/share/assimp/models/IFC/AC14-FZK-Haus.ifc}
rounds=${2:-3}
cd "$(dirname "$0")/.."
cmake --build build --target brindlex-view -j 2 >/dev/null
work=$(mktemp -d)
exec 5>"$work/display"
Xvfb -displayfd 5 -screen 0 1600x900x24 -nolisten tcp 2>/dev/null &
xvfb=$!
trap 'kill $view $xvfb 2>/dev/null; rm -rf "$work"' EXIT
view=
while [ ! -s "$work/display" ]; do sleep 0.1; done
export DISPLAY=:$(cat "$work/display")
log=$work/view.log
touch "$log"
build/apps/brindlex-view "$model" --width 1280 --height 720 --log "$log" &
view=$!
frames() { grep -c "view: frame complete" "$log" || true; }
wait_frames() { while [ "$(frames)" -lt "$1" ]; do sleep 0.2; done; }
wait_frames 1
window=$(xdotool search --sync --name brindlex-view | head -1)
xdotool windowfocus --sync "$window"
done_frames=1
for round in $(seq "$rounds"); do
  # Drag right, then left the next round, so the view stays on the model.
  dx=$(( round % 2 ? 60 : -60 ))
  xdotool mousemove --window "$window" 640 360 mousedown 1 \
    mousemove --window "$window" $((640 + dx / 2)) 365 mousemove --window "$window" $((640 + dx)) 370 mouseup 1
  wait_frames $((done_frames += 1))
  xdotool key --window "$window" p
  wait_frames $((done_frames += 1))
done
xdotool key --window "$window" q
wait "$view"
grep -E "^view: |UpdateFrame Time" "$log"
median() { sort -g | awk '{a[NR]=$1} END {print (NR % 2 ? a[(NR+1)/2] : (a[NR/2] + a[NR/2+1]) / 2)}'; }
echo "median input to complete picture ms: $(sed -n 's/^view: input to complete picture: \(.*\) ms/\1/p' "$log" | median)"
echo "median frame ms: $(sed -n 's/^view: frame complete: \(.*\) ms/\1/p' "$log" | median)"
echo "median UpdateFrame after a camera move ms: $(sed -n 's/^view: UpdateFrame after a camera move: \(.*\) ms/\1/p' "$log" | median)"
echo "median UpdateFrame after a model change ms: $(sed -n 's/^view: UpdateFrame after a model change: \(.*\) ms/\1/p' "$log" | median)"
