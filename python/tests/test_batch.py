"""Batches: one bad model among good ones, resume, reports, engines."""

import csv
import html.parser
import json
import os
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

import pytest

import povmesh
from povmesh import batch

RECIPE = [{"operation": "repair"}, {"operation": "reduce", "keep": 0.5}]
# Stands for the tool where one is needed that ends suddenly, never, or with rubbish.
FAULTY_TOOL = """#!/bin/sh
echo "$*" >> {folder}/calls
case "$*" in
*--explain*) ;;
*render*) ;;
*killed*) kill -SEGV $$ ;;
*hangs*) trap '' TERM; sleep 100 & wait; sleep 100 ;;
*rubbish*) echo nonsense; exit 0 ;;
*dies*) kill -9 $PPID ;;
*slow*) sleep 0.5 ;;
esac
exec {tool} "$@"
"""


@pytest.fixture
def faulty_tool(tmp_path, monkeypatch):
    path = tmp_path / "faulty_tool"
    path.write_text(FAULTY_TOOL.format(tool=povmesh.tool_path(), folder=tmp_path))
    path.chmod(0o755)
    monkeypatch.setenv("POVMESH_TOOL", str(path))
    monkeypatch.setattr(batch._run_one, "_KILL_SECONDS", 0.5)
    return tmp_path / "calls"


def models(names):
    os.makedirs("in/sub", exist_ok=True)
    paths = [Path("in") / name for name in names]
    for path in paths:
        shutil.copy("sphere_in_cube_cavity_ascii.stl", path)
    return paths


def files_below(folder):
    return {p.relative_to(folder): p.read_bytes() for p in Path(folder).rglob("*.stl")}


def test_one_bad_model_is_a_row_and_the_rest_goes_on(faulty_tool):
    names = [
        "a.stl",
        "killed.stl",
        "hangs.stl",
        "rubbish.stl",
        "sub/b.stl",
        "missing.stl",
        "broken.stl",
    ]
    paths = models(names)
    paths[5].unlink()
    paths[6].write_text("no model at all")
    rows = batch.run(iter(paths), RECIPE, "out", time_limit=5, workers=3)
    assert [Path(row.file).name for row in rows] == [Path(name).name for name in names]
    assert [row.status for row in rows] == [
        "ok",
        "crashed",
        "timeout",
        "failed",
        "ok",
        "unreadable",
        "unreadable",
    ]
    assert (
        "SIGSEGV" in rows[1].message
        and "5 seconds" in rows[2].message
        and "No such file" in rows[5].message
    )
    assert rows[6].message.startswith(str(paths[6].resolve())), rows[6].message
    assert sorted(files_below("out")) == [Path("a.stl"), Path("sub/b.stl")]
    assert (
        rows[0].peak_bytes > 10**6
        and rows[0].after["triangles"] == 2080
        and rows[0].steps[1]["operation"] == "reduce"
    )
    assert rows[0].peak_bytes < 100e6  # of the tool, not of this process
    large = Path("in/large.stl")
    povmesh.load("cat.stl").subdivide(levels=3).save(large)
    (row,) = batch.run([large], RECIPE, "small", memory_limit=150 << 20)
    assert row.status == "out of memory" and "157,286,400 bytes" in row.message
    assert not files_below("small")


def test_a_recipe_makes_the_same_bytes_as_in_the_shell():
    rows = batch.run(["cat.stl"], RECIPE, "out")
    Path("r.json").write_text(json.dumps(RECIPE))
    command = [povmesh.tool_path(), "run", "-q", "r.json", "cat.stl", "-o", "alone.stl"]
    subprocess.run(command, check=True)
    assert Path("alone.stl").read_bytes() == Path(rows[0].outputs[0]["path"]).read_bytes()


def test_an_ended_batch_goes_on_where_it_was(faulty_tool):
    paths = models([f"slow{i}.stl" for i in range(5)])
    Path("r.json").write_text(json.dumps(RECIPE))
    command = [
        sys.executable,
        "-m",
        "povmesh",
        "batch",
        "r.json",
        *paths,
        "--out",
        "out",
        "--workers",
        "1",
    ]
    parent = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    journal = Path("out/batch.jsonl")
    end = time.monotonic() + 60
    while not journal.exists() or journal.read_bytes().count(b"\n") < 1:
        assert time.monotonic() < end
        time.sleep(0.05)
    parent.send_signal(signal.SIGKILL)
    parent.wait()
    done = journal.read_bytes().count(b"\n")
    with journal.open("ab") as file:
        file.write(b'{"file": "torn')
    assert done < 5
    rows = batch.run(paths, RECIPE, "out")
    assert [row.status for row in rows] == ["ok"] * 5 and sum(row.was_done for row in rows) == done
    assert len(files_below("out")) == 5
    calls = faulty_tool.read_text().count(
        " run "
    )  # each once, and at most one that the end cut off
    assert all(row.was_done for row in batch.run(paths, RECIPE, "out")) and calls <= 6
    # Another recipe, another input or a result that is gone is done again.
    shutil.copy("cat.stl", paths[0])
    Path("out/slow1.stl").unlink()
    again = batch.run(paths, RECIPE, "out")
    assert [row.was_done for row in again] == [False, False, True, True, True]
    assert not any(row.was_done for row in batch.run(paths, [{"operation": "repair"}], "out"))


def test_ctrl_c_ends_the_models_and_keeps_the_rows(faulty_tool):
    paths = models(["a.stl", "hangs.stl", "slow.stl"])
    Path("r.json").write_text(json.dumps(RECIPE))
    command = [
        sys.executable,
        "-m",
        "povmesh",
        "batch",
        "r.json",
        *paths,
        "--out",
        "out",
        "--workers",
        "1",
    ]
    parent = subprocess.Popen(command, stderr=subprocess.DEVNULL)
    end = time.monotonic() + 60
    while not faulty_tool.exists() or "hangs" not in faulty_tool.read_text().split("run")[-1]:
        assert time.monotonic() < end
        time.sleep(0.05)
    parent.send_signal(signal.SIGINT)
    assert parent.wait(timeout=20) == 130
    command_lines = []
    for entry in Path("/proc").glob("[0-9]*/cmdline"):
        try:
            command_lines.append(entry.read_bytes())
        except OSError:
            continue
    assert not any(os.fsencode(paths[1].resolve()) in line for line in command_lines)
    assert [
        json.loads(line)["status"] for line in Path("out/batch.jsonl").read_text().splitlines()
    ] == ["ok"]
    with pytest.raises(RuntimeError, match="another batch"):
        journal = batch.Journal("out", True)
        try:
            batch.run(paths, RECIPE, "out")
        finally:
            journal.close()


@pytest.mark.parametrize(
    "files, recipe, options, part",
    [
        (["cat.stl"], [{"operation": "mend"}], {}, "mend"),
        (["cat.stl"], [{"operation": "repair", "sharp": 1}], {}, "sharp"),
        (["cat.stl"], [{"operation": "reduce", "keep": "half"}], {}, "keep"),
        (["cat.stl"], [], {}, "recipe"),
        (["cat.stl"], [{"operation": "split"}], {}, "several models"),
        (["in/a.stl", "in/a.obj"], RECIPE, {"format": "stl"}, "both become"),
        (["in/a.stl", "in/a.stl"], RECIPE, {}, "twice"),
        (["in/a.stl"], RECIPE, {"out": "in"}, "replace"),
        (["cat.stl"], RECIPE, {"format": "docx"}, "docx"),
        (["cat.stl"], RECIPE, {"time_limit": -1}, "time_limit"),
    ],
)
def test_mistakes_are_told_before_anything_starts(files, recipe, options, part):
    with pytest.raises(ValueError, match=part):
        batch.run(files, recipe, options.pop("out", "out"), **options)
    assert not Path("out").exists()


class _Page(html.parser.HTMLParser):
    def __init__(self):
        super().__init__()
        self.rows, self.images, self.outside = 0, 0, []

    def handle_starttag(self, tag, attributes):
        named = dict(attributes)
        self.rows += tag == "tr" and "data-status" in named
        self.images += tag == "img"
        for key in ("src", "href"):
            if not (named.get(key) or "data:").startswith("data:"):
                self.outside.append(named[key])
        assert tag not in ("b", "link", "iframe")


def test_reports_hold_every_model_and_no_markup_of_names():
    name = "=a<b>&\"'</script>.stl".replace("/", "_")
    paths = [
        *models(["a.stl"]),
        shutil.copy("sphere_in_cube_cavity_ascii.stl", f"in/{name}"),
        Path("in/gate.stl"),
        Path("in/open.stl"),
    ]
    shutil.copy("cat.stl", paths[2])
    shutil.copy("featuretype_open.stl", paths[3])
    gate = {"operation": "check", "require": {"max_triangles": 5000}}
    rows = batch.run(
        paths, [gate, {"operation": "repair"}, {"operation": "render", "output": "view.png"}], "out"
    )
    assert [row.status for row in rows] == ["ok", "ok", "no result", "flaws"]
    assert rows[2].message.startswith("step 1 (check)") and "max_triangles" in rows[2].message
    assert (
        Path("out/a_view.png").read_bytes()[:4] == b"\x89PNG" and Path("out/open_view.png").exists()
    )
    lines = list(csv.DictReader(open("out/batch.csv")))
    assert [line["status"] for line in lines] == [row.status for row in rows]
    assert lines[3]["flaws_before"].startswith("576 open edges")
    assert len(json.loads(Path("out/batch.json").read_text())["rows"]) == 4
    page = _Page()
    page.feed(Path("out/batch.html").read_text())
    assert (page.rows, page.images, page.outside) == (4, 6, [])


@pytest.mark.dask
def test_a_cluster_makes_the_same_bytes_and_loses_one_model_with_its_worker(faulty_tool):
    distributed = pytest.importorskip("distributed")
    dask = pytest.importorskip("dask")
    paths = models(["a.stl", "sub/b.stl", "killed.stl", "c.stl"])
    shutil.copy("cat.stl", paths[1])
    here = batch.run(paths, RECIPE, "here")
    fatal = models(["dies.stl"])
    with dask.config.set({"distributed.scheduler.allowed-failures": 1}), distributed.LocalCluster(
        n_workers=2, threads_per_worker=1, processes=True, dashboard_address=None
    ) as cluster:
        there = batch.run(paths, RECIPE, "there", scheduler=cluster.scheduler_address)
        shipped = batch.run(
            paths, RECIPE, "shipped", scheduler=cluster.scheduler_address, ship=True
        )
        lossy = batch.run([paths[3], *fatal], RECIPE, "lossy", scheduler=cluster.scheduler_address)
    for rows in (here, there, shipped):
        assert [row.status for row in rows] == ["ok", "ok", "crashed", "ok"]
    assert [row.status for row in lossy] == ["ok", "lost"]
    assert files_below("here") == files_below("there") == files_below("shipped")
