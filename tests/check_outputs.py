#!/usr/bin/env python3
"""Holds --json, --report, --exit-alerts and --progress against the packets: ROOT PROGRAM [FAULTS]

Totals of the JSON and every bucket and bar that the page draws are computed anew from the packets.
FAULTS is the library that lets calls of the C library fail (support/faults_preload.cpp).
"""

import collections
import itertools
import json
import math
import os
import pathlib
import pty
import re
import resource
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

ROOT, PROGRAM, *FAULTS = (pathlib.Path(arg).resolve() for arg in sys.argv[1:])
CLEAN, DAMAGED = ((ROOT / "samples" / name).read_bytes() for name in ("clean.ts", "damaged.ts"))
SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
PAT, *PMTS = (CLEAN[at : at + 188] for at in (188, 376, 564))
NO_PCR = PMTS[0][:13] + b"\xe0\0" + PMTS[0][15:]  # a PMT that ends the run by an assertion
NULL = b"\x47\x1f\xff\x10" + bytes(184)
# The program of each PID. Video has its program's PCR.
OWNER = {257: 0, 258: 0, 259: 0, 260: 0, 513: 1, 514: 1}
VIDEO = {0: 257, 1: 513}
PCR, PTS_TO_PCR, DTS_TO_PCR, PTS_SKEW, DTS_SKEW = range(5)
CHECKED = {"pcr_interval": (PCR,), "stamp_to_pcr": (1, 2), "audio_to_ref": (3, 4)}
PACKETS = 8500  # of the stream whose numbers are computed
SIGNED = ("pts_to_pcr", "dts_to_pcr", "pts_skew", "dts_skew")


def failing(call, number):
    """An environment in which a call fails. In LD_PRELOAD, a path with a blank would be two."""
    library = FAULTS[0]
    where = {"LD_PRELOAD": library.name, "LD_LIBRARY_PATH": str(library.parent)}
    return {**os.environ, **where, call: str(number)}


def stamp(prefix, ticks):
    t = ticks % 2**33
    return bytes((prefix << 4 | t >> 29 & 14 | 1, t >> 22 & 255, t >> 14 & 254 | 1, t >> 7 & 255,
                  t << 1 & 254 | 1))


def pes(pid, counter, pts, dts=None, pcr=None):
    """A packet with the beginning of a PES packet, clocks in ticks of 90 kHz."""
    stamps = stamp(2, pts) if dts is None else stamp(3, pts) + stamp(1, dts)
    field = b"" if pcr is None else bytes((7, 0x10)) + (pcr % 2**33 << 15).to_bytes(6, "big")
    head = bytes((0x47, 0x40 | pid >> 8, pid & 255, 0x10 | (pcr is not None) << 5 | counter % 16))
    kind = 0xC0 if dts is None else 0xE0
    payload = bytes((0, 0, 1, kind, 0, 0, 0x80, 0x80 if dts is None else 0xC0, len(stamps)))
    return (head + field + payload + stamps).ljust(188, b"\xff")


def constant_stream(packets):
    """A packet each millisecond, so that its number tells its time: the first PCR is in packet 11.
    Counters break; clocks wrap; audio is up to 150 ms late; one stream has DTS beside PTS, one
    pauses; the second program's clock leaps, and its audio twice goes far astray, and once to the
    edge of what is drawn."""
    stream = {1: PAT, 2: PMTS[0], 3: PMTS[1]}
    for n in range(11, packets + 1, 40):
        clock, i = 90 * n - 135_000, n // 40
        stream[n] = pes(257, i, clock + 90 * 300, clock + 90 * (300 - n % 7), clock)
        leap = 900_000 * (n > 2000)
        stream[n + 20] = pes(513, i, *(leap + clock + at for at in (27_000, 26_955, 1800)))
        offset = 90 * (n * 37 % 700 - 150)
        stream[n + 5] = pes(258, i + n // 900, clock + offset + 45, clock + offset)
        if i not in range(100, 108):
            stream[n + 10] = pes(259, i, clock + 90 * (300 + n % 7))
        late = {51: 2 * offset - 9_000_000, 81: 2 * offset + 9_000_000, 151: 1_801_800}
        stream[n + 25] = pes(514, i, leap + clock + late.get(i, 2 * offset))
    return b"".join(stream.get(n, NULL) for n in range(1, packets + 1))


class Expected:
    """What is to be measured in such a stream, and when."""

    def __init__(self, data):
        self.samples = []  # (program, PID, measure, time, ms, ms as the checks have it)
        self.breaks = []  # (packet, PID, time)
        self.counts, self.start = collections.Counter(), None
        self.pcr, self.stamps, self.cc = {}, {}, {}
        for at in range(0, len(data), 188):
            p = data[at : at + 188]
            pid = (p[1] & 31) << 8 | p[2]
            if pid in OWNER:
                self.packet(at // 188 + 1, pid, OWNER[pid], p)

    def take(self, program, pid, kind, number, to, since):
        signed = (to - since + 2**32) % 2**33 - 2**32
        checked = signed if kind == PCR else abs(to - since)  # which the wrap does not end
        self.samples.append(
            (program, pid, kind, number - self.start, int(signed / 90), checked // 90))

    def packet(self, number, pid, program, p):
        self.counts[pid] += 1
        payload = p[5 + p[4] :] if p[3] & 32 else p[4:]
        if p[3] & 32 and p[4] and p[5] & 16:
            self.start = self.start or number
            pcr = int.from_bytes(p[6:11], "big") >> 7
            if program in self.pcr:
                self.take(program, pid, PCR, number, pcr, self.pcr[program])
            self.pcr[program] = pcr
        if self.cc.get(pid, p[3] - 1 & 15) != p[3] - 1 & 15:
            self.breaks.append((number, pid, number - self.start))
        self.cc[pid] = p[3] & 15
        for is_dts, at in enumerate((9, 14)):
            if payload[7] & 0x80 >> is_dts:
                a, b, c, d, e = payload[at : at + 5]
                now = (a & 14) << 29 | b << 22 | (c & 254) << 14 | d << 7 | e >> 1
                self.stamp(program, pid, is_dts, number, now)

    def stamp(self, program, pid, is_dts, number, now):
        self.stamps[pid, is_dts] = now
        if pid != VIDEO[program]:
            self.take(program, pid, PTS_TO_PCR + is_dts, number, now, self.pcr[program])
            video = self.stamps[VIDEO[program], is_dts]
            self.take(program, pid, PTS_SKEW + is_dts, number, now, video)


def levels(values, sign=""):
    return "V".join(f"{v}h{sign}{len([*run])}" for v, run in itertools.groupby(values))


def band(buckets):
    """The two paths of a plot: least to greatest, and average."""
    area = line = ""
    for i in sorted(i for i in buckets if i - 1 not in buckets):
        run = [buckets[j] for j in itertools.takewhile(buckets.__contains__, itertools.count(i))]
        area += f"M{i} {levels(-max(ms) for ms in run)}V{levels((-min(ms) for ms in run[::-1]), '-')}z"
        line += f"M{i} " + levels(f"{0 - sum(ms) / len(ms):.2f}" for ms in run)
    return area, line


PLOT = re.compile(
    r'class=numbers>(.*?)</dl>.*?viewBox="0 (-?\d+) \S+ (\d+)" data-pid=(\d+) data-kind=(\d)'
    r' data-bucket=(\d+).*?band d="(.*?)".*?avg d="(.*?)".*?cut d="(.*?)"'
    r'.*?data-step=(\d+) data-most=(\d+).*?bars d="(.*?)"', re.S)


class Outputs(unittest.TestCase):
    astray = {(513, PCR): 1, (514, PTS_TO_PCR): 2, (514, PTS_SKEW): 3}

    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(dir.name)
        self.constant = constant_stream(PACKETS)
        # Clocks go back again and again; tables change.
        new_pat = PAT.replace(b"\xf0\1", b"\xf0\2")
        for name, data in {"clean.ts": CLEAN, "damaged.ts": DAMAGED, "looped.ts": CLEAN * 8,
                           "tables.ts": DAMAGED + CLEAN + new_pat, "constant.ts": self.constant,
                           "cut.ts": DAMAGED[:18800] + bytes(188)}.items():
            pathlib.Path(name).write_bytes(data)
        # How fast the packets are read must not matter: no gap is a reset.
        self.both = ("--json=jsonl", "--report=html", "-A", "max_zreset_time=0")

    def korva(self, *args, **options):
        return subprocess.run([PROGRAM, *args], capture_output=True, **options)

    def said(self, *args):
        run = self.korva(*args)
        stamps = re.compile(rb"PID=\d+|^\d{4}-\S+ \S+ \S+ (\d+ )?", re.M)
        return run.returncode, stamps.sub(b"", run.stdout), stamps.sub(b"", run.stderr)

    def files(self):
        """Both, the page without its date and the options of the run."""
        page = re.sub(rb"<dt>(Checked|Options)<dd>.*?</div>", b"", pathlib.Path("html").read_bytes())
        return pathlib.Path("jsonl").read_bytes(), page

    def records(self):
        text = pathlib.Path("jsonl").read_text()
        self.assertTrue(text.endswith("\n"))
        records = [json.loads(line) for line in text.splitlines()]
        for record in records:
            SCHEMA.validate(record)
        alerts = [r for r in records if r["record"] == "alert"]
        self.assertFalse([a for a in alerts if (a["pid"] is None) != (a["program"] is None)])
        if programs := records[-1].get("programs"):
            raised = collections.Counter(a["kind"] for a in alerts)
            self.assertEqual(+collections.Counter(records[-1]["alerts"]), raised)
            for kind in programs[0]["alerts"]:
                self.assertEqual(sum(p["alerts"][kind] for p in programs), raised[kind])
        return records

    def test_all_numbers_come_from_the_packets(self):
        want = Expected(self.constant)
        for limits in ((39, 200, 180), (None, None, None)):
            names = zip(("pcr_freq", "pcr_delta", "pdts_delta"), limits)
            self.korva(*self.both, *(f"-A{name}={ms or 0}" for name, ms in names), "constant.ts")
            *alerts, report = self.records()
            breaks = [(a["packet"], a["pid"], round(a["stream_time"] * 1000, 3))
                      for a in alerts if a.get("kind") == "CC-BRK"]
            self.assertEqual(breaks, want.breaks)
            counts = {s["pid"]: s["processed"] for p in report["programs"] for s in p["streams"]}
            self.assertEqual(+collections.Counter(counts), want.counts)
            self.assertEqual(report["duration"], (PACKETS - 11) / 1000)
            for i, program in enumerate(report["programs"]):
                self.check_program(program, [s for s in want.samples if s[0] == i], limits)
            page = pathlib.Path("html").read_text()
            drawn = {self.check_plot(want, *plot) for plot in PLOT.findall(page)}
            self.assertEqual(drawn, {sample[1:3] for sample in want.samples})
            for pid in {pid for _, pid, _ in want.breaks}:
                strip = rf'0 0 (\d+) 1" data-pid={pid} data-alert="CC-BRK"><path d="(.*?)"'
                hit = [at for _, p, at in want.breaks if p == pid]
                marks = f"M{hit[0]} 0v1"
                marks += "".join(f"m{b - a}-1v1" for a, b in itertools.pairwise(hit))
                self.assertEqual(re.search(strip, page).groups(), (str(PACKETS - 11), marks))
            self.assertIn("<dt>Stream time<dd>0:08.489<", page)

    def check_program(self, program, samples, limits):
        self.assertEqual(program["pcr_pid"], VIDEO[program["program"]])
        self.assertEqual(program["program_number"], program["program"] + 1)
        total = sum(s["processed"] for s in program["streams"])
        video = sum(s["processed"] for s in program["streams"] if s["kind"] == "V")
        self.assertEqual(program["packets"], {
            "processed": total, "analyzed": total,
            "video": video, "audio": total - video, "other": 0})
        measures = [(*item, 5) for item in CHECKED.items()]
        measures += [(name, (kind,), 4) for kind, name in enumerate(SIGNED, 1)]
        for name, kinds, field in measures:
            ms = [s[field] for s in samples if s[2] in kinds]
            self.assertEqual(program["measures"][name], {
                "limit_ms": limits[(kinds[0] + 1) // 2], "count": len(ms), "total_ms": sum(ms),
                "min_ms": min(ms, default=None), "avg_ms": sum(ms) / len(ms) if ms else None,
                "max_ms": max(ms, default=None)}, name)

    def check_plot(self, want, numbers, top, height, pid, kind, width, area, line, cut, step, most,
                   bars):
        plotted, buckets = (int(pid), int(kind)), collections.defaultdict(list)
        hi, step = -int(top), int(step)
        lo, mark = hi - int(height), int(height) / 12
        for _, _, _, at, ms, _ in (s for s in want.samples if s[1:3] == plotted):
            buckets[at // int(width)].append(ms)
        self.assertEqual((area, line), band(buckets))
        marks = [f"M{i}.5 {-hi}v{mark:.2f}" for i, ms in sorted(buckets.items()) if max(ms) > hi]
        marks += [f"M{i}.5 {-lo}v{-mark:.2f}" for i, ms in sorted(buckets.items()) if min(ms) < lo]
        self.assertEqual((cut, len(marks)), ("".join(marks), self.astray.get(plotted, 0)))
        values = sorted(ms for in_bucket in buckets.values() for ms in in_bucket)
        drawn = range(max(values[0], lo) // step, min(values[-1], hi) // step + 1)
        steps = collections.Counter(ms // step for ms in values if ms // step in drawn)
        for percent in (50, 95, 99):
            exact = values[math.ceil(len(values) * percent / 100) - 1]
            text = numbers.replace("\u202f", "").replace("\u2212", "-")
            shown = int(re.search(rf"p{percent}<dd>(-?\d+)", text)[1])
            self.assertTrue(exact <= shown <= exact + abs(exact) / 128, (percent, exact, shown))
        self.assertEqual(int(most), max(steps.values()))
        heights = (f"M{i} 0v-{n / int(most):.4f}h1V0z" for i, n in sorted(steps.items()))
        self.assertEqual(bars, "".join(heights))
        return plotted

    def test_damage_stands_where_it_is(self):
        self.korva(*self.both, "damaged.ts")
        alerts = self.records()[1:-1]
        found = {(a["kind"], a["pid"], a["packet"], a["offset"], a["program_number"]) for a in alerts}
        want = {("CC-BRK", 514, 915, 2), ("PMT-DIFF", 4096, 979, 1),
                ("CC-BRK", 257, 1491, 1), ("PID-NDAT", 260, 1991, 1)}
        self.assertEqual(found, {(*w[:3], (w[2] - 1) * 188, w[3]) for w in want})
        self.assertEqual([a["time"] for a in alerts if a["pid"] == 257], [333000 / 90000])
        shown = re.findall(r'<td class=k>([A-Z-]+)<td class="n i">(\d+)', self.files()[1].decode())
        self.assertEqual(shown, [(a["kind"], str(a["pid"])) for a in alerts])
        self.korva("-r", "900", *self.both, "damaged.ts")
        self.assertIn((257, 280120), {(a["pid"], a["offset"]) for a in self.records()[1:-1]})
        no_clock = bytearray(DAMAGED)
        for at in range(0, len(no_clock), 188):
            no_clock[at + 5] &= 0xEF if no_clock[at + 3] & 32 else 0xFF
        pathlib.Path("no_clock.ts").write_bytes(no_clock)
        self.korva(*self.both, "no_clock.ts")  # placed by packets
        self.assertIn('data-alert="PMT-DIFF"><path d="M979 0v1"', self.files()[1].decode())
        self.assertEqual({a["stream_time"] for a in self.records()[1:-1]}, {None})

    def test_nothing_else_changes(self):
        checks = ("-A", "pcr_freq=79", "-A", "max_zreset_time=0")
        for path in ("clean.ts", "tables.ts", "looped.ts", "none.ts"):
            for args in (checks[2:], ("-A", "off"), ("-A", "pdts_delta=180", *checks[2:]),
                         ("-a", "on", "-v", "-A", "pcr_delta=840", *checks)):
                plain = self.said(*args, path)
                self.assertEqual(self.said(*args, *self.both, "--progress", path), plain)
                first = self.files()
                self.said(*args, *self.both, path)
                self.assertEqual(self.files(), first)
                self.said(*args, self.both[0], path)
                self.assertEqual(self.files(), first)
                self.records()

    def test_ends(self):
        for end, *args in (("limit", "-m", "9", "clean.ts"), ("complete", "-m", "1993", "clean.ts"),
                           ("cannot-open", "none.ts"), ("stopped", "cut.ts"),
                           ("read-failed", "."), ("failed", "-r", "2", "/dev/stdin")):
            run = self.korva(*self.both, *args, input=b"")
            records = self.records()
            header, before, last = records[0], *records[-2:]
            self.assertEqual((last["end"], last["status"]), (end, run.returncode))
            limit = int(args[1]) if args[0] == "-m" else None
            self.assertEqual((header["max_packets"], header["first_packet"]),
                             (limit, 1 + ("-r" in args)))
            if end in ("cannot-open", "read-failed"):
                self.assertEqual((before["kind"], before["packet"]), (end.upper(), 0))
                self.assertEqual(before["message"], os.strerror(before["errno"]))

    def test_nothing_is_green_where_nothing_was_looked_at(self):
        def changed(packet, at, *content):
            return packet[:at] + bytes(content) + packet[at + len(content) :]

        hidden = (PAT[3] | 0xC0).to_bytes(1, "big")
        other = PMTS[0].replace(b"\x1b\xe1", b"\x05\xe1").replace(b"\x0f\xe1", b"\x86\xe1")
        in_204 = b"".join(CLEAN[at : at + 188] + bytes(16) for at in range(0, 18800, 188))
        in_192 = b"".join(bytes(4) + CLEAN[at : at + 188] for at in range(0, 18800, 188))
        for data, status, reason, unread, looks_like in (
            (b"", 3, "no packet of 188 bytes to read", 0, None),
            (NULL * 9 + b"G" * 9, 3, "no PAT", 9, None),
            ((PAT[:3] + hidden + PAT[4:]) * 2, 3, "scrambled PAT", 0, None),
            (PAT * 2, 3, "PAT, but no PMT", 0, None),
            (PAT + changed(PMTS[0], 3, PMTS[0][3] | 0x80, *b"\xff" * 50), 3, "scrambled PMT", 0, None),
            (PAT + other, 3, "only streams of types that are not followed: 0x05 0x86", 0, None),
            (PAT + PMTS[0][:4] + b"\1" + PMTS[0][4:187], 3,
             "PMT behind a pointer_field that is not 0, which korva does not read", 0, None),
            (PAT + PMTS[0], 3, "no packet of a stream that the PMT lists", 0, None),
            (in_204, 2, "packets of 204 bytes?", 99 * 204 + 16, (204, 204)),
            (in_192, 2, "packets of 192 bytes?", 100 * 192, (192, 4)),
            (bytes(188), 2, "no packets of 188 bytes", 188, None),
            (DAMAGED[:18800] + b"-G-" + DAMAGED[18800:], 2, None, len(DAMAGED) - 18797, (188, 18803)),
        ):
            pathlib.Path("x.ts").write_bytes(data)
            for kinds in ("", "=PAT-DIFF,NOT-CHECKED"):
                run = self.korva(*self.both, "--exit-alerts" + kinds, "x.ts")
                self.assertEqual(run.returncode, status, reason)
            self.assertEqual(self.korva("--exit-alerts=CC-BRK", "x.ts").returncode, status % 3)
            report, page = self.records()[-1], pathlib.Path("html").read_text()
            found = report["looks_like"] and tuple(report["looks_like"].values())
            self.assertEqual((report["status"], report["not_checked"], report["unread_bytes"], found),
                             (status, reason, unread, looks_like))
            self.assertNotIn("verdict good", page)
            checks = {check["check"]: check for check in report["checks"]}
            if reason:
                self.assertIn(f"Nothing checked</strong><p>No packet of a stream was analyzed: {reason}",
                              page)
                self.assertEqual((checks["CC-BRK"]["state"], checks["CC-BRK"]["reason"]),
                                 ("not-checked", reason))
        for word in "cc_track=0", "off":
            self.korva("-A", word, "-A", "pcr_freq=100", *self.both, "clean.ts")
            shown = re.findall(r"<tr><td>([A-Z0-9+-]+)<td class=\"n zero\">0<td>([^<]*)",
                               pathlib.Path("html").read_text())
            self.assertEqual(dict(shown), {
                "CC-BRK": "off", "CC-RST": "off", "PCR-DELTA": "off", "AV-DELTA0": "off",
                "AV-DELTA+": "off", "PCR-FREQ": "limit 100 ms, on, 101 intervals",
                "PAT-DIFF": "on, 41 PATs", "PMT-DIFF": "on, 82 PMTs", "PID-NDAT": "on, 5 streams"})

    def test_foreign_text(self):
        name = b"<b>&\xff\x01\xf4\x8f\xbf\xbf\xf4\x90\x80\x80\xf5\x80\x80\x80.ts"
        os.link("damaged.ts", name)
        self.assertEqual(self.korva(*self.both, "-S", "\"<i>'", name).returncode, 0)
        self.assertEqual(self.records()[0]["file"], "<b>&\ufffd\x01\U0010ffff" + "\ufffd" * 8 + ".ts")
        page = pathlib.Path("html").read_text()
        self.assertIn("&lt;b&gt;&amp;\ufffd\ufffd\U0010ffff" + "\ufffd" * 8 + ".ts", page)
        self.assertIn("<h1>&quot;&lt;i&gt;&#39;</h1>", page)
        self.assertNotRegex(page, r"https?:|<script|<i>")

    def start(self, *args, **options):
        """A run that reads a pipe, and the pipe's other end."""
        os.mkfifo("fifo")
        run = subprocess.Popen([PROGRAM, *args, "fifo"], stdout=subprocess.DEVNULL, **options)
        return run, open("fifo", "wb", buffering=0)

    def test_what_ends_a_run_leaves_the_old_files(self):
        for name in ("jsonl", "html", "live"):
            pathlib.Path(name).write_text("old\n")
        names = sorted(os.listdir())
        numbers = (signal.SIGKILL, signal.SIGHUP, signal.SIGQUIT, signal.SIGABRT, signal.SIGINT)
        for n, number in enumerate(numbers, 1):
            with open("live", "ab") as live:
                run, fifo = self.start(f"--json=/dev/fd/{live.fileno()}", *self.both[1:],
                                       stderr=subprocess.DEVNULL, pass_fds=[live.fileno()])
            with fifo:
                fifo.write(DAMAGED + NO_PCR * (number == signal.SIGABRT))
                until = time.monotonic() + 20
                while pathlib.Path("live").read_text().count("CC-BRK") < 2 * n:
                    self.assertLess(time.monotonic(), until)
                    time.sleep(0.01)
                if number != signal.SIGABRT:
                    run.send_signal(number)
            self.assertEqual(run.wait(), 0 if number == signal.SIGINT else -number)
            os.remove("fifo")
            self.assertEqual(sorted(os.listdir()), names)
            self.assertEqual(pathlib.Path("html").read_text() == "old\n", number != signal.SIGINT)
        first, *lines = pathlib.Path("live").read_text().splitlines()
        told = [record.get("kind", record.get("end")) for record in map(json.loads, lines)]
        killed = [None, "CC-BRK", "PMT-DIFF", "CC-BRK"]
        aborted = killed + ["PMT-DIFF"]
        self.assertEqual(told, killed * 3 + aborted + killed + ["PID-NDAT", "signal"])
        self.assertEqual(pathlib.Path("jsonl").read_text(), "old\n")

    def test_where_outputs_go(self):
        self.korva(*self.both, "damaged.ts")
        whole, page = self.files()
        pathlib.Path("kept").write_bytes(b"x" * 100_000)
        os.chmod("kept", 0o640)
        os.mkdir("dir")
        os.symlink("../kept", "dir/link")
        os.symlink("dir/link", "link")
        os.symlink("dir/new", "dangling")
        for path in ("link", "dangling"):
            self.assertEqual(self.korva("--json=" + path, *self.both[2:], "damaged.ts").returncode, 0)
            self.assertTrue(os.path.islink(path))
            self.assertEqual(pathlib.Path(path).read_bytes(), whole)
        self.assertEqual(os.stat("kept").st_mode & 0o777, 0o640)
        for target, redirection in (("-", ">>"), ("/dev/stdout", ">"), ("/dev/fd/7", "7>>")):
            pathlib.Path("log").write_bytes(b"before\n")
            before = b"" if redirection == ">" else b"before\n"
            subprocess.run(["sh", "-c", f'exec "$0" --json={target} "$@" {redirection}log', PROGRAM,
                            *self.both[2:], "damaged.ts"], stderr=subprocess.DEVNULL, check=True,
                           stdout=subprocess.DEVNULL)
            self.assertEqual(pathlib.Path("log").read_bytes(), before + whole)
        os.mkfifo("fifo")
        with subprocess.Popen([PROGRAM, "--json=fifo", *self.both[2:], "damaged.ts"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL):
            self.assertEqual(pathlib.Path("fifo").read_bytes(), whole)
        self.assertEqual(self.korva("--json=jsonl", "--report=/dev/full", "clean.ts").returncode, 2)
        self.assertEqual(self.records()[-1]["status"], 2)
        # Full is a disk when a file can have no more bytes.
        full = dict(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (8000, 8000)))
        for path in ("jsonl", "html"):
            pathlib.Path(path).write_text("old")
        run = self.korva(*self.both, "damaged.ts", **full)
        self.assertEqual(pathlib.Path("html").read_text(), "old")
        self.assertEqual((run.returncode, self.records()[-1]["status"]), (2, 2))

    def test_outputs_spare_what_the_run_uses(self):
        os.link("damaged.ts", "hard.ts")
        os.symlink("damaged.ts", "soft.ts")
        settings = "vnt: { stream_analyzer: { enabled = true; }; };"
        pathlib.Path("set").write_text(settings)
        pathlib.Path("log").write_text("log")
        before = {name: pathlib.Path(name).read_bytes() for name in os.listdir()}
        for why, command in {
            "it is the file to analyze": "--json=hard.ts damaged.ts",
            "it is a settings file": "--report=./set -C set damaged.ts",
            "it is the file of --json": "--json=new --report=./new damaged.ts",
            "[/dev/stdout]: it is the file of --json": "--json=- --report=/dev/stdout damaged.ts",
            "it is standard output": "--json=log damaged.ts >>log",
            "it is standard error": "--report=log damaged.ts 2>>log",
            "standard output has the alerts": "--json=- -a on damaged.ts",
            "File name too long": "--json=" + "x" * 300 + " damaged.ts",
            "longer than 255 bytes": "--exit-alerts " + "./" * 130 + "damaged.ts",
            "Bad file descriptor": "--report=/dev/fd/0 damaged.ts <clean.ts",
            "No such file": "--json=none/x damaged.ts",
        }.items():
            run = subprocess.run(["sh", "-c", f'"$0" {command}', PROGRAM], capture_output=True,
                                 stdin=subprocess.DEVNULL)
            said = run.stderr.decode() + pathlib.Path("log").read_text()
            self.assertEqual(run.returncode, 2, command)
            self.assertIn(why, said)
            self.assertNotIn("STARTING", said)
            pathlib.Path("log").write_text("log")
            left = {name: pathlib.Path(name).read_bytes() for name in os.listdir()}
            self.assertEqual(left, before, command)

    # Each allocation in turn, and all from one on.
    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_every_refused_allocation_is_survived(self):
        classic = re.compile(rb"tsan_stats BEGIN.*tsan_stats END", re.S)
        for path, fault, points in (("damaged.ts", "FAIL_ALLOC", range(5, 160, 3)),
                                    ("clean.ts", "FAIL_ALLOCS", range(20, 160, 7))):
            whole, incomplete = classic.search(self.korva(path).stderr)[0], 0
            for n in points:
                run = self.korva(*self.both, "--junit=junit", path, env=failing(fault, n))
                self.assertEqual(run.returncode, 0, run)
                cases = pathlib.Path("junit").read_text()
                self.assertTrue(cases.endswith("</testsuites>\n"))
                told = classic.search(run.stderr)[0]
                report, page = self.records()[-1], pathlib.Path("html").read_text()
                self.assertTrue(page.endswith("</html>\n"))
                self.assertTrue('errors="1"' in cases or not report["incomplete"])
                if "This page is incomplete" in page:
                    incomplete += 1
                    self.assertTrue(told == whole or b"ERROR(12)" in run.stderr)
                    if report["incomplete"]:
                        self.assertNotIn("verdict good", page)
                elif fault == "FAIL_ALLOCS":
                    self.assertFalse(report["incomplete"])
            self.assertGreater(incomplete, 10)

    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_an_audit_goes_on_without_memory(self):
        for n in range(10, 130):
            run = self.korva("--audit", "damaged.ts", env=failing("FAIL_ALLOC", n))
            self.assertEqual(run.returncode, 12, n)
            self.assertRegex(run.stderr, b"\n(INCOMPLETE|FAIL) ")

    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_writes_that_take_nothing_are_tried_again(self):
        self.korva(*self.both, "damaged.ts")
        whole = self.files()
        run = self.korva(*self.both, "damaged.ts", env=failing("STALL_WRITE", 1))
        self.assertEqual(run.returncode, 0)
        self.assertEqual(self.files(), whole)

    def test_progress_line(self):
        try:
            master, slave = pty.openpty()
        except OSError:
            self.skipTest("no pseudo-terminals here")
        run, fifo = self.start("--progress", stderr=slave)
        os.close(slave)
        text = os.read(master, 65536)  # it has started
        begin = time.monotonic()
        with fifo:
            for at in range(0, len(DAMAGED), 18800):
                fifo.write(DAMAGED[at : at + 18800])
                time.sleep(0.03)
        try:
            while part := os.read(master, 65536):
                text += part
        except OSError:  # the other end is closed
            pass
        run.wait()
        seconds = time.monotonic() - begin
        os.close(master)
        drawn = re.findall(rb"\r[\d.]+ MB  [\d.]+ MB/s  alerts: \d\x1b\[K", text)
        self.assertTrue(2 <= len(drawn) <= 10 * seconds + 1, text)
        self.assertRegex(text, rb"alerts: [1-3]\x1b\[K\r\x1b\[K\d{4}-[^\r]* ALERT ")
        self.assertNotRegex(text, rb"alerts: \d\x1b\[K[^\r]")
        left = re.sub(rb"\r[^\r\n]*\x1b\[K", b"", text).replace(b"\r\n", b"\n")
        self.assertRegex(left, rb"\A((\d{4}-|\t|tsan_stats).*\n|\n)*\Z")


signal.alarm(120)  # a program that does not open its input would be waited for
unittest.main(argv=sys.argv[:1])
