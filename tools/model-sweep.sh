#!/usr/bin/env bash
# Renders every model file of a folder tree (by default Debian's
# assimp-testmodels) with brindlex-render, small and quiet, and prints a
# table per format: files, framed, cut (the model touches the picture's
# edge), empty (nothing but background), errors (a message and a non-zero
# exit), and the total render time. Not part of the default test run: it
# takes several minutes.
#
#   tools/model-sweep.sh [--renderer PATH] [--models DIR] [--keep DIR] [--timeout SECONDS]
#
# --keep keeps the pictures and a per-file list (sweep.tsv) in DIR.
# Needs ImageMagick's `convert` to find the model in the picture.
set -u

renderer=build/apps/brindlex-render
models=/usr/share/assimp/models
keep=
limit=300
while [ $# -gt 0 ]; do
  case "$1" in
    --renderer) renderer=$2; shift 2 ;;
    --models) models=$2; shift 2 ;;
    --keep) keep=$2; shift 2 ;;
    --timeout) limit=$2; shift 2 ;;
    *) echo "model-sweep: unknown argument '$1'" >&2; exit 2 ;;
  esac
done
[ -x "$renderer" ] || { echo "model-sweep: no renderer at '$renderer' (build it first)" >&2; exit 2; }
[ -d "$models" ] || { echo "model-sweep: no folder '$models'" >&2; exit 2; }
command -v convert >/dev/null || { echo "model-sweep: needs ImageMagick's convert" >&2; exit 2; }

out=${keep:-$(mktemp -d)}
mkdir -p "$out"
[ -n "$keep" ] || trap 'rm -rf "$out"' EXIT
list=$out/sweep.tsv
: >"$list"

# Files that travel with a model (buffers, materials, pictures, notes) are
# not models themselves.
skip='\.(png|jpe?g|bmp|tga|gif|pcx|dds|tiff?|txt|mtl|bin|glsl|vert|frag|material|md|uc|skin|json|html|pdf|max|jt)$'
width=320 height=240
n=0
while IFS= read -r -d '' file; do
  name=${file##*/}
  case "$name" in *.*) ;; *) continue ;; esac
  if printf '%s' "$name" | grep -qiE "$skip"; then continue; fi
  n=$((n + 1))
  format=$(printf '%s' "${name##*.}" | tr 'A-Z' 'a-z')
  picture=$out/$n.png
  start=$(date +%s.%N)
  timeout -s KILL "$limit" "$renderer" "$file" -o "$picture" --width $width --height $height -q \
    >/dev/null 2>"$out/$n.err"
  code=$?
  seconds=$(echo "$(date +%s.%N) - $start" | bc)
  if [ $code -ne 0 ] || [ ! -s "$picture" ]; then
    verdict=error
  else
    # The bounding box of what differs from the corners' colour.
    box=$(convert "$picture" -fuzz 3% -format '%@' info: 2>/dev/null)
    read -r w h x y <<<"$(echo "$box" | tr 'x+' '  ')"
    if [ "${w:-0}" -eq 0 ] || [ "${h:-0}" -eq 0 ]; then
      verdict=empty
    elif [ "$x" -eq 0 ] || [ "$y" -eq 0 ] || [ $((x + w)) -ge $width ] || [ $((y + h)) -ge $height ]; then
      verdict=cut
    else
      verdict=framed
    fi
  fi
  printf '%s\t%s\t%s\t%d\t%.2f\t%s\n' "$format" "$verdict" "${file#$models/}" "$code" "$seconds" \
    "$(head -c 200 "$out/$n.err" | tr '\n\t' '  ')" >>"$list"
  [ -n "$keep" ] || rm -f "$picture" "$out/$n.err"
done < <(find "$models" -type f -print0 | sort -z)

printf "%-8s %6s %7s %5s %6s %7s %9s\n" format files framed cut empty errors seconds
awk -F'\t' '
  function row(name, key) {
    printf "%-8s %6d %7d %5d %6d %7d %9.1f\n", name, files[key], count[key, "framed"], count[key, "cut"],
           count[key, "empty"], count[key, "error"], time[key]
  }
  { for (k = 0; k < 2; k++) { key = k ? "~all" : $1; files[key]++; count[key, $2]++; time[key] += $5 } }
  END { for (f in files) if (f != "~all") row(f, f); row("~all", "~all") }' "$list" | sort | sed 's/^~all /all  /'
