"""Transfers that take turns, and what they come to."""

import contextlib
import pathlib
import shutil
import statistics
import tempfile

from measured import Failure, note

from .machine import free_port
from .sides import run_sides

BASE = "vesko"  # the way that the others are related to
SLOW = 5  # seconds; a way that takes longer takes part in every third round only


@contextlib.contextmanager
def collecting_errors():
    """A file for what processes complain of, which becomes a part of the failure."""
    with tempfile.TemporaryFile("w+", errors="replace") as errors:
        try:
            yield errors
        except Failure as failure:
            errors.seek(0)
            raise Failure(f"{failure}\n{errors.read()}") from failure


@contextlib.contextmanager
def inbox_for(load, destination):
    """A new folder to receive the load in."""
    inbox = pathlib.Path(tempfile.mkdtemp(dir=destination.folder))
    try:
        yield inbox
    finally:
        if not destination.keeps(load):
            shutil.rmtree(inbox)


def transfer(way, load, destination, folder):
    """One transfer: its figures."""
    with contextlib.ExitStack() as stack:
        inbox = stack.enter_context(inbox_for(load, destination))
        scratch = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(dir=folder)))
        errors = stack.enter_context(collecting_errors())
        port = free_port()
        lines = way.lines(load, inbox, port, scratch)
        destination.settle()
        try:
            sender, receiver, seconds = run_sides(lines, port, errors)
            load.check(inbox)
        except Failure as failure:
            raise Failure(f"{way.name}, {load.name}, {destination.name}: {failure}") from failure
    return {"way": way.name, "load": load.name, "destination": destination.name, "seconds": seconds,
            "sender": sender.figures() if sender else None, "receiver": receiver.figures()}


def order(ways, number):
    """The ways in the order of a round: over the rounds each comes after each other one about equally often."""
    zigzag = [(step + 1) // 2 if step % 2 else -(step // 2) for step in range(len(ways))]
    return [ways[(step + number) % len(ways)] for step in zigzag]


def measure(ways, loads, destinations, rounds, warm_up, folder):
    """The figures of all transfers but those of the warm-up."""
    results, slow = [], set()
    for number in range(0 if warm_up else 1, rounds + 1):
        note(f"round {number} of {rounds}" if number > 0 else "warm-up, not counted")
        for destination in destinations:
            for load in loads:
                for way in order(ways, number):
                    key = (way.name, load.name, destination.name)
                    if key in slow and (rounds - number) % 3 != 0:
                        continue
                    result = transfer(way, load, destination, folder) | {"round": number}
                    if number > 0:
                        results.append(result)
                    elif result["seconds"] > SLOW and way.name != BASE:
                        slow.add(key)
    return results


def median_of_side(chosen, side, figure):
    figures = [one[side][figure] for one in chosen if one[side]]
    return statistics.median(figures) if figures else None


def largest_of_side(chosen, side, figure):
    return max((one[side][figure] for one in chosen if one[side]), default=None)


def ratios(chosen, base):
    """Of the seconds to those of the base: of the medians, and the median over the rounds both took part in."""
    if not base:
        return {"ratioOfMedians": None, "medianOfRatios": None}
    by_round = {one["round"]: one["seconds"] for one in base}
    return {
        "ratioOfMedians": statistics.median(one["seconds"] for one in chosen) / statistics.median(by_round.values()),
        "medianOfRatios": statistics.median(one["seconds"] / by_round[one["round"]] for one in chosen),
    }


def summarize(results, ways, loads, destinations, base=BASE):
    """A row for each destination, load and way."""
    rows = []
    for destination in destinations:
        for load in loads:
            here = [one for one in results if (one["load"], one["destination"]) == (load.name, destination.name)]
            based_on = [one for one in here if one["way"] == base]
            rows += [summary([one for one in here if one["way"] == way.name], based_on) for way in ways]
    return rows


def summary(chosen, base):
    seconds = [one["seconds"] for one in chosen]
    return {key: chosen[0][key] for key in ("way", "load", "destination")} | {
        "rounds": len(chosen), "median": statistics.median(seconds), "minimum": min(seconds), "maximum": max(seconds),
        "processor": {side: median_of_side(chosen, side, "processorSeconds") for side in ("sender", "receiver")},
        "peakMemory": {side: largest_of_side(chosen, side, "peakMemory") for side in ("sender", "receiver")},
    } | ratios(chosen, base)
