"""What the endurance programs share: payloads that can be told whole, `vesko` as a process. Importing this lets what
tests/support has be found."""

import contextlib
import functools
import hashlib
import json
import os
import pathlib
import random
import re
import shutil
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "support"))

# pylint: disable=wrong-import-position
from networks import NoNetwork, enter_own_network
from script import VESKO, Failure, build, end_on_signals, temporary_folder

PORT = 4644
TIME_LIMIT = 30  # seconds that anything may take which has to happen; programs under sanitizers are slow
ENDS_WITH_PARENT = ("setpriv", "--pdeathsig", "KILL")  # what a program is started by that must not outlive this one
TEXT_NAME = "___VIRNO___TEXT___"
FOLDER_MARK = (1 << 64) - 1
STORAGE_PREFIX = ".VeskoTransferIntermediateStorage"
STORAGE_NAME = re.compile(re.escape(STORAGE_PREFIX) + r"\d{14}[A-Za-z0-9]{32}")
NAME_OF_SEVERAL = r"Received by Vesko at \d{4}-\d\d-\d\d \d\d-\d\d"


def number_bytes(value):
    return struct.pack("<Q", value)


def element(name, contents):
    """An element of a stream; without contents a folder."""
    size = FOLDER_MARK if contents is None else len(contents)
    return name.encode() + b"\0" + number_bytes(size) + (contents or b"")


def stream(elements):
    total = sum(len(contents or b"") for _, contents in elements)
    return b"".join([number_bytes(len(elements)), number_bytes(total), *(element(*each) for each in elements)])


def contents_of(payload, name, size):
    """Bytes that say what they are a part of, and that no other part begins or goes on with."""
    head = f"payload {payload}\n{name}\n".encode()
    return (head + hashlib.shake_128(head).digest(max(0, size - len(head))))[:size]


class Payload:
    """What one transfer hands over. Its number, which is in everything it holds, decides all of it."""

    def __init__(self, origin, elements):
        self.origin = origin  # the arguments of make_payload()
        self.number, self.kind, _ = origin
        self.elements = elements  # names and contents, in the order of the stream
        self.tops = {name: None for name, _ in elements if "/" not in name}

    @functools.cached_property
    def stream(self):
        return stream(self.elements)

    @functools.cached_property
    def wanted_name(self):
        """A pattern of the name it may have in the downloads folder."""
        if len(self.tops) > 1:
            return re.compile(NAME_OF_SEVERAL + r"( \(\d+\))?")
        (name,) = self.tops
        stem, dot, extension = name.partition(".")
        return re.compile(re.escape(stem) + r"( \(\d+\))?" + re.escape(dot + extension))

    def is_at(self, path):
        """Whether a path holds all of it and nothing else."""
        if not self.wanted_name.fullmatch(path.name):
            return False
        wanted = self.elements if len(self.tops) > 1 else [
            (name.partition("/")[2], contents) for name, contents in self.elements]
        return tree_at(path) == {**({"": None} if len(self.tops) > 1 else {}), **dict(wanted)}

    def text(self):
        return self.elements[0][1].decode()

    def write_to(self, folder):
        """The paths whose sending gives this payload."""
        for name, contents in self.elements:
            if contents is None:
                (folder / name).mkdir()
            else:
                (folder / name).write_bytes(contents)
        return [folder / name for name in self.tops]


def make_payload(number, kind, size):
    """One of some `size` bytes: a "file", a "folder" of many, "several" things, or a "text"; "again" and "again folder"
    have the same name each time."""
    generator = random.Random(number)
    single = {"file": f"file-{number}.bin", "again": "again.txt"}
    if kind in single:
        return Payload((number, kind, size), [(single[kind], contents_of(number, single[kind], size))])
    if kind == "text":
        text = contents_of(number, "text", size).decode(errors="replace")[:size]
        return Payload((number, kind, size), [(TEXT_NAME, text.encode())])
    if kind == "several":
        names = [f"{number}-a.txt", f"{number}-b", f"{number}-b/c", f"{number}-b/c/d.bin", f"{number}-e.bin"]
    else:
        top = "again" if kind == "again folder" else f"folder-{number}"
        names = [top, f"{top}/first"] + [f"{top}/{generator.choice(('', 'first/'))}{index}.bin" for index in range(30)]
    files = [name for name in names if "." in name]
    share = 2 * size // len(files)
    return Payload((number, kind, size), [
        (name, contents_of(number, name, 100 + generator.randrange(share)) if name in files else None)
        for name in names])


def tree_at(path):
    """Names inside with contents, None for folders; the path itself has the name ""."""
    if path.is_symlink():
        return {"": f"a link to {os.readlink(path)}"}
    if not path.is_dir():
        return {"": path.read_bytes()}
    found = {"": None}
    for name in os.listdir(path):
        for below, contents in tree_at(path / name).items():
            found[f"{name}/{below}" if below else name] = contents
    return found


def number_at(path):
    """The number of the payload that something in a path says to be a part of."""
    for contents in tree_at(path).values():
        found = re.match(rb"payload (\d+)\n", contents) if isinstance(contents, bytes) else None
        if found:
            return int(found.group(1))
    return None


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


class Vesko:
    """A `vesko` that runs, and the events it has told of."""

    def __init__(self, command, home, errors, on_event=None):
        self.events = []
        self.on_event = on_event or self.events.append
        self.changed = threading.Condition()
        self.has_ended = False
        self.start = time.monotonic()
        home.mkdir(mode=0o700, exist_ok=True)
        environment = os.environ | {"HOME": str(home), "XDG_RUNTIME_DIR": str(home), "TMPDIR": str(home)}
        self.process = subprocess.Popen([*ENDS_WITH_PARENT, *command], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=errors, env=environment, start_new_session=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            with self.changed:
                if line.endswith(b"\n"):  # a killed one may have been in the middle of it
                    self.on_event(json.loads(line))
                self.changed.notify_all()
        with self.changed:
            self.has_ended = True
            self.changed.notify_all()

    def wait_for(self, name, deadline):
        """Whether such an event came before the deadline, of time.monotonic()."""
        def is_there():
            return any(event["event"] == name for event in self.events)
        with self.changed:
            self.changed.wait_for(lambda: is_there() or self.has_ended, max(0, deadline - time.monotonic()))
            return is_there()

    def expect_ready(self):
        if not self.wait_for("ready", time.monotonic() + TIME_LIMIT):
            raise Failure("vesko does not get ready")

    def kill(self):
        self.process.kill()
        self.close()

    def terminate(self):
        """The exit code of one that is asked to end."""
        self.process.terminate()
        try:
            self.process.wait(TIME_LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
        self.close()
        return self.process.returncode

    def close(self):
        self.process.wait()
        self.reader.join()
        self.process.stdout.close()
        self.process.stdin.close()


def wait_until(condition, limit=TIME_LIMIT):
    """Whether the condition, which nothing tells of, held in time."""
    deadline = time.monotonic() + limit
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.002)
    return True


def connect(port, address="127.0.0.1", source=""):
    connection = socket.socket()
    connection.settimeout(TIME_LIMIT)
    if source:
        # Without it the system looks for a port that is free with any peer, the longer the more have been used.
        bind_without_port = 24  # IP_BIND_ADDRESS_NO_PORT, linux/in.h
        connection.setsockopt(socket.IPPROTO_IP, bind_without_port, 1)
        connection.bind((source, 0))
    try:
        connection.connect((address, port))
    except OSError:
        connection.close()
        raise
    return connection


def close_with_reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def wait_for_end(connection):
    """Takes what comes until the other side has closed; false when it did that with a reset."""
    try:
        while connection.recv(1 << 16):
            pass
    except (ConnectionResetError, BrokenPipeError):
        return False
    return True


@contextlib.contextmanager
def standard_errors():
    """A file for what programs say on standard error; a failure tells that too."""
    with tempfile.TemporaryFile("w+", errors="replace") as file:
        try:
            yield file
        except (Failure, OSError) as error:
            file.seek(0)
            raise Failure(f"{error}\n{file.read()}") from error


def sanitizer_of(program):
    """The sanitizer a program is built with, or an empty text."""
    contents = program.read_bytes()
    return next((name for name in ("asan", "tsan") if f"__{name}_init".encode() in contents), "")


def run_program(name, arguments, task):
    """Runs `task` with the program under test and a folder, and ends this process with its exit code."""
    end_on_signals()
    try:
        if not arguments.vesko:
            build("vesko")
        program = (arguments.vesko or VESKO).resolve()
        enter_own_network(also_as_user=True)
        with temporary_folder(name, arguments.dir) as folder:
            sys.exit(task(arguments, program, folder))
    except NoNetwork as reason:
        print(f"skipped: {reason}")
    except (Failure, OSError, subprocess.SubprocessError) as error:
        sys.exit(f"{name}: {error}")


def add_common_arguments(parser, folder):
    parser.add_argument("--vesko", type=pathlib.Path, metavar="PATH",
                        help="the program (default: that of the release preset, which is built)")
    parser.add_argument("--dir", type=pathlib.Path, default=folder,
                        help=f"where files are sent from and received (default {folder})")
    parser.add_argument("--seed", type=int, help="of all choices; one that is drawn is printed")
    parser.add_argument("--seconds-limit", type=float, default=3600, metavar="S",
                        help="ends after the round or operation under way by then (default 3600)")
    parser.add_argument("--smoke", action="store_true", help="only shows, within seconds, that all of it works")
