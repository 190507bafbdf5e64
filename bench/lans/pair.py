"""Two hosts: how long it takes until they have found each other."""

import socket
import statistics
import time

from lans.hosts import Hosts
from lans.lan import Lan
from lans.program import PORT
from measured import note

STRANGER = 254  # the number of the machine on which this script speaks for itself


def measure_starts(hosts, rounds):
    """The seconds that each start of a second host took."""
    first = hosts.start(1)
    hosts.expect(lambda: first.ready, "ready")
    results = []
    for _ in range(rounds):
        second = hosts.start(2)
        hosts.expect(lambda: second.address in first.appeared and first.address in second.appeared, "both tables")
        found = first.appeared[second.address]
        results.append({"complete": max(found, second.appeared[first.address]) - second.start,
                        "ready": second.ready - second.start, "heard": found - second.ready})
        hosts.stop([second])
        hosts.expect(lambda: not first.appeared, "goodbye heard")
    return results


def measure_hellos(hosts, rounds):
    """The seconds from each hello of this script's own to the line of the one host that runs."""
    (host,) = hosts.running
    lan = hosts.lan
    stranger, everybody = lan.address_of(STRANGER), (lan.address_of(255), PORT)
    results = []
    with lan.open_socket(lan.space_of(STRANGER)) as voice:
        voice.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
        voice.bind(("", PORT))
        for _ in range(rounds):
            start = time.perf_counter()
            voice.sendto(b"\1the benchmark", everybody)
            hosts.expect(lambda: stranger in host.appeared, "hello heard")
            results.append(host.appeared[stranger] - start)
            voice.sendto(b"\3Bye Bye", everybody)
            hosts.expect(lambda: not host.appeared, "goodbye heard")
    return results


def measure(rounds, folder):
    note(f"a pair, {rounds} rounds and one that is not counted")
    with Lan([1, 2, STRANGER]) as lan, Hosts(lan, folder) as hosts:
        starts = measure_starts(hosts, rounds + 1)[1:]
        hellos = measure_hellos(hosts, rounds + 1)[1:]
    figures = {
        "start of the second host to both tables complete": [one["complete"] for one in starts],
        "start of the second host to its \"ready\"": [one["ready"] for one in starts],
        "its \"ready\" to the first host's peerAppeared": [one["heard"] for one in starts],
        "a hello sent by this script to peerAppeared": hellos,
    }
    return [{"what": what, "median": statistics.median(seconds), "worst": max(seconds), "seconds": seconds}
            for what, seconds in figures.items()]


def show(rows):
    width = max(len(row["what"]) for row in rows)
    print(f"{'a pair, ' + str(len(rows[0]['seconds'])) + ' rounds':{width}}  median ms  worst ms")
    for row in rows:
        print(f"{row['what']:{width}}  {row['median'] * 1000:9.2f}  {row['worst'] * 1000:8.2f}")
    print("Less than nothing: the hello had been heard before its sender's own line was read.")
