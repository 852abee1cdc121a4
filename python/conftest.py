"""Every test and example runs in a folder of its own with copies of the example models."""

import shutil
from pathlib import Path

import pytest

import povmesh

EXAMPLES = Path(__file__).resolve().parents[1] / "examples"


@pytest.fixture(autouse=True)
def in_folder_with_models(tmp_path, monkeypatch, doctest_namespace):
    for path in EXAMPLES.glob("*.stl"):
        shutil.copy(path, tmp_path)
    monkeypatch.chdir(tmp_path)
    doctest_namespace["povmesh"] = povmesh


def pytest_addoption(parser):
    parser.addoption(
        "--dask", action="store_true", help="run the tests that need python3-distributed, too"
    )


def pytest_collection_modifyitems(config, items):
    for item in items:
        if item.get_closest_marker("dask") and not config.getoption("--dask"):
            item.add_marker(pytest.mark.skip(reason="--dask is not given"))
        # The example of an operation that this library does not have yet.
        parts = item.name.split(".")
        if parts[-2:-1] == ["Mesh"] and not item.nodeid.endswith(".py"):
            operation = f"operation:{parts[-1]}"
            if parts[-1] in _operations() and not povmesh.has(operation):
                item.add_marker(pytest.mark.skip(reason=f"the library has no {operation}"))


def _operations():
    from povmesh import _abi

    return {name.split("_")[1] for name in _abi.STRUCTS if name.endswith("_options")}
