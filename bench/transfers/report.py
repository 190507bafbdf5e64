"""Tables, for a terminal and as Markdown."""

from .basics import MIB

NOTES = """\
x vesko: how many times vesko's time, of the medians and as the median over the rounds. cpu: user and system time,
median. MiB: peak resident memory, the largest of all rounds. Both are summed over the processes of a side. n: a way
that takes more than a few seconds takes part in every third round. nc: folders go through tar, packed and unpacked on
the way. cp has one side and no network; reference does nothing but move the bytes."""


class Table:
    """A title, a line of headings, lines of cells, and what to know about them."""

    def __init__(self, title, headings, lines, notes="", labels=1):
        self.title = title
        self.headings = headings
        self.lines = lines
        self.notes = notes
        self.labels = labels  # the columns of words, from the left; the others hold numbers

    def text(self):
        lines = [self.headings, *self.lines]
        widths = [max(map(len, column)) for column in zip(*lines)]
        rendered = [self.title]
        for line in lines:
            cells = [cell.ljust(width) if index < self.labels else cell.rjust(width)
                     for index, (cell, width) in enumerate(zip(line, widths))]
            rendered.append("  ".join(cells).rstrip())
        return "\n".join(rendered + ([self.notes] if self.notes else [])) + "\n"

    def markdown(self):
        rule = [":--" if index < self.labels else "--:" for index in range(len(self.headings))]
        rows = [f"| {' | '.join(line)} |" for line in (self.headings, rule, *self.lines)]
        return "\n".join([f"### {self.title}", "", *rows, *(["", self.notes] if self.notes else [])]) + "\n"


def seconds(value):
    return f"{value:.3f}"


def optional(value, form):
    return "-" if value is None else form(value)


def mebibytes(value):
    return f"{value / MIB:.1f}"


def ratio(value):
    return f"{value:.2f}"


def cells_of(row):
    return [row["way"], str(row["rounds"]), seconds(row["median"]),
            f"{seconds(row['minimum'])}..{seconds(row['maximum'])}",
            optional(row["ratioOfMedians"], ratio), optional(row["medianOfRatios"], ratio),
            *(optional(row["processor"][side], seconds) for side in ("sender", "receiver")),
            *(optional(row["peakMemory"][side], mebibytes) for side in ("sender", "receiver"))]


HEADINGS = ["way", "n", "median s", "spread s", "x vesko", "by round", "cpu s send", "cpu s recv", "MiB send",
            "MiB recv"]


def comparison(rows, notes=NOTES, prefix=""):
    """A table for each load and destination, fastest way first."""
    keys = list(dict.fromkeys((row["destination"], row["load"]) for row in rows))
    tables = []
    for key in keys:
        chosen = [row for row in rows if (row["destination"], row["load"]) == key]
        chosen.sort(key=lambda row: row["median"])
        tables.append(Table(f"{prefix}{key[1]}, to {key[0]}", HEADINGS, [cells_of(row) for row in chosen]))
    if tables:
        tables[-1].notes = notes
    return tables
