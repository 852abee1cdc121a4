"""Meshes: views, making, bad input, contexts, interrupts, foreign objects."""

import copy
import ctypes
import gc
import json
import os
import pickle
import shutil
import signal
import subprocess
import sys
import threading
import time
import types
import warnings
from pathlib import Path

import numpy
import pytest

import povmesh
from povmesh import _abi

ROOT = Path(__file__).resolve().parents[2]
TETRAHEDRON = numpy.array([[0, 0, 0], [1, 0, 0], [0, 1, 0], [0, 0, 1]], "f4")
SIDES = numpy.array([[0, 2, 1], [0, 1, 3], [1, 2, 3], [2, 0, 3]], "i4")


def tetrahedron(**more):
    return povmesh.Mesh(TETRAHEDRON, SIDES, **more)


def large():
    return povmesh.load("cat.stl").subdivide(levels=2)


def resident_bytes():
    return int(Path("/proc/self/statm").read_text().split()[1]) * os.sysconf("SC_PAGE_SIZE")


def test_abi_is_that_of_the_compiler(tmp_path):
    assert subprocess.run([sys.executable, ROOT / "python/make_abi.py", "--check"]).returncode == 0
    compiler = shutil.which("cc")
    if compiler is None:
        pytest.skip("no C compiler")
    lines, expected = [], []
    for name, struct in _abi.STRUCTS.items():
        lines.append(f"STRUCT({name})")
        expected.append(f"{name} {ctypes.sizeof(struct)}")
        for field, _ in struct._fields_:
            lines.append(f"FIELD({name}, {field})")
            expected.append(f"{name}.{field} {getattr(struct, field).offset}")
    for name, value in vars(_abi).items():
        if name.startswith("POVMESH_"):
            lines.append(f"NUMBER({name})")
            expected.append(f"{name} {value}")
    (tmp_path / "layout_list.h").write_text("\n".join(lines))
    source = ROOT / "python/tests/abi_layout.c"
    options = ["-I", ROOT / "include", "-I", tmp_path, "-o", tmp_path / "layout"]
    # Inline functions of the header call the library, which is not linked.
    subprocess.run(
        [compiler, "-O1", source, *options, "-Wl,--unresolved-symbols=ignore-all"], check=True
    )
    printed = subprocess.run([tmp_path / "layout"], capture_output=True, text=True, check=True)
    assert printed.stdout.split("\n")[:-1] == expected
    # A field or function that the script overlooks would be missing on both sides.
    header = (ROOT / "include/povmesh/context.h").read_text()
    assert header.count("\nPOVMESH_API ") == len(_abi.FUNCTIONS)
    assert header.count("typedef struct povmesh_") == len(_abi.STRUCTS) + 3  # three are opaque


def test_views_are_the_librarys_memory_and_outlive_the_mesh():
    mesh = povmesh.load("cat.stl")
    view = _abi.povmesh_view()
    povmesh._library.lib.povmesh_mesh_view(mesh._owner.handle, _abi.POVMESH_POSITIONS, view)
    vertices, faces = mesh.vertices, mesh.faces
    assert vertices.ctypes.data == view.data and vertices.strides == (view.stride, 4)
    assert not vertices.flags.owndata and mesh.vertices is vertices
    with pytest.raises(ValueError):
        vertices[0, 0] = 1
    with pytest.raises(ValueError):
        vertices.flags.writeable = True
    before = numpy.array(vertices), numpy.array(faces)
    del mesh
    gc.collect()
    others = [povmesh.load("cat.stl") for _ in range(5)]  # would lie where it lay
    assert (vertices == before[0]).all() and (faces == before[1]).all() and len(others) == 5


def test_meshes_and_results_are_given_back():
    data = Path("cat.stl").read_bytes()

    def use(count):
        for _ in range(count):
            mesh = povmesh.load(data)
            assert mesh.vertices.shape and mesh.faces.shape
        mesh.split()[0].faces
        with pytest.raises(povmesh.NoResult):
            mesh.cut(point=(0, 0, 1e4))

    use(50)
    before = resident_bytes()
    use(1000)  # 700 MB of meshes
    assert resident_bytes() - before < 30e6


def test_arrays_of_any_type_and_stride_make_the_same_mesh():
    expected = tetrahedron().to_bytes("obj")
    wide = numpy.zeros((4, 7), "f8")
    wide[:, 2:5] = TETRAHEDRON
    swapped = TETRAHEDRON.astype(">f4")
    for vertices in (
        TETRAHEDRON.tolist(),
        TETRAHEDRON.astype("i8"),
        TETRAHEDRON.astype("f2"),
        wide[:, 2:5],
        swapped,
        numpy.asfortranarray(TETRAHEDRON),
        TETRAHEDRON[::-1].copy()[::-1],
    ):
        for faces in (
            SIDES.tolist(),
            SIDES.astype("u8"),
            SIDES.astype("i2"),
            numpy.asfortranarray(SIDES),
            SIDES[::-1].copy()[::-1],
        ):
            assert povmesh.Mesh(vertices, faces).to_bytes("obj") == expected
    same = numpy.broadcast_to(numpy.float32([1, 2, 3]), (4, 3))  # a stride of 0
    assert (povmesh.Mesh(same, SIDES).vertices == same).all()
    soup = povmesh.Mesh(TETRAHEDRON[SIDES])
    assert soup.vertices.shape == (4, 3) and soup.is_clean
    assert (
        len(povmesh.Mesh(numpy.empty((0, 3)), numpy.empty((0, 3), int)))
        == 0
        == len(povmesh.Mesh([]))
    )


def test_colours_labels_and_uv_arrive_where_they_belong():
    of_vertices = numpy.uint8([[1, 2, 3], [4, 5, 6], [7, 8, 9], [10, 11, 12], [0, 0, 0]])
    more = numpy.vstack([TETRAHEDRON, [[9, 9, 9]]])  # as many vertices as faces would leave a doubt
    by_vertex = povmesh.Mesh(more, SIDES, colours=of_vertices, labels=[3, -1, 0, 7])
    assert (by_vertex.colours == of_vertices[SIDES]).all() and by_vertex.labels.tolist() == [
        3,
        -1,
        0,
        7,
    ]
    by_face = povmesh.Mesh(more, SIDES, colours=of_vertices[:4].astype(int).tolist())
    assert (by_face.colours == of_vertices[:4, None]).all()
    opaque = numpy.column_stack([of_vertices / 255.0, numpy.ones(5)])
    assert (povmesh.Mesh(more, SIDES, colours=opaque).colours == of_vertices[SIDES]).all()
    uv = numpy.linspace(0, 1, 8).reshape(4, 2)
    textured = tetrahedron(uv=uv)
    assert (textured.uv[textured.uv_faces] == uv[SIDES]).all() and tetrahedron().uv is None
    for mesh in (by_vertex, textured, povmesh.load("cat.stl")):
        again = pickle.loads(pickle.dumps(mesh))
        for name in ("vertices", "faces", "colours", "labels"):
            assert numpy.array_equal(getattr(again, name), getattr(mesh, name)), name
        assert again.to_bytes("obj") == mesh.to_bytes("obj")
    assert copy.deepcopy(textured) is textured and tetrahedron() != tetrahedron()


@pytest.mark.parametrize(
    "call, error, part",
    [
        (lambda: povmesh.Mesh(TETRAHEDRON, [[0, 1, 4]]), povmesh.InvalidArgument, "vertex"),
        (lambda: povmesh.Mesh(TETRAHEDRON, [[0, 1, -1]]), povmesh.InvalidArgument, "vertex"),
        (lambda: povmesh.Mesh(TETRAHEDRON, [[0, 1, 2**40]]), povmesh.InvalidArgument, "vertex"),
        (
            lambda: povmesh.Mesh(TETRAHEDRON, [[0, 1, -1]], uv=[[0, 0]] * 4),
            povmesh.InvalidArgument,
            "vertex",
        ),
        (lambda: povmesh.Mesh(TETRAHEDRON, [[0.0, 1.0, 2.0]]), TypeError, "faces"),
        (lambda: povmesh.Mesh(TETRAHEDRON, [["a", "b", "c"]]), TypeError, "faces"),
        (lambda: povmesh.Mesh(TETRAHEDRON[:, :2], SIDES), povmesh.InvalidArgument, "vertices"),
        (lambda: tetrahedron(colours=[[1, 2, 300]] * 4), povmesh.InvalidArgument, "255"),
        (lambda: tetrahedron(colours=[[1, 2, 3]] * 4), povmesh.InvalidArgument, "corners"),
        (lambda: tetrahedron(colours=[[1, 2, 3]] * 7), povmesh.InvalidArgument, "colours"),
        (lambda: tetrahedron(labels=[1, 2, 3, 70000]), povmesh.InvalidArgument, "labels"),
        (lambda: tetrahedron().reduce(), povmesh.InvalidArgument, "keep"),
        (lambda: tetrahedron().reduce(faces=-1), povmesh.InvalidArgument, "faces"),
        (lambda: tetrahedron().reduce(faces=2.5), TypeError, "faces"),
        (lambda: tetrahedron().reduce(keep="half"), TypeError, "keep"),
        (lambda: tetrahedron().subdivide(levels=2**32 + 1), povmesh.InvalidArgument, "levels"),
        (
            lambda: tetrahedron().subdivide(mode="best"),
            povmesh.InvalidArgument,
            "uniform, adaptive, smooth",
        ),
        (lambda: tetrahedron().cut(normal=(0, 1)), TypeError, "normal"),
        (lambda: tetrahedron().hollow(thickness=1, drains=[(0, 0, 0)]), TypeError, "drains"),
        (lambda: tetrahedron().cut(point=(0, 0, 9)), povmesh.NoResult, ""),
        (lambda: tetrahedron().save("a\0.stl"), povmesh.InvalidArgument, "zero byte"),
        (lambda: tetrahedron().save("none/a.stl"), povmesh.CannotWrite, "none/a.stl"),
        (lambda: tetrahedron().to_bytes("docx"), povmesh.Error, "format"),
        (lambda: povmesh.load("missing.stl"), povmesh.CannotRead, "missing.stl"),
        (lambda: povmesh.load(b"no model"), povmesh.BadFile, ""),
        (lambda: povmesh.load(b""), povmesh.BadFile, ""),
        (lambda: povmesh.load(open("cat.stl", encoding="latin-1")), TypeError, "binary"),
        (lambda: povmesh.load(5), TypeError, ""),
        (lambda: povmesh.Context(threads=-1), povmesh.InvalidArgument, "threads"),
        (lambda: tetrahedron().repair(context=5), TypeError, "context"),
        (
            lambda: large().repair(context=povmesh.Context(memory_limit=10**6)),
            MemoryError,
            "memory",
        ),
    ],
)
def test_bad_input_is_an_exception_that_says_why(call, error, part):
    with pytest.raises(error, match=".*" + part):
        call()
    assert len(povmesh.load("cat.stl")) == 15894  # the next call works


def test_what_a_file_cannot_hold_is_a_warning_at_the_callers_line():
    mesh = tetrahedron(colours=numpy.full((4, 3, 3), 7, "u1"), labels=[1, 2, 3, 4])
    with warnings.catch_warnings(record=True) as caught:
        warnings.simplefilter("always")
        report = mesh.save("grey.stl")
    assert report.lost_colours or report.lost_labels
    assert caught and all(one.filename == __file__ for one in caught)
    lines = []
    mesh.save(
        "grey.stl", context=povmesh.Context(log=lambda level, text: lines.append((level, text)))
    )
    assert lines and lines[0][0] == "warning"


def test_tables_and_bytes_are_those_of_the_tool():
    tool = povmesh.tool_path()
    for name in (
        "featuretype_open.stl",
        "sphere_in_cube_cavity_ascii.stl",
        "max_export_24_shells.stl",
        "cat.stl",
    ):
        printed = subprocess.run([tool, "check", "-q", name], capture_output=True, text=True).stdout
        ours = str(povmesh.load(name).check())
        assert [line.split() for line in printed.splitlines()[3:]] == [
            line.split() for line in ours.splitlines()[1:]
        ]
    subprocess.run([tool, "reduce", "-q", "--keep", "0.3", "cat.stl", "-o", "tool.obj"], check=True)
    povmesh.load("cat.stl").reduce(keep=0.3).save("ours.obj")
    assert Path("ours.obj").read_bytes() == Path("tool.obj").read_bytes()


def test_what_a_callback_raises_comes_out_with_its_trace():
    def fail(percent, phase):
        raise ZeroDivisionError(phase)

    mesh = large()
    with pytest.raises(ZeroDivisionError) as caught:
        mesh.reduce(keep=0.5, progress=fail)
    assert caught.traceback[-1].name == "fail"
    with pytest.raises(povmesh.Cancelled):
        mesh.reduce(keep=0.5, progress=lambda percent, phase: phase == "collapsing edges")
    told = []
    nested = []

    def look(percent, phase):
        told.append(percent)
        if not nested:
            nested.append(povmesh.load("cat.stl").volume)  # with another context than the call's

    mesh.reduce(keep=0.9, progress=look)
    assert told == sorted(told) and told[-1] <= 100 and nested[0] > 8000


def test_a_context_takes_one_call_at_a_time():
    context = povmesh.Context()
    mesh = large()

    def again(percent, phase):
        with pytest.raises(povmesh.Busy):
            mesh.repair(context=context)
        return True

    with pytest.raises(povmesh.Cancelled):
        mesh.reduce(keep=0.5, context=context, progress=again)
    timer = threading.Timer(0.2, context.cancel)
    timer.start()
    with pytest.raises(povmesh.Cancelled):
        while True:
            mesh.reduce(keep=0.2, context=context)
    context.resume()
    assert mesh.split(context=context)


def test_ctrl_c_in_a_call_is_a_keyboard_interrupt():
    mesh = povmesh.load("cat.stl").subdivide(levels=3)
    sent = []

    def interrupt():
        time.sleep(0.3)
        sent.append(time.monotonic())
        os.kill(os.getpid(), signal.SIGINT)

    before = signal.getsignal(signal.SIGINT)
    thread = threading.Thread(target=interrupt)
    thread.start()
    with pytest.raises(KeyboardInterrupt):
        while True:
            mesh.reduce(keep=0.1)
    assert (
        time.monotonic() - sent[0] < 1.5
    )  # 0.1 s by contract; other programs want the processor, too
    thread.join()
    assert signal.getsignal(signal.SIGINT) is before
    assert len(povmesh.load("cat.stl").reduce(faces=1000)) == 1000


def test_ten_threads_and_a_fork_get_the_same_bytes():
    expected = povmesh.load("cat.stl").reduce(keep=0.4).to_bytes("stl")
    shared = povmesh.load("cat.stl")
    made = [None] * 10

    def work(index):
        made[index] = shared.reduce(keep=0.4).to_bytes("stl")

    threads = [threading.Thread(target=work, args=(i,)) for i in range(10)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert made == [expected] * 10
    child = os.fork()
    if child == 0:
        os._exit(0 if shared.reduce(keep=0.4).to_bytes("stl") == expected else 1)
    assert os.waitpid(child, 0)[1] == 0


def test_objects_of_other_libraries_are_taken_by_what_they_have():
    plain = tetrahedron()
    space = types.SimpleNamespace
    colours = numpy.uint8([[1, 2, 3, 255]] * 4)
    visual = space(defined=True, kind="face", face_colors=colours, vertex_colors=colours * 0)
    padded = numpy.column_stack([numpy.full(4, 3), SIDES]).ravel()
    quad = space(
        points=numpy.eye(4)[:, :3], cells=[("quad", [[0, 1, 2, 3]]), ("triangle", [[0, 2, 1]])]
    )
    foreign = [
        space(vertices=TETRAHEDRON, faces=SIDES, visual=visual),
        space(points=TETRAHEDRON, cells=[space(type="triangle", data=SIDES)]),
        space(vertices=TETRAHEDRON, triangles=SIDES, vertex_colors=[]),
        space(points=TETRAHEDRON, faces=padded, n_cells=4),
        (TETRAHEDRON, SIDES),
    ]
    for other in foreign:
        assert povmesh.as_mesh(other).volume == plain.volume
    assert (povmesh.as_mesh(foreign[0]).colours[0, 0] == [1, 2, 3]).all()
    assert len(povmesh.as_mesh(quad)) == 3 and len(povmesh.as_mesh(TETRAHEDRON[SIDES])) == 4
    assert povmesh.as_mesh(plain) is plain
    assert plain.distance((TETRAHEDRON + 1, SIDES)).greatest > 0.5
    with pytest.raises(povmesh.InvalidArgument, match="tetra"):
        povmesh.as_mesh(space(points=TETRAHEDRON, cells=[("tetra", [[0, 1, 2, 3]])]))
    with pytest.raises(povmesh.InvalidArgument, match="triangulate"):
        povmesh.as_mesh(space(points=TETRAHEDRON, faces=[4, 0, 1, 2, 3], n_cells=1))
    with pytest.raises(TypeError, match="dict"):
        povmesh.as_mesh({})
    meshio = pytest.importorskip("meshio")
    assert povmesh.as_mesh(plain.to_meshio()).volume == plain.volume
    assert povmesh.as_mesh(meshio.Mesh(TETRAHEDRON, [("triangle", SIDES)])).is_clean


def test_operations_that_are_not_there_say_so():
    mesh = tetrahedron()
    calls = {
        "remesh": {"edge_length": 1.0},
        "support": {},
        "weakness": {},
        "orient": {},
        "thickness": {"wall": 1.0},
    }
    for name, options in calls.items():
        if not povmesh.has(f"operation:{name}"):
            with pytest.raises(povmesh.Unsupported, match=name):
                getattr(mesh, name)(**options)


def test_the_notebook_runs_cell_by_cell(monkeypatch):
    # What a notebook brings: all that its cells take from it is a picture of these bytes.
    shown = []
    module = types.SimpleNamespace(Image=lambda data: data)
    monkeypatch.setitem(sys.modules, "IPython", types.SimpleNamespace(display=module))
    monkeypatch.setitem(sys.modules, "IPython.display", module)
    book = json.loads((ROOT / "examples/notebook.ipynb").read_text())
    names = {"display": shown.append}
    for cell in book["cells"]:
        if cell["cell_type"] == "code":
            exec("".join(cell["source"]), names)
    assert names["solid"].is_closed and names["shell"].report.saved_percent > 40
    assert [row.status for row in names["rows"]] == ["ok", "ok", "unreadable"]
    assert any(isinstance(one, bytes) and one.startswith(b"\x89PNG") for one in shown)


def test_types_are_strict():
    if shutil.which("mypy") is None:
        pytest.skip("no mypy")
    folder = ROOT / "python"
    result = subprocess.run(
        ["mypy", "--cache-dir", os.devnull], cwd=folder, capture_output=True, text=True
    )
    assert result.returncode == 0, result.stdout


def test_import_loads_the_library_and_nothing_heavy():
    heavy = ("numpy", "dataclasses", "asyncio", "json")
    code = f"import sys, povmesh; print([name for name in {heavy} if name in sys.modules])"
    printed = subprocess.run(
        [sys.executable, "-c", code], capture_output=True, text=True, check=True
    )
    assert printed.stdout == "[]\n" and printed.stderr == ""
