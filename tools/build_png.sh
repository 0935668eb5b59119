#!/bin/bash
# Builds static libpng and zlib for a target that Debian has no packages for, from Debian's source
# packages, and prints the folder that holds their include/ and lib/. A second call takes no time and
# no network. The sources come from the mirrors that apt already uses.
#
#   tools/build_png.sh win32|linux32
#
# They lie in ${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-~/.cache}/tarnquill}/png-TARGET.
set -euo pipefail

target=${1:-}
case $target in
  win32) cc=i686-w64-mingw32-gcc-posix ar=i686-w64-mingw32-ar flags=(-msse2 -mstackrealign) ;;
  linux32) cc=gcc ar=ar flags=(-m32 -fPIC -fvisibility=hidden -msse2) ;;
  *) sed -n '2,9s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

cache=${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tarnquill}
root=$cache/png-$target
mkdir -p "$cache"
exec 9> "$cache/png.lock"
flock 9
if [ -e "$root/lib/libpng.a" ]; then
  echo "$root"
  exit 0
fi

work=$(mktemp -d "$cache/png.new.XXXXXX")
trap 'rm -rf --one-file-system "$work"' EXIT
log=$work/log

# apt with a list of its own: the system's sources, as deb-src, in a private folder.
private_apt() {
  local command=$1
  shift
  "$command" -o Dir::Etc::sourcelist="$work/sources.list" -o Dir::Etc::sourceparts=/dev/null \
    -o Dir::State::lists="$work/lists" -o Dir::Cache="$work/cache" -o APT::Sandbox::User=root \
    -o Acquire::Languages=none "$@"
}

fetch() {
  mkdir -p "$work/lists/partial" "$work/cache/archives/partial" "$work/source"
  local key=/usr/share/keyrings/debian-archive-keyring.gpg uri release
  apt-get indextargets --format '$(REPO_URI)|$(RELEASE)' 'Created-By: Packages' | sort -u \
    | while IFS='|' read -r uri release; do
      echo "deb-src [signed-by=$key] $uri $release main"
    done > "$work/sources.list"
  private_apt apt-get -qq update
  local package dsc
  for package in libpng1.6 zlib; do
    # The newest; where a mirror lacks that, the one of the release.
    (cd "$work/source" && { private_apt apt-get -qq --download-only source "$package" \
      || private_apt apt-get -qq --download-only source "$package/$(. /etc/os-release; echo "$VERSION_CODENAME")"; })
    dsc=$(find "$work/source" -name "${package}_*.dsc" | sort | tail -n 1)
    dpkg-source --no-check -x "$dsc" "$work/$package"
  done
}

build() {
  mkdir -p "$work/out/include" "$work/out/lib"
  cp "$work/zlib/zlib.h" "$work/zlib/zconf.h" "$work/out/include"
  cp "$work/libpng1.6/scripts/pnglibconf.h.prebuilt" "$work/libpng1.6/pnglibconf.h"
  cp "$work/libpng1.6"/{png,pngconf,pnglibconf}.h "$work/out/include"
  local name
  for name in adler32 crc32 deflate inffast inflate inftrees trees zutil; do
    "$cc" -O2 "${flags[@]}" -I"$work/zlib" -c "$work/zlib/$name.c" -o "$work/zlib/$name.o"
  done
  "$ar" rcs "$work/out/lib/libz.a" "$work"/zlib/*.o
  for name in png pngerror pngget pngmem pngpread pngread pngrio pngrtran pngrutil pngset pngtrans \
    pngwio pngwrite pngwtran pngwutil; do
    "$cc" -O2 "${flags[@]}" -DPNG_INTEL_SSE_OPT=0 -I"$work/out/include" -I"$work/libpng1.6" \
      -c "$work/libpng1.6/$name.c" -o "$work/libpng1.6/$name.o"
  done
  "$ar" rcs "$work/out/lib/libpng.a" "$work"/libpng1.6/*.o
}

set +e  # a condition would switch off the end at the first failure
(set -e; fetch; build) > "$log" 2>&1 < /dev/null
built=$?
set -e
if [ "$built" != 0 ]; then
  tail -n 20 "$log" >&2
  echo "libpng for $target could not be built; cmake -DTQ_PNG=OFF does without" >&2
  exit 1
fi
rm -rf --one-file-system "$root"
mv "$work/out" "$root"
echo "$root"
