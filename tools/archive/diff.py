"""korva-archive diff OLD NEW: what became of the findings of each capture."""

import collections
import json
import os
import sys

import rows as all_rows
import table
from text import shown, time_text

LISTED = 20  # findings of a capture, one by one


def captures_of(output):
    """Rows by capture."""
    rows = all_rows.kept_rows(output)
    if not rows:
        sys.exit(f"korva-archive: {shown(output)} holds no run")
    return rows


def below_common(rows):
    """By what distinguishes the captures, for runs over different directories."""
    common = os.path.commonpath([os.path.dirname(name) for name in rows]) if rows else ""
    return {os.path.relpath(name, common): row for name, row in rows.items()}


def place_of(record):
    seconds = record.get("stream_time", record.get("time"))
    at = "" if seconds is None else f" at {time_text(seconds)}"
    pid = "" if record.get("pid") is None else f" PID {record['pid']}"
    table_of = f" {record['table']}" if record.get("table") else ""
    return f"{record['kind']}{table_of}{pid}, packet {record['packet']}{at}"


def findings_of(output, row):
    """Counts by what makes a finding the same: kind, PID, table and packet."""
    found = collections.Counter()
    for line in table.findings_of(output, row):
        record = json.loads(line)
        if "kind" in record:
            found[place_of(record)] += 1
    return found


def tell(name, news, olds, same, notes):
    print(f"{shown(name)}: {news.total()} new, {olds.total()} gone, {same.total()} unchanged{notes}")
    for sign, findings in (("+", news), ("-", olds)):
        lines = list(findings.elements())
        for line in lines[:LISTED]:
            print(f"  {sign} {shown(line)}")
        if len(lines) > LISTED:
            print(f"  {sign} {len(lines) - LISTED} more")


def compare(old_output, new_output, name, old, new):
    """Tells what differs; returns whether there is something new and whether something is gone."""
    before, after = findings_of(old_output, old), findings_of(new_output, new)
    news, olds, same = after - before, before - after, after & before
    became = old["result"] != new["result"]
    if news or olds or became:
        tell(name, news, olds, same, f" ({old['result']}, now {new['result']})" if became else "")
    is_worse = became and all_rows.badness(new)[0] < all_rows.badness(old)[0]
    return bool(news) or is_worse, bool(olds)


def diff(old_output, new_output):
    old_rows, new_rows = captures_of(old_output), captures_of(new_output)
    if not old_rows.keys() & new_rows.keys():
        old_rows, new_rows = below_common(old_rows), below_common(new_rows)
    both = sorted(old_rows.keys() & new_rows.keys())
    only = [(name, "only in the old run") for name in sorted(old_rows.keys() - new_rows.keys())]
    only += [(name, f"only in the new run: {new_rows[name]['result']}")
             for name in sorted(new_rows.keys() - old_rows.keys())]
    for name, where in only:
        print(f"{shown(name)}: {where}")
    told = [compare(old_output, new_output, name, old_rows[name], new_rows[name]) for name in both]
    worse, better = (sum(column) for column in zip(*told)) if told else (0, 0)
    print(f"{len(both)} captures in both, {worse} with new findings, {better} with findings that are gone, "
          f"{told.count((False, False))} unchanged; {len(only)} in one run only")
    return 3 if worse else 0
