#!/bin/bash
# Builds static libraries for a target that Debian has no packages for, from Debian's source packages, and
# prints the folder that holds their include/ and lib/. A second call takes no time and no network. The
# sources come from the mirrors that apt already uses.
#
#   tools/build_dependency.sh TARGET SET     TARGET: win32, win64, linux32 or wasm
#
#   png        libpng; for linux32 and wasm zlib as well, which Debian has for Windows (libz-mingw-w64-dev)
#   extended   what the module trqvext takes: libwebp, OpenJPEG, jbig2dec, libheif over libde265. Some
#              minutes. AVIF is not in it: its decoder is built with tools of its own
#   c          of wasm: the C library, which Debian's Emscripten has as sources. Some minutes, without network;
#              `config` is what emcc --em-config wants
#
# They lie in ${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-~/.cache}/tarnquill}/SET-TARGET.
set -euo pipefail

target=${1:-} set=${2:-}
usage() {
  sed -n '2,14s/^# \{0,1\}//p' "$0" >&2
  exit 2
}
case $target in
  win32) prefix=i686-w64-mingw32 flags=(-msse2 -mstackrealign) ;;
  win64) prefix=x86_64-w64-mingw32 flags=() ;;
  linux32) prefix='' flags=(-m32 -fPIC -fvisibility=hidden -msse2) ;;
  wasm) prefix='' flags=() ;;
  *) usage ;;
esac
cc=${prefix:+$prefix-}gcc${prefix:+-posix} cxx=${prefix:+$prefix-}g++${prefix:+-posix} ar=${prefix:+$prefix-}ar
[ "$target" != wasm ] || cc=emcc cxx=em++ ar=emar
case $set in
  png)
    sources=(libpng1.6)
    case $target in linux32 | wasm) sources=(zlib libpng1.6) ;; esac
    ;;
  c)
    [ "$target" = wasm ] || usage
    sources=()
    ;;
  extended) sources=(libwebp openjpeg2 jbig2dec libde265 libheif) ;;
  *) usage ;;
esac

cache=${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tarnquill}
root=$cache/$set-$target
mkdir -p "$cache"
exec 9> "$cache/$set.lock"
flock 9
recipe=$(sha256sum < "${BASH_SOURCE[0]}")  # what another version of this script built is built again
if [ "$(cat "$root/complete" 2> /dev/null)" = "$recipe" ]; then
  echo "$root"
  exit 0
fi

work=$(mktemp -d "$cache/$set.new.XXXXXX")
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
  for package in "${sources[@]}"; do
    # The newest; where a mirror lacks that, the one of the release.
    (cd "$work/source" && { private_apt apt-get -qq --download-only source "$package" \
      || private_apt apt-get -qq --download-only source "$package/$(. /etc/os-release; echo "$VERSION_CODENAME")"; })
    dsc=$(find "$work/source" -name "${package}_*.dsc" | sort | tail -n 1)
    dpkg-source --no-check -x "$dsc" "$work/$package"
  done
}

compile() {  # SOURCE FLAG...: to an object beside it
  local source=$1
  shift
  "$cc" -O2 "${flags[@]}" -I"$out/include" -I"$(dirname "$source")" "$@" -c "$source" -o "${source%.c}.o"
}

build_zlib() {
  cp zlib.h zconf.h "$out/include"
  local name
  for name in adler32 crc32 deflate inffast inflate inftrees trees zutil; do compile $name.c; done
  "$ar" rcs "$out/lib/libz.a" ./*.o
}

# Small, because it ends in the DLL: without the interfaces that are not called and without messages to a console,
# only what works on rows for speed, and so that the linker can leave out functions. 32-bit Windows needs no tables
# for unwinding.
build_libpng1.6() {
  sed -E '/^#define PNG_(CONSOLE_IO|SIMPLIFIED_\w+|PROGRESSIVE_READ)_SUPPORTED/d' scripts/pnglibconf.h.prebuilt \
    > pnglibconf.h
  cp {png,pngconf,pnglibconf}.h "$out/include"
  local name small=(-ffunction-sections -fdata-sections)
  [ "$target" != win32 ] || small+=(-fno-asynchronous-unwind-tables -fno-unwind-tables)
  for name in pngrtran pngrutil pngtrans pngwutil; do
    compile $name.c -DPNG_INTEL_SSE_OPT=0 "${small[@]}"
  done
  for name in png pngerror pngget pngmem pngread pngrio pngset pngwio pngwrite pngwtran; do
    compile $name.c -DPNG_INTEL_SSE_OPT=0 -Os "${small[@]}"
  done
  "$ar" rcs "$out/lib/libpng.a" ./*.o
}

build_jbig2dec() {
  cp jbig2.h "$out/include"
  local name
  for name in jbig2{,_arith,_arith_int,_arith_iaid,_huffman,_hufftab,_generic,_halftone,_image,_metadata,_mmr} \
    jbig2_{page,refinement,segment,symbol_dict,text}; do
    [ ! -e $name.c ] || compile $name.c -DHAVE_STDINT_H -D__NO_ISOCEXT
  done
  "$ar" rcs "$out/lib/libjbig2dec.a" ./*.o
}

with_cmake() {  # TARGETS OPTION...
  local targets=$1
  shift
  local system=()
  [ -z "$prefix" ] || system=(-DCMAKE_SYSTEM_NAME=Windows "-DCMAKE_FIND_ROOT_PATH=/usr/$prefix;$out"
    -DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY -DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY
    -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=ONLY "-DCMAKE_RC_COMPILER=$prefix-windres")
  cmake -G Ninja -S . -B out "${system[@]}" -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=OFF \
    "-DCMAKE_C_COMPILER=$cc" "-DCMAKE_CXX_COMPILER=$cxx" "-DCMAKE_C_FLAGS=${flags[*]}" \
    "-DCMAKE_CXX_FLAGS=${flags[*]}" "-DCMAKE_INSTALL_PREFIX=$out" -DCMAKE_INSTALL_LIBDIR=lib \
    -DCMAKE_POSITION_INDEPENDENT_CODE=ON "$@"
  # shellcheck disable=SC2086  # a list of names
  cmake --build out --target $targets
}

build_libwebp() {
  local without=(ANIM_UTILS CWEBP DWEBP GIF2WEBP IMG2WEBP VWEBP WEBPINFO WEBPMUX EXTRAS)
  with_cmake "webp webpdemux" $(printf -- "-DWEBP_BUILD_%s=OFF " "${without[@]}")
  mkdir -p "$out/include/webp"
  cp src/webp/*.h "$out/include/webp"
  find out -name 'libwebp*.a' -exec cp {} "$out/lib" \;
}

build_openjpeg2() {
  with_cmake openjp2 -DBUILD_CODEC=OFF -DOPJ_USE_THREAD=OFF
  cp src/lib/openjp2/{openjpeg,opj_stdint}.h out/src/lib/openjp2/opj_config.h "$out/include"
  find out -name 'libopenjp2.a' -exec cp {} "$out/lib" \;
}

build_libde265() {
  with_cmake de265 -DENABLE_SDL=OFF -DENABLE_DECODER=OFF -DENABLE_ENCODER=OFF
  mkdir -p "$out/include/libde265"
  cp libde265/{de265,en265}.h "$(find . -name de265-version.h | head -n 1)" "$out/include/libde265"
  find out -name 'libde265.a' -exec cp {} "$out/lib" \;
}

build_libheif() {
  with_cmake heif -DWITH_LIBDE265=ON -DWITH_X265=OFF -DWITH_AOM_DECODER=OFF -DWITH_AOM_ENCODER=OFF -DWITH_DAV1D=OFF \
    -DWITH_RAV1E=OFF -DWITH_SvtEnc=OFF -DWITH_EXAMPLES=OFF -DENABLE_PLUGIN_LOADING=OFF \
    -DENABLE_MULTITHREADING_SUPPORT=OFF "-DLIBDE265_INCLUDE_DIR=$out/include" "-DLIBDE265_LIBRARY=$out/lib/libde265.a" \
    "-DCMAKE_CXX_FLAGS=${flags[*]} -DLIBDE265_STATIC_BUILD"
  mkdir -p "$out/include/libheif"
  cp libheif/heif.h "$(find . -name heif_version.h | head -n 1)" "$out/include/libheif"
  find out -name 'libheif.a' -exec cp {} "$out/lib" \;
}

# Into a cache of its own: the one that is installed has headers only. It is emptied when it is used with another
# configuration than it was filled with. Linked as the package is, so that the package's parts are in it.
build_c() {
  sed "/^FROZEN_CACHE/d; \$aFROZEN_CACHE = False\nCACHE = '$root/cache'" /usr/share/emscripten/.emscripten \
    > "$out/config"
  echo 'int none;' > "$work/none.c"
  EM_CONFIG=$out/config EM_CACHE=$out/cache "$cc" "$work/none.c" -o "$work/none.wasm" --no-entry -O2 \
    -sALLOW_MEMORY_GROWTH -sAUTO_NATIVE_LIBRARIES=0 -sDEFAULT_TO_CXX=0
}

build() {
  out=$work/out
  mkdir -p "$out/include" "$out/lib" "$out/licences"
  local package licence  # packages stand behind those that they need
  for package in "${sources[@]}"; do
    cd "$work/$package" && "build_$package"
  done
  [ "$set" != c ] || build_c
  for package in "${sources[@]}"; do
    for licence in LICENSE COPYING; do
      [ ! -e "$work/$package/$licence" ] || cp "$work/$package/$licence" "$out/licences/$package"
    done
  done
  echo "$recipe" > "$out/complete"
}

set +e  # a condition would switch off the end at the first failure
(set -e; [ ${#sources[@]} = 0 ] || fetch; build) > "$log" 2>&1 < /dev/null
built=$?
set -e
if [ "$built" != 0 ]; then
  tail -n 20 "$log" >&2
  echo "$set for $target could not be built" >&2
  exit 1
fi
rm -rf --one-file-system "$root"
mv "$work/out" "$root"
echo "$root"
