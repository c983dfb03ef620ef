#!/usr/bin/env python3
"""Builds the backdrop-keying evaluation set from the sample photographs.

Each picture is a crop of a real photograph cut out by a synthetic, known alpha (a soft-edged body and thin
strands like loose hair), composited over a lit, slightly noisy backdrop with a soft drop shadow, and saved as
JPEG at quality 85 with 4:2:0 chroma, the way a camera or a web upload would hand it over.

Needs python3 (standard library only) and ImageMagick's `convert`. Output, beside this script:
  key_<name>.jpg        the composite, what the keyer gets
  key_<name>.png        the same composite before JPEG compression
  key_<name>_alpha.png  the true alpha, 8-bit gray
  key_set.txt           one line per picture: name photo crop-x crop-y width height backdrop-RRGGBB
The true foreground colour is the crop of the photograph itself (assets/samples/<photo>), so it is not stored.
Run it again and it writes byte-identical files (fixed seeds; ImageMagick's JPEG writer is deterministic).
"""
import math
import os
import random
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SAMPLES = os.path.join(HERE, "..", "..", "..", "assets", "samples")
W, H = 240, 180

# name, photo, crop origin, backdrop colour, seed
SET = [
    ("green", "astronaut.png", 136, 0, (46, 168, 72), 1),
    ("blue", "chelsea.png", 110, 40, (34, 78, 196), 2),
    ("gray", "coffee.png", 150, 10, (128, 128, 128), 3),
    ("white", "astronaut.png", 150, 220, (244, 244, 242), 4),
    ("lightgray", "chelsea.png", 180, 80, (196, 196, 194), 5),
    ("black", "coffee.png", 330, 190, (20, 20, 22), 6),
]


def read_ppm(path):
    data = subprocess.run(["convert", path, "-depth", "8", "ppm:-"], check=True, capture_output=True).stdout
    fields, pos = [], 0
    while len(fields) < 4:
        while data[pos:pos + 1].isspace() or data[pos:pos + 1] == b"#":
            if data[pos:pos + 1] == b"#":
                pos = data.index(b"\n", pos)
            pos += 1
        start = pos
        while not data[pos:pos + 1].isspace():
            pos += 1
        fields.append(data[start:pos])
    pos += 1
    assert fields[0] == b"P6" and fields[3] == b"255"
    return int(fields[1]), int(fields[2]), data[pos:]


def clamp01(v):
    return 0.0 if v < 0.0 else (1.0 if v > 1.0 else v)


def make_alpha(rng):
    """A body that rises from the bottom edge, its outline wobbling, with a soft rim and strands."""
    cx, cy, rx, ry = W / 2 + rng.uniform(-10, 10), H * 0.78, W * 0.34, H * 0.58
    waves = [(rng.randint(3, 7), rng.uniform(0.02, 0.05), rng.uniform(0, 6.28)) for _ in range(3)]
    soft = 2.5

    def radius_scale(theta):
        return 1.0 + sum(a * math.sin(k * theta + p) for k, a, p in waves)

    alpha = [0.0] * (W * H)
    for y in range(H):
        for x in range(W):
            dx, dy = (x + 0.5 - cx) / rx, (y + 0.5 - cy) / ry
            rho = math.hypot(dx, dy)
            s = radius_scale(math.atan2(dy, dx))
            # signed distance in pixels, approximated along the mean radius
            sd = (s - rho) * (rx + ry) / 2
            alpha[y * W + x] = clamp01(0.5 + sd / soft)

    # Strands: curved thin lines from the upper rim outwards, anti-aliased by distance.
    for _ in range(26):
        theta = rng.uniform(-math.pi * 0.95, -math.pi * 0.05)
        s = radius_scale(theta)
        px, py = cx + math.cos(theta) * rx * s * 0.96, cy + math.sin(theta) * ry * s * 0.96
        heading, bend = theta + rng.uniform(-0.5, 0.5), rng.uniform(-0.06, 0.06)
        length, width, opacity = rng.uniform(14, 38), rng.uniform(0.7, 1.6), rng.uniform(0.55, 1.0)
        points = [(px, py)]
        for _ in range(int(length)):
            heading += bend
            px, py = px + math.cos(heading), py + math.sin(heading)
            points.append((px, py))
        half = width / 2
        for (ax, ay), (bx, by) in zip(points, points[1:]):
            x0, x1 = int(min(ax, bx) - 2), int(max(ax, bx) + 3)
            y0, y1 = int(min(ay, by) - 2), int(max(ay, by) + 3)
            vx, vy = bx - ax, by - ay
            vv = vx * vx + vy * vy
            for y in range(max(0, y0), min(H, y1)):
                for x in range(max(0, x0), min(W, x1)):
                    qx, qy = x + 0.5 - ax, y + 0.5 - ay
                    t = clamp01((qx * vx + qy * vy) / vv)
                    d = math.hypot(qx - t * vx, qy - t * vy)
                    cov = clamp01(half + 0.5 - d) * opacity
                    i = y * W + x
                    # max, not union: overlapping segments of one strand must not build up
                    alpha[i] = max(alpha[i], cov)
    return [int(a * 255 + 0.5) for a in alpha]


def box_blur(values, radius):
    out = [0.0] * (W * H)
    tmp = [0.0] * (W * H)
    for y in range(H):
        for x in range(W):
            lo, hi = max(0, x - radius), min(W - 1, x + radius)
            tmp[y * W + x] = sum(values[y * W + lo:y * W + hi + 1]) / (hi - lo + 1)
    for x in range(W):
        for y in range(H):
            lo, hi = max(0, y - radius), min(H - 1, y + radius)
            out[y * W + x] = sum(tmp[j * W + x] for j in range(lo, hi + 1)) / (hi - lo + 1)
    return out


def build(name, photo, ox, oy, colour, seed):
    rng = random.Random(seed)
    pw, ph, pixels = read_ppm(os.path.join(SAMPLES, photo))
    assert ox + W <= pw and oy + H <= ph
    alpha = make_alpha(rng)

    # Shadow: the matte moved down and right, blurred wide, darkening the backdrop by up to 45 %.
    shifted = [0.0] * (W * H)
    for y in range(H):
        for x in range(W):
            sx, sy = x - 14, y - 9
            if 0 <= sx < W and 0 <= sy < H:
                shifted[y * W + x] = alpha[sy * W + sx] / 255.0
    shadow = box_blur(box_blur(box_blur(shifted, 4), 4), 4)

    out = bytearray(W * H * 3)
    for y in range(H):
        for x in range(W):
            i = y * W + x
            light = 0.93 + 0.10 * (x / W) * 0.6 + 0.10 * (1 - y / H) * 0.4
            dark = 1.0 - 0.45 * shadow[i]
            a = alpha[i] / 255.0
            p = ((oy + y) * pw + ox + x) * 3
            for c in range(3):
                b = colour[c] * light * dark + rng.gauss(0.0, 1.6)
                v = pixels[p + c] * a + b * (1.0 - a)
                out[i * 3 + c] = max(0, min(255, int(v + 0.5)))

    header = b"P6\n%d %d\n255\n" % (W, H)
    # The same composite without JPEG's losses, so that a figure can tell the key's own errors from JPEG's.
    lossless = os.path.join(HERE, "key_%s.png" % name)
    subprocess.run(["convert", "ppm:-", "-strip", "-define", "png:exclude-chunks=date,time", lossless],
                   input=header + bytes(out), check=True)
    jpg = os.path.join(HERE, "key_%s.jpg" % name)
    subprocess.run(["convert", "ppm:-", "-strip", "-quality", "85", "-sampling-factor", "2x2,1x1,1x1", jpg],
                   input=header + bytes(out), check=True)
    png = os.path.join(HERE, "key_%s_alpha.png" % name)
    subprocess.run(["convert", "-size", "%dx%d" % (W, H), "-depth", "8", "gray:-", "-strip",
                    "-define", "png:exclude-chunks=date,time", png], input=bytes(alpha), check=True)
    return "%s %s %d %d %d %d %02X%02X%02X" % (name, photo, ox, oy, W, H, *colour)


def main():
    lines = [build(*entry) for entry in SET]
    with open(os.path.join(HERE, "key_set.txt"), "w") as f:
        f.write("# name photo crop-x crop-y width height backdrop (made by make_key_set.py)\n")
        f.write("\n".join(lines) + "\n")
    return 0


if __name__ == "__main__":
    sys.exit(main())
