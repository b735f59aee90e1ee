#!/bin/bash
# scripts/check-format.sh [--fix]: every source file as .clang-format lays it out (generated headers are not looked at).
# Exits with 77 where the version of clang-format that the style is written for is missing.
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
readonly version=14

for tool in clang-format-$version clang-format; do
  command -v $tool >/dev/null && $tool --version | grep -q "version $version\." && break
  tool=
done
if [[ -z $tool ]]; then
  echo "SKIPPED: clang-format $version is not installed, the layout of the sources is NOT checked"
  exit 77
fi

mapfile -t files < <(find src tests bench fuzz examples include/zori/types.h -name '*.h' -o -name '*.cpp' | sort)
[[ ${#files[@]} -gt 0 ]] || exit 1
if [[ ${1:-} == --fix ]]; then # rows of macros take several passes
  for ((pass = 0; pass < 40; ++pass)); do
    $tool -i "${files[@]}"
    $tool --dry-run -Werror "${files[@]}" >/dev/null 2>&1 && exit 0
  done
  exit 1
fi
$tool --dry-run -Werror "${files[@]}" 2>&1 | grep 'error:' | cut -d: -f1 | sort | uniq -c
[[ ${PIPESTATUS[1]} -eq 1 ]] || { echo "run scripts/check-format.sh --fix"; exit 1; }
echo "${#files[@]} files"
