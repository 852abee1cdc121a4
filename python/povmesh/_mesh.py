"""Meshes: made, read, looked at, worked on, written."""

import ctypes
import os

from typing import (
    TYPE_CHECKING,
    Any,
    Dict,
    Generic,
    Iterable,
    List,
    NamedTuple,
    Optional,
    Sequence,
    Tuple,
    TypeVar,
    Union,
)

from . import _abi
from ._arrays import Owner, array_of, bytes_at, describe, mesh_array, numbers_of, result_array
from ._context import Context, Progress, run, warn
from ._errors import Error, InvalidArgument
from ._findings import CheckReport, check_report, number_text
from ._library import lib
from ._operate import drains_of, encoded, operate, options_of, report_of, report_struct
from ._report_classes import (
    BalanceReport,
    CutReport,
    DecomposeReport,
    DistanceReport,
    LampshadeReport,
    SplitReport,
    StrengthReport,
    SupportReport,
    ThicknessReport,
    WriteReport,
)
from ._reports import values_of

if TYPE_CHECKING:
    import numpy

    Array = numpy.ndarray[Any, Any]

Drain = Tuple[float, float, float, float]
"""A drain hole: place x, y, z on the surface or near it, radius."""

_REAL = {"f": "f8", "i": "f8", "u": "f8"}
_WHOLE = {"i": "i8", "u": "u8"}


class Mesh:
    """A mesh of triangles. It cannot be changed: operations return new ones.

    vertices: (v, 3) numbers. faces: (f, 3) indices of vertices, counter-clockwise seen from
    outside; without them `vertices` is (f, 3, 3) or (f, 9), the corners of triangles, which are
    welded. colours: (f, 3, 3) or (f, 9) for corners, (f, 3) for faces, (v, 3) for vertices; uint8,
    or floats from 0 to 1; a fourth number in rows of one colour, opacity, is left out. uv: (f, 3,
    2) or (v, 2). labels: (f,) groups or materials, -1: none; without labels, faces with uv get 0.
    weld: vertices of the same coordinates become one.

    Numbers are copied, float64 rounded to float32. Faces with two equal vertices are left out. An
    index out of range is an `InvalidArgument`.

    >>> import numpy
    >>> corners = numpy.array([[0, 0, 0], [1, 0, 0], [0, 1, 0], [0, 0, 1]])
    >>> mesh = povmesh.Mesh(corners, [[0, 2, 1], [0, 1, 3], [1, 2, 3], [2, 0, 3]])
    >>> mesh
    <povmesh.Mesh: 4 faces, 4 vertices, 1 x 1 x 1>
    >>> round(mesh.volume, 6), mesh.is_clean
    (0.166667, True)
    """

    __slots__ = ("_owner", "_report", "_cache", "__weakref__")

    _owner: Owner
    _report: Any
    _cache: Dict[str, Any]

    def __init__(
        self,
        vertices: Any,
        faces: Any = None,
        *,
        colours: Any = None,
        uv: Any = None,
        labels: Any = None,
        weld: bool = False,
        context: Optional[Context] = None,
    ) -> None:
        data = _abi.povmesh_mesh_data(
            size=ctypes.sizeof(_abi.povmesh_mesh_data), weld=1 if weld else 0
        )
        shapes: Sequence[Tuple[int, ...]] = [(3, 3), (9,)] if faces is None else [(3,)]
        points = numbers_of(vertices, "vertices", ("f4", "f8"), _REAL, shapes)
        kept = [points]
        data.positions = describe(points)
        indices = None
        if faces is not None:
            indices = numbers_of(faces, "faces", ("i4", "u4", "i8", "u8"), _WHOLE, [(3,)])
            kept.append(indices)
            data.faces = describe(indices)
        face_count = len(points if indices is None else indices)
        if colours is not None:
            kept.append(
                _colour_rows(colours, face_count, len(points) if indices is not None else None)
            )
            data.colours = describe(kept[-1])
        if uv is not None:
            kept.append(_uv_rows(uv, indices, len(points)))
            data.texture_coordinates = describe(kept[-1])
        if labels is not None or uv is not None:
            kept.append(_label_rows(labels, face_count))
            data.labels = describe(kept[-1])
        made = ctypes.c_void_p()
        try:
            run(lib.povmesh_mesh_create, data, ctypes.byref(made), context=context, progress=None)
        except BaseException:
            lib.povmesh_mesh_release(made)
            raise
        assert made.value is not None
        self._set(Owner(made.value, lib.povmesh_mesh_release), None)

    def _set(self, owner: Owner, report: Any) -> None:
        object.__setattr__(self, "_owner", owner)
        object.__setattr__(self, "_report", report)
        object.__setattr__(self, "_cache", {})

    def __setattr__(self, name: str, value: Any) -> None:
        raise AttributeError("a mesh cannot be changed")

    # ---- what it is made of

    def _array(self, name: str, array: int, *shape: int) -> "Array":
        if name not in self._cache:
            self._cache[name] = mesh_array(self._owner, array, *shape)
        found: "Array" = self._cache[name]
        return found

    @property
    def vertices(self) -> "Array":
        """(v, 3) float32: coordinates in the unit of the file. A read-only view, no copy.

        >>> mesh = povmesh.load("cat.stl")
        >>> mesh.vertices.shape, str(mesh.vertices.dtype), mesh.vertices.flags.writeable
        ((7949, 3), 'float32', False)
        """
        return self._array("vertices", _abi.POVMESH_POSITIONS, 3)

    @property
    def faces(self) -> "Array":
        """(f, 3) int32: the vertices of each face, counter-clockwise seen from outside. A view.

        >>> povmesh.load("cat.stl").faces.shape
        (15894, 3)
        """
        return self._array("faces", _abi.POVMESH_FACES, 3)

    @property
    def colours(self) -> "Optional[Array]":
        """(f, 3, 3) uint8: red, green, blue of each corner. A view; None: the mesh has none."""
        return (
            self._array("colours", _abi.POVMESH_COLOURS, 3, 3)
            if self._measures.has_colours
            else None
        )

    @property
    def labels(self) -> "Optional[Array]":
        """(f,) int16: groups or materials, -1: none. A view; None: no face has one."""
        return self._array("labels", _abi.POVMESH_LABELS) if self._measures.has_labels else None

    @property
    def uv(self) -> "Optional[Array]":
        """(t, 2) float64: texture coordinates. A view; None: the mesh has none."""
        if not self._measures.has_texture_coordinates:
            return None
        return self._array("uv", _abi.POVMESH_TEXTURE_COORDINATES, 2)

    @property
    def uv_faces(self) -> "Optional[Array]":
        """(f, 3) int32: rows of `uv` for each corner, -1: none. A view; None: the mesh has none."""
        if not self._measures.has_texture_coordinates:
            return None
        return self._array("uv_faces", _abi.POVMESH_TEXTURE_FACES, 3)

    @property
    def _measures(self) -> Any:
        if "measures" not in self._cache:
            measures = _abi.povmesh_measures(size=ctypes.sizeof(_abi.povmesh_measures))
            run(lib.povmesh_measure, self._owner.handle, measures, context=None, progress=None)
            self._cache["measures"] = measures
        return self._cache["measures"]

    @property
    def bounds(self) -> "Array":
        """(2, 3) float64: low and high corner of the box of the vertices in use; NaN: there is
        none.

        >>> povmesh.load("cat.stl").bounds.round(2).tolist()
        [[-24.44, -0.12, -10.71], [25.08, 55.33, 7.77]]
        """
        import numpy

        box = numpy.array([list(self._measures.low), list(self._measures.high)])
        return box if box[0, 0] <= box[1, 0] else numpy.full((2, 3), numpy.nan)

    @property
    def volume(self) -> float:
        """Enclosed volume, in cubes of the unit; below 0: wound inward."""
        return float(self._measures.volume)

    @property
    def area(self) -> float:
        """Area of the surface, in squares of the unit."""
        return float(self._measures.area)

    @property
    def is_clean(self) -> bool:
        """Whether `check` finds no flaw. Looked for once."""
        if "check" not in self._cache:
            self._cache["check"] = self.check(advice=False)
        return bool(self._cache["check"].is_clean)

    @property
    def is_closed(self) -> bool:
        """Whether no edge is open. Looked for once."""
        if "closed" not in self._cache:
            self._cache["closed"] = self.check(self_intersections=False, advice=False).is_closed
        return bool(self._cache["closed"])

    @property
    def report(self) -> Any:
        """What the call that made this mesh told; None: nothing.

        >>> povmesh.load("featuretype_open.stl").repair().report.closed_holes
        8
        """
        return self._report

    def __len__(self) -> int:
        """The number of faces."""
        return len(self.faces)

    def __bool__(self) -> bool:
        return True

    def __repr__(self) -> str:
        measures = self._measures
        extent = [high - low for low, high in zip(measures.low, measures.high)]
        size = (
            " x ".join(number_text(float(f"{x:.4g}")) for x in extent)
            if min(extent) >= 0
            else "no size"
        )
        return f"<povmesh.Mesh: {measures.faces:,} faces, {measures.vertices:,} vertices, {size}>"

    def _repr_png_(self) -> Optional[bytes]:
        """The picture that notebooks show."""
        try:
            return self.render(width=480, height=360)
        except Error:
            return None  # the text is shown

    def __copy__(self) -> "Mesh":
        return self

    def __deepcopy__(self, memo: Dict[int, Any]) -> "Mesh":
        return self

    def __reduce__(self) -> Tuple[Any, ...]:
        uv = None
        if self.uv is not None and self.uv_faces is not None:
            uv = self.uv[self.uv_faces]
        return _remake, (self.vertices, self.faces, self.colours, uv, self.labels)

    # ---- files

    def save(
        self,
        path: "Union[str, os.PathLike[str]]",
        *,
        format: Optional[str] = None,
        flush: bool = True,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> WriteReport:
        """Writes a file: STL, OBJ, PLY or 3MF, by `format` or the end of the path.

        What was there is replaced only by a complete file. flush: wait for the disk. What the
        format does not keep is a `ModelWarning`. Raises `CannotWrite`, `Unsupported`.

        >>> povmesh.load("cat.stl").save("cat.obj").bytes > 400_000
        True
        """
        options = options_of("write", {"flush": bool(flush), "format": format})
        report = report_struct("write")
        name = encoded("path", os.fspath(path))
        arguments = (self._owner.handle, name, options, report)
        lines = run(lib.povmesh_write_file, *arguments, context=context, progress=progress)
        written = _written(report)
        _tell_lost(written, lines, context)
        return written

    def to_bytes(
        self, format: str, *, progress: Optional[Progress] = None, context: Optional[Context] = None
    ) -> bytes:
        """The bytes of a file: "stl", "obj", "ply" or "3mf".

        >>> len(povmesh.load("cat.stl").to_bytes("stl")) == 84 + 50 * 15894
        True
        """
        if not isinstance(format, str):
            raise TypeError(f"format: a str, not {type(format).__name__}")
        options = options_of("write", {"format": format})
        data, size = ctypes.c_void_p(), ctypes.c_size_t()
        report = report_struct("write")
        arguments = (self._owner.handle, options, ctypes.byref(data), ctypes.byref(size), report)
        try:
            lines = run(lib.povmesh_write_memory, *arguments, context=context, progress=progress)
        except BaseException:
            lib.povmesh_free(data)
            raise
        made = bytes_at(data, size.value)
        _tell_lost(_written(report), lines, context)
        return made

    def render(
        self,
        path: "Optional[Union[str, os.PathLike[str]]]" = None,
        *,
        width: int = 800,
        height: int = 600,
        view: str = "iso",
        flaws: bool = False,
        explode: bool = False,
        section: "Optional[Union[str, Tuple[str, float]]]" = None,
        compare: Any = None,
        supports: Any = None,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> bytes:
        """A picture as PNG bytes, also written to `path` when there is one.

        width, height: pixels, 16 to 8192. view: iso, front, back, left, right, top, bottom. flaws:
        draw them in colour. explode: pull bodies apart. section: "x", or ("x", 3.5): cut open
        across that axis, through the middle or there. compare: a mesh seen the same way on the
        right. supports: a mesh with it, in green.

        >>> povmesh.load("cat.stl").render("cat.png", width=320, height=240)[:4]
        b'\\x89PNG'
        """
        return render(
            [self],
            path,
            width=width,
            height=height,
            view=view,
            flaws=flaws,
            explode=explode,
            section=section,
            compare=compare,
            supports=supports,
            progress=progress,
            context=context,
        )

    # ---- for other libraries

    def to_trimesh(self) -> Any:
        """A `trimesh.Trimesh` with the same vertices and faces, and the colours of faces."""
        trimesh = _wanted("trimesh")
        colours = None if self.colours is None else self.colours[:, 0]
        return trimesh.Trimesh(self.vertices, self.faces, face_colors=colours, process=False)

    def to_meshio(self) -> Any:
        """A `meshio.Mesh` with one block of triangles."""
        return _wanted("meshio").Mesh(self.vertices, [("triangle", self.faces)])

    def to_open3d(self) -> Any:
        """An `open3d.geometry.TriangleMesh` with the same vertices and faces."""
        open3d = _wanted("open3d")
        points = open3d.utility.Vector3dVector(self.vertices.astype("f8"))
        return open3d.geometry.TriangleMesh(points, open3d.utility.Vector3iVector(self.faces))

    # ---- operations

    def _change(
        self,
        operation: str,
        progress: Optional[Progress],
        context: Optional[Context],
        **values: Any,
    ) -> "Mesh":
        owner, report, lines = operate(
            operation, self, values, lib.povmesh_mesh_release, progress, context
        )
        mesh = _mesh_of(owner, report_of(operation, report))
        warn(lines)
        return mesh

    def _result(
        self,
        operation: str,
        progress: Optional[Progress],
        context: Optional[Context],
        **values: Any,
    ) -> "Tuple[Owner, List[Mesh], Any]":
        owner, struct, lines = operate(
            operation, self, values, lib.povmesh_result_release, progress, context
        )
        report = report_of(operation, struct)
        meshes = []
        for index in range(lib.povmesh_result_mesh_count(owner.handle)):
            handle = lib.povmesh_result_mesh(owner.handle, index)
            lib.povmesh_mesh_retain(handle)
            meshes.append(_mesh_of(Owner(handle, lib.povmesh_mesh_release), report))
        warn(lines)
        return owner, meshes, report

    def check(
        self,
        *,
        self_intersections: Optional[bool] = None,
        advice: bool = True,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> CheckReport:
        """Tells what is wrong with the mesh; flaws are no failure.

        self_intersections: count faces that cut through each other; None: in meshes of up to
        2,000,000 faces. advice: try what `repair` would do.

        >>> print(povmesh.load("featuretype_open.stl").check().verdict)
        flaws: 576 open edges, 6 degenerate faces, 1,216 pairs of intersecting faces
        """
        crossings = 0 if self_intersections is None else 1 if self_intersections else -1
        values = {"self_intersections": crossings, "advice": bool(advice)}
        release = lib.povmesh_result_release
        owner, struct, _ = operate("check", self, values, release, progress, context)
        return check_report(
            values_of("check", struct, CheckReport.__mro__[1].__annotations__),
            result_array(owner, _abi.POVMESH_HOLES, "u8", 2),
            result_array(owner, _abi.POVMESH_FLAW_PLACES, "f4", 3),
            result_array(owner, _abi.POVMESH_FLAW_FACES, "u4", 2),
            lib.povmesh_result_text(owner.handle).decode("utf-8", "replace"),
        )

    def repair(
        self,
        *,
        outward: bool = False,
        drop_tiny: float = 0.0,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Removes duplicate faces, closes holes, turns faces outward.

        outward: turn cavities outward, too. drop_tiny: shells smaller than a cube of this volume,
        in volume and in area, go.

        >>> fixed = povmesh.load("featuretype_open.stl").repair()
        >>> fixed.report.closed_holes, fixed.report.added_faces
        (8, 272)
        """
        return self._change("repair", progress, context, outward=bool(outward), drop_tiny=drop_tiny)

    def reduce(
        self,
        *,
        keep: Optional[float] = None,
        faces: Optional[int] = None,
        automatic: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Makes a model of fewer triangles, where the surface changes least. One of the three:

        keep: share of the faces of each shell, 0 to 1. faces: how many shall stay. automatic:
        shells of more than 100,000 faces to these and 30 % of the rest.

        >>> smaller = povmesh.load("cat.stl").reduce(faces=5000)
        >>> len(smaller), smaller.report.ended_by
        (5000, 'target')
        """
        return self._change(
            "reduce", progress, context, keep=keep, faces=faces, automatic=bool(automatic)
        )

    def remesh(
        self,
        *,
        edge_length: Optional[float] = None,
        lengths: Any = None,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Makes all triangles about equally large.

        edge_length: of the new triangles, in units of the file. lengths: (f,) one for each face
        instead; one not above 0: the mean edge of the face.

        >>> povmesh.load("cat.stl").remesh(edge_length=2.0).is_closed
        True
        """
        rows = None
        if lengths is not None:
            rows = numbers_of(lengths, "lengths", ("f4",), {"f": "f4", "i": "f4", "u": "f4"}, [()])
        given = None if rows is None else describe(rows)
        return self._change("remesh", progress, context, edge_length=edge_length, lengths=given)

    def revise(
        self,
        *,
        most_movement: float = 0.001,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Mends needles and other triangles of bad shape, leaving the rest alone.

        most_movement: how far a vertex may go, as a share of the diagonal of the box.

        >>> report = povmesh.load("gearwheel.stl").revise().report
        >>> report.needles_after <= report.needles_before
        True
        """
        return self._change("revise", progress, context, most_movement=most_movement)

    def subdivide(
        self,
        *,
        levels: int = 1,
        mode: str = "uniform",
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Smooths a model and gives it more triangles.

        levels: how many times, 1 to 5. mode: "uniform", "adaptive" (only edges longer than the
        average), "smooth" (no more triangles).

        >>> len(povmesh.load("cat.stl").subdivide())
        63576
        """
        return self._change("subdivide", progress, context, levels=levels, mode=mode)

    def hollow(
        self,
        *,
        thickness: float,
        drains: Iterable[Drain] = (),
        wall: str = "default",
        cavity_only: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Makes a shell of a solid model.

        thickness: of the wall. drains: holes (x, y, z, radius) through it. wall: "exact", "voxel",
        or "default", that of the tool. cavity_only: the cavity alone, its outside out.

        >>> shell = povmesh.load("cat.stl").hollow(thickness=1.5, drains=[(0, 0, 0, 1)])
        >>> shell.report.saved_percent > 40
        True
        """
        holes = drains_of(list(drains))
        return self._change(
            "hollow",
            progress,
            context,
            thickness=thickness,
            wall=wall,
            cavity_only=bool(cavity_only),
            drains=holes if len(holes) else None,
            drain_count=len(holes),
        )

    def infill(
        self,
        *,
        skin: float,
        density: float,
        cells_only: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Takes material out of a solid model in closed cells.

        skin: thickness above the cells. density: share of the rest that stays material, 0 to 1.
        cells_only: the cells alone, their outside out.

        >>> povmesh.load("cat.stl").infill(skin=1.2, density=0.2).report.cells > 0
        True
        """
        return self._change(
            "infill", progress, context, skin=skin, density=density, cells_only=bool(cells_only)
        )

    def voxelize(
        self, *, edge: float, progress: Optional[Progress] = None, context: Optional[Context] = None
    ) -> "Mesh":
        """Makes a model of cubes of this edge.

        >>> povmesh.load("cat.stl").voxelize(edge=2.0).report.voxels > 1000
        True
        """
        return self._change("voxelize", progress, context, edge=edge)

    def offset(
        self,
        *,
        distance: float,
        corners: str = "round",
        cell: Optional[float] = None,
        all_triangles: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Grows a model by a distance, or shrinks it when the distance is below 0.

        corners: "round" or "sharp". cell: side of the cells of the surface. all_triangles: leave
        flat places undivided no further, as they come out of the cells.

        >>> grown = povmesh.load("cat.stl").offset(distance=0.5, cell=0.5)
        >>> bool((grown.bounds[1] > povmesh.load("cat.stl").bounds[1]).all())
        True
        """
        return self._change(
            "offset",
            progress,
            context,
            distance=distance,
            corners=corners,
            cell=cell,
            all_triangles=bool(all_triangles),
        )

    def wrap(
        self,
        *,
        tolerance: Optional[float] = None,
        gap: Optional[float] = None,
        cell: Optional[float] = None,
        drop_thin: bool = False,
        all_triangles: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Mesh":
        """Makes a closed solid of any triangles, following the faces with their edges.

        tolerance: how far the result may be from the model. gap: widest opening that is closed.
        cell: side of the cells. drop_thin: sheets go. None: as fits the model.

        >>> povmesh.load("featuretype_open.stl").wrap(cell=0.1).is_closed
        True
        """
        return self._change(
            "wrap",
            progress,
            context,
            tolerance=tolerance,
            gap=gap,
            cell=cell,
            drop_thin=bool(drop_thin),
            all_triangles=bool(all_triangles),
        )

    def split(
        self,
        *,
        min_volume: float = 0.0,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Parts[SplitReport]":
        """Each body as a mesh of its own; those smaller than `min_volume` are left out.

        >>> len(povmesh.load("multibody_ascii.stl").split())
        2
        """
        owner, meshes, report = self._result("split", progress, context, min_volume=min_volume)
        return Parts(meshes, report, owner)

    def cut(
        self,
        *,
        normal: Sequence[float] = (0.0, 0.0, 1.0),
        point: Optional[Sequence[float]] = None,
        caps: bool = True,
        mirror: bool = False,
        pegs: int = 0,
        peg_radius: float = 2.0,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Parts[CutReport]":
        """Divides a model with the plane through `point`, else through the middle of its box.

        normal: of any length. caps: close the openings. mirror: keep the side of the normal and add
        its mirror image. pegs: for each model, with sockets, up to 256. Raises `NoResult` where the
        plane misses the model.

        >>> lower, upper = povmesh.load("cat.stl").cut(normal=(0, 1, 0))
        >>> lower.is_closed and upper.is_closed
        True
        """
        owner, meshes, report = self._result(
            "cut",
            progress,
            context,
            normal=normal,
            point=point,
            caps=bool(caps),
            mirror=bool(mirror),
            pegs=pegs,
            peg_radius=peg_radius,
        )
        return Parts(meshes, report, owner)

    def decompose(
        self,
        *,
        extent: Sequence[float],
        margin: float = 0.0,
        pegs: int = 0,
        peg_radius: float = 2.0,
        turn: bool = False,
        uniform: bool = False,
        preview: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Parts[DecomposeReport]":
        """Divides a model into as few parts as are found that fit a printer.

        extent: of the printer along x, y, z; 0: no limit. margin: less on each axis. pegs: for each
        cut. turn: a part may lie on another side. uniform: even slabs. preview: no meshes, only
        `planes`, `boxes` and `volumes`.

        >>> parts = povmesh.load("cat.stl").decompose(extent=(60, 40, 40))
        >>> len(parts) == parts.report.parts
        True
        """
        owner, meshes, report = self._result(
            "decompose",
            progress,
            context,
            extent=extent,
            margin=margin,
            pegs=pegs,
            peg_radius=peg_radius,
            turn=bool(turn),
            uniform=bool(uniform),
            preview=bool(preview),
        )
        return Parts(meshes, report, owner)

    def support(
        self,
        *,
        spacing: float = 3.0,
        angle: float = 45.0,
        plate: Optional[float] = None,
        layer_height: float = 0.0,
        columns: Any = None,
        with_model: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Supports":
        """Puts columns below what hangs over.

        spacing: between them. angle: of what needs none, in degrees from upright. plate: its
        height; None: the lowest point. layer_height: of the polygons of layers; 0: none. columns:
        (n, 6) upper and lower ends, instead of a search. with_model: the mesh holds the model, too.

        >>> povmesh.load("cat.stl").support().report.columns > 0
        True
        """
        given = None
        if columns is not None:
            kept = numbers_of(
                columns, "columns", ("f4",), {"f": "f4", "i": "f4", "u": "f4"}, [(6,), (2, 3)]
            )
            given = describe(kept)
        owner, meshes, report = self._result(
            "support",
            progress,
            context,
            spacing=spacing,
            angle=angle,
            plate=plate,
            layer_height=layer_height,
            columns=given,
            with_model=bool(with_model),
        )
        found = result_array(owner, _abi.POVMESH_COLUMNS, "f4", 2, 3)
        return Supports(_first(meshes), found, _polygons(owner), report)

    def strength(
        self,
        *,
        method: str = "fem",
        load: str = "top",
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Strength":
        """Colours a model from blue to red where it is weak.

        method: "fem" (finite elements) or "sections". load: "top", "all" or "centre", for "fem".

        >>> result = povmesh.load("cat.stl").strength(method="sections")
        >>> result.mesh.colours is not None
        True
        """
        owner, meshes, report = self._result(
            "strength", progress, context, method=method, load=load
        )
        return Strength(
            _first(meshes),
            result_array(owner, _abi.POVMESH_VALUES, "f4"),
            result_array(owner, _abi.POVMESH_WEAK_PLACES, "f8", 4),
            report,
        )

    def weakness(
        self,
        *,
        all: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Array":
        """(n, 8) float64: weak cross-sections, the weakest first: centre, unit normal, score, area.

        The score goes from 0 to 100. all: every section that was looked at.

        >>> povmesh.load("cat.stl").weakness().shape[1]
        8
        """
        owner, _, _ = self._result("weakness", progress, context, all=bool(all))
        return result_array(owner, _abi.POVMESH_SECTIONS, "f8", 8)

    def thickness(
        self,
        *,
        wall: float,
        gap: float = 0.0,
        places: int = 0,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Thickness":
        """Tells where walls are thinner than `wall` and gaps narrower than `gap`, and paints the
        model.

        gap: 0: do not look. places: how many to tell at most; 0: all.

        >>> povmesh.load("cat.stl").thickness(wall=2.0).thin_places.shape[1]
        6
        """
        owner, meshes, report = self._result(
            "thickness", progress, context, wall=wall, gap=gap, places=places
        )
        return Thickness(
            _first(meshes),
            result_array(owner, _abi.POVMESH_THIN_PLACES, "f8", 6),
            result_array(owner, _abi.POVMESH_GAP_PLACES, "f8", 6),
            report,
        )

    def orient(
        self,
        *,
        rows: int = 5,
        choose: int = 0,
        up: Optional[Sequence[float]] = None,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Orientations":
        """Tells which side to print downward, and stands the model on it.

        rows: how many of the best, up to 64. choose: k: `mesh` stands as row k has it; 0: no mesh.
        up: measure this direction, too, as the last row.

        >>> best = povmesh.load("cat.stl").orient(choose=1)
        >>> best.rows.shape[1], best.mesh is not None
        (9, True)
        """
        owner, meshes, _ = self._result(
            "orient", progress, context, rows=rows, choose=choose, up=up
        )
        table = result_array(owner, _abi.POVMESH_ORIENTATIONS, "f8", 9)
        return Orientations(meshes[0] if meshes else None, table)

    def lampshade(
        self,
        *,
        thickness: float,
        bottom: Optional[float] = None,
        top: str = "automatic",
        top_level: Optional[float] = None,
        preview: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Lampshade":
        """Makes an even, open shell of a model, a shade for a lamp.

        thickness: of the wall. bottom: height to cut at. top: "automatic", "open", "closed" or
        "level", which is at `top_level`. preview: only the outlines, no mesh.

        >>> povmesh.load("cat.stl").lampshade(thickness=1.2).mesh is not None
        True
        """
        owner, meshes, report = self._result(
            "lampshade",
            progress,
            context,
            thickness=thickness,
            bottom=bottom,
            top=top,
            top_level=top_level,
            preview=bool(preview),
        )
        levels = result_array(owner, _abi.POVMESH_POLYGON_LEVELS, "f4")
        return Lampshade(meshes[0] if meshes else None, _polygons(owner), levels, report)

    def balance(
        self,
        *,
        thickness: float,
        angle: float = 10.0,
        infill_percent: float = 0.0,
        drains: Iterable[Drain] = (),
        check: bool = False,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> "Balance":
        """Carves a model from the inside so that it stands.

        thickness: of the wall. angle: degrees that a firm model withstands. infill_percent: of the
        core that stays. drains: holes (x, y, z, radius). check: measure only, no mesh.

        >>> povmesh.load("cat.stl").balance(thickness=1.5, check=True).mesh is None
        True
        """
        holes = drains_of(list(drains))
        owner, meshes, report = self._result(
            "balance",
            progress,
            context,
            thickness=thickness,
            angle=angle,
            infill_percent=infill_percent,
            drains=holes if len(holes) else None,
            drain_count=len(holes),
            check=bool(check),
        )
        points = result_array(owner, _abi.POVMESH_BALANCE_POINTS, "f4", 3)
        return Balance(meshes[0] if meshes else None, points, report)

    def distance(
        self,
        other: Any,
        *,
        samples: int = 0,
        progress: Optional[Progress] = None,
        context: Optional[Context] = None,
    ) -> DistanceReport:
        """How far the surface is from that of another mesh, and back, in units of the file.

        samples: on each surface; 0: one a face, 100,000 at least.

        >>> mesh = povmesh.load("cat.stl")
        >>> mesh.distance(mesh.reduce(keep=0.5), samples=1000).greatest < 0.5
        True
        """
        to = _as_mesh(other)
        options = options_of("distance", {"samples": samples})
        struct = report_struct("distance")
        arguments = (self._owner.handle, to._owner.handle, options, struct)
        run(lib.povmesh_distance, *arguments, context=context, progress=progress)
        report = report_of("distance", struct)
        assert isinstance(report, DistanceReport)
        return report


# ---- what operations give that make more than a mesh


_R = TypeVar("_R")


class Parts(Tuple[Mesh, ...], Generic[_R]):
    """Meshes with the report of the call that made them.

    planes: (n, 4) float64, unit normal and offset. boxes: (n, 6) float32, low and high corner of
    each part. volumes: (n,) float64. Empty where the operation does not tell them.
    """

    report: _R
    planes: "Array"
    boxes: "Array"
    volumes: "Array"

    def __new__(cls, meshes: Iterable[Mesh], report: _R, owner: Owner) -> "Parts[_R]":
        parts = tuple.__new__(cls, meshes)
        parts.report = report
        parts.planes = result_array(owner, _abi.POVMESH_PLANES, "f8", 4)
        parts.boxes = result_array(owner, _abi.POVMESH_BOXES, "f4", 6)
        parts.volumes = result_array(owner, _abi.POVMESH_VOLUMES, "f8")
        return parts


class Supports(NamedTuple):
    """columns: (n, 2, 3) float32, upper and lower end of each axis. polygons: (p, 3) float32
    each."""

    mesh: Mesh
    columns: "Array"
    polygons: "List[Array]"
    report: SupportReport


class Strength(NamedTuple):
    """values: (v,) float32, the higher, the weaker. weak_places: (n, 4) place, share of the
    greatest."""

    mesh: Mesh
    values: "Array"
    weak_places: "Array"
    report: StrengthReport


class Thickness(NamedTuple):
    """Places: (n, 6) float64: thinnest point, area, thickness there, extent; by falling area."""

    mesh: Mesh
    thin_places: "Array"
    gap_places: "Array"
    report: ThicknessReport


class Orientations(NamedTuple):
    """rows: (n, 9) float64: up, score, support volume, touched area, contact area, tilt, height.

    Row 0 is the model as it stands, then the best first. Tilt is in degrees.
    """

    mesh: Optional[Mesh]
    rows: "Array"


class Lampshade(NamedTuple):
    """polygons: outlines, (p, 3) float32 each; levels: (n,) their heights."""

    mesh: Optional[Mesh]
    polygons: "List[Array]"
    levels: "Array"
    report: LampshadeReport


class Balance(NamedTuple):
    """mesh: None where the model falls, or was only measured. points: (n, 3) float32."""

    mesh: Optional[Mesh]
    points: "Array"
    report: BalanceReport


def _polygons(owner: Owner) -> "List[Array]":
    import numpy

    points = result_array(owner, _abi.POVMESH_POLYGON_POINTS, "f4", 3)
    sizes = result_array(owner, _abi.POVMESH_POLYGON_SIZES, "u4")
    if len(sizes) == 0:
        return []
    return numpy.split(points, numpy.cumsum(sizes[:-1], dtype="i8"))


def _first(meshes: List[Mesh]) -> Mesh:
    if not meshes:
        raise RuntimeError("povmesh: the library gave no mesh")
    return meshes[0]


# ---- meshes of arrays


def _colour_rows(colours: Any, faces: int, vertices: Optional[int]) -> "Array":
    """Colours as rows of 9 a face or 3 a vertex."""
    import numpy

    kinds = {"i": "i8", "u": "u8", "f": "f8"}
    shapes: List[Tuple[int, ...]] = [(3, 3), (9,), (3,), (4,)]
    rows = numbers_of(colours, "colours", ("u1", "f4", "f8"), kinds, shapes)
    if rows.dtype.kind in "iu" and rows.dtype.itemsize > 1:
        if rows.size and not (0 <= rows.min() and rows.max() <= 255):
            raise InvalidArgument("colours must be from 0 to 255")
        rows = rows.astype("u1")
    if rows.ndim == 3 or rows.shape[1] == 9:
        return rows
    rows = rows[:, :3]
    if len(rows) == faces and vertices == faces:
        raise InvalidArgument(
            "colours could be those of faces or of vertices; give them for corners, as (f, 3, 3)"
        )
    if len(rows) == vertices:
        return rows
    return numpy.ascontiguousarray(numpy.repeat(rows[:, None, :], 3, axis=1))


def _uv_rows(uv: Any, faces: "Optional[Array]", vertices: int) -> "Array":
    """Texture coordinates as rows of 6 a face."""
    rows = numbers_of(uv, "uv", ("f4", "f8"), _REAL, [(3, 2), (6,), (2,)])
    if rows.ndim != 2 or rows.shape[1] != 2:
        return rows
    if faces is None or len(rows) != vertices:
        raise InvalidArgument("uv must have a row for each vertex, or for each face, as (f, 3, 2)")
    if faces.size and not (0 <= faces.min() and faces.max() < vertices):
        raise InvalidArgument("faces name a vertex that is not there")
    return rows[faces]


def _label_rows(labels: Any, faces: int) -> "Array":
    import numpy

    if labels is None:
        return numpy.zeros(faces, "i2")
    rows = numbers_of(labels, "labels", ("i2", "i4"), {"i": "i8", "u": "i8"}, [()])
    if rows.size and not (-32768 <= rows.min() and rows.max() <= 32767):
        raise InvalidArgument("labels must be from -32768 to 32767")
    return rows if rows.dtype.itemsize < 8 else rows.astype("i4")


def _mesh_of(owner: Owner, report: Any) -> Mesh:
    mesh = Mesh.__new__(Mesh)
    mesh._set(owner, report)
    return mesh


def _remake(vertices: Any, faces: Any, colours: Any, uv: Any, labels: Any) -> Mesh:
    return Mesh(vertices, faces, colours=colours, uv=uv, labels=labels)


def _as_mesh(other: Any) -> Mesh:
    from ._convert import as_mesh

    return as_mesh(other)


def _wanted(name: str) -> Any:
    import importlib

    try:
        return importlib.import_module(name)
    except ImportError:
        raise ImportError(f"povmesh: {name} is not installed; pip install {name}") from None


def _written(struct: Any) -> WriteReport:
    report = report_of("write", struct)
    assert isinstance(report, WriteReport)
    return report


def _tell_lost(report: WriteReport, lines: List[str], context: Optional[Context]) -> None:
    kinds = ("colours", "labels", "texture_coordinates")
    lost = [kind.replace("_", " ") for kind in kinds if getattr(report, f"lost_{kind}")]
    if lost:
        lines = [*lines, f"{' and '.join(lost)} are lost: the format does not keep them"]
    if context is not None and context._own_log is not None:
        for line in lines:
            context._own_log("warning", line)
    else:
        warn(lines)


# ---- functions


def load(
    source: Any,
    *,
    format: Optional[str] = None,
    progress: Optional[Progress] = None,
    context: Optional[Context] = None,
) -> Mesh:
    """Reads a model: STL, OBJ, PLY or 3MF, packed with gzip or not.

    source: a path; bytes, a bytearray or a memoryview; or an open binary file. format: "stl" and so
    on, where the name or the bytes do not tell. Raises `CannotRead`, `BadFile`, `TooLarge`.

    >>> povmesh.load("cat.stl")
    <povmesh.Mesh: 15,894 faces, 7,949 vertices, 49.52 x 55.45 x 18.48>
    >>> povmesh.load(open("cat.stl", "rb")).report.format
    'binary STL'
    """
    values: Dict[str, Any] = {"format": format}
    report = report_struct("read")
    made = ctypes.c_void_p()
    kept: Any = None
    if not isinstance(source, (bytes, bytearray, memoryview)) and hasattr(source, "read"):
        name = getattr(source, "name", None)
        values["name"] = name if isinstance(name, str) and "\0" not in name else None
        source = source.read()
        if not isinstance(source, (bytes, bytearray, memoryview)):
            raise TypeError("source: a file opened in binary mode ('rb')")
    if isinstance(source, (bytes, bytearray, memoryview)):
        import numpy

        kept = numpy.frombuffer(source, "u1")
        data = kept.__array_interface__["data"][0]
        arguments: Tuple[Any, ...] = (data, len(kept))
        function = lib.povmesh_read_memory
    else:
        arguments = (encoded("source", os.fspath(source)),)
        function = lib.povmesh_read_file
    options = options_of("read", values)
    try:
        lines = run(
            function,
            *arguments,
            options,
            ctypes.byref(made),
            report,
            context=context,
            progress=progress,
        )
    except BaseException:
        lib.povmesh_mesh_release(made)
        raise
    assert made.value is not None
    mesh = _mesh_of(Owner(made.value, lib.povmesh_mesh_release), report_of("read", report))
    warn(lines)
    return mesh


def render(
    meshes: Iterable[Any],
    path: "Optional[Union[str, os.PathLike[str]]]" = None,
    *,
    width: int = 800,
    height: int = 600,
    view: str = "iso",
    flaws: bool = False,
    explode: bool = False,
    section: "Optional[Union[str, Tuple[str, float]]]" = None,
    compare: Any = None,
    supports: Any = None,
    progress: Optional[Progress] = None,
    context: Optional[Context] = None,
) -> bytes:
    """A picture of several meshes together; all else as `Mesh.render`."""
    drawn = [_as_mesh(mesh) for mesh in meshes]
    beside = None if compare is None else _as_mesh(compare)
    held = None if supports is None else _as_mesh(supports)
    values: Dict[str, Any] = {
        "width": width,
        "height": height,
        "view": view,
        "flaws": bool(flaws),
        "explode": bool(explode),
        "compare": None if beside is None else beside._owner.handle,
        "supports": None if held is None else held._owner.handle,
    }
    if section is not None:
        axis, value = (section, None) if isinstance(section, str) else section
        if axis not in ("x", "y", "z"):
            raise InvalidArgument(f"section must be across x, y or z, not {axis!r}")
        values["section_axis"] = "xyz".index(axis)
        values["section_value"] = value
    options = options_of("render", values)
    handles = (ctypes.c_void_p * len(drawn))(*(mesh._owner.handle for mesh in drawn))
    png, size = ctypes.c_void_p(), ctypes.c_size_t()
    arguments = (handles, len(drawn), options, ctypes.byref(png), ctypes.byref(size))
    try:
        lines = run(lib.povmesh_render, *arguments, context=context, progress=progress)
    except BaseException:
        lib.povmesh_free(png)
        raise
    picture = bytes_at(png, size.value)
    if path is not None:
        from ._files import replace_file

        replace_file(path, picture)
    warn(lines)
    return picture
