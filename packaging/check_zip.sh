#!/bin/bash
# Tries a zip for Windows that tools/package.sh made: what is in it, what the DLLs need, and two clients of
# it under Wine, one that loads the DLL by its name and one that lld-link linked with tarnquill.lib.
#
#   packaging/check_zip.sh ZIP
set -euo pipefail
[ $# = 1 ] || { sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2; }

repo=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.." && pwd -P)
name=$(basename -- "$1" .zip)
work=$repo/build/check-zip  # Wine sees this clone only
rm -rf "$work"
mkdir -p "$work"
unzip -q "$1" -d "$work"
cd "$work/$name"
case $name in
  *-win32) prefix=i686-w64-mingw32 target=i686-pc-windows-msvc machine=i386 exit_process=ExitProcess@4
    run=("$repo/tools/wine32.sh" run) ;;
  *-win64) prefix=x86_64-w64-mingw32 target=x86_64-pc-windows-msvc machine=i386:x86-64 exit_process=ExitProcess
    run=("$repo/tools/wine64.sh") ;;
  *) echo "no name of such a zip: $name" >&2; exit 2 ;;
esac
fail() {
  echo "$name: $*" >&2
  exit 1
}

echo "contents"
for file in bin/{tarnquill,trqvpl1,pdfplug}.dll bin/tarnquill.exe lib/{tarnquill.lib,libtarnquill.dll.a,tarnquill.def} \
  include/tarnquill{,_plugin}.h \
  bindings/vb6/tarnquill.bas examples/convert.c doc/html/index.html gallery/index.html licences/{libpng,zlib}.txt README.txt; do
  [ -s "$file" ] || fail "$file is missing"
done
for file in bin/*; do
  needs=$("$prefix-objdump" -p "$file" | sed -n 's/.*DLL Name: //p' | sort | tr '\n' ' ')
  case $file in
    *.dll) [ "$needs" = "KERNEL32.dll msvcrt.dll " ] || fail "$file needs $needs" ;;
  esac
  [ -z "$("$prefix-nm" "$file" 2> /dev/null)" ] || fail "$file is not stripped"
  LC_ALL=C grep -qaP 'F\0i\0l\0e\0V\0e\0r\0s\0i\0o\0n' "$file" || fail "$file has no version"
  ! grep -qaF "$repo" "$file" || fail "$file names the folder that it was built in"
  printf '  %-20s %8d bytes, needs %s\n' "$file" "$(stat -c %s "$file")" "$needs"
done
[ "$(stat -c %s bin/tarnquill.dll)" -le $((1500 * 1024)) ] || fail "the DLL is larger than 1.5 MB"
"$repo/tools/check_exports.py" --header include/tarnquill.h --library bin/tarnquill.dll --tools "$prefix-" --plain

echo "clients"
client=$repo/packaging/win/client.c
"$prefix-gcc-posix" -O1 -Wall -Wextra -Werror -DBY_NAME -Iinclude "$client" -o bin/by_name.exe
clang --target=$target -O1 -Wall -Wextra -Werror -ffreestanding -Iinclude -c "$client" -o "$work/client.obj"
printf 'LIBRARY KERNEL32.dll\nEXPORTS\n  %s\n' "$exit_process" > "$work/kernel32.def"
llvm-dlltool -k -m "$machine" -d "$work/kernel32.def" -l "$work/kernel32.lib"
lld-link -nologo -entry:start -subsystem:console -nodefaultlib -out:bin/linked.exe "$work/client.obj" \
  lib/tarnquill.lib "$work/kernel32.lib"
for exe in by_name linked; do
  "${run[@]}" "$PWD/bin/$exe.exe" || fail "$exe.exe ended with $?"
done
"${run[@]}" "$PWD/bin/tarnquill.exe" --version
echo "$name is as it should be"
