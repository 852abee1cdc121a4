"""Files that are there whole or not at all."""

import os
import tempfile
from typing import Union


def replace_file(path: "Union[str, os.PathLike[str]]", data: bytes) -> None:
    """Writes a file beside the path and puts it there when it is complete."""
    target = os.path.realpath(os.fspath(path))
    number, name = tempfile.mkstemp(prefix=".povmesh-", dir=os.path.dirname(target))
    try:
        with os.fdopen(number, "wb") as file:
            file.write(data)
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(name, 0o666 & ~mask)
        os.replace(name, target)
    except BaseException:
        os.unlink(name)
        raise
