#!/bin/bash
# scripts/package.sh: builds the library as it is packaged and Debian packages of it into build/packages, looks at them
# with lintian, and uses them: unpacked into a folder, by C, C++, CMake and pkg-config. Installs what is missing.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/install-packages.sh package
bash scripts/docs.sh
cmake -S . -B build/package -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=OFF >/dev/null
cmake --build build/package
rm -rf build/packages
(cd build/package && cpack -B "$PWD/../packages" >/dev/null)
rm -rf build/packages/_CPack_Packages
ls -l build/packages

# not uploaded anywhere; CPack calls ldconfig by itself, which the trigger does once more
lintian --fail-on error,warning --no-tag-display-limit \
  --suppress-tags initial-upload-closes-no-bugs,maintscript-calls-ldconfig build/packages/*.deb

stage=$PWD/build/package/stage
rm -rf "$stage"
for package in build/packages/*.deb; do dpkg-deb -x "$package" "$stage"; done
libraries=$(dirname "$(find "$stage" -name 'libzoriq7-5.3.so.5' -not -path '*hwcaps*')")
export PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
read -ra flags <<<"$(pkg-config --cflags --libs zori)"
cc -std=c99 -Wall -Werror examples/first.c "${flags[@]}" -o "$stage/first" && "$stage/first" "$stage/first.ppm" >/dev/null
c++ -std=c++17 -Wall -Werror examples/data.cpp "${flags[@]}" -o "$stage/data" && "$stage/data" "$stage/data" >/dev/null
cmake -S tests/package/consumer -B "$stage/consumer" -G Ninja -DLANGUAGE=C -DEXAMPLES="$PWD/examples" \
  -DCMAKE_PREFIX_PATH="$stage/usr" >/dev/null
cmake --build "$stage/consumer" >/dev/null
"$stage/consumer/shared_program" "$stage/picture" >/dev/null
"$stage/usr/bin/zori-info"
echo "packages: used by C99, C++17, CMake and pkg-config"
