"""Meshes of other libraries, told by what they have; none of these libraries is imported."""

from typing import Any, List

from ._errors import InvalidArgument
from ._mesh import Mesh


def as_mesh(other: Any) -> Mesh:
    """A mesh of anything that holds triangles; a `Mesh` is itself.

    Taken are objects of trimesh (`vertices`, `faces`), meshio (`points`, `cells`), open3d
    (`vertices`, `triangles`) and pyvista (`points`, `faces`, `n_cells`), pairs (vertices, faces),
    and arrays (n, 3, 3) or (n, 9) of triangles.

    >>> povmesh.as_mesh(([[0, 0, 0], [1, 0, 0], [0, 1, 0]], [[0, 1, 2]]))
    <povmesh.Mesh: 1 faces, 3 vertices, 1 x 1 x 0>
    """
    if isinstance(other, Mesh):
        return other
    if hasattr(other, "vertices") and hasattr(other, "faces"):
        return _of_trimesh(other)
    if hasattr(other, "points") and hasattr(other, "n_cells"):
        return _of_pyvista(other)
    if hasattr(other, "points") and hasattr(other, "cells"):
        return _of_meshio(other)
    if hasattr(other, "vertices") and hasattr(other, "triangles"):
        return _of_open3d(other)
    if isinstance(other, (tuple, list)) and len(other) == 2:
        return Mesh(other[0], other[1])
    if (
        isinstance(other, (tuple, list))
        or hasattr(other, "__array__")
        or hasattr(other, "__array_interface__")
    ):
        return Mesh(other)
    raise TypeError(
        f"{type(other).__name__} is no mesh that povmesh knows;"
        " give (vertices, faces), or povmesh.load(path)"
    )


def _of_trimesh(other: Any) -> Mesh:
    visual = getattr(other, "visual", None)
    colours = uv = None
    if visual is not None:
        uv = getattr(visual, "uv", None)
        if getattr(visual, "defined", False) and uv is None:
            # Each derives the other; `kind` tells which one was given.
            by_vertex = getattr(visual, "kind", None) == "vertex"
            colours = getattr(visual, "vertex_colors" if by_vertex else "face_colors", None)
            if colours is None:
                colours = getattr(visual, "face_colors" if by_vertex else "vertex_colors", None)
                by_vertex = not by_vertex
            if colours is not None:
                colours = _of_corners(colours, other.faces, by_vertex)
    return Mesh(other.vertices, other.faces, colours=colours, uv=uv)


def _of_corners(colours: Any, faces: Any, by_vertex: bool) -> Any:
    """Colours of vertices or faces for each corner, so that their number leaves no doubt."""
    import numpy

    rows, indices = numpy.asarray(colours)[:, :3], numpy.asarray(faces)
    if not by_vertex:
        return numpy.repeat(rows[:, None, :], 3, axis=1)
    if indices.size and not (0 <= indices.min() and indices.max() < len(rows)):
        raise InvalidArgument("faces name a vertex that has no colour")
    return rows[indices]


def _of_meshio(other: Any) -> Mesh:
    import numpy

    blocks: List[Any] = []
    for block in other.cells:
        kind, rows = block if isinstance(block, tuple) else (block.type, block.data)
        rows = numpy.asarray(rows)
        if kind == "triangle":
            blocks.append(rows)
        elif kind == "quad":
            blocks.append(rows[:, [0, 1, 2, 0, 2, 3]].reshape(-1, 3))
        else:
            raise InvalidArgument(f"cells: '{kind}' are no triangles; take their surface first")
    faces = numpy.concatenate(blocks) if blocks else numpy.empty((0, 3), "i4")
    points = numpy.asarray(other.points)
    if points.ndim == 2 and points.shape[1] == 2:  # flat
        points = numpy.column_stack([points, numpy.zeros(len(points))])
    return Mesh(points, faces)


def _of_open3d(other: Any) -> Mesh:
    import numpy

    faces = numpy.asarray(other.triangles)

    def given(name: str) -> Any:
        rows = numpy.asarray(getattr(other, name, ()))
        return rows if len(rows) else None

    colours, uv = given("vertex_colors"), given("triangle_uvs")
    return Mesh(
        numpy.asarray(other.vertices),
        faces,
        colours=None if colours is None else _of_corners(colours, faces, True),
        uv=None if uv is None else uv.reshape(-1, 3, 2),
        labels=given("triangle_material_ids"),
    )


def _of_pyvista(other: Any) -> Mesh:
    import numpy

    padded = numpy.asarray(other.faces).reshape(-1)
    if len(padded) != 4 * int(other.n_cells) or (padded[::4] != 3).any():
        raise InvalidArgument("faces: cells that are no triangles; call triangulate() first")
    return Mesh(numpy.asarray(other.points), padded.reshape(-1, 4)[:, 1:])
