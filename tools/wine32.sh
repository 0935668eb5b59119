#!/bin/bash
# Runs 32-bit Windows programs of this clone through Wine, in a small i386 Debian of its own.
#
#   tools/wine32.sh setup               make the Debian (once; later calls return at once)
#   tools/wine32.sh run PROGRAM ARGS... run a program; its exit code is passed on
#   tools/wine32.sh stop                end the Wine server (it ends itself after a minute)
#
# With --display in front programs have the windows of $DISPLAY, in a prefix of their own: a server that
# was started without a display never gets one. Else there is none. With WINE_DESKTOP=1024x768 these are
# in a window of that size, where they have title bars without a window manager.
#
# The Debian lies in ${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-~/.cache}/tarnquill}/wine32. Every mount is
# made in a private mount namespace and vanishes with its last process, so outside of it nothing is
# ever mounted there and the folder can be deleted at any time. Needs root, and debootstrap for setup.
set -euo pipefail

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
self=$here/$(basename -- "${BASH_SOURCE[0]}")
repo=$(dirname -- "$here")
cache=${TARNQUILL_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/tarnquill}
root=$cache/wine32
suite=bookworm

# A clone has a Wine prefix, and so a Wine server, of its own: the server opens files by their path
# in the namespace that it was started in, where only this clone can be seen. The folder's number is
# part of its name: a new clone in the old place is another one.
identity="$(stat -c %d:%i -- "$repo") $repo"
clone=$(sha256sum <<< "$identity" | cut -c1-12)
inside=/clones/$clone
display=()
if [ "${1:-}" = --display ]; then
  shift
  display=(DISPLAY="${DISPLAY:?}")
  inside=$inside-display
fi
fail() {
  echo "wine32.sh: $*" >&2
  exit 125
}

in_namespace() { unshare --mount --propagation private "$self" ${display:+--display} "$@"; }

mount_system() {  # DIR
  mount -t proc proc "$1/proc"
  mount --bind /dev "$1/dev"
}

wine_env() {
  env -u DISPLAY -u WAYLAND_DISPLAY "${display[@]}" HOME=/root LC_ALL=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \
    TMPDIR=/tmp WINEARCH=win32 WINEDEBUG=-all WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe=' \
    "$@"
}

# --- setup ------------------------------------------------------------------------------------

archive() {  # the address of the archive that apt itself uses
  # shellcheck disable=SC2016  # apt's variable
  apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Component: main' \
    "Release: $suite" | head -n 1
}

build() {  # DIR MIRROR, in a namespace of its own
  local dir=$1 mirror=$2
  debootstrap --arch=i386 --variant=minbase "$suite" "$dir" "$mirror"
  mountpoint -q "$dir/proc" || mount -t proc proc "$dir/proc"
  mount --bind /dev "$dir/dev"
  printf '#!/bin/sh\nexit 101\n' > "$dir/usr/sbin/policy-rc.d"  # start no services
  chmod +x "$dir/usr/sbin/policy-rc.d"
  apt-config dump Acquire::http::Proxy Acquire::https::Proxy > "$dir/etc/apt/apt.conf.d/50host"
  DEBIAN_FRONTEND=noninteractive LC_ALL=C chroot "$dir" \
    apt-get -o Acquire::Retries=3 install -y --no-install-recommends wine wine32
  chroot "$dir" apt-get clean
  mkdir "$dir/clones"
  # The prefix that the clones' prefixes are copied from.
  wine_env WINEPREFIX=/clones/template chroot "$dir" wine wineboot --init < /dev/null > /dev/null 2>&1
  wine_env WINEPREFIX=/clones/template chroot "$dir" wineserver --wait
  test -f "$dir/clones/template/system.reg"
}

setup() {
  [ -e "$root/complete" ] && return
  [ "$(id -u)" = 0 ] || fail "setup needs root"
  command -v debootstrap > /dev/null || fail "setup needs debootstrap"
  mkdir -p "$cache"
  exec 8> "$cache/wine32.lock"
  flock 8
  [ -e "$root/complete" ] && return
  local mirror new
  mirror=$(archive)
  [ -n "$mirror" ] || fail "no archive of $suite among apt's sources"
  rm -rf --one-file-system "$root" "$cache"/wine32.new.*
  new=$(mktemp -d "$cache/wine32.new.XXXXXX")
  chmod 755 "$new"
  echo "Making an i386 Debian with Wine in $root ..."
  if ! in_namespace _build "$new" "$mirror" > "$cache/wine32.log" 2>&1 < /dev/null 8>&-; then
    tail -n 20 "$cache/wine32.log" >&2
    rm -rf --one-file-system "$new"
    fail "the set-up failed; all of its output is in $cache/wine32.log"
  fi
  touch "$new/complete"
  mv "$new" "$root"
  exec 8>&-
}

# --- run --------------------------------------------------------------------------------------

prune() {  # prefixes of clones that are gone
  local note number folder
  for note in "$root"/clones/*/of; do
    [ -e "$note" ] || continue
    read -r number folder < "$note"
    [ "$(stat -c %d:%i -- "$folder" 2> /dev/null)" = "$number" ] ||
      rm -rf --one-file-system "$(dirname "$note")"
  done
}

start_server() {  # makes the clone's prefix and starts its server, unless that has been done
  (
    flock 9
    if [ ! -e "$root$inside/of" ]; then
      prune
      rm -rf --one-file-system "${root:?}$inside"
      mkdir -p "$root$inside/repo"
      # Linked, for its half a gigabyte of system files; the registry is what gets written.
      cp -al "$root/clones/template" "$root$inside/prefix"
      cp -a --remove-destination "$root/clones/template"/*.reg "$root$inside/prefix"
      echo "$identity" > "$root$inside/of"
    fi
    in_namespace _serve 9>&-
  ) 9> "$root/clones/lock" < /dev/null > /dev/null 2>&1
}

enter() {
  mount_system "$root"
  mount --bind "$repo" "$root$inside/repo"
}

serve() {  # in a namespace of its own, which lives as long as the server
  enter
  # The server stays for a minute after the last program: starting it costs more than most programs.
  wine_env WINEPREFIX="$inside/prefix" chroot "$root" wineserver --persistent=60 || return 0
  # Wine's own services start with the first program; with this one none of them holds our output.
  wine_env WINEPREFIX="$inside/prefix" chroot "$root" wine cmd /c exit
}

run_inside() {  # PROGRAM ARGS..., in a namespace of its own
  local folder=$inside/repo${PWD#"$repo"}
  [ "${PWD#"$repo"}" != "$PWD" ] || folder=$inside/repo
  enter
  # Paths of this clone, wherever they stand in an argument, are paths in there.
  local arguments=("${@//"$repo"/$inside/repo}")
  [ -z "${WINE_DESKTOP:-}" ] ||
    arguments=(explorer "/desktop=tarnquill,$WINE_DESKTOP" "Z:${arguments[0]}" "${arguments[@]:1}")
  exec env -u DISPLAY -u WAYLAND_DISPLAY "${display[@]}" HOME=/root LC_ALL=C.UTF-8 TMPDIR=/tmp \
    PATH=/usr/sbin:/usr/bin:/sbin:/bin WINEARCH=win32 WINEDEBUG=-all WINEPREFIX="$inside/prefix" \
    WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe=' \
    chroot "$root" env -C "$folder" wine "${arguments[@]}"
}

run() {
  [ $# -gt 0 ] || fail "run needs a program"
  local program
  program=$(realpath -- "$1")
  [ -f "$program" ] || fail "no such program: $1"
  case $program in "$repo"/*) ;; *) fail "only programs inside $repo can be run" ;; esac
  shift
  setup >&2
  start_server
  exec unshare --mount --propagation private "$self" ${display:+--display} _run "$program" "$@"
}

stop() {
  [ -e "$root$inside/of" ] || return 0
  in_namespace _stop
}

case ${1:-} in
  setup) setup ;;
  run) shift; run "$@" ;;
  stop) stop ;;
  _build) build "$2" "$3" ;;
  _serve) serve ;;
  _run) shift; run_inside "$@" ;;
  _stop) mount_system "$root"; wine_env WINEPREFIX="$inside/prefix" chroot "$root" wineserver --kill || true ;;
  *) sed -n '2,10s/^# \{0,1\}//p' "$self" >&2; exit 2 ;;
esac
