#!/bin/sh
# tarvex-farm against one plain tarvex run. Usage: farm-check.sh BUILD ENGINE...
# (ENGINE "-j 2", or "--slurm", which brings up tools/farm-cluster for the run).
# Each row runs the farm over one copy of the frames and tarvex over another:
# trees, "Failed:" lines, summary and report must match, exit 1 iff a frame failed.
set -u
build=$1; shift; engine=$*; tools=$(dirname "$0")/../../tools
"$tools/install-deps" parallel >/dev/null || exit 1
T=$(mktemp -d); BUILD=$build; TMPDIR=$T/tmp; export T BUILD TMPDIR LC_ALL=C
fail() { echo "FAIL: $*"; status=1; }
status=0; cluster=
trap 'rm -rf "$T"; [ -z "$cluster" ] || "$tools/farm-cluster" stop "$cluster"' EXIT
if [ "$engine" = --slurm ]; then
  [ "$(id -u)" = 0 ] || { echo "the Slurm test needs root"; exit 77; }
  cluster=$("$tools/farm-cluster" start) || exit 1
  export SLURM_CONF=$cluster/slurm.conf
fi

# a: big-endian, its first frame with what only a frame can carry: its image
# at 1664 (as FFmpeg writes it) and an unset low level (-1); b: little-endian
# at 2048, .DPX; c: refused frames (16-bit s.dpx converted with -a).
f=$T/frames; mk=$build/tools/tarvex-mkframes
mkdir -p "$f/a" "$f/b" "$f/c" "$f/out" "$TMPDIR"
$mk -W 64 -H 32 -o 2048 "$T/f.dpx" && $mk -W 64 -H 32 -s 2 -n 11 "$f/a/f.%04d.dpx"
{ head -c 1664 "$T/f.dpx"; tail -c +2049 "$T/f.dpx"; } > "$f/a/f.0001.dpx"
put() { printf "$2" | dd of="$f/a/f.0001.dpx" bs=1 seek="$1" conv=notrunc 2>/dev/null; }
put 4 '\0\0\6\200' && put 808 '\0\0\6\200' && put 784 '\377\377\377\377'
$mk -W 64 -H 32 -n 4 -e little -o 2048 "$f/b/g.%04d.DPX" && $mk -W 64 -H 32 -b 8 "$f/c/e.dpx"
$mk -W 64 -H 32 -k cineon "$f/c/k.dpx" && echo junk > "$f/c/bad.dpx" && mkdir "$f/b/sub.dpx"
$mk -W 64 -H 32 -b 16 -e little "$f/c/s.dpx"
paths="c/bad.dpx c/e.dpx c/k.dpx missing.dpx"
printf '%s\n' a b $paths > "$T/farm.list"
(cd "$f" && printf '%s\n' a/*.dpx b/*.DPX $paths) > "$T/ref.list"
(cd "$f" && printf '%s\n' b/*.DPX) > "$T/clean.list"
(cd "$f" && printf '%s\n' c/s.dpx a/*.dpx) > "$T/deep.list"

# A tarvex beside the farm that dies by SIGKILL: KILL=once the first shard's
# at its start, the first time; KILL=after the shard holding c/k.dpx's once
# it has run (so its Cineon file is renamed); KILL=lost the shard holding
# f.0007's at its start, every time.
mkdir "$T/bin" && ln -s "$build/tarvex-farm" "$build/tarvex-info" "$T/bin/"
cat > "$T/bin/tarvex" <<'EOF'
#!/bin/sh
for list; do :; done
case ${KILL:-} in
  once) mkdir "$T/killed" 2>/dev/null && { "$BUILD/tarvex" "$@" & kill -9 $!; wait $!; exit; } ;;
  after) grep -q k.dpx "$list" && mkdir "$T/killed" 2>/dev/null && { "$BUILD/tarvex" "$@"; kill -9 $$; } ;;
  lost) grep -q f.0007 "$list" && { "$BUILD/tarvex" "$@" & kill -9 $!; wait $!; exit; } ;;
esac
exec "$BUILD/tarvex" "$@"
EOF
chmod +x "$T/bin/tarvex"
farm() { (cd "$T/farm" && KILL=$kill "$T/bin/tarvex-farm" $engine --chunk 5 "$@") > "$T/farm.out"; }
fresh() { rm -rf "$T/farm" "$T/ref" "$T/killed" && cp -a "$f" "$T/farm" && cp -a "$f" "$T/ref"; }

# KILL  the farm's frames: all as PATHs or a LIST, or b alone  OPTIONS (for the farm and tarvex)
while read -r kill how opts; do
  fresh; list=$T/ref.list
  case $how in
    paths) farm $opts a b $paths ;;
    list) farm $opts -l "$T/farm.list" ;;
    clean) list=$T/clean.list; farm $opts b ;;
    deep) list=$T/deep.list; farm $opts c/s.dpx a ;;
  esac; got=$?
  (cd "$T/ref" && "$build/tarvex" $opts -l "$list") |
    sed '1d; /^Renaming\.\.\./d; s/^.\[1;31mError: .*! (\(.*\)).\[0m$/Failed: \1/' | grep -v '^$' > "$T/ref.out"
  grep -q 'only .* failed' "$T/ref.out"; want=$((1 - $?))
  [ "$got" = "$want" ] || fail "$kill $how $opts: exit $got, want $want"
  grep -v '^$' "$T/farm.out" | diff "$T/ref.out" - || fail "$kill $how $opts: output differs"
  diff -r "$T/ref" "$T/farm" || fail "$kill $how $opts: frames differ"
  [ "$kill" = none ] || [ -d "$T/killed" ] || fail "$kill $how $opts: no shard was killed"
done <<EOF
once  paths
after list  -c out
none  paths -b 64
none  list  -o 2048 -t 2 -w 700 -b -1
once  clean -t 2
none  paths -a -e big -c out
once  deep  -a -c out
EOF

# A shard that dies twice: its frames stay as they were and count as failed.
fresh; kill=lost farm a; got=$?
lost=$(for n in 06 07 08 09 10; do cmp -s "$f/a/f.00$n.dpx" "$T/farm/a/f.00$n.dpx" && echo "Failed: a/f.00$n.dpx"; done)
[ "$got" = 1 ] && [ "$(tail -n 1 "$T/farm.out")" = "Finished 12 of 12, only 5 failed to convert." ] &&
  [ "$(grep '^Failed' "$T/farm.out")" = "$lost" ] && [ "$(echo "$lost" | wc -l)" = 5 ] || fail "lost shard: $(cat "$T/farm.out")"

# Usage and engine errors exit 2 and touch nothing.
fresh; kill=none
while read -r args; do
  farm $args a >/dev/null 2>&1; got=$?
  [ "$got" = 2 ] || fail "$args: exit $got, want 2"
done <<EOF
-q
-e sideways
-o 100
--chunk 0
-j 0
--slurm --partition nosuchpartition
EOF
(cd "$T/farm" && env PATH=/nonexistent "$T/bin/tarvex-farm" $engine) >/dev/null 2>&1; [ $? = 2 ] || fail "no path given"
(cd "$T/farm" && env PATH=/nonexistent "$T/bin/tarvex-farm" $engine a) >/dev/null 2>&1; [ $? = 2 ] || fail "no engine"
diff -r "$f" "$T/farm" || fail "a refused run changed frames"
[ -z "$(ls -A "$TMPDIR")" ] || fail "left in TMPDIR: $(ls -A "$TMPDIR")"
exit $status
