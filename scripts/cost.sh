#!/bin/bash
# scripts/cost.sh [BUILD FOLDER]: what each file of the library costs: functions it exports, seconds of processor time
# to compile it, bytes of code and constants. Uses the commands of a configured build (default: build/default).
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${1:-build/default}
if [[ ! -e $build/build.ninja ]]; then
  echo "cost.sh: configure first: cmake --preset default" >&2
  exit 1
fi

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
export LC_ALL=C TIMEFORMAT='%U %S'
ninja -C "$build" -t commands src/zori_objects src/zori_memory | grep -- ' -c ' >"$folder/all"
sed -E "s|^.*ccache ||; s| -o [^ ]+| -o $folder/object|; s| -MF [^ ]+| -MF $folder/depend|; s| -MT [^ ]+||" \
  "$folder/all" >"$folder/commands"

printf '%-34s %9s %8s %9s\n' file functions seconds bytes
while read -r command; do
  file=${command##* }
  read -r user system < <({ time bash -c "cd $build && $command" >"$folder/log" 2>&1 </dev/null; } 2>&1)
  if [[ ! -e $folder/object ]]; then
    cat "$folder/log" >&2
    exit 1
  fi
  read -r text data < <(size "$folder/object" | awk 'NR == 2 { print $1, $2 }')
  functions=$(nm "$folder/object" | grep -c ' T zori[A-Z]' || true)
  echo "${file#"$PWD"/} $functions $(awk "BEGIN { print $user + $system }") $((text + data))"
  rm "$folder/object"
done <"$folder/commands" | sort | tee "$folder/table" | awk '{ printf "%-34s %9d %8.1f %9d\n", $1, $2, $3, $4 }'
awk '{ n += $2; t += $3; b += $4 } END { printf "%-34s %9d %8.1f %9d\n", "all", n, t, b }' "$folder/table"
