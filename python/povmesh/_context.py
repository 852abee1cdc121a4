"""Contexts: the settings of calls, and how a call is made, interrupted and judged."""

import ctypes
import os
import signal
import sys
import threading
import warnings
import weakref
from types import FrameType, TracebackType
from typing import Any, Callable, List, Optional, Tuple, Type

from . import _abi
from ._errors import ModelWarning, error_of
from ._library import lib

Progress = Callable[[float, str], object]
"""Called with percent (0 to 100) and phase at least every 50 ms; a true value cancels the call."""

Log = Callable[[str, str], object]
"""Called with "text", "warning" or "error", and a line."""

_LEVELS = {0: "text", 1: "warning", 2: "error"}


class _Interrupt:
    """Ctrl-C while the library works.

    Python runs its handlers when byte code runs, here when the progress function is entered, where
    ctypes would lose the exception. So this one notes the signal and cancels the call, and the
    handler that was there is called behind it.
    """

    def __init__(self, handle: Any) -> None:
        self._handle = handle
        self._old: Any = None
        self._noted: Optional[Tuple[int, Optional[FrameType]]] = None

    def __enter__(self) -> "_Interrupt":
        if threading.current_thread() is threading.main_thread():
            old = signal.getsignal(signal.SIGINT)
            if callable(old):
                self._old = old
                signal.signal(signal.SIGINT, self._note)
        return self

    def _note(self, number: int, frame: Optional[FrameType]) -> None:
        self._noted = (number, frame)
        lib.povmesh_context_cancel(self._handle)

    def __exit__(self, *_: object) -> None:
        if self._old is not None:
            signal.signal(signal.SIGINT, self._old)
        if self._noted is not None:
            lib.povmesh_context_resume(self._handle)
            self._old(*self._noted)


class Context:
    """Settings of calls, one call at a time; another one at the same moment is `Busy`.

    threads: of a call, up to 1024; 0: OMP_NUM_THREADS, else one for each processor.
    memory_limit: bytes that a call may hold beyond its inputs; 0: no limit.
    progress: a `Progress`, for calls that are given none.
    log: a `Log`; without one, what the library warns of is a `ModelWarning`.

    >>> with povmesh.Context(threads=1, memory_limit=10**9) as context:
    ...     mesh = povmesh.load("cat.stl", context=context)
    >>> context.peak_bytes > 500_000
    True
    """

    def __init__(
        self,
        threads: int = 0,
        memory_limit: int = 0,
        progress: Optional[Progress] = None,
        log: Optional[Log] = None,
    ) -> None:
        for name, value, most in (
            ("threads", threads, 1024),
            ("memory_limit", memory_limit, 2**64 - 1),
        ):
            if not isinstance(value, int):
                raise TypeError(f"{name}: an int, not {type(value).__name__}")
            if not 0 <= value <= most:
                raise error_of(_abi.POVMESH_INVALID_ARGUMENT, f"{name} must be from 0 to {most}")
        self._own_progress = progress
        self._own_log = log
        self._progress: Optional[Progress] = None
        self._raised: Optional[BaseException] = None
        self._lines: List[str] = []
        self._in_call = threading.Lock()
        # The library calls these; they must not keep the context alive in a circle.
        me = weakref.ref(self)
        self._callbacks = (
            _abi.povmesh_progress_function(
                lambda _, percent, phase: _on_progress(me(), percent, phase)
            ),
            _abi.povmesh_log_function(lambda _, level, text: _on_log(me(), level, text)),
        )
        options = _abi.povmesh_context_options(
            size=ctypes.sizeof(_abi.povmesh_context_options),
            threads=threads,
            memory_limit=memory_limit,
            progress=self._callbacks[0],
            log=self._callbacks[1],
        )
        handle = ctypes.c_void_p()
        status = lib.povmesh_context_create(options, handle)
        if status != _abi.POVMESH_OK:
            raise error_of(status, lib.povmesh_status_text(status).decode())
        self._handle = handle.value
        self._end = weakref.finalize(self, lib.povmesh_context_destroy, self._handle)
        self._end.atexit = False

    def cancel(self) -> None:
        """Cancels the call that runs, and all later ones until `resume`. From any thread.

        >>> context = povmesh.Context()
        >>> context.cancel()
        >>> povmesh.load("cat.stl", context=context)
        Traceback (most recent call last):
        povmesh.Cancelled: cancelled
        >>> context.resume()
        >>> len(povmesh.load("cat.stl", context=context))
        15894
        """
        lib.povmesh_context_cancel(self._handle)

    def resume(self) -> None:
        """Takes a `cancel` back."""
        lib.povmesh_context_resume(self._handle)

    @property
    def peak_bytes(self) -> int:
        """The most bytes that the last call held, as they count for `memory_limit`."""
        return int(lib.povmesh_context_peak_bytes(self._handle))

    def __enter__(self) -> "Context":
        return self

    def __exit__(
        self,
        kind: Optional[Type[BaseException]],
        error: Optional[BaseException],
        trace: Optional[TracebackType],
    ) -> None:
        """Nothing to close: memory goes with the last reference."""

    def _call(
        self, function: Any, *arguments: Any, progress: Optional[Progress] = None
    ) -> List[str]:
        """Calls a function of the library; the exception when it fails, else what it warned of."""
        if not self._in_call.acquire(blocking=False):
            status = _abi.POVMESH_BUSY
            raise error_of(status, lib.povmesh_status_text(status).decode())
        try:
            self._progress = self._own_progress if progress is None else progress
            self._raised = None
            self._lines = []
            with _Interrupt(self._handle):
                status = function(self._handle, *arguments)
            raised, self._raised = self._raised, None
            if raised is not None:
                raise raised
            if status != _abi.POVMESH_OK:
                message = lib.povmesh_context_message(self._handle) or lib.povmesh_status_text(
                    status
                )
                raise error_of(status, message.decode("utf-8", "replace"))
            return self._lines
        finally:
            self._progress = None
            self._in_call.release()


def _on_progress(context: Optional[Context], percent: float, phase: Optional[bytes]) -> int:
    if context is None or context._progress is None:
        return 0
    try:
        return 1 if context._progress(percent, (phase or b"").decode()) else 0
    except BaseException as error:  # raised again behind the call
        context._raised = error
        return 1


def _on_log(context: Optional[Context], level: int, text: bytes) -> None:
    if context is None:
        return
    line = text.decode("utf-8", "replace")
    if context._own_log is None:
        if level != _abi.POVMESH_LOG_TEXT:
            context._lines.append(line)
        return
    try:
        context._own_log(_LEVELS.get(level, "error"), line)
    except BaseException as error:
        context._raised = context._raised or error


class _Defaults(threading.local):
    """A context for each thread that names none."""

    context: Optional[Context] = None


_defaults = _Defaults()


def _forget_defaults() -> None:
    global _defaults
    _defaults = _Defaults()  # those of the parent may have been in a call


os.register_at_fork(after_in_child=_forget_defaults)


def default_context() -> Context:
    """The context of this thread; a fresh one for calls out of a progress function."""
    own = _defaults.context
    if own is None:
        own = _defaults.context = Context()
    return Context() if own._in_call.locked() else own


def run(
    function: Any, *arguments: Any, context: Optional[Context], progress: Optional[Progress]
) -> List[str]:
    """A call with the given context, else that of the thread."""
    if context is not None and not isinstance(context, Context):
        raise TypeError(f"context: a povmesh.Context, not {type(context).__name__}")
    if progress is not None and not callable(progress):
        raise TypeError(f"progress: a function, not {type(progress).__name__}")
    return (context or default_context())._call(function, *arguments, progress=progress)


def warn(lines: List[str]) -> None:
    """Tells what the library warned of, at the place in the caller's program."""
    if not lines:
        return
    folder = os.path.dirname(__file__)
    level, frame = 2, sys._getframe(1)
    while frame.f_back is not None and os.path.dirname(frame.f_code.co_filename) == folder:
        frame = frame.f_back
        level += 1
    for line in lines:
        warnings.warn(line, ModelWarning, stacklevel=level)
