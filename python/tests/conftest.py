"""What holds for all tests."""

import signal


def pytest_configure() -> None:
    # A job in the background of a shell is started deaf to Ctrl-C, and so is what it starts.
    if signal.getsignal(signal.SIGINT) is signal.SIG_IGN:
        signal.signal(signal.SIGINT, signal.default_int_handler)
