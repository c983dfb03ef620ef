#!/usr/bin/env python3
"""Builds the refined-matte evaluation set: subjects with soft rims and thin strands over real backgrounds.

Each picture is a crop of one sample photograph (the subject) cut out by the same kind of known synthetic alpha
as the backdrop-keying set (make_key_set.py: a soft-edged body and hair-like strands), put over a crop of another
photograph (the background): a natural scene, a busy texture, or a background whose colours look like the
subject's. Unlike the keying set there is no single backdrop colour: the matte must come from a trimap.

Needs python3 (standard library only) and ImageMagick's `convert`. Output, beside this script:
  refine_<name>.png             the composite (lossless, so that the figures measure the solver alone)
  refine_<name>_alpha.png       the true alpha, 8-bit gray
  refine_<name>_t<R>.png        trimaps: 0 background, 255 foreground, 128 unknown; the unknown band reaches R
                                pixels beyond the last trace of the subject and R pixels into the solid body
  refine_set.txt                one line per picture: name subject crop-x crop-y background crop-x crop-y
The true foreground colour is the subject photo's crop itself. Running it again gives byte-identical files.
"""
import os
import random
import subprocess
import sys

import make_key_set as ks

HERE = os.path.dirname(os.path.abspath(__file__))
W, H = ks.W, ks.H
RADII = (3, 10, 24)

# name, subject photo and crop, background photo and crop, background blur radius, seed
SET = [
    ("natural", "astronaut.png", 136, 0, "chelsea.png", 180, 90, 2, 11),
    ("textured", "chelsea.png", 110, 40, "coffee.png", 20, 200, 0, 12),
    ("lookalike", "coffee.png", 150, 10, "coffee.png", 330, 190, 0, 13),
    ("fur", "chelsea.png", 180, 80, "astronaut.png", 250, 300, 1, 14),
]


def crop(pixels, pw, ox, oy):
    out = bytearray(W * H * 3)
    for y in range(H):
        row = ((oy + y) * pw + ox) * 3
        out[y * W * 3:(y + 1) * W * 3] = pixels[row:row + W * 3]
    return out


def blur_rgb(rgb, radius):
    if radius == 0:
        return [float(v) for v in rgb]
    planes = []
    for c in range(3):
        plane = [float(rgb[i * 3 + c]) for i in range(W * H)]
        planes.append(ks.box_blur(ks.box_blur(plane, radius), radius))
    return [planes[i % 3][i // 3] for i in range(W * H * 3)]


def save_gray(values, path):
    subprocess.run(["convert", "-size", "%dx%d" % (W, H), "-depth", "8", "gray:-", "-strip",
                    "-define", "png:exclude-chunks=date,time", path], input=bytes(values), check=True)


def morphology(mask, op, radius):
    data = subprocess.run(["convert", "-size", "%dx%d" % (W, H), "-depth", "8", "gray:-", "-morphology", op,
                           "Disk:%d" % radius, "-depth", "8", "gray:-"], input=bytes(mask), check=True,
                          capture_output=True).stdout
    return list(data)


def build(name, fg_photo, fx, fy, bg_photo, bx, by, bg_blur, seed):
    rng = random.Random(seed)
    fw, fh, fpix = ks.read_ppm(os.path.join(ks.SAMPLES, fg_photo))
    bw, bh, bpix = ks.read_ppm(os.path.join(ks.SAMPLES, bg_photo))
    assert fx + W <= fw and fy + H <= fh and bx + W <= bw and by + H <= bh
    ks_rng = random.Random(seed)
    alpha = ks.make_alpha(ks_rng)
    fg = crop(fpix, fw, fx, fy)
    bg = blur_rgb(crop(bpix, bw, bx, by), bg_blur)

    out = bytearray(W * H * 3)
    for i in range(W * H):
        a = alpha[i] / 255.0
        for c in range(3):
            v = fg[i * 3 + c] * a + bg[i * 3 + c] * (1.0 - a) + rng.gauss(0.0, 1.2)
            out[i * 3 + c] = max(0, min(255, int(v + 0.5)))
    header = b"P6\n%d %d\n255\n" % (W, H)
    subprocess.run(["convert", "ppm:-", "-strip", "-define", "png:exclude-chunks=date,time",
                    os.path.join(HERE, "refine_%s.png" % name)], input=header + bytes(out), check=True)
    save_gray(alpha, os.path.join(HERE, "refine_%s_alpha.png" % name))

    touched = [255 if a > 0 else 0 for a in alpha]
    solid = [255 if a == 255 else 0 for a in alpha]
    for r in RADII:
        outer = morphology(touched, "Dilate", r)
        inner = morphology(solid, "Erode", r)
        tri = [255 if inner[i] == 255 else (128 if outer[i] == 255 else 0) for i in range(W * H)]
        save_gray(tri, os.path.join(HERE, "refine_%s_t%d.png" % (name, r)))
    return "%s %s %d %d %s %d %d" % (name, fg_photo, fx, fy, bg_photo, bx, by)


def main():
    lines = [build(*entry) for entry in SET]
    with open(os.path.join(HERE, "refine_set.txt"), "w") as f:
        f.write("# name subject crop-x crop-y background crop-x crop-y (made by make_refine_set.py)\n")
        f.write("# trimap band radii: %s\n" % " ".join(str(r) for r in RADII))
        f.write("\n".join(lines) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
