"""What scripts share that build programs and try them, and how what they make goes away again, also when stopped."""

import contextlib
import pathlib
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build/release"
VESKO = BUILD / "hosts/cli/vesko"
STOP_SIGNALS = (signal.SIGINT, signal.SIGTERM)


class Failure(Exception):
    """A message for the user."""


def build(*targets):
    """Builds the targets, all of the release preset."""
    commands = [["cmake", "--build", "--preset", "release", "--target", *targets]]
    if not (BUILD / "build.ninja").exists():
        commands.insert(0, ["cmake", "--preset", "release"])
    for command in commands:
        result = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                check=False)
        if result.returncode != 0:
            raise Failure(f"failed: {shlex.join(command)}\n{result.stdout}")


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
def temporary_folder(name, parent=None):
    folder = pathlib.Path(tempfile.mkdtemp(prefix=f"vesko-{name}-", dir=parent))
    try:
        yield folder
    finally:
        with postponed_signals():
            shutil.rmtree(folder)


def stop(number, _):
    """Ends this script, which clears up; whoever asks once more does not stop that."""
    for each in STOP_SIGNALS:
        signal.signal(each, signal.SIG_IGN)
    sys.exit(128 + number)


def end_on_signals():
    for number in STOP_SIGNALS:
        signal.signal(number, stop)
