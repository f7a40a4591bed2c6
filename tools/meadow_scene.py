"""Geometry of the sample scene `meadow`: standing stones in high grass under an evening sky."""

import math
import random

from scene_mesh import Mesh, cross, instance, normalized, turned


def height(x, z):
    """Of the ground: nearly flat around the stones, hills in the distance."""
    far = max(math.hypot(x, z) - 22, 0)
    waves = 0.22 * math.sin(0.31 * x + 0.4) * math.cos(0.27 * z) + 0.12 * math.sin(0.7 * x - 0.5 * z)
    hills = 0.5 + 0.5 * math.sin(0.021 * x + 1.1) * math.cos(0.017 * z + 0.5)
    return waves + hills * 26 * (1 - math.exp(-((far / 130) ** 2)))


def ground_normal(x, z, d=0.1):
    east, south = height(x + d, z) - height(x - d, z), height(x, z + d) - height(x, z - d)
    return normalized((-east / (2 * d), 1, -south / (2 * d)))


def ground(cells, reach):
    """A grid around the stones whose cells grow outwards. The texture tiles every 3 m."""
    mesh = Mesh(2)
    mesh.shader("ground")
    ticks = [math.sinh(4.2 * (2 * i / cells - 1)) / math.sinh(4.2) * reach for i in range(cells + 1)]
    points = [(x, z) for z in ticks for x in ticks]
    mesh.vertices([(x, height(x, z), z) for x, z in points])
    mesh.uvs([(x / 3, -z / 3) for x, z in points])
    mesh.normals([ground_normal(x, z) for x, z in points])
    for j in range(cells):
        for i in range(cells):
            a = j * (cells + 1) + i + 1
            b = a + cells + 1
            mesh.index_face([(k, k, k) for k in (a, b, b + 1, a + 1)])
    return mesh


def tuft(blades, tallest, spread, rng):
    """Bent blades around the origin, each of a quadrangle and a tip. v of the picture runs from root to tip."""
    mesh = Mesh()
    mesh.shader("grass")
    mesh.uvs([(0, 0.02), (1, 0.02), (1, 0.6), (0, 0.6), (0.5, 0.98)])
    for _ in range(blades):
        angle, lean_angle = rng.uniform(0, 2 * math.pi), rng.uniform(0, 2 * math.pi)
        r = spread * math.sqrt(rng.random())
        x, z = r * math.cos(angle), r * math.sin(angle)
        tall, width = tallest * rng.uniform(0.45, 1), rng.uniform(0.004, 0.008)
        lean = tall * rng.uniform(0.1, 0.55)
        dx, dz = lean * math.cos(lean_angle), lean * math.sin(lean_angle)
        facing = lean_angle + math.pi / 2 + rng.uniform(-0.6, 0.6)
        wx, wz = width * math.cos(facing), width * math.sin(facing)
        v = mesh.vertices([(x - wx, -0.03, z - wz), (x + wx, -0.03, z + wz),
                           (x + 0.3 * dx + 0.8 * wx, 0.6 * tall, z + 0.3 * dz + 0.8 * wz),
                           (x + 0.3 * dx - 0.8 * wx, 0.6 * tall, z + 0.3 * dz - 0.8 * wz),
                           (x + dx, tall * 0.97, z + dz)])
        mesh.index_face([(v, 1, None), (v + 1, 2, None), (v + 2, 3, None), (v + 3, 4, None)])
        mesh.index_face([(v + 3, 4, None), (v + 2, 3, None), (v + 4, 5, None)])
    return mesh


def flowers(petal_shader, petals, size, tallest, count, rng):
    mesh = Mesh()
    mesh.uvs([(0.5, 0.3)])
    heads = []
    for _ in range(count):
        x, z, tall = rng.uniform(-0.3, 0.3), rng.uniform(-0.3, 0.3), tallest * rng.uniform(0.7, 1)
        top = (x + rng.uniform(-0.06, 0.06), tall, z + rng.uniform(-0.06, 0.06))
        mesh.shader("grass")
        v = mesh.vertices([(x - 0.003, 0, z), (x + 0.003, 0, z), top])
        mesh.index_face([(v, 1, None), (v + 1, 1, None), (v + 2, 1, None)])
        heads.append((top, normalized((rng.uniform(-0.7, 0.7), 1, rng.uniform(-0.2, 0.8)))))
    for middle, up in heads:
        mesh.shader(petal_shader)
        side = normalized(cross(up, (0.3, 0.1, 1)))
        forth = cross(side, up)

        def rim(turn, reach, lift):
            c, s = reach * math.cos(turn), reach * math.sin(turn)
            return tuple(m + c * a + s * b + lift * u for m, a, b, u in zip(middle, side, forth, up))

        for k in range(petals):
            turn = 2 * math.pi * k / petals
            half = 0.85 * math.pi / petals
            lift = 0.25 * size
            v = mesh.vertices([rim(turn, 0.1 * size, 0), rim(turn - half, size, lift), rim(turn + half, size, lift)])
            mesh.index_face([(v, 1, None), (v + 1, 1, None), (v + 2, 1, None)])
        mesh.shader("pollen")
        eye = [rim(2 * math.pi * k / 5, 0.35 * size, 0.12 * size) for k in range(5)]
        v = mesh.vertices(eye + [rim(0, 0, 0.3 * size)])
        for k in range(5):
            mesh.index_face([(v + (k + 1) % 5, 1, None), (v + k, 1, None), (v + 5, 1, None)])
    return mesh


def stone(size, taper, seed, rows=14, sides=22):
    """A rough block around the origin, `size` its half extents, narrower at the top by `taper`."""
    rng = random.Random(seed)
    waves = [([rng.gauss(0, 1.6 * 1.7 ** k) for _ in range(3)], rng.uniform(0, 6.3), 0.075 / 1.6 ** k)
             for k in range(5) for _ in range(2)]
    lean = (rng.uniform(-0.12, 0.12), rng.uniform(-0.08, 0.08))

    def rounded(c, s, power):
        return 1 / (abs(c) ** power + abs(s) ** power) ** (1 / power)

    def point(turn, t):
        """turn and t from 0 to 1: around and up."""
        a, b = 2 * math.pi * turn, math.pi * (t - 0.5)
        r = rounded(math.cos(b), math.sin(b), 5)
        q = r * math.cos(b) * rounded(math.cos(a), math.sin(a), 4)
        p = [q * math.cos(a), r * math.sin(b), -q * math.sin(a)]
        swell = 1 + sum(s * math.sin(sum(k * c for k, c in zip(w, p)) + o) for w, o, s in waves)
        narrow = 1 - taper * (0.5 + 0.5 * p[1])
        return (size[0] * p[0] * swell * narrow + lean[0] * size[1] * p[1], size[1] * p[1] * (0.7 + 0.3 * swell),
                size[2] * p[2] * swell * narrow + lean[1] * size[1] * p[1])

    def normal(turn, t):
        t = min(max(t, 0.01), 0.99)
        along = [b - a for a, b in zip(point(turn - 0.01, t), point(turn + 0.01, t))]
        up = [b - a for a, b in zip(point(turn, t - 0.01), point(turn, t + 0.01))]
        return normalized(cross(along, up))

    mesh = Mesh()
    mesh.shader("stone")
    grid = [(i / sides, j / rows) for j in range(rows + 1) for i in range(sides + 1)]
    mesh.vertices([point(*g) for g in grid])
    around = round(2 * (size[0] + size[2]) / 1.2) or 1
    mesh.uvs([(u * around, v * size[1]) for u, v in grid])
    mesh.normals([normal(*g) for g in grid])
    for j in range(rows):
        for i in range(sides):
            a = j * (sides + 1) + i + 1
            b = a + sides + 1
            ring = [a, a + 1, b + 1, b]
            if j == 0:
                ring = [a, b + 1, b]
            if j == rows - 1:
                ring = [a, a + 1, b]
            mesh.index_face([(k, k, k) for k in ring])
    return mesh


def on_slope(x, z, angle):
    """Columns of a rotation that stands upright on the ground, turned by `angle`."""
    up = ground_normal(x, z, 0.8)
    forward = (math.sin(angle), 0, math.cos(angle))
    side = normalized(cross(up, forward))
    return side, up, cross(side, up)


STONES = (  # x, z, turn in degrees, kind, how deep it stands
    (-4.4, -1.2, 70, "menhir_a", 0.25), (-2.9, -4.6, 30, "menhir_b", 0.2), (3.3, -4.2, -35, "menhir_a", 0.4),
    (4.7, -0.9, -70, "menhir_b", 0.3), (4.1, 3.9, -150, "menhir_c", 0.3), (-3.9, 2.6, 120, "menhir_c", 0.35),
    (-0.95, -5.6, 4, "menhir_a", 0.1), (1.35, -5.5, -8, "menhir_b", 0.02))


def patch(rng, count, flower_share):
    """Instances of tufts and flowers over a square of 2 m around the origin."""
    lines = []
    for _ in range(count):
        flower = rng.random() < flower_share
        kind = rng.choice(["daisy", "daisy", "poppy"] if flower else ["tuft_a", "tuft_b", "tuft_b"])
        lines += instance(kind, (rng.uniform(-1, 1), 0, rng.uniform(-1, 1)), turned(rng.uniform(0, 2 * math.pi)))
    return lines


def field(rng):
    """Patches on every square of 2 m that the camera at (0.6, 1.45, 12.5) may see within 42 m."""
    lines = []
    for j in range(-17, 7):
        for i in range(-17, 18):
            x, z = 2 * i, 2 * j
            away = 12.5 - z
            if abs(x - 0.6) > 0.62 * away + 2.5:
                continue
            columns = on_slope(x, z, rng.randrange(4) * math.pi / 2)
            lines += instance(rng.choice(["patch_a", "patch_b", "patch_c"]), (x, height(x, z), z), columns)
    return lines


def write_meadow(folder, tree):
    rng = random.Random(77)
    meshes = {
        "ground": ground(26, 420), "tree": tree,
        "tuft_a": tuft(34, 0.42, 0.16, rng), "tuft_b": tuft(38, 0.3, 0.2, rng),
        "daisy": flowers("daisy", 7, 0.028, 0.42, 5, rng), "poppy": flowers("poppy", 4, 0.042, 0.5, 3, rng),
        "menhir_a": stone((0.62, 1.75, 0.36), 0.25, 5), "menhir_b": stone((0.52, 1.75, 0.42), 0.12, 9),
        "menhir_c": stone((0.75, 1.1, 0.5), 0.3, 12), "lintel": stone((0.3, 1.8, 0.45), 0.06, 21)}
    for name, mesh in meshes.items():
        mesh.write(folder / f"geometry/{name}.obj")

    lines = ["# written by tools/make_scenes.py"]
    for name in meshes:
        if name != "ground":
            lines += ["object", f"    name {name}", f'    obj "geometry/{name}.obj"', "end"]
    for name in ("patch_a", "patch_b", "patch_c"):
        lines += ["object", f"    name {name}"] + patch(rng, 64, 0.12) + ["end"]
    lines += ["# the last object that nothing places is the whole scene", "object", "    name meadow",
              '    obj "geometry/ground.obj"']
    for x, z, turn, kind, depth in STONES:
        half = 1.1 if kind == "menhir_c" else 1.75
        lines += instance(kind, (x, height(x, z) + half - depth, z), turned(math.radians(turn)))
    # The lintel is a stone laid down: its height runs along x.
    lines += instance("lintel", (0.2, height(0.2, -5.55) + 3.68, -5.55), ((0, 1, 0), (1, 0, 0), (0, 0, -1)))
    for x, z, turn in ((-17, -34, 10), (-22, -40, 80), (-13, -46, 160), (26, -48, 200), (14, -62, 40), (-40, -60, 300),
                       (33, -42, 110), (-5, -70, 20)):
        lines += instance("tree", (x, height(x, z), z), turned(math.radians(turn)))
    lines += field(rng)
    (folder / "geometry/scene.hv").write_text("\n".join(lines + ["end"]) + "\n")
