"""What the benchmarks measure: where it is, and building it."""

import pathlib
import re
import shlex
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release"
VESKO = BUILD / "hosts/cli/vesko"
NAME = pathlib.Path(sys.argv[0]).name  # of the script that runs


class Failure(Exception):
    """A message for the user."""


def note(text):
    """Tells how far the benchmark is."""
    print(f"{NAME}: {text}", file=sys.stderr, flush=True)


def build(*targets):
    """Builds what is measured, and what it is measured with."""
    commands = [["cmake", "--build", "--preset", "release", "--target", *targets]]
    if not (BUILD / "build.ninja").exists():
        commands.insert(0, ["cmake", "--preset", "release"])
    note(f"building {BUILD.relative_to(ROOT)}")
    for command in commands:
        result = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                                check=False)
        if result.returncode != 0:
            raise Failure(f"failed: {shlex.join(command)}\n{result.stdout}")


def cached_variable(name):
    """A setting of the build; empty when it has none of the name."""
    found = re.search(rf"^{name}:\w+=(.*)$", (BUILD / "CMakeCache.txt").read_text(encoding="utf-8"), re.MULTILINE)
    return found.group(1) if found else ""
