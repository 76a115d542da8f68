#!/usr/bin/env bash
# Model files that crash, hang or exhaust the model reader (found by
# fuzzing): brindlex-render must end each with a message naming the file
# and exit code 2, or render it where the fault stays hidden outside a
# sanitizer, and never die with it.
#   reader_faults_test.sh BRINDLEX_RENDER FAULTS_FOLDER WORK_FOLDER
set -u
program=$1
faults=$2
work=$3
rm -rf "$work" && mkdir -p "$work" && cd "$work" || exit 1
failures=0
for file in "$faults"/*; do
  name=$(basename "$file")
  timeout 120 "$program" -q "$file" --width 32 --height 24 --import-timeout 10 -o out.png 2>err.txt
  code=$?
  if [ $code -ne 0 ] && [ $code -ne 2 ]; then
    echo "FAILED: $name: exit code $code: $(cat err.txt)"
    failures=$((failures + 1))
  elif [ $code -eq 2 ] && ! grep -qF "$name" err.txt; then
    echo "FAILED: $name: the message does not name the file: $(cat err.txt)"
    failures=$((failures + 1))
  else
    echo "$name: exit code $code: $(tail -n 1 err.txt)"
  fi
done
exit $((failures > 0))
