#!/bin/bash
# Compiles and runs the C# and the Pascal binding over a built library, as far as there is a compiler.
#
#   compiled.sh csharp|pascal BINDINGS LIBRARY      exit code 77 without a compiler
set -euo pipefail

language=$1 bindings=$(realpath "$2") library=$(realpath "$3")
here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# The name that the loader looks for, and the one that a linker does.
ln -s "$library" "$work/libtarnquill.so.0"
ln -s "$library" "$work/libtarnquill.so"
export LD_LIBRARY_PATH=$work
cd "$here/.."

case $language in
  csharp)
    type mcs mono > /dev/null 2>&1 || exit 77
    mcs -nologo -warnaserror -warn:4 -target:library "-out:$work/Tarnquill.dll" "$bindings"/csharp/*.cs
    cp "$bindings/csharp/Tarnquill.dll.config" "$work"
    mcs -nologo -warnaserror "-out:$work/test.exe" "-r:$work/Tarnquill.dll" "$here/Test.cs"
    mono "$work/test.exe" "$work"
    ;;
  pascal)
    type fpc > /dev/null 2>&1 || exit 77
    fpc -v0ew "-Fu$bindings/delphi" "-FU$work" "-FE$work" "-Fl$work" "$here/test.pas" > "$work/log" 2>&1 ||
      { cat "$work/log"; exit 1; }
    "$work/test"
    ;;
esac
