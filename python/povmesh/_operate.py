"""The steps that calls of operations have in common."""

import ctypes
import operator
from typing import TYPE_CHECKING, Any, Dict, List, Optional, Sequence, Tuple

from . import _abi
from ._arrays import Owner
from ._context import Context, Progress, run
from ._errors import InvalidArgument
from ._library import lib
from ._report_classes import CLASSES
from ._reports import Report, names_of, values_of

if TYPE_CHECKING:
    from ._mesh import Mesh

# Options that are words, and the prefix of their enumerators.
_WORDS = {
    ("subdivide", "mode"): "SUBDIVIDE",
    ("hollow", "wall"): "WALL",
    ("strength", "method"): "STRENGTH",
    ("strength", "load"): "LOAD",
    ("render", "view"): "VIEW",
    ("lampshade", "top"): "TOP",
    ("offset", "corners"): "CORNERS",
}


def _word(operation: str, name: str, value: Any) -> int:
    if not isinstance(value, str):
        raise TypeError(f"{name}: a str, not {type(value).__name__}")
    words = names_of(_WORDS[operation, name])
    for number, word in words.items():
        if value == word:
            return number
    raise InvalidArgument(f"{name} must be one of {', '.join(words.values())}, not {value!r}")


def _real(name: str, value: Any) -> float:
    if isinstance(value, (str, bytes)):
        raise TypeError(f"{name}: a number, not {type(value).__name__}")
    try:
        return float(value)
    except TypeError:
        raise TypeError(f"{name}: a number, not {type(value).__name__}") from None


def _whole(name: str, value: Any, kind: Any) -> int:
    try:
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name}: an int, not {type(value).__name__}") from None
    if kind(number).value != number:
        raise InvalidArgument(
            f"{name} must be a whole number of {8 * ctypes.sizeof(kind)} bits from 0 on"
        )
    return number


def _reals(name: str, value: Any, count: int) -> List[float]:
    try:
        numbers = [] if isinstance(value, (str, bytes)) else list(value)
    except TypeError:
        numbers = []
    if len(numbers) != count:
        raise TypeError(f"{name}: {count} numbers, not {value!r}")
    return [_real(name, number) for number in numbers]


def drains_of(drains: Sequence[Sequence[float]]) -> Any:
    """Drain holes (x, y, z, radius) as the library takes them."""
    rows = [_reals("drains", drain, 4) for drain in drains]
    holes = [_abi.povmesh_drain(place=tuple(row[:3]), radius=row[3]) for row in rows]
    return (_abi.povmesh_drain * len(holes))(*holes)


def options_of(operation: str, values: Dict[str, Any]) -> Any:
    """The option struct of an operation: its defaults, and over them all values but None."""
    kind = _abi.STRUCTS[f"povmesh_{operation}_options"]
    options = kind()
    number = getattr(_abi, f"POVMESH_{operation.upper()}")
    status = lib.povmesh_options_init(number, ctypes.byref(options), ctypes.sizeof(options))
    if status != _abi.POVMESH_OK:
        raise RuntimeError(f"povmesh: no defaults for {operation}")
    types = dict(kind._fields_)
    for name, value in values.items():
        if value is None:
            continue
        field = types[name]
        if (operation, name) in _WORDS:
            value = _word(operation, name, value)
        elif field is ctypes.c_double:
            value = _real(name, value)
        elif field in (ctypes.c_int32, ctypes.c_uint32, ctypes.c_uint64):
            value = _whole(name, value, field)
        elif issubclass(field, ctypes.Array):
            value = field(*_reals(name, value, field._length_))
        elif issubclass(field, ctypes.c_char_p):
            value = encoded(name, value)
        setattr(options, name, value)
    return options


def encoded(name: str, text: Any) -> bytes:
    """Text for the library. A zero byte would end it there, and the call would do another thing."""
    if not isinstance(text, str):
        raise TypeError(f"{name}: a str, not {type(text).__name__}")
    if "\0" in text:
        raise InvalidArgument(f"{name} has a zero byte in it")
    return text.encode("utf-8", "surrogateescape")


def report_struct(operation: str) -> Any:
    """An empty report with its size set; None: the operation has none."""
    kind = _abi.STRUCTS.get(f"povmesh_{operation}_report")
    return kind(size=ctypes.sizeof(kind)) if kind is not None else None


def report_of(operation: str, struct: Any) -> Optional[Report]:
    """The report of a filled struct."""
    if struct is None:
        return None
    kind = CLASSES[operation]
    return kind(**values_of(operation, struct, kind.__annotations__))


def operate(
    operation: str,
    mesh: "Mesh",
    values: Dict[str, Any],
    release: Any,
    progress: Optional[Progress],
    context: Optional[Context],
) -> Tuple[Owner, Any, List[str]]:
    """One operation on one mesh: what it made, the struct of its report, what it warned of."""
    options = options_of(operation, values)
    report = report_struct(operation)
    made = ctypes.c_void_p()
    arguments = [mesh._owner.handle, options, ctypes.byref(made)]
    if report is not None:
        arguments.append(report)
    function = getattr(lib, f"povmesh_{operation}")
    try:
        lines = run(function, *arguments, context=context, progress=progress)
    except BaseException:
        if made.value is not None:  # interrupted behind the end of the call
            release(made.value)
        raise
    assert made.value is not None
    return Owner(made.value, release), report, lines
