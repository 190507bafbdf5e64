"""What all parts of the benchmark share."""

import shlex

from measured import BUILD

REFERENCE = BUILD / "bench/reference"
KIB = 1 << 10
MIB = 1 << 20
GIB = 1 << 30


def shell_line(template, **words):
    """The template as a line for a shell, with each word quoted."""
    return template.format(**{key: shlex.quote(str(word)) for key, word in words.items()})


def amount(size):
    """A number of bytes for people; sizes here are whole numbers of some unit."""
    for unit, name in ((GIB, "GiB"), (MIB, "MiB"), (KIB, "KiB")):
        if size >= unit:
            return f"{size // unit} {name}"
    return f"{size} bytes"
