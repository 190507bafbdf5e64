"""The machine that everything is measured on, and the programs built for it."""

import contextlib
import mmap
import os
import pathlib
import platform
import re
import shutil
import socket
import subprocess

from measured import ROOT, VESKO, Failure, cached_variable
from networks import NoNetwork, enter_own_network

from .basics import GIB, KIB

CONGESTION_CONTROL = pathlib.Path("/proc/sys/net/ipv4/tcp_congestion_control")
ROOM_LEFT = 8 * GIB  # of a disk, for others
WARM_MEMORY = 5 * GIB // 4
VERSION_COMMANDS = {"rsync": ["rsync", "--version"], "scp": ["ssh", "-V"], "cp": ["cp", "--version"],
                    "nc": ["tar", "--version"]}


class Destination:
    """A folder that transfers are received in."""

    def __init__(self, name, parent, folder):
        self.name = name
        self.parent = parent  # what the user knows it by
        self.folder = folder
        self.kind = file_system_of(parent)
        self.is_in_memory = is_in_memory(parent)

    def keeps(self, load):
        """Whether what has arrived stays until all is over.

        ext4 does not use the inodes again that were freed within the last minutes, and looks at each of them for every
        new file: what one transfer's removed files cost would fall on the next one.
        """
        return load.is_numerous and not self.is_in_memory and has_room(self.folder, ROOM_LEFT)

    def settle(self):
        """Sees to it that what an earlier transfer left to be written does not slow down the next one."""
        if not self.is_in_memory:
            os.sync()
        touch_free_memory()


def touch_free_memory():
    """Has the system hold free memory for what follows, more than a transfer here takes.

    A virtual machine gives memory back soon after it was freed, and gets it again page by page: that takes several
    times as long as a transfer into it, and would fall on some transfers and not on others.
    """
    madvise_populate_write = 23  # MADV_POPULATE_WRITE, asm-generic/mman-common.h
    with mmap.mmap(-1, min(WARM_MEMORY, available_memory() // 2)) as memory, contextlib.suppress(OSError):
        memory.madvise(madvise_populate_write)


def has_room(folder, size):
    return shutil.disk_usage(folder).free >= size


def file_system_of(folder):
    if not folder.is_dir():
        raise Failure(f"{folder} is not a folder")
    return subprocess.run(["stat", "--file-system", "--format=%T", folder], capture_output=True, text=True,
                          check=True).stdout.strip()


def is_in_memory(folder):
    return file_system_of(folder) in ("tmpfs", "ramfs")


def find_own_network():
    """Gives this process, and so all it starts, a network of its own that does not pace. False without the right to."""
    try:
        enter_own_network()
    except NoNetwork:
        return False
    with contextlib.suppress(OSError):
        CONGESTION_CONTROL.write_text("reno")
    return True


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def available_memory():
    found = re.search(r"^MemAvailable:\s+(\d+) kB$", pathlib.Path("/proc/meminfo").read_text(), re.MULTILINE)
    return int(found.group(1)) * KIB if found else 0


def first_line(command):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    return result.stdout.strip().split("\n")[0]


def displayed(path):
    """The path as it is to be read anywhere: relative to the repository where it is inside."""
    absolute = path.resolve()
    return str(absolute.relative_to(ROOT) if absolute.is_relative_to(ROOT) else path)


def describe(is_own_network, source, destinations, ways):
    folders = {one.name: {"folder": displayed(one.parent), "fileSystem": one.kind} for one in destinations}
    return {"program": displayed(VESKO), "version": first_line([VESKO, "--version"]),
            "buildType": cached_variable("CMAKE_BUILD_TYPE"), "compiler": cached_variable("CMAKE_CXX_COMPILER"),
            "sanitizers": cached_variable("VESKO_SANITIZE"), "kernel": platform.release(),
            "processors": os.cpu_count(), "source": {"folder": displayed(source), "fileSystem": file_system_of(source)},
            "destinations": folders,
            "tools": {way: first_line(VERSION_COMMANDS[way]) for way in ways if way in VERSION_COMMANDS},
            "ownNetwork": is_own_network, "congestionControl": CONGESTION_CONTROL.read_text().strip()}


def circumstances(facts):
    """The facts as lines for people."""
    yield f"measured: {facts['program']} ({facts['version']}, {facts['buildType']}, {facts['compiler']})"
    if facts["sanitizers"]:
        yield f"          built with {facts['sanitizers']}: these times say nothing"
    yield f"beside:   {'; '.join(facts['tools'].values()) or 'nothing else'}"
    yield f"on:       Linux {facts['kernel']}, {facts['processors']} processors"
    yield f"source:   {facts['source']['folder']} ({facts['source']['fileSystem']})"
    for name, one in facts["destinations"].items():
        yield f"{name + ':':<10}{one['folder']} ({one['fileSystem']})"
    network = "in a namespace of its own" if facts["ownNetwork"] else "of this machine, under its default"
    pace = "" if facts["congestionControl"] == "reno" else " (which may pace, so these times may not be the programs')"
    yield f"network:  loopback {network}; congestion control {facts['congestionControl']}{pace}"
