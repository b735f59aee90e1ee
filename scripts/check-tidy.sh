#!/bin/bash
# scripts/check-tidy.sh [FILE]...: clang-tidy (.clang-tidy) over the named sources of the library, or over a sample of
# them: one file a room and whatever differs from the last commit. `all` stands for all of them. Needs a configured
# build/default.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
command -v clang-tidy >/dev/null || { echo "no clang-tidy"; exit 77; }
sample=(src/arith/abs.cpp src/data/mirror.cpp src/point/palette.cpp src/stats/count_in_range.cpp src/frame/memory.cpp
  src/filter/window_sum.cpp src/geometry/transform.cpp src/spectral/wavelet.cpp src/synthetic/windows.cpp)
if [[ $# -eq 0 ]]; then
  mapfile -t changed < <(git diff --name-only HEAD -- 'src/*.cpp' 2>/dev/null)
  mapfile -t files < <(ls "${sample[@]}" "${changed[@]}" 2>/dev/null | sort -u)
elif [[ $1 == all ]]; then
  files=(src/*/*.cpp)
else
  files=("$@")
fi
flags=(-std=c++17 -msse3 -fopenmp -fno-exceptions -fno-rtti -Wno-psabi -Iinclude -Isrc)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
printf '%s\n' "${files[@]}" | xargs -P2 -I{} timeout 600 clang-tidy --quiet {} -- "${flags[@]}" >"$log" 2>/dev/null
result=$?
sort -u "$log" | grep -E "(warning|error):"
warnings=$(sort -u "$log" | grep -cE "(warning|error):")
echo "${#files[@]} files, $warnings warnings"
[[ $result -eq 0 && $warnings -eq 0 ]]
