#!/bin/bash
# scripts/package.sh [FOLDER]: Debian packages of the library into build/packages. Looks at them with lintian, installs
# them into a root of their own, and uses them there by C99, C++17, CMake, pkg-config and Python. FOLDER is a build that
# is there already and has Python's binding; otherwise build/package is made. Installs what is missing.
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
cd "$(dirname "${BASH_SOURCE[0]}")/.."

bash scripts/install-packages.sh package
build=${1:-build/package}
log=$(mktemp)
trap 'rm -f "$log"' EXIT
quietly() { "$@" >"$log" 2>&1 </dev/null || { cat "$log" >&2; echo "package.sh: failed: $*" >&2; exit 1; }; }

if [[ $# -eq 0 ]]; then
  bash scripts/docs.sh
  quietly cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release -DZORI_BUILD_TESTS=OFF -DZORI_BUILD_EXAMPLES=OFF \
    -DZORI_BUILD_PYTHON=ON
  cmake --build "$build"
fi
# Debian's place for libraries; a build that is there already goes back to its own afterwards.
quietly cmake -B "$build" "-DCMAKE_INSTALL_LIBDIR=lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH)"
quietly cmake --build "$build"
rm -rf build/packages
(cd "$build" && quietly cpack -B "$OLDPWD/build/packages")
quietly cmake -B "$build" -UCMAKE_INSTALL_LIBDIR
rm -rf build/packages/_CPack_Packages
packages=(build/packages/*.deb)
ls -l "${packages[@]}"
[[ ${#packages[@]} -eq 6 ]] || { echo "package.sh: ${#packages[@]} packages, not 6" >&2; exit 1; }

# not uploaded anywhere; CPack calls ldconfig by itself, which the trigger does once more
quietly lintian --fail-on error,warning --no-tag-display-limit \
  --suppress-tags initial-upload-closes-no-bugs,maintscript-calls-ldconfig "${packages[@]}"
echo "packages: clean under lintian"

# Installed as dpkg does it, which refuses two packages with one file; what they depend on is this machine's.
stage=$PWD/build/packages/root
mkdir -p "$stage/var/lib/dpkg"/{info,updates,triggers}
: >"$stage/var/lib/dpkg/status"
if [[ $(id -u) -eq 0 ]]; then
  quietly dpkg --root="$stage" --force-depends --force-script-chrootless --log=/dev/null --install "${packages[@]}"
else # only root may own what it installs
  for package in "${packages[@]}"; do quietly dpkg-deb -x "$package" "$stage"; done
fi
for package in "${packages[@]}"; do
  while read -r name; do
    [[ -z $name ]] || dpkg-query --root="$stage" -W "$name" >/dev/null 2>&1 || dpkg-query -W "$name" >/dev/null 2>&1 ||
      apt-cache show "$name" >/dev/null 2>&1 || { echo "package.sh: $package depends on $name, which is not there" >&2; exit 1; }
  done < <(dpkg-deb -f "$package" Depends | sed -E 's/\([^)]*\)//g; s/[,|]/\n/g' | tr -d ' ')
done

libraries=$(dirname "$stage"/usr/lib/*/libzoriq7-5.3.so.5)
export PKG_CONFIG_PATH=$libraries/pkgconfig LD_LIBRARY_PATH=$libraries
read -ra flags <<<"$(pkg-config --cflags --libs zori)"
uses=$stage/tmp
mkdir -p "$uses"
quietly cc -std=c99 -pedantic -Wall -Wextra -Werror examples/first.c "${flags[@]}" -o "$uses/first"
quietly "$uses/first" "$uses/first.ppm"
quietly c++ -std=c++17 -pedantic -Wall -Wextra -Werror examples/data.cpp "${flags[@]}" -o "$uses/data"
quietly "$uses/data" "$uses/data"
for language in C CXX; do
  quietly cmake -S tests/package/consumer -B "$uses/$language" -G Ninja -DLANGUAGE=$language -DEXAMPLES="$PWD/examples" \
    -DCMAKE_PREFIX_PATH="$stage/usr"
  quietly cmake --build "$uses/$language"
  quietly "$uses/$language/shared_program" "$uses/picture"
  quietly "$uses/$language/static_program" "$uses/picture"
done
"$stage/usr/bin/zori-info"
PYTHONPATH=$stage/usr/lib/python3/dist-packages /usr/bin/python3 -B - "$stage" <<'END'
import sys, numpy, zori
assert zori.__file__.startswith(sys.argv[1]), zori.__file__
a = numpy.arange(12, dtype="uint8").reshape(3, 4)
assert (zori.add(a, a, scale=1) == a).all()
b = a.astype("int16") - 6
zori.zoriAbs_16s_C1IR(b)
assert (b == abs(a.astype("int16") - 6)).all()
maps = open("/proc/self/maps").read()
assert sys.argv[1] in [line for line in maps.splitlines() if "libzoriq7" in line][0]
END
(cd "$uses" && ! LD_PRELOAD=$libraries/libzori-check.so.5 ./first /nowhere/first.ppm 2>&1 | grep zori-check:)
rm -rf "$stage"
echo "packages: used by C99, C++17, CMake, pkg-config and Python"
