#!/bin/bash
# Runs a 64-bit Windows program under Debian's wine64, without a display, with a prefix of this clone's own
# in build/.
#
#   tools/wine64.sh PROGRAM ARGS...
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
mkdir -p "$here/../build"
export WINEPREFIX=$here/../build/wine64 WINEARCH=win64 WINEDEBUG=-all
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='
unset DISPLAY WAYLAND_DISPLAY
wine=$(command -v wine64 || echo /usr/lib/wine/wine64)
(
  flock 9
  [ -e "$WINEPREFIX/system.reg" ] || "$wine" wineboot --init > /dev/null 2>&1 < /dev/null 9>&-
) 9> "$here/../build/wine64.lock"
exec "$wine" "$@"
