#!/bin/bash
# scripts/fuzz.sh [SECONDS [PRESET]]: the coverage-guided fuzz test of calls, and that of both 64-bit copies.
#
#   SECONDS  for each of the two (60)
#   PRESET   fuzz (default) or fuzz-sanitize, which plays calls alone
#
# Starts from what earlier runs left in build/PRESET/corpus. What ends a run stands in
# build/PRESET/crash-*; played again it tells the call:  ZORI_FUZZ_TELLS=1 build/PRESET/fuzz/fuzz_calls FILE
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
seconds=${1:-60} preset=${2:-fuzz}
bash scripts/install-packages.sh nightly || exit 1
cmake --preset "$preset" && cmake --build --preset "$preset" || exit 1
folder=build/$preset corpus=build/$preset/corpus
mkdir -p "$corpus"
faults=0
run() { # run PROGRAM
  echo "== $1, $seconds seconds"
  OMP_WAIT_POLICY=passive "$folder/fuzz/$1" -max_len=400 -len_control=0 -timeout=60 -rss_limit_mb=4000 -verbosity=1 \
    -artifact_prefix="$folder/" -max_total_time="$seconds" -print_final_stats=1 "$corpus" 2>&1 |
    grep -v "NEW\|REDUCE\|RELOAD\|pulse"
  [[ ${PIPESTATUS[0]} -eq 0 ]] || faults=$((faults + 1))
}
run fuzz_calls
if [[ $preset == fuzz ]]; then
  cmake --build --preset default --target zori || exit 1
  name=libzoriq7-5.3.so
  export ZORI_BASE_LIBRARY=build/default/src/$name ZORI_WIDE_LIBRARY=build/default/src/glibc-hwcaps/x86-64-v3/$name
  if grep -qw avx2 /proc/cpuinfo; then run fuzz_copies
  else echo "** THE COPIES ARE NOT COMPARED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3 **"
  fi
fi
[[ $faults -eq 0 ]]
