#!/bin/bash
# scripts/check-headers.sh CC CXX [FLAGS...]: every public header compiles by itself, as C99 and as C++17, without a
# warning.
set -uo pipefail
cc=$1 cxx=$2
shift 2
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
warnings=(-Wall -Wextra -Wconversion -Wsign-conversion -Wstrict-prototypes -pedantic -Werror)
faults=0 headers=0
for header in include/zori.h include/zori/*.h; do
  name=${header#include/}
  headers=$((headers + 1))
  source="#include \"$name\"
typedef int something;" # a header of macros alone declares nothing, which strict C does not allow
  echo "$source" | "$cc" -std=c99 "${warnings[@]}" "$@" -Iinclude -x c -fsyntax-only - || faults=$((faults + 1))
  echo "$source" | "$cxx" -std=c++17 "${warnings[@]/-Wstrict-prototypes/-Wold-style-cast}" "$@" -Iinclude \
    -x c++ -fsyntax-only - || faults=$((faults + 1))
done
for header in include/*.hpp; do
  headers=$((headers + 1))
  for define in "" "#define ZORI_THROW"; do
    printf '%s\n#include "%s"\n' "$define" "${header#include/}" | "$cxx" -std=c++17 \
      "${warnings[@]/-Wstrict-prototypes/-Wold-style-cast}" "$@" -Iinclude -x c++ -fsyntax-only - || faults=$((faults + 1))
  done
done
echo "$headers headers, $faults faults"
[[ $faults -eq 0 && $headers -gt 1 ]]
