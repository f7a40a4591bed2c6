"""Geometry of the sample scene `terrain`: a flat grid that a height picture lifts, and the lake in it."""

from make_textures import LAKE
from scene_mesh import Mesh

WIDTH, HIGH = 400.0, 130.0  # metres: sides of the land, and the height that a picture's 1 stands for


def land(cells):
    """A flat grid over the picture, at height 0, with u to the east and v to the north, away from the viewer."""
    mesh = Mesh(2)
    mesh.shader("land")
    ticks = [i / cells for i in range(cells + 1)]
    mesh.vertices([((u - 0.5) * WIDTH, 0, (0.5 - v) * WIDTH) for v in ticks for u in ticks])
    mesh.uvs([(0.002 + 0.996 * u, 0.002 + 0.996 * v) for v in ticks for u in ticks])
    for j in range(cells):
        for i in range(cells):
            a = j * (cells + 1) + i + 1
            b = a + cells + 1
            mesh.index_face([(k, k, None) for k in (a, a + 1, b + 1, b)])
    return mesh


def lake():
    mesh = Mesh(2)
    mesh.shader("water")
    y, w = LAKE * HIGH, 0.5 * WIDTH
    mesh.face([(-w, y, w), (w, y, w), (w, y, -w), (-w, y, -w)])
    return mesh


def write_terrain(folder):
    land(8).write(folder / "geometry/land.obj")
    lake().write(folder / "geometry/lake.obj")
