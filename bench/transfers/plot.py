"""Draws the comparison as an SVG that needs nothing else and fits light and dark pages."""

import statistics
from html import escape

WIDTH = 920
MARGIN = 24
HEAD = 84  # height of the title and what is below it
PANEL_HEAD = 56
BAR, GAP = 16, 7  # heights
LABEL = 76  # widths
VALUE = 64
COLUMN_GAP = 28
WHOLE = 0.88  # the part of its room that the longest bar takes, unless it is cut
LIMITS = ("cp", "reference")  # what only shows how fast it could be
FAR = 4  # a bar of more than so many times the median of its load is cut off

STYLE = """
  text { font: 13px system-ui, -apple-system, "Segoe UI", "DejaVu Sans", sans-serif; fill: #1f2328; }
  .card { fill: #ffffff; stroke: #d1d9e0; }
  .title { font-size: 18px; font-weight: 600; }
  .load { font-size: 14px; font-weight: 600; }
  .muted { fill: #59636e; font-size: 12px; }
  .own { font-weight: 600; }
  .bar { fill: #98a4b0; }
  .bar.limit { fill: #d3dae1; }
  .bar.own { fill: #0969da; }
  .axis { stroke: #98a4b0; stroke-width: 1; }
  .break { stroke: #ffffff; stroke-width: 3; }
  @media (prefers-color-scheme: dark) {
    text { fill: #f0f6fc; }
    .card { fill: #0d1117; stroke: #3d444d; }
    .muted { fill: #9198a1; }
    .bar { fill: #6e7b88; }
    .bar.limit { fill: #39424c; }
    .bar.own { fill: #4493f8; }
    .axis { stroke: #6e7b88; }
    .break { stroke: #0d1117; }
  }
"""


class Drawing:
    """The elements of a picture, from the top down."""

    def __init__(self):
        self.elements = []

    def text(self, x, y, words, kind="", anchor="start"):
        self.elements.append(f'<text x="{x:.1f}" y="{y:.1f}" class="{kind}" text-anchor="{anchor}">'
                             f"{escape(words)}</text>")

    def rectangle(self, x, y, width, height, kind):
        self.elements.append(f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" rx="2" '
                             f'class="{kind}"/>')

    def line(self, x1, y1, x2, y2, kind):
        self.elements.append(f'<line x1="{x1:.1f}" y1="{y1:.1f}" x2="{x2:.1f}" y2="{y2:.1f}" class="{kind}"/>')

    def svg(self, height, title):
        lines = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{WIDTH}" height="{height}" '
                 f'viewBox="0 0 {WIDTH} {height}" role="img" aria-label="{escape(title)}">',
                 f"<style>{STYLE}</style>",
                 f'<rect x="0.5" y="0.5" width="{WIDTH - 1}" height="{height - 1}" rx="8" class="card"/>',
                 *self.elements, "</svg>"]
        return "\n".join(lines) + "\n"


def kind_of(way):
    return "own" if way == "vesko" else "limit" if way in LIMITS else ""


def duration(seconds):
    return f"{seconds:.3f} s" if seconds < 1 else f"{seconds:.2f} s" if seconds < 10 else f"{seconds:.1f} s"


def longest_shown(values):
    """The longest duration whose bar is drawn whole."""
    bound = FAR * statistics.median(values)
    return max(value for value in values if value <= bound)


def draw_bar(drawing, x, y, full, row, longest):
    """One way: its name, its bar and its time. `full` is the width of a bar that is cut."""
    kind, baseline = kind_of(row["way"]), y + BAR - 4
    is_cut = row["median"] > longest
    drawing.text(x + LABEL - 8, baseline, row["way"], kind, "end")
    width = full if is_cut else max(1.0, full * WHOLE * row["median"] / longest)
    drawing.rectangle(x + LABEL, y, width, BAR, f"bar {kind}")
    if is_cut:
        for from_end in (20, 11):
            middle = x + LABEL + full - from_end
            drawing.line(middle - 4, y + BAR + 2, middle + 4, y - 2, "break")
    drawing.text(x + LABEL + width + 6, baseline, duration(row["median"]), kind)


def draw_panel(drawing, x, y, width, rows, longest):
    drawing.text(x + LABEL, y, f"to {rows[0]['destination']}", "muted")
    top = y + 10
    drawing.line(x + LABEL, top - 3, x + LABEL, top + len(rows) * (BAR + GAP) - GAP + 3, "axis")
    for index, row in enumerate(rows):
        draw_bar(drawing, x, top + index * (BAR + GAP), width - LABEL - VALUE, row, longest)


def draw_head(drawing, rows, facts):
    drawing.text(MARGIN, MARGIN + 14, "Time to hand files over (less is better)", "title")
    counts = sorted({row["rounds"] for row in rows})
    rounds = f"{counts[0]} to {counts[-1]} rounds" if len(counts) > 1 else f"{counts[0]} round(s)"
    drawing.text(MARGIN, MARGIN + 34, f"Median of {rounds} in seconds, over loopback; Linux {facts['kernel']}, "
                 f"{facts['processors']} processors. nc: folders through tar.", "muted")
    drawing.text(MARGIN, MARGIN + 50, "Pale, as limits: cp uses no network; the reference program does nothing but "
                 "move the bytes. Cut bars are longer than shown.", "muted")


def draw(rows, facts):
    """The picture of a comparison's summary."""
    drawing = Drawing()
    draw_head(drawing, rows, facts)
    loads = list(dict.fromkeys(row["load"] for row in rows))
    destinations = list(dict.fromkeys(row["destination"] for row in rows))
    width = (WIDTH - 2 * MARGIN - COLUMN_GAP * (len(destinations) - 1)) / len(destinations)
    y = MARGIN + HEAD
    for load in loads:
        chosen = [row for row in rows if row["load"] == load]
        drawing.text(MARGIN, y, load, "load")
        longest = longest_shown([row["median"] for row in chosen])
        for column, destination in enumerate(destinations):
            panel = [row for row in chosen if row["destination"] == destination]
            draw_panel(drawing, MARGIN + column * (width + COLUMN_GAP), y + 20, width, panel, longest)
        y += PANEL_HEAD + len(chosen) // len(destinations) * (BAR + GAP)
    return drawing.svg(y - GAP, "Time to hand files over")
