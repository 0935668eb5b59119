#!/bin/bash
# Says which sources clang-format would change. With --fix it changes them.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."
mode=(--dry-run -Werror)
[ "${1:-}" != --fix ] || mode=(-i)
mapfile -d '' -t listed < <(git ls-files -z -- '*.cpp' '*.h' '*.c')
sources=()
for name in "${listed[@]}"; do
  [ ! -e "$name" ] || sources+=("$name")  # deleted, but not yet from the index
done
clang-format "${mode[@]}" "${sources[@]}"
