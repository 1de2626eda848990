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
# What each kind of frame the suite asks the peers for is, for the table.
declare -A FRAME_TEXT=(
  [be10]="big-endian 10-bit RGB filled to 32-bit words (method A), ${FRAME_W}x${FRAME_H} test pattern"
  [host10]="host-order 10-bit RGB, method A" [bits8]="8-bit RGB" [bits12]="12-bit RGB" [bits16]="16-bit RGB"
  [packed10]="10-bit RGB packed into 32-bit words" [methodb10]="10-bit RGB filled by method B"
  [cineon]="Cineon 10-bit RGB")

peer_name() { echo "${PEER_NAME[$1]}"; }
peer_package() { echo "${PEER_PACKAGE[$1]}"; }
frame_kind_text() { echo "${FRAME_TEXT[$1]}"; }

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

# Writes one frame of a kind with a peer: 0 when written, 2 when the peer
# cannot write that kind, anything else when it failed. FFmpeg takes the
# depth and byte order from a pixel format and writes no packed, method B
# or Cineon data; ImageMagick 6 writes DPX big-endian and method A whatever
# it is told; GraphicsMagick and OpenImageIO take the order and the fill as
# told, and OpenImageIO has no Cineon writer.
peer_write() {
  local peer=$1 kind=$2 out=$3 tool depth=10 little=
  tool=$(peer_tool "$peer") || return 1
  [ "$(host_dpx_magic)" = XPDS ] && little=1
  case "$kind" in bits8) depth=8 ;; bits12) depth=12 ;; bits16) depth=16 ;; esac
  case "$peer:$kind" in
    ffmpeg:packed10 | ffmpeg:methodb10 | ffmpeg:cineon | imagemagick:host10 | imagemagick:packed10 | \
      imagemagick:methodb10 | openimageio:cineon) return 2 ;;
  esac
  case "$peer" in
    ffmpeg)
      local fmt=gbrp${depth}be
      case "$kind" in host10) [ -n "$little" ] && fmt=gbrp10le ;; bits8) fmt=rgb24 ;; bits16) fmt=rgb48be ;; esac
      "$tool" -nostdin -hide_banner -loglevel error -y -f lavfi -i "testsrc=size=${FRAME_W}x${FRAME_H}:rate=1" \
        -frames:v 1 -pix_fmt "$fmt" -c:v dpx -f image2 -update 1 "$out" ;;
    imagemagick)
      "$tool" -seed 7 -size "${FRAME_W}x${FRAME_H}" plasma:fractal -depth "$depth" -endian MSB \
        "$([ "$kind" = cineon ] && echo CIN || echo DPX):$out" ;;
    graphicsmagick)
      local packing=a
      case "$kind" in packed10) packing=packed ;; methodb10) packing=b ;; esac
      "$tool" convert -size "${FRAME_W}x${FRAME_H}" plasma:fractal -depth "$depth" \
        -endian "$([ "$kind" = host10 ] && [ -n "$little" ] && echo LSB || echo MSB)" \
        -define "dpx:packing-method=$packing" "$([ "$kind" = cineon ] && echo CIN || echo DPX):$out" ;;
    openimageio)
      local packing="Filled, method A"
      case "$kind" in packed10) packing=Packed ;; methodb10) packing="Filled, method B" ;; esac
      "$tool" \
        --pattern "fill:topleft=0,0,1:topright=1,0,0:bottomleft=0,1,0:bottomright=1,1,1" "${FRAME_W}x${FRAME_H}" 3 \
        --pattern "checker:width=8:height=8:color1=1,1,1:color2=0.5,0.45,0.4" "${FRAME_W}x${FRAME_H}" 3 \
        --mul -d "uint$depth" --attrib dpx:Packing "$packing" \
        --attrib oiio:Endian "$([ "$kind" = host10 ] && [ -n "$little" ] && echo little || echo big)" -o "$out" ;;
  esac
}

# Decodes a frame with a peer and prints one "r g b" line of 16-bit
# components per pixel. FFmpeg, ImageMagick and GraphicsMagick go through a
# 16-bit binary PPM, whose samples are big-endian by definition (a raw RGB
# dump from GraphicsMagick follows the byte order of the file it read).
# OpenImageIO prints its pixel values instead: its PPM writer leaves some
# bytes differing from run to run.
peer_decode() {
  local tool
  tool=$(peer_tool "$1") || return 1
  if [ "$1" = openimageio ]; then
    "$tool" --info --dumpdata "$2" | sed -n 's/^ *Pixel ([0-9]*, [0-9]*): \([0-9]* [0-9]* [0-9]*\) (.*$/\1/p'
    return
  fi
  case "$1" in
    ffmpeg) "$tool" -nostdin -hide_banner -loglevel error -i "$2" -f image2pipe -c:v ppm -pix_fmt rgb48be - ;;
    imagemagick) "$tool" "$2" -depth 16 ppm:- ;;
    graphicsmagick) "$tool" convert "$2" -depth 16 ppm:- ;;
  esac | tail -c "$((FRAME_W * FRAME_H * 6))" | od -An -v -tu2 --endian=big -w6 | awk '{ print $1, $2, $3 }'
}
