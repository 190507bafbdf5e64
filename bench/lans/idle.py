"""A host that nobody speaks to."""

import pathlib
import re
import time

from lans.hosts import Hosts
from lans.lan import Lan
from measured import note

SETTLING = 2  # seconds


def switches(process):
    """How often threads of a process have gone to sleep, and been interrupted, by the thread's name and number."""
    counts = {}
    for task in pathlib.Path(f"/proc/{process.pid}/task").iterdir():
        text = (task / "status").read_text(encoding="utf-8")
        numbers = dict(re.findall(r"^(voluntary|nonvoluntary)_ctxt_switches:\s+(\d+)$", text, re.MULTILINE))
        counts[task.name] = (int(numbers["voluntary"]), int(numbers["nonvoluntary"]))
    return counts


def memory(process):
    """Resident bytes: all pages, and each divided by how many share it."""
    text = pathlib.Path(f"/proc/{process.pid}/smaps_rollup").read_text(encoding="ascii")
    sizes = dict(re.findall(r"^(Rss|Pss):\s+(\d+) kB$", text, re.MULTILINE))
    return int(sizes["Rss"]) * 1024, int(sizes["Pss"]) * 1024


def measure(seconds, folder):
    note(f"an idle host, {seconds} s")
    with Lan([1]) as lan, Hosts(lan, folder) as hosts:
        host = hosts.start_unheard(1)
        time.sleep(SETTLING)
        before, processor = switches(host.process), host.processor_seconds()
        time.sleep(seconds)
        after, processor = switches(host.process), host.processor_seconds() - processor
        resident, proportional = memory(host.process)
        hosts.stop([host])
    changes = [[now - was for now, was in zip(counts, before.get(task, (0, 0)))] for task, counts in after.items()]
    return {"seconds": seconds, "threads": len(after), "wakeUps": sum(change[0] for change in changes),
            "interruptions": sum(change[1] for change in changes), "processorSeconds": processor,
            "resident": resident, "proportional": proportional}


def show(idle):
    print(f"an idle `vesko receive --quiet`, {idle['seconds']} s, {SETTLING} s after its start")
    print(f"wake-ups:           {idle['wakeUps']} of all its {idle['threads']} threads, {idle['interruptions']} "
          "interruptions")
    print(f"processor time:     {idle['processorSeconds'] * 1000:.2f} ms")
    print(f"resident memory:    {idle['resident'] / 2**20:.1f} MiB, {idle['proportional'] / 2**20:.1f} MiB with what "
          "others share divided among them", flush=True)
