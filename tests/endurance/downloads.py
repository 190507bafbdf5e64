"""The downloads folder of the kill-loop: what is in it, and must stay."""

import fcntl
import os
import sys

from endurance import STORAGE_NAME, STORAGE_PREFIX, make_payload, number_at, remove


def attributes_of(path):
    """What tells any change to something in a path, or to what it holds."""
    found = []
    for folder, folders, files in [("", [], [path]), *os.walk(path)]:
        for name in [*folders, *files]:
            state = os.lstat(os.path.join(folder, name))
            found.append((str(name), state.st_ino, state.st_mode, state.st_uid, state.st_size, state.st_mtime_ns,
                          state.st_ctime_ns))
    return sorted(found)


def make_folder(path):
    path.mkdir()
    (path / "kept").write_text("kept", encoding="ascii")
    return path


class Downloads:
    """The folder received into: what is in it, and must stay."""

    def __init__(self, folder):
        self.path = folder / "downloads"
        self.path.mkdir()
        self.outside = make_folder(folder / "outside")
        self.sentinel = folder / "sentinel"
        self.sentinel.write_text("untouched", encoding="ascii")
        self.offered = {}  # payloads that may appear, by number
        self.known = {}  # by name: what make_payload() made it of, and attributes
        self.similar = {path.name for path in self.make_similar()}
        self.fixed = {path: attributes_of(path) for path in
                      [self.outside, self.sentinel, *(self.path / name for name in self.similar)]}

    def make_similar(self):
        """What looks like a storage folder of a dead process, and is none."""
        date = STORAGE_PREFIX + "20200101000000"
        for name in (STORAGE_PREFIX, date + "a" * 31, date + "a" * 33, date + "a" * 31 + "-", STORAGE_PREFIX[1:],
                     date[:-1] + "x" + "a" * 32, date.lower() + "a" * 32):
            yield make_folder(self.path / name)
        (self.path / (date + "b" * 32)).write_text("a file", encoding="ascii")
        yield self.path / (date + "b" * 32)
        (self.path / (date + "c" * 32)).symlink_to(self.outside)
        yield self.path / (date + "c" * 32)
        os.mkfifo(self.path / (date + "d" * 32))
        yield self.path / (date + "d" * 32)
        held = make_folder(self.path / (date + "e" * 32))
        self.lock = os.open(held, os.O_RDONLY)
        fcntl.flock(self.lock, fcntl.LOCK_EX)
        yield held
        foreign = make_folder(self.path / (date + "f" * 32))
        try:
            os.chown(foreign, 65534, 65534)
            yield foreign
        except OSError:
            print("kill-loop: not root: no folder of another user is among those that must stay", file=sys.stderr)
            remove(foreign)

    def storage_folders(self):
        return {name for name in os.listdir(self.path) if STORAGE_NAME.fullmatch(name)} - self.similar

    def items(self):
        """What was delivered."""
        return set(os.listdir(self.path)) - self.similar - self.storage_folders()

    def check(self):
        """What is wrong with the folder and all around it. Items that have come since are known from now on."""
        wrong = [f"{path.name} was changed" for path, attributes in self.fixed.items()
                 if not os.path.lexists(path) or attributes_of(path) != attributes]
        present = self.items()
        for name in self.known.keys() - present:
            wrong.append(f"{name} is gone")
            del self.known[name]
        for name, (_, attributes) in self.known.items():
            if attributes_of(self.path / name) != attributes:
                wrong.append(f"{name} was changed")
        for name in present - self.known.keys():
            payload = self.offered.pop(number_at(self.path / name), None)
            if payload is None or not payload.is_at(self.path / name):
                wrong.append(f"{name} is not what somebody sent: {attributes_of(self.path / name)}")
            self.known[name] = (payload and payload.origin, attributes_of(self.path / name))
        return wrong

    def remove_oldest(self, count_kept):
        """What is wrong with the contents of items that have been there for long; they are removed."""
        wrong = []
        for name in list(self.known)[:-count_kept or None]:
            origin, _ = self.known.pop(name)
            if origin and not make_payload(*origin).is_at(self.path / name):
                wrong.append(f"{name} has other contents now")
            remove(self.path / name)
        return wrong
