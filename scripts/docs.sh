#!/bin/bash
# scripts/docs.sh: builds the documentation site into build/docs/html, with pictures that the tour makes, and checks
# every link of it. Installs what is missing.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/install-packages.sh docs
log=$(mktemp)
trap 'rm -f "$log"' EXIT
tour=build/default/examples/tour # where tests were built; else a build folder of its own
if [[ ! -x $tour || ! -x $(dirname "$tour")/recipe_gamma ]]; then
  tour=build/demo/examples/tour
  if ! { cmake -S . -B build/demo -G Ninja -DCMAKE_BUILD_TYPE=Release -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=ON &&
         cmake --build build/demo --target tour recipes; } >"$log" 2>&1 </dev/null; then
    cat "$log" >&2
    echo "docs.sh: the tour does not build" >&2
    exit 1
  fi
fi
rm -rf build/docs/pictures
mkdir -p build/docs/pictures
export OMP_WAIT_POLICY=${OMP_WAIT_POLICY:-passive} # on a busy machine threads that spin take minutes
"$tour" -o build/docs/pictures/tour.png --pictures build/docs/pictures >"$log" || { cat "$log" >&2; exit 1; }
mkdir -p build/docs/pictures/cookbook
recipes=("$PWD/$(dirname "$tour")"/recipe_*)
(cd build/docs/pictures/cookbook && for recipe in "${recipes[@]}"; do "$recipe" || exit 1; done) >"$log" ||
  { cat "$log" >&2; exit 1; }
python3 tools/documentation_site.py build/docs/html --pictures build/docs/pictures
