"""What one run of korva says about its capture: the row of the table."""

import json
import signal

import folders

PACKET = 188
CLEAN = "clean"
# Worst first. What is behind these (alerts or fail, truncated, clean) was read to its end.
WORST = ["aborted", "not checked", "unreadable", "failed", "incomplete", "stopped", "gone", "empty",
         "nothing checked", "skipped"]
# Of these nothing is known; the others were looked at.
NOT_CHECKED = {"not checked", "unreadable", "failed", "gone", "empty", "nothing checked", "skipped"}
# Of these not everything is known. One that is gone, as old captures go, is no cause for alarm.
NOT_WHOLE = NOT_CHECKED - {"gone"} | {"aborted", "incomplete", "stopped"}
# These are only the end of a run, and told as its result.
ENDS = {"CANNOT-OPEN", "READ-FAILED"}
# Nothing in a capture raises these: they come from outside, as when parallel(1) ends its jobs.
STOPPING = {signal.SIGHUP, signal.SIGINT, signal.SIGPIPE, signal.SIGTERM}
LANE = 96  # places in the lane of when
LAST_WORDS = 64 << 10
WHY = ("Assertion", "Cannot open", ": option ", ": unrecognized option ", ": invalid option ")


class Records:
    """The records of a run: the report is missing when korva died before it."""

    def __init__(self, lines):
        self.header, self.report, self.kinds, self.allowed = {}, {}, {}, {}
        self.moments, self.indicators = [], {}
        for line in lines:
            try:
                self.add(json.loads(line))
            except ValueError:  # the line at which korva died
                continue
        kinds = self.report.get("findings" if self.is_audit else "alerts", self.kinds)
        kinds = {kind: n - self.allowed.get(kind, 0) for kind, n in kinds.items()}
        self.kinds = {kind: n for kind, n in kinds.items() if n and kind not in ENDS}

    @property
    def is_audit(self):
        return self.header.get("mode") == "audit"

    def add(self, record):
        what = record["record"]
        if what in ("alert", "finding"):
            kind = record["kind"]
            self.kinds[kind] = self.kinds.get(kind, 0) + 1
            if "allowed" in record:  # by a baseline
                self.allowed[kind] = self.allowed.get(kind, 0) + 1
                return
            begin = record.get("time" if self.is_audit else "stream_time")
            end = record.get("last_time") or begin
            packets = record["packet"], record.get("last_packet", record["packet"])
            self.moments.append((record.get("severity", "fail"), begin, end, *packets))
        elif what == "indicator":
            self.indicators[record["id"]] = record["state"]
        elif what == "header":
            self.header = record
        elif what == "report":
            self.report = record


def alerts_of(records):
    """Alerts of the classic checks; of the audit, findings that fail."""
    if records.is_audit and records.report:
        return records.report["fails"]
    return sum(records.kinds.values())


def bitrate_of(report, duration):
    return round(report.get("bitrate") or report["bytes"] * 8 / duration) if duration else None


def lane_of(records, duration, size):
    """Where in the capture there were findings, by severity: places in stream time, or in packets."""
    packets = records.report.get("packets", 0)
    packets = packets["processed"] if isinstance(packets, dict) else packets
    parts = LANE * min(1, records.report.get("bytes", 0) / size) if size else 0  # of what was read
    lane = {}
    for severity, begin, end, first, last in records.moments:
        length, at = (duration, (begin, end)) if duration and begin is not None else (packets, (first, last))
        if length:
            first, last = (min(LANE - 1, max(0, int(place / length * parts))) for place in at)
            lane.setdefault(severity, set()).update(range(first, last + 1))
    return {severity: sorted(places) for severity, places in lane.items()}


def last_words(folder_fd):
    """What a run that failed says last: the line that tells why, if there is one."""
    with open("korva.report", "rb", opener=folders.open_beside(folder_fd)) as file:
        file.seek(max(0, file.seek(0, 2) - LAST_WORDS))
        lines = file.read().decode(errors="surrogateescape").splitlines()
    lines = [line for line in lines if line.strip() and " EXIT(" not in line]
    line = next((line for line in lines if any(why in line for why in WHY)), lines[-1] if lines else "")
    return (line.partition(" FSCN ")[2] or line).strip()  # without time stamp and level


def stop_text(report):
    unread = report.get("unread_bytes")
    return report.get("not_checked") or (f"{unread} bytes left unread" if unread else "")


def judge_audit(report):
    if report["verdict"] == "nothing-checked":
        return "empty", "no packet found"
    if report["verdict"] == "incomplete":
        return "incomplete", f"{report['bytes']} bytes read"
    tail = report["tail_bytes"]
    detail = f"{tail} bytes of a packet at the end" if tail else ""
    if report["fails"]:
        return "fail", detail
    return ("truncated" if tail else CLEAN), detail


def judge_classic(header, report, size):
    read_to = (header["first_packet"] - 1) * PACKET + report["bytes"]
    rest = size - read_to if report["end"] == "complete" else 0
    if report["end"] == "read-failed" or rest >= PACKET:
        return "incomplete", f"read up to byte {read_to} of {size}"
    packets = report["packets"]
    if packets["processed"] == 0:
        return "empty", "no whole packet"
    detail = f"{rest} bytes of a packet at the end" if rest > 0 else ""
    if sum(report["alerts"].values()) > report.get("baseline", {}).get("allowed", 0):
        return "alerts", detail
    if packets["analyzed"] == 0:
        return "nothing checked", report.get("not_checked") or "no packet could be analyzed"
    return ("truncated" if detail else CLEAN), detail


def judge(records, status, size, folder_fd):
    """The result in a word or two, and what explains it."""
    header, report = records.header, records.report
    if status - 128 in STOPPING or report.get("end") == "signal":
        return "not checked", "stopped by a signal"
    if status >= 128 or header and not report:
        return "aborted", last_words(folder_fd)
    end = report.get("end", "failed")
    if end == "cannot-open":
        return "unreadable", last_words(folder_fd).rpartition(": ")[2]
    if end == "stopped":
        return "stopped", stop_text(report)
    if records.is_audit and "verdict" in report:
        return judge_audit(report)
    if end == "failed":
        return "failed", last_words(folder_fd)
    return judge_classic(header, report, size)


def empty_row(file, result, detail=""):
    return {"file": file, "result": result, "detail": detail, "status": None, "alerts": 0, "kinds": {},
            "indicators": {}, "size": None, "mtime": None, "duration": None, "bitrate": None,
            "seconds": None, "host": "", "since": "", "lane": {}}


def row_of(file, status, size, folder_fd):
    with open("korva.jsonl", "rb", opener=folders.open_beside(folder_fd)) as lines:
        records = Records(lines)
    result, detail = judge(records, status, size, folder_fd)
    duration = records.report.get("duration")  # seconds of the stream's clock
    return {**empty_row(file, result, detail), "status": status, "alerts": alerts_of(records),
            "kinds": records.kinds, "indicators": records.indicators, "duration": duration,
            "bitrate": bitrate_of(records.report, duration), "lane": lane_of(records, duration, size)}
