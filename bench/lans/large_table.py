"""A host that knows thousands of machines, and hears a thousand hellos a second."""

import contextlib
import json
import socket
import struct
import subprocess
import time

from lans.hosts import Hosts
from lans.lan import TIME_LIMIT, Lan
from lans.program import PORT
from lans.tables import print_table
from measured import VESKO, Failure, note
from networks import run_ip

HOST, CROWD = 1, 2  # the machine of the host, and the one that all others' datagrams come from
HELLOS_PER_SECOND = 1000
IP_PKTINFO = 8  # linux/in.h
LARGEST = 64_000  # addresses that the crowd has


class Crowd:
    """A socket that says hello as many machines, and counts what they are answered."""

    def __init__(self, lan, count):
        self.everybody = (lan.address_of(255), PORT)
        self.count = count
        self.answers = 0
        space = lan.space_of(CROWD)
        # All of these addresses are the crowd's own. The host reaches them as those behind a router, so that it asks
        # for one hardware address rather than thousands, for which the kernel's table is too small.
        run_ip(["route add local 10.85.0.0/16 dev lo"], "-n", space)
        run_ip([f"route add 10.85.0.0/16 via {lan.address_of(CROWD)}"], "-n", lan.space_of(HOST))
        self.voice = lan.open_socket(space)
        self.voice.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        self.voice.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 20)
        self.voice.bind(("", PORT))

    def say_hello(self, number):
        number %= self.count
        source = struct.pack("!iBBBB4x", 0, 10, 85, number // 250, 1 + number % 250)  # in_pktinfo: from which address
        self.voice.sendmsg([b"\1user%d at machine%d" % (number, number)],
                           [(socket.IPPROTO_IP, IP_PKTINFO, source)], 0, self.everybody)

    def hear(self):
        with contextlib.suppress(BlockingIOError):
            while True:
                data, sender = self.voice.recvfrom(2048, socket.MSG_DONTWAIT)
                self.answers += data[:1] == b"\2" and sender[0] != self.everybody[0]

    def say_hellos(self, start, count):
        """Evenly spaced; the seconds it took."""
        begin = time.perf_counter()
        for number in range(count):
            due = begin + number / HELLOS_PER_SECOND
            time.sleep(max(0.0, due - time.perf_counter()))
            self.say_hello(start + number)
            self.hear()
        time.sleep(max(0.0, begin + count / HELLOS_PER_SECOND - time.perf_counter()))
        self.hear()
        return time.perf_counter() - begin

    def close(self):
        self.voice.close()


def table_size(lan, host):
    """How many machines the host knows, as it tells programs of its user."""
    result = lan.inside(lan.space_of(HOST), lambda: subprocess.run(
        [VESKO, "peers", "--json", "--port", str(PORT)], env=host.environment, stdin=subprocess.DEVNULL,
        capture_output=True, text=True, timeout=TIME_LIMIT, check=False))
    if result.returncode != 0:
        raise Failure(f"vesko peers: {result.stderr.strip()}")
    return len(json.loads(result.stdout))


def fill_table(lan, host, crowd):
    """Until all are known: a datagram may be lost."""
    deadline = time.monotonic() + TIME_LIMIT + 3 * crowd.count / HELLOS_PER_SECOND
    while table_size(lan, host) < crowd.count:
        if time.monotonic() > deadline:
            raise Failure(f"the table of a host does not get {crowd.count} machines")
        crowd.say_hellos(0, crowd.count)


def settle(host):
    """Until what the newcomers have the host do, ask for their pictures above all, is done."""
    before = host.processor_seconds()
    for _ in range(10 * TIME_LIMIT):
        time.sleep(0.1)
        now = host.processor_seconds()
        if now - before < 0.0005:
            return
        before = now
    raise Failure("a host that nobody speaks to goes on being busy")


def measure_way(count, seconds, folder, way, options):
    with contextlib.ExitStack() as stack:
        lan = stack.enter_context(Lan([HOST, CROWD]))
        hosts = stack.enter_context(Hosts(lan, folder))
        events = stack.enter_context(open(folder / "events", "wb"))
        host = hosts.start_unheard(HOST, options, events)
        crowd = stack.enter_context(contextlib.closing(Crowd(lan, count)))
        fill_table(lan, host, crowd)
        settle(host)
        crowd.answers = 0
        heard, before = host.counters()["InDatagrams"], host.processor_seconds()
        duration = crowd.say_hellos(0, seconds * HELLOS_PER_SECOND)
        processor = host.processor_seconds() - before
        result = {"way": way, "peers": table_size(lan, host), "seconds": duration,
                  "hellosSent": seconds * HELLOS_PER_SECOND,
                  "hellosHeard": host.counters()["InDatagrams"] - heard, "answers": crowd.answers,
                  "processorSeconds": processor, "processorShare": processor / duration}
        hosts.stop([host])
    return result


def measure(count, seconds, folder):
    note(f"a table of {count} machines, {HELLOS_PER_SECOND} hellos a second for {seconds} s")
    return [measure_way(count, seconds, folder, "receive --quiet", ("--quiet",)),
            measure_way(count, seconds, folder, "receive --json, to a file", ("--json",))]


def show(results):
    rows = [[one["way"], f"{one['hellosSent'] / one['seconds']:.0f}", str(one["hellosSent"]), str(one["hellosHeard"]),
             str(one["answers"]), f"{100 * one['processorShare']:.1f}"] for one in results]
    print_table([f"a table of {results[0]['peers']} machines", "hellos/s", "sent", "heard", "answers",
                 "% of a processor"], rows)
    print("The log is off. At most 1,000 hellos a second are answered.", flush=True)


def judge(rows, count):
    for row in rows:
        if row["peers"] != count:
            raise Failure(f"{row['way']}: {row['peers']} of {count} machines in the table")
