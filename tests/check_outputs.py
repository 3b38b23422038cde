#!/usr/bin/env python3
"""Holds --json, --report, --exit-alerts and --progress against the packets: ROOT PROGRAM

Totals of the JSON and every bucket and bar that the page draws are computed anew from the packets.
"""

import collections
import itertools
import json
import math
import os
import pathlib
import pty
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
CLEAN, DAMAGED = ((ROOT / "samples" / name).read_bytes() for name in ("clean.ts", "damaged.ts"))
SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
# The program of each PID; 260 is announced, but never comes. Video has its program's PCR.
OWNER = {257: 0, 258: 0, 259: 0, 260: 0, 513: 1, 514: 1}
VIDEO = {0: 257, 1: 513}
PCR, TO_PCR, TO_REF = range(3)
NAMES = ("pcr_interval", "stamp_to_pcr", "audio_to_ref")


class Expected:
    """What is to be measured in a sample, and when."""

    def __init__(self, data):
        self.samples = []  # (program, PID, measure, time, ms)
        self.breaks = []  # (packet, PID, time)
        self.counts, self.now = collections.Counter(), 0
        self.pcr, self.ticks, self.stamps, self.cc = {}, {}, {}, {}
        for at in range(0, len(data), 188):
            p = data[at : at + 188]
            pid = (p[1] & 31) << 8 | p[2]
            if pid in OWNER:
                self.packet(at // 188 + 1, pid, OWNER[pid], p)

    def take(self, program, pid, kind, ms):
        self.samples.append((program, pid, kind, self.ticks[program] // 90, ms))

    def packet(self, number, pid, program, p):
        self.counts[pid] += 1
        payload = p[5 + p[4] :] if p[3] & 32 else p[4:]
        if p[3] & 32 and p[4] and p[5] & 16:
            self.clock(program, pid, int.from_bytes(p[6:11], "big") >> 7)
        if not p[3] & 16:
            return
        if self.cc.get(pid, p[3] - 1 & 15) != p[3] - 1 & 15:
            self.breaks.append((number, pid, self.ticks[program] // 90))
        self.cc[pid] = p[3] & 15
        if p[1] & 64 and payload[:3] == b"\0\0\1" and payload[7] & 128:
            a, b, c, d, e = payload[9:14]
            self.stamp(program, pid, (a & 14) << 29 | b << 22 | (c & 254) << 14 | d << 7 | e >> 1)

    def clock(self, program, pid, pcr):
        if program in self.pcr:
            step = (pcr - self.pcr[program]) % 2**33
            self.take(program, pid, PCR, step // 90 if step < 2**32 else 0)
            self.ticks[program] += step if step <= 60 * 90000 else 0
        else:
            self.ticks[program] = self.now * 90
        self.pcr[program] = pcr
        self.now = max(self.now, self.ticks[program] // 90)

    def stamp(self, program, pid, pts):
        is_new, self.stamps[pid] = self.stamps.get(pid) != pts, pts
        if is_new and pid != VIDEO[program] and program in self.pcr:
            self.take(program, pid, TO_PCR, abs(pts - self.pcr[program]) // 90)
            if VIDEO[program] in self.stamps:
                self.take(program, pid, TO_REF, abs(pts - self.stamps[VIDEO[program]]) // 90)


def band(buckets):
    """The two paths of a plot: least to greatest, and average."""
    area = line = ""
    for i in sorted(i for i in buckets if i - 1 not in buckets):
        run = [buckets[j] for j in itertools.takewhile(buckets.__contains__, itertools.count(i))]
        area += f"M{i}-" + "V-".join(f"{max(ms)}h1" for ms in run)
        area += "".join(f"V-{min(ms)}h-1" for ms in run[::-1]) + "z"
        line += f"M{i}-" + "V-".join(f"{sum(ms) / len(ms):.2f}h1" for ms in run)
    return area, line


PLOT = re.compile(
    r'class=numbers>(.*?)</dl>.*?data-pid=(\d+) data-kind=(\d) data-bucket=(\d+).*?band d="(.*?)"'
    r'.*?avg d="(.*?)".*?data-step=(\d+) data-most=(\d+).*?bars d="(.*?)"', re.S)


class Outputs(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(dir.name)
        # Clocks go back again and again, and further than the first buckets reach; tables change.
        new_pat = CLEAN[188:376].replace(b"\xf0\1", b"\xf0\2")
        for name, data in {"clean.ts": CLEAN, "damaged.ts": DAMAGED, "looped.ts": CLEAN * 8,
                           "tables.ts": DAMAGED + CLEAN + new_pat,
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
        return pathlib.Path("jsonl").read_bytes(), pathlib.Path("html").read_bytes()

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
        for path, *limits in (("damaged.ts", 79, 840, 180), ("looped.ts", None, None, None)):
            names = zip(("pcr_freq", "pcr_delta", "pdts_delta"), limits)
            self.korva(*self.both, *(f"-A{name}={ms or 0}" for name, ms in names), path)
            want, (*alerts, report) = Expected(pathlib.Path(path).read_bytes()), self.records()
            breaks = [(a["packet"], a["pid"]) for a in alerts if a.get("kind") == "CC-BRK"]
            self.assertEqual(breaks, [(number, pid) for number, pid, _ in want.breaks])
            counts = {s["pid"]: s["processed"] for p in report["programs"] for s in p["streams"]}
            self.assertEqual(+collections.Counter(counts), want.counts)
            for i, program in enumerate(report["programs"]):
                self.check_program(program, [s for s in want.samples if s[0] == i], limits)
            page = pathlib.Path("html").read_text()
            drawn = {self.check_plot(want, *plot) for plot in PLOT.findall(page)}
            self.assertEqual(drawn, {sample[1:3] for sample in want.samples})
            self.check_strips(page, want)

    def check_program(self, program, samples, limits):
        self.assertEqual(program["pcr_pid"], VIDEO[program["program"]])
        total = sum(s["processed"] for s in program["streams"])
        video = sum(s["processed"] for s in program["streams"] if s["kind"] == "V")
        self.assertEqual(program["packets"], {
            "processed": total, "analyzed": total,
            "video": video, "audio": total - video, "other": 0})
        for kind, name in enumerate(NAMES):
            ms = [s[4] for s in samples if s[2] == kind]
            self.assertEqual(program["measures"][name], {
                "limit_ms": limits[kind], "count": len(ms), "total_ms": sum(ms), "min_ms": min(ms),
                "avg_ms": sum(ms) / len(ms), "max_ms": max(ms)})

    def check_plot(self, want, numbers, pid, kind, width, area, line, step, most, bars):
        plotted, buckets = (int(pid), int(kind)), collections.defaultdict(list)
        for _, _, _, at, ms in (s for s in want.samples if s[1:3] == plotted):
            buckets[at // int(width)].append(ms)
        self.assertEqual((area, line), band(buckets))
        values = sorted(ms for in_bucket in buckets.values() for ms in in_bucket)
        steps = collections.Counter(ms // int(step) for ms in values)
        for percent in (50, 95, 99):
            exact = values[math.ceil(len(values) * percent / 100) - 1]
            shown = re.search(rf"p{percent}<dd>(\d+)", numbers.replace("\u202f", ""))[1]
            self.assertTrue(exact <= int(shown) <= exact * (1 + 1 / 128), (percent, exact, shown))
        self.assertEqual(int(most), max(steps.values()))
        heights = (f"M{i} 0v-{n / int(most):.4f}h1V0z" for i, n in sorted(steps.items()))
        self.assertEqual(bars, "".join(heights))
        return plotted

    def check_strips(self, page, want):
        for pid in {pid for _, pid, _ in want.breaks}:
            strip = rf'data-pid={pid} data-alert="CC-BRK" data-bucket=(\d+)><path d="(.*?)"'
            width, marks = re.search(strip, page).groups()
            hit = sorted({at // int(width) for _, p, at in want.breaks if p == pid})
            self.assertEqual(marks, "".join(f"M{i}.5 0v1" for i in hit))

    def test_damage_stands_where_it_is(self):
        self.korva(*self.both, "damaged.ts")
        alerts = self.records()[1:-1]
        found = {(a["kind"], a["pid"], a["packet"], a["offset"]) for a in alerts}
        want = {("CC-BRK", 514, 915), ("PMT-DIFF", 4096, 979),
                ("CC-BRK", 257, 1491), ("PID-NDAT", 260, 1991)}
        self.assertEqual(found, {(*w, (w[2] - 1) * 188) for w in want})
        self.assertEqual([a["time"] for a in alerts if a["pid"] == 257], [333000 / 90000])
        self.korva("-r", "900", *self.both, "damaged.ts")
        self.assertIn((257, 280120), {(a["pid"], a["offset"]) for a in self.records()[1:-1]})
        self.korva("-A", "off", *self.both, "damaged.ts")  # placed by packets
        jsonl, page = (text.decode() for text in self.files())
        width, mark = re.search(r'"PMT-DIFF" data-bucket=(\d+)><path d="M(\d+)', page).groups()
        self.assertEqual(int(mark), 978 // int(width))
        self.assertNotRegex(jsonl, r'_ms":[1-9]')

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
            *_, before, last = self.records()
            self.assertEqual((last["end"], last["status"]), (end, run.returncode))
            if end in ("cannot-open", "read-failed"):
                self.assertEqual((before["kind"], before["packet"]), (end.upper(), 0))
                self.assertEqual(before["message"], os.strerror(before["errno"]))

    def test_foreign_text(self):
        name = b"<b>&\xff\x01.ts"
        os.link("damaged.ts", name)
        self.assertEqual(self.korva(*self.both, "-S", "\"<i>'", name).returncode, 0)
        self.assertEqual(self.records()[0]["file"], "<b>&\ufffd\x01.ts")
        page = pathlib.Path("html").read_text()
        self.assertIn("&lt;b&gt;&amp;\ufffd\ufffd.ts", page)
        self.assertIn("<h1>&quot;&lt;i&gt;&#39;</h1>", page)
        self.assertNotRegex(page, r"https?:|<script|<i>")

    def start(self, *args, **options):
        """A run that reads a pipe, and the pipe's other end."""
        os.mkfifo("fifo")
        run = subprocess.Popen([PROGRAM, *args, "fifo"], stdout=subprocess.DEVNULL, **options)
        return run, open("fifo", "wb", buffering=0)

    def test_signals(self):
        for number, end in ((signal.SIGKILL, []), (signal.SIGINT, ["PID-NDAT", "signal"])):
            run, fifo = self.start(*self.both, stderr=subprocess.DEVNULL)
            with fifo:
                fifo.write(DAMAGED)
                until = time.monotonic() + 20
                while self.files()[0].count(b"CC-BRK") < 2 and time.monotonic() < until:
                    time.sleep(0.01)
                run.send_signal(number)
            run.wait()
            os.remove("fifo")
            found = [r.get("kind", r.get("end")) for r in self.records()]
            self.assertEqual(found, [None, "CC-BRK", "PMT-DIFF", "CC-BRK", *end])

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
