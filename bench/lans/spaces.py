"""Network namespaces, and how what is made for a measurement goes away again, also when it is stopped."""

import contextlib
import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import threading

from measured import Failure

STOP_SIGNALS = (signal.SIGINT, signal.SIGTERM)


def in_thread(task):
    """The result of `task`, run on a thread of its own."""
    results = []

    def keep_result():
        try:
            results.append((task(), None))
        except BaseException as error:  # pylint: disable=broad-except
            results.append((None, error))

    thread = threading.Thread(target=keep_result)
    thread.start()
    thread.join()
    result, error = results[0]
    if error is not None:
        raise error
    return result


def run_ip(lines, *options):
    # In a session of its own, so that ^C does not end what clears up.
    result = subprocess.run(["ip", *options, "-batch", "-"], input="".join(f"{line}\n" for line in lines), text=True,
                            capture_output=True, check=False, start_new_session=True)
    if result.returncode != 0:
        raise Failure(f"ip: {result.stderr.strip()}")


@contextlib.contextmanager
def postponed_signals():
    """Until the end of the block, who wants to stop this has to wait, so that what it makes or removes is known."""
    pending = []
    before = {number: signal.signal(number, lambda number, _: pending.append(number)) for number in STOP_SIGNALS}
    try:
        yield
    finally:
        for number, handler in before.items():
            signal.signal(number, handler)
        if pending:
            signal.raise_signal(pending[0])


@contextlib.contextmanager
def temporary_folder(parent=None):
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vesko-bench-", dir=parent))
    try:
        yield folder
    finally:
        with postponed_signals():
            shutil.rmtree(folder)


class Spaces:
    """Network namespaces, there for the length of a block."""

    def __init__(self, names):
        self.prefix = f"veskobench-{os.getpid()}-"
        self.spaces = [self.prefix + name for name in names]

    def __enter__(self):
        try:
            run_ip([f"netns add {space}" for space in self.spaces])
            self.make()
        except BaseException:
            self.remove()
            raise
        return self

    def __exit__(self, *_):
        self.remove()

    def make(self):
        """Makes what is inside of them."""

    def remove(self):
        with postponed_signals():
            run_ip([f"netns delete {space}" for space in self.spaces if pathlib.Path("/run/netns", space).exists()],
                   "-force")

    @staticmethod
    def inside(space, task):
        """The result of `task`, run in a namespace. What it opens or starts stays there."""
        def enter():
            libc = ctypes.CDLL(None, use_errno=True)
            with open(f"/run/netns/{space}", encoding="ascii") as file:
                if libc.setns(file.fileno(), 0) != 0:
                    raise OSError(ctypes.get_errno(), "setns")
            return task()
        return in_thread(enter)


def stop(number, _):
    """Ends this script, which clears up; whoever asks once more does not stop that."""
    for each in STOP_SIGNALS:
        signal.signal(each, signal.SIG_IGN)
    sys.exit(128 + number)


def end_on_signals():
    for number in STOP_SIGNALS:
        signal.signal(number, stop)
