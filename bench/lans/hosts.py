"""Hosts of vesko on the machines of a network."""

import json
import os
import re
import pathlib
import selectors
import subprocess
import tempfile
import time

from lans.lan import TIME_LIMIT
from lans.program import PORT
from measured import VESKO, Failure
from script import postponed_signals


class Host:
    """A `vesko receive`, and when it said what, in seconds of time.perf_counter()."""

    def __init__(self, lan, number, folder, errors, gate=None, options=("--json",), output=subprocess.PIPE):
        self.address = lan.address_of(number)
        self.ready = None
        self.appeared = {}  # addresses that are in the table, and since when
        self.unread = b""
        home = folder / str(number)
        home.mkdir(mode=0o700, exist_ok=True)
        self.environment = os.environ | {"XDG_RUNTIME_DIR": str(home)}
        self.control = home / "vesko" / f"{PORT}.sock"
        command = [VESKO, "receive", *options, "--port", str(PORT), "--dir", home]
        if gate is not None:
            command = ["sh", "-c", 'read -r _; exec "$@"', "sh", *command]

        def start():
            self.start = time.perf_counter()
            return subprocess.Popen(command, env=self.environment, stdin=gate or subprocess.DEVNULL, stdout=output,
                                    stderr=errors, start_new_session=True)
        self.process = lan.inside(lan.space_of(number), start)

    def read(self):
        """Takes what the host has said; false at the end of it."""
        bytes_read = os.read(self.process.stdout.fileno(), 1 << 16)
        now = time.perf_counter()
        *lines, self.unread = (self.unread + bytes_read).split(b"\n")
        for line in lines:
            event = json.loads(line)
            if event["event"] == "ready":
                self.ready = now
            elif event["event"] == "peerAppeared":
                self.appeared[event["key"]] = now
            elif event["event"] == "peerDisappeared":
                self.appeared.pop(event["key"], None)
        return bytes_read != b""

    def processor_seconds(self):
        return time.clock_gettime(~self.process.pid << 3 | 2)  # the clock of a process, as clock_getcpuclockid(3) says

    def counters(self):
        """The kernel's counters of UDP in the host's namespace, by name."""
        text = pathlib.Path(f"/proc/{self.process.pid}/net/snmp").read_text(encoding="ascii")
        names, values = re.findall("^Udp: (.*)$", text, re.MULTILINE)
        return dict(zip(names.split(), map(int, values.split())))


class Hosts:
    """All hosts that run, read by one thread."""

    def __init__(self, lan, folder):
        self.lan = lan
        self.folder = folder
        self.running = []
        self.selector = selectors.DefaultSelector()
        self.errors = tempfile.TemporaryFile("w+", errors="replace")

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with postponed_signals():
            for host in self.running:
                host.process.kill()
                host.process.wait()
        self.errors.close()

    def start(self, number, gate=None):
        """A host that starts at once or, with a gate, when that file ends."""
        with postponed_signals():
            host = Host(self.lan, number, self.folder, self.errors, gate)
            self.running.append(host)
        self.selector.register(host.process.stdout, selectors.EVENT_READ, host)
        return host

    def start_unheard(self, number, options=("--quiet",), output=subprocess.DEVNULL):
        """A host that says nothing to this script; it is ready when this returns."""
        with postponed_signals():
            host = Host(self.lan, number, self.folder, self.errors, None, options, output)
            self.running.append(host)
        deadline = time.monotonic() + TIME_LIMIT
        while not host.control.exists():
            if host.process.poll() is not None or time.monotonic() > deadline:
                self.fail(f"the host of {host.address} does not get ready")
            time.sleep(0.001)
        return host

    def wait(self, condition, limit=TIME_LIMIT):
        """Reads until the condition holds; false when it does not in time."""
        deadline = time.monotonic() + limit
        while not condition():
            ready = self.selector.select(deadline - time.monotonic())
            if time.monotonic() > deadline:
                return False
            for key, _ in ready:
                if not key.data.read():
                    self.fail(f"the host of {key.data.address} has ended")
        return True

    def expect(self, condition, what):
        if not self.wait(condition):
            self.fail(f"not within {TIME_LIMIT} s: {what}")

    def fail(self, text):
        self.errors.seek(0)
        raise Failure(f"{text}\n{self.errors.read()}")

    def stop(self, hosts):
        for host in hosts:
            if host.process.stdout is not None:
                self.selector.unregister(host.process.stdout)
            host.process.terminate()
        for host in hosts:
            # It must not wait for somebody to read its last words.
            while host.process.stdout is not None and host.read():
                pass
            if host.process.wait(TIME_LIMIT) != 0:
                self.fail(f"the host of {host.address} ended with exit code {host.process.returncode}")
            self.running.remove(host)
