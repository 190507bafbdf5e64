"""What is measured: where it is, building it, and the words to describe it."""

import os
import pathlib
import platform
import re
import shlex
import shutil
import subprocess
import sys

from lans.spaces import Failure

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build/release"
VESKO = BUILD / "hosts/cli/vesko"
PORT = 4644
NAME = pathlib.Path(sys.argv[0]).name  # of the script that runs


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


def describe():
    cache = (BUILD / "CMakeCache.txt").read_text(encoding="utf-8")
    known = dict(re.findall(r"^(\w+):\w+=(.*)$", cache, re.MULTILINE))
    version = subprocess.run([VESKO, "--version"], capture_output=True, text=True, check=True).stdout.strip()
    return {"program": str(VESKO), "version": version, "buildType": known["CMAKE_BUILD_TYPE"],
            "compiler": known["CMAKE_CXX_COMPILER"], "sanitizers": known.get("VESKO_SANITIZE", ""),
            "kernel": platform.release(), "processors": os.cpu_count()}


def print_circumstances(facts):
    print(f"measured: {facts['program']} ({facts['version']}, {facts['buildType']}, {facts['compiler']})")
    if facts["sanitizers"]:
        print(f"          built with {facts['sanitizers']}: these times say nothing")
    print(f"on:       Linux {facts['kernel']}, {facts['processors']} processors that all of it shares",
          flush=True)


def check_means(*tools):
    if os.geteuid() != 0:
        raise Failure(f"making network namespaces takes root: sudo bench/{NAME}")
    missing = [tool for tool in ("ip", "cmake", *tools) if shutil.which(tool) is None]
    if missing:
        raise Failure(f"missing: {', '.join(missing)}; scripts/setup --ci installs them")


def note(text):
    print(f"{NAME}: {text}", file=sys.stderr, flush=True)
