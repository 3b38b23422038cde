"""How names and numbers are shown."""

import os

UNITS = ((1e12, "TB"), (1e9, "GB"), (1e6, "MB"), (1e3, "kB"))


def shown(text):
    """What cannot be printed as \\x.., so that a name stays on its line."""
    return text if text.isprintable() else "".join(
        c if c.isprintable() else "".join(f"\\x{b:02x}" for b in os.fsencode(c)) for c in text)


def error_text(error):
    where = "" if error.filename is None else f"{shown(os.fsdecode(error.filename))}: "
    return where + error.strerror


def size_text(size):
    return next((f"{size / unit:.1f} {name}" for unit, name in UNITS if size >= unit), f"{size} B")


def time_text(seconds):
    """h:mm:ss"""
    minutes, seconds = divmod(round(seconds), 60)
    return f"{minutes // 60}:{minutes % 60:02}:{seconds:02}"


def indicators_text(row):
    """Of TR 101 290, those that are not well."""
    bad = [name for name, state in row["indicators"].items() if state in ("fail", "warn")]
    return f"TR 101 290: {' '.join(bad)}" if bad else ""


def what_text(row):
    """What was found and what explains the result."""
    kinds = ", ".join(f"{kind} {n}" for kind, n in row["kinds"].items())
    return "; ".join(filter(None, [kinds, indicators_text(row), row["detail"]]))
