"""Tables on standard output."""


def is_number(cell):
    try:
        float(cell)
    except ValueError:
        return False
    return True


def print_table(heads, rows, markdown=False):
    """Cells are texts; columns of numbers are aligned to the right."""
    columns = list(zip(*rows))
    widths = [max(map(len, (head, *column))) for head, column in zip(heads, columns)]
    aligns = [">" if all(map(is_number, column)) else "<" for column in columns]
    lines = [heads, *rows]
    if markdown:
        lines.insert(1, ["-" * (width - 1) + (":" if align == ">" else "-") for width, align in zip(widths, aligns)])
    for line in lines:
        cells = [f"{cell:{align}{width}}" for cell, align, width in zip(line, aligns, widths)]
        print("| " + " | ".join(cells) + " |" if markdown else "  ".join(cells).rstrip())
