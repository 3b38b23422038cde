"""The rows of all captures: what is known from before, their order, and what they come to."""

import json
import os

import folders
import judge
import job
from text import size_text

UNCLEAN, UNCHECKED = "NOT-CLEAN", "NOT-CHECKED"  # beside the kinds of alerts
SINCE = ("new", "grown", "changed", "gone")  # as against the run that is gone on with


def captures_in(output):
    """Those of the run there; none when there is no run."""
    try:
        with open(f"{output}/list", "rb") as file:
            return [os.fsdecode(name) for name in file.read().split(b"\0")[:-1]]
    except FileNotFoundError:
        return []


def journals_in(output):
    """What jobs have written, the oldest run first."""
    try:
        return [f"{output}/rows/{name}" for name in sorted(os.listdir(f"{output}/rows"))]
    except FileNotFoundError:
        return []


def kept_rows(output):
    """Rows by capture of earlier runs; the last one of a capture holds."""
    rows = {}
    for path in (f"{output}/rows.jsonl", *journals_in(output)):
        try:
            with open(path, "rb") as lines:
                rows.update((row["file"], row) for row in job.rows_in(lines))
        except FileNotFoundError:
            continue
    return rows


def keep_rows(output, rows):
    """In place of what the jobs have written."""
    folders.write_whole(f"{output}/rows.jsonl", (json.dumps(row).encode() + b"\n" for row in rows))
    for path in journals_in(output):
        os.unlink(path)


def since(row, size, mtime):
    """What has become of a capture since it was checked."""
    if row["size"] is None or (row["size"], row["mtime"]) == (size, mtime):
        return ""
    if size is None:
        return "gone"
    return "grown" if size > row["size"] else "changed"


class Known:
    """What an earlier run has said that still holds, and what is to be checked."""

    def __init__(self):
        self.rows, self.sizes, self.since = {}, {}, {}

    def add(self, capture, row, is_resumed):
        size, mtime = state_of(capture)
        became = since(row, size, mtime) if row else "new"
        if became == "gone":
            self.rows[capture] = judge.empty_row(capture, "gone", f"{size_text(row['size'])} when it was checked")
        elif became or row["result"] in ("not checked", "unreadable", "failed"):
            self.sizes[capture] = size or 0
        else:
            self.rows[capture] = row
        if is_resumed and became:
            self.since[capture] = became


def state_of(capture):
    try:
        found = folders.status_of(capture)
        return found.st_size, found.st_mtime_ns
    except OSError:
        return None, None


def badness(row):
    rank = judge.WORST.index(row["result"]) if row["result"] in judge.WORST else len(judge.WORST)
    return rank, -row["alerts"], row["result"] == judge.CLEAN, row["file"]


def is_clean(row):
    return row["result"] == judge.CLEAN


def is_checked(row):
    return row["result"] not in judge.NOT_CHECKED


def kinds_of(rows):
    """All kinds that there are, most frequent first."""
    counts = {}
    for row in rows:
        for kind, n in row["kinds"].items():
            counts[kind] = counts.get(kind, 0) + n
    return dict(sorted(counts.items(), key=lambda item: (-item[1], item[0])))


def has_kind(row, kinds):
    words = set(row["kinds"])
    if row["result"] not in (judge.CLEAN, "gone"):
        words |= {UNCLEAN} if is_checked(row) else {UNCLEAN, UNCHECKED}
    return bool(words & kinds)


class Totals:
    """What all rows come to; bytes and seconds are those of this run."""

    def __init__(self, rows, known, seconds):
        self.captures = len(rows)
        self.not_checked = sum(not is_checked(row) for row in rows)
        self.not_clean = sum(not is_clean(row) for row in rows) - self.not_checked
        self.bytes = sum(known.rows[capture]["size"] or 0 for capture in known.sizes
                         if is_checked(known.rows[capture]))
        self.seconds = seconds

    def summary(self):
        captures = "1 capture" if self.captures == 1 else f"{self.captures} captures"
        return (f"{captures}, {self.not_clean} not clean, {self.not_checked} not checked, "
                f"{size_text(self.bytes)} in {self.seconds:.1f} s")
