"""The table: as lines, as table.csv; and findings.jsonl."""

import collections
import csv
import json

import folders
import job
import rows as all_rows
from text import shown, time_text, what_text

KINDS = ["CC-BRK", "CC-RST", "CC-MLR", "PCR-DELTA", "AV-DELTA0", "AV-DELTA+", "PCR-FREQ", "PAT-DIFF",
         "PMT-DIFF", "PID-NDAT", "LOST-SYNC", "OUT-OF-SYNC", "IDLE"]
AUDIT_KINDS = [
    "SYNC-LOSS", "SYNC-BYTE", "TEI", "CC-LOSS", "CC-DUP", "CC-ORDER", "CC-AF", "PSI-CRC", "PSI-SYNTAX", "PSI-TABLE",
    "PSI-SCRAMBLED", "PSI-VERSION", "PSI-GAP", "PCR-GAP", "PCR-JUMP", "PCR-ACCURACY", "PTS-GAP", "STAMP-LATE",
    "STAMP-DELAY", "STAMP-ORDER", "STAMP-BACK", "STAMP-JUMP", "PID-GAP", "SCRAMBLED", "CAT-MISSING", "RATE-LOSS",
    "AFC-RESERVED", "AF-SYNTAX", "STAMP-BASE", "PID-UNREFERENCED", "LEADING", "PAT-CHANGE", "PMT-CHANGE", "PID-ABSENT"]
INDICATORS = ["1.1", "1.2", "1.3a", "1.4", "1.5a", "1.6", "2.1", "2.2", "2.3a", "2.3b", "2.4", "2.5", "2.6", "3.1a",
              "3.4a", "3.5a", "3.6a", "3.8"]
FOUND = tuple(b'{"record":"%s"' % what for what in (b"alert", b"finding", b"cut"))
BEFORE = ["result", "status", "alerts"]
AFTER = ["size", "duration", "bitrate", "seconds", "host", "since", "file", "detail"]
NO_FAULT = {"not checked", "failed"}
ALIKE = 5  # rows with one cause that are shown
WIDTH = 60  # of a path, before what follows is moved to the right


def cell(value):
    """No cell begins a formula, or ends its line."""
    if value is None:
        return ""
    text = shown(str(value))
    return "'" + text if text[:1] in ("=", "+", "-", "@") else text


def csv_lines(rows, is_audit):
    kinds = AUDIT_KINDS if is_audit else KINDS
    kinds = kinds + sorted(set(all_rows.kinds_of(rows)) - set(kinds))
    indicators = INDICATORS if is_audit else []
    yield [*BEFORE, *kinds, *indicators, *AFTER]
    for row in rows:
        yield [cell(value) for value in (
            *(row[name] for name in BEFORE), *(row["kinds"].get(kind, 0) for kind in kinds),
            *(row["indicators"].get(name, "") for name in indicators), *(row[name] for name in AFTER))]


class Lines(list):
    """Takes what csv writes."""

    def write(self, text):
        self.append(text.encode())


def write_csv(path, rows, is_audit):
    lines = Lines()
    csv.writer(lines).writerows(csv_lines(rows, is_audit))
    folders.write_whole(path, lines)


def findings_of(output, row):
    """Alerts and findings of a capture, and where its records were cut, as they stand in its records."""
    if row["status"] is None or row["result"] == "unreadable":  # what lies there is not of its packets
        return
    try:
        records = folders.open_below(f"{output}/files{row['file']}", job.LOGS[2])
    except OSError:
        return
    with records:
        for record in records:
            if record.startswith(FOUND) and record.endswith(b"}\n"):
                yield record


def findings_lines(output, rows):
    for row in rows:
        file = b'{"file":' + json.dumps(row["file"]).encode() + b","
        for record in findings_of(output, row):
            yield file + record[1:]


def without_echoes(rows):
    """Rows, and how many more like each are left out: what no capture is the cause of is told once."""
    alike = collections.Counter((row["result"], row["detail"]) for row in rows if row["result"] in NO_FAULT)
    told = set()
    for row in rows:
        key = row["result"], row["detail"]
        if key not in told:
            yield row, alike[key] - 1 if alike[key] > ALIKE else 0
        if alike[key] > ALIKE:
            told.add(key)


def cells_of(row, more):
    length = "-" if row["duration"] is None else time_text(row["duration"])
    what = "; ".join(filter(None, [row["since"], what_text(row)]))
    file = shown(row["file"]) + (f" and {more} more" if more else "")
    return row["result"], str(row["alerts"] or "-"), length, file, shown(what)


def table_lines(rows):
    """Result, alerts, stream time, file, and what there is to say."""
    cells = [("result", "alerts", "length", "file", "")]
    cells += [cells_of(row, more) for row, more in without_echoes(rows)]
    results, alerts, lengths, files = (max(map(len, column)) for column in list(zip(*cells))[:4])
    for result, count, length, file, what in cells:
        yield f"{result:{results}}  {count:>{alerts}}  {length:>{lengths}}  {file:{min(WIDTH, files)}}  {what}".rstrip()
