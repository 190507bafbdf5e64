"""One file, from one end of a wire to the other one."""

import filecmp
import json
import os
import pathlib
import re
import selectors
import subprocess
import tempfile
import time

from measured import VESKO, Failure
from script import postponed_signals

PORT = 4700
TIME_LIMIT = 120  # seconds that one passage may take


class Program:
    """A program at an end of a wire: the lines it has written, and when each reached this script."""

    def __init__(self, wire, number, command, folder, errors, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE):
        self.command = command
        self.lines = []
        self.unread = b""
        environment = os.environ | {"XDG_RUNTIME_DIR": str(folder)}
        self.process = wire.run(number, lambda: subprocess.Popen(
            [str(word) for word in command], stdin=stdin, stdout=stdout, stderr=errors, env=environment,
            start_new_session=True))

    def read(self):
        """False at the end."""
        data = os.read(self.process.stdout.fileno(), 1 << 16)
        now = time.perf_counter()
        *lines, self.unread = (self.unread + data).split(b"\n")
        self.lines += [(now, line) for line in lines]
        return data != b""

    def first(self, event):
        """When the first event of this kind was told."""
        for when, line in self.lines:
            if json.loads(line)["event"] == event:
                return when
        raise Failure(f"{self.command[0]} tells of no {event}")


class Passage:
    """The programs of one passage, which end with the block."""

    def __init__(self, wire, folder):
        self.wire = wire
        self.folder = folder
        self.programs = []
        self.errors = tempfile.TemporaryFile("w+", errors="replace")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with postponed_signals():
            for program in self.programs:
                program.process.kill()
                program.process.wait()
                if program.process.stdout is not None:
                    program.process.stdout.close()
        self.errors.close()

    def start(self, number, command, **streams):
        with postponed_signals():
            program = Program(self.wire, number, command, self.folder / str(number), self.errors, **streams)
            self.programs.append(program)
        return program

    def wait_for_listener(self):
        deadline = time.monotonic() + 10
        while not self.wire.run(1, is_listening):
            if time.monotonic() > deadline:
                self.fail("the receiver does not listen")
            time.sleep(0.001)

    def finish(self):
        """Waits until all have ended, well, and reads what they say."""
        deadline = time.monotonic() + TIME_LIMIT
        with selectors.DefaultSelector() as selector:
            for program in self.programs:
                if program.process.stdout is not None:
                    selector.register(program.process.stdout, selectors.EVENT_READ, program)
            while selector.get_map() and time.monotonic() < deadline:
                for key, _ in selector.select(deadline - time.monotonic()):
                    if not key.data.read():
                        selector.unregister(key.fileobj)
        for program in self.programs:
            try:
                code = program.process.wait(max(0.0, deadline - time.monotonic()))
            except subprocess.TimeoutExpired:
                self.fail(f"not done within {TIME_LIMIT} s: {program.command[0]}")
            if code != 0:
                self.fail(f"{program.command[0]} ended with exit code {code}")

    def fail(self, text):
        self.errors.seek(0)
        raise Failure(f"{text}\n{self.errors.read()}")


def is_listening():
    text = pathlib.Path("/proc/thread-self/net/tcp").read_text(encoding="ascii")
    return re.search(rf"^ *\d+: [0-9A-F]+:{PORT:04X} [0-9A-F]+:0000 0A ", text, re.MULTILINE) is not None


def timed(passage, send):
    """Seconds from the start of the sender, by `send`, until both sides have ended."""
    passage.wait_for_listener()
    start = time.perf_counter()
    sender = send()
    passage.finish()
    return time.perf_counter() - start, sender


def pass_bare(wire, source, folder):
    """By nc, to nowhere."""
    with Passage(wire, folder) as passage, open(source, "rb") as file:
        passage.start(1, ["nc", "-4", "-d", "-l", "-p", PORT], stdout=subprocess.DEVNULL)
        seconds, _ = timed(passage, lambda: passage.start(0, ["nc", "-N", wire.address_of(1), PORT], stdin=file,
                                                          stdout=subprocess.DEVNULL))
    return {"seconds": seconds}


def pass_with_vesko(wire, source, folder):
    """To a file, which is compared and removed."""
    with tempfile.TemporaryDirectory(dir=folder) as inbox, Passage(wire, folder) as passage:
        receiver = passage.start(1, [VESKO, "receive", "--once", "--json", "--port", PORT, "--dir", inbox])
        seconds, sender = timed(passage, lambda: passage.start(
            0, [VESKO, "send", "--json", "--to", f"{wire.address_of(1)}:{PORT}", source]))
        arrived = [path.name for path in pathlib.Path(inbox).iterdir()]
        if arrived != [source.name] or not filecmp.cmp(source, pathlib.Path(inbox, source.name), shallow=False):
            raise Failure(f"what arrived ({', '.join(arrived) or 'nothing'}) is not what was sent")
        began = sender.first("transferStarted")
        return {"seconds": seconds, "senderReport": sender.first("progress") - began,
                "receiverReport": receiver.first("progress") - began,
                "receiverReportAfterAccepting": receiver.first("progress") - receiver.first("transferStarted")}


WAYS = {"bare": pass_bare, "vesko": pass_with_vesko}


def make_passage(wire, way, source, folder):
    """The figures of one passage, with those of the wire."""
    for number in ("0", "1"):
        (folder / number).mkdir(mode=0o700, exist_ok=True)
    before = wire.counters()
    result = WAYS[way](wire, source, folder)
    after = wire.counters()
    result["dropped"] = sum(now["dropped"] - was["dropped"] for now, was in zip(after, before))
    result["worstLateness"] = max(way["worstLateness"] for way in after) / 1e6
    return {"way": way, "roundTrip": wire.round_trip} | result
