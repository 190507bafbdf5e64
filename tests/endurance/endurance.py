"""What the endurance programs share: payloads that can be told whole, and `vesko` as a process. Importing this lets
what tests/support has be found."""

import argparse
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
import threading
import time

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "support"))

# pylint: disable=wrong-import-position
from networks import NoNetwork, enter_own_network
from script import VESKO, Failure, build, end_on_signals, temporary_folder

PORT = 4644
TIME_LIMIT = 30  # seconds that anything may take which has to happen; programs under sanitizers are slow
TEXT_NAME = "___VIRNO___TEXT___"
FOLDER_MARK = (1 << 64) - 1


def number_bytes(value):
    return struct.pack("<Q", value)


def element(name, contents):
    """An element of a stream; without contents a folder."""
    return name.encode() + b"\0" + number_bytes(FOLDER_MARK if contents is None else len(contents)) + (contents or b"")


class Payload:
    """What one transfer hands over: a "file", a "folder" of some, "several" things, a "text", or a file that is called
    "again" each time. The number, with which every part begins, decides all of it."""

    def __init__(self, number, kind, size):
        self.number, self.kind = number, kind
        top = {"text": TEXT_NAME, "again": "again"}.get(kind, f"{kind}-{number}")
        files = {"folder": [f"{top}/{'inner/' * (index % 2)}{index}.bin" for index in range(20)],
                 "several": [top, f"{top}-b", f"{top}-c"]}.get(kind, [top])
        elements = {name: None for name in (top, f"{top}/inner") if kind == "folder"}
        elements |= {name: self.part(name, size // len(files)) for name in files}
        self.name = top
        self.called = {"several": "Received by Vesko at ", "text": "a text"}.get(kind, top)
        self.stream = number_bytes(len(elements)) + number_bytes(size) + b"".join(
            element(*each) for each in elements.items())
        self.tree = {"": None} | elements if kind == "several" else {
            name[len(top) + 1:]: contents for name, contents in elements.items()}
        self.is_told = threading.Event()

    def part(self, name, size):
        head = f"payload {self.number}\n{name}\n".encode()
        return head + hashlib.shake_128(head).hexdigest(size // 2).encode()


def tree_at(path):
    """Names inside with contents, None for folders; the path itself has the name ""."""
    if path.is_symlink() or not path.is_dir():
        return {"": b"a link" if path.is_symlink() else path.read_bytes()}
    return {"": None} | {f"{each.name}/{below}".rstrip("/"): contents
                         for each in path.iterdir() for below, contents in tree_at(each).items()}


def number_of(tree):
    """The number of the payload that something says to be a part of."""
    found = (re.match(rb"payload (\d+)\n", contents or b"") for contents in tree.values())
    return next((int(match.group(1)) for match in found if match), None)


def remove(path):
    if path.is_dir() and not path.is_symlink():
        shutil.rmtree(path)
    else:
        path.unlink()


class Vesko:
    """A `vesko receive --json` that runs, and the events it has told of."""

    def __init__(self, command, home, on_event=None):
        self.events = []
        self.on_event = on_event or self.events.append
        home.mkdir(mode=0o700, exist_ok=True)
        environment = os.environ | {"HOME": str(home), "XDG_RUNTIME_DIR": str(home), "TMPDIR": str(home)}
        self.errors = home / "errors"
        with self.errors.open("ab") as errors:
            # It must not outlive this program.
            self.process = subprocess.Popen(["setpriv", "--pdeathsig", "KILL", *command], stdin=subprocess.PIPE,
                                            stdout=subprocess.PIPE, stderr=errors, env=environment,
                                            start_new_session=True)
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            if line.endswith(b"\n"):  # a killed one may have been in the middle of it
                self.on_event(json.loads(line))

    def count(self, *names):
        return sum(event["event"] in names for event in self.events)

    def expect(self, name):
        if not wait_until(lambda: self.count(name) or not self.reader.is_alive()) or not self.count(name):
            raise Failure(f"vesko does not tell \"{name}\": {self.errors.read_text(errors='replace')}")

    def end(self, number):
        """The exit code of one that gets a signal."""
        self.process.send_signal(number)
        try:
            self.process.wait(TIME_LIMIT)
        except subprocess.TimeoutExpired:
            self.process.kill()
        self.reader.join()
        self.process.stdin.close()
        self.process.stdout.close()
        return self.process.wait()


def wait_until(condition):
    """Whether the condition, which nothing tells of, held in time."""
    deadline = time.monotonic() + TIME_LIMIT
    while not condition():
        if time.monotonic() > deadline:
            return False
        time.sleep(0.002)
    return True


def connect(port, address="127.0.0.1", source=""):
    return socket.create_connection((address, port), TIME_LIMIT, (source, 0) if source else None)


def close_with_reset(connection):
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()


def ends_in_order(connection):
    """Takes what comes until the other side has closed; false when it did that with a reset."""
    try:
        while connection.recv(1 << 16):
            pass
    except ConnectionResetError:
        return False
    return True


def run_program(description, counted, default, smoke, task, folder, kinds=()):
    """Runs `task` with the arguments of the command line, among them `count`, and with the program under test and a
    folder. It returns figures to print, and what is wrong."""
    name = pathlib.Path(sys.argv[0]).name
    parser = argparse.ArgumentParser(description=description, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument(f"--{counted}", dest="count", type=int, default=default, help=f"how many (default {default})")
    parser.add_argument("--smoke", dest="count", action="store_const", const=smoke, help=f"only {smoke}")
    parser.add_argument("--vesko", type=pathlib.Path, help="the program (default: that of the release preset, built)")
    parser.add_argument("--seed", type=int, default=random.randrange(1 << 32), help="of all choices (default: drawn)")
    parser.add_argument("--json", type=pathlib.Path, metavar="FILE", help="also write every figure to FILE")
    if kinds:
        parser.add_argument("--only", choices=kinds, help="operations of this kind alone")
    arguments = parser.parse_args()
    end_on_signals()
    try:
        if not arguments.vesko:
            build("vesko")
        program = (arguments.vesko or VESKO).resolve()
        enter_own_network(also_as_user=True)
        print(f"tested: {program}; --seed {arguments.seed}", flush=True)
        with temporary_folder(name, folder) as inside:
            figures, wrong = task(arguments, program, inside)
            wrong += filter(None, (path.read_text(errors="replace") for path in inside.glob("*/errors")))
    except NoNetwork as reason:
        sys.exit(print(f"skipped: {reason}"))
    except (Failure, OSError) as error:
        sys.exit(f"{name}: {error}")
    print(*(f"{key}: {value}" for key, value in figures.items() if key != "samples"), sep="\n")
    if arguments.json:
        arguments.json.write_text(json.dumps(figures, indent=1) + "\n", encoding="utf-8")
    sys.exit("\n".join(f"FAILED: {each}" for each in wrong[:20]) if wrong else print("passed"))
