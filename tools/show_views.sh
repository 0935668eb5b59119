#!/bin/bash
# Prints what `tarnquill view` makes of a drawing of A0 size, a fax page whose dots are twice as high as
# wide, inks and transparent pixels: for a log that shows 24-bit colours. Needs a build of preset release.
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."
programs=build/release/bin
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

cmake --build --preset release --target plan_memory make_scene tarnquill_tool > "$folder/log" ||
  { cat "$folder/log"; exit 1; }
"$programs/plan_memory" "$folder" tif > /dev/null
"$programs/make_scene" "$folder"
"$programs/tarnquill" convert -q "$folder/page-1.bmp" "$folder/fax.tif" \
  --size 1728x1174 --filter mono --dpi 204x98
for picture in "$folder/plan.tif" "$folder/fax.tif" tests/corpus/jpeg/cmyk.jpg \
  tests/corpus/gif/transparent.gif; do
  echo "== $(basename "$picture")"
  "$programs/tarnquill" view "$picture"
done
