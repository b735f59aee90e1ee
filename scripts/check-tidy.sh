#!/bin/bash
# scripts/check-tidy.sh [FILE]...: clang-tidy (.clang-tidy) over the named sources of the library, or over a sample of
# them: one file a room and whatever differs from the last commit. `all` stands for all of them, without the analyzer of
# paths: it takes 0 to 40 seconds of processor time a file, and a minute or more where a file has many instances of
# templates (src/arith/scaled_images.cpp), where the other checks take one to three seconds.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
command -v clang-tidy >/dev/null || { echo "no clang-tidy"; exit 77; }
sample=(src/arith/abs.cpp src/correlation/tile_transform.cpp src/data/mirror.cpp src/filter/window_sum.cpp
  src/frame/memory.cpp src/geometry/transform.cpp src/point/palette.cpp src/spectral/wavelet.cpp
  src/stats/count_in_range.cpp src/synthetic/windows.cpp)
options=(--quiet)
if [[ $# -eq 0 ]]; then
  mapfile -t changed < <(git diff --name-only HEAD -- 'src/*.cpp' 2>/dev/null)
  mapfile -t files < <(ls "${sample[@]}" "${changed[@]}" | sort -u)
elif [[ $1 == all ]]; then
  files=(src/*/*.cpp)
  options+=(--checks=-clang-analyzer-*)
else
  files=("$@")
fi
flags=(-std=c++17 -msse3 -fopenmp -fno-exceptions -fno-rtti -Wno-psabi -Iinclude -Isrc)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
printf '%s\n' "${files[@]}" |
  xargs -P"$(nproc)" -I{} timeout 900 clang-tidy "${options[@]}" {} -- "${flags[@]}" >"$log" 2>/dev/null
result=$?
# a finding in a header comes once for each file that includes it
sed "s#$PWD/##" "$log" | grep -E "^[^ ]+: (warning|error):" | sort -u
findings=$(sed "s#$PWD/##" "$log" | grep -E "^[^ ]+: (warning|error):" | sort -u | wc -l)
echo "${#files[@]} files, $findings findings"
[[ $result -eq 0 && $findings -eq 0 ]]
