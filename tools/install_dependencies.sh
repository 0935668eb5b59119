#!/bin/bash
# Installs what is missing of the Debian packages that the groups named need; all groups without a
# name. A call with nothing missing takes no time and no network. Needs root only to install.
#
#   tools/install_dependencies.sh [build] [test] [extended] [tidy] [linux32] [win32] [win64] [package] [bench]
#                                 [bindings] [npm] [browsers] [manual] [shown] [gallery] [peers]
set -euo pipefail
cd -- "$(dirname -- "${BASH_SOURCE[0]}")/.."

declare -A packages=(
  [build]="g++ cmake ninja-build python3 libpng-dev"
  [test]="googletest git pkg-config clang libclang-rt-14-dev clang-format"
  [extended]="libwebp-dev libopenjp2-7-dev libheif-dev libjbig2dec0-dev pkg-config"
  [tidy]="clang-tidy"
  [linux32]="g++-multilib dpkg-dev"
  [win32]="g++-mingw-w64-i686-posix libz-mingw-w64-dev debootstrap dpkg-dev"
  [win64]="g++-mingw-w64-x86-64-posix libz-mingw-w64-dev dpkg-dev wine64"
  [package]="git zip unzip lld llvm clang debhelper dh-python lintian help2man debootstrap"
  [bench]="libbenchmark-dev libgif-dev"
  [bindings]="python3-numpy python3-pil python3-distributed mypy mono-mcs mono-runtime
    libmono-system-core4.0-cil fp-compiler fp-units-rtl"
  [npm]="emscripten dpkg-dev"
  [browsers]="nodejs chromium python3-numpy"  # what the package for npm is tried in
  [manual]="help2man doxygen man-db groff mandoc zsh"
  # Other programs that read and write the same formats; what uses them does without if it must.
  [shown]="netpbm poppler-utils"
  [gallery]="poppler-utils libjpeg-turbo-progs libtiff-tools"
  [peers]="netpbm imagemagick python3-pil pngcheck libtiff-dev libtiff-tools libleptonica-dev
    libfreeimage-dev graphicsmagick dcmtk libjpeg-turbo-progs libturbojpeg0-dev qpdf poppler-utils
    sane-utils ghostscript mupdf-tools xvfb xdotool libsdl2-dev"
)

missing() {  # GROUP...: the packages of these groups that are not installed
  local group wanted=()
  for group in "$@"; do
    [ -n "${packages[$group]:-}" ] || { echo "no such group: $group" >&2; exit 2; }
    read -rd '' -a more <<< "${packages[$group]}" || true
    wanted+=("${more[@]}")
  done
  local installed
  installed=$(dpkg-query -W -f '${Package} ${db:Status-Status}\n' "${wanted[@]}" 2> /dev/null || true)
  local name
  for name in "${wanted[@]}"; do
    grep -qx "$name installed" <<< "$installed" || echo "$name"
  done
}

updated=
install() {
  if [ "$(id -u)" != 0 ]; then
    echo "missing, to be installed as root: apt-get install $*" >&2
    return 1
  fi
  echo "Installing $*"
  export DEBIAN_FRONTEND=noninteractive
  if [ -z "$updated" ]; then
    # A source that cannot be reached matters only if the packages then cannot be found.
    tools/with_progress.sh build/packages.log apt-get -q -o DPkg::Lock::Timeout=300 update || true
    updated=yes
  fi
  tools/with_progress.sh build/packages.log apt-get -q -o DPkg::Lock::Timeout=300 \
    -o Dpkg::Use-Pty=0 install -y --no-install-recommends "$@"
}

[ $# -gt 0 ] \
  || set -- build test extended tidy linux32 win32 win64 package bench bindings npm browsers manual shown gallery peers
needed=() optional=()
for group in "$@"; do
  case $group in
    peers | shown | gallery | extended | bindings | browsers | manual) optional+=("$group") ;;
    *) needed+=("$group") ;;
  esac
done

if [ ${#needed[@]} -gt 0 ]; then
  list=$(missing "${needed[@]}")
  # shellcheck disable=SC2086  # a list of names
  [ -z "$list" ] || install $list
fi
if [ ${#optional[@]} -gt 0 ]; then
  list=$(missing "${optional[@]}")
  # shellcheck disable=SC2086
  [ -z "$list" ] || install $list || echo "warning: not installed: $list" >&2
fi
