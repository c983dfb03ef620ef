#!/bin/sh
# Writes the PSD fixtures of this folder with ImageMagick 6.9.11 and GIMP 2.10 (Debian 12 packages
# `imagemagick` and `gimp`). Run it in this folder; the tests read what it leaves here.
set -e
IM=/usr/bin/convert

# ImageMagick: sources of the layers, kept as the references the tests compare with.
$IM -size 40x30 gradient:red-blue -depth 8 im-layer-0.png
$IM -size 16x12 xc:'#20c040' \( -size 16x12 radial-gradient:white-black \) -alpha off \
    -compose CopyOpacity -composite -depth 8 im-layer-1.png
$IM -size 10x8 gradient:yellow-magenta -depth 8 im-layer-2.png
# Layered files: the first picture of the list is the merged image, the others are the layers. ImageMagick
# 6.9.11 writes each layer with the label of the picture before it, hence the labels one place early.
# -type TrueColorAlpha keeps every layer RGB with alpha (it would otherwise write a gray or indexed layer
# that it cannot read back itself).
for c in RLE None; do
    $IM \( im-layer-0.png -label Base \) \( im-layer-0.png -label 'Soft disc' \) \
        \( im-layer-1.png -label Gradient -repage +5+7 \) \( im-layer-2.png -label unused -repage +28+20 \) \
        -depth 8 -type TrueColorAlpha -compress $c "im-layers-$(echo $c | tr A-Z a-z).psd"
done
# Grayscale with alpha, PackBits.
$IM \( im-layer-0.png -label Base \) \( im-layer-0.png -label Disc \) \( im-layer-1.png -label unused -repage +5+7 \) \
    -colorspace Gray -depth 8 -type GrayscaleAlpha -compress RLE im-gray.psd
# One picture: ImageMagick writes one layer, its channels ZIP-compressed.
$IM im-layer-0.png -depth 8 -type TrueColor im-one-zip.psd

# GIMP: a layered file (PackBits and raw) with a Chinese layer name, opacity, modes, a hidden layer, and a
# one-layer transparent file; a PNG of each layer as GIMP holds it.
gimp -i -d -f -b "(begin $(cat make_gimp_fixtures.scm) (vm-make-fixtures \"$PWD\"))" -b '(gimp-quit 0)'

# Flat files (no layer section) and damaged ones are made by the tests themselves.
