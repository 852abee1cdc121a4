"""batch.jsonl: a line a row, written by one batch at a time, from which the next one goes on."""

import fcntl
import json
import os
from typing import Any, Dict, List

from ._run_one import digest, makes_several

_DONE = ("ok", "flaws", "no result")


class Journal:
    """The rows of earlier runs, and a place for those of this one."""

    def __init__(self, folder: str, resume: bool) -> None:
        self._file = open(os.path.join(folder, "batch.jsonl"), "a+b")
        try:
            fcntl.flock(self._file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            self._file.close()
            raise RuntimeError(f"{folder}: another batch is at work here") from None
        self.rows: Dict[str, Dict[str, Any]] = {}
        if resume:
            self._read()
        else:
            self._file.truncate(0)

    def _read(self) -> None:
        self._file.seek(0)
        whole = 0
        for line in self._file:
            if not line.endswith(b"\n"):
                break  # torn by a sudden end
            whole += len(line)
            try:
                row = json.loads(line)
                self.rows[row["file"]] = row
            except (ValueError, TypeError, KeyError):
                continue
        self._file.truncate(whole)

    def add(self, row: Dict[str, Any]) -> None:
        """Appends a row; it is there when this returns, also if the process is killed then."""
        self._file.write(json.dumps(row).encode() + b"\n")
        self._file.flush()

    def done(self, job: Dict[str, Any]) -> Any:
        """The row of a job that need not be done again; else None."""
        row = self.rows.get(job["file"])
        if row is None or row.get("status") not in _DONE:
            return None
        if row.get("recipe") != job["key"] or row.get("library") != job["library"]:
            return None
        outputs: List[Dict[str, Any]] = row.get("outputs", [])
        try:
            if any(os.path.getsize(output["path"]) != output["bytes"] for output in outputs):
                return None
            places = {output["path"] for output in outputs}
            if makes_several(job["recipe"]):
                places = {os.path.dirname(path) for path in places}
            if row["status"] != "no result" and places != {job["output"]}:
                return None
            state = os.stat(job["file"])
            if (state.st_size, state.st_mtime_ns) == (row.get("size"), row.get("mtime_ns")):
                return row
            return row if digest(job["file"])[0] == row.get("sha256") else None
        except OSError:
            return None

    def close(self) -> None:
        self._file.close()
