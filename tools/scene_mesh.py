"""What the scene generators share: a mesh that becomes an OBJ file, a few bodies, and the text of an instance.

Lengths are metres, y is up, faces are counter-clockwise seen from their front. The same numbers come out every time.
"""

import math


class Mesh:
    """Vertices, texture coordinates, normals and faces of one OBJ file, grouped by shader name."""

    def __init__(self, decimals=3):
        self.decimals = decimals
        self.lines = []
        self.counts = {"v": 0, "vt": 0, "vn": 0}

    def shader(self, name):
        self.lines.append(f"usemtl {name}")

    def face(self, corners, uvs=None, normals=None):
        """One polygon with a texture coordinate and a normal for each corner, if given."""
        firsts = [self.vertices(corners), self.uvs(uvs) if uvs else None, self.normals(normals) if normals else None]
        self.index_face([tuple(first and first + i for first in firsts) for i in range(len(corners))])

    def vertices(self, points):
        """Appends points and returns the OBJ number of the first."""
        return self.append("v", points, self.decimals)

    def uvs(self, pairs):
        return self.append("vt", pairs, 4)

    def normals(self, directions):
        return self.append("vn", directions, 3)

    def append(self, kind, values, decimals):
        self.lines += [f"{kind} " + numbers(v, decimals) for v in values]
        self.counts[kind] += len(values)
        return self.counts[kind] - len(values) + 1

    def index_face(self, corners):
        """One polygon of OBJ numbers: (vertex, uv or None, normal or None) for each corner."""
        texts = ("/".join("" if i is None else str(i) for i in corner).rstrip("/") for corner in corners)
        self.lines.append("f " + " ".join(texts))

    def box(self, low, high, inward=False, scale=None):
        """Six axis-parallel rectangles, seen from outside or from inside. With a scale, `scale` metres of a side are
        one width of a texture, whose v runs up the walls and away from the viewer on top."""
        x0, y0, z0 = low
        x1, y1, z1 = high
        points = [(x, y, z) for z in (z0, z1) for y in (y0, y1) for x in (x0, x1)]
        first = self.vertices(points)
        # The corners of a side, and the signed axes along which its u and v grow.
        for side, u, v in (((0, 2, 3, 1), -1, 2), ((4, 5, 7, 6), 1, 2), ((0, 1, 5, 4), 1, 3), ((2, 6, 7, 3), 1, -3),
                           ((0, 4, 6, 2), 3, 2), ((1, 3, 7, 5), -3, 2)):
            side = tuple(reversed(side)) if inward else side
            texels = [None] * 4
            if scale:
                pairs = [[points[i][abs(axis) - 1] * (1 if axis > 0 else -1) / scale for axis in (u, v)] for i in side]
                first_uv = self.uvs(pairs)
                texels = range(first_uv, first_uv + 4)
            self.index_face([(first + i, t, None) for i, t in zip(side, texels)])

    def lathe(self, profile, sides, turns=1.0, height_scale=1.0):
        """A surface of revolution about y with smooth normals. `profile` holds (radius, height) from bottom to top,
        seen from outside; two points in one place break the normal there. u goes `turns` times around, v is
        `height_scale` times the way along the profile."""
        normals = profile_normals(profile)
        way = [0.0]
        for (r0, y0), (r1, y1) in zip(profile, profile[1:]):
            way.append(way[-1] + math.hypot(r1 - r0, y1 - y0))
        angles = [2 * math.pi * i / sides for i in range(sides + 1)]
        v = self.vertices([(r * math.cos(a), y, -r * math.sin(a)) for r, y in profile for a in angles[:-1]])
        n = self.normals([(nr * math.cos(a), ny, -nr * math.sin(a)) for nr, ny in normals for a in angles[:-1]])
        t = self.uvs([(turns * i / sides, w * height_scale) for w in way for i in range(sides + 1)])

        def corner(j, i):
            return (v + j * sides + i % sides, t + j * (sides + 1) + i, n + j * sides + i % sides)

        for j in range(len(profile) - 1):
            (r0, y0), (r1, y1) = profile[j], profile[j + 1]
            for i in range(sides):
                ring = [corner(j, i), corner(j, i + 1), corner(j + 1, i + 1), corner(j + 1, i)]
                if (r0, y0) == (r1, y1):
                    continue
                if r0 == 0:
                    del ring[1]
                elif r1 == 0:
                    del ring[2]
                self.index_face(ring)

    def write(self, path):
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("\n".join(self.lines) + "\n")


def profile_normals(profile):
    """Outward (radial, up) unit normals at the points of a profile: means of the two pieces that meet there."""
    pieces = []
    for (r0, y0), (r1, y1) in zip(profile, profile[1:]):
        length = math.hypot(r1 - r0, y1 - y0)
        pieces.append(((y1 - y0) / length, (r0 - r1) / length) if length else None)
    result = []
    for i in range(len(profile)):
        near = [p for p in pieces[max(i - 1, 0):i + 1] if p]
        total = (sum(p[0] for p in near), sum(p[1] for p in near))
        length = math.hypot(*total) or 1
        result.append((total[0] / length, total[1] / length))
    return result


def numbers(values, decimals):
    texts = (f"{v:.{decimals}f}".rstrip("0").rstrip(".") for v in values)
    return " ".join("0" if t == "-0" else t for t in texts)


def normalized(v):
    length = math.sqrt(sum(c * c for c in v))
    return tuple(c / length for c in v)


def cross(a, b):
    return (a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0])


def instance(name, position, columns=((1, 0, 0), (0, 1, 0), (0, 0, 1)), shader=None):
    """Lines of an instance block. `columns` are the images of the three axes, orthonormal: placements are rigid."""
    rows = [(*(c[k] for c in columns), position[k]) for k in range(3)] + [(0, 0, 0, 1)]
    lines = ["    instance", f"        object {name}"]
    if shader:
        lines.append(f'        shader "{shader}"')
    return lines + ["        matrix " + "  ".join(numbers(row, 4) for row in rows), "    end"]


def turned(angle):
    """Columns of a rotation about y by `angle` radians."""
    c, s = math.cos(angle), math.sin(angle)
    return ((c, 0, -s), (0, 1, 0), (s, 0, c))


def icosphere(levels):
    """Unit sphere of 20 * 4^levels triangles: points and index triples, counter-clockwise seen from outside."""
    g = (1 + math.sqrt(5)) / 2
    points = [normalized(p) for p in (
        (-1, g, 0), (1, g, 0), (-1, -g, 0), (1, -g, 0), (0, -1, g), (0, 1, g),
        (0, -1, -g), (0, 1, -g), (g, 0, -1), (g, 0, 1), (-g, 0, -1), (-g, 0, 1))]
    faces = [(0, 11, 5), (0, 5, 1), (0, 1, 7), (0, 7, 10), (0, 10, 11), (1, 5, 9), (5, 11, 4), (11, 10, 2), (10, 7, 6),
             (7, 1, 8), (3, 9, 4), (3, 4, 2), (3, 2, 6), (3, 6, 8), (3, 8, 9), (4, 9, 5), (2, 4, 11), (6, 2, 10),
             (8, 6, 7), (9, 8, 1)]
    for _ in range(levels):
        middles = {}

        def middle(a, b):
            key = (min(a, b), max(a, b))
            if key not in middles:
                points.append(normalized(tuple(points[a][i] + points[b][i] for i in range(3))))
                middles[key] = len(points) - 1
            return middles[key]

        split = []
        for a, b, c in faces:
            ab, bc, ca = middle(a, b), middle(b, c), middle(c, a)
            split += [(a, ab, ca), (b, bc, ab), (c, ca, bc), (ab, bc, ca)]
        faces = split
    return points, faces


def ball(levels, radius):
    """A sphere around the origin with smooth normals and no shader of its own: instances bring theirs."""
    mesh = Mesh(4)
    points, faces = icosphere(levels)
    mesh.vertices([tuple(radius * c for c in p) for p in points])
    mesh.normals(points)
    for face in faces:
        mesh.index_face([(i + 1, None, i + 1) for i in face])
    return mesh
