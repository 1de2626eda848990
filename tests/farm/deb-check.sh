#!/bin/sh
# The Debian package: built from a copy of the tracked sources with warnings
# as errors, lintian-clean, installed, its commands answering -h, converting
# frames and completing words, then removed. Usage: deb-check.sh BUILD
set -u
build=$1; src=$(cd "$(dirname "$0")/../.." && pwd)
[ "$(id -u)" = 0 ] || { echo "installing a package needs root"; exit 77; }
"$src/tools/install-deps" parallel python3 build-essential dpkg-dev debhelper lintian >/dev/null || exit 1
dpkg-query -W -f '${Status}' tarvex 2>/dev/null | grep -q 'ok installed' && { echo "a tarvex package is installed already"; exit 77; }
T=$(mktemp -d); trap 'dpkg -r tarvex >/dev/null 2>&1; rm -rf "$T"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

# dpkg-buildpackage writes its results beside the source tree: the tree is a copy in $T.
mkdir "$T/tarvex" && git -C "$src" ls-files -z | (cd "$src" && tar -cf - --null -T -) | tar -C "$T/tarvex" -xf -
(cd "$T/tarvex" && DEB_BUILD_OPTIONS=parallel=2 DEB_CXXFLAGS_APPEND=-Werror dpkg-buildpackage -us -uc -b) \
  >"$T/build.log" 2>&1 || { tail -n 40 "$T/build.log"; fail "dpkg-buildpackage"; }
lint=$(lintian --fail-on error,warning "$T"/tarvex_*.changes 2>&1) || fail "lintian: $lint"
deb=$(ls "$T"/tarvex_*.deb) && dpkg-deb -c "$deb" > "$T/files"
for c in tarvex tarvex-farm tarvex-info; do
  for f in bin/$c share/man/man1/$c.1.gz share/bash-completion/completions/$c; do
    grep -q " \./usr/$f$" "$T/files" || fail "$f not in the package"
  done
done
dpkg-deb -f "$deb" Depends | grep -q '^libc6.*, python3, parallel$' || fail "Depends: $(dpkg-deb -f "$deb" Depends)"
[ "$(dpkg-deb -f "$deb" Suggests)" = slurm-client ] || fail "Suggests"
dpkg -i "$deb" >/dev/null || fail "dpkg -i"

# Two folders of big-endian frames: the installed farm against the installed tarvex.
mkdir -p "$T/farm/a" "$T/farm/b"
"$build/tools/tarvex-mkframes" -W 64 -H 32 -n 3 "$T/farm/a/f.%04d.dpx"
"$build/tools/tarvex-mkframes" -W 64 -H 32 -n 3 -o 4096 "$T/farm/b/g.%04d.dpx"
cp -a "$T/farm" "$T/ref"
[ "$(cd "$T/farm" && /usr/bin/tarvex-info -a a/f.0001.dpx)" = "-o 8192 -t 3 -w 685 -b 95" ] || fail "tarvex-info -a"
for c in tarvex-info tarvex-farm; do for h in -h --help; do /usr/bin/$c $h | grep -q "^usage: $c " || fail "$c $h"; done; done
got=$(cd "$T/farm" && /usr/bin/tarvex-farm -j 2 --chunk 2 a b) || fail "tarvex-farm: $got"
want=$(cd "$T/ref" && /usr/bin/tarvex a/* b/* | tail -n 1)
[ "$(echo "$got" | tail -n 1)" = "$want" ] || fail "summary: $got"
diff -r "$T/ref" "$T/farm" || fail "frames differ"
/usr/bin/tarvex-info "$T"/farm/*/* | grep -vq 'little-endian 64x32 10-bit packing 1 descriptor 50 elements 1 offset 8192' && fail "not converted"

# The installed completion in a bash that is not interactive: COMP_* set as
# bash sets them, then the function that `complete` names for the command;
# the words it offers, sorted.
words() { LC_ALL=C bash -c '. "/usr/share/bash-completion/completions/$1" && f=$(complete -p "$1") && f=${f#*-F }
  COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
  "${f%% *}" "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"; printf "%s\n" "${COMPREPLY[@]}" | sort | paste -sd " "' words "$@"; }
cd "$T/farm" && mkdir a/sub && touch a/notes.txt a/F.0009.DPX
[ "$(words tarvex-farm --sl)" = --slurm ] || fail "completion of --sl: $(words tarvex-farm --sl)"
[ "$(words tarvex -e l)" = little ] || fail "completion of -e l: $(words tarvex -e l)"
[ "$(words tarvex-info -a a/)" = "a/F.0009.DPX a/f.0001.dpx a/f.0002.dpx a/f.0003.dpx a/sub" ] ||
  fail "completion of a/: $(words tarvex-info -a a/)"
dpkg -r tarvex >/dev/null || fail "dpkg -r"
[ ! -e /usr/bin/tarvex-farm ] && [ ! -e /usr/share/bash-completion/completions/tarvex ] || fail "still installed after dpkg -r"
echo "package $(basename "$deb"): built, lintian clean, installed, used, completed and removed"
