#!/usr/bin/env python3
"""A recipe of five steps beside the same steps one by one with OBJ files in between.

Floor: what the steps do. A recipe starts one process instead of five, and keeps what goes from step
to step in memory. The fastest of five turns, files in the folder for temporary ones; both results
are compared byte by byte.

usage: bench/recipe_bench.py TOOL MODEL...
"""

import json
import os
import resource
import subprocess
import sys
import tempfile
import time
from pathlib import Path

STEPS = [
    {"operation": "repair"},
    {"operation": "revise"},
    {"operation": "check", "require": {"max_shells": 1000000}},
    {"operation": "reduce", "keep": 0.5},
    {"operation": "subdivide", "levels": 1},
]


def timed(work):
    """Seconds that pass and processor seconds of the processes that are started."""
    best = (float("inf"), float("inf"))
    for _ in range(5):
        before, start = resource.getrusage(resource.RUSAGE_CHILDREN), time.perf_counter()
        work()
        passed = time.perf_counter() - start
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        spent = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
        best = min(best[0], passed), min(best[1], spent)
    return best


def start(*command):
    done = subprocess.run([*command], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    if done.returncode > 1:
        sys.exit(f"{' '.join(command)}: {done.stderr}")


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    tool, models = os.path.abspath(sys.argv[1]), [os.path.abspath(name) for name in sys.argv[2:]]
    os.environ.setdefault("OMP_NUM_THREADS", "1")
    print(f"{'model':20} {'recipe':>8} {'cpu':>8} {'one by one':>12} {'cpu':>8} {'share':>6}")
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        Path("recipe.json").write_text(json.dumps(STEPS))
        for model in models:

            def one_by_one():
                last = model
                for i, step in enumerate(STEPS):
                    options = []
                    for key, value in step.items():
                        if key not in ("operation", "require"):
                            options += ["--" + key, str(value)]
                    if step["operation"] != "check":
                        name = "alone.stl" if i + 1 == len(STEPS) else f"{i}.obj"
                        start(tool, step["operation"], last, "-o", name, *options)
                        last = name
                    else:
                        start(tool, "check", last)

            recipe = timed(lambda: start(tool, "run", "recipe.json", model, "-o", "recipe.stl"))
            alone = timed(one_by_one)
            same = Path("recipe.stl").read_bytes() == Path("alone.stl").read_bytes()
            print(
                f"{Path(model).name:20} {recipe[0]:8.2f} {recipe[1]:8.2f} {alone[0]:12.2f}"
                f" {alone[1]:8.2f} {recipe[1] / alone[1]:6.2f}" + ("" if same else "  NOT THE SAME")
            )


if __name__ == "__main__":
    main()
