"""Two machines and a wire between them, with the bandwidth, delay and queue of a network."""

import json
import pathlib
import signal
import socket
import statistics
import subprocess
import time

from measured import BUILD, Failure
from networks import Spaces, run_ip
from script import postponed_signals

RATE = 1_000_000_000  # bits per second
SMALLEST_QUEUE = 256 * 1024  # bytes
# Large packets pass as one and arrive when the last of their bytes does: these are the 0.13 ms that 11 frames take.
LARGEST_PACKET = 16 * 1024
# The buffers of a connection may grow until the widest pipe here and its queue are full. Reno fills a queue as deep as
# the pipe, and paces nothing; what it has learned of the wire it does not remember for the next connection.
SETTINGS = {
    "net/ipv4/tcp_congestion_control": "reno",
    "net/ipv4/tcp_rmem": "4096 131072 33554432",
    "net/ipv4/tcp_wmem": "4096 16384 33554432",
    "net/ipv4/tcp_no_metrics_save": "1",
    "net/ipv6/conf/default/disable_ipv6": "1",
    "net/ipv6/conf/all/disable_ipv6": "1",
}


def best_rate():
    """The bits per second of payload that fit: of a frame of 1,538 bytes the headers, with a time stamp, take 52."""
    return RATE * (1500 - 52) / 1538


def queue_for(round_trip):
    """Bytes: as many as are on their way. Half of both is then still a full wire."""
    return max(SMALLEST_QUEUE, round(RATE / 8 * round_trip))


class Wire(Spaces):
    """Machines 0 and 1 with the addresses 10.85.0.1 and 10.85.0.2; times in seconds."""

    def __init__(self, name, round_trip):
        super().__init__([f"{name}-0", f"{name}-1"])
        self.round_trip = round_trip
        self.queue = queue_for(round_trip)
        self.link = None

    @staticmethod
    def address_of(number):
        return f"10.85.0.{number + 1}"

    def run(self, number, task):
        """The result of `task`, run on a machine."""
        return self.inside(self.spaces[number], task)

    def make(self):
        for number in (0, 1):
            self.run(number, self.apply_settings)
        self.start_link()
        for number, space in enumerate(self.spaces):
            run_ip(["link set lo up", f"address add {self.address_of(number)}/30 dev wire",
                    f"link set wire mtu 1500 gso_max_size {LARGEST_PACKET} up"], "-n", space)

    @staticmethod
    def apply_settings():
        for name, value in SETTINGS.items():
            file = pathlib.Path("/proc/sys", name)
            # A kernel without IPv6 needs not be told to leave it.
            if "ipv6" not in name or file.exists():
                file.write_text(value, encoding="ascii")

    def start_link(self):
        if not pathlib.Path("/dev/net/tun").exists():
            raise Failure("/dev/net/tun is missing, and with it the devices that the wire needs: modprobe tun")
        delay = round(self.round_trip / 2 * 1e6)
        command = [BUILD / "bench/link", *(f"/run/netns/{space}" for space in self.spaces), RATE, delay, self.queue]
        with postponed_signals():
            self.link = subprocess.Popen([str(word) for word in command], stdin=subprocess.DEVNULL,
                                         stdout=subprocess.PIPE, text=True, start_new_session=True)
        if self.link.stdout.readline() != "ready\n":
            raise Failure("the wire cannot be made")

    def remove(self):
        with postponed_signals():
            if self.link is not None:
                self.link.kill()
                self.link.wait()
                self.link.stdout.close()
            super().remove()

    def counters(self):
        """What has passed so far, in each direction."""
        self.link.send_signal(signal.SIGUSR1)
        line = self.link.stdout.readline()
        if not line:
            raise Failure("the wire has broken")
        return json.loads(line)

    def device_drops(self):
        """Packets that the machines' own devices have dropped so far, because the link did not keep up."""
        def drops():
            lines = pathlib.Path("/proc/thread-self/net/dev").read_text(encoding="ascii").splitlines()
            (words,) = [line.split() for line in lines if line.split()[0] == "wire:"]
            return int(words[4]) + int(words[12])
        return sum(self.run(number, drops) for number in (0, 1))

    def measured_round_trip(self, rounds=15):
        """The median time in which a connection is made."""
        times = []
        with self.run(1, socket.socket) as listener:
            listener.bind((self.address_of(1), 0))
            listener.listen()
            for _ in range(rounds):
                with self.run(0, socket.socket) as caller:
                    start = time.perf_counter()
                    caller.connect(listener.getsockname())
                    times.append(time.perf_counter() - start)
                listener.accept()[0].close()
        return statistics.median(times)
