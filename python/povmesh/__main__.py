"""`python3 -m povmesh batch ...` does many models; anything else goes to the tool."""

import argparse
import os
import sys
from typing import List, NoReturn

from ._library import tool_path

_GOOD, _FLAWED, _USAGE, _FAILED, _INTERRUPTED = 0, 1, 2, 3, 130


def tool() -> NoReturn:
    """Becomes the tool."""
    try:
        os.execv(tool_path(), ["povmesh", *sys.argv[1:]])
    except OSError as error:
        sys.exit(str(error))


def _parser() -> argparse.ArgumentParser:
    parser = argparse.ArgumentParser(
        prog="python3 -m povmesh batch",
        description="Does the steps of a recipe on many models. One that fails does not stop the"
        " others; what is done is not done again by the next run.",
        epilog="Exit status: 0 all are fine, 1 flaws are left or a model has no result, 2 the"
        " command line or the recipe is wrong, 3 a model failed, 130 interrupted.",
    )
    parser.add_argument(
        "recipe", metavar="RECIPE", help="JSON file with the steps, as povmesh run takes it"
    )
    parser.add_argument("files", metavar="FILE", nargs="+", help="STL, OBJ, PLY or 3MF files")
    parser.add_argument(
        "--out", required=True, metavar="DIR", help="folder for results and reports"
    )
    parser.add_argument("--format", choices=("stl", "obj", "ply", "3mf"), help="of the results")
    parser.add_argument(
        "--workers", type=int, metavar="N", help="models at a time (default: processors)"
    )
    parser.add_argument(
        "--threads", type=int, default=1, metavar="N", help="for each model (default 1)"
    )
    parser.add_argument(
        "--scheduler", metavar="ADDRESS", help="of a Dask scheduler, such as tcp://host:8786"
    )
    parser.add_argument(
        "--ship", action="store_true", help="send the models to workers that do not see them"
    )
    parser.add_argument("--time", type=float, metavar="SECONDS", help="most for a model")
    parser.add_argument("--memory", type=int, metavar="BYTES", help="most for a model")
    parser.add_argument("--no-resume", action="store_true", help="do all, also what is done")
    parser.add_argument("-q", "--quiet", action="store_true", help="no line for each model")
    return parser


def batch(arguments: List[str]) -> int:
    """The command line of batches."""
    from . import batch as batches

    options = _parser().parse_args(arguments)

    def tell(done: int, total: int, row: batches.Row) -> None:
        if not options.quiet:
            why = f": {row.message}" if row.message else ""
            line = f"{done}/{total} {row.status:<10} {row.file}{why}"
            print(line.encode("utf-8", "replace").decode(), file=sys.stderr)

    try:
        rows = batches.run(
            options.files,
            options.recipe,
            options.out,
            format=options.format,
            workers=options.workers,
            threads=options.threads,
            scheduler=options.scheduler,
            ship=options.ship,
            time_limit=options.time,
            memory_limit=options.memory,
            resume=not options.no_resume,
            progress=tell,
        )
    except KeyboardInterrupt:
        print("interrupted; the next run goes on", file=sys.stderr)
        return _INTERRUPTED
    except (ValueError, OSError, RuntimeError, ImportError) as error:
        print(f"povmesh batch: {error}", file=sys.stderr)
        return _USAGE
    counts = {
        status: sum(row.status == status for row in rows) for status in {row.status for row in rows}
    }
    print(
        f"{len(rows)} models: " + ", ".join(f"{n} {status}" for status, n in sorted(counts.items()))
    )
    if set(counts) <= {"ok"}:
        return _GOOD
    return _FLAWED if set(counts) <= {"ok", "flaws", "no result"} else _FAILED


if __name__ == "__main__":
    if sys.argv[1:2] == ["batch"]:
        sys.exit(batch(sys.argv[2:]))
    tool()
