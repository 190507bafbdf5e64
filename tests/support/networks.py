"""Networks made up on this machine, which are network namespaces."""

import ctypes
import os
import pathlib
import subprocess
import threading

from script import Failure, postponed_signals


class NoNetwork(Exception):
    """Why no network of its own can be made here."""


def call_system(name, *arguments):
    libc = ctypes.CDLL(None, use_errno=True)
    if getattr(libc, name)(*arguments) != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error))


def run_ip(lines, *options):
    # In a session of its own, so that ^C does not end what clears up.
    result = subprocess.run(["ip", *options, "-batch", "-"], input="".join(f"{line}\n" for line in lines), text=True,
                            capture_output=True, check=False, start_new_session=True)
    if result.returncode != 0:
        raise Failure(f"ip: {result.stderr.strip()}")


def enter_own_network(also_as_user=False):
    """Gives this process, and so all it starts, a network of its own: what is announced there reaches nobody. An
    ordinary user may have one at most `also_as_user`: as root among users of its own. Raises NoNetwork."""
    new_users, new_network = 0x10000000, 0x40000000  # CLONE_NEWUSER, CLONE_NEWNET, linux/sched.h
    user, group = os.geteuid(), os.getegid()
    needs_users = also_as_user and user != 0
    try:
        call_system("unshare", new_users | new_network if needs_users else new_network)
    except OSError as error:
        raise NoNetwork(f"no network of its own can be made here: {error.strerror}") from error
    if needs_users:
        # Another user than root would lose the right to set up the network with the next exec.
        pathlib.Path("/proc/self/setgroups").write_text("deny", encoding="ascii")
        pathlib.Path("/proc/self/uid_map").write_text(f"0 {user} 1", encoding="ascii")
        pathlib.Path("/proc/self/gid_map").write_text(f"0 {group} 1", encoding="ascii")
    run_ip(["link set lo up"])


def in_thread(task):
    """The result of `task`, run on a thread of its own."""
    results = []

    def keep_result():
        try:
            results.append((task(), None))
        except BaseException as error:  # pylint: disable=broad-except
            results.append((None, error))

    thread = threading.Thread(target=keep_result)
    thread.start()
    thread.join()
    result, error = results[0]
    if error is not None:
        raise error
    return result


class Spaces:
    """Network namespaces, there for the length of a block."""

    def __init__(self, names):
        self.prefix = f"veskobench-{os.getpid()}-"
        self.spaces = [self.prefix + name for name in names]

    def __enter__(self):
        try:
            run_ip([f"netns add {space}" for space in self.spaces])
            self.make()
        except BaseException:
            self.remove()
            raise
        return self

    def __exit__(self, *_):
        self.remove()

    def make(self):
        """Makes what is inside of them."""

    def remove(self):
        with postponed_signals():
            run_ip([f"netns delete {space}" for space in self.spaces if pathlib.Path("/run/netns", space).exists()],
                   "-force")

    @staticmethod
    def inside(space, task):
        """The result of `task`, run in a namespace. What it opens or starts stays there."""
        def enter():
            with open(f"/run/netns/{space}", encoding="ascii") as file:
                call_system("setns", file.fileno(), 0)
            return task()
        return in_thread(enter)
