#!/bin/bash
# scripts/fuzz.sh [SECONDS [PRESET]]: random sequences of calls, for so many seconds.
#
#   SECONDS  60
#   PRESET   default (the default), q7, wide, sanitize: the corpus, then random inputs, one process a processor, each
#            with a seed of its own. ZORI_FUZZ_SEED sets the first seed, ZORI_FUZZ_PROCESSES the number of processes;
#            ZORI_FUZZ_CALLS is the number of calls that all of them make together, and takes the place of the seconds
#            copies: the same with both 64-bit copies side by side
#            fuzz, fuzz-sanitize: clang's coverage-guided engine, which starts from fuzz/corpus.pack and from what
#            earlier runs left in build/PRESET/corpus
#
# The last line tells the number of calls. A finding ends the run, and the input stands in
# build/PRESET/fuzz_...-SEED.input or build/PRESET/crash-*; played again it tells its calls:
#   ZORI_FUZZ_TELLS=1 build/PRESET/fuzz/fuzz_calls FILE
#
# scripts/fuzz.sh keep: chooses, of fuzz/corpus.pack and of what the engine left in build/fuzz/corpus, the inputs that
# reach most for their length, and writes 850 000 bytes of them to fuzz/corpus.pack.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
seconds=${1:-60} preset=${2:-default} program=fuzz_calls
export OMP_WAIT_POLICY=passive
[[ $seconds != keep ]] || preset=fuzz
case $preset in
  copies) preset=default program=fuzz_copies ;;
  fuzz | fuzz-sanitize) bash scripts/install-packages.sh nightly || exit 1 ;;
esac
cmake --preset "$preset" >/dev/null && cmake --build --preset "$preset" --target $program || exit 1
folder=build/$preset
if [[ $program == fuzz_copies ]]; then
  if ! grep -qw avx2 /proc/cpuinfo; then
    echo "** THE COPIES ARE NOT COMPARED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3 **"
    exit 0
  fi
  cmake --build --preset default --target zori zori_wide || exit 1
  name=libzoriq7-5.3.so
  export ZORI_BASE_LIBRARY=$PWD/$folder/src/$name ZORI_WIDE_LIBRARY=$PWD/$folder/src/glibc-hwcaps/x86-64-v3/$name
fi

corpus=fuzz/corpus.pack
if [[ $seconds == keep ]]; then
  scratch=$(mktemp -d)
  trap 'rm -rf "$scratch"' EXIT
  mkdir "$scratch/kept"
  python3 fuzz/pack.py unpack $corpus "$folder/corpus" &&
    $folder/fuzz/$program -merge=1 -use_counters=0 -merge_control_file="$scratch/control" "$scratch/kept" \
      "$folder/corpus" 2>&1 | grep MERGE &&
    python3 fuzz/pack.py choose "$scratch/control" 850000 $corpus
  exit
fi
if [[ $preset == fuzz* ]]; then
  python3 fuzz/pack.py unpack $corpus "$folder/corpus" || exit 1
  $folder/fuzz/$program -max_len=400 -len_control=0 -timeout=60 -rss_limit_mb=4000 -verbosity=1 \
    -artifact_prefix="$folder/" -max_total_time="$seconds" -print_final_stats=1 "$folder/corpus" 2>&1 |
    grep -v "NEW\|REDUCE\|RELOAD\|pulse"
  exit "${PIPESTATUS[0]}"
fi

seed=${ZORI_FUZZ_SEED:-$(date +%s)} processes=${ZORI_FUZZ_PROCESSES:-$(nproc)}
amount=-seconds=$seconds
[[ -z ${ZORI_FUZZ_CALLS:-} ]] || amount=-calls=$(((ZORI_FUZZ_CALLS + processes - 1) / processes))
given=("$PWD/$corpus") logs=$(mktemp -d) # for the first process alone
trap 'rm -rf "$logs"' EXIT
pids=()
for ((i = 0; i < processes; ++i)); do
  (cd "$folder" && exec fuzz/$program "${given[@]}" "$amount" -seed=$((seed + i)) >"$logs/$i" 2>&1) &
  given=()
  pids+=($!)
done
result=0
for ((i = 0; i < processes; ++i)); do
  if ! wait -n; then # a finding: the others need not go on
    result=1
    kill "${pids[@]}" 2>/dev/null
    wait
    break
  fi
done
if [[ $result -ne 0 ]]; then
  for log in "$logs"/*; do grep -qE "^[0-9]+ calls" "$log" || tail -n 60 "$log"; done
  ls -l "$folder"/$program-*.input
fi
awk -v seed="$seed" '/^[0-9]+ calls/ { calls += $1 } END { printf "%d calls, seeds from %d on\n", calls, seed }' "$logs"/*
exit $result
