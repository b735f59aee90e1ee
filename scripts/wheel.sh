#!/bin/bash
# scripts/wheel.sh [FOLDER [sdist|wheel]]
#
# Makes the Python packages of the binding in FOLDER (build/python-packages unless told otherwise): a source distribution
# that holds the library's sources and the generated ones, and the wheel that is built from it; or one of both, the wheel
# from the source distribution that is in FOLDER. Needs no network.
# ZORI_LIBRARY names a folder with a built library that is taken as it is.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
folder=$(realpath -m "${1:-$(dirname "${BASH_SOURCE[0]}")/../build/python-packages}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
python=${ZORI_PYTHON:-/usr/bin/python3}
[[ -n ${ZORI_LIBRARY:-} ]] && ZORI_LIBRARY=$(realpath "$ZORI_LIBRARY") && export ZORI_LIBRARY
bash scripts/install-packages.sh build python

what=${2:-both}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$folder"
package() { # package HOOK: what the build backend makes, in $folder; prints its name
  "$python" -B -c 'import os, setuptools.build_meta as backend, sys
print(getattr(backend, sys.argv[1])(sys.argv[2]), file=os.fdopen(3, "w"))' "$1" "$folder" 3>"$work/name" \
    >"$work/log" 2>&1 || { cat "$work/log" >&2; return 1; }
  echo "$folder/$(cat "$work/name")"
}
if [[ $what != wheel ]]; then
  mkdir -p "$work/source/python"
  cp -r api cmake include src tools programs CMakeLists.txt README.md LICENSE "$work/source/"
  cp python/*.c python/*.h "$work/source/python/"
  cp python/setup.py python/pyproject.toml "$work/source/"
  find "$work/source" -name __pycache__ -prune -exec rm -rf {} +
  "$python" -B tools/python_binding.py "$work/source/python"
  echo "graft api
graft cmake
graft include
graft src
graft tools
graft programs
graft python
include CMakeLists.txt" >"$work/source/MANIFEST.in"
  rm -f "$folder"/zori-*.tar.gz
  (cd "$work/source" && package build_sdist)
fi
if [[ $what != sdist ]]; then
  mkdir "$work/unpacked"
  tar -xzf "$folder"/zori-*.tar.gz -C "$work/unpacked" --strip-components=1
  (cd "$work/unpacked" && package build_wheel)
fi
