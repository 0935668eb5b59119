#!/bin/bash
# Installs a build into a folder, moves that folder, and builds and runs a C program against it: with
# the CMake package, with pkg-config, with the static library if there is one, and with the header
# compiled as C++.
#
#   run.sh BUILD CC CXX TOOLCHAIN_FILE [RUNNER...]
set -euo pipefail

build=$1 cc=$2 cxx=$3 toolchain=$4
shift 4
runner=("$@")
here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
work=$build/package
rm -rf "$work"
mkdir -p "$work/pc"

cmake --install "$build" --prefix "$work/installed" > "$work/install.log"
mv "$work/installed" "$work/moved"
prefix=$work/moved
if grep -rlF "$build" "$prefix/lib/cmake" "$prefix/lib/pkgconfig"; then
  echo "the installed files above name the build folder"
  exit 1
fi

echo "CMake package"
cmake -G Ninja -S "$here" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$prefix" \
  -DCMAKE_FIND_ROOT_PATH="$prefix" -DCMAKE_C_COMPILER="$cc" \
  ${toolchain:+-DCMAKE_TOOLCHAIN_FILE="$toolchain"} > "$work/cmake.log"
cmake --build "$work/cmake" >> "$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
consumer=$work/cmake/consumer
[ -e "$consumer" ] || consumer=$consumer.exe
"${runner[@]}" "$consumer"

echo "pkg-config"
export PKG_CONFIG_LIBDIR=$prefix/lib/pkgconfig
flags=()
eval "flags=($(pkg-config --cflags --libs tarnquill))"  # its output is quoted for a shell
"$cc" -std=c99 -pedantic-errors -Wall -Wextra -Werror "$here/consumer.c" -o "$work/pc/consumer.exe" \
  "${flags[@]}"
[ ! -d "$prefix/bin" ] || cp "$prefix/bin"/*.dll "$work/pc" 2> /dev/null || true
LD_LIBRARY_PATH=$prefix/lib "${runner[@]}" "$work/pc/consumer.exe"

if [ -e "$prefix/lib/libtarnquill.a" ]; then
  echo "static library"
  eval "flags=($(pkg-config --cflags --libs --static tarnquill))"
  "$cc" "$here/consumer.c" -o "$work/pc/static.exe" "${flags[@]/#-ltarnquill/-l:libtarnquill.a}"
  "${runner[@]}" "$work/pc/static.exe"
  "${runner[@]}" "$work/cmake/consumer_static"
fi

echo "C++"
"$cxx" -std=c++11 -Wall -Wextra -Wpedantic -Werror -x c++ -fsyntax-only "$here/consumer.c" "${flags[@]}"
"$cxx" -std=c++17 -Wall -Wextra -Wpedantic -Werror -x c++ -fsyntax-only - "${flags[@]}" \
  <<< '#include <tarnquill.hpp>'
