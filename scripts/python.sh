#!/bin/bash
# scripts/python.sh [FOLDER]
#
# Makes a virtual environment in FOLDER (build/python unless told otherwise) with the Python binding and the library in
# it, on Debian's Python and NumPy; builds the library first. ZORI_LIBRARY names a folder with a built library that is
# taken as it is. Then:  FOLDER/bin/python -c 'import zori'
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
folder=$(realpath -m "${1:-$(dirname "${BASH_SOURCE[0]}")/../build/python}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
python=${ZORI_PYTHON:-/usr/bin/python3}

packages=$(mktemp -d)
trap 'rm -rf "$packages"' EXIT
if [[ -z ${ZORI_LIBRARY:-} ]]; then # the library's build folder is kept, so that a second run is quick
  bash scripts/install-packages.sh build python
  cmake -S . -B build/python-library -G Ninja -DCMAKE_BUILD_TYPE=Release -DZORI_BUILD_TESTS=OFF \
    -DZORI_BUILD_EXAMPLES=OFF -DZORI_BUILD_CHECK=OFF -DZORI_BUILD_PYTHON=OFF >/dev/null
  cmake --build build/python-library --parallel "$(nproc)" \
    --target zori $(grep -q '^ZORI_WIDE:.*=ON' build/python-library/CMakeCache.txt && echo zori_wide)
  export ZORI_LIBRARY=build/python-library/src
fi
bash scripts/wheel.sh "$packages" >/dev/null
"$python" -m venv --system-site-packages --without-pip "$folder"
site=$("$folder/bin/python" -c 'import sysconfig; print(sysconfig.get_path("platlib"))')
"$python" -m zipfile -e "$packages"/*.whl "$site"
"$folder/bin/python" -c 'import zori; print("zori", zori.zoriGetLibVersion()["version"], "in", zori.__file__)'
