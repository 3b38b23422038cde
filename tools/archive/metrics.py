"""Numbers of a run for the text directory of a node exporter."""

import time

import folders
import judge
import rows as all_rows
from text import shown

RESULTS = [*judge.WORST, "alerts", "fail", "truncated", judge.CLEAN]


def label(text):
    return shown(text).replace("\\", "\\\\").replace('"', '\\"')


def families(rows, totals):
    """Name, meaning, and samples by label."""
    results = [row["result"] for row in rows]
    by_file = {label(row["file"]): row for row in rows if row["result"] != "gone"}
    yield "captures", "Captures by result.", {f'result="{name}"': results.count(name) for name in RESULTS}
    yield "alerts", "Alerts or findings by kind.", {f'kind="{k}"': n for k, n in all_rows.kinds_of(rows).items()}
    yield "capture_clean", "1 when the capture is clean.", {
        f'file="{file}"': int(all_rows.is_clean(row)) for file, row in by_file.items()}
    yield "capture_checked", "1 when something of the capture could be checked.", {
        f'file="{file}"': int(all_rows.is_checked(row)) for file, row in by_file.items()}
    yield "capture_alerts", "Alerts, or findings that fail, of the capture.", {
        f'file="{file}"': row["alerts"] for file, row in by_file.items()}
    yield "checked_bytes", "Size of the captures that this run checked.", {"": totals.bytes}
    yield "seconds", "How long the run took.", {"": round(totals.seconds, 3)}
    yield "end_time_seconds", "When the run ended, since 1970.", {"": round(time.time(), 3)}


def metrics_lines(rows, totals):
    for name, meaning, samples in families(rows, totals):
        name = f"korva_archive_{name}"
        if samples:
            yield f"# HELP {name} {meaning}\n# TYPE {name} gauge\n"
        for labels, value in samples.items():
            yield f"{name}{{{labels}}} {value}\n" if labels else f"{name} {value}\n"
    yield "# EOF\n"


def write_metrics(path, rows, totals):
    folders.write_whole(path, (line.encode() for line in metrics_lines(rows, totals)))
