#!/bin/bash
# scripts/demo.sh [picture.png]: installs what is missing, builds the tour and runs it on the picture.
#
# Without a picture the tour works on a scene that it draws itself. Contact sheets go to out/: tour.png with the
# highlights, and tour-data.png, tour-filter.png... with everything.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

if [[ $# -gt 1 ]]; then
  echo "usage: bash scripts/demo.sh [picture.png]" >&2
  exit 2
fi
bash "$root/scripts/install-packages.sh" examples

log=$(mktemp)
trap 'rm -f "$log"' EXIT

# Follows a build: one line that renews itself, or a line each tenth where no terminal shows it.
progress() {
  local line done all said=-10
  while IFS= read -r line; do
    printf '%s\n' "$line" >>"$log"
    [[ $line =~ ^\[([0-9]+)/([0-9]+)\] && $line != *" Re-"* ]] || continue
    done=${BASH_REMATCH[1]} all=${BASH_REMATCH[2]}
    if [[ -t 1 ]]; then printf '\rBuilding the library and the tour: %d of %d, %d s ' "$done" "$all" "$SECONDS"
    elif [[ $((100 * done / all)) -ge $((said + 10)) ]]; then
      said=$((100 * done / all))
      printf 'Building the library and the tour: %d of %d, %d s\n' "$done" "$all" "$SECONDS"
    fi
  done
  if [[ -t 1 && -n ${all:-} ]]; then printf '\n'; fi
}

# A build folder of its own, without tests; the second copy of the library where this processor would use it.
wide=OFF
! grep -qw avx2 /proc/cpuinfo || wide=ON
SECONDS=0
if ! { cmake -S "$root" -B "$root/build/demo" -G Ninja -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=ON \
         -DZORI_BUILD_CHECK=OFF -DZORI_BUILD_PYTHON=OFF -DZORI_WIDE=$wide &&
       cmake --build "$root/build/demo" --target tour; } 2>&1 </dev/null | progress; then
  cat "$log" >&2
  echo "demo.sh: the tour does not build" >&2
  exit 1
fi
mkdir -p "$root/out"
# threads that wait sleep: on a busy machine the tour would take minutes otherwise
OMP_WAIT_POLICY=${OMP_WAIT_POLICY:-passive} "$root/build/demo/examples/tour" "$@" -o "$root/out/tour.png"
