"""One model: the tool in a process of its own, and the row that tells what became of it.

Plain data in and out, so that it can run in another process or on another machine. A crash, a hang
or a leak ends with the model's process.
"""

import base64
import hashlib
import json
import os
import re
import select
import signal
import socket
import subprocess
import tempfile
import threading
import time
from pathlib import Path
from typing import Any, Dict, List, Optional, Set, Tuple

from .. import library_version
from .._library import tool_path

# Beyond its limit a process may have this much more before the system refuses it memory: the limit
# counts what it holds, the system counts what it asked for.
_SLACK_BYTES = 256 << 20
_STACK_BYTES = 8 << 20
# The tool ends itself at its time; one that does not is asked, then ended.
_GRACE_SECONDS = 2.0
_KILL_SECONDS = 5.0
_PICTURE_SECONDS = 60.0
_PICTURE_SIZE = "160x120"

_children: Set[int] = set()
_children_lock = threading.Lock()
_is_stopping = threading.Event()


def stop_children() -> None:
    """Ends all processes that this one has started here, and lets none start."""
    _is_stopping.set()
    with _children_lock:
        for group in _children:
            _kill(group, signal.SIGKILL)


def allow_children() -> None:
    """Takes a `stop_children` back."""
    _is_stopping.clear()


def _kill(group: int, number: int) -> None:
    try:
        os.killpg(group, number)
    except ProcessLookupError:
        pass


class _Ended(Exception):
    """The batch is being stopped."""


class _Child:
    """What a process printed, how it ended and the most memory that it held."""

    def __init__(
        self, command: List[str], folder: str, seconds: Optional[float], memory: int, threads: int
    ) -> None:
        self.is_over_time = False
        self.peak_bytes = 0
        out, err = os.path.join(folder, "stdout"), os.path.join(folder, "stderr")
        with open(out, "wb") as stdout, open(err, "wb") as stderr, _children_lock:
            if _is_stopping.is_set():
                raise _Ended
            process = subprocess.Popen(
                command,
                stdin=subprocess.DEVNULL,
                stdout=stdout,
                stderr=stderr,
                start_new_session=True,
            )
            _children.add(process.pid)
        try:
            if memory:
                _limit_memory(process.pid, memory + _SLACK_BYTES + threads * _STACK_BYTES)
            self._wait(process, seconds)
        finally:
            with _children_lock:
                _children.discard(process.pid)
                # Whatever it may have started; its number is its own until it is waited for.
                _kill(process.pid, signal.SIGKILL)
            process.wait()
        self.status: int = process.returncode
        self.stdout = Path(out).read_bytes()
        self.stderr = Path(err).read_bytes()

    def _wait(self, process: "subprocess.Popen[bytes]", seconds: Optional[float]) -> None:
        start, pause = time.monotonic(), 0.001
        steps = [(seconds + _GRACE_SECONDS, signal.SIGTERM)] if seconds else []
        if seconds:
            steps.append((seconds + _GRACE_SECONDS + _KILL_SECONDS, signal.SIGKILL))
        end = _open_end(process.pid)
        try:
            # Not waited for yet, its number stays its own.
            while os.waitid(os.P_PID, process.pid, os.WEXITED | os.WNOHANG | os.WNOWAIT) is None:
                self.peak_bytes = max(self.peak_bytes, _peak_bytes(process.pid))
                if steps and time.monotonic() - start > steps[0][0]:
                    self.is_over_time = True
                    _kill(process.pid, steps.pop(0)[1])
                _wait_for_end(end, pause)
                pause = min(pause * 1.5, 0.025)
        finally:
            if end >= 0:
                os.close(end)


def _open_end(pid: int) -> int:
    """A file that can be read from when the process has ended; -1: the system has none."""
    try:
        return os.pidfd_open(pid)
    except (AttributeError, OSError):
        return -1


def _wait_for_end(file: int, seconds: float) -> None:
    """Until the end, or for so long."""
    if file < 0:
        time.sleep(seconds)
        return
    poll = select.poll()
    poll.register(file, select.POLLIN)
    poll.poll(1000 * seconds)


def _limit_memory(pid: int, size: int) -> None:
    try:
        import resource

        resource.prlimit(pid, resource.RLIMIT_DATA, (size, size))
    except (ImportError, AttributeError, OSError):
        pass  # the tool's own limit holds all the same


def _peak_bytes(pid: int) -> int:
    """The most memory that a running process held.

    What `wait4` tells begins with the memory of the process that started it.
    """
    try:
        found = re.search(rb"VmHWM:\s*(\d+) kB", Path(f"/proc/{pid}/status").read_bytes())
    except OSError:
        return 0
    return int(found[1]) * 1024 if found else 0


def digest(path: str) -> Tuple[str, int, int]:
    """SHA-256, size and time of a file."""
    state = os.stat(path)
    sum = hashlib.sha256()
    with open(path, "rb") as file:
        while True:
            block = file.read(1 << 20)
            if not block:
                return sum.hexdigest(), state.st_size, state.st_mtime_ns
            sum.update(block)


# Options of steps that name files to write, which each model needs for itself, and files to read.
WRITTEN = ("output", "preview", "render", "svg", "layers")
READ = ("compare", "supports")
_LOOKING = ("check", "render", "strength", "thickness")


def _is_looking(step: Dict[str, Any]) -> bool:
    return step["operation"] in _LOOKING or step.get("check") is True


def _recipe_of(job: Dict[str, Any]) -> List[Dict[str, Any]]:
    """The steps, a check before and behind them, with files of their own below the model's
    output."""
    steps = []
    stem = os.path.splitext(job["output"])[0]
    for step in job["recipe"]:
        own = dict(step)
        for key in WRITTEN:
            if isinstance(own.get(key), str):
                own[key] = f"{stem}_{own[key]}"
        for key in READ:
            if isinstance(own.get(key), str):
                own[key] = os.path.join(job["folder"], own[key])
        steps.append(own)
    return [{"operation": "check"}, *steps, {"operation": "check"}]


def _in_words_of(text: str, recipe: str, count: int) -> str:
    """The tool's text with the steps of the caller's recipe, not of the one with the two checks."""

    def place(found: "re.Match[str]") -> str:
        number = int(found[2])
        is_ours = number == 1 or number == count
        if is_ours and found[1] and found[4]:
            return ""
        return f"step {number - 1} ({found[3]}){found[4]}"

    return re.sub("(" + re.escape(recipe + ": ") + r")?step (\d+) \((\w+)\)(: |)", place, text)


def _last_line(data: bytes) -> str:
    lines = data.decode("utf-8", "replace").strip().splitlines()
    return lines[-1].removeprefix("povmesh: ") if lines else ""


def _signal_name(number: int) -> str:
    try:
        return signal.Signals(number).name
    except ValueError:
        return f"signal {number}"


def _status_of(told: Dict[str, Any]) -> str:
    outcome = str(told.get("outcome", "failed"))
    error = str(told.get("error", ""))
    if "not enough memory" in error:
        return "out of memory"
    if outcome in ("ok", "flaws"):
        steps = told["steps"]
        last = len(steps) - 1
        while last > 0 and _is_looking(
            {"operation": steps[last]["operation"], **steps[last]["options"]}
        ):
            last -= 1
        return "flaws" if any(step["status"] for step in steps[last + 1 :]) else "ok"
    return (
        outcome if outcome in ("no result", "unreadable", "timeout", "out of memory") else "failed"
    )


def _picture(job: Dict[str, Any], model: str, folder: str) -> Optional[str]:
    """A small PNG as base64; None: it cannot be drawn."""
    target = os.path.join(folder, "picture.png")
    command = [job["tool"] or tool_path(), "render", "--quiet", "--threads", str(job["threads"])]
    command += ["--size", _PICTURE_SIZE, "-o", target, "--", model]
    child = _Child(command, folder, _PICTURE_SECONDS, job["memory_limit"], job["threads"])
    return base64.b64encode(Path(target).read_bytes()).decode() if child.status == 0 else None


def _work(job: Dict[str, Any], row: Dict[str, Any], folder: str) -> None:
    source, output = job["file"], job["output"]
    if job.get("data") is not None:  # sent with the job: files of this machine
        source = os.path.join(folder, "in", os.path.basename(job["file"]))
        output = os.path.join(folder, "out", os.path.basename(job["output"]))
        os.mkdir(os.path.dirname(source))
        Path(source).write_bytes(job["data"])
    try:
        row["sha256"], row["size"], time_ns = digest(source)
        row["mtime_ns"] = job.get("mtime_ns", time_ns)
    except OSError as error:
        row.update(status="unreadable", message=f"{job['file']}: {error.strerror}")
        return
    os.makedirs(os.path.dirname(output), exist_ok=True)
    recipe = os.path.join(folder, "recipe.json")
    steps = _recipe_of({**job, "output": output})
    Path(recipe).write_text(json.dumps(steps), encoding="utf-8")
    command = [
        job["tool"] or tool_path(),
        "run",
        "--json",
        "--quiet",
        "--threads",
        str(job["threads"]),
    ]
    if job["time_limit"]:
        command += ["--time", repr(float(job["time_limit"]))]
    if job["memory_limit"]:
        command += ["--memory", str(job["memory_limit"])]
    command += ["-o", output, "--", recipe, source]
    child = _Child(command, folder, job["time_limit"], job["memory_limit"], job["threads"])
    row["peak_bytes"] = child.peak_bytes
    text = _in_words_of(child.stdout.decode("utf-8", "replace"), recipe, len(steps))
    told: Dict[str, Any] = {}
    try:
        told = json.loads(text)
    except ValueError:
        pass
    if child.is_over_time:
        row.update(
            status="timeout", message=f"not done after {job['time_limit']:g} seconds, and ended"
        )
        return
    if child.status < 0:
        row.update(status="crashed", message=f"ended by {_signal_name(-child.status)}")
        return
    if not isinstance(told, dict) or "outcome" not in told:
        row.update(message=_last_line(child.stderr) or f"the tool ended with status {child.status}")
        return
    row["message"] = str(told.get("error", "")).replace(source, job["file"])
    row["status"] = _status_of(told)
    found = told["steps"]
    if found:
        row["before"] = found[0].get("report")
    if len(found) == len(steps):
        row["after"] = found[-1].get("report")
    kept = ("operation", "status", "seconds", "report", "unmet")
    row["steps"] = [
        {key: step[key] for key in kept if key in step} for step in found[1 : len(steps) - 1]
    ]
    if row["status"] not in ("ok", "flaws"):
        return
    row["outputs"] = [{"path": job["output"], "bytes": os.path.getsize(output)}]
    row["output_sha256"] = digest(output)[0]
    if job.get("data") is not None:
        row["data"] = Path(output).read_bytes()
    if job["pictures"]:
        row["pictures"] = [_picture(job, source, folder), _picture(job, output, folder)]


def run_one(job: Dict[str, Any]) -> Dict[str, Any]:
    """Does one job; never raises, but where the batch is being stopped."""
    start = time.monotonic()
    row: Dict[str, Any] = {
        "file": job["file"],
        "sha256": None,
        "status": "failed",
        "message": "",
        "seconds": 0.0,
        "peak_bytes": 0,
        "steps": [],
        "before": None,
        "after": None,
        "outputs": [],
        "recipe": job["key"],
        "library": library_version,
        "host": socket.gethostname(),
    }
    try:
        with tempfile.TemporaryDirectory(prefix="povmesh-") as folder:
            _work(job, row, folder)
    except _Ended:
        raise
    except Exception as error:  # one model must not stop the others
        row.update(status="failed", message=f"{type(error).__name__}: {error}")
    if _is_stopping.is_set():
        raise _Ended  # the process was ended, not the model's fault
    row["seconds"] = time.monotonic() - start
    return row
