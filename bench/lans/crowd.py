"""Hosts that all start together."""

import contextlib
import os
import pathlib
import statistics
import time

from lans.hosts import Hosts
from lans.lan import Lan, room_for_neighbours
from measured import Failure, note

TIME_LIMIT = 60  # seconds


def dropped_packets():
    """How many packets the kernel has dropped on their way up, in all namespaces, since its start."""
    lines = pathlib.Path("/proc/net/softnet_stat").read_text(encoding="ascii").splitlines()
    return sum(int(line.split()[1], 16) for line in lines)


def start_together(hosts):
    """The time at which the hosts of all machines started."""
    reading, writing = os.pipe()
    with open(reading, "rb") as gate, open(writing, "wb"):
        for number in hosts.lan.numbers:
            hosts.start(number, gate)
        return time.perf_counter()


def settled_counters(hosts):
    """The counters of all hosts, once they no longer change: the last answers may still be on their way."""
    counters, before = [host.counters() for host in hosts.running], None
    while counters != before:
        hosts.wait(lambda: False, 0.2)
        counters, before = [host.counters() for host in hosts.running], counters
    return counters


def measure(count, folder):
    note(f"a crowd of {count}")
    with contextlib.ExitStack() as stack:
        lan = stack.enter_context(Lan(list(range(1, count + 1))))
        neighbours = stack.enter_context(room_for_neighbours(lan))
        hosts = stack.enter_context(Hosts(lan, folder))
        dropped = dropped_packets()
        start = start_together(hosts)
        crowd = hosts.running
        hosts.wait(lambda: all(len(host.appeared) == count - 1 for host in crowd), TIME_LIMIT)
        complete = sum(len(host.appeared) == count - 1 for host in crowd)
        counters = settled_counters(hosts)
        processor = [host.processor_seconds() for host in crowd]
        result = {
            "hosts": count, "neighbours": neighbours,
            "ready": max(host.ready or float("inf") for host in crowd) - start,
            "completeTables": complete,
            "complete": max(max(host.appeared.values(), default=start) for host in crowd) - start,
            "datagrams": sum(one["OutDatagrams"] for one in counters), "datagramLimit": count * count,
            "receiveBufferErrors": sum(one["RcvbufErrors"] for one in counters),
            "droppedPackets": dropped_packets() - dropped,
            "processorSeconds": {"median": statistics.median(processor), "worst": max(processor)},
        }
        hosts.stop(list(crowd))
        return result


def show(crowd):
    processor = crowd["processorSeconds"]
    print(f"a crowd of {crowd['hosts']} hosts, started together; the last one was ready after {crowd['ready']:.2f} s")
    print(f"hardware addresses: {crowd['neighbours']}")
    print(f"complete tables:    {crowd['completeTables']} of {crowd['hosts']}, {crowd['complete']:.2f} s after the "
          "start")
    print(f"datagrams sent:     {crowd['datagrams']}; n * n is {crowd['datagramLimit']}")
    print(f"lost:               {crowd['receiveBufferErrors']} at full sockets, {crowd['droppedPackets']} packets "
          "before them")
    print(f"processor time:     {processor['median'] * 1000:.1f} ms a host (median), {processor['worst'] * 1000:.1f} "
          "ms the worst, start-up included", flush=True)


def judge(crowd):
    if crowd["completeTables"] != crowd["hosts"]:
        raise Failure(f"not within {TIME_LIMIT} s: all tables complete")
    if crowd["datagrams"] > crowd["datagramLimit"]:
        raise Failure("more datagrams than n * n")
