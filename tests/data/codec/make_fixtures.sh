#!/usr/bin/env bash
# Remakes the interop fixtures with ImageMagick 6 (Debian's imagemagick package). Each fixture F comes with
# F.pam, ImageMagick's own reading of F (turned upright by -auto-orient, 8 bits per sample), which the codec
# tests compare our decoding with. Run from this folder.
set -euo pipefail
IM=/usr/bin/convert
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# Sources: a plasma picture, a soft round alpha mask, and the same mask cut at half for formats with 1-bit alpha.
$IM -size 32x24 -seed 7 plasma:fractal -depth 8 "$tmp/rgb.ppm"
$IM -size 32x24 radial-gradient:white-black -depth 8 "$tmp/mask.pgm"
$IM "$tmp/rgb.ppm" "$tmp/mask.pgm" -alpha off -compose CopyOpacity -composite "$tmp/rgba.png"
$IM "$tmp/mask.pgm" -threshold 50% "$tmp/mask-bin.pgm"
$IM "$tmp/rgb.ppm" "$tmp/mask-bin.pgm" -alpha off -compose CopyOpacity -composite "$tmp/rgba-bin.png"

# PNG
$IM -size 32x24 -seed 7 plasma:fractal -depth 16 PNG48:png16-rgb.png
$IM -size 32x24 -seed 9 plasma:fractal \( -size 32x24 radial-gradient:white-black \) -alpha off \
    -compose CopyOpacity -composite -depth 16 PNG64:png16-rgba.png
$IM "$tmp/rgba-bin.png" -colors 64 PNG8:png-palette-trns.png
$IM "$tmp/rgba.png" -interlace PNG png-interlaced.png
$IM "$tmp/rgb.ppm" -colorspace Gray -depth 4 -define png:bit-depth=4 -define png:color-type=0 png-gray4.png
# JPEG
$IM "$tmp/rgb.ppm" -quality 90 -interlace JPEG jpeg-progressive.jpg
$IM "$tmp/rgb.ppm" -colorspace CMYK -quality 95 jpeg-cmyk.jpg
$IM "$tmp/rgb.ppm" -colorspace Gray -quality 90 jpeg-gray.jpg
# TIFF
$IM "$tmp/rgba.png" -compress LZW -define tiff:tile-geometry=16x16 tiff-tiled-lzw.tif
$IM png16-rgb.png -compress Zip tiff-deflate16.tif
$IM "$tmp/rgb.ppm" -colorspace Gray -compress RLE tiff-packbits-gray.tif
$IM "$tmp/rgb.ppm" -colors 16 -type Palette tiff-palette.tif
$IM "$tmp/rgb.ppm" -interlace Plane -compress LZW tiff-planar.tif
# TGA (ImageMagick writes rows top first; -orient makes the header say so, -flip gives a bottom-up file)
$IM "$tmp/rgba.png" -compress RLE tga-rle32.tga
$IM "$tmp/rgb.ppm" -orient TopLeft -compress None tga-top24.tga
$IM "$tmp/rgb.ppm" -flip -orient BottomLeft -colorspace Gray -compress RLE tga-gray8-rle.tga
$IM "$tmp/rgb.ppm" -flip -orient BottomLeft -colors 32 -type Palette tga-palette8.tga
# PCX
$IM "$tmp/rgb.ppm" pcx-rgb24.pcx
$IM "$tmp/rgb.ppm" -colors 200 -type Palette pcx-palette8.pcx
# GIF
$IM "$tmp/rgba-bin.png" gif-transparent.gif
$IM "$tmp/rgb.ppm" -interlace GIF gif-interlaced.gif
# BMP
$IM "$tmp/rgb.ppm" BMP3:bmp-rgb24.bmp
$IM "$tmp/rgb.ppm" -colors 200 -type Palette -compress None BMP3:bmp-palette8.bmp
$IM "$tmp/rgb.ppm" -colors 16 -type Palette BMP3:bmp-palette4.bmp
$IM "$tmp/rgb.ppm" -monochrome BMP3:bmp-mono1.bmp
$IM "$tmp/rgb.ppm" -colors 200 -type Palette -compress RLE BMP3:bmp-rle8.bmp
$IM "$tmp/rgba.png" BMP:bmp-argb32.bmp
$IM "$tmp/rgb.ppm" -define bmp:subtype=RGB565 BMP:bmp-rgb565.bmp
$IM "$tmp/rgb.ppm" BMP2:bmp-os2.bmp

# ImageMagick's reading of every fixture: 16 bits per sample where the file has them (16-bit samples or a TIFF
# colour map; the tests round them to 8), colour separations turned into RGB.
for f in *.png *.jpg *.tif *.tga *.pcx *.gif *.bmp; do
  case "$f" in
    gif-offset.gif|gif-anim.gif) continue ;;
    png16-*|tiff-deflate16.tif|tiff-palette.tif) $IM "$f" -auto-orient -depth 16 "$f.pam" ;;
    jpeg-cmyk.jpg) $IM "$f" -auto-orient -colorspace sRGB -depth 8 "$f.pam" ;;
    *) $IM "$f" -auto-orient -depth 8 "$f.pam" ;;
  esac
done

# GIF cases checked against explicit expectations (ImageMagick's PAM keeps only the frame, not the screen):
# a 10 x 8 red frame at (5, 6) on a 32 x 24 screen, and a two-frame animation whose first frame is blue.
$IM -size 10x8 xc:red -repage 32x24+5+6 gif-offset.gif
$IM -size 32x24 xc:blue xc:red -loop 0 gif-anim.gif
