#!/usr/bin/env python3
"""Writes the geometry of the sample scenes under scenes/. The same numbers come out every time.

The OBJ files and the .hv files that say so in their first line are its output and are kept beside the hand-written .hv
files, so that rendering needs no Python. tools/make_textures.py draws the pictures. Lengths are metres, y is up.
Instances are placed by rotation and translation only: distances along a ray are those of the space it is walked in.
"""

import math
import pathlib
import random
import sys

from bust_scene import write_bust
from indoor_scenes import write_pane, write_plates, write_study, write_tinted
from meadow_scene import write_meadow
from photon_scenes import write_photon_scenes
from scene_mesh import Mesh, ball, cross, instance, normalized, numbers
from strand_scenes import write_furry, write_hair_scene
from terrain_scene import write_terrain


def room():
    mesh = Mesh()
    w, h, d = 2.2, 2.8, 3.0  # half width, height, half depth
    mesh.shader("floor")
    mesh.face([(-w, 0, d), (w, 0, d), (w, 0, -d), (-w, 0, -d)])
    mesh.shader("plaster")
    mesh.face([(-w, h, -d), (w, h, -d), (w, h, d), (-w, h, d)])
    mesh.face([(-w, 0, -d), (w, 0, -d), (w, h, -d), (-w, h, -d)])
    mesh.face([(w, 0, d), (-w, 0, d), (-w, h, d), (w, h, d)])
    mesh.shader("ochre")
    mesh.face([(-w, 0, d), (-w, 0, -d), (-w, h, -d), (-w, h, d)])
    mesh.shader("teal")
    mesh.face([(w, 0, -d), (w, 0, d), (w, h, d), (w, h, -d)])
    mesh.shader("lamp")
    mesh.face([(-1.3, h - 0.02, -1.9), (1.3, h - 0.02, -1.9), (1.3, h - 0.02, 1.4), (-1.3, h - 0.02, 1.4)])
    mesh.shader("wood")
    mesh.box((-1.1, 0.7, -1.3), (1.1, 0.76, -0.2))
    for x in (-1.05, 0.97):
        for z in (-1.25, -0.33):
            mesh.box((x, 0, z), (x + 0.08, 0.7, z + 0.08))
    mesh.box((1.45, 0, -2.95), (2.15, 1.3, -2.0))
    mesh.shader("paint")
    mesh.box((-2.1, 0, -2.2), (-1.55, 0.5, -1.65))
    mesh.box((-2.05, 0.5, -2.15), (-1.65, 0.9, -1.75))
    mesh.shader("mirror")
    mesh.box((-0.8, 1.1, -2.99), (0.9, 2.2, -2.95))
    return mesh


def cone(mesh, sides, radius, low, high, lean):
    """An open cone whose rim wavers: corners pulled out and in by `lean` of its radius."""
    rim = []
    for i in range(sides):
        angle = 2 * math.pi * i / sides
        r = radius * (1 + lean * (1 if i % 2 else -1))
        rim.append((r * math.cos(angle), low - 0.06 * (i % 2), -r * math.sin(angle)))
    first = mesh.vertices(rim + [(0, high, 0)])
    for i in range(sides):
        mesh.index_face([(first + i, None, None), (first + (i + 1) % sides, None, None), (first + sides, None, None)])


def fir(height, tiers, rng):
    mesh = Mesh()
    mesh.shader("bark")
    cone(mesh, 6, 0.035 * height, -0.3, 0.9 * height, 0)
    mesh.shader("needles")
    for tier in range(tiers):
        t = tier / tiers
        low = height * (0.12 + 0.78 * t)
        radius = height * 0.26 * (1 - t) ** 0.8 * rng.uniform(0.9, 1.1)
        cone(mesh, 14, radius, low, low + height * (0.3 - 0.16 * t), 0.14)
    return mesh


def broadleaf(height, leaves, rng):
    mesh = Mesh()
    mesh.shader("bark")
    cone(mesh, 7, 0.04 * height, -0.3, 0.8 * height, 0)
    mesh.shader("leaves")
    for _ in range(leaves):
        outward = normalized([rng.gauss(0, 1) for _ in range(3)])
        r = rng.uniform(0.55, 1.0)
        centre = [0.3 * height * r * outward[0], height * (0.66 + 0.32 * r * outward[1]), 0.3 * height * r * outward[2]]
        side = normalized([rng.gauss(0, 1) for _ in range(3)])
        # A leaf clump lies across the direction to the crown's middle.
        dot = sum(a * b for a, b in zip(side, outward))
        side = normalized([s - dot * o + 0.3 * rng.gauss(0, 1) for s, o in zip(side, outward)])
        up = cross(outward, side)
        size = 0.085 * height * rng.uniform(0.7, 1.2)
        mesh.face([[c + size * (a * s + b * u) for c, s, u in zip(centre, side, up)]
                   for a, b in ((-0.6, -0.5), (0.6, -0.5), (0, 0.9))])
    return mesh


def ground_height(x, z):
    return 0.5 * math.sin(0.21 * x + 0.4) * math.cos(0.17 * z) + 0.9 * math.sin(0.07 * z + 0.09 * x)


def ground(size, cells):
    mesh = Mesh()
    mesh.shader("moss")
    step = 2 * size / cells
    points, normals = [], []
    for j in range(cells + 1):
        for i in range(cells + 1):
            x, z = -size + i * step, -size + j * step
            points.append((x, ground_height(x, z), z))
            dx = (ground_height(x + 0.05, z) - ground_height(x - 0.05, z)) / 0.1
            dz = (ground_height(x, z + 0.05) - ground_height(x, z - 0.05)) / 0.1
            normals.append(normalized((-dx, 1, -dz)))
    mesh.vertices(points)
    mesh.normals(normals)
    for j in range(cells):
        for i in range(cells):
            a = j * (cells + 1) + i + 1
            b = a + cells + 1
            mesh.index_face([(a, None, a), (b, None, b), (b + 1, None, b + 1)])
            mesh.index_face([(a, None, a), (b + 1, None, b + 1), (a + 1, None, a + 1)])
    return mesh


def forest_instances(kinds, count, size, rng):
    """An object that places `count` trees, none closer than 1.3 m to another, leaving a clearing around the camera."""
    lines = ["# written by tools/make_scenes.py", "object", "    name forest", '    obj "geometry/ground.obj"']
    placed = []
    while len(placed) < count:
        x, z = rng.uniform(-size, size), rng.uniform(-size, size)
        on_path = abs(x - 2.2 * math.sin(0.16 * z)) < 2.0 + 0.03 * abs(z) and z > -22
        near_camera = math.hypot(x - 0.5, z - 20) < 5
        if on_path or near_camera or any((x - p) ** 2 + (z - q) ** 2 < 1.7 for p, q in placed):
            continue
        placed.append((x, z))
        kind = rng.choices(kinds, weights=[5, 4, 3, 2, 2])[0]
        angle = rng.uniform(0, 2 * math.pi)
        c, s = math.cos(angle), math.sin(angle)
        matrix = numbers([c, 0, s, x, 0, 1, 0, ground_height(x, z), -s, 0, c, z, 0, 0, 0, 1], 3)
        lines += ["    instance", f"        object {kind}", f"        matrix {matrix}", "    end"]
    return "\n".join(lines + ["end"]) + "\n"


def avenue():
    """A road between two rows of posts, and a cart on it. The cart stands at z = 0."""
    mesh = Mesh()
    for name, left, right in (("grass", -40, -1.6), ("road", -1.6, 1.6), ("grass", 1.6, 40)):
        mesh.shader(name)
        mesh.face([(left, 0, 12), (right, 0, 12), (right, 0, -60), (left, 0, -60)])
    mesh.shader("stripe")
    for k in range(14):
        z = 5 - 4 * k
        mesh.face([(-0.07, 0.002, z), (0.07, 0.002, z), (0.07, 0.002, z - 2), (-0.07, 0.002, z - 2)])
    return mesh


def post():
    mesh = Mesh()
    for k, name in enumerate(("white", "red", "white", "red", "white")):
        mesh.shader(name)
        mesh.lathe([(0.07, 0.35 * k), (0.07, 0.35 * (k + 1))], 16)
    mesh.lathe([(0.07, 1.75), (0.07, 1.75), (0.05, 1.8), (0, 1.82)], 16)
    return mesh


def cart():
    """A plain cart on four wheels that stands at the origin and points to -z."""
    mesh = Mesh()
    mesh.shader("paint")
    mesh.box((-0.55, 0.35, -1.1), (0.55, 0.75, 1.1))
    mesh.box((-0.45, 0.751, -0.35), (0.45, 1.1, 0.8))
    mesh.shader("tyre")
    for x in (-0.56, 0.56):
        for z in (-0.7, 0.7):
            turn = [(0.3 * math.cos(a), 0.3 * math.sin(a)) for a in (2 * math.pi * i / 24 for i in range(24))]
            low, high = x - 0.09, x + 0.09
            first = mesh.vertices([(at, 0.302 + b, z + a) for at in (low, high) for a, b in turn])
            for i in range(24):
                j = (i + 1) % 24
                mesh.index_face([(first + k, None, None) for k in (i, j, j + 24, i + 24)])
            for start, way in ((0, 1), (24, -1)):
                hub = mesh.vertices([((low, high)[start > 0], 0.302, z)])
                for i in range(24):
                    pair = (first + start + i, first + start + (i + 1) % 24)[::-way]
                    mesh.index_face([(k, None, None) for k in (hub, *pair)])
    return mesh


def moving_objects():
    lines = ["# written by tools/make_scenes.py"]
    for name in ("post", "cart"):
        lines += ["object", f"    name {name}", f'    obj "geometry/{name}.obj"', "end"]
    lines += ["object", "    name scene", '    obj "geometry/avenue.obj"']
    lines += instance("cart", (0.1, 0, -1))
    for k in range(18):
        for x in (-2.2, 2.2):
            lines += instance("post", (x, 0, 4 - 2.6 * k))
    return "\n".join(lines + ["end"]) + "\n"


def main():
    scenes = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent / "scenes")
    room().write(scenes / "room/geometry/room.obj")
    ball(2, 0.22).write(scenes / "room/geometry/ball.obj")
    ball(3, 1.0).write(scenes / "balls/geometry/ball.obj")

    rng = random.Random(2026)
    trees = {"fir_tall": fir(6.5, 7, rng), "fir_mid": fir(4.6, 6, rng), "fir_small": fir(2.4, 4, rng),
             "oak_tall": broadleaf(5.2, 300, rng), "oak_small": broadleaf(3.1, 170, rng)}
    for name, mesh in trees.items():
        mesh.write(scenes / f"forest/geometry/{name}.obj")
    ground(34, 14).write(scenes / "forest/geometry/ground.obj")
    (scenes / "forest/geometry/trees.hv").write_text(forest_instances(list(trees), 380, 32, rng))

    write_study(scenes / "study")
    write_plates(scenes / "plates")
    write_pane(scenes / "pane")
    write_tinted(scenes / "tinted")
    write_photon_scenes(scenes)
    avenue().write(scenes / "moving/geometry/avenue.obj")
    post().write(scenes / "moving/geometry/post.obj")
    cart().write(scenes / "moving/geometry/cart.obj")
    (scenes / "moving/geometry/scene.hv").write_text(moving_objects())
    write_terrain(scenes / "terrain")
    write_bust(scenes / "bust")
    write_furry(scenes / "furry")
    write_hair_scene(scenes / "hair")
    write_meadow(scenes / "meadow", broadleaf(7.5, 340, random.Random(99)))


if __name__ == "__main__":
    main()
