"""The two sides of a transfer as processes, and what they took."""

import contextlib
import ctypes
import os
import pathlib
import re
import signal
import subprocess
import threading
import time

from measured import Failure

from .basics import KIB

TIME_LIMIT = 300  # seconds that one transfer may take
SAMPLING_INTERVAL = 0.01  # seconds


class Side:
    """The processes of one shell line: their processor time (seconds) and peak memory (bytes), summed.

    `serves`: the line does not end by itself, and its processes wait for others that they start.
    """

    def __init__(self, line, errors, serves=False, output=subprocess.DEVNULL):
        self.line = line
        self.serves = serves
        self.processor = 0.0
        self.waited_memory = 0
        self.peaks = {}
        self.failed = False
        # The shell starts everything in the background and leaves it to us: the kernel counts the memory that a process
        # had before it became another program, so what we started directly would never seem smaller than Python.
        self.group = subprocess.Popen(["sh", "-c", line + " &"], start_new_session=True, stdin=subprocess.DEVNULL,
                                      stdout=output, stderr=errors, text=True)

    def wait(self):
        shell = self.group.pid
        with contextlib.suppress(ChildProcessError):
            while True:
                process, status, usage = os.wait4(-shell, 0)
                self.failed = self.failed or (status != 0 and not self.serves)
                if process == shell:
                    self.group.returncode = os.waitstatus_to_exitcode(status)
                    continue
                self.processor += usage.ru_utime + usage.ru_stime
                self.waited_memory += usage.ru_maxrss * KIB

    def stop(self):
        """Ends what serves. What it started ends first, so that its time is counted."""
        deadline = time.monotonic() + 10
        while any(children_of(process) for process in self.processes()):
            if time.monotonic() > deadline:
                raise Failure(f"still at work long after the transfer: {self.line}")
            time.sleep(0.001)
        self.signal(signal.SIGTERM)
        self.wait()

    def signal(self, number):
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.group.pid, number)

    def kill(self):
        family = self.family()
        self.signal(signal.SIGKILL)
        for process in family:  # some make themselves a group of their own
            with contextlib.suppress(ProcessLookupError):
                os.kill(process, signal.SIGKILL)

    def processes(self):
        """Those of our children that belong to this side."""
        return [process for process in children_of("self") if is_in_group(process, self.group.pid)]

    def family(self):
        found, waiting = [], self.processes()
        while waiting:
            found.append(waiting.pop())
            waiting += children_of(found[-1])
        return found

    def sample(self):
        for process in self.family():
            self.peaks[process] = max(self.peaks.get(process, 0), peak_memory_of(process))

    def figures(self):
        # Of a process that another one waited for, the kernel tells us its time but not its memory.
        return {"processorSeconds": self.processor, "peakMemory": max(self.waited_memory, sum(self.peaks.values()))}


def children_of(process):
    children = []
    with contextlib.suppress(OSError):
        for thread in pathlib.Path(f"/proc/{process}/task").iterdir():
            with contextlib.suppress(OSError):
                children += map(int, (thread / "children").read_text().split())
    return children


def is_in_group(process, group):
    try:
        return os.getpgid(process) == group
    except ProcessLookupError:
        return False


def peak_memory_of(process):
    try:
        found = re.search(r"^VmHWM:\s+(\d+) kB$", pathlib.Path(f"/proc/{process}/status").read_text(), re.MULTILINE)
    except OSError:
        return 0
    return int(found.group(1)) * KIB if found else 0


@contextlib.contextmanager
def sampling(sides):
    """Looks at the memory of those sides whose processes are not all ours to wait for."""
    over = threading.Event()

    def sample():
        while not over.wait(SAMPLING_INTERVAL):
            for side in list(sides):
                side.sample()

    thread = threading.Thread(target=sample)
    thread.start()
    try:
        yield
    finally:
        over.set()
        thread.join()


@contextlib.contextmanager
def guarding(sides):
    """Ends the sides when they take too long, or when something fails; `sides` may grow meanwhile."""
    watchdog = threading.Timer(TIME_LIMIT, lambda: [side.kill() for side in sides])
    watchdog.start()
    try:
        yield
    except BaseException:
        for side in sides:
            side.kill()
            side.wait()
        raise
    finally:
        watchdog.cancel()


def adopt_orphans():
    """Makes processes whose parent has ended ours to wait for."""
    set_child_subreaper = 36  # PR_SET_CHILD_SUBREAPER, linux/prctl.h
    if ctypes.CDLL(None).prctl(set_child_subreaper, 1, 0, 0, 0) != 0:
        raise Failure("prctl(PR_SET_CHILD_SUBREAPER) failed")


def is_listening(port):
    # A connection as a probe would be the transfer that nc waits for.
    pattern = re.compile(rf"^ *\d+: [0-9A-F]+:{port:04X} [0-9A-F]+:0000 0A ", re.MULTILINE)
    tables = [pathlib.Path("/proc/self/net", name) for name in ("tcp", "tcp6")]
    return any(table.exists() and pattern.search(table.read_text()) for table in tables)


def wait_for_listener(port):
    deadline = time.monotonic() + 10
    while not is_listening(port):
        if time.monotonic() > deadline:
            raise Failure(f"nothing listens on port {port}")
        time.sleep(0.001)


def run_sides(lines, port, errors):
    """Both sides of a transfer, the sender's None where there is one only, and the seconds it took."""
    sides = []
    with contextlib.ExitStack() as stack:
        stack.enter_context(guarding(sides))
        if lines.serves:
            stack.enter_context(sampling(sides))
        return run_alone(lines, errors, sides) if lines.sending is None else run_pair(lines, port, errors, sides)


def run_alone(lines, errors, sides):
    start = time.perf_counter()
    receiver = Side(lines.receiving, errors)
    sides.append(receiver)
    receiver.wait()
    seconds = time.perf_counter() - start
    refuse_failed(receiver)
    return None, receiver, seconds


def run_pair(lines, port, errors, sides):
    receiver = Side(lines.receiving, errors, lines.serves)
    sides.append(receiver)
    wait_for_listener(port)
    start = time.perf_counter()
    sender = Side(lines.sending, errors)
    sides.append(sender)
    sender.wait()
    refuse_failed(sender)
    if not lines.serves:
        receiver.wait()
    seconds = time.perf_counter() - start
    if lines.serves:
        receiver.stop()
    refuse_failed(receiver)
    return sender, receiver, seconds


def refuse_failed(side):
    if side.failed:
        raise Failure(f"failed: {side.line}")
