"""The course of a process's means over many operations: taken, shown, judged."""

import os
import pathlib
import re
import statistics
import time
import typing

MIB = 1 << 20


class Sample(typing.NamedTuple):
    operations: int
    seconds: float
    descriptors: int
    threads: int
    memory: int  # resident, bytes
    processor: float  # seconds since the process started


def take_sample(pid, operations, start):
    status = pathlib.Path(f"/proc/{pid}/status").read_text(encoding="ascii", errors="replace")
    numbers = {name: int(value) for name, value in re.findall(r"^(Threads|VmRSS):\s+(\d+)", status, re.MULTILINE)}
    if "VmRSS" not in numbers:
        raise ProcessLookupError(f"process {pid} has ended")
    processor = time.clock_gettime(~pid << 3 | 2)  # the clock of a process, as clock_getcpuclockid(3) says
    return Sample(operations, time.monotonic() - start, len(os.listdir(f"/proc/{pid}/fd")), numbers["Threads"],
                  numbers["VmRSS"] * 1024, processor)


def processor_per_operation(samples):
    """Microseconds, between each sample and the one before."""
    return [1e6 * (after.processor - before.processor) / max(1, after.operations - before.operations)
            for before, after in zip(samples, samples[1:])]


def print_table(samples, rows=20):
    print("operations        s  descriptors  threads  resident KiB  processor us an operation")
    step = max(1, len(samples) // rows)
    chosen = [samples[0], *samples[step::step]]
    for sample, processor in zip(chosen, [0.0, *processor_per_operation(chosen)]):
        print(f"{sample.operations:10,} {sample.seconds:8.1f} {sample.descriptors:12} {sample.threads:8} "
              f"{sample.memory // 1024:13,} {processor:26.0f}")
    for name, values in curves(samples).items():
        print(f"{name:26} {sparkline(values)}  {min(values):,.0f} to {max(values):,.0f}")


def curves(samples):
    return {"resident KiB": [sample.memory / 1024 for sample in samples],
            "descriptors": [sample.descriptors for sample in samples],
            "threads": [sample.threads for sample in samples],
            "processor us an operation": processor_per_operation(samples)}


def sparkline(values, width=50):
    step = max(1, len(values) // width)
    means = [statistics.mean(values[start:start + step]) for start in range(0, len(values), step)]
    low, high = min(means), max(means)
    return "".join("▁▂▃▄▅▆▇█"[round(7 * (mean - low) / (high - low)) if high > low else 0] for mean in means)


def write_plot(samples, path):
    width, height, left = 900, 130, 60
    lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width + left + 20}" height="{4 * (height + 40)}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for row, (name, values) in enumerate(curves(samples).items()):
        top, high = 25 + row * (height + 40), max(values) or 1
        step = width / max(1, len(values) - 1)
        points = " ".join(f"{left + step * index:.1f},{top + height * (1 - value / high):.1f}"
                          for index, value in enumerate(values))
        lines += [f'<text x="{left}" y="{top - 8}">{name}, over {samples[-1].operations:,} operations</text>',
                  f'<text x="{left - 5}" y="{top + 10}" text-anchor="end">{high:,.0f}</text>',
                  f'<text x="{left - 5}" y="{top + height}" text-anchor="end">0</text>',
                  f'<rect x="{left}" y="{top}" width="{width}" height="{height}" fill="none" stroke="#ccc"/>',
                  f'<polyline points="{points}" fill="none" stroke="#06c" stroke-width="1.5"/>']
    path.write_text("\n".join([*lines, "</svg>", ""]), encoding="utf-8")


def memory_growth(samples):
    """Bytes between the medians of the third tenth of the samples and of the last one."""
    tenth = max(1, len(samples) // 10)
    return (statistics.median(sample.memory for sample in samples[-tenth:]) -
            statistics.median(sample.memory for sample in samples[2 * tenth:3 * tenth]))
