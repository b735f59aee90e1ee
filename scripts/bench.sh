#!/bin/bash
# scripts/bench.sh [--quick] [--threads] [FILTER]
#
# Installs what is missing, builds the benchmarks and prints their table. FILTER is a regular expression over the names
# of the cases (scripts/bench.sh 'Copy|Set'). --quick takes a fifth of the time, --threads adds the gain of all threads.
# Both copies side by side, and the means in docs/performance.md: scripts/bench-copies.py.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.."

case ${1-} in -h | --help) sed -n '2,/^set/{/^set/d;s/^# \?//p}' "${BASH_SOURCE[0]}"; exit 0 ;; esac

bash scripts/install-packages.sh bench
{
  cmake --preset bench -DZORI_BUILD_EXAMPLES=OFF
  cmake --build --preset bench --target zori_bench
} >&2

build/bench/bench/zori_bench "$@"
