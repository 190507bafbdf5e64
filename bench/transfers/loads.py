"""What is handed over."""

import os
import random
import subprocess

from measured import Failure

from .basics import KIB, MIB, amount


class Load:
    """A file or a folder, and how to tell that it has arrived."""

    def __init__(self, key, name, source, is_numerous=False):
        self.key = key
        self.name = name
        self.source = source
        self.is_tree = source.is_dir()
        self.is_numerous = is_numerous

    def check(self, inbox):
        """Raises Failure unless `inbox` holds the same as the source."""
        self.check_names(inbox)
        result = subprocess.run(["diff", "--recursive", "--brief", self.source, inbox / self.source.name],
                                capture_output=True, text=True, check=False)
        if result.returncode != 0:
            raise Failure(f"what arrived differs\n{result.stdout}{result.stderr}")

    def check_names(self, inbox):
        arrived = sorted(entry.name for entry in inbox.iterdir())
        if arrived != [self.source.name]:
            raise Failure(f"arrived was {arrived}")


class MeasuredLoad(Load):
    """One that is too large to be compared: only its size and the number of its files are."""

    def check(self, inbox):
        self.check_names(inbox)
        sent, arrived = extent_of(self.source), extent_of(inbox / self.source.name)
        if sent != arrived:
            raise Failure(f"sent were (files, bytes) {sent}, arrived {arrived}")


def extent_of(path):
    """The number of files at a path and the sum of their sizes."""
    if not path.is_dir():
        return 1, path.stat().st_size
    sizes = [os.path.getsize(os.path.join(folder, name)) for folder, _, names in os.walk(path) for name in names]
    return len(sizes), sum(sizes)


def write_random(path, size):
    with open(path, "wb") as file:
        for start in range(0, size, MIB):
            file.write(os.urandom(min(MIB, size - start)))


def file_load(folder, size):
    source = folder / "file.bin"
    write_random(source, size)
    return Load("file", f"one file of {amount(size)}", source)


def files_load(folder, count, size):
    source = folder / "files"
    source.mkdir()
    for index in range(count):
        write_random(source / f"file {index}.bin", size)
    return Load("files", f"{count:,} files of {amount(size)}", source)


def write_tree(source, count, largest, folder_count=100):
    generator = random.Random(count)  # the same tree in every run
    for index in range(folder_count):
        (source / f"folder {index}").mkdir(parents=True)
    for index in range(count):
        contents = generator.randbytes(generator.randint(0, largest))
        (source / f"folder {index % folder_count}" / f"file {index}.bin").write_bytes(contents)


def tree_load(folder, count):
    source = folder / "tree"
    largest = 16 * KIB
    write_tree(source, count, largest)
    return Load("tree", f"{count:,} files of 0 to {amount(largest)} in 100 folders", source, is_numerous=True)


def sparse_load(folder, size):
    source = folder / f"sparse {size}.bin"
    with open(source, "wb") as file:
        file.truncate(size)
    return MeasuredLoad("sparse", f"one file of {amount(size)}", source)


def empty_files_load(folder, count):
    source = folder / f"empty {count}"
    write_tree(source, count, 0)
    return MeasuredLoad("empty", f"{count:,} empty files in 100 folders", source, is_numerous=True)


class Sizes:
    """How large the loads are."""

    def __init__(self, smoke):
        self.file = 2 * MIB if smoke else 512 * MIB
        self.files = (10, 256 * KIB) if smoke else (100, 8 * MIB)
        self.tree = 200 if smoke else 20_000
        self.large_file = 32 * MIB if smoke else 8 << 30
        self.large_tree = 2_000 if smoke else 200_000
        self.concurrent = (32, self.file // 32)

    def room(self):
        """Bytes that all loads and the largest of them once more need, roughly; those for memory apart."""
        files = self.files[0] * self.files[1]
        tree = self.tree * 12 * KIB
        return 2 * self.file + files + tree + max(self.file, files, tree)


MAKERS = {
    "file": lambda folder, sizes: file_load(folder, sizes.file),
    "files": lambda folder, sizes: files_load(folder, *sizes.files),
    "tree": lambda folder, sizes: tree_load(folder, sizes.tree),
}
