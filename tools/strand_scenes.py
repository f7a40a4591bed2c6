"""Strands of the sample scenes `furry` and `hair`, as HAIR files, and the bodies that they grow on.

Lengths are centimetres, so that segments are about 1 to 3 units long: the curves of strands have tangents of length 1.
"""

import math
import random
import struct

from scene_mesh import Mesh, ball, icosphere, normalized


def write_hair(path, strands, thickness, tip=1.0):
    """Strands of equally many points each. From root to tip the thickness falls to the share `tip` of itself.

    Tangents go to as many points as there are segments, so the last points of a file, one for each strand, have none,
    and what ends at them does not show. A last strand of that many segments, all at the origin inside the body, takes
    this upon itself."""
    points = [c for strand in strands for point in strand for c in point] + [0.0] * (3 * len(strands) + 3)
    segments, has_thickness = len(strands[0]) - 1, tip != 1.0
    path.parent.mkdir(parents=True, exist_ok=True)
    with open(path, "wb") as file:
        file.write(struct.pack("<4s4I5f88x", b"HAIR", len(strands) + 1, len(points) // 3, 7 if has_thickness else 3, 0,
                               thickness, 0, 1, 1, 1))
        file.write(struct.pack(f"<{len(strands) + 1}H", *[segments] * len(strands), len(strands)))
        file.write(struct.pack(f"<{len(points)}f", *points))
        if has_thickness:
            falling = [thickness * (1 - (1 - tip) * i / segments) for i in range(segments + 1)]
            falling = falling * len(strands) + [0.0] * (len(strands) + 1)
            file.write(struct.pack(f"<{len(falling)}f", *falling))


def added(a, b, scale=1.0):
    return tuple(x + scale * y for x, y in zip(a, b))


def dot(a, b):
    return sum(x * y for x, y in zip(a, b))


def waves(rng, count, pitch):
    """A smooth field of vectors, -1 to 1, that varies over about `pitch`."""
    terms = [([rng.gauss(0, 2.5 / pitch) for _ in range(3)], rng.uniform(0, 6.3)) for _ in range(3 * count)]

    def field(p):
        sines = [math.sin(dot(w, p) + phase) for w, phase in terms]
        return tuple(sum(sines[k::3]) / count for k in range(3))

    return field


def ball_with_uvs(levels, radius):
    """A sphere with the texture around it: u along the equator, v from the south pole up. Each face has its own texture
    coordinates, so that none runs back over the seam."""
    mesh = Mesh(4)
    mesh.shader("skin")
    points, faces = icosphere(levels)
    corners = []
    for face in faces:
        us = [math.atan2(points[i][2], points[i][0]) / (2 * math.pi) % 1 for i in face]
        if max(us) - min(us) > 0.5:
            us = [u + 1 if u < 0.5 else u for u in us]
        at_pole = [abs(points[i][1]) > 0.9999 for i in face]
        if any(at_pole):
            mean = sum(u for u, pole in zip(us, at_pole) if not pole) / 2
            us = [mean if pole else u for u, pole in zip(us, at_pole)]
        vs = [1 - math.acos(points[i][1]) / math.pi for i in face]
        corners.append(list(zip(us, vs)))
    mesh.vertices([tuple(radius * c for c in p) for p in points])
    mesh.normals(points)
    for face, uvs in zip(faces, corners):
        t = mesh.uvs(uvs)
        mesh.index_face([(i + 1, t + k, i + 1) for k, i in enumerate(face)])
    return mesh, [[tuple(round(radius * c, 4) for c in points[i]) for i in face] for face in faces]


def fur(faces, count, length, segments, rng):
    """Strands on triangles, roots a little below the skin, combed back and down, in tufts."""
    comb, tuft = waves(rng, 5, 9.0), waves(rng, 6, 2.2)
    strands = []
    for k in range(count):
        a, b, c = faces[k % len(faces)]
        s, t = sorted((rng.random(), rng.random()))
        root = tuple(s * x + (t - s) * y + (1 - t) * z for x, y, z in zip(a, b, c))
        up = normalized(root)
        lie = added(added((0.25, -1, 0.35), comb(root), 0.9), tuft(root), 0.45)
        lie = added(lie, up, -dot(lie, up))
        step = length * rng.uniform(0.75, 1.1) / segments
        point, strand = added(root, up, -0.03), []
        for j in range(segments + 1):
            strand.append(point)
            bend = (j + 1) / segments
            lean = tuple(0.16 * rng.gauss(0, 1) for _ in range(3))
            way = normalized(added(added(tuple(u * (1.25 - 0.75 * bend) for u in up), lie, 0.35 + 0.6 * bend), lean))
            point = added(point, way, step)
        strands.append(strand)
    return strands


HEAD = (7.6, 10.2, 9.2)  # half axes of the scalp around the origin: sideways, up, forth


def on_scalp(p, gap=0.0):
    """Pushes a point that is in the head out to its surface and `gap` above. The head is narrower below."""
    for _ in range(3):
        narrow = 1 - 0.22 * max(0.0, -p[1] / HEAD[1])
        axes = [(h + gap) * (narrow if k != 1 else 1) for k, h in enumerate(HEAD)]
        size = math.sqrt(sum((c / h) ** 2 for c, h in zip(p, axes)))
        if size < 1:
            p = tuple(c / size for c in p)
    return p


def head(rows, sides):
    """A plain head with a neck and shoulders, as for a hat. Faces +z."""
    mesh = Mesh(3)
    mesh.shader("linen")
    rings = []
    for j in range(1, rows):
        polar = math.pi * j / rows
        rings.append([on_scalp((1e-3 * math.sin(polar) * math.cos(2 * math.pi * i / sides), 1e-3 * math.cos(polar),
                                -1e-3 * math.sin(polar) * math.sin(2 * math.pi * i / sides))) for i in range(sides)])
    first = mesh.vertices([p for ring in rings for p in ring] + [(0, HEAD[1], 0), (0, -HEAD[1], 0)])
    top, bottom = first + len(rings) * sides, first + len(rings) * sides + 1
    for j, _ in enumerate(rings[1:]):
        for i in range(sides):
            a, b = first + j * sides + i, first + j * sides + (i + 1) % sides
            mesh.index_face([(k, None, None) for k in (a, a + sides, b + sides, b)])
    last = first + (len(rings) - 1) * sides
    for i in range(sides):
        mesh.index_face([(k, None, None) for k in (top, first + i, first + (i + 1) % sides)])
        mesh.index_face([(k, None, None) for k in (bottom, last + (i + 1) % sides, last + i)])
    mesh.lathe([(9.5, -21), (9.3, -20.2), (4.6, -17.5), (4.2, -14), (4.2, -8)], sides)
    return mesh


def hairline(place):
    """Lowest height of hair on the unit sphere: low in the neck, above the ears, high on the forehead."""
    return 0.05 + 0.5 * place[2] if place[2] > 0 else 0.05 + 0.6 * place[2]


def even_places(count, rng):
    """Places on the unit sphere above the hairline, as even as seeds in a sunflower, a little shaken."""
    share = 0.62  # of the sphere that bears hair, roughly; what is below the hairline falls away
    places = []
    for k in range(count):
        y = 1 - 2 * share * (k + 0.5) / count
        r, angle = math.sqrt(1 - y * y), 2.399963 * k
        place = normalized(tuple(c + rng.gauss(0, 0.01) for c in (r * math.cos(angle), y, r * math.sin(angle))))
        if place[1] > hairline(place):
            places.append(place)
    return places


def off_parting(place, rng):
    """Which way hair lies at a place of the unit sphere: away from a line that runs from the forehead to the crown, and
    behind it from the crown. Near the line strands cross it, so that no skin shows."""
    z = max(place[2], -0.3)
    line = normalized((0.13, math.sqrt(max(0.0, 1 - z * z)), z))
    away = added(place, line, -1)
    away = added(away, (rng.gauss(0, 0.05), 0, rng.gauss(0, 0.05)))
    return normalized(added(away, place, -dot(away, place)))


def wig(count, segments, ends, rng):
    """Hair from a parting over the head, never through it, that hangs down to about the height `ends`, in locks that
    wave alike. Strands have their segments all of one length."""
    locks = [(place, rng.uniform(0, 6.3), rng.gauss(0, 1), rng.gauss(0, 1)) for place in even_places(110, rng)]
    strands = []
    for place in even_places(count, rng):
        lock, phase, swing, longer = max(locks, key=lambda other: dot(other[0], place) + 0.01 * rng.gauss(0, 1))
        point = on_scalp(tuple(1e-3 * c for c in place), -0.15)
        way = normalized(added(off_parting(place, rng), place, 0.25))
        height = rng.uniform(0.1, 1.25)
        # Over the head along an arc, then straight down.
        length = 9.5 * math.asin(max(0.0, place[1])) + min(point[1], 0) - ends + 0.7 * longer + 0.5 * rng.gauss(0, 1)
        step = min(max(length / segments, 0.6), 4.9)
        strand = [point]
        for j in range(1, segments + 1):
            t = j / segments
            gap = 0.15 + height * min(1.0, j * step / 5)
            up = normalized(tuple(c / ((h + gap) * (h + gap)) for c, h in zip(point, HEAD)))
            radius = math.hypot(point[0], point[2]) or 1
            out, along = (point[0] / radius, point[2] / radius), 0.3 * math.sin(phase + 0.42 * j * step) * t
            along += 0.1 * swing + 0.3 * ((lock[2] - place[2]) * out[0] - (lock[0] - place[0]) * out[1])
            inward = 0.16 if point[1] < -7 else 0.0
            pull = (-inward * out[0] - along * out[1], -1, -inward * out[1] + along * out[0])
            lasting = 0.75 ** step
            way = normalized(added(tuple(lasting * w for w in way), pull, 1 - lasting))
            inside = sum((c / (h + gap)) ** 2 for c, h in zip(point, HEAD)) < 1.05
            if inside and point[1] > 0 and dot(way, up) < 0.05 - 0.03 * step:
                way = normalized(added(way, up, 0.05 - 0.03 * step - dot(way, up)))
            point = on_scalp(added(point, way, step), gap)
            strand.append(added(point, (0.04 * rng.gauss(0, 1), 0, 0.04 * rng.gauss(0, 1))) if j > 1 else point)
        strands.append(strand)
    return strands


def rectangle(mesh, shader, middle, right, up):
    """Seen from the side from which `up` is to the left of `right`."""
    mesh.shader(shader)
    mesh.face([tuple(m + a * r + b * u for m, r, u in zip(middle, right, up))
               for a, b in ((-1, -1), (1, -1), (1, 1), (-1, 1))])


def studio():
    """A floor that runs up into a wall, and two lamps that face the origin."""
    mesh = Mesh()
    mesh.shader("floor")
    profile = [(-12.2, 200), (-12.2, -40)]
    angles = [math.pi / 16 * k for k in range(1, 9)]
    profile += [(-12.2 + 50 * (1 - math.cos(a)), -40 - 50 * math.sin(a)) for a in angles]
    profile.append((140, -90))
    ys = mesh.vertices([(x, y, z) for y, z in profile for x in (-260, 260)])
    for j in range(len(profile) - 1):
        mesh.index_face([(ys + k, None, None) for k in (2 * j, 2 * j + 1, 2 * j + 3, 2 * j + 2)])
    rectangle(mesh, "front_box", (-46, 44, 40), (-16, 0, -18), (-9, 14, 8))
    rectangle(mesh, "back_box", (38, 36, -34), (10, 0, 11), (-8, 12, 7))
    return mesh


def sweep():
    """A table that runs up into a wall behind the heads, for a camera towards (0.52, 0, -0.85)."""
    mesh = Mesh(2)
    mesh.shader("table")
    profile = [(120, -21.05), (-30, -21.05)]
    angles = [math.pi / 16 * k for k in range(1, 9)]
    profile += [(-30 - 30 * math.sin(a), -21.05 + 30 * (1 - math.cos(a))) for a in angles]
    profile.append((-60, 24))
    front, right = (0.52, -0.854), (-0.854, -0.52)
    first = mesh.vertices([(d * front[0] + s * right[0], y, d * front[1] + s * right[1])
                           for d, y in profile for s in (-130, 130)])
    for j in range(len(profile) - 1):
        mesh.index_face([(first + k, None, None) for k in (2 * j, 2 * j + 1, 2 * j + 3, 2 * j + 2)])
    return mesh


def write_furry(folder):
    rng = random.Random(3)
    mesh, faces = ball_with_uvs(3, 10.0)
    mesh.write(folder / "geometry/skin.obj")
    studio().write(folder / "geometry/studio.obj")
    ball(2, 1.7).write(folder / "geometry/eye.obj")
    write_hair(folder / "geometry/fur.hair", fur(faces, 5120, 3.6, 3, rng), 0.14, 0.3)


def write_hair_scene(folder):
    head(20, 36).write(folder / "geometry/head.obj")
    sweep().write(folder / "geometry/table.obj")
    write_hair(folder / "geometry/wig.hair", wig(5000, 8, -14, random.Random(8)), 0.1)
