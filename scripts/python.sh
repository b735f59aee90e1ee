#!/bin/bash
# scripts/python.sh [FOLDER]
#
# Makes a virtual environment in FOLDER (build/python unless told otherwise) with the Python binding and the library in
# it, on Debian's Python and NumPy; builds the library first where that is missing. ZORI_LIBRARY names a folder with a
# built library that is taken as it is. Then:  FOLDER/bin/python -c 'import zori'
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
folder=$(realpath -m "${1:-$(dirname "${BASH_SOURCE[0]}")/../build/python}")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
python=${ZORI_PYTHON:-/usr/bin/python3}

library=${ZORI_LIBRARY:-}
if [[ -z $library ]]; then
  bash scripts/install-packages.sh build python
  cmake -S . -B build/python-library -G Ninja -DCMAKE_BUILD_TYPE=Release -DZORI_BUILD_TESTS=OFF \
    -DZORI_BUILD_EXAMPLES=OFF -DZORI_BUILD_CHECK=OFF -DZORI_BUILD_PYTHON=OFF >/dev/null
  cmake --build build/python-library --target zori $(grep -q '^ZORI_WIDE:.*=ON' build/python-library/CMakeCache.txt &&
    echo zori_wide)
  library=build/python-library/src
fi

"$python" -m venv --system-site-packages --without-pip "$folder"
site=$("$folder/bin/python" -c 'import sysconfig; print(sysconfig.get_path("platlib"))')
headers=$("$python" -c 'import sysconfig; print(sysconfig.get_path("include"))')
generated=$(mktemp -d)
trap 'rm -rf "$generated"' EXIT
"$python" tools/python_binding.py "$generated"
mkdir -p "$site/zori.libs"
cp -P "$library"/libzoriq7-*.so.* "$site/zori.libs/"
if [[ -d $library/glibc-hwcaps ]]; then
  cp -RP "$library/glibc-hwcaps" "$site/zori.libs/"
fi
"${CC:-cc}" -std=gnu99 -O2 -shared -fPIC -fvisibility=hidden -fopenmp -I "$generated" -I include -I "$headers" \
  python/zorimodule.c -o "$site/zori.abi3.so" "$site"/zori.libs/libzoriq7-*.so.5 -lm \
  -Wl,-rpath,'$ORIGIN/zori.libs'
cp "$generated/zori.pyi" "$site/"
"$folder/bin/python" -c 'import zori; print("zori", zori.zoriGetLibVersion()["version"], "in", zori.__file__)'
