#!/usr/bin/env python3
"""Draws the editor's skin: button states, splash, panel and slider pictures, bar and button faces, and the
pictures of the method and result dialogs. Python standard library only; the output is committed under
assets/skin so that a fresh checkout starts without running this. Run it again after changing a drawing:

    scripts/make-skin.py            # writes assets/skin
    scripts/make-skin.py OUTDIR     # writes elsewhere (the tests compare the two)
"""
import math
import os
import struct
import sys
import zlib

# ----------------------------------------------------------------------------------------------------------------
# A small anti-aliased rasteriser: straight RGBA floats, 'over' compositing, 4 x 4 samples per edge pixel.


class Canvas:
    def __init__(self, w, h, colour=(0, 0, 0, 0)):
        self.w, self.h = w, h
        self.px = [list(colour) for _ in range(w * h)]

    def blend(self, x, y, rgba, cover):
        a = rgba[3] * cover
        if a <= 0:
            return
        p = self.px[y * self.w + x]
        out_a = a + p[3] * (1 - a)
        if out_a <= 0:
            return
        for i in range(3):
            p[i] = (rgba[i] * a + p[i] * p[3] * (1 - a)) / out_a
        p[3] = out_a

    def shade(self, fn, inside, box=None, samples=4):
        """Paints fn(x, y) -> rgba wherever inside(x, y) holds, with edge coverage from sub-samples."""
        x0, y0, x1, y1 = box if box else (0, 0, self.w, self.h)
        x0, y0 = max(0, int(math.floor(x0))), max(0, int(math.floor(y0)))
        x1, y1 = min(self.w, int(math.ceil(x1))), min(self.h, int(math.ceil(y1)))
        offs = [(i + 0.5) / samples for i in range(samples)]
        n = samples * samples
        for y in range(y0, y1):
            for x in range(x0, x1):
                hits = 0
                for oy in offs:
                    for ox in offs:
                        if inside(x + ox, y + oy):
                            hits += 1
                if hits:
                    self.blend(x, y, fn(x + 0.5, y + 0.5), hits / n)

    def fill(self, colour, inside, box=None):
        self.shade(lambda x, y: colour, inside, box)

    # Shapes -----------------------------------------------------------------------------------------------------
    def rect(self, x0, y0, x1, y1, colour):
        self.fill(colour, lambda x, y: x0 <= x < x1 and y0 <= y < y1, (x0, y0, x1, y1))

    def round_rect(self, x0, y0, x1, y1, r, colour, fn=None):
        def inside(x, y):
            if not (x0 <= x < x1 and y0 <= y < y1):
                return False
            cx = min(max(x, x0 + r), x1 - r)
            cy = min(max(y, y0 + r), y1 - r)
            return (x - cx) ** 2 + (y - cy) ** 2 <= r * r
        self.shade(fn if fn else (lambda x, y: colour), inside, (x0, y0, x1, y1))

    def ellipse(self, cx, cy, rx, ry, colour, fn=None):
        inside = lambda x, y: ((x - cx) / rx) ** 2 + ((y - cy) / ry) ** 2 <= 1
        self.shade(fn if fn else (lambda x, y: colour), inside, (cx - rx, cy - ry, cx + rx, cy + ry))

    def ring(self, cx, cy, r, width, colour):
        inside = lambda x, y: abs(math.hypot(x - cx, y - cy) - r) <= width / 2
        self.fill(colour, inside, (cx - r - width, cy - r - width, cx + r + width, cy + r + width))

    def polygon(self, pts, colour, fn=None):
        xs, ys = [p[0] for p in pts], [p[1] for p in pts]

        def inside(x, y):
            c = False
            j = len(pts) - 1
            for i in range(len(pts)):
                xi, yi = pts[i]
                xj, yj = pts[j]
                if (yi > y) != (yj > y) and x < (xj - xi) * (y - yi) / (yj - yi) + xi:
                    c = not c
                j = i
            return c
        self.shade(fn if fn else (lambda x, y: colour), inside, (min(xs), min(ys), max(xs) + 1, max(ys) + 1))

    def line(self, xa, ya, xb, yb, width, colour):
        dx, dy = xb - xa, yb - ya
        ll = dx * dx + dy * dy or 1

        def inside(x, y):
            t = max(0, min(1, ((x - xa) * dx + (y - ya) * dy) / ll))
            return math.hypot(x - (xa + t * dx), y - (ya + t * dy)) <= width / 2
        m = width
        self.fill(colour, inside, (min(xa, xb) - m, min(ya, yb) - m, max(xa, xb) + m, max(ya, yb) + m))

    def gradient(self, c0, c1, vertical=True):
        for y in range(self.h):
            for x in range(self.w):
                t = (y / max(1, self.h - 1)) if vertical else (x / max(1, self.w - 1))
                self.px[y * self.w + x] = [c0[i] + (c1[i] - c0[i]) * t for i in range(4)]

    def checker(self, x0, y0, x1, y1, cell, light, dark):
        for y in range(int(y0), int(y1)):
            for x in range(int(x0), int(x1)):
                c = light if ((x - int(x0)) // cell + (y - int(y0)) // cell) % 2 == 0 else dark
                self.blend(x, y, c, 1)

    # Output -----------------------------------------------------------------------------------------------------
    def bytes_rgba(self):
        out = bytearray()
        for p in self.px:
            out += bytes(max(0, min(255, int(round(v * 255)))) for v in p)
        return out

    def save_png(self, path):
        raw = bytearray()
        data = self.bytes_rgba()
        for y in range(self.h):
            raw.append(0)
            raw += data[y * self.w * 4:(y + 1) * self.w * 4]

        def chunk(kind, body):
            c = struct.pack('>I', len(body)) + kind + body
            return c + struct.pack('>I', zlib.crc32(kind + body) & 0xFFFFFFFF)
        png = b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', self.w, self.h, 8, 6, 0, 0, 0))
        png += chunk(b'IDAT', zlib.compress(bytes(raw), 9)) + chunk(b'IEND', b'')
        write(path, png)

    def save_bmp24(self, path, back=(1, 1, 1)):
        """Uncompressed 24-bit, bottom-up, pixels right behind the 54-byte header; alpha is laid on back."""
        row = (self.w * 3 + 3) & ~3
        body = bytearray()
        for y in range(self.h - 1, -1, -1):
            line = bytearray()
            for x in range(self.w):
                r, g, b, a = self.px[y * self.w + x]
                rgb = [c * a + back[i] * (1 - a) for i, c in enumerate((r, g, b))]
                line += bytes(max(0, min(255, int(round(v * 255)))) for v in (rgb[2], rgb[1], rgb[0]))
            body += line + bytes(row - len(line))
        header = b'BM' + struct.pack('<IHHI', 54 + len(body), 0, 0, 54)
        header += struct.pack('<IiiHHIIiiII', 40, self.w, self.h, 1, 24, 0, len(body), 2835, 2835, 0, 0)
        write(path, header + body)


def write(path, data):
    with open(path, 'wb') as f:
        f.write(data)


def hexc(v, a=1.0):
    return ((v >> 16 & 255) / 255, (v >> 8 & 255) / 255, (v & 255) / 255, a)


# ----------------------------------------------------------------------------------------------------------------
# A 5 x 7 letter shape set for the few words the pictures carry.

GLYPHS = {
    'A': ['01110', '10001', '10001', '11111', '10001', '10001', '10001'],
    'C': ['01111', '10000', '10000', '10000', '10000', '10000', '01111'],
    'D': ['11110', '10001', '10001', '10001', '10001', '10001', '11110'],
    'E': ['11111', '10000', '10000', '11110', '10000', '10000', '11111'],
    'G': ['01111', '10000', '10000', '10011', '10001', '10001', '01111'],
    'I': ['11111', '00100', '00100', '00100', '00100', '00100', '11111'],
    'L': ['10000', '10000', '10000', '10000', '10000', '10000', '11111'],
    'M': ['10001', '11011', '10101', '10101', '10001', '10001', '10001'],
    'N': ['10001', '11001', '10101', '10011', '10001', '10001', '10001'],
    'O': ['01110', '10001', '10001', '10001', '10001', '10001', '01110'],
    'P': ['11110', '10001', '10001', '11110', '10000', '10000', '10000'],
    'R': ['11110', '10001', '10001', '11110', '10100', '10010', '10001'],
    'S': ['01111', '10000', '10000', '01110', '00001', '00001', '11110'],
    'T': ['11111', '00100', '00100', '00100', '00100', '00100', '00100'],
    'U': ['10001', '10001', '10001', '10001', '10001', '10001', '01110'],
    'V': ['10001', '10001', '10001', '10001', '01010', '01010', '00100'],
    '&': ['01100', '10010', '10100', '01000', '10101', '10010', '01101'],
    '?': ['01110', '10001', '00001', '00110', '00100', '00000', '00100'],
    ' ': ['00000'] * 7,
}


def text_width(text, scale, gap=1):
    return len(text) * (5 + gap) * scale - gap * scale


def draw_text(cv, text, x, y, scale, colour, gap=1, round_dots=True):
    for ch in text:
        rows = GLYPHS[ch]
        for j, row in enumerate(rows):
            for i, bit in enumerate(row):
                if bit == '1':
                    px, py = x + i * scale, y + j * scale
                    if round_dots and scale >= 3:
                        cv.round_rect(px, py, px + scale, py + scale, scale * 0.3, colour)
                    else:
                        cv.rect(px, py, px + scale, py + scale, colour)
        x += (5 + gap) * scale


# ----------------------------------------------------------------------------------------------------------------
# The pictures.

ACCENT = 0x2F7FD8      # blue of the program
ACCENT_DARK = 0x1F4F8F
GREEN = 0x3FAF5F
WHITE = (1, 1, 1, 1)
INK = hexc(0x303840)


def subject(cv, cx, cy, s, colour):
    """A person's outline (head and shoulders), the program's usual subject."""
    cv.ellipse(cx, cy - 0.28 * s, 0.2 * s, 0.23 * s, colour)
    cv.round_rect(cx - 0.42 * s, cy + 0.02 * s, cx + 0.42 * s, cy + 0.6 * s, 0.22 * s, colour)


def splash(path):
    w, h = 480, 300
    cv = Canvas(w, h)
    top, bottom = hexc(0x16324F), hexc(0x0B1826)
    cv.gradient(top, bottom)
    # Soft glow behind the logo.
    cv.shade(lambda x, y: (0.2, 0.45, 0.8, max(0.0, 0.35 - math.hypot(x - 120, y - 140) / 400)),
             lambda x, y: True, (0, 0, 260, 300), samples=1)
    # The logo: a checkerboard (transparency) with a subject cut out of a coloured backdrop.
    cv.round_rect(48, 66, 192, 210, 14, hexc(0xFFFFFF, 0.08))
    cv.checker(60, 78, 180, 198, 10, hexc(0xDADADA), hexc(0xA8A8A8))
    cv.polygon([(60, 78), (180, 78), (60, 198)], hexc(ACCENT))
    subject(cv, 120, 146, 92, hexc(0xF4C27A))
    cv.line(60, 198, 180, 78, 3, hexc(0xFFFFFF, 0.9))
    # The name and what it does.
    draw_text(cv, 'VELMORANDO', 214, 112, 4, WHITE)
    draw_text(cv, 'MATTING & COMPOSITING', 216, 160, 2, hexc(0x9FC3EA), round_dots=False)
    cv.rect(216, 150, 216 + text_width('VELMORANDO', 4) - 2, 152, hexc(ACCENT))
    cv.save_bmp24(path, back=(0.1, 0.2, 0.3))


def button_states(path):
    """Four 24 x 24 faces side by side: normal, hot, pressed, disabled."""
    cv = Canvas(96, 24)
    faces = [(0xF0F0F0, 0xD2D2D2, 0xFFFFFF, 0x808080),
             (0xFAFAFA, 0xDCE8F6, 0xFFFFFF, 0x5A8AC0),
             (0xC8D4E4, 0xB4C4D8, 0x5A6A80, 0xFFFFFF),
             (0xE6E6E6, 0xE6E6E6, 0xF0F0F0, 0xC0C0C0)]
    for i, (c0, c1, light, dark) in enumerate(faces):
        x0 = i * 24
        for y in range(24):
            t = y / 23
            for x in range(x0, x0 + 24):
                cv.px[y * 96 + x] = [hexc(c0)[k] + (hexc(c1)[k] - hexc(c0)[k]) * t for k in range(3)] + [1]
        cv.rect(x0, 0, x0 + 24, 1, hexc(light))
        cv.rect(x0, 0, x0 + 1, 24, hexc(light))
        cv.rect(x0, 23, x0 + 24, 24, hexc(dark))
        cv.rect(x0 + 23, 0, x0 + 24, 24, hexc(dark))
    cv.save_bmp24(path)


def panel_back(path):
    cv = Canvas(64, 64)
    cv.gradient(hexc(0xF2F2F2), hexc(0xDADADA))
    cv.save_png(path)


def slider_thumb(path):
    cv = Canvas(11, 20)
    cv.polygon([(0.5, 0.5), (10.5, 0.5), (10.5, 13), (5.5, 19.5), (0.5, 13)], hexc(0x606870))
    cv.polygon([(1.5, 1.5), (9.5, 1.5), (9.5, 12.6), (5.5, 18), (1.5, 12.6)], hexc(0xF4F4F4),
               fn=lambda x, y: hexc(0xFFFFFF) if y < 8 else hexc(0xDCDCDC))
    cv.save_png(path)


def slider_bar(path):
    cv = Canvas(100, 6)
    cv.round_rect(0, 0, 100, 6, 3, hexc(0x8A9098))
    cv.round_rect(1, 1, 99, 5, 2, hexc(0xC8CCD0))
    cv.save_png(path)


def title_bar(path):
    cv = Canvas(200, 20)
    cv.gradient(hexc(0x5A8AC0), hexc(0x2F5F98))
    cv.rect(0, 0, 200, 1, hexc(0x9FC3EA))
    cv.save_png(path)


def page_glyph(path, open_page):
    """The 16 x 16 glyph on a side-bar title: a triangle pointing down on an open page, right on a folded one."""
    cv = Canvas(16, 16)
    pts = [(3.5, 5.5), (12.5, 5.5), (8, 11)] if open_page else [(5.5, 3.5), (11, 8), (5.5, 12.5)]
    cv.polygon([(x + 0.6, y + 0.6) for x, y in pts], hexc(0x000000, 0.35))
    cv.polygon(pts, WHITE)
    cv.save_png(path)


def bar_arrow(path, hide):
    """8 x 16 arrow of the button that hides the side bar (pointing right) or shows it again (pointing left)."""
    cv = Canvas(8, 16)
    pts = [(2, 4), (6.5, 8), (2, 12)] if hide else [(6, 4), (1.5, 8), (6, 12)]
    cv.polygon(pts, INK)
    cv.save_png(path)


def help_head(path):
    cv = Canvas(160, 24)
    cv.gradient(hexc(0xFFF4D8), hexc(0xF2DCA0))
    cv.ellipse(13, 12, 9, 9, hexc(0xE0A020))
    draw_text(cv, '?', 11, 8, 1, WHITE)
    cv.rect(0, 23, 160, 24, hexc(0xC8A860))
    cv.save_png(path)


def open_icon(path):
    cv = Canvas(32, 32)
    cv.polygon([(3, 8), (12, 8), (15, 11), (27, 11), (27, 26), (3, 26)], hexc(0xC89A30))
    cv.polygon([(6, 14), (30, 14), (26, 27), (3, 27)], hexc(0xF2C45A))
    cv.line(16, 3, 16, 10, 2.4, hexc(ACCENT))
    cv.polygon([(11.5, 6.5), (20.5, 6.5), (16, 1.5)], hexc(ACCENT))
    cv.save_png(path)


def save_icon(path):
    cv = Canvas(32, 32)
    cv.round_rect(4, 4, 28, 28, 3, hexc(ACCENT_DARK))
    cv.rect(9, 4, 23, 12, hexc(0xE8EEF6))
    cv.rect(18, 5.5, 21, 10.5, hexc(ACCENT_DARK))
    cv.round_rect(8, 16, 24, 26, 1.5, hexc(0xFFFFFF))
    cv.rect(10, 19, 22, 20, hexc(0xB0BCCC))
    cv.rect(10, 22, 22, 23, hexc(0xB0BCCC))
    cv.save_png(path)


def help_icon(path):
    cv = Canvas(32, 32)
    cv.ellipse(16, 16, 13, 13, hexc(GREEN))
    cv.ellipse(16, 16, 11, 11, hexc(0x55C577))
    draw_text(cv, '?', 11, 7, 2, WHITE, round_dots=False)
    cv.save_png(path)


def create_selection_icon(path):
    cv = Canvas(32, 32)
    cv.checker(3, 3, 29, 29, 4, hexc(0xE0E0E0), hexc(0xB8B8B8))
    subject(cv, 16, 17, 22, hexc(ACCENT))
    for i in range(0, 26, 4):  # a dashed outline
        cv.rect(3 + i, 3, 5 + i, 4, INK)
        cv.rect(3 + i, 28, 5 + i, 29, INK)
        cv.rect(3, 3 + i, 4, 5 + i, INK)
        cv.rect(28, 3 + i, 29, 5 + i, INK)
    cv.save_png(path)


def dashed_path(cv, pts, width=1.2, dash=2.0):
    """A closed path drawn in alternating dark and light dashes, as the marching ants look."""
    pos = 0.0
    for (xa, ya), (xb, yb) in zip(pts, pts[1:] + pts[:1]):
        length = math.hypot(xb - xa, yb - ya)
        t = 0.0
        while t < length - 1e-9:
            index = int(math.floor(pos / dash + 1e-9))
            step = min((index + 1) * dash - pos, length - t)
            colour = INK if index % 2 == 0 else WHITE
            f0, f1 = t / length, (t + step) / length
            cv.line(xa + (xb - xa) * f0, ya + (yb - ya) * f0, xa + (xb - xa) * f1, ya + (yb - ya) * f1, width,
                    colour)
            t += step
            pos += step


TOOL_POLYGON = [(2.5, 4.5), (10.5, 2.5), (13.5, 9.5), (8.5, 13.5), (3.5, 11.5)]


def tool_icon(path, kind):
    """The 16 x 16 pictures of the tool bar's buttons, named by the tools' tip keys."""
    cv = Canvas(16, 16)
    if kind == 'rectseltip':
        dashed_path(cv, [(2.5, 3.5), (13.5, 3.5), (13.5, 12.5), (2.5, 12.5)])
    elif kind == 'roundseltip':
        dashed_path(cv, [(8 + 6 * math.cos(a * math.pi / 12), 8 + 4.8 * math.sin(a * math.pi / 12))
                         for a in range(24)], width=1.4, dash=2.0)
    elif kind == 'freeseltip':
        loop = [(8 + 5.5 * math.cos(a * math.pi / 10), 6 + 3.8 * math.sin(a * math.pi / 10)) for a in range(20)]
        for (xa, ya), (xb, yb) in zip(loop, loop[1:] + loop[:1]):
            cv.line(xa, ya, xb, yb, 1.3, INK)
        cv.line(5.5, 9.0, 4.5, 12.0, 1.3, INK)
        cv.line(4.5, 12.0, 6.0, 14.5, 1.3, INK)
    elif kind == 'polygonseltip':
        dashed_path(cv, TOOL_POLYGON)
        for x, y in TOOL_POLYGON:
            cv.rect(x - 1, y - 1, x + 1, y + 1, hexc(ACCENT))
    elif kind == 'magicseltip':
        cv.line(2.5, 13.5, 10, 6, 2.2, hexc(0x5A3A1A))
        cv.line(2.5, 13.5, 4.5, 11.5, 2.2, WHITE)
        for a in range(4):  # the sparkle at the tip
            ang = a * math.pi / 4
            cv.line(12 - 3.5 * math.cos(ang), 4 - 3.5 * math.sin(ang), 12 + 3.5 * math.cos(ang),
                    4 + 3.5 * math.sin(ang), 1.3, hexc(0xD88000))
    else:
        # The three polygons of selection mode: outer contour red, inner green, result blue.
        colour = {'outpolygonseltip': 0xD02828, 'inpolygonseltip': 0x209838, 'modifypolygonseltip': 0x2858C8}[kind]
        cv.polygon(TOOL_POLYGON, hexc(colour, 0.3))
        for (xa, ya), (xb, yb) in zip(TOOL_POLYGON, TOOL_POLYGON[1:] + TOOL_POLYGON[:1]):
            cv.line(xa, ya, xb, yb, 1.3, hexc(colour))
        for x, y in TOOL_POLYGON:
            cv.rect(x - 1, y - 1, x + 1, y + 1, INK)
    cv.save_png(path)


TOOL_ICONS = ('polygonseltip', 'freeseltip', 'rectseltip', 'roundseltip', 'magicseltip', 'outpolygonseltip',
              'inpolygonseltip', 'modifypolygonseltip')


def app_icon(path, size):
    cv = Canvas(size, size)
    s = size / 64
    cv.round_rect(2 * s, 2 * s, 62 * s, 62 * s, 12 * s, hexc(0x16324F))
    cv.checker(10 * s, 10 * s, 54 * s, 54 * s, max(1, int(5.5 * s)), hexc(0xDADADA), hexc(0xA8A8A8))
    cv.polygon([(10 * s, 10 * s), (54 * s, 10 * s), (10 * s, 54 * s)], hexc(ACCENT))
    subject(cv, 32 * s, 35 * s, 34 * s, hexc(0xF4C27A))
    cv.save_png(path)


def mode_button(path, kind):
    cv = Canvas(45, 20)
    if kind == 'image':
        cv.gradient(hexc(0x8EC6F0), hexc(0xD8EEC0))
        cv.polygon([(0, 20), (14, 8), (24, 16), (33, 10), (45, 20)], hexc(0x4F9F5F))
        cv.ellipse(36, 5, 3, 3, hexc(0xFFE070))
    else:
        cv.rect(0, 0, 45, 20, hexc(0x000000))
        subject(cv, 22.5, 10.5, 14, WHITE)
    cv.save_png(path)


def progress(path):
    cv = Canvas(100, 12)
    cv.gradient(hexc(0x6AB0F0), hexc(0x2F7FD8))
    cv.rect(0, 0, 100, 1, hexc(0xBFE0FF))
    cv.save_png(path)


def dialog_picture(path, kind):
    """64 x 64 pictures of the method and result dialogs."""
    cv = Canvas(64, 64)
    cv.round_rect(1, 1, 63, 63, 8, hexc(0xFFFFFF), fn=lambda x, y: hexc(0xFFFFFF))
    if kind == 'bluesel':
        cv.round_rect(6, 6, 58, 58, 5, hexc(0x2F6FE0))
        subject(cv, 32, 36, 36, hexc(0xF4C27A))
    elif kind == 'inoutsel':
        cv.round_rect(6, 6, 58, 58, 5, hexc(0x8FA07A))
        subject(cv, 32, 36, 36, hexc(0xF4C27A))
        cv.ring(32, 34, 25, 2.2, hexc(0xE04040))
        cv.ring(32, 34, 14, 2.2, hexc(0x30C050))
    elif kind == 'batchblue':
        for i, off in enumerate((14, 8, 2)):
            cv.round_rect(off + 2, 16 - off + 6, off + 42, 56 - off + 6, 4, hexc(0x2F6FE0 - 0x101000 * i))
        subject(cv, 24, 44, 22, hexc(0xF4C27A))
    elif kind == 'difsel':
        cv.round_rect(4, 10, 30, 54, 4, hexc(0x8FA07A))
        cv.round_rect(34, 10, 60, 54, 4, hexc(0x8FA07A))
        subject(cv, 47, 36, 22, hexc(0xF4C27A))
        cv.line(30, 32, 34, 32, 2, INK)
    elif kind == 'chbk':
        cv.round_rect(6, 6, 58, 58, 5, hexc(0x8EC6F0), fn=lambda x, y: hexc(0x8EC6F0) if y < 40 else hexc(0x4F9F5F))
        subject(cv, 32, 36, 36, hexc(0xF4C27A))
    elif kind == 'blur':
        for r, a in ((26, 0.25), (22, 0.35), (18, 0.5)):
            cv.ellipse(32, 32, r, r, hexc(0x7FA0C0, a))
        subject(cv, 32, 36, 34, hexc(0xF4C27A))
    elif kind == 'delbk':
        cv.checker(6, 6, 58, 58, 6, hexc(0xE4E4E4), hexc(0xB8B8B8))
        subject(cv, 32, 36, 36, hexc(0xF4C27A))
    elif kind == 'dupsel':
        cv.round_rect(14, 14, 56, 56, 4, hexc(0xB8C8DC))
        cv.round_rect(6, 6, 48, 48, 4, hexc(0xF4C27A))
    elif kind == 'mask':
        cv.round_rect(6, 6, 58, 58, 5, hexc(0x000000))
        subject(cv, 32, 36, 36, WHITE)
    elif kind == 'sepbk':
        cv.round_rect(20, 6, 58, 44, 4, hexc(0x8FA07A))
        cv.checker(6, 20, 44, 58, 6, hexc(0xE4E4E4), hexc(0xB8B8B8))
        subject(cv, 25, 42, 26, hexc(0xF4C27A))
    elif kind == 'lenblurdlg':
        cv.ellipse(32, 32, 26, 26, hexc(0x303840))
        cv.ellipse(32, 32, 20, 20, hexc(0x506070))
        cv.ellipse(32, 32, 12, 12, hexc(0x90B8E0))
        cv.ellipse(27, 27, 4, 4, hexc(0xFFFFFF, 0.8))
    cv.save_png(path)


def aperture_masks(path):
    """The lens blur's three aperture shapes in one 64 x 64 picture: blue the octagon, green the hexagon, red the
    circle. Each byte is the shape's coverage of the pixel (8 x 8 samples), 255 inside and 0 outside; all three
    fill the square from edge to edge so that the largest kernel is the whole aperture."""
    side, c, n = 64, 32.0, 8

    def regular(count, phase, circum):
        return [(c + circum * math.cos(phase + 2 * math.pi * k / count), c + circum * math.sin(phase + 2 * math.pi * k / count))
                for k in range(count)]

    def convex(pts):
        def inside(x, y):
            for i in range(len(pts)):
                (xa, ya), (xb, yb) = pts[i], pts[(i + 1) % len(pts)]
                if (xb - xa) * (y - ya) - (yb - ya) * (x - xa) < 0:
                    return False
            return True
        return inside

    octagon = convex(regular(8, math.pi / 8, c / math.cos(math.pi / 8)))    # flat sides on the square's edges
    hexagon = convex(regular(6, -math.pi / 2, c))                           # a point at the top and the bottom
    circle = lambda x, y: (x - c) ** 2 + (y - c) ** 2 <= c * c
    cv = Canvas(side, side)
    offs = [(i + 0.5) / n for i in range(n)]
    for y in range(side):
        for x in range(side):
            cover = []
            for inside in (circle, hexagon, octagon):
                cover.append(sum(1 for oy in offs for ox in offs if inside(x + ox, y + oy)) / (n * n))
            cv.px[y * side + x] = [cover[0], cover[1], cover[2], 1.0]
    cv.save_png(path)


def main():
    root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    out = sys.argv[1] if len(sys.argv) > 1 else os.path.join(root, 'assets', 'skin')
    os.makedirs(os.path.join(out, 'icons'), exist_ok=True)
    j = lambda name: os.path.join(out, name)
    splash(j('start.lgb'))
    button_states(j('btnst.bmp'))
    panel_back(j('panelbk.png'))
    slider_thumb(j('slider.png'))
    slider_bar(j('sliderbar.png'))
    title_bar(j('bar.png'))
    help_head(j('helptittle.png'))
    open_icon(j('open.png'))
    save_icon(j('save.png'))
    help_icon(j('help.png'))
    mode_button(j('bkimage.png'), 'image')
    mode_button(j('bkmask.png'), 'mask')
    progress(j('progress.png'))
    for kind in ('bluesel', 'inoutsel', 'batchblue', 'difsel', 'chbk', 'blur', 'delbk', 'dupsel', 'mask', 'sepbk',
                 'lenblurdlg'):
        dialog_picture(j(kind + '.png'), kind)
    aperture_masks(j('lenblur.png'))
    create_selection_icon(j('icons/createsel.png'))
    app_icon(j('icons/velmorando.png'), 64)
    app_icon(j('icons/velmorando-256.png'), 256)
    for kind in TOOL_ICONS:
        tool_icon(j('icons/' + kind + '.png'), kind)
    page_glyph(j('icons/pageopen.png'), True)
    page_glyph(j('icons/pageclosed.png'), False)
    bar_arrow(j('icons/barhide.png'), True)
    bar_arrow(j('icons/barshow.png'), False)


if __name__ == '__main__':
    main()
