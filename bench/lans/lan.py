"""Machines on one network: namespaces on a bridge."""

import contextlib
import fcntl
import pathlib
import socket
import struct
import time

from measured import Failure
from networks import Spaces, run_ip
from script import postponed_signals

TIME_LIMIT = 10  # seconds
NEIGHBOUR_LIMITS = [pathlib.Path(f"/proc/sys/net/ipv4/neigh/default/gc_thresh{number}") for number in (1, 2, 3)]


def has_link(probe, device):
    get_flags, is_running = 0x8913, 0x40  # SIOCGIFFLAGS, IFF_RUNNING
    answer = fcntl.ioctl(probe, get_flags, struct.pack("16sH14x", device.encode(), 0))
    return struct.unpack("16sH14x", answer)[1] & is_running != 0


class Lan(Spaces):
    """Machines on one network; number N has the address 10.84.0.N."""

    def __init__(self, numbers):
        super().__init__(["switch", *map(str, numbers)])
        self.numbers = numbers

    @staticmethod
    def address_of(number):
        return f"10.84.0.{number}"

    @staticmethod
    def hardware_of(number):
        return f"02:00:0a:54:00:{number:02x}"

    def space_of(self, number):
        return f"{self.prefix}{number}"

    def make(self):
        # The bridge has a namespace of its own too: no device, address or route of this machine changes.
        lines = ["link add bridge type bridge", "link set bridge up"]
        for number in self.numbers:
            lines += [f"link add port{number} type veth peer name eth0 address {self.hardware_of(number)} "
                      f"netns {self.space_of(number)}", f"link set port{number} master bridge up"]
        run_ip(lines, "-n", self.spaces[0])
        for number in self.numbers:
            run_ip(["link set lo up", "link set eth0 up", f"address add {self.address_of(number)}/24 dev eth0"],
                   "-n", self.space_of(number))
        self.await_links()

    def await_links(self):
        deadline = time.monotonic() + TIME_LIMIT
        links = [(self.spaces[0], f"port{number}") for number in self.numbers]
        links += [(self.space_of(number), "eth0") for number in self.numbers]
        for space, device in links:
            with self.open_socket(space) as probe:
                while not has_link(probe, device):
                    if time.monotonic() > deadline:
                        raise Failure(f"{device} of {space} gets no link")
                    time.sleep(0.001)

    def open_socket(self, space):
        return self.inside(space, lambda: socket.socket(socket.AF_INET, socket.SOCK_DGRAM))


def raise_neighbour_limits(wanted, before):
    """Notes in `before` what the limits were; false where they are not ours to change."""
    try:
        # Each must be smaller than the next, also meanwhile.
        for limit in reversed(NEIGHBOUR_LIMITS):
            value = limit.read_text(encoding="ascii")
            if int(value) < wanted:
                before[limit] = value
                limit.write_text(str(wanted), encoding="ascii")
    except OSError:
        return False
    return True


def set_neighbours(lan):
    for number in lan.numbers:
        run_ip([f"neighbour replace {lan.address_of(other)} lladdr {lan.hardware_of(other)} nud permanent dev eth0"
                for other in lan.numbers if other != number], "-n", lan.space_of(number))


@contextlib.contextmanager
def room_for_neighbours(lan):
    """How the machines know each other's hardware addresses. The kernel's table of them is one for all namespaces, and
    too small for a crowd, whose datagrams would be lost for a reason that no real network has."""
    wanted, before = 2 * len(lan.numbers) ** 2, {}
    try:
        if not raise_neighbour_limits(wanted, before):
            set_neighbours(lan)
            yield "set beforehand (gc_thresh belongs to another namespace), so there is no ARP"
        elif before:
            yield f"asked for by ARP (gc_thresh raised to {wanted} meanwhile)"
        else:
            yield "asked for by ARP"
    finally:
        with postponed_signals():
            for limit, value in reversed(before.items()):
                with contextlib.suppress(OSError):
                    limit.write_text(value, encoding="ascii")
