#!/usr/bin/env python3
"""What the Python package costs beside the library, and beside what a user of other packages would
write.

Floor: a mesh of f faces and v vertices is made of 12 v + 12 f bytes and takes 16 v + 36 f; a view
copies nothing. Processor time, one thread, the fastest of five, in the same run: other programs on
the machine count less so.

usage: bench/python_bench.py [--peers] [--batch FOLDER]
  --peers         beside meshio with numpy, VTK and admesh
  --batch FOLDER  200 made models there, five of which go wrong; then one and two workers on some
"""

import argparse
import ctypes
import os
import resource
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
from pathlib import Path

import numpy

import povmesh
from povmesh import _abi
from povmesh._arrays import describe
from povmesh._library import lib


def ball(faces, seed=0):
    """A bumpy ball of about so many faces: vertices and faces."""
    rows = max(4, int((faces / 4) ** 0.5))
    columns = 2 * rows
    phases = numpy.random.default_rng(seed).uniform(0, 6, 6)
    polar, around = numpy.meshgrid(
        numpy.pi * numpy.arange(1, rows) / rows,
        2 * numpy.pi * numpy.arange(columns) / columns,
        indexing="ij",
    )
    bumps = sum(
        numpy.sin((i + 2) * polar + phases[i]) * numpy.sin((i + 1) * around + phases[-i])
        for i in range(4)
    )
    radius = 20 + bumps * numpy.sin(polar)
    points = radius[..., None] * numpy.stack(
        [
            numpy.sin(polar) * numpy.cos(around),
            numpy.sin(polar) * numpy.sin(around),
            numpy.cos(polar),
        ],
        -1,
    )
    vertices = numpy.vstack([points.reshape(-1, 3), [[0, 0, 20]], [[0, 0, -20]]]).astype("f4")
    index = numpy.arange((rows - 1) * columns).reshape(rows - 1, columns)
    right = numpy.roll(index, -1, 1)
    a, b, c, d = index[:-1].ravel(), right[:-1].ravel(), index[1:].ravel(), right[1:].ravel()
    top, low = len(vertices) - 2, len(vertices) - 1
    caps = [
        numpy.column_stack([numpy.full(columns, top), index[0], right[0]]),
        numpy.column_stack([numpy.full(columns, low), right[-1], index[-1]]),
    ]
    sides = [numpy.column_stack([a, c, b]), numpy.column_stack([b, c, d])]
    return vertices, numpy.vstack([*sides, *caps]).astype("i4")


def with_holes(faces, count, seed=1):
    """The faces without some, far from each other, and with some twice."""
    gone = numpy.random.default_rng(seed).choice(len(faces), count, replace=False)
    return numpy.vstack([numpy.delete(faces, gone, 0), faces[: count // 2]])


def processor_seconds(work, runs=5):
    """The least processor time of this process and the children it waits for."""

    def now():
        return sum(
            sum(resource.getrusage(who)[:2])
            for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)
        )

    best = float("inf")
    for _ in range(runs):
        start = now()
        work()
        best = min(best, now() - start)
    return best


def measure_package():
    # Twice, so that byte code is there; then what importing takes beyond starting Python.
    def started(code):
        return processor_seconds(
            lambda: subprocess.run([sys.executable, "-c", code], check=True), 10
        )

    base = started("pass")
    print(f"import povmesh                {1000 * (started('import povmesh') - base):8.1f} ms")
    print(f"import numpy (at first use)   {1000 * (started('import numpy') - base):8.1f} ms")

    vertices, faces = ball(1_300_000)
    context = povmesh.Context(threads=1)
    data = _abi.povmesh_mesh_data(size=ctypes.sizeof(_abi.povmesh_mesh_data))
    data.positions, data.faces = describe(vertices), describe(faces)

    def call():
        made = ctypes.c_void_p()
        assert lib.povmesh_mesh_create(context._handle, data, ctypes.byref(made)) == 0
        lib.povmesh_mesh_release(made)

    plain = processor_seconds(call)
    packed = processor_seconds(lambda: povmesh.Mesh(vertices, faces, context=context))
    print(
        f"Mesh(v, f), {len(faces):,} faces  {1000 * packed:8.1f} ms,"
        f" the C call {1000 * plain:.1f} ms,"
        f" ratio {packed / plain:.2f}"
    )

    mesh = povmesh.Mesh(vertices, faces, context=context)
    view = _abi.povmesh_view()
    lib.povmesh_mesh_view(mesh._owner.handle, _abi.POVMESH_POSITIONS, view)
    is_same = mesh.vertices.ctypes.data == view.data and not mesh.vertices.flags.owndata
    print(
        f"mesh.vertices                 {'0 bytes copied' if is_same else 'A COPY'},"
        f" same address: {is_same}"
    )


def by_vtk(source, target):
    import vtk

    reader = vtk.vtkSTLReader()
    reader.SetFileName(source)
    clean = vtk.vtkCleanPolyData()
    fill = vtk.vtkFillHolesFilter()
    fill.SetHoleSize(10)
    normals = vtk.vtkPolyDataNormals()
    normals.SplittingOff()
    decimate = vtk.vtkQuadricDecimation()
    decimate.SetTargetReduction(0.5)
    writer = vtk.vtkSTLWriter()
    writer.SetFileName(target)
    writer.SetFileTypeToBinary()
    steps = [reader, clean, fill, normals, decimate, writer]
    for before, after in zip(steps, steps[1:]):
        after.SetInputConnection(before.GetOutputPort())
    writer.Write()


def by_meshio(source, target):
    import meshio

    mesh = meshio.read(source)
    points, index = numpy.unique(mesh.points, axis=0, return_inverse=True)
    faces = index.reshape(-1)[mesh.cells_dict["triangle"]]
    _, first = numpy.unique(numpy.sort(faces, 1), axis=0, return_index=True)
    faces = faces[numpy.sort(first)]
    with open(os.devnull, "w") as quiet:
        old, sys.stdout = sys.stdout, quiet
        try:
            meshio.write(
                target, meshio.Mesh(points, [("triangle", faces)]), file_format="stl", binary=True
            )
        finally:
            sys.stdout = old


def by_admesh(source, target):
    subprocess.run(
        ["admesh", f"--write-binary-stl={target}", source], check=True, stdout=subprocess.DEVNULL
    )


def measure_peers(folder):
    vertices, faces = ball(320_000)
    source, target = str(folder / "holes.stl"), str(folder / "out.stl")
    povmesh.Mesh(vertices, with_holes(faces, 500)).save(source)
    context = povmesh.Context(threads=1)

    def ours(steps):
        mesh = povmesh.load(source, context=context)
        if "repair" in steps:
            mesh = mesh.repair(context=context)
        if "reduce" in steps:
            mesh = mesh.reduce(keep=0.5, context=context)
        mesh.save(target, flush=False, context=context)

    print(f"\n{len(faces):,} faces, 500 holes, 250 doubled faces; processor seconds")
    for name, work, steps in (
        ("VTK: read, clean, fill holes, turn, decimate, write", by_vtk, ("repair", "reduce")),
        ("admesh: read, repair, write", by_admesh, ("repair",)),
        ("meshio and numpy: read, weld, drop doubled, write", by_meshio, ("repair",)),
    ):
        try:
            other = processor_seconds(lambda: work(source, target), 3)
        except (ImportError, FileNotFoundError) as error:
            print(f"{name}: {error}")
            continue
        # Of what povmesh reads; admesh may write what it does not close.
        theirs = povmesh.load(target).check(advice=False)
        mine = processor_seconds(lambda: ours(steps), 3)
        own = povmesh.load(target).check(advice=False)
        print(
            f"{name}: {other:.2f}, povmesh {'+'.join(steps)}: {mine:.2f}, ratio {mine / other:.2f}"
        )
        for who, left in (("theirs", theirs), ("ours", own)):
            print(
                f"  {who}: {left.faces:,} triangles, {left.open_edges} open edges,"
                f" {left.non_manifold_edges} non-manifold, {left.self_intersections} crossings"
            )


class Saboteur(threading.Thread):
    """Sends a signal to the process that works on a file, once it sees one."""

    def __init__(self, signals):
        super().__init__(daemon=True)
        self.signals, self.sent = dict(signals), []

    def run(self):
        while self.signals:
            for entry in Path("/proc").iterdir():
                try:
                    words = (
                        (entry / "cmdline").read_bytes().split(b"\0")
                        if entry.name.isdigit()
                        else []
                    )
                except OSError:
                    continue
                for name in list(self.signals):
                    if b"run" in words and any(
                        word.endswith(f"/{name}".encode()) for word in words
                    ):
                        os.kill(int(entry.name), self.signals.pop(name))
                        self.sent.append(name)
            time.sleep(0.002)


def measure_batch(folder):
    models, out = folder / "models", folder / "out"
    models.mkdir(parents=True)
    sizes = numpy.geomspace(10_000, 300_000, 196).astype(int)
    numpy.random.default_rng(3).shuffle(sizes)
    for number, size in enumerate(sizes):
        vertices, faces = ball(int(size) if number % 8 == 0 else 10_000, number)
        povmesh.Mesh(vertices, with_holes(faces, 20, number)).save(
            models / f"{number:03}.stl", flush=False
        )
    for name, size in (
        ("killed_a", 100_000),
        ("killed_b", 100_000),
        ("hangs", 100_000),
        ("too_large", 4_000_000),
    ):
        povmesh.Mesh(*ball(size)).save(models / f"{name}.stl", flush=False)
    (models / "195.stl").write_bytes((models / "000.stl").read_bytes()[:5000])
    saboteur = Saboteur(
        {
            "killed_a.stl": signal.SIGKILL,
            "killed_b.stl": signal.SIGSEGV,
            "hangs.stl": signal.SIGSTOP,
        }
    )
    saboteur.start()
    files = sorted(models.iterdir())
    recipe = [{"operation": "repair"}, {"operation": "reduce", "keep": 0.5}]
    start = time.monotonic()
    rows = povmesh.batch.run(files, recipe, out, workers=2, time_limit=60, memory_limit=400 << 20)
    print(
        f"\n{len(rows)} models, 2 workers: {time.monotonic() - start:.0f} s;"
        f" signals sent to {saboteur.sent}"
    )
    print(f"  ok: {sum(row.status == 'ok' for row in rows)}")
    for row in rows:
        if row.status != "ok":
            print(f"  {Path(row.file).name}: {row.status}: {row.message}")
    few = [file for file in files if file.stem.isdigit()][:25]
    taken = {}
    for workers in (1, 2):
        start = time.monotonic()
        povmesh.batch.run(few, recipe, folder / f"by_{workers}", workers=workers, reports=())
        taken[workers] = time.monotonic() - start
    print(
        f"  {len(few)} models: 1 worker {taken[1]:.1f} s, 2 workers {taken[2]:.1f} s,"
        f" {taken[1] / taken[2]:.2f} x"
    )
    same = all(
        (folder / "by_1" / f.name).read_bytes() == (folder / "by_2" / f.name).read_bytes()
        for f in few
        if (folder / "by_1" / f.name).exists()
    )
    print(f"  same bytes: {same}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--peers", action="store_true")
    parser.add_argument("--batch", type=Path)
    options = parser.parse_args()
    measure_package()
    if options.peers:
        with tempfile.TemporaryDirectory() as folder:
            measure_peers(Path(folder))
    if options.batch:
        shutil.rmtree(options.batch, ignore_errors=True)
        measure_batch(options.batch)


if __name__ == "__main__":
    main()
