#!/bin/bash
# The part of check_deb.sh that runs inside the fresh Debian, in /check with the packages.
set -euo pipefail
cd /check
list() { find / -xdev \( -path /proc -o -path /dev -o -path /check -o -path /tmp -o -path /var -o -path /root \) -prune -o -print | sort; }
apt() { apt-get -qq -o Dpkg::Use-Pty=0 "$@" > /check/apt.log 2>&1 || { tail -n 20 /check/apt.log; exit 1; }; }

apt update
apt install -y --no-install-recommends gcc libc6-dev libpng-dev pkg-config python3 man-db
list > before

echo "== install"
apt install -y --no-install-recommends ./*.deb
dpkg-query -W -f '${Package} ${Version} ${Installed-Size} kB\n' '*tarnquill*'
ldconfig -p | grep -q 'libtarnquill\.so\.0' || { echo "the loader does not know the library"; exit 1; }

echo "== use"
cat > page.pbm <<'PBM'
P1
8 3
0 1 0 1 0 1 0 1
1 1 1 1 0 0 0 0
0 0 0 0 0 0 0 0
PBM
tarnquill --version
for name in page.gif page.pdf page.tif page.png; do  # by both modules and libpng
  tarnquill convert page.pbm "$name"
  tarnquill convert "$name" back.pbm
  cmp <(tail -c 3 back.pbm) <(printf '\x55\xf0\x00') || { echo "$name came back otherwise"; exit 1; }
done
read -ra flags <<< "$(pkg-config --cflags --libs tarnquill)"
gcc -Wall -Werror consumer.c -o shared "${flags[@]}"
read -ra flags <<< "$(pkg-config --cflags --libs --static tarnquill)"
gcc -Wall -Werror consumer.c -o static "${flags[@]/#-ltarnquill/-l:libtarnquill.a}"
./shared
./static
python3 - <<'PYTHON'
import tarnquill
with tarnquill.Image.open("page.pdf") as image:
    assert (image.width, image.height, image.pages) == (8, 3, 1), (image.width, image.height, image.pages)
    image.save("python.png")
PYTHON
tarnquill info python.png
MAN_KEEP_FORMATTING=1 man tarnquill > page.txt
grep -q convert page.txt
[ -s /usr/share/bash-completion/completions/tarnquill ]
[ -s /usr/share/doc/tarnquill-doc/html/index.html ]

echo "== remove"
mapfile -t installed < <(dpkg-query -W -f '${Package}\n' '*tarnquill*')
apt purge -y "${installed[@]}"
list > after
diff before after || { echo "left behind or taken along, see above"; exit 1; }
echo "nothing is left behind"
