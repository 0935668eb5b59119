#!/bin/bash
# Makes the packages of the last commit: zip files for Windows, Debian packages, one for npm, and their SHA256SUMS.
#
#   tools/package.sh OUT [win32] [win64] [deb] [npm]      all of them without a name
#
# Only what is committed goes in, built apart in build/packages. Dates are the commit's, and no path gets
# into what is stripped: the same commit and compilers give the same bytes, in any folder.
# packaging/check_zip.sh and packaging/check_deb.sh try the results.
set -euo pipefail
[ $# -gt 0 ] || { sed -n '2,8s/^# \{0,1\}//p' "$0" >&2; exit 2; }

repo=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
out=$(realpath -m -- "$1")
shift
[ $# -gt 0 ] || set -- win32 win64 deb npm
cd "$repo"
groups=(build manual package)
for kind in "$@"; do
  case $kind in
    win32 | win64) groups+=("$kind" gallery) ;;
    npm) groups+=("$kind") ;;
    deb) ;;
    *) echo "no such package: $kind" >&2; exit 2 ;;
  esac
done
tools/install_dependencies.sh "${groups[@]}"

version=$(sed -n 's/^#define TARNQUILL_VERSION_[A-Z]* //p' include/tarnquill.h | paste -sd .)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct)
export SOURCE_DATE_EPOCH TZ=UTC LC_ALL=C.UTF-8
umask 022
mkdir -p "$out"

unpack() {  # KIND: the commit's files, alone
  work=$repo/build/packages/$1
  source=$work/tarnquill-$version
  rm -rf "$work"
  mkdir -p "$work"
  git archive --prefix="tarnquill-$version/" HEAD | tar -x -C "$work"
}

quietly() {  # LOG COMMAND...: its last lines when it fails
  local log=$work/$1
  shift
  echo "   ${*:1:4} ..."
  "$@" > "$log" 2>&1 < /dev/null || { tail -n 40 "$log" >&2; return 1; }
}

# Everything below a folder, sorted, with the commit's date.
make_zip() {  # FOLDER
  find "$work/$1" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
  rm -f "$out/$1.zip"
  (cd "$work" && find "$1" -type f | sort | zip -q -9 -X -@ "$out/$1.zip")
}

# A page of what the library does, made by the program of this system from the same sources.
make_gallery() {  # FOLDER
  (cd "$source" && quietly configure-demo.log cmake --preset demo)
  quietly build-demo.log cmake --build "$source/build/demo" --target demonstration
  quietly gallery.log "$source/tools/demo.py" --packed "$source/build/demo/bin" "$1"
}

pack_windows() {  # BITS MACHINE
  local name=tarnquill-$version-win$1
  local stage=$work/$name build=$source/build/win$1
  echo "== $name.zip"
  (cd "$source" && quietly configure.log cmake --preset "win$1" -DBUILD_TESTING=OFF -DCMAKE_INSTALL_DOCDIR=doc)
  quietly build.log cmake --build "$build" --target tarnquill lzw_module pdf_module programs
  quietly install.log cmake --install "$build" --strip --prefix "$stage"
  cp "$build/tarnquill.def" "$stage/lib"
  (cd "$stage/lib" && llvm-dlltool -k -m "$2" -d tarnquill.def -l tarnquill.lib)
  cp -r "$source/examples" "$stage"
  make_gallery "$stage/gallery"
  "$source/tools/make_bindings.py" "$stage/bindings"
  mkdir "$stage/licences"
  cp "$source/LICENSE" "$stage/licences/tarnquill.txt"
  cp "$("$source/tools/build_dependency.sh" "win$1" png)/licences/libpng1.6" "$stage/licences/libpng.txt"
  cp /usr/share/doc/libz-mingw-w64-dev/copyright "$stage/licences/zlib.txt"
  cp /usr/share/doc/mingw-w64-common/copyright "$stage/licences/mingw-w64.txt"
  sed -e "s/@VERSION@/$version/; s/@BITS@/$1/; s/\$/\r/" "$source/packaging/win/README.txt" > "$stage/README.txt"
  make_zip "$name"
}

pack_debian() {
  echo "== Debian packages"
  cp -r "$source/packaging/debian" "$source"
  case $(cd "$source" && dpkg-parsechangelog -S Version) in
    "$version"-*) ;;
    *) echo "packaging/debian/changelog is not of $version" >&2; return 1 ;;
  esac
  (cd "$source" && DPKG_DEB_THREADS_MAX=1 DEB_BUILD_OPTIONS="noautodbgsym nocheck parallel=$(nproc)" \
    quietly build.log dpkg-buildpackage --build=binary --no-sign)
  cp "$work"/*.deb "$out"
}

pack_npm() {
  local name=tarnquill-$version.tgz
  echo "== $name"
  (cd "$source" && quietly configure.log cmake --preset wasm -DBUILD_TESTING=OFF)
  quietly build.log cmake --build "$source/build/wasm" --target npm
  tar --create --directory "$source/build/wasm" --sort=name "--mtime=@$SOURCE_DATE_EPOCH" --owner=0 --group=0 \
    --numeric-owner --mode=u=rwX,go=rX --format=ustar package | gzip -9 -n > "$out/$name"
  local bytes
  bytes=$(stat -c %s "$out/$name")
  [ "$bytes" -le 400000 ] || { echo "$name has $bytes bytes" >&2; return 1; }
}

for kind in "$@"; do
  unpack "$kind"
  case $kind in
    win32) pack_windows 32 i386 ;;
    win64) pack_windows 64 i386:x86-64 ;;
    deb) pack_debian ;;
    npm) pack_npm ;;
  esac
done
(cd "$out" && find . -maxdepth 1 \( -name '*.zip' -o -name '*.deb' -o -name '*.tgz' \) -printf '%f\n' | sort \
  | xargs sha256sum > SHA256SUMS)
(cd "$out" && ls -l -- *.zip *.deb *.tgz 2> /dev/null) || true
