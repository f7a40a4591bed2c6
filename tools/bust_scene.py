"""Geometry of the sample scene `bust`: a head of nobody, put together from ellipsoids that melt into each other, on a
turned foot. The mesh has no normals: the scene's shader smooths it."""

import math

from scene_mesh import Mesh, normalized

# Lengths are centimetres in here; the mesh is written in metres. x is to the side, y up, z forth.
# Middle, half axes, turn about x in degrees, and how far it melts into what came before; below 0 it is cut out.
SHAPES = (
    ((0, 12.2, -1.0), (7.7, 8.4, 9.5), -6, 0),        # skull
    ((0, 6.4, 2.4), (6.5, 8.6, 6.4), 8, 3.5),         # face
    ((0, -1.1, 4.9), (3.1, 2.4, 3.4), 0, 2.8),        # chin
    ((4.5, 1.6, 0.8), (2.0, 4.0, 4.4), 12, 2.4),      # jaw
    ((4.1, 7.0, 6.0), (2.0, 1.5, 2.0), 0, 1.8),       # cheekbone
    ((3.1, 9.3, 9.3), (2.2, 1.35, 2.3), 0, -1.1),     # socket of the eye
    ((3.1, 9.2, 6.55), (1.45, 1.3, 1.4), 0, 0.2),     # eyeball
    ((3.2, 10.05, 6.9), (1.75, 0.42, 1.3), 10, 0.35), # upper lid
    ((3.2, 8.2, 6.75), (1.6, 0.32, 1.1), -10, 0.4),   # lower lid
    ((3.1, 11.2, 7.3), (2.9, 0.75, 1.4), -8, 1.3),    # brow
    ((0, 7.6, 9.2), (0.85, 3.7, 1.3), -15, 1.1),      # bridge of the nose
    ((0, 5.3, 10.5), (1.15, 1.0, 1.4), 0, 0.9),       # tip
    ((1.3, 4.95, 9.2), (0.85, 0.8, 1.2), 0, 0.5),     # wing
    ((0, 2.85, 7.9), (2.3, 0.62, 1.3), 0, 0.7),       # upper lip
    ((0, 1.35, 7.5), (1.9, 0.75, 1.4), 0, 1.2),       # lower lip
    ((0, 2.18, 9.2), (2.5, 0.14, 1.2), 0, -0.3),      # mouth
    ((7.6, 7.4, -0.9), (1.7, 3.3, 1.75), -12, 0.6),   # ear
    ((9.3, 7.9, -0.1), (1.1, 2.0, 1.3), -12, -0.4),   # its bowl
    ((0, -4.0, -1.8), (5.3, 8.5, 5.5), -9, 4.0),      # neck
    ((0, -13.2, -2.5), (16.5, 5.6, 7.0), 0, 4.5),     # shoulders
    ((0, -16, 1.4), (11.5, 8.0, 7.0), 0, 4.0),        # breast
)
CUT = -20.5  # height of the flat base


def ellipsoid(p, middle, axes, sine, cosine):
    """Roughly the distance to the surface, negative inside. Both sides of the body are alike."""
    x, y, z = abs(p[0]) - middle[0], p[1] - middle[1], p[2] - middle[2]
    if middle[0] == 0:
        x = p[0]
    y, z = cosine * y + sine * z, cosine * z - sine * y
    a, b, c = x / axes[0], y / axes[1], z / axes[2]
    k0 = math.sqrt(a * a + b * b + c * c)
    a, b, c = a / axes[0], b / axes[1], c / axes[2]
    k1 = math.sqrt(a * a + b * b + c * c)
    return k0 * (k0 - 1) / k1 if k1 > 1e-9 else -min(axes)


TURNED = [(middle, axes, math.sin(math.radians(turn)), math.cos(math.radians(turn)), melt)
          for middle, axes, turn, melt in SHAPES]


def distance(p):
    """Of the whole body: smooth unions and cuts (polynomial, Quilez)."""
    d = 1e9
    for middle, axes, sine, cosine, melt in TURNED:
        e = ellipsoid(p, middle, axes, sine, cosine)
        if melt < 0:
            e, melt = -e, -melt
            h = max(melt - abs(d - e), 0) / melt
            d = max(d, e) + h * h * melt / 4
        elif melt == 0 or d > 1e8:
            d = min(d, e)
        else:
            h = max(melt - abs(d - e), 0) / melt
            d = min(d, e) - h * h * melt / 4
    return max(d, CUT - p[1])


def gradient(p, d=0.02):
    steps = ((d, 0, 0), (0, d, 0), (0, 0, d))
    ends = (([a + b for a, b in zip(p, s)], [a - b for a, b in zip(p, s)]) for s in steps)
    return normalized([distance(ahead) - distance(behind) for ahead, behind in ends])


def ticks(*pieces):
    """Places along an axis: from each (start, step) on by that step, to the last start."""
    places = []
    for (start, step), (end, _) in zip(pieces, pieces[1:]):
        count = round((end - start) / step)
        places += [start + (end - start) * i / count for i in range(count)]
    return places + [pieces[-1][0]]


def surface_net(axes):
    """Points near the zero of `distance` and quadrangles between them, one point for each cell of a grid that it runs
    through (Gibson 1998). The points are then moved onto it."""
    counts = [len(axis) for axis in axes]
    values = {(i, j, k): distance((x, y, z)) for i, x in enumerate(axes[0]) for j, y in enumerate(axes[1])
              for k, z in enumerate(axes[2])}
    corners = [(a, b, c) for a in (0, 1) for b in (0, 1) for c in (0, 1)]
    edges = [(p, q) for p in corners for q in corners if sum(q) == sum(p) + 1 and all(a <= b for a, b in zip(p, q))]
    numbers, points = {}, []
    for cell in values:
        if any(c == count - 1 for c, count in zip(cell, counts)):
            continue
        crossings = []
        for ends in edges:
            p, q = (tuple(x + y for x, y in zip(cell, end)) for end in ends)
            if (values[p] < 0) != (values[q] < 0):
                t = values[p] / (values[p] - values[q])
                crossings.append([axis[i] + t * (axis[j] - axis[i]) for axis, i, j in zip(axes, p, q)])
        if crossings:
            numbers[cell] = len(points)
            point = [sum(c[i] for c in crossings) / len(crossings) for i in range(3)]
            for _ in range(3):
                off, way = distance(point), gradient(point)
                point = [a - min(max(off, -0.2), 0.2) * b for a, b in zip(point, way)]
            points.append(point)
    quads = []
    for cell, value in values.items():
        for axis in range(3):
            ahead = tuple(c + (1 if i == axis else 0) for i, c in enumerate(cell))
            if ahead not in values or (value < 0) == (values[ahead] < 0):
                continue
            u, v = (axis + 1) % 3, (axis + 2) % 3
            ring = []
            for du, dv in ((0, 0), (-1, 0), (-1, -1), (0, -1)):
                near = list(cell)
                near[u] += du
                near[v] += dv
                ring.append(numbers.get(tuple(near)))
            if None not in ring:
                quads.append(ring if value < 0 else ring[::-1])
    return points, quads


def bust():
    mesh = Mesh(4)
    mesh.shader("marble")
    points, quads = surface_net((ticks((-18.7, 1.3), (-9.5, 0.9), (-5, 0.5), (5, 0.9), (9.5, 1.3), (18.7, 0)),
                                 ticks((-22, 1.5), (-3.5, 0.9), (0.5, 0.42), (12, 0.9), (23, 0)),
                                 ticks((-13.5, 1.2), (-1, 0.8), (5.5, 0.45), (13, 0))))
    first = mesh.vertices([tuple(0.01 * c for c in p) for p in points])
    for ring in quads:
        mesh.index_face([(first + i, None, None) for i in ring])
    return mesh


def foot():
    """The turned foot, the pedestal and the room."""
    mesh = Mesh(4)
    mesh.shader("marble")
    profile = [(0.115, -0.345), (0.115, -0.325), (0.095, -0.31), (0.07, -0.285), (0.06, -0.262), (0.065, -0.24),
               (0.09, -0.226), (0.095, -0.216), (0.095, -0.203), (0.0, -0.203)]
    sides = 40
    rings = [[(r * math.cos(2 * math.pi * i / sides), y, -r * math.sin(2 * math.pi * i / sides)) for i in range(sides)]
             for r, y in profile[:-1]]
    first = mesh.vertices([p for ring in rings for p in ring])
    for j in range(len(rings) - 1):
        for i in range(sides):
            a, b = first + j * sides + i, first + j * sides + (i + 1) % sides
            mesh.index_face([(k, None, None) for k in (a, b, b + sides, a + sides)])
    mesh.shader("pedestal")
    mesh.box((-0.2, -1.2, -0.16), (0.2, -0.3455, 0.16))
    mesh.shader("wall")
    mesh.face([(-3, -1.2, -1.2), (3, -1.2, -1.2), (3, 2.2, -1.2), (-3, 2.2, -1.2)])
    for name, middle, right, up in (("window", (-1.45, 0.7, 0.6), (-0.2, 0, -0.48), (-0.2, 0.5, 0.083)),
                                    ("bounce", (1.5, 0.1, 0.5), (0.25, 0, -0.75), (0, 0.7, 0))):
        mesh.shader(name)
        mesh.face([tuple(m + a * r + b * u for m, r, u in zip(middle, right, up))
                   for a, b in ((-1, -1), (1, -1), (1, 1), (-1, 1))])
    return mesh


def write_bust(folder):
    bust().write(folder / "geometry/bust.obj")
    foot().write(folder / "geometry/stand.obj")
