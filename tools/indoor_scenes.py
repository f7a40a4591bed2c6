"""Geometry of the sample scenes that stand in rooms and studios: study, plates, pane and tinted."""

import math
import random

from scene_mesh import Mesh, ball, cross, icosphere, instance, normalized, turned


def quad(mesh, origin, u_axis, v_axis, scale=None, uvs=None):
    """A rectangle from its corner at the low left and its two sides, seen from the front. `scale` as in Mesh.box, or
    the texture coordinates of (low, high)."""
    corners = [tuple(o + a * u + b * v for o, u, v in zip(origin, u_axis, v_axis))
               for a, b in ((0, 0), (1, 0), (1, 1), (0, 1))]
    if scale:
        width, height = (math.sqrt(sum(c * c for c in axis)) / scale for axis in (u_axis, v_axis))
        uvs = ((0, 0), (width, height))
    texels = None
    if uvs:
        (u0, v0), (u1, v1) = uvs
        texels = [(u0, v0), (u1, v0), (u1, v1), (u0, v1)]
    mesh.face(corners, texels)


def frame(mesh, low, high, width, depth, scale=None):
    """Four bars around a rectangle of a wall that faces +z."""
    x0, y0, z = low
    x1, y1, _ = high
    mesh.box((x0 - width, y0 - width, z), (x1 + width, y0, z + depth), scale=scale)
    mesh.box((x0 - width, y1, z), (x1 + width, y1 + width, z + depth), scale=scale)
    mesh.box((x0 - width, y0, z), (x0, y1, z + depth), scale=scale)
    mesh.box((x1, y0, z), (x1 + width, y1, z + depth), scale=scale)


def study_walls():
    """The room: bricks behind, papered walls beside, a window on the left, boards on the floor."""
    mesh = Mesh()
    x0, x1, z0, z1, top = -2.2, 2.2, -2.2, 3.6, 2.6
    depth = z1 - z0
    mesh.shader("boards")
    # v runs along z, the way of the boards. 1.2 m are one width of the picture.
    quad(mesh, (x0, 0, z1), (x1 - x0, 0, 0), (0, 0, -depth), scale=1.2)
    mesh.shader("bricks")
    # u along x and v along y: the frame that a wall facing +z has for its normal map.
    quad(mesh, (x0, 0, z0), (x1 - x0, 0, 0), (0, top, 0), scale=1.0)
    mesh.shader("plaster")
    quad(mesh, (x0, top, z0), (x1 - x0, 0, 0), (0, 0, depth))
    quad(mesh, (x1, 0, z1), (x0 - x1, 0, 0), (0, top, 0))
    mesh.shader("wallpaper")
    quad(mesh, (x1, 0, z0), (0, 0, depth), (0, top, 0), scale=0.7)
    # The left wall leaves a hole for the window.
    low, high, near, far = 0.85, 2.15, 0.15, -1.25
    quad(mesh, (x0, 0, z1), (0, 0, -depth), (0, low, 0), scale=0.7)
    quad(mesh, (x0, high, z1), (0, 0, -depth), (0, top - high, 0), uvs=((0, high / 0.7), (depth / 0.7, top / 0.7)))
    quad(mesh, (x0, low, z1), (0, 0, near - z1), (0, high - low, 0),
         uvs=((0, low / 0.7), ((z1 - near) / 0.7, high / 0.7)))
    quad(mesh, (x0, low, far), (0, 0, z0 - far), (0, high - low, 0),
         uvs=(((z1 - far) / 0.7, low / 0.7), (depth / 0.7, high / 0.7)))
    mesh.shader("lacquer")
    mesh.box((x0 - 0.25, low - 0.04, far - 0.05), (x0 + 0.12, low, near + 0.05))
    mesh.box((x0 - 0.25, high, far - 0.05), (x0 + 0.03, high + 0.05, near + 0.05))
    mesh.box((x0 - 0.25, low, far - 0.05), (x0 + 0.03, high, far))
    mesh.box((x0 - 0.25, low, near), (x0 + 0.03, high, near + 0.05))
    middle = 0.5 * (near + far)
    mesh.box((x0 - 0.14, low, middle - 0.025), (x0 - 0.09, high, middle + 0.025))
    mesh.box((x0 - 0.14, 1.62, far), (x0 - 0.09, 1.66, near))
    for box in (((x0, 0, z0), (x1, 0.1, z0 + 0.02)), ((x0, 0, z0), (x0 + 0.02, 0.1, z1)),
                ((x1 - 0.02, 0, z0), (x1, 0.1, z1))):
        mesh.box(*box)
    return mesh


def study_furniture():
    mesh = Mesh()
    mesh.shader("oak")
    mesh.box((0.15, 0.7, -2.12), (1.85, 0.75, -1.4), scale=0.35)
    mesh.box((1.3, 0.1, -2.1), (1.8, 0.7, -1.45), scale=0.35)
    for z in (-2.08, -1.5):
        mesh.box((0.2, 0, z), (0.27, 0.7, z + 0.07), scale=0.35)
    for y in (0.15, 0.42):
        mesh.box((1.34, y, -1.45), (1.76, y + 0.22, -1.43), scale=0.35)
        mesh.box((1.51, y + 0.1, -1.43), (1.59, y + 0.12, -1.41), scale=0.35)
    # A chair before the desk, seen from behind.
    for x in (0.42, 0.8):
        mesh.box((x, 0, -0.95), (x + 0.04, 0.92, -0.91), scale=0.35)
        mesh.box((x, 0, -1.33), (x + 0.04, 0.45, -1.29), scale=0.35)
    mesh.box((0.4, 0.45, -1.35), (0.86, 0.49, -0.91), scale=0.35)
    for y in (0.6, 0.72, 0.84):
        mesh.box((0.46, y, -0.945), (0.8, y + 0.06, -0.92), scale=0.35)
    # Shelves on the left.
    for x in (-1.95, -0.75):
        mesh.box((x, 0, -2.18), (x + 0.04, 1.9, -1.86), scale=0.35)
    for y in (0.06, 0.5, 0.94, 1.38, 1.86):
        mesh.box((-1.91, y, -2.18), (-0.75, y + 0.04, -1.87), scale=0.35)
    mesh.shader("gilt")
    frame(mesh, (0.3, 1.3, -2.2), (1.12, 1.86, -2.2), 0.06, 0.04)
    mesh.shader("landscape")
    quad(mesh, (0.3, 1.3, -2.185), (0.82, 0, 0), (0, 0.56, 0), uvs=((0, 0), (1, 1)))
    mesh.shader("rug")
    quad(mesh, (-1.45, 0.012, 0.2), (2.2, 0, 0), (0, 0, -1.4), uvs=((0, 0), (1, 1)))
    mesh.shader("fringe")
    mesh.box((-1.45, 0, -1.2), (0.75, 0.011, 0.2))
    return mesh


def study_books(rng):
    mesh = Mesh()
    colors = ["book_red", "book_green", "book_blue", "book_cream", "book_brown"]
    for shelf in (0.1, 0.54, 0.98, 1.42):
        x, last = -1.89, None
        while x < -0.85:
            if rng.random() < 0.07 and x < -1.0:
                x += rng.uniform(0.06, 0.16)
            width, height, depth = rng.uniform(0.025, 0.06), rng.uniform(0.24, 0.37), rng.uniform(0.17, 0.23)
            last = rng.choice([c for c in colors if c != last])
            mesh.shader(last)
            mesh.box((x, shelf, -2.17), (x + width, shelf + height, -2.17 + depth + 0.06))
            x += width + 0.003
    y = 0.75
    for width, depth, height, color in ((0.3, 0.21, 0.04, "book_green"), (0.27, 0.2, 0.035, "book_cream"),
                                        (0.23, 0.17, 0.03, "book_red")):
        mesh.shader(color)
        mesh.box((0.3, y, -1.95), (0.3 + width, y + height, -1.95 + depth))
        y += height
    return mesh


def study_lamp():
    """A table lamp around the origin: foot, stem and a cloth shade, open above and below, around a glowing bulb."""
    mesh = Mesh()
    mesh.shader("glaze")
    mesh.lathe([(0, 0), (0.09, 0), (0.09, 0), (0.1, 0.02), (0.08, 0.05), (0.1, 0.12), (0.085, 0.19), (0.03, 0.25),
                (0.02, 0.28), (0.02, 0.28), (0, 0.28)], 24)
    mesh.shader("gilt")
    mesh.lathe([(0.01, 0.28), (0.01, 0.36), (0.01, 0.36), (0, 0.36)], 8)
    mesh.shader("shade")
    mesh.lathe([(0.2, 0.3), (0.13, 0.55)], 32)
    mesh.shader("bulb")
    bulb = [(math.sin(a) * 0.04, 0.41 - 0.05 * math.cos(a)) for a in (math.pi * k / 8 for k in range(9))]
    bulb[0], bulb[-1] = (0, bulb[0][1]), (0, bulb[-1][1])
    mesh.lathe(bulb, 12)
    return mesh


def study_pots():
    """A vase on the desk and a stool with a cushion on the rug, around the middle of the room."""
    vase, stool = Mesh(), Mesh()
    vase.shader("glaze")
    vase.lathe([(0, 0), (0.05, 0), (0.05, 0), (0.09, 0.06), (0.1, 0.13), (0.07, 0.2), (0.035, 0.25), (0.045, 0.29),
                (0.04, 0.29), (0.03, 0.25), (0.0, 0.22)], 32)
    stool.shader("cushion")
    corner = [(0.2 + 0.1 * math.sin(a), 0.28 - 0.1 * math.cos(a)) for a in (math.pi * k / 12 for k in range(6, 13))]
    foot = [(r, 0.402 - y) for r, y in reversed(corner)]
    stool.lathe([(0, 0.02)] + foot + corner + [(0.1, 0.388), (0, 0.39)], 48, turns=10, height_scale=6)
    return vase, stool


def study_scene():
    lines = ["# written by tools/make_scenes.py"]
    for name in ("lamp", "vase", "stool"):
        lines += ["object", f"    name {name}", f'    obj "geometry/{name}.obj"', "end"]
    lines += ["# the last object that nothing places is the whole scene", "object", "    name study"]
    lines += [f'    obj "geometry/{name}.obj"' for name in ("walls", "furniture", "books")]
    lines += instance("lamp", (1.45, 0.75, -1.75))
    lines += instance("vase", (0.95, 0.75, -1.9))
    lines += instance("stool", (-0.95, 0.012, -0.75))
    return "\n".join(lines + ["end"]) + "\n"


def write_study(folder):
    rng = random.Random(314)
    vase, stool = study_pots()
    meshes = {"walls": study_walls(), "furniture": study_furniture(), "books": study_books(rng), "lamp": study_lamp(),
              "vase": vase, "stool": stool}
    for name, mesh in meshes.items():
        mesh.write(folder / f"geometry/{name}.obj")
    (folder / "geometry/scene.hv").write_text(study_scene())


PLATES_EYE = (0, 2.0, 10.0)  # as in scenes/plates/camera/main.hv
EMITTERS = (("large", 0.52), ("medium", 0.26), ("small", 0.13), ("tiny", 0.065))


def plates():
    """Four plates, each tilted so that the camera sees the row of emitters in its middle; after Veach and Guibas 1995.
    The emitters' areas fall by four from one to the next, as their radiance in shader/materials.hv rises."""
    mesh = Mesh(4)
    lamps = (0, 2.85, 1.2)
    for index, (y, z) in enumerate(((-0.62, 2.5), (0.05, 1.8), (0.72, 1.05), (1.4, 0.2))):
        mesh.shader(f"plate{index + 1}")
        centre = (0, y, z)
        to_eye = normalized([e - c for e, c in zip(PLATES_EYE, centre)])
        to_lamps = normalized([e - c for e, c in zip(lamps, centre)])
        normal = normalized([a + b for a, b in zip(to_eye, to_lamps)])
        along, back = (3, 0, 0), [0.42 * c for c in cross(normal, (1, 0, 0))]
        slab(mesh, centre, along, back, normal, 0.05)
    mesh.shader("stage")
    quad(mesh, (-14, -1.2, 14), (28, 0, 0), (0, 0, -18))
    quad(mesh, (-14, -1.2, -4), (28, 0, 0), (0, 14, 0))
    for (name, radius), x in zip(EMITTERS, (-2.3, -0.75, 0.75, 2.25)):
        mesh.shader(name)
        points, faces = icosphere(3 if radius > 0.1 else 2)
        first = mesh.vertices([(x + radius * p[0], lamps[1] + radius * p[1], lamps[2] + radius * p[2]) for p in points])
        for face in faces:
            mesh.index_face([(first + i, None, None) for i in face])
    return mesh


def slab(mesh, centre, half_u, half_v, up, thickness):
    """A flat box: `centre` of its upper side, half its two sides (u, v, up right-handed), and its thickness."""
    def corner(a, b, c):
        return tuple(m + a * u + b * v - c * thickness * n for m, u, v, n in zip(centre, half_u, half_v, up))

    low = mesh.vertices([corner(a, b, c) for c in (1, 0) for b in (-1, 1) for a in (-1, 1)])
    for side in ((0, 2, 3, 1), (4, 5, 7, 6), (0, 1, 5, 4), (2, 6, 7, 3), (0, 4, 6, 2), (1, 3, 7, 5)):
        mesh.index_face([(low + i, None, None) for i in side])


def write_plates(folder):
    plates().write(folder / "geometry/plates.obj")


def pane():
    """A window of coloured glass in a frame that stands free before a corner of two walls."""
    mesh = Mesh()
    mesh.shader("boards")
    quad(mesh, (-3, 0, 3), (6.5, 0, 0), (0, 0, -5), scale=1.6)
    mesh.shader("wall")
    quad(mesh, (-3, 0, -2), (6.5, 0, 0), (0, 4, 0))
    quad(mesh, (3.5, 0, -2), (0, 0, 5), (0, 4, 0))
    return mesh


def glass_frame():
    """The pane stands at the origin and faces +z, 0.8 m wide and 1.2 m high, its foot on the floor."""
    mesh = Mesh()
    mesh.shader("iron")
    frame(mesh, (-0.4, 0.25, -0.03), (0.4, 1.45, -0.03), 0.09, 0.06)
    for x in (-0.49, 0.44):
        mesh.box((x, 0, -0.03), (x + 0.05, 0.16, 0.03))
        mesh.box((x - 0.01, 0, -0.22), (x + 0.06, 0.04, 0.22))
    mesh.shader("glass")
    quad(mesh, (-0.4, 0.25, 0), (0.8, 0, 0), (0, 1.2, 0), uvs=((0, 0), (1, 1)))
    return mesh


def write_pane(folder):
    pane().write(folder / "geometry/corner.obj")
    glass_frame().write(folder / "geometry/frame.obj")
    figure = Mesh()
    figure.shader("chalk")
    figure.lathe([(0, 0), (0.16, 0), (0.16, 0), (0.165, 0.03), (0.14, 0.07), (0.09, 0.1), (0.075, 0.16), (0.06, 0.3),
                  (0.07, 0.36), (0.1, 0.38), (0.1, 0.4), (0.055, 0.42), (0.06, 0.44), (0.1, 0.49), (0.115, 0.55),
                  (0.1, 0.61), (0.06, 0.65), (0, 0.665)], 32)
    figure.write(folder / "geometry/figure.obj")
    lines = ["# written by tools/make_scenes.py"]
    for name in ("frame", "figure"):
        lines += ["object", f"    name {name}", f'    obj "geometry/{name}.obj"', "end"]
    lines += ["# the last object that nothing places is the whole scene", "object", "    name corner",
              '    obj "geometry/corner.obj"']
    lines += instance("frame", (-0.75, 0, 0.2), turned(math.radians(-25)))
    lines += instance("figure", (0.62, 0, -0.85))
    (folder / "geometry/scene.hv").write_text("\n".join(lines + ["end"]) + "\n")


def stairs(mesh, width, steps):
    """A block whose front is flat and whose depth falls from step to step: the same glass, ever thinner. `steps` holds
    (height, depth) of each, from below; the front faces +z."""
    outline, low = [(0, 0), (0, -steps[0][1])], 0
    for (height, depth), (_, above) in zip(steps, steps[1:] + [(0, 0)]):
        low += height
        outline += [(low, -depth), (low, -above)]
    outline = outline[:-1] + [(low, 0)]
    half = 0.5 * width
    for (y0, z0), (y1, z1) in zip(outline, outline[1:] + outline[:1]):
        mesh.face([(-half, y0, z0), (-half, y1, z1), (half, y1, z1), (half, y0, z0)])
    low = 0
    for height, depth in steps:
        quad(mesh, (half, low, 0), (0, 0, -depth), (0, height, 0))
        quad(mesh, (-half, low, -depth), (0, 0, depth), (0, height, 0))
        low += height


def crystal(mesh, sides, radius, shoulder, tip):
    """A prism with a point, its faces flat."""
    foot, rim = ([(radius * f * math.cos(a), y, -radius * f * math.sin(a))
                  for a in (2 * math.pi * i / sides for i in range(sides))] for f, y in ((0.92, 0), (1, shoulder)))
    for i in range(sides):
        k = (i + 1) % sides
        mesh.face([foot[i], foot[k], rim[k], rim[i]])
        mesh.face([rim[i], rim[k], (0, tip, 0)])
        mesh.face([foot[k], foot[i], (0, 0, 0)])


def tinted_bodies():
    block, prism, tumbler = Mesh(), Mesh(), Mesh()
    stairs(block, 0.9, [(0.26, 0.9), (0.26, 0.5), (0.26, 0.25), (0.26, 0.1), (0.26, 0.03)])
    crystal(prism, 6, 0.34, 1.0, 1.5)
    tumbler.lathe([(0, 0), (0.3, 0), (0.32, 0.02), (0.4, 0.85), (0.395, 0.865), (0.375, 0.865), (0.37, 0.85),
                   (0.305, 0.2), (0.27, 0.14), (0.2, 0.12), (0, 0.12)], 48)
    bodies = {"block": block, "prism": prism, "tumbler": tumbler}
    for name, radius in (("marble_large", 0.3), ("marble_medium", 0.18), ("marble_small", 0.1)):
        bodies[name] = ball(3 if radius > 0.2 else 2, radius)
    return bodies


def write_tinted(folder):
    table = Mesh()
    table.shader("checkers")
    quad(table, (-8, 0, 5), (16, 0, 0), (0, 0, -12), scale=1.0)
    table.shader("backdrop")
    quad(table, (-8, 0, -7), (16, 0, 0), (0, 9, 0))
    table.shader("panel")
    quad(table, (-3.6, 1.6, -2.4), (1.4, 1.4, -1.4), (0, 1.6, 1.6))
    table.write(folder / "geometry/table.obj")
    placed = {"block": ((0.15, 0.0005, -0.3), "cobalt", -0.35), "prism": ((-1.25, 0.0005, -0.45), "ruby", 0.2),
              "tumbler": ((1.35, 0.0005, -0.2), "bottle", 0), "marble_large": ((-0.55, 0.3005, 0.75), "amber", 0),
              "marble_medium": ((0.2, 0.1805, 1.0), "amber", 0), "marble_small": ((0.65, 0.1005, 1.15), "amber", 0)}
    bodies = tinted_bodies()
    lines = ["# written by tools/make_scenes.py"]
    for name, mesh in bodies.items():
        mesh.write(folder / f"geometry/{name}.obj")
        lines += ["object", f"    name {name}", f'    obj "geometry/{name}.obj"', "end"]
    lines += ["# the last object that nothing places is the whole scene", "object", "    name table",
              '    obj "geometry/table.obj"']
    for name, (position, shader, angle) in placed.items():
        lines += instance(name, position, turned(angle), shader)
    (folder / "geometry/scene.hv").write_text("\n".join(lines + ["end"]) + "\n")
