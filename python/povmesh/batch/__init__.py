"""Many models by one recipe: on all processors of a machine, or on a cluster.

Each model is done by the tool in a process of its own, so that a model that crashes, hangs or takes
all memory is a row that says so, and the rest goes on. What is done is not done again by the next
run.
"""

import hashlib
import json
import os
import subprocess
import tempfile
import time
from dataclasses import dataclass, field, fields
from typing import Any, Callable, Dict, Iterable, List, Optional, Sequence, Tuple, Union

from .. import library_version
from .._library import tool_path
from . import _engines
from ._journal import Journal
from ._report import write_reports
from ._run_one import READ, WRITTEN

Path = Union[str, "os.PathLike[str]"]
Recipe = Union[Path, Sequence[Dict[str, Any]]]

_REPORT_SECONDS = 30.0
_REPORTS = ("csv", "json", "html")
_FORMATS = ("stl", "obj", "ply", "3mf")


@dataclass(frozen=True)
class Row:
    """What became of a model.

    status: "ok"; "flaws" (written, but a check finds some); "no result" (a gate did not let it
    through, or nothing would be left); "unreadable"; "out of memory"; "timeout"; "crashed"; "lost"
    (with its worker); "failed". message: why, when nothing is written. before, after: what the
    tool's check tells. steps: operation, status, seconds and report of each. outputs: path and
    bytes.
    """

    file: str
    status: str
    message: str = ""
    sha256: Optional[str] = None
    seconds: float = 0.0
    peak_bytes: int = 0
    steps: List[Dict[str, Any]] = field(default_factory=list)
    before: Optional[Dict[str, Any]] = None
    after: Optional[Dict[str, Any]] = None
    outputs: List[Dict[str, Any]] = field(default_factory=list)
    library: str = ""
    host: str = ""
    was_done: bool = False
    """By an earlier run."""

    @property
    def is_good(self) -> bool:
        """Whether a model was written that has no flaws."""
        return self.status == "ok"


_NAMES = tuple(one.name for one in fields(Row))


def _row_of(plain: Dict[str, Any], was_done: bool) -> Row:
    return Row(**{key: plain[key] for key in _NAMES if key in plain}, was_done=was_done)


def _steps_of(recipe: Recipe, tool: str) -> List[Dict[str, Any]]:
    """The steps, checked by the tool before anything starts."""
    name = "recipe"
    if isinstance(recipe, (str, os.PathLike)):
        name = os.fspath(recipe)
        with open(name, encoding="utf-8") as file:
            text = file.read()
    else:
        text = json.dumps(list(recipe))
    with tempfile.NamedTemporaryFile("w", suffix=".json", encoding="utf-8") as file:
        file.write(text)
        file.flush()
        checked = subprocess.run(
            [tool, "run", file.name, "--explain"], capture_output=True, text=True
        )
        if checked.returncode != 0:
            line = checked.stderr.strip().removeprefix("povmesh: ").replace(file.name, name)
            raise ValueError(line or f"{name}: no recipe")
    steps: List[Dict[str, Any]] = json.loads(text)
    operation = steps[-1]["operation"]
    if operation in ("cut", "decompose", "split") and not steps[-1].get("preview"):
        raise ValueError(
            f"{name}: step {len(steps)} ({operation}): makes several models; a batch makes one of"
            " each file"
        )
    for step in steps:
        for key in READ:
            if isinstance(step.get(key), str):
                step[key] = os.path.abspath(step[key])
    return steps


def _name_without_ends(path: str) -> Tuple[str, str]:
    """The name without ".stl" or ".stl.gz", and the format that it ends in."""
    stem, end = os.path.splitext(path)
    if end.lower() == ".gz":
        stem, end = os.path.splitext(stem)
    return stem, end[1:].lower()


def _outputs_of(files: List[str], out: str, format: Optional[str]) -> List[str]:
    """Where each model goes: the folders below the common one are kept."""
    common = os.path.commonpath([os.path.dirname(file) for file in files]) if files else ""
    taken = {os.path.realpath(file): file for file in files}
    outputs = []
    for file in files:
        stem, own = _name_without_ends(os.path.relpath(file, common))
        end = format or (own if own in _FORMATS else "stl")
        output = os.path.join(out, f"{stem}.{end}")
        other = taken.setdefault(os.path.realpath(output), file)
        if os.path.realpath(output) == os.path.realpath(other):
            raise ValueError(f"{file} would replace {other}; choose another folder for the results")
        if other != file:
            raise ValueError(f"{other} and {file} would both become {output}")
        outputs.append(output)
    if len(set(outputs)) != len(outputs):
        raise ValueError("a file is given twice")
    return outputs


def _size_of(path: str) -> int:
    try:
        return os.stat(path).st_size
    except OSError:
        return 0  # a row will tell


def _shipped(job: Dict[str, Any]) -> Dict[str, Any]:
    """The job with the bytes of its model, for workers that do not see the file."""
    try:
        with open(job["file"], "rb") as file:
            return {**job, "data": file.read(), "mtime_ns": os.stat(job["file"]).st_mtime_ns}
    except OSError:
        return job  # the worker finds the same


def _take_shipped(row: Dict[str, Any]) -> None:
    data = row.pop("data", None)
    if data is None:
        return
    from .._files import replace_file

    os.makedirs(os.path.dirname(row["outputs"][0]["path"]), exist_ok=True)
    replace_file(row["outputs"][0]["path"], data)


def run(
    files: Iterable[Path],
    recipe: Recipe,
    out: Path,
    *,
    format: Optional[str] = None,
    workers: Optional[int] = None,
    threads: int = 1,
    scheduler: Any = None,
    ship: bool = False,
    time_limit: Optional[float] = None,
    memory_limit: Optional[int] = None,
    resume: bool = True,
    reports: Sequence[str] = _REPORTS,
    progress: Optional[Callable[[int, int, Row], object]] = None,
) -> List[Row]:
    """Does the steps of a recipe on each file, and gives a row for each, in their order.

    Large files are begun first, so that all workers have something to do to the end.

    recipe: a list of steps, or the path of a JSON file with one, as `povmesh run` takes it. out:
    folder for results, which keeps the folders below the files' common one, and for the reports.
    format: of the results; None: that of each file. workers: models at a time; None: processors /
    threads. threads: for each. scheduler: address of a Dask scheduler, or a `distributed.Client`,
    instead of this machine; ship: send the models' bytes, for workers that do not see the files.
    time_limit: seconds, memory_limit: bytes, for each model. resume: leave out what an earlier run
    has done. progress: called with how many are done, how many there are, and the row.

    A step's own files ("output" of render, "preview", ...) are written beside the model's result,
    its name before theirs. A recipe that is wrong, or two files that would become one, are a
    `ValueError` before anything starts. Ctrl-C ends what runs; the next run goes on.

    >>> recipe = [{"operation": "repair"}, {"operation": "reduce", "keep": 0.5}]
    >>> rows = povmesh.batch.run(["cat.stl", "gearwheel.stl"], recipe, "done")
    >>> [(row.status, row.after["triangles"]) for row in rows]
    [('ok', 7946), ('ok', 1222)]
    """
    if isinstance(files, (str, bytes)):
        raise TypeError("files: paths, not one of them")
    if format is not None and format not in _FORMATS:
        raise ValueError(f"format must be one of {', '.join(_FORMATS)}, not {format!r}")
    if not set(reports) <= set(_REPORTS):
        raise ValueError(f"reports must be some of {', '.join(_REPORTS)}")
    if workers is not None and workers < 1 or not 1 <= threads <= 1024:
        raise ValueError("workers and threads must be 1 or more")
    if (time_limit or 0) < 0 or (memory_limit or 0) < 0:
        raise ValueError("time_limit and memory_limit must be 0, for none, or above")
    tool = tool_path()
    steps = _steps_of(recipe, tool)
    if ship and any(isinstance(step.get(key), str) for step in steps for key in (*READ, *WRITTEN)):
        raise ValueError(
            "a step that reads or writes files of its own cannot go to workers that do not see them"
        )
    paths = [os.path.abspath(os.fspath(file)) for file in files]
    folder = os.path.abspath(os.fspath(out))
    outputs = _outputs_of(paths, folder, format)
    os.makedirs(folder, exist_ok=True)
    key = hashlib.sha256(json.dumps(steps, sort_keys=True).encode()).hexdigest()[:16]
    journal = Journal(folder, resume)
    try:
        rows: List[Optional[Dict[str, Any]]] = [None] * len(paths)
        jobs: List[Tuple[int, Dict[str, Any]]] = []
        for index, (path, output) in enumerate(zip(paths, outputs)):
            job = {
                "file": path,
                "output": output,
                "recipe": steps,
                "key": key,
                "library": library_version,
                "tool": tool if scheduler is None else None,
                "folder": os.getcwd(),
                "threads": threads,
                "time_limit": time_limit or 0,
                "memory_limit": memory_limit or 0,
                "pictures": "html" in reports,
            }
            rows[index] = journal.done(job)
            if rows[index] is None:
                jobs.append((index, job))
        was_done = [row is not None for row in rows]
        # A large one that came last would keep one worker busy while the others have nothing to do.
        jobs.sort(key=lambda job: -_size_of(job[1]["file"]))

        def report() -> None:
            write_reports(
                folder, reports, [row for row in rows if row is not None], steps, len(rows)
            )

        late: List[Tuple[int, Dict[str, Any]]] = []
        if scheduler is not None:
            results = _engines.cluster(jobs, scheduler, _shipped if ship else lambda job: job)
        else:
            available = len(os.sched_getaffinity(0)) // threads
            results = _engines.local(jobs, workers or max(1, available), late)
        reported = time.monotonic()
        try:
            for index, row in results:
                _take_shipped(row)
                journal.add(row)
                rows[index] = row
                if progress is not None:
                    done = sum(row is not None for row in rows)
                    progress(done, len(rows), _row_of(row, False))
                if time.monotonic() - reported > _REPORT_SECONDS:
                    report()
                    reported = time.monotonic()
        finally:
            if hasattr(results, "close"):
                results.close()
            for index, row in late:
                journal.add(row)
                rows[index] = row
            report()
        return [_row_of(row, was) for row, was in zip(rows, was_done) if row is not None]
    finally:
        journal.close()
