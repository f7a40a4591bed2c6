"""Geometry of the sample scenes that are made for photons: caustics, lampshade and corridor.

Density cells belong to the faces of the root object alone, so all that light leaves diffusely stands in the root and not
in instances. Each scene is one part: a ray does not see the face of its own number in another part.
"""

import math

from indoor_scenes import frame, quad
from scene_mesh import Mesh, cross, icosphere, normalized


def sphere(mesh, levels, radius, centre):
    """A ball of triangles in `mesh`, with smooth normals."""
    points, faces = icosphere(levels)
    first = mesh.vertices([tuple(c + radius * p for c, p in zip(centre, point)) for point in points])
    normal = mesh.normals(points)
    for face in faces:
        mesh.index_face([(first + i, None, normal + i) for i in face])


def inward_box(mesh, low, high, shaders):
    """The walls of a room, seen from inside. `shaders`: floor, ceiling, left, right, back and front (z high)."""
    x0, y0, z0 = low
    w, h, d = (b - a for a, b in zip(low, high))
    sides = (((x0, y0, z0 + d), (w, 0, 0), (0, 0, -d)), ((x0, y0 + h, z0), (w, 0, 0), (0, 0, d)),
             ((x0, y0, z0 + d), (0, 0, -d), (0, h, 0)), ((x0 + w, y0, z0), (0, 0, d), (0, h, 0)),
             ((x0, y0, z0), (w, 0, 0), (0, h, 0)), ((x0 + w, y0, z0 + d), (-w, 0, 0), (0, h, 0)))
    for shader, side in zip(shaders, sides):
        mesh.shader(shader)
        quad(mesh, *side)


def facing_square(mesh, centre, target, size):
    """A square around `centre` that faces `target`."""
    axis = normalized([t - c for t, c in zip(target, centre)])
    u = normalized(cross((0, 1, 0), axis))
    v = cross(axis, u)
    u, v = ([size * c for c in side] for side in (u, v))
    quad(mesh, tuple(c - 0.5 * (a + b) for c, a, b in zip(centre, u, v)), u, v)


def ring(mesh, centre, inner, outer, height, sides):
    """A band that stands on the floor, smooth inside and outside."""
    x, y, z = centre
    angles = [2 * math.pi * i / sides for i in range(sides)]
    circle = [(math.cos(a), -math.sin(a)) for a in angles]
    outward = mesh.normals([(c, 0, s) for c, s in circle])
    inward = mesh.normals([(-c, 0, -s) for c, s in circle])
    up = mesh.normals([(0, 1, 0)])
    low_in, high_in, low_out, high_out = (
        mesh.vertices([(x + r * c, y + h, z + r * s) for c, s in circle])
        for r, h in ((inner, 0), (inner, height), (outer, 0), (outer, height)))
    for i in range(sides):
        k = (i + 1) % sides
        mesh.index_face([(low_out + j, None, outward + j) for j in (i, k)] +
                        [(high_out + j, None, outward + j) for j in (k, i)])
        mesh.index_face([(low_in + j, None, inward + j) for j in (k, i)] +
                        [(high_in + j, None, inward + j) for j in (i, k)])
        mesh.index_face([(high_out + j, None, up) for j in (i, k)] + [(high_in + j, None, up) for j in (k, i)])


LAMP, LAMP_TARGET = (1.3, 1.8, -1.0), (-0.6, 0.4, 0.1)


def caustics():
    """Glass, chrome and gold in a small room, under one small bright square."""
    mesh = Mesh(4)
    inward_box(mesh, (-1.6, 0, -1.6), (1.6, 2.2, 2.6), ("floor", "plaster", "plaster", "clay", "plaster", "plaster"))
    mesh.shader("lamp")
    facing_square(mesh, LAMP, LAMP_TARGET, 0.12)
    mesh.shader("plinth")
    mesh.box((-1.4, 0, -0.6), (-0.8, 0.3, 0))
    mesh.shader("gold")
    ring(mesh, (0.5, 0.0005, 0.4), 0.34, 0.35, 0.17, 96)
    mesh.shader("glass")
    sphere(mesh, 4, 0.32, (-1.1, 0.6205, -0.3))
    sphere(mesh, 3, 0.17, (-0.3, 0.1705, 0.65))
    mesh.shader("chrome")
    sphere(mesh, 3, 0.36, (-0.15, 0.3605, -0.8))
    return mesh


TABLE = 0.72  # height of its top
FOOT = [(0, 0), (0.08, 0), (0.08, 0), (0.085, 0.015), (0.05, 0.03), (0.07, 0.09), (0.065, 0.14), (0.02, 0.2),
        (0.012, 0.23), (0.012, 0.29), (0.012, 0.29), (0, 0.29)]
SHADE = [(0.24, 0.2), (0.15, 0.48)]  # (radius, height above the table)


def lampshade():
    """A lamp with a shade of cloth, open above and below, on a table by a wall. Its axis is that of y."""
    mesh = Mesh(4)
    inward_box(mesh, (-1.5, 0, -0.4), (1.9, 2.3, 2.7), ("boards", "plaster", "plaster", "plaster", "wall", "plaster"))
    mesh.shader("table")
    mesh.box((-0.5, TABLE - 0.04, -0.36), (1.0, TABLE, 0.36))
    for x in (-0.45, 0.89):
        for z in (-0.31, 0.25):
            mesh.box((x, 0, z), (x + 0.06, TABLE - 0.04, z + 0.06))
    above = TABLE + 0.0005
    mesh.shader("foot")
    mesh.lathe([(r, above + y) for r, y in FOOT], 32)
    mesh.shader("shade")
    mesh.lathe([(r, above + y) for r, y in SHADE], 64)
    mesh.shader("frame")
    frame(mesh, (0.85, 1.05, -0.4), (1.3, 1.65, -0.4), 0.04, 0.03)
    mesh.shader("picture")
    quad(mesh, (0.85, 1.05, -0.385), (0.45, 0, 0), (0, 0.6, 0))
    mesh.shader("cover")
    mesh.box((0.42, above, -0.12), (0.72, above + 0.05, 0.1))
    mesh.shader("pages")
    mesh.box((0.46, above + 0.0505, -0.1), (0.68, above + 0.09, 0.08))
    return mesh


HALF_WIDTH, HEIGHT, LENGTH = 0.9, 2.4, 12.0
DOOR_WIDTH, DOOR_HEIGHT, NICHE_DEPTH = 0.9, 2.0, 0.8
LEFT_DOORS, RIGHT_DOORS = ((-3.4, "warm"), (-8.6, "warm")), ((-6.0, "cool"),)  # middle of the door, lamp behind it


def corridor_side(mesh, x, doors):
    """One long wall, in the pieces that its doors leave, with a lit chamber behind each door. The lamps hang beside the
    doors inside, so that no door lets the corridor see one."""
    inward = 1 if x < 0 else -1

    def wall(z0, z1, y0, y1):
        """The rectangle of the wall's plane, seen from the corridor."""
        if inward > 0:
            quad(mesh, (x, y0, z1), (0, 0, z0 - z1), (0, y1 - y0, 0))
        else:
            quad(mesh, (x, y0, z0), (0, 0, z1 - z0), (0, y1 - y0, 0))

    z_near = 0.0
    for middle, lamp in doors:
        near, far = middle + 0.5 * DOOR_WIDTH, middle - 0.5 * DOOR_WIDTH
        mesh.shader("wall")
        wall(near, z_near, 0, HEIGHT)
        wall(far, near, DOOR_HEIGHT, HEIGHT)
        z_near = far
        chamber(mesh, x, inward, near, far, lamp)
    mesh.shader("wall")
    wall(-LENGTH, z_near, 0, HEIGHT)


def chamber(mesh, x, inward, near, far, lamp):
    """A niche behind a door, deeper towards the far end of the corridor, where its lamp faces the near side."""
    back, end = x - inward * NICHE_DEPTH, far - 0.6
    low, high = min(x, back), max(x, back)
    mesh.shader("floor")
    quad(mesh, (low, 0, near), (high - low, 0, 0), (0, 0, end - near))
    mesh.shader("wall")
    quad(mesh, (low, DOOR_HEIGHT, end), (high - low, 0, 0), (0, 0, near - end))
    quad(mesh, (low, 0, end), (high - low, 0, 0), (0, DOOR_HEIGHT, 0))
    quad(mesh, (high, 0, near), (low - high, 0, 0), (0, DOOR_HEIGHT, 0))
    if inward > 0:
        quad(mesh, (back, 0, near), (0, 0, end - near), (0, DOOR_HEIGHT, 0))
        quad(mesh, (x, 0, end), (0, 0, far - end), (0, DOOR_HEIGHT, 0))
    else:
        quad(mesh, (back, 0, end), (0, 0, near - end), (0, DOOR_HEIGHT, 0))
        quad(mesh, (x, 0, far), (0, 0, end - far), (0, DOOR_HEIGHT, 0))
    mesh.shader(lamp)
    middle = 0.5 * (x + back)
    quad(mesh, (middle - 0.25, 0.5, end + 0.02), (0.5, 0, 0), (0, 1.0, 0))


def corridor():
    """A long passage that is lit from chambers beside it alone, and so by light that has come over several walls."""
    mesh = Mesh()
    w = HALF_WIDTH
    mesh.shader("floor")
    quad(mesh, (-w, 0, 0), (2 * w, 0, 0), (0, 0, -LENGTH))
    mesh.shader("wall")
    quad(mesh, (-w, HEIGHT, -LENGTH), (2 * w, 0, 0), (0, 0, LENGTH))
    quad(mesh, (w, 0, 0), (-2 * w, 0, 0), (0, HEIGHT, 0))
    corridor_side(mesh, -w, LEFT_DOORS)
    corridor_side(mesh, w, RIGHT_DOORS)
    mesh.shader("end")
    quad(mesh, (-w, 0, -LENGTH), (2 * w, 0, 0), (0, HEIGHT, 0))
    mesh.shader("plinth")
    mesh.box((-0.2, 0, -9.9), (0.2, 0.8, -9.5))
    mesh.box((-0.14, 0.801, -9.84), (0.14, 1.08, -9.56))
    mesh.shader("bench")
    mesh.box((0.5, 0.38, -4.3), (0.86, 0.43, -2.9))
    for z in (-4.2, -3.06):
        mesh.box((0.54, 0, z), (0.84, 0.38, z + 0.06))
    return mesh


def write_photon_scenes(folder):
    caustics().write(folder / "caustics/geometry/room.obj")
    lampshade().write(folder / "lampshade/geometry/room.obj")
    corridor().write(folder / "corridor/geometry/corridor.obj")
