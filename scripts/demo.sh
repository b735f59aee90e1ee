#!/bin/bash
# scripts/demo.sh [picture.png]: installs what is missing, builds the tour and runs it on the picture.
#
# Without a picture the tour works on a scene that it draws itself. The contact sheet goes to out/tour.png.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

if [[ $# -gt 1 ]]; then
  echo "usage: bash scripts/demo.sh [picture.png]" >&2
  exit 2
fi
bash "$root/scripts/install-packages.sh" examples

[[ -e $root/build/demo/examples/tour ]] || echo "Building the library and the tour"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
# a build folder of its own: the tour needs no tests
if ! { cmake -S "$root" -B "$root/build/demo" -G Ninja -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=ON &&
       cmake --build "$root/build/demo" --target tour; } >"$log" 2>&1 </dev/null; then
  cat "$log" >&2
  echo "demo.sh: the tour does not build" >&2
  exit 1
fi
mkdir -p "$root/out"
"$root/build/demo/examples/tour" "$@" -o "$root/out/tour.png"
