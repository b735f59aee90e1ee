#!/bin/bash
# scripts/bench.sh [--quick] [--threads] [--update-docs] [FILTER]
#
# Installs what is missing, builds the benchmarks and prints their table. FILTER is a regular expression over the names
# of the cases (scripts/bench.sh 'Copy|Set'). --quick takes a fifth of the time, --threads adds the gain of all threads,
# --update-docs puts the table into docs/performance.md as well.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.."

arguments=() update=false
for argument in "$@"; do
  case $argument in
    --update-docs) update=true ;;
    -h | --help) sed -n '2,/^set/{/^set/d;s/^# \?//p}' "${BASH_SOURCE[0]}"; exit 0 ;;
    *) arguments+=("$argument") ;;
  esac
done

bash scripts/install-packages.sh bench
{
  cmake --preset bench -DZORI_BUILD_EXAMPLES=OFF
  cmake --build --preset bench --target zori_bench
} >&2

table=$(mktemp)
trap 'rm -f "$table"' EXIT
build/bench/bench/zori_bench "${arguments[@]}" | tee "$table"
if $update; then
  # everything behind the marker is the table
  sed -i '/^<!-- output of scripts\/bench.sh -->$/q' docs/performance.md
  { echo; cat "$table"; } >>docs/performance.md
fi
