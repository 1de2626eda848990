#!/bin/sh
# The Debian package: `cpack -G DEB` makes it, dpkg -i installs it, the
# installed tarvex-farm and tarvex-info work beside the installed tarvex, and
# dpkg -r takes it all away again. Usage: deb-check.sh BUILD
set -u
build=$1
[ "$(id -u)" = 0 ] || { echo "installing a package needs root"; exit 77; }
"$(dirname "$0")/../../tools/install-deps" parallel python3 >/dev/null || exit 1
dpkg-query -W -f '${Status}' tarvex 2>/dev/null | grep -q installed && { echo "a tarvex package is installed already"; exit 77; }
T=$(mktemp -d); trap 'dpkg -r tarvex >/dev/null 2>&1; rm -rf "$T"' EXIT
fail() { echo "FAIL: $*"; exit 1; }
cpack -G DEB --config "$build/CPackConfig.cmake" -B "$T" >/dev/null || fail "cpack"
deb=$(ls "$T"/tarvex_*.deb) && dpkg-deb -c "$deb" > "$T/files"
for f in bin/tarvex bin/tarvex-farm bin/tarvex-info share/man/man1/tarvex.1 share/man/man1/tarvex-farm.1 share/man/man1/tarvex-info.1; do
  grep -q " \./usr/$f$" "$T/files" || fail "$f not in the package"
done
dpkg-deb -f "$deb" Depends | grep -q 'python3, parallel' || fail "Depends: $(dpkg-deb -f "$deb" Depends)"
[ "$(dpkg-deb -f "$deb" Suggests)" = slurm-client ] || fail "Suggests"
dpkg -i "$deb" >/dev/null || fail "dpkg -i"

# Two folders of big-endian frames: the installed farm against the installed tarvex.
mkdir -p "$T/farm/a" "$T/farm/b"
"$build/tools/tarvex-mkframes" -W 64 -H 32 -n 3 "$T/farm/a/f.%04d.dpx"
"$build/tools/tarvex-mkframes" -W 64 -H 32 -n 3 -o 4096 "$T/farm/b/g.%04d.dpx"
cp -a "$T/farm" "$T/ref"
[ "$(cd "$T/farm" && /usr/bin/tarvex-info -a a/f.0001.dpx)" = "-o 8192 -t 3 -w 685 -b 95" ] || fail "tarvex-info -a"
got=$(cd "$T/farm" && /usr/bin/tarvex-farm -j 2 --chunk 2 a b) || fail "tarvex-farm: $got"
want=$(cd "$T/ref" && /usr/bin/tarvex a/* b/* | tail -n 1)
[ "$(echo "$got" | tail -n 1)" = "$want" ] || fail "summary: $got"
diff -r "$T/ref" "$T/farm" || fail "frames differ"
/usr/bin/tarvex-info "$T"/farm/*/* | grep -vq 'little-endian 64x32 10-bit packing 1 descriptor 50 elements 1 offset 8192' && fail "not converted"
dpkg -r tarvex >/dev/null || fail "dpkg -r"
[ ! -e /usr/bin/tarvex-farm ] || fail "still installed after dpkg -r"
echo "package $(basename "$deb"): installed, used and removed"
