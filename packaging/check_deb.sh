#!/bin/bash
# Tries the Debian packages that tools/package.sh made: lintian, then in a fresh Debian they are installed,
# used (program, modules, C with both libraries, Python, documents) and removed. Needs root, debootstrap and
# some minutes.
#
#   packaging/check_deb.sh FOLDER
set -euo pipefail
[ $# -gt 0 ] || { sed -n '2,6s/^# \{0,1\}//p' "$0" >&2; exit 2; }

here=$(cd -- "$(dirname -- "${BASH_SOURCE[0]}")" && pwd -P)
repo=$(dirname -- "$here")
root=$repo/build/check-deb
suite=bookworm

inside() {  # DIR: in a mount namespace of its own, whose mounts vanish with it
  mount -t proc proc "$1/proc" 2> /dev/null || true
  mount --bind /dev "$1/dev"
  exec env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
    chroot "$1" bash /check/in_debian.sh
}
case $1 in
  _make) debootstrap --variant=minbase "$suite" "$root" "$2" > "$root.log" 2>&1; exit ;;
  _inside) inside "$2" ;;
esac

out=$(realpath -- "$1")
echo "== lintian"
lintian --allow-root --fail-on error "$out"/*.deb

echo "== a fresh Debian"
rm -rf --one-file-system "$root"
mkdir -p "$root"
# shellcheck disable=SC2016  # apt's variable
mirror=$(apt-get indextargets --format '$(SITE)' 'Created-By: Packages' 'Component: main' "Release: $suite" | head -n 1)
unshare --mount --propagation private "$0" _make "$mirror" || { tail -n 20 "$root.log" >&2; exit 1; }
apt-config dump Acquire::http::Proxy Acquire::https::Proxy > "$root/etc/apt/apt.conf.d/50host"
printf '#!/bin/sh\nexit 101\n' > "$root/usr/sbin/policy-rc.d"  # start no services
chmod +x "$root/usr/sbin/policy-rc.d"
mkdir "$root/check"
cp "$out"/*.deb "$repo/tests/package/consumer.c" "$here/in_debian.sh" "$root/check"
unshare --mount --propagation private "$0" _inside "$root"
rm -rf --one-file-system "$root"
