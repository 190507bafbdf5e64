"""What vesko's log costs, how its memory grows, and how it does with many transfers at once."""

import contextlib
import json
import pathlib
import statistics
import subprocess
import tempfile
import time

from measured import VESKO, Failure, note

from . import loads as all_loads
from .basics import GIB, MIB, amount, shell_line
from .machine import available_memory, free_port, has_room
from .report import Table, comparison, mebibytes, ratio, seconds
from .rounds import collecting_errors, measure, summarize, transfer
from .sides import Side, guarding, wait_for_listener
from .ways import Vesko


def log_section(bench):
    """vesko with and without a log of both sides."""
    ways, loads = [Vesko(), Vesko(with_log=True)], [bench.load("file"), bench.load("tree")]
    destinations = [bench.fastest]
    results = measure(ways, loads, destinations, bench.rounds, bench.warm_up, bench.folder)
    rows = summarize(results, ways, loads, destinations)
    return {"summary": rows, "transfers": results}, comparison(rows, "", prefix="The log: ")


class MemoryCase:
    """Two loads of one kind, a small and a large one."""

    def __init__(self, title, make, sizes, room_each):
        self.title = title
        self.make = make
        self.sizes = sizes
        self.room = room_each * max(sizes)

    def destination(self, bench):
        """The first with room; None without."""
        reserve = GIB if self.room > GIB else 16 * MIB
        for one in bench.all_destinations:
            has_memory = not one.is_in_memory or available_memory() > self.room + reserve
            if has_memory and has_room(one.folder, self.room + reserve):
                return one
        return None


def memory_section(bench):
    """Peak memory of both sides as files grow, and as there are more of them."""
    sizes = bench.sizes
    cases = [
        MemoryCase("one file", all_loads.sparse_load, (sizes.file, sizes.large_file), 1),
        MemoryCase("empty files", all_loads.empty_files_load, (sizes.tree, sizes.large_tree), 4096),
    ]
    results = []
    for case in cases:
        destination = case.destination(bench)
        if destination is None:
            note(f"memory: left out, no folder has room for {amount(case.room)} ({case.title})")
            continue
        results.append(measure_memory(case, destination, bench))
    return results, [memory_table(results)] if results else []


def measure_memory(case, destination, bench):
    steps = []
    for size in case.sizes:
        with tempfile.TemporaryDirectory(dir=bench.folder) as folder:
            load = case.make(pathlib.Path(folder), size)
            note(f"memory: {load.name}, to {destination.name}")
            steps.append(transfer(Vesko(), load, destination, bench.folder) | {"size": size})
    growth = {side: (steps[1][side]["peakMemory"] - steps[0][side]["peakMemory"]) / (case.sizes[1] - case.sizes[0])
              for side in ("sender", "receiver")}
    return {"case": case.title, "transfers": steps, "bytesPerUnit": growth}


def per_unit(value):
    return f"{round(value, 1) + 0.0:.1f}"  # no negative zero


def memory_table(results):
    lines = []
    for result in results:
        lines += [[one["load"], one["destination"], *(mebibytes(one[side]["peakMemory"]) for side in
                                                      ("sender", "receiver"))] for one in result["transfers"]]
        unit, factor = ("a GiB more, in KiB", GIB / 1024) if result["case"] == "one file" else \
            ("a file more, in bytes", 1)
        lines.append([unit, "", *(per_unit(result["bytesPerUnit"][side] * factor) for side in ("sender", "receiver"))])
    return Table("vesko's peak resident memory", ["load", "to", "MiB send", "MiB recv"], lines, labels=2)


def concurrent_section(bench):
    """Many transfers at once into one receiver, beside one transfer of as many bytes."""
    count, size = bench.sizes.concurrent
    folder = bench.folder / "concurrent"
    folder.mkdir()
    many = [folder / f"part {index}.bin" for index in range(count)]
    for path in many:
        all_loads.write_random(path, size)
    one = [bench.load("file").source]
    results = []
    for number in range(0 if bench.warm_up else 1, bench.rounds + 1):
        note(f"concurrent: round {number} of {bench.rounds}" if number > 0 else "concurrent: warm-up, not counted")
        pair = [("one", one), ("many", many)]
        for name, sources in pair if number % 2 else reversed(pair):
            result = together(sources, bench) | {"which": name, "round": number}
            if number > 0:
                results.append(result)
    figures = concurrent_figures(results) | {"transfersAtOnce": count, "bytesEach": size}
    return {"summary": figures, "rounds": results}, [concurrent_table(figures)]


def together(sources, bench):
    """Sends each of the files with a process of its own to one receiver."""
    with contextlib.ExitStack() as stack:
        inbox = pathlib.Path(stack.enter_context(tempfile.TemporaryDirectory(dir=bench.fastest.folder)))
        errors = stack.enter_context(collecting_errors())
        bench.fastest.settle()
        sides = []
        stack.enter_context(guarding(sides))
        result = run_together(sources, inbox, errors, sides)
        for source in sources:
            if subprocess.run(["cmp", "--silent", source, inbox / source.name], check=False).returncode != 0:
                raise Failure(f"concurrent: {source.name} has arrived differently")
    return result


def run_together(sources, inbox, errors, sides):
    port = free_port()
    receiver = Side(shell_line("{vesko} receive --json --dir {inbox} --port {port}", vesko=VESKO, inbox=inbox,
                               port=port), errors, output=subprocess.PIPE)
    sides.append(receiver)
    wait_for_listener(port)
    lines = [shell_line("{vesko} send --quiet --to 127.0.0.1:{port} {source}", vesko=VESKO, port=port, source=source)
             for source in sources]
    start = time.perf_counter()
    sender = Side(" & ".join(lines), errors)
    sides.append(sender)
    finished, span = read_events(receiver, len(sources))
    sender.wait()
    taken = time.perf_counter() - start
    receiver.stop()
    receiver.group.stdout.close()
    if sender.failed or receiver.failed:
        raise Failure(f"failed: {len(sources)} times vesko send to one vesko receive")
    return {"seconds": taken, "span": span, "bytes": sum(source.stat().st_size for source in sources),
            "speeds": [event["bytes"] / event["seconds"] for event in finished],
            "sender": sender.figures(), "receiver": receiver.figures()}


def read_events(receiver, count):
    """The events of the ended transfers, and the seconds from the first one's start to the last one's end."""
    started, finished = None, []
    for line in receiver.group.stdout:
        event = json.loads(line)
        if event["event"] == "transferStarted" and started is None:
            started = time.perf_counter()
        if event["event"] == "failed":
            raise Failure(f"concurrent: a transfer failed: {line}")
        if event["event"] == "finished":
            finished.append(event)
        if len(finished) == count:
            return finished, time.perf_counter() - started
    raise Failure(f"concurrent: the receiver ended after {len(finished)} of {count} transfers")


def concurrent_figures(results):
    one = {result["round"]: result for result in results if result["which"] == "one"}
    many = {result["round"]: result for result in results if result["which"] == "many"}

    def relative(key):
        """How many times the single transfer's speed, in bytes a second, the sum of the others has."""
        return statistics.median(many[number]["bytes"] / many[number][key] / (one[number]["bytes"] / one[number][key])
                                 for number in many)

    return {
        "medianOne": statistics.median(result["seconds"] for result in one.values()),
        "medianMany": statistics.median(result["seconds"] for result in many.values()),
        "speedOfSum": relative("seconds"), "speedOfSumWithoutStart": relative("span"),
        "slowestToMean": statistics.median(min(result["speeds"]) / statistics.mean(result["speeds"])
                                           for result in many.values()),
        "rounds": len(many),
        "peakMemory": {which: {side: max(result[side]["peakMemory"] for result in chosen.values())
                               for side in ("sender", "receiver")} for which, chosen in (("one", one), ("many", many))},
    }


def concurrent_table(figures):
    count, size = figures["transfersAtOnce"], figures["bytesEach"]
    lines = [
        [f"one file of {amount(count * size)}, median s", seconds(figures["medianOne"])],
        [f"{count} files of {amount(size)} by {count} senders at once, median s", seconds(figures["medianMany"])],
        ["speed of their sum to that of the one", ratio(figures["speedOfSum"])],
        ["the same from the receiver's first start to its last end", ratio(figures["speedOfSumWithoutStart"])],
        ["speed of the slowest to the mean of all", ratio(figures["slowestToMean"])],
        ["MiB of the receiver, with one", mebibytes(figures["peakMemory"]["one"]["receiver"])],
        [f"MiB of the receiver, with {count}", mebibytes(figures["peakMemory"]["many"]["receiver"])],
    ]
    return Table("Many transfers at once into one receiver", ["what", f"n = {figures['rounds']}"], lines,
                 "The first times and their ratio include the start of the senders' processes.")
