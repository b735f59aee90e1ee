#!/bin/bash
# scripts/nightly.sh [STEP]...: what takes too long for every change. Steps, all of them by default:
#
#   builds     two builds in two folders, of the sources as they stand, give the same bytes (ZORI_SUBSYSTEMS in the
#              environment narrows them)
#   sanitize   unit tests, sweeps over all functions and random calls under the address, leak and undefined-behaviour
#              sanitizers
#   threads    teams under the thread sanitizer, with the OpenMP runtime of clang and its tool Archer, which tells the
#              sanitizer of barriers
#   valgrind   random calls under valgrind: reads of what was never written
#   tidy       clang-tidy over all sources
#   fuzz       random calls, plain, with both copies and under the sanitizers, ten minutes each, and as long the
#              coverage-guided tests (ZORI_FUZZ_SECONDS: another time than 600 s each)
#
# The last line counts the steps, `N passed, N failed`. Takes some hours on two cores.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
bash scripts/install-packages.sh nightly || exit 1

step_builds() {
  local scratch number
  scratch=$(mktemp -d)
  for number in 1 2; do
    mkdir -p "$scratch/place-$number/sources"
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t "$scratch/place-$number/sources"
    cmake -S "$scratch/place-$number/sources" -B "$scratch/place-$number/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=OFF -DZORI_BUILD_CHECK=OFF \
      ${ZORI_SUBSYSTEMS:+"-DZORI_SUBSYSTEMS=$ZORI_SUBSYSTEMS"} >/dev/null &&
      cmake --build "$scratch/place-$number/build" --target zori zori_static >/dev/null || return 1
  done
  local result=0 file
  for file in libzoriq7-5.3.so libzoriq7-5.3.a glibc-hwcaps/x86-64-v3/libzoriq7-5.3.so; do
    cmp "$scratch/place-1/build/src/$file" "$scratch/place-2/build/src/$file" || result=1
  done
  rm -rf "$scratch"
  return $result
}

step_sanitize() {
  cmake --preset sanitize && cmake --build --preset sanitize &&
    OMP_WAIT_POLICY=passive ctest --test-dir build/sanitize -j2 --output-on-failure --timeout 7200 &&
    bash scripts/fuzz.sh 300 sanitize
}

# A race that the tools must see, and a barrier that they must know.
probe_of_races='#include <omp.h>
int shared, rows[2], sums[2];
int main(int arguments, char**)
{
#pragma omp parallel num_threads(2)
  {
    rows[omp_get_thread_num()] = 1;
#pragma omp barrier
    sums[omp_get_thread_num()] = rows[0] + rows[1];
    if (arguments > 1) ++shared;
  }
}'

step_threads() {
  local folder=build/threads
  # the runtime hands the caller's rounding field to its threads by itself, which would hide whether the library does
  export KMP_INHERIT_FP_CONTROL=0 OMP_WAIT_POLICY=passive
  export TSAN_OPTIONS="ignore_noninstrumented_modules=1 history_size=7"
  OMP_TOOL_LIBRARIES=$(ls /usr/lib/llvm-*/lib/libarcher.so 2>/dev/null | tail -n 1)
  export OMP_TOOL_LIBRARIES
  cmake --preset clang -B $folder -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g" \
    -DCMAKE_CXX_FLAGS=-fsanitize=thread -DCMAKE_EXE_LINKER_FLAGS=-fsanitize=thread -DZORI_WIDE=OFF \
    -DZORI_BUILD_EXAMPLES=OFF -DZORI_BUILD_CHECK=OFF -DZORI_BUILD_PYTHON=OFF &&
    cmake --build $folder --target sweep_tests &&
    clang++ -x c++ - -o $folder/probe -O1 -g1 -fsanitize=thread -fopenmp <<<"$probe_of_races" || return 1
  if ! $folder/probe || $folder/probe race 2>/dev/null; then
    echo "the thread sanitizer and $OMP_TOOL_LIBRARIES do not tell races from barriers"
    return 1
  fi
  $folder/tests/sweep/sweep_tests --gtest_brief=1 --gtest_filter='*TeamsSweep.NeitherTeam*:*ThreadsSweep*'
}

step_valgrind() {
  cmake --preset default && cmake --build --preset default --target fuzz_calls &&
    OMP_NUM_THREADS=1 valgrind --error-exitcode=9 --quiet --suppressions=fuzz/valgrind.supp --leak-check=full \
      --errors-for-leak-kinds=definite --show-leak-kinds=definite build/default/fuzz/fuzz_calls -runs=5000
}

step_tidy() { bash scripts/check-tidy.sh all && bash scripts/check-tidy.sh; }

step_fuzz() {
  local preset result=0
  for preset in default copies sanitize fuzz fuzz-sanitize; do bash scripts/fuzz.sh "${ZORI_FUZZ_SECONDS:-600}" $preset || result=1; done
  return $result
}

passed=0 failed=0
for step in "${@:-builds sanitize threads valgrind tidy fuzz}"; do
  for name in $step; do
    echo "== $name"
    if ("step_$name"); then passed=$((passed + 1))
    else
      echo "== $name failed"
      failed=$((failed + 1))
    fi
  done
done
echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
