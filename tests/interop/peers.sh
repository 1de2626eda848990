# Shared by the interop scripts: how each peer tool is found, named, made to
# write the frames tarvex is checked with, and made to decode a frame losslessly.
# Peers are named by key: ffmpeg, imagemagick, graphicsmagick, openimageio.

# Every peer key, in the order the table lists them.
PEERS=(ffmpeg imagemagick graphicsmagick openimageio)

# Size of every frame the peers write: odd in both directions on purpose, so
# that no row or image length happens to fall on a tidy boundary.
FRAME_W=127
FRAME_H=33

# Prints the display name of a peer.
peer_name() {
  case "$1" in
    ffmpeg) echo FFmpeg ;;
    imagemagick) echo ImageMagick ;;
    graphicsmagick) echo GraphicsMagick ;;
    openimageio) echo OpenImageIO ;;
  esac
}

# Prints the Debian package that provides a peer's command-line tool.
peer_package() {
  case "$1" in
    ffmpeg) echo ffmpeg ;;
    imagemagick) echo imagemagick ;;
    graphicsmagick) echo graphicsmagick ;;
    openimageio) echo openimageio-tools ;;
  esac
}

# Prints the path of a peer's tool, or fails when it is not installed.
# ImageMagick is looked up under its versioned names and must say it is
# ImageMagick, because a plain "convert" on a machine may be something else.
peer_tool() {
  local candidates=() c path
  case "$1" in
    ffmpeg) candidates=(ffmpeg) ;;
    imagemagick) candidates=(magick convert-im6.q16 convert-im6) ;;
    graphicsmagick) candidates=(gm) ;;
    openimageio) candidates=(oiiotool) ;;
  esac
  for c in "${candidates[@]}"; do
    path=$(command -v "$c") || continue
    if [ "$1" = imagemagick ] && ! "$path" -version 2>/dev/null | grep -q 'ImageMagick'; then
      continue
    fi
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

# Prints "XPDS" on a little-endian host and "SDPX" on a big-endian one: the
# first four bytes of a DPX file stored in this host's byte order.
host_dpx_magic() {
  if [ "$(printf '\001\000\000\000' | od -An -tu4 | tr -d ' ')" = 1 ]; then
    echo XPDS
  else
    echo SDPX
  fi
}

# Every kind of frame the suite asks the peers for.
FRAME_KINDS=(be10 host10 bits8 bits12 bits16 packed10 methodb10 cineon)

# Prints what a frame kind is, for the table.
frame_kind_text() {
  case "$1" in
    be10) echo "big-endian 10-bit RGB filled to 32-bit words (method A), ${FRAME_W}x${FRAME_H} test pattern" ;;
    host10) echo "host-order 10-bit RGB, method A" ;;
    bits8) echo "8-bit RGB" ;;
    bits12) echo "12-bit RGB" ;;
    bits16) echo "16-bit RGB" ;;
    packed10) echo "10-bit RGB packed into 32-bit words" ;;
    methodb10) echo "10-bit RGB filled by method B" ;;
    cineon) echo "Cineon 10-bit RGB" ;;
  esac
}

# Writes one frame of the given kind with a peer into the given path.
# Returns 0 when written, 2 when the peer has no way to write that kind,
# and anything else when the peer failed.
peer_write() {
  local peer=$1 kind=$2 out=$3 tool
  tool=$(peer_tool "$peer") || return 1
  case "$peer" in
    ffmpeg) ffmpeg_write "$tool" "$kind" "$out" ;;
    imagemagick) imagemagick_write "$tool" "$kind" "$out" ;;
    graphicsmagick) graphicsmagick_write "$tool" "$kind" "$out" ;;
    openimageio) openimageio_write "$tool" "$kind" "$out" ;;
  esac
}

# FFmpeg's DPX encoder picks the byte order and depth from the pixel format;
# it writes neither packed nor method B data nor Cineon.
ffmpeg_write() {
  local tool=$1 kind=$2 out=$3 fmt
  case "$kind" in
    be10) fmt=gbrp10be ;;
    host10) [ "$(host_dpx_magic)" = XPDS ] && fmt=gbrp10le || fmt=gbrp10be ;;
    bits8) fmt=rgb24 ;;
    bits12) fmt=gbrp12be ;;
    bits16) fmt=rgb48be ;;
    *) return 2 ;;
  esac
  "$tool" -nostdin -hide_banner -loglevel error -y \
    -f lavfi -i "testsrc=size=${FRAME_W}x${FRAME_H}:rate=1" -frames:v 1 \
    -pix_fmt "$fmt" -c:v dpx -f image2 -update 1 "$out"
}

# ImageMagick 6 writes DPX big-endian whatever -endian says, and always
# fills 10-bit data by method A.
imagemagick_write() {
  local tool=$1 kind=$2 out=$3 depth format=DPX
  case "$kind" in
    be10) depth=10 ;;
    bits8) depth=8 ;;
    bits12) depth=12 ;;
    bits16) depth=16 ;;
    cineon) depth=10 format=CIN ;;
    *) return 2 ;;
  esac
  "$tool" -seed 7 -size "${FRAME_W}x${FRAME_H}" plasma:fractal \
    -depth "$depth" -endian MSB "$format:$out"
}

# GraphicsMagick chooses the byte order with -endian and the fill with
# dpx:packing-method.
graphicsmagick_write() {
  local tool=$1 kind=$2 out=$3 depth=10 endian=MSB packing=a format=DPX
  case "$kind" in
    be10) ;;
    host10) [ "$(host_dpx_magic)" = XPDS ] && endian=LSB ;;
    bits8) depth=8 ;;
    bits12) depth=12 ;;
    bits16) depth=16 ;;
    packed10) packing=packed ;;
    methodb10) packing=b ;;
    cineon) format=CIN ;;
    *) return 2 ;;
  esac
  "$tool" convert -size "${FRAME_W}x${FRAME_H}" plasma:fractal \
    -depth "$depth" -endian "$endian" -define "dpx:packing-method=$packing" \
    "$format:$out"
}

# OpenImageIO takes the byte order from oiio:Endian and the fill from
# dpx:Packing; it has no Cineon writer.
openimageio_write() {
  local tool=$1 kind=$2 out=$3 type=uint10 endian=big packing="Filled, method A"
  case "$kind" in
    be10) ;;
    host10) [ "$(host_dpx_magic)" = XPDS ] && endian=little ;;
    bits8) type=uint8 ;;
    bits12) type=uint12 ;;
    bits16) type=uint16 ;;
    packed10) packing=Packed ;;
    methodb10) packing="Filled, method B" ;;
    *) return 2 ;;
  esac
  "$tool" \
    --pattern "fill:topleft=0,0,1:topright=1,0,0:bottomleft=0,1,0:bottomright=1,1,1" "${FRAME_W}x${FRAME_H}" 3 \
    --pattern "checker:width=8:height=8:color1=1,1,1:color2=0.5,0.45,0.4" "${FRAME_W}x${FRAME_H}" 3 \
    --mul -d "$type" --attrib oiio:Endian "$endian" --attrib dpx:Packing "$packing" \
    -o "$out"
}

# Decodes a frame with a peer and prints one line per pixel with its three
# 16-bit components. FFmpeg, ImageMagick and GraphicsMagick go through a
# 16-bit binary PPM, whose samples are big-endian by definition (a raw RGB
# dump from GraphicsMagick follows the byte order of the file it read).
# OpenImageIO prints its pixel values instead, because its PPM writer leaves
# some bytes differing from run to run.
peer_decode() {
  local peer=$1 file=$2 tool
  tool=$(peer_tool "$peer") || return 1
  case "$peer" in
    ffmpeg)
      "$tool" -nostdin -hide_banner -loglevel error -i "$file" \
        -f image2pipe -c:v ppm -pix_fmt rgb48be - | ppm16_pixels ;;
    imagemagick)
      "$tool" "$file" -depth 16 ppm:- | ppm16_pixels ;;
    graphicsmagick)
      "$tool" convert "$file" -depth 16 ppm:- | ppm16_pixels ;;
    openimageio)
      "$tool" --info --dumpdata "$file" |
        sed -n 's/^ *Pixel ([0-9]*, [0-9]*): \([0-9]* [0-9]* [0-9]*\) (.*$/\1/p' ;;
  esac
}

# Turns a 16-bit binary PPM of the suite's frame size on standard input into
# one "r g b" line per pixel.
ppm16_pixels() {
  tail -c "$((FRAME_W * FRAME_H * 6))" | od -An -v -tu2 --endian=big -w6 |
    awk '{ print $1, $2, $3 }'
}
