# Shared by the interop scripts: how each peer tool is found, named, made to
# write the frames tarvex is checked with, and made to decode a frame losslessly.
# Peers are named by key: ffmpeg, imagemagick, graphicsmagick, openimageio.

PEERS=(ffmpeg imagemagick graphicsmagick openimageio)
declare -A PEER_NAME=([ffmpeg]=FFmpeg [imagemagick]=ImageMagick [graphicsmagick]=GraphicsMagick
  [openimageio]=OpenImageIO)
declare -A PEER_PACKAGE=([ffmpeg]=ffmpeg [imagemagick]=imagemagick [graphicsmagick]=graphicsmagick
  [openimageio]=openimageio-tools)
# The commands a peer's tool may be installed as. ImageMagick must say it is
# ImageMagick, because a plain "convert" on a machine may be something else.
declare -A PEER_COMMANDS=([ffmpeg]=ffmpeg [imagemagick]="magick convert-im6.q16 convert-im6" [graphicsmagick]=gm
  [openimageio]=oiiotool)
# Frame size, odd both ways on purpose: no row or image length falls on a tidy boundary.
FRAME_W=127
FRAME_H=33
# The frames of the rows that run tarvex without -a, by what the table calls them.
declare -A FRAME_TEXT=(
  [be10]="big-endian 10-bit RGB filled to 32-bit words (method A), ${FRAME_W}x${FRAME_H} test pattern"
  [host10]="host-order 10-bit RGB, method A" [bits8]="8-bit RGB" [bits12]="12-bit RGB" [bits16]="16-bit RGB"
  [packed10]="10-bit RGB packed into 32-bit words" [methodb10]="10-bit RGB filled by method B"
  [cineon]="Cineon 10-bit RGB")
# Every kind of DPX frame the -a rows ask each peer for, in both byte orders:
# key, bit size, packing (- where the peer chooses), descriptor, text.
KINDS=(
  "rgb1 1 0 50 1-bit RGB" "rgb8 8 - 50 8-bit RGB" "luma8 8 - 6 8-bit luma" "rgba8 8 - 51 8-bit RGBA"
  "rgb10 10 1 50 10-bit RGB, method A" "rgb10p 10 0 50 10-bit RGB, packed" "rgb10b 10 2 50 10-bit RGB, method B"
  "luma10 10 - 6 10-bit luma" "rgba10 10 - 51 10-bit RGBA"
  "rgb12 12 1 50 12-bit RGB, method A" "rgb12p 12 0 50 12-bit RGB, packed" "rgb12b 12 2 50 12-bit RGB, method B"
  "luma12 12 - 6 12-bit luma" "rgba12 12 - 51 12-bit RGBA"
  "rgb16 16 - 50 16-bit RGB" "luma16 16 - 6 16-bit luma" "rgba16 16 - 51 16-bit RGBA"
  "rgb32 32 - 50 32-bit float RGB")

# Prints the path of a peer's tool, or fails when it is not installed.
peer_tool() {
  local c path
  for c in ${PEER_COMMANDS[$1]}; do
    path=$(command -v "$c") || continue
    [ "$1" = imagemagick ] && ! "$path" -version 2>/dev/null | grep -q ImageMagick && continue
    echo "$path"
    return 0
  done
  return 1
}

# Prints the version a peer's tool reports about itself.
peer_version() {
  local tool
  tool=$(peer_tool "$1") || return 1
  case "$1" in
    ffmpeg) "$tool" -version | awk 'NR == 1 { print $3 }' ;;
    imagemagick) "$tool" -version | awk 'NR == 1 { print $3, $4 }' ;;
    graphicsmagick) "$tool" -version | awk 'NR == 1 { print $2, $4 }' ;;
    openimageio) "$tool" --version ;;
  esac
}

# Prints the first four bytes of a DPX file in this host's byte order: "XPDS" little-endian, "SDPX" big-endian.
host_dpx_magic() {
  [ "$(printf '\001\000\000\000' | od -An -tu4 | tr -d ' ')" = 1 ] && echo XPDS || echo SDPX
}

# Prints a kind's bit size, packing, descriptor and text.
kind_fields() {
  local entry
  for entry in "${KINDS[@]}"; do [ "${entry%% *}" = "$1" ] && echo "${entry#* }" && return 0; done
  return 1
}

# Tells whether a peer can be asked for a kind of frame at all; the byte
# order and layout it really writes are checked on the frame (ImageMagick 6
# writes big-endian whatever -endian says, FFmpeg 8-bit frames little-endian,
# OpenImageIO 12-bit frames packed, GraphicsMagick 16 bits for 32). FFmpeg
# takes the kind from a pixel format: 8-bit RGB, RGBA and luma, 10- and
# 12-bit RGB method A, 16-bit RGB, RGBA and luma. ImageMagick 6 has no
# packing option; OpenImageIO has no 1-bit and no Cineon writer.
peer_writes() {
  case "$1:$2" in
    ffmpeg:rgb1 | ffmpeg:rgb10[pb] | ffmpeg:rgb12[pb] | ffmpeg:luma1[02] | ffmpeg:rgba1[02] | ffmpeg:rgb32 | \
      ffmpeg:cineon | imagemagick:rgb1[02][pb] | openimageio:rgb1 | openimageio:cineon) return 1 ;;
  esac
}

# Writes frames with a peer, DIR/KIND-ORDER.dpx for each KIND:ORDER given
# (ORDER little, or anything else for big-endian), each kind in both orders
# from the same picture; fails when the peer's command fails. FFmpeg and
# OpenImageIO write them all in one command each; ImageMagick draws a seeded
# plasma, GraphicsMagick (whose plasma cannot be seeded) a swirled gradient.
peer_write() {
  local peer=$1 dir=$2 tool wanted kind order bits packing desc text args=() size="${FRAME_W}x${FRAME_H}"
  shift 2
  tool=$(peer_tool "$peer") || return 1
  for wanted; do
    kind=${wanted%:*} order=${wanted#*:}
    read -r bits packing desc text <<<"$(kind_fields "$kind")"
    [ "$order" = little ] || order=big
    local out="$dir/$kind-${wanted#*:}.dpx" e=${order:0:1}e endian=$([ "$order" = big ] && echo MSB || echo LSB)
    local format=DPX
    [ "$kind" = cineon ] && format=CIN bits=10
    case "$peer" in
      ffmpeg)
        local fmt=gbrp$bits$e
        case "$kind" in rgb8) fmt=rgb24 ;; luma8) fmt=gray ;; rgba8) fmt=rgba ;;
          rgb16) fmt=rgb48$e ;; luma16) fmt=gray16$e ;; rgba16) fmt=rgba64$e ;; esac
        args+=(-frames:v 1 -pix_fmt "$fmt" -c:v dpx -f image2 -update 1 "$out") ;;
      imagemagick)
        local im=(-seed 7 -size "$size" plasma:fractal)
        case "$desc" in
          6) im+=(-colorspace gray) ;;
          51) im+=(\( -seed 9 -size "$size" plasma:fractal -colorspace gray \) -alpha off -compose CopyOpacity -composite) ;;
        esac
        [ "$bits" = 32 ] && im+=(-define quantum:format=floating-point)
        "$tool" "${im[@]}" -depth "$bits" -endian "$endian" "$format:$out" || return 1 ;;
      graphicsmagick)
        local gm=(-size "$size" "gradient:#ff8000-#0040ff" -swirl 300)
        case "$desc" in 6) gm+=(-type Grayscale) ;; 51) gm+=(-matte -operator Opacity Assign 40%) ;; esac
        case "$packing" in 0) gm+=(-define dpx:packing-method=packed) ;; 1) gm+=(-define dpx:packing-method=a) ;;
          2) gm+=(-define dpx:packing-method=b) ;; esac
        "$tool" convert "${gm[@]}" -depth "$bits" -endian "$endian" "$format:$out" || return 1 ;;
      openimageio)
        args+=(--dup)
        case "$desc" in 6) args+=(--chsum:weight=.2126,.7152,.0722) ;;
          51) args+=(--pattern "fill:left=0.2:right=0.9" "$size" 1 --chappend) ;; esac
        local fill=("Filled, method A" Packed "Filled, method A" "Filled, method B")
        args+=(--attrib dpx:Packing "${fill[${packing/-/-1}+1]}")
        args+=(-d "$([ "$bits" = 32 ] && echo float || echo "uint$bits")" --attrib oiio:Endian "$order" -o "$out" --pop) ;;
    esac
  done
  case "$peer" in
    ffmpeg) "$tool" -nostdin -hide_banner -loglevel error -y -f lavfi -i "testsrc=size=$size:rate=1" "${args[@]}" ;;
    openimageio)
      "$tool" --pattern "fill:topleft=0,0,1:topright=1,0,0:bottomleft=0,1,0:bottomright=1,1,1" "$size" 3 \
        --pattern "checker:width=8:height=8:color1=1,1,1:color2=0.5,0.45,0.4" "$size" 3 --mul "${args[@]}" ;;
  esac
}

# Components per pixel of each frame peer_decode has seen, by path.
declare -A FRAME_CHANNELS

# Decodes frames with a peer into FILE.PEER, one line of components per
# pixel. FFmpeg and ImageMagick write raw big-endian 16-bit samples;
# GraphicsMagick writes a 16-bit binary PGM, PPM or PAM (by the descriptor),
# whose samples are big-endian by definition, since its raw dump follows the
# byte order of the file it read. OpenImageIO prints its pixel values
# instead: its PPM writer leaves some bytes differing from run to run. Each
# tool takes a good part of a second to start, so OpenImageIO reads all the
# frames in one call, GraphicsMagick runs one batch, FFmpeg reads them as
# one numbered sequence (a frame it cannot decode leaves a gap, frames keep
# their numbers, and every frame comes out as 16-bit RGBA), and ImageMagick
# takes six frames a call, one by one only when a call fails (a frame it
# cannot read fails the whole call).
peer_decode() {
  local reader=$1 tool f i channels pnm=(x pgm x ppm pam) raw=(x gray x rgb rgba)
  shift
  tool=$(peer_tool "$reader") || return 1
  if [ "$reader" = openimageio ]; then
    for f; do : >"$f.$reader"; done
    "$tool" --info --dumpdata "$@" 2>/dev/null | awk -v suffix=".$reader" '
      /^[^ ]/ { if (out != "") close(out); out = $0; sub(/ *: +[0-9]+ x +[0-9]+,.*$/, suffix, out); next }
      sub(/^ *Pixel \([0-9]*, [0-9]*\): /, "") { print >out }'
    return
  fi
  declare -A type
  for f; do
    [ -n "${FRAME_CHANNELS[$f]:-}" ] && type[$f]=${FRAME_CHANNELS[$f]} && continue
    case "$(od -An -tu1 -j 800 -N 1 "$f")" in *" 6") channels=1 ;; *" 50") channels=3 ;; *) channels=4 ;; esac
    type[$f]=$channels FRAME_CHANNELS[$f]=$channels
  done
  rm -f "${@/%/.pnm}" "${@/%/.raw}"
  if [ "$reader" = ffmpeg ]; then
    local frames="$1.frames" n=0
    rm -rf "$frames" && mkdir "$frames" || return 1
    for f; do
      if [[ $f = /* ]]; then ln -s "$f" "$frames/$((++n)).dpx"; else ln -s "$PWD/$f" "$frames/$((++n)).dpx"; fi
    done
    "$tool" -nostdin -hide_banner -loglevel error -y -f image2 -start_number 1 -i "$frames/%d.dpx" \
      -fps_mode passthrough -pix_fmt rgba64be -c:v rawvideo -f image2 -frame_pts 1 "$frames/%d.raw" >/dev/null 2>&1
    n=0
    for f; do
      od -An -v -tu2 --endian=big -w8 -N $((FRAME_W * FRAME_H * 8)) "$frames/$n.raw" 2>/dev/null |
        awk -v c="${type[$f]}" '{ print c == 1 ? $1 : c == 3 ? $1 " " $2 " " $3 : $0 }' >"$f.$reader"
      n=$((n + 1))
    done
    rm -rf "$frames"
    return
  fi
  # ImageMagick writes each frame's samples as it goes, the last one as its output.
  run_decode() {
    local args=() g
    for g; do args+=("$g" -depth 16 -endian MSB -write "${raw[${type[$g]}]}:$g.raw" +delete); done
    "$tool" "${args[@]:0:${#args[@]}-3}" "${args[-2]}" >/dev/null 2>&1
  }
  if [ "$reader" = graphicsmagick ]; then
    for f; do echo "convert \"$f\" -depth 16 \"${pnm[${type[$f]}]}:$f.pnm\""; done | "$tool" batch - >/dev/null 2>&1
  else
    for ((i = 1; i <= $#; i += 6)); do
      run_decode "${@:i:6}" || for f in "${@:i:6}"; do run_decode "$f"; done
    done
  fi
  for f; do
    if [ "$reader" = graphicsmagick ]; then
      tail -c "$((FRAME_W * FRAME_H * type[$f] * 2))" "$f.pnm" | od -An -v -tu2 --endian=big -w$((type[$f] * 2))
    else
      od -An -v -tu2 --endian=big -w$((type[$f] * 2)) -N $((FRAME_W * FRAME_H * type[$f] * 2)) "$f.raw"
    fi 2>/dev/null >"$f.$reader"
  done
  rm -f "${@/%/.pnm}" "${@/%/.raw}"
}
