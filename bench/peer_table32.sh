#!/bin/bash
# The table of peer_table in 32 bits: `bench/peer_table32.sh FOLDER [WORD...]`. The other libraries come
# from Debian's i386 packages into FOLDER, beside ours; nothing is installed.
set -euo pipefail
cd "$(dirname "$0")/.."
mkdir -p "$1"
folder=$(realpath "$1")
shift

if [ ! -d "$folder/root" ]; then
  mkdir -p "$folder/lists" "$folder/packages"
  apt=(-o APT::Architectures=i386 -o APT::Architecture=i386 -o APT::Sandbox::User=root
    -o Dir::State::lists="$folder/lists" -o Dir::State::status=/dev/null -o Dir::Cache="$folder")
  apt-get "${apt[@]}" update > /dev/null || echo "Not all lists of packages are there." >&2
  mapfile -t packages < <(apt-cache "${apt[@]}" depends --recurse --no-recommends --no-suggests \
    --no-conflicts --no-breaks --no-replaces --no-enhances \
    libturbojpeg0 liblept5 libfreeimage3 libgif7 libtiff6 |
    grep '^[a-z]' | grep -vE '^(lib(c6|crypt1|gcc-s1)|gcc-12-base)$' | sort -u)
  (cd "$folder/packages" && apt-get "${apt[@]}" download "${packages[@]}" > /dev/null)
  for package in "$folder"/packages/*.deb; do dpkg -x "$package" "$folder/part"; done
  mv "$folder/part" "$folder/root"
fi

build="$folder/build"
cmake -S . -B "$build" -G Ninja -DBUILD_TESTING=OFF -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_C_COMPILER=gcc -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_FLAGS=-m32 -DCMAKE_CXX_FLAGS=-m32 \
  -DCMAKE_C_FLAGS_RELEASE=-O2 -DCMAKE_CXX_FLAGS_RELEASE=-O2 > /dev/null
ninja -C "$build" lib/libtarnquill.so lzw_module > /dev/null
libraries="$folder/root/usr/lib/i386-linux-gnu"
g++ -m32 -std=c++20 -O2 -I. -I/usr/include/leptonica -I/usr/include/x86_64-linux-gnu \
  bench/peer_table.cpp core/dib.cpp -o "$build/peer_table" "$build/lib/libtarnquill.so" \
  "$libraries/libturbojpeg.so.0" "$libraries/liblept.so.5" "$libraries/libfreeimage.so.3" \
  "$libraries/libgif.so.7" "$libraries/libpng16.so.16" "$libraries/libtiff.so.6" \
  -Wl,--allow-shlib-undefined
LD_LIBRARY_PATH="$build/lib:$libraries:$folder/root/lib/i386-linux-gnu" "$build/peer_table" "$@"
