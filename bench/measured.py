"""What the benchmarks measure: where it is, and building it. Importing this lets what tests/support has be found."""

import pathlib
import re
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parent.parent / "tests/support"))

import script  # pylint: disable=wrong-import-position
from script import BUILD, ROOT, VESKO, Failure  # pylint: disable=wrong-import-position,unused-import

NAME = pathlib.Path(sys.argv[0]).name  # of the script that runs


def note(text):
    """Tells how far the benchmark is."""
    print(f"{NAME}: {text}", file=sys.stderr, flush=True)


def build(*targets):
    """Builds what is measured, and what it is measured with."""
    note(f"building {BUILD.relative_to(ROOT)}")
    script.build(*targets)


def cached_variable(name):
    """A setting of the build; empty when it has none of the name."""
    found = re.search(rf"^{name}:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(encoding="utf-8"), re.MULTILINE)
    return found.group(1) if found else ""
