#!/bin/bash
# scripts/install-packages.sh [build|test|examples|bench|docs|package|python|distributed|nightly]...
#
# Installs with apt-get what the named work needs and this machine does not have (Debian 12 or a relative, as root or
# through sudo). Each need is told by what must work, so tools from elsewhere count, and where nothing is missing
# neither network nor privileges are touched.
#
#   build        compiler, OpenMP, CMake, Ninja, pkg-config
#   test         64-bit and 32-bit tests (includes build)
#   examples     the example programs, which read and write PNG (includes build)
#   bench        benchmarks (includes build)
#   docs         the documentation site (includes examples)
#   package      Debian packages (includes docs)
#   python       the Python binding
#   distributed  the examples with several workers: Dask, Zarr, Open MPI
#   nightly      scripts/nightly.sh and scripts/fuzz.sh (includes test)
set -euo pipefail
export PATH="${PATH:-/usr/bin:/bin}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"
export LC_ALL=C DEBIAN_FRONTEND=noninteractive

have() { command -v "$1" >/dev/null; }

# compiles FLAGS...: whether a C++ program that needs these flags and headers compiles and links.
compiles() {
  local folder status=0
  have g++ || return 1
  folder=$(mktemp -d)
  printf '#include <cstddef>\n#include <cstdio>\nint main() { return 0; }\n' >"$folder/probe.cpp"
  g++ "$folder/probe.cpp" "$@" -o "$folder/probe" >/dev/null 2>&1 || status=1
  rm -rf "$folder"
  return $status
}

missing=()
need() { # need PACKAGE PROBE...: the package is wanted when the probe fails
  local package=$1
  shift
  "$@" || missing+=("$package")
}

need_build() {
  need cmake have cmake
  need ninja-build have ninja
  need g++ compiles -fopenmp
  need pkg-config have pkg-config
}
need_test() {
  need_build
  need ccache have ccache
  need g++-multilib compiles -m32 -fopenmp
  need python3 have python3
  need pkg-config have pkg-config
  need binutils have readelf
  need clang-format have clang-format
  need cmark-gfm have cmark-gfm
  need googletest test -e /usr/src/googletest/CMakeLists.txt
  need abigail-tools have abidiff
  need_examples
  need_python
  need python3-hypothesis imports hypothesis
  need python3-matplotlib imports matplotlib
  need mypy test -x /usr/bin/mypy
  need_distributed
  need_package
}
need_examples() {
  need_build
  need libpng-dev compiles -include png.h -lpng
}
need_bench() {
  need_build
  need python3 have python3
  need libbenchmark-dev compiles -include benchmark/benchmark.h -lbenchmark -lpthread
  need libfftw3-dev compiles -include fftw3.h -lfftw3f
}
need_docs() {
  need_examples
  need python3 have python3
  need cmark-gfm have cmark-gfm
}
need_package() {
  need_docs
  need dpkg-dev have dpkg-shlibdeps
  need file have file
  need lintian have lintian
  need pkg-config have pkg-config
  need python3 test -x /usr/bin/python3
  need python3-dev has_python_header
  need python3-numpy imports numpy
}

has_mpi_header() { have mpicxx && mpicxx -E -include mpi.h -x c++ /dev/null >/dev/null 2>&1; }
imports() { /usr/bin/python3 -c "import $1" 2>/dev/null; }
has_python_header() {
  /usr/bin/python3 -c 'import os, sysconfig; open(os.path.join(sysconfig.get_path("include"), "Python.h"))' 2>/dev/null
}
need_python() {
  need python3 test -x /usr/bin/python3
  need python3-dev has_python_header
  need python3-numpy imports numpy
  need python3-venv imports ensurepip
  need python3-setuptools imports setuptools
  need python3-wheel imports wheel
}
need_distributed() {
  need_python
  need python3-dask imports dask.array
  need python3-distributed imports distributed
  need python3-zarr imports zarr
  need libopenmpi-dev has_mpi_header
  need openmpi-bin have mpirun
}

has_fuzz_engine() {
  printf 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, unsigned long) { return 0; }\n' |
    clang++ -x c++ -fsanitize=fuzzer,address -fopenmp - -o /dev/null 2>/dev/null
}
need_nightly() {
  need_test
  need clang have clang++
  need libclang-rt-dev has_fuzz_engine
  need libomp-dev has_fuzz_engine
  need llvm have llvm-symbolizer
  need clang-tidy have clang-tidy
  need valgrind have valgrind
}

for work in "${@:-build}"; do
  case $work in
    build | test | examples | bench | docs | package | python | distributed | nightly) "need_$work" ;;
    *) echo "install-packages.sh: '$work' is none of build, test, examples, bench, docs, package, python, distributed, nightly" >&2; exit 2 ;;
  esac
done
[[ ${#missing[@]} -gt 0 ]] || exit 0

mapfile -t missing < <(printf '%s\n' "${missing[@]}" | sort -u)
if ! have apt-get; then
  echo "install-packages.sh: please install what Debian calls ${missing[*]}" >&2
  exit 1
fi
as_root=()
if [[ $(id -u) -ne 0 ]]; then
  if ! have sudo; then
    echo "install-packages.sh: ${missing[*]} must be installed; run this as root or install sudo" >&2
    exit 1
  fi
  as_root=(sudo env DEBIAN_FRONTEND=noninteractive)
fi

echo "Installing ${missing[*]}"
log=$(mktemp)
trap 'rm -f "$log"' EXIT
apt() { "${as_root[@]}" apt-get -qq -o Acquire::Retries=3 -o DPkg::Lock::Timeout=120 "$@" >"$log" 2>&1 </dev/null; }
install() { apt install -y --no-install-recommends "${missing[@]}"; }
# package lists may be absent, or older than the archive
if ! { apt update && install; } && ! install; then
  cat "$log" >&2
  echo "install-packages.sh: could not install ${missing[*]}" >&2
  exit 1
fi
