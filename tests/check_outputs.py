#!/usr/bin/env python3
"""Holds --json, --report, --exit-alerts and --progress against the packets: check_outputs.py ROOT PROGRAM

Totals of the JSON and every bucket and bar that the page draws are computed anew from the packets.
"""

import collections
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
SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
VIDEO, AUDIO = {1, 2, 0x10, 0x1B, 0x24, 0x42}, {3, 4, 0x0F, 0x11, 0x81, 0x87}
PCR, TO_PCR, TO_REF = range(3)
NAMES = ("pcr_interval", "stamp_to_pcr", "audio_to_ref")


class Expected:
    """What is to be measured in a stream of whole tables, and when."""

    def __init__(self, data):
        self.samples, self.breaks = [], []  # (program, PID, measure, time, ms); (packet, PID, time)
        self.pmts, self.es, self.pcr_pid, self.counts = [], {}, {}, collections.Counter()
        self.pcr, self.ticks, self.now, self.stamps, self.cc = {}, {}, 0, {}, {}
        for at in range(0, len(data), 188):
            self.packet(at // 188 + 1, data[at : at + 188])

    def packet(self, number, p):
        pid, payload = (p[1] & 31) << 8 | p[2], p[5 + p[4] :] if p[3] & 32 else p[4:]
        if pid == 0 and not self.pmts:
            section = payload[1:]
            ends = range(8, 3 + ((section[1] & 15) << 8 | section[2]) - 4, 4)
            self.pmts = [(section[i + 2] & 31) << 8 | section[i + 3] for i in ends]
        elif pid in self.pmts:
            self.pmt(self.pmts.index(pid), payload[1:])
        elif pid in self.es:
            self.stream(number, pid, self.es[pid][0], p, payload)

    def pmt(self, program, s):
        end = 3 + ((s[1] & 15) << 8 | s[2]) - 4
        self.pcr_pid[program] = (s[8] & 31) << 8 | s[9]
        at = 12 + ((s[10] & 15) << 8 | s[11])
        while at < end:
            self.es[(s[at + 1] & 31) << 8 | s[at + 2]] = (program, s[at])
            at += 5 + ((s[at + 3] & 15) << 8 | s[at + 4])

    def place(self, program):
        return self.ticks[program] // 90

    def take(self, program, pid, kind, ms):
        self.samples.append((program, pid, kind, self.place(program), ms))

    def stream(self, number, pid, program, p, payload):
        self.counts[pid] += 1
        if p[3] & 32 and p[4] and p[5] & 16 and pid == self.pcr_pid[program]:
            new = int.from_bytes(p[6:11], "big") >> 7
            if program in self.pcr:
                old, step = self.pcr[program], (new - self.pcr[program]) % 2**33
                self.take(program, pid, PCR, step // 90 if new >= old or step < 45000 else 0)
                self.ticks[program] += step if step <= 60 * 90000 else 0
            else:
                self.ticks[program] = self.now * 90
            self.pcr[program] = new
            self.now = max(self.now, self.place(program))
        if not p[3] & 16:
            return
        if self.cc.get(pid, p[3] - 1 & 15) != p[3] - 1 & 15:
            self.breaks.append((number, pid, self.place(program)))
        self.cc[pid] = p[3] & 15
        if p[1] & 64 and payload[:3] == b"\0\0\1" and payload[7] & 128:
            self.pts(program, pid, payload[9:14])

    def pts(self, program, pid, b):
        pts = (b[0] & 14) << 29 | b[1] << 22 | (b[2] & 254) << 14 | b[3] << 7 | b[4] >> 1
        is_new, self.stamps[pid] = self.stamps.get(pid) != pts, pts
        if not is_new or self.es[pid][1] not in AUDIO or program not in self.pcr:
            return
        self.take(program, pid, TO_PCR, abs(pts - self.pcr[program]) // 90)
        video = next(v for v, (owner, kind) in self.es.items() if owner == program and kind in VIDEO)
        if video in self.stamps:
            self.take(program, pid, TO_REF, abs(pts - self.stamps[video]) // 90)


def band(buckets):
    """The two paths of a plot: least to greatest, and average."""
    area = line = ""
    for i, values in sorted(buckets.items()):
        if i - 1 not in buckets:
            run = [i]
            while run[-1] + 1 in buckets:
                run.append(run[-1] + 1)
            tops = "".join(("h1" if j == i else f"V-{max(buckets[j])}h1") for j in run)
            area += f"M{i}-{max(values)}{tops}" + "".join(f"V-{min(buckets[j])}h-1" for j in run[::-1]) + "z"
            means = [f"{sum(buckets[j]) / len(buckets[j]):.2f}h1" for j in run]
            line += f"M{i}-" + "V-".join(means)
    return area, line


class Outputs(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.dir = pathlib.Path(dir.name)
        self.json, self.page = self.dir / "out.jsonl", self.dir / "out.html"
        # How fast the packets are read must not matter: no gap is a reset.
        self.both = (f"--json={self.json}", f"--report={self.page}", "-A", "max_zreset_time=0")

    def korva(self, *args):
        return subprocess.run([PROGRAM, *args], cwd=ROOT / "samples", capture_output=True)

    def said(self, *args):
        run = self.korva(*args)
        mask = lambda text: re.sub(rb"PID=\d+|(?m:^)\d{4}-\S+ \S+ \S+ (\d+ )?", b"", text)
        return run.returncode, mask(run.stdout), mask(run.stderr)

    def records(self):
        text = self.json.read_text()
        self.assertTrue(text.endswith("\n"))
        records = [json.loads(line) for line in text.splitlines()]
        for record in records:
            SCHEMA.validate(record)
        return records

    def looped(self):
        """A stream whose clocks go back again and again, and longer than the first buckets reach."""
        data = (ROOT / "samples/clean.ts").read_bytes() * 8
        (self.dir / "looped.ts").write_bytes(data)
        return data

    def test_all_numbers_come_from_the_packets(self):
        streams = {"damaged.ts": (ROOT / "samples/damaged.ts").read_bytes()}
        streams[str(self.dir / "looped.ts")] = self.looped()
        for path, data in streams.items():
            self.assertEqual(self.korva(*self.both, path).returncode, 0)
            want, (*alerts, report), page = Expected(data), self.records(), self.page.read_text()
            self.assertEqual([(a["packet"], a["pid"]) for a in alerts if a.get("kind") == "CC-BRK"],
                             [(number, pid) for number, pid, _ in want.breaks])
            counts = {s["pid"]: s["processed"] for p in report["programs"] for s in p["streams"]}
            self.assertEqual(counts, {pid: want.counts[pid] for pid in want.es})
            for i, program in enumerate(report["programs"]):
                for kind, name in enumerate(NAMES):
                    ms = [s[4] for s in want.samples if s[0] == i and s[2] == kind]
                    self.assertEqual(program["measures"][name], {
                        "limit_ms": None, "count": len(ms), "total_ms": sum(ms), "min_ms": min(ms),
                        "avg_ms": sum(ms) / len(ms), "max_ms": max(ms)})
            self.check_plots(page, want)
            self.check_strips(page, want)

    def check_plots(self, page, want):
        plots = re.findall(r'class=numbers>(.*?)</dl>.*?data-pid=(\d+) data-kind=(\d) data-bucket=(\d+).*?band d="(.*?)".*?avg d="(.*?)"'
                           r'.*?data-step=(\d+) data-most=(\d+).*?bars d="(.*?)"', page, re.S)
        self.assertEqual({(int(p[1]), int(p[2])) for p in plots}, {s[1:3] for s in want.samples})
        for numbers, pid, kind, width, area, line, step, most, bars in plots:
            buckets, steps = collections.defaultdict(list), collections.Counter()
            for _, _, _, at, ms in (s for s in want.samples if s[1:3] == (int(pid), int(kind))):
                buckets[at // int(width)].append(ms)
                steps[ms // int(step)] += 1
            self.assertEqual((area, line), band(buckets))
            values = sorted(ms for in_bucket in buckets.values() for ms in in_bucket)
            for percent in (50, 95, 99):
                exact = values[math.ceil(len(values) * percent / 100) - 1]
                shown = int(re.search(rf"p{percent}<dd>(\d+)", numbers.replace("\u202f", ""))[1])
                self.assertTrue(exact <= shown <= exact * (1 + 1 / 128), (percent, exact, shown))
            self.assertEqual(int(most), max(steps.values()))
            self.assertEqual(bars, "".join(f"M{i} 0v-{n / int(most):.4f}h1V0z" for i, n in sorted(steps.items())))

    def check_strips(self, page, want):
        for pid in {pid for _, pid, _ in want.breaks}:
            width, marks = re.search(rf'data-pid={pid} data-alert="CC-BRK" data-bucket=(\d+)><path d="(.*?)"', page).groups()
            hit = sorted({at // int(width) for _, p, at in want.breaks if p == pid})
            self.assertEqual(marks, "".join(f"M{i}.5 0v1" for i in hit))

    def test_damage_stands_where_it_is(self):
        self.korva(*self.both, "damaged.ts")
        found = {(a["kind"], a["pid"], a["packet"], a["offset"]) for a in self.records()[1:-1]}
        want = {("CC-BRK", 514, 915), ("PMT-DIFF", 4096, 979), ("CC-BRK", 257, 1491), ("PID-NDAT", 260, 1991)}
        self.assertEqual(found, {(*w, (w[2] - 1) * 188) for w in want})
        self.korva("-r", "900", *self.both, "damaged.ts")
        self.assertIn((257, 280120), {(a["pid"], a["offset"]) for a in self.records()[1:-1]})
        self.korva("-A", "off", *self.both, "damaged.ts")  # placed by packets
        width, mark = re.search(r'"PMT-DIFF" data-bucket=(\d+)><path d="M(\d+)', self.page.read_text()).groups()
        self.assertEqual(int(mark), 978 // int(width))
        self.assertNotRegex(self.json.read_text(), r'_ms":[1-9]')

    def test_nothing_else_changes(self):
        self.looped()
        checks = ("-A", "pcr_freq=79", "-A", "max_zreset_time=0")
        for path in ("clean.ts", "damaged.ts", str(self.dir / "looped.ts"), "none.ts"):
            for args in (checks[2:], ("-A", "off"), ("-A", "pdts_delta=180", *checks[2:]),
                         ("-a", "on", "-v", "-A", "pcr_delta=840", *checks)):
                plain = self.said(*args, path)
                self.assertEqual(self.said(*args, *self.both, "--progress", path), plain)
                first = self.json.read_bytes(), self.page.read_bytes()
                self.said(*args, *self.both, path)
                self.assertEqual((self.json.read_bytes(), self.page.read_bytes()), first)
                self.said(*args, self.both[0], path)
                self.assertEqual(self.json.read_bytes(), first[0])
                self.records()

    def test_abbreviations(self):
        names = ("verbose version options srctag maxskip alerts hushlog from maxnum config syslog track analyze").split()
        prefixes = {n[:i] for n in names for i in range(1, len(n) + 1) if sum(m.startswith(n[:i]) for m in names) == 1}
        for prefix in prefixes | {"j", "e", "p", "r"}:
            said = self.korva(f"--{prefix}", "/dev/null", "none.ts").stderr
            self.assertNotRegex(said, b"unrecognized|ambiguous", prefix)

    def test_exit_status(self):
        (self.dir / "cut.ts").write_bytes((ROOT / "samples/damaged.ts").read_bytes()[:18800] + bytes(188))
        for args, status in (
            (("damaged.ts",), 0), (("--exit-alerts", "damaged.ts"), 3), (("--exit-alerts", "clean.ts"), 0),
            (("--exit-alerts=CC-BRK", "damaged.ts"), 3), (("--exit-alerts=PAT-DIFF,AV-DELTA+", "damaged.ts"), 0),
            (("--exit-alerts=PAT-DIFF,PID-NDAT", "damaged.ts"), 3), (("--exit-alerts=", "clean.ts"), 22),
            (("--exit-alerts=CC-BRK,cc", "clean.ts"), 22), (("none.ts",), 0), (("--exit-alerts=CC-BRK", "none.ts"), 3),
            (("--exit-alerts", str(self.dir / "cut.ts")), 2), (("--json=/dev/full", "clean.ts"), 2),
            (("--report=/dev/full", "clean.ts"), 2), (("--json=/nonexistent/x", "clean.ts"), 2),
        ):
            self.assertEqual(self.korva(*args).returncode, status, args)
        self.assertIn(b"[cc]", self.korva("--exit-alerts=cc", "clean.ts").stderr)
        for args, end in ((("-m", "9", "clean.ts"), "limit"), (("-m", "1993", "clean.ts"), "complete"), (("none.ts",), "cannot-open"),
                          ((str(self.dir / "cut.ts"),), "stopped"), (("-r", "2", "/dev/stdin"), "failed")):
            run = subprocess.run([PROGRAM, *self.both, *args], cwd=ROOT / "samples", capture_output=True, input=b"")
            self.assertEqual((self.records()[-1]["end"], self.records()[-1]["status"]), (end, run.returncode))

    def test_input_is_never_overwritten(self):
        data = self.looped()
        os.link(self.dir / "looped.ts", self.dir / "link.ts")
        self.assertEqual(self.korva(f"--json={self.dir}/link.ts", str(self.dir / "looped.ts")).returncode, 2)
        self.assertEqual((self.dir / "looped.ts").read_bytes(), data)

    def test_foreign_text(self):
        name = os.fsencode(self.dir) + b"/<b>&\xff\x01.ts"
        pathlib.Path(os.fsdecode(name)).write_bytes((ROOT / "samples/damaged.ts").read_bytes())
        self.assertEqual(self.korva(*self.both, "-S", "\"<i>'", name).returncode, 0)
        self.assertTrue(self.records()[0]["file"].endswith("/<b>&\ufffd\x01.ts"))
        page = self.page.read_text()
        self.assertIn("/&lt;b&gt;&amp;\ufffd\ufffd.ts", page)
        self.assertIn("<h1>&quot;&lt;i&gt;&#39;</h1>", page)
        self.assertNotRegex(page, r"https?:|<script|<i>")

    def test_signals(self):
        os.mkfifo(self.dir / "fifo")
        kinds = ["CC-BRK", "PMT-DIFF", "CC-BRK"]
        for number, end in ((signal.SIGKILL, []), (signal.SIGINT, ["PID-NDAT", "signal"])):
            run = subprocess.Popen([PROGRAM, *self.both, self.dir / "fifo"], stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
            with open(self.dir / "fifo", "wb") as fifo:
                fifo.write((ROOT / "samples/damaged.ts").read_bytes())
                fifo.flush()
                until = time.monotonic() + 20
                while self.json.read_text().count("CC-BRK") < 2 and time.monotonic() < until:
                    time.sleep(0.01)
                run.send_signal(number)
            run.wait()
            found = [r.get("kind", r.get("end")) for r in self.records()]
            self.assertEqual(found, [None, *kinds, *end])

    def test_progress_line(self):
        os.mkfifo(self.dir / "fifo")
        master, slave = pty.openpty()
        run = subprocess.Popen([PROGRAM, "--progress", self.dir / "fifo"], stdout=subprocess.DEVNULL, stderr=slave)
        os.close(slave)
        data = (ROOT / "samples/damaged.ts").read_bytes()
        with open(self.dir / "fifo", "wb", buffering=0) as fifo:
            for at in range(0, len(data), 18800):
                fifo.write(data[at : at + 18800])
                time.sleep(0.03)
        text = b""
        try:
            while part := os.read(master, 65536):
                text += part
        except OSError:  # the other end is closed
            pass
        run.wait()
        os.close(master)
        drawn = re.findall(rb"\r[\d.]+ MB  [\d.]+ MB/s  alerts: \d\x1b\[K", text)
        self.assertTrue(2 <= len(drawn) <= 8, text)
        self.assertRegex(text, rb"alerts: [1-3]\x1b\[K\r\x1b\[K\d{4}-[^\r]* ALERT ")
        self.assertNotRegex(text, rb"alerts: \d\x1b\[K[^\r]")
        left = re.sub(rb"\r[^\r\n]*\x1b\[K", b"", text).replace(b"\r\n", b"\n")
        self.assertTrue(all(re.match(rb"\d{4}-|\t|tsan_stats|$", line) for line in left.split(b"\n")), left)


signal.alarm(120)  # a program that does not open its input would be waited for
unittest.main(argv=sys.argv[:1])
