#!/bin/bash
# Runs clang-tidy over the sources of the tidy preset; over those named only, if there are any.
#
#   tools/tidy.sh [FILE...]
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

cmake --preset tidy > /dev/null
sources=("$@")
if [ ${#sources[@]} -eq 0 ]; then
  # What the preset compiles; the files of the other system cannot be parsed on this one.
  mapfile -t sources < <(/usr/bin/python3 - "$PWD" <<'PYTHON'
import json, os, sys
root = sys.argv[1]
names = {os.path.relpath(os.path.join(entry["directory"], entry["file"]), root)
         for entry in json.load(open("build/tidy/compile_commands.json"))}
print("\n".join(sorted(name for name in names if not name.startswith(("..", "build/")))))
PYTHON
  )
fi
echo "clang-tidy over ${#sources[@]} files"
printf '%s\0' "${sources[@]}" | xargs -0 -n 1 -P 2 clang-tidy --quiet -p build/tidy
