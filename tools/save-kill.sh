#!/usr/bin/env bash
# Kills brindlex-render with SIGKILL at random moments while it saves a
# picture after every path-tracing pass, a few hundred times, and checks
# that the output is always a whole picture: the one before or a new one.
#   tools/save-kill.sh [RUNS]
set -euo pipefail
cd "$(dirname "$0")/.."
runs="${1:-300}"
./brindlex build >/dev/null
program="$PWD/build/apps/brindlex-render"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cd "$folder"

# A PNG is whole when every chunk's CRC holds, IEND ends it and its image
# data inflates completely.
whole_png() {
  python3 - "$1" <<'PY'
import sys, struct, zlib
data = open(sys.argv[1], 'rb').read()
if data[:8] != b'\x89PNG\r\n\x1a\n': sys.exit(1)
at, idat, end = 8, b'', False
while at + 8 <= len(data):
    length, kind = struct.unpack('>I4s', data[at:at + 8])
    body = data[at + 8:at + 8 + length]
    crc = data[at + 8 + length:at + 12 + length]
    if len(body) != length or len(crc) != 4 or zlib.crc32(kind + body) != struct.unpack('>I', crc)[0]:
        sys.exit(1)
    if kind == b'IDAT': idat += body
    if kind == b'IEND': end = True; break
    at += 12 + length
d = zlib.decompressobj(); d.decompress(idat)
sys.exit(0 if end and d.eof else 1)
PY
}

"$program" --quiet --width 160 --height 120 --path-tracing --passes 2 -o out.png
whole_png out.png || { echo "the first picture is not whole"; exit 1; }
broken=0 leftovers=0
for run in $(seq 1 "$runs"); do
  "$program" --quiet --width 320 --height 240 --path-tracing --passes 400 -o out.png &
  pid=$!
  sleep "0.$((RANDOM % 10))$((RANDOM % 10))$((RANDOM % 10))"
  kill -KILL "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  if ! whole_png out.png; then
    broken=$((broken + 1))
    cp out.png "broken-$run.png"
    echo "run $run: out.png is not a whole picture"
  fi
done
# What killed saves left behind must be gone after the next run.
"$program" --quiet --width 32 --height 24 -o out.png
leftovers=$(find . -maxdepth 1 -name 'out.png?*' | wc -l)
echo "$runs kills: $broken broken pictures, $leftovers temporary files left after a clean run"
[ "$broken" -eq 0 ] && [ "$leftovers" -eq 0 ]
