#!/bin/bash
# scripts/test.sh: installs what is missing, builds and tests the library: 64-bit, the build for x86-64-v3 (vectors of 32
# bytes), and 32-bit; then the documentation site and the packages, from the 64-bit build.
#
# The last line counts the tests of all, `N passed, N failed`; one that does not build counts as one failure.
set -uo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
exec </dev/null

passed=0 failed=0
finish() {
  echo "$passed passed, $failed failed"
  [[ $failed -eq 0 && $passed -gt 0 ]]
  exit
}

log=$(mktemp)
trap 'rm -f "$log"' EXIT

if ! bash scripts/install-packages.sh test; then
  failed=1
  finish
fi
# What presets have in common, both copies of the library above all, is compiled once.
export CMAKE_C_COMPILER_LAUNCHER=ccache CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_DIR=$PWD/build/ccache
# Threads that wait for others leave the processors to the test that runs beside.
export OMP_WAIT_POLICY=passive
for preset in default wide q7; do
  if [[ $preset == wide ]] && ! grep -qw avx2 /proc/cpuinfo; then
    echo "** PRESET wide IS NOT TESTED: THIS PROCESSOR IS NOT OF THE CLASS x86-64-v3 **"
    continue
  fi
  echo "== preset $preset: build"
  if ! { cmake --preset "$preset" -DZORI_BUILD_TESTS=ON && cmake --build --preset "$preset"; }; then
    echo "== preset $preset does not build"
    failed=$((failed + 1))
    continue
  fi
  echo "== preset $preset: tests"
  ctest --test-dir "build/$preset" -j2 --output-on-failure --no-tests=error 2>&1 | tee "$log"
  result=${PIPESTATUS[0]}
  # "98% tests passed, 2 tests failed out of 100"
  read -r bad all < <(sed -nE 's/.* ([0-9]+) tests? failed out of ([0-9]+).*/\1 \2/p' "$log" | tail -n 1)
  if [[ -z ${all:-} || ($result -ne 0 && $bad -eq 0) ]]; then
    bad=$((${bad:-0} + 1)) all=$((${all:-0} + 1))
  fi
  failed=$((failed + bad)) passed=$((passed + all - bad))
  unset bad all
done

# Under the address, leak and undefined-behaviour sanitizers: sweeps over a share of the functions, and random calls.
# scripts/nightly.sh goes through all of them.
echo "== preset sanitize: build"
if cmake --preset sanitize && cmake --build --preset sanitize --target sweep_tests fuzz_calls; then
  for suite in ContractSweep MemorySweep LayoutsSweep LimitsSweep AllocationSweep; do
    echo "== preset sanitize: $suite"
    if ZORI_SWEEP_EVERY=20 build/sanitize/tests/sweep/sweep_tests --gtest_brief=1 --gtest_filter="*$suite*"; then
      passed=$((passed + 1))
    else failed=$((failed + 1))
    fi
  done
  echo "== preset sanitize: corpus and random calls"
  if (cd build/sanitize && fuzz/fuzz_calls ../../fuzz/corpus.pack -runs=2000); then
    passed=$((passed + 1))
  else failed=$((failed + 1))
  fi
else
  failed=$((failed + 1))
fi

# The builds that cannot be loaded together are compared by the hashes of all their results.
echo "== results of the 64-bit and the 32-bit build"
if diff -r build/default/tests/widths/hashes build/q7/tests/widths/hashes; then passed=$((passed + 1))
else failed=$((failed + 1))
fi

work() { # work WORDS COMMAND...: counts as one test
  echo "== $1"
  shift
  if "$@"; then passed=$((passed + 1))
  else failed=$((failed + 1)) && echo "** Failed: $*"
  fi
}
work "documentation" bash scripts/docs.sh
work "packages" bash scripts/package.sh build/default
finish
