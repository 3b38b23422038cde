"""Finds the captures: in folders, in lists, and by themselves."""

import fnmatch
import os
import re
import stat
import sys

import folders
import judge
from text import shown

LONGEST = 4096  # bytes of a path in a list
LARGEST = 256 << 20  # of a list


class Found:
    """Captures in the order of their finding, each once, and rows for what could not be searched."""

    def __init__(self, pattern, output):
        self.captures, self.troubles = {}, {}  # by identity, by path
        self.pattern, self.output = pattern, os.path.realpath(output)
        self.places = {}

    def identity(self, path):
        """One for all the ways through symbolic links to folders in which a path can be written."""
        folder, _, name = path.rpartition("/")
        if folder not in self.places:
            self.places[folder] = os.path.realpath(folder or "/")
        return f"{self.places[folder]}/{name}"

    def add_capture(self, path):
        self.captures.setdefault(self.identity(path), path)

    def add_trouble(self, path, detail):
        self.troubles[path] = judge.empty_row(path, "not checked", detail)


def plain(path):
    """Absolute and written in one way. What ".." means, only the system knows."""
    path = os.path.join(os.getcwd(), path)
    parts = [part for part in path.split("/") if part not in ("", ".")]
    if ".." in parts:
        last = parts.pop() if parts[-1] != ".." else ""
        parts = [*os.path.realpath("/" + "/".join(parts)).split("/")[1:], *filter(None, [last])]
    return "/" + "/".join(parts)


def pattern_of(globs):
    return re.compile("|".join(fnmatch.translate(glob.lower()) for glob in globs), re.DOTALL)


def entries_of(folder):
    """Names of captures-to-be and of folders; links to folders are not followed."""
    names, below = [], []
    at = folders.open_folder(folder)
    try:
        fd = os.open(".", os.O_RDONLY | os.O_DIRECTORY, dir_fd=at)
    finally:
        os.close(at)
    try:
        with os.scandir(fd) as entries:
            for entry in entries:
                if not entry.is_dir():
                    names.append(entry.name)
                elif not entry.is_symlink():
                    below.append(entry.name)
    finally:
        os.close(fd)
    return sorted(names), sorted(below)


def search(root, found):
    real, pending, is_empty = os.path.realpath(root), [root], True
    while pending:
        folder = pending.pop()
        try:
            names, below = entries_of(folder)
        except OSError as error:
            found.add_trouble(folder, f"the directory cannot be searched: {error.strerror}")
            is_empty = False
            continue
        prefix = folder.rstrip("/") + "/"
        for name in names:
            if found.pattern.fullmatch(name.lower()):
                found.add_capture(prefix + name)
                is_empty = False
        inner = [prefix + name for name in reversed(below)]
        pending += [path for path in inner if real + path[len(root):] != found.output]
    if is_empty:
        found.add_trouble(root, "a directory without captures")


def add_source(path, found):
    try:
        is_folder = stat.S_ISDIR(folders.status_of(path).st_mode)
    except OSError:
        is_folder = False  # korva says why it cannot be read
    if is_folder:
        search(path, found)
    else:
        found.add_capture(path)


def refuse(source, why):
    sys.exit(f"korva-archive: {shown(source)} is no list of paths: {why}")


def lines_of(data, source):
    """Paths by line, of any system, or by NUL when there is one."""
    data = data.removeprefix(b"\xef\xbb\xbf")
    if b"\0" in data:
        lines = data.removesuffix(b"\0").split(b"\0")
        if b"" in lines or data[:2] in (b"\xff\xfe", b"\xfe\xff"):
            refuse(source, "it is binary")
    else:
        lines = [line for line in data.split(b"\n") if line.strip(b"\r")]
        if re.search(rb"[\x00-\x08\x0b\x0c\x0e-\x1f]", data):
            refuse(source, "it is binary")
    if any(len(line) > LONGEST for line in lines):
        refuse(source, f"a line is longer than {LONGEST} bytes")
    return lines


def read_list(source):
    with open(0 if source == "-" else source, "rb", closefd=source != "-") as file:
        data = file.read(LARGEST)
    if len(data) == LARGEST:
        refuse(source, "it is larger than 256 MiB")
    for line in map(os.fsdecode, lines_of(data, source)):
        yield line if line[-1] != "\r" or os.path.lexists(line) else line[:-1]


def find(options, earlier):
    """Those of the earlier run, and what the sources hold now."""
    found = Found(pattern_of(options.patterns), options.output)
    for path in earlier:
        found.add_capture(path)
    for source in options.sources:
        add_source(plain(source), found)
    for source in options.lists:
        for path in read_list(source):
            add_source(plain(path), found)
    return list(found.captures.values()), found.troubles
