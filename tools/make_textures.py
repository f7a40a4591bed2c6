#!/usr/bin/env python3
"""Writes the pictures that the sample scenes wear, under scenes/*/image. The same bytes come out every time.

They are small and kept beside the scenes, so that rendering needs no Python. The walls, floors and stones among them
tile. Values are encoded with a gamma of 2.2, except the normal map, whose texels are directions. Row 0 of a picture
here is the top row of the file, which is v = 1 on a surface.
"""

import math
import pathlib
import random
import struct
import sys
import zlib


def write_png(path, width, height, channels, texel, size=1):
    """texel(x, y) gives `channels` (1 or 3) values from 0 to 1, each stored in `size` bytes (1 or 2)."""
    before = bytes(width * channels * size)
    stream = bytearray()
    for y in range(height):
        values = (round((256 ** size - 1) * min(max(c, 0.0), 1.0)) for x in range(width) for c in texel(x, y))
        line = b"".join(value.to_bytes(size, "big") for value in values)
        filters = [(number, filtered(number, line, before, channels * size)) for number in (0, 1, 2, 4)]
        # The usual guess of the filter that packs best: the smallest sum of sizes, bytes taken as signed.
        number, best = min(filters, key=lambda f: sum(min(b, 256 - b) for b in f[1]))
        stream.append(number)
        stream += best
        before = line

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    header = struct.pack(">IIBBBBB", width, height, 8 * size, {1: 0, 3: 2}[channels], 0, 0, 0)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_bytes(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(bytes(stream), 9)) +
                     chunk(b"IEND", b""))


def filtered(number, line, before, channels):
    """One line of a PNG behind filter 0 none, 1 sub, 2 up or 4 Paeth; `channels` are the bytes of a pixel."""
    if number == 0:
        return line
    if number == 2:
        return bytes((c - b) & 255 for c, b in zip(line, before))
    left = bytes(channels) + line[:-channels]
    if number == 1:
        return bytes((c - a) & 255 for c, a in zip(line, left))
    corner = bytes(channels) + before[:-channels]
    return bytes((c - paeth(a, b, d)) & 255 for c, a, b, d in zip(line, left, before, corner))


def paeth(a, b, c):
    estimate = a + b - c
    pa, pb, pc = abs(estimate - a), abs(estimate - b), abs(estimate - c)
    return a if pa <= pb and pa <= pc else b if pb <= pc else c


class Noise:
    """Smooth noise from 0 to 1 over the unit square, which it tiles: sums of octaves of a lattice."""

    def __init__(self, seed, columns, rows, octaves=4):
        rng = random.Random(seed)
        self.levels = [(columns << k, rows << k, 0.5 ** k, [rng.random() for _ in range((columns * rows) << (2 * k))])
                       for k in range(octaves)]
        self.scale = 1 / sum(level[2] for level in self.levels)

    def __call__(self, u, v):
        return self.scale * sum(share * lattice(values, columns, rows, u * columns, v * rows)
                                for columns, rows, share, values in self.levels)


def lattice(values, columns, rows, x, y):
    ix, iy = math.floor(x), math.floor(y)
    fx, fy = smooth(x - ix), smooth(y - iy)
    low, high = iy % rows * columns, (iy + 1) % rows * columns
    left, right = ix % columns, (ix + 1) % columns
    return mix(mix(values[low + left], values[low + right], fx), mix(values[high + left], values[high + right], fx), fy)


def smooth(t):
    return t * t * (3 - 2 * t)


def step(low, high, x):
    """0 below `low`, 1 above `high`, smooth between."""
    return smooth(min(max((x - low) / (high - low), 0.0), 1.0))


def mix(a, b, t):
    return a + (b - a) * t


def blend(a, b, t):
    return tuple(mix(x, y, t) for x, y in zip(a, b))


def scaled(color, factor):
    return tuple(c * factor for c in color)


def floor_boards(size):
    """Grey boards that run along v, four of them side by side, each cut once. The scenes turn grey into wood."""
    rng = random.Random(11)
    cuts = [0.1, 0.6, 0.35, 0.85]
    tones = [[rng.uniform(0.4, 0.72) for _ in range(2)] for _ in cuts]
    shifts = [rng.random() for _ in cuts]
    fibre, bend = Noise(12, 64, 3, 2), Noise(13, 4, 4, 2)

    def texel(x, y):
        u, v = (x + 0.5) / size, (y + 0.5) / size
        board = int(u * 4)
        across = u * 4 - board
        past_cut = v > cuts[board]
        rings = math.sin(2 * math.pi * (5 * across + 3 * bend(u, 0.5 * v + shifts[board]) + (0.4 if past_cut else 0)))
        tone = tones[board][past_cut] + 0.05 * rings + 0.22 * (fibre(u, v + shifts[board]) - 0.5)
        edge = min(across, 1 - across) * size / 4
        edge = min(edge, abs(v - cuts[board]) * size)
        return (round(80 * tone) / 80 * (0.35 + 0.65 * step(0.3, 1.6, edge)),)

    return texel


def grain(width, height):
    """Grey wood that runs along v, without joints."""
    fibre, bend = Noise(21, 32, 2, 2), Noise(22, 3, 2, 2)

    def texel(x, y):
        u, v = (x + 0.5) / width, (y + 0.5) / height
        rings = math.sin(2 * math.pi * (6 * u + 4 * bend(u, v)))
        return (round(80 * (0.55 + 0.1 * rings + 0.3 * (fibre(u, v) - 0.5))) / 80,)

    return texel


BRICK_COLUMNS, BRICK_ROWS = 4, 8


def brick_cell(u, v):
    """The brick at a point, as (column, row), and the distance to its joint in heights of a brick, below 0 in it."""
    row = math.floor(v * BRICK_ROWS)
    shifted = u * BRICK_COLUMNS + 0.5 * (row % 2)
    column = math.floor(shifted)
    x, y = shifted - column, v * BRICK_ROWS - row
    inside = min(2.1 * min(x, 1 - x), min(y, 1 - y)) - 0.09
    return (column % BRICK_COLUMNS, row % BRICK_ROWS), inside


def bricks(size):
    rng = random.Random(31)
    tints = {(c, r): (rng.random(), rng.uniform(0.82, 1.1)) for c in range(BRICK_COLUMNS) for r in range(BRICK_ROWS)}
    stains, sand = Noise(32, 4, 4, 3), Noise(33, 64, 64, 1)

    def texel(x, y):
        u, v = (x + 0.5) / size, 1 - (y + 0.5) / size
        cell, inside = brick_cell(u, v)
        hue, light = tints[cell]
        fired = scaled(blend((0.66, 0.36, 0.27), (0.76, 0.50, 0.37), hue), light * (0.86 + 0.28 * stains(u, v)))
        mortar = scaled((0.70, 0.67, 0.62), 0.9 + 0.2 * stains(v, u))
        color = blend(mortar, fired, step(-0.02, 0.05, inside + 0.04 * (sand(u, v) - 0.5)))
        return tuple(round(48 * c * (0.95 + 0.1 * sand(u, v))) / 48 for c in color)

    return texel


def brick_normals(size):
    """Texels are (1 + n) / 2, with x along u, y along v and z out of the wall."""
    rough, tilts = Noise(34, 24, 24, 2), random.Random(35)
    lean = {(c, r): (tilts.uniform(-0.1, 0.1), tilts.uniform(-0.12, 0.12))
            for c in range(BRICK_COLUMNS) for r in range(BRICK_ROWS)}

    def height(u, v):
        return 2.2 * step(-0.04, 0.14, brick_cell(u, v)[1]) + 1.2 * (rough(u, v) - 0.5)

    def texel(x, y):
        u, v, d = (x + 0.5) / size, 1 - (y + 0.5) / size, 0.75 / size
        cell, inside = brick_cell(u, v)
        tilt = lean[cell] if inside > 0 else (0, 0)
        dx = (height(u + d, v) - height(u - d, v)) / 2 + tilt[0]
        dy = (height(u, v + d) - height(u, v - d)) / 2 + tilt[1]
        length = math.sqrt(dx * dx + dy * dy + 1)
        return tuple(round(60 * (0.5 + 0.5 * c / length)) / 60 for c in (-dx, -dy, 1))

    return texel


def wallpaper(size):
    """Leaves in two rows, the second shifted by half, and a dotted stripe between."""
    def leaf(u, v):
        """Above 0 in a leaf of height 0.8 around the middle of the unit square."""
        x, y = abs(u - 0.5), v - 0.5
        bud = 0.17 * math.cos(math.pi * y / 0.8) ** 2 - x if abs(y) < 0.4 else -1
        wing = 0.085 - math.hypot(x - 0.27, 1.3 * (y + 0.16))
        vein = 0.012 - x if -0.46 < y < 0.3 else -1
        return max(min(bud, -vein * 4), wing, vein if y < -0.36 else -1)

    def texel(x, y):
        u, v = 2 * (x + 0.5) / size, 1 - (y + 0.5) / size
        column = int(u)
        light = step(-0.012, 0.012, leaf(u - column, (v + 0.5 * column) % 1))
        near = abs((u + 0.5) % 1 - 0.5)
        dots = step(0.0, 0.02, 0.03 - math.hypot(near, (v * 8 % 1 - 0.5) / 4))
        return blend((0.47, 0.58, 0.54), (0.74, 0.78, 0.66), max(light, 0.7 * dots))

    return texel


def rug(width, height):
    red, blue, cream, gold = (0.52, 0.13, 0.12), (0.13, 0.17, 0.32), (0.82, 0.74, 0.58), (0.72, 0.5, 0.2)
    wool = Noise(41, 64, 40, 1)

    def field(x, y):
        """Colour at (x, y) from the middle, in heights of the rug: a medallion of nested diamonds among small ones."""
        reach = abs(x) / 0.52 + abs(y) / 0.32
        steps = round(reach * 14) / 14 + 0.03 * math.cos(24 * math.atan2(y, x))
        for limit, color in ((0.2, gold), (0.36, red), (0.52, cream), (0.78, blue), (0.86, gold), (1.0, red)):
            if steps < limit:
                return color
        small = abs((x * 11) % 1 - 0.5) + abs((y * 11) % 1 - 0.5)
        return cream if small < 0.16 else gold if small < 0.26 else scaled(red, 1.15)

    def border(edge, along):
        if edge < 0.022:
            return cream
        if edge < 0.05:
            return blue
        if edge < 0.062:
            return gold
        if edge < 0.135:
            wave = 0.0985 + 0.022 * (abs((along * 10) % 1 - 0.5) * 4 - 1)
            return cream if abs(edge - wave) < 0.011 else blue
        return gold if edge < 0.147 else None

    def texel(x, y):
        u, v = (x + 0.5) / height, (y + 0.5) / height
        sides = sorted([(u, v), (width / height - u, v), (v, u), (1 - v, u)])
        color = border(*sides[0]) or field(u - 0.5 * width / height, v - 0.5)
        return tuple(round(40 * c * (0.86 + 0.28 * wool(u * height / width, v))) / 40 for c in color)

    return texel


def landscape(width, height):
    """A lake under an evening sky, in flat brush strokes."""
    strokes, ridges = Noise(51, 20, 48, 2), [Noise(52 + k, 3 + 2 * k, 1, 4) for k in range(3)]
    sky = ((0.0, (0.20, 0.30, 0.52)), (0.3, (0.55, 0.52, 0.62)), (0.5, (0.95, 0.66, 0.42)), (0.62, (0.99, 0.84, 0.55)))
    hills = ((0.40, 0.20, (0.46, 0.42, 0.56)), (0.47, 0.17, (0.30, 0.32, 0.44)), (0.55, 0.12, (0.16, 0.22, 0.26)))

    def above(u, v):
        color = sky[-1][1]
        for (v0, c0), (v1, c1) in zip(sky, sky[1:]):
            if v0 <= max(v, 0) < v1:
                color = blend(c0, c1, max(v - v0, 0) / (v1 - v0))
        glow = math.hypot((u - 0.66) * width / height, v - 0.33)
        color = blend(color, (1.0, 0.93, 0.74), 0.8 * (1 - step(0.05, 0.07, glow)) + 0.3 * (1 - step(0.0, 0.35, glow)))
        for (base, swing, hill), ridge in zip(hills, ridges):
            if v > base + swing * (ridge(u, 0) - 0.5):
                color = hill
        return color

    def texel(x, y):
        u, v = (x + 0.5) / width, (y + 0.5) / height
        wobble = 0.012 * (strokes(u, v) - 0.5)
        shore = 0.63
        if v < shore:
            color = above(u + wobble, v + 2 * wobble)
        else:
            ripple = 0.08 * (strokes(0.3 * u, v) - 0.5) * (v - shore) / 0.37
            color = scaled(above(u + ripple, shore - 1.5 * (v - shore) + 2 * ripple), 0.78)
            color = blend(color, (0.10, 0.16, 0.22), 0.5 * (v - shore) / 0.37)
        return tuple(round(40 * c * (0.95 + 0.1 * strokes(v, u))) / 40 for c in color)

    return texel


def stained_glass(width, height):
    """Panes in a lead net: a sun over hills under a pointed arch. What is black lets no light through."""
    rng = random.Random(61)
    seeds = [(rng.random() * width, rng.random() * height) for _ in range(46)]
    sky = [(0.16, 0.36, 0.86), (0.22, 0.52, 0.92), (0.10, 0.24, 0.72), (0.40, 0.66, 0.95)]
    sun = [(1.0, 0.78, 0.16), (1.0, 0.62, 0.10), (1.0, 0.88, 0.40)]
    hill = [(0.16, 0.62, 0.25), (0.50, 0.75, 0.16), (0.08, 0.45, 0.30)]
    rose = [(0.86, 0.12, 0.16), (0.72, 0.08, 0.30), (0.95, 0.30, 0.14)]

    def region(x, y):
        """The picture's areas: 0 border, 1 sun, 2 rays, 3 hills, 4 sky. y grows downwards."""
        margin = min(x, width - x, height - y, y)
        if margin < 0.09 * width:
            return 0
        dx, dy = x - 0.5 * width, y - 0.4 * height
        if math.hypot(dx, dy) < 0.17 * width:
            return 1
        if y > height * (0.70 + 0.07 * math.sin(5.5 * x / width)):
            return 3
        if math.hypot(dx, dy) < 0.36 * width:
            return 2
        return 4

    def pane(x, y):
        """A name for the piece of glass at a point."""
        area = region(x, y)
        if area == 0:
            return area, int(x / width * 5.999) + 7 * int(y / height * 8.999)
        if area in (1, 2):
            turn = math.atan2(y - 0.4 * height, x - 0.5 * width) / (2 * math.pi) + 0.5
            return area, int(turn * (12 if area == 2 else 6)) % 12
        nearest = min(range(len(seeds)), key=lambda k: (seeds[k][0] - x) ** 2 + (seeds[k][1] - y) ** 2)
        return area, nearest

    palettes = {0: rose, 1: sun, 2: sun[:2] + [(1.0, 0.42, 0.12)], 3: hill, 4: sky}

    def texel(x, y):
        name = pane(x + 0.5, y + 0.5)
        reach = 0.011 * width
        around = [pane(x + 0.5 + reach * a, y + 0.5 + reach * b)
                  for a, b in ((1, 0), (-1, 0), (0, 1), (0, -1), (0.7, 0.7), (-0.7, -0.7))]
        if any(other != name for other in around):
            return (0, 0, 0)
        palette = palettes[name[0]]
        pick = name[1] * 7 + (name[1] // 3)
        return palette[pick % len(palette)]

    return texel


def stone(size):
    lichen, spots, cracks = Noise(71, 3, 3, 4), Noise(72, 8, 8, 3), Noise(73, 5, 5, 3)

    def texel(x, y):
        u, v = (x + 0.5) / size, (y + 0.5) / size
        color = scaled((0.60, 0.58, 0.55), 0.62 + 0.7 * lichen(u, v))
        color = blend(color, (0.66, 0.62, 0.36), 0.6 * step(0.60, 0.68, spots(u, v)))
        color = scaled(color, 1 - 0.25 * (1 - step(0.0, 0.02, abs(cracks(u, v) - 0.6))))
        return tuple(round(32 * c) / 32 for c in color)

    return texel


def meadow_ground(size):
    tufts, bare = Noise(81, 12, 12, 3), Noise(82, 3, 3, 3)

    def texel(x, y):
        u, v = (x + 0.5) / size, (y + 0.5) / size
        color = blend((0.30, 0.36, 0.16), (0.46, 0.50, 0.22), tufts(u, v))
        color = blend(color, (0.45, 0.37, 0.24), 0.7 * step(0.55, 0.7, bare(u, v)))
        return tuple(round(32 * c) / 32 for c in color)

    return texel


def blade(width, height):
    """From a dark root at v = 0 to a light tip."""
    def texel(x, y):
        v = 1 - (y + 0.5) / height
        green = blend((0.22, 0.30, 0.10), (0.44, 0.58, 0.20), step(0, 0.7, v))
        return blend(green, (0.74, 0.74, 0.40), step(0.6, 1, v))

    return texel


class Land:
    """A mountain range behind a lake, as heights from 0 to 1 over the unit square; v = 0 is the near side."""

    def __init__(self):
        self.broad, self.bend = Noise(91, 3, 3, 2), Noise(92, 4, 4, 3)
        self.ridges = [Noise(93 + k, 4 << k, 4 << k, 1) for k in range(5)]

    def __call__(self, u, v):
        u0, v0 = u, v
        u, v = u + 0.09 * (self.bend(u, v) - 0.5), v + 0.09 * (self.bend(v, u) - 0.5)
        crest, share, total = 0.0, 1.0, 0.0
        for ridge in self.ridges:
            edge = 1 - abs(2 * ridge(u, v) - 1)
            crest += share * edge * edge * (0.35 + 0.65 * min(2 * total, 1.0) if total else 1.0)
            total = crest / 2
            share *= 0.42
        mountains = step(0.34, 1.0, v0 + 0.14 * (self.broad(u, v) - 0.5))
        basin = math.exp(-((u0 - 0.46) / 0.27) ** 2 - ((v0 - 0.24) / 0.17) ** 2)
        sides = 0.16 * (abs(2 * u0 - 1) ** 2.2)
        return 0.1 + 0.36 * mountains * (0.4 + crest) + sides * (0.5 + crest) + 0.035 * crest - 0.13 * basin


LAKE = 0.077  # height of the water in those of the land


def land_heights(size, land):
    def texel(x, y):
        return (land((x + 0.5) / size, 1 - (y + 0.5) / size),)

    return texel


def land_colors(size, land, high):
    """What grows at a height and on a slope. `high`: the height 1 in widths of the land."""
    patches, grit = Noise(101, 6, 6, 4), Noise(102, 48, 48, 2)
    grass, wood, rock, scree = (0.36, 0.42, 0.20), (0.20, 0.29, 0.14), (0.46, 0.43, 0.40), (0.60, 0.57, 0.52)
    snow, shore = (0.93, 0.94, 0.96), (0.52, 0.47, 0.38)

    def texel(x, y):
        u, v, d = (x + 0.5) / size, 1 - (y + 0.5) / size, 0.7 / size
        height = land(u, v) + 0.03 * (grit(u, v) - 0.5)
        slope = high * math.hypot(land(u + d, v) - land(u - d, v), land(u, v + d) - land(u, v - d)) / (2 * d)
        color = blend(grass, wood, step(0.42, 0.58, patches(u, v)))
        color = blend(color, scree, step(0.27, 0.36, height))
        color = blend(color, blend(rock, scree, grit(v, u)), step(0.5, 0.85, slope))
        color = blend(color, snow, step(0.34, 0.46, height) * (1 - step(0.95, 1.3, slope)))
        color = blend(shore, color, step(LAKE, LAKE + 0.012, height))
        return tuple(round(40 * c * (0.9 + 0.2 * grit(u, v))) / 40 for c in color)

    return texel


def pebbles(size):
    """Bumps of many sizes, as heights, that tile."""
    coarse, fine = Noise(103, 6, 6, 4), Noise(104, 24, 24, 3)

    def texel(x, y):
        u, v = (x + 0.5) / size, (y + 0.5) / size
        return (round(96 * (0.65 * coarse(u, v) + 0.35 * fine(u, v))) / 96,)

    return texel


def spotted_coat(width, height):
    """A cat's coat around a ball: dark rosettes on gold, white below. u goes around, v from the south pole up."""
    rng = random.Random(111)
    spots = []
    for _ in range(1500):
        z, turn = rng.uniform(-0.6, 1), rng.uniform(0, 2 * math.pi)
        r = math.sqrt(1 - z * z)
        place = (r * math.cos(turn), z, r * math.sin(turn))
        if all(sum((a - b) ** 2 for a, b in zip(place, other[0])) > 0.1 for other in spots):
            spots.append((place, rng.uniform(0.12, 0.17), rng.uniform(0, 6.3)))
    gold, dark, middle, white = (0.80, 0.56, 0.26), (0.07, 0.045, 0.03), (0.58, 0.34, 0.13), (0.92, 0.88, 0.80)

    def texel(x, y):
        turn, polar = 2 * math.pi * (x + 0.5) / width, math.pi * (1 - (y + 0.5) / height)
        here = (math.sin(polar) * math.cos(turn), -math.cos(polar), math.sin(polar) * math.sin(turn))
        color = blend(white, gold, step(-0.75, -0.3, here[1]))
        for place, radius, phase in spots:
            away = math.sqrt(sum((a - b) ** 2 for a, b in zip(here, place)))
            if away > 2 * radius:
                continue
            around = math.atan2(here[1] - place[1], (here[0] - place[0]) * place[2] - (here[2] - place[2]) * place[0])
            away /= radius * (1 + 0.25 * math.sin(3 * around + phase))
            color = blend(blend(dark, middle, 1 - step(0.4, 0.6, away)), color, step(0.9, 1.1, away))
        return tuple(round(48 * c) / 48 for c in color)

    return texel


def checkers(x, y):
    return (1.0, 0.98, 0.95) if (x + y) % 2 else (0.34, 0.35, 0.38)


def main():
    scenes = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent / "scenes")
    study, pane, meadow = (scenes / name / "image" for name in ("study", "pane", "meadow"))
    write_png(study / "boards.png", 256, 256, 1, floor_boards(256))
    write_png(study / "grain.png", 64, 128, 1, grain(64, 128))
    write_png(study / "bricks.png", 256, 256, 3, bricks(256))
    write_png(study / "bricks_normal.png", 256, 256, 3, brick_normals(256))
    write_png(study / "wallpaper.png", 128, 128, 3, wallpaper(128))
    write_png(study / "rug.png", 240, 152, 3, rug(240, 152))
    write_png(study / "landscape.png", 192, 132, 3, landscape(192, 132))
    write_png(pane / "glass.png", 160, 240, 3, stained_glass(160, 240))
    write_png(pane / "boards.png", 128, 128, 1, floor_boards(128))
    write_png(meadow / "stone.png", 128, 128, 3, stone(128))
    write_png(meadow / "ground.png", 128, 128, 3, meadow_ground(128))
    write_png(meadow / "blade.png", 2, 32, 3, blade(2, 32))
    write_png(scenes / "tinted/image/checkers.png", 2, 2, 3, checkers)
    terrain, land = scenes / "terrain/image", Land()
    write_png(terrain / "height.png", 256, 256, 1, land_heights(256, land), 2)
    write_png(terrain / "land.png", 256, 256, 3, land_colors(256, land, 0.325))
    write_png(terrain / "pebbles.png", 64, 64, 1, pebbles(64))
    write_png(scenes / "furry/image/coat.png", 192, 96, 3, spotted_coat(192, 96))


if __name__ == "__main__":
    main()
