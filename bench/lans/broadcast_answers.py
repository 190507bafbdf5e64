"""A hello to all that eight hosts answer, beside a bare program that does the same."""

import contextlib
import statistics
import subprocess

from lans.hosts import Hosts
from lans.lan import Lan
from lans.tables import print_table
from measured import BUILD, Failure, note
from script import postponed_signals

ASKER, ANSWERERS = 1, range(2, 10)
BARE_PORT = 4650
BATCH = 100  # rounds
PAUSE = 2000  # microseconds between two rounds: a host answers 1,000 hellos a second at most
MISSING_LIMIT = 3  # rounds: each takes as long as an answer is waited for


class Programs:
    """Programs on the machines of a network, which end with the block."""

    def __init__(self, lan):
        self.lan = lan
        self.running = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        with postponed_signals():
            for process in self.running:
                process.kill()
                process.wait()
                process.stdin.close()
                process.stdout.close()

    def start(self, number, *command):
        """A program that reads and writes lines of text, and has written its first one, "ready"."""
        with postponed_signals():
            process = self.lan.inside(self.lan.space_of(number), lambda: subprocess.Popen(
                [str(word) for word in command], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
                start_new_session=True))
            self.running.append(process)
        if process.stdout.readline() != "ready\n":
            raise Failure(f"{command[0].name} does not start")
        return process


def ask(asker, rounds):
    """The microseconds of each round, None where an answer did not come: with that one a batch ends."""
    asker.stdin.write(f"{rounds}\n")
    asker.stdin.flush()
    words = asker.stdout.readline().split()
    if not words:
        raise Failure(f"{asker.args[0]} has ended")
    return [None if word == "missing" else float(word) for word in words]


def measure_batches(askers, rounds):
    results = {way: [] for way in askers}
    for start in range(0, rounds, BATCH):
        # Whoever comes second finds the machine as the first one left it; that falls on each in turn.
        for way in list(askers) if start // BATCH % 2 else reversed(askers):
            results[way] += ask(askers[way], min(BATCH, rounds - start))
            if results[way].count(None) > MISSING_LIMIT:
                return results
    return results


def summary(times):
    whole = sorted(time for time in times if time is not None)
    if len(whole) < 2:
        raise Failure("next to no round had all of its answers")
    return {"rounds": len(times), "missing": times.count(None), "median": statistics.median(whole),
            "percentile99": statistics.quantiles(whole, n=100, method="inclusive")[98], "worst": whole[-1],
            "microseconds": times}


def measure(rounds, folder):
    note(f"answers to a hello, {rounds} rounds each of vesko and of a bare program")
    with contextlib.ExitStack() as stack:
        lan = stack.enter_context(Lan([ASKER, *ANSWERERS]))
        hosts = stack.enter_context(Hosts(lan, folder))
        programs = stack.enter_context(Programs(lan))
        for number in ANSWERERS:
            hosts.start_unheard(number)
            programs.start(number, BUILD / "bench/broadcast", "answer", BARE_PORT)
        askers = {
            "vesko": programs.start(ASKER, BUILD / "bench/answers", len(ANSWERERS), PAUSE),
            "bare": programs.start(ASKER, BUILD / "bench/broadcast", "ask", lan.address_of(255), BARE_PORT,
                                   len(ANSWERERS), PAUSE),
        }
        for asker in askers.values():
            ask(asker, 10)  # not counted: the first ones ask for hardware addresses, and fill the tables
        results = {way: summary(times) for way, times in measure_batches(askers, rounds).items()}
        hosts.stop(list(hosts.running))
    return {"hosts": len(ANSWERERS), "ways": results,
            "ratioOfMedians": results["vesko"]["median"] / results["bare"]["median"]}


def show(result):
    names = {"vesko": "vesko, until all are in the table", "bare": "a bare program, until all are received"}
    rows = [[name, *(f"{result['ways'][way][key]:.0f}" for key in
             ("median", "percentile99", "worst", "rounds", "missing"))] for way, name in names.items()]
    print_table([f"a hello to all that {result['hosts']} hosts answer", "median us", "99 % us", "worst us", "rounds",
                 "missing"], rows)
    print(f"vesko's median is {result['ratioOfMedians']:.2f} times that of the bare program", flush=True)


def judge(result):
    missing = {way: row["missing"] for way, row in result["ways"].items() if row["missing"]}
    if missing:
        raise Failure("; ".join(f"{way}: {count} rounds without an answer of each host"
                                for way, count in missing.items()))
