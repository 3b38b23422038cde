#!/usr/bin/env python3
"""Holds --json, --report, --exit-alerts and --progress against the packets: ROOT PROGRAM

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
CLEAN, DAMAGED = ((ROOT / "samples" / name).read_bytes() for name in ("clean.ts", "damaged.ts"))
SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
VIDEO, AUDIO = {1, 2, 0x10, 0x1B, 0x24, 0x42}, {3, 4, 0x0F, 0x11, 0x81, 0x87}
PCR, TO_PCR, TO_REF = range(3)
NAMES = ("pcr_interval", "stamp_to_pcr", "audio_to_ref")


class Expected:
    """What is to be measured in a stream of whole tables, and when."""

    def __init__(self, data):
        self.samples = []  # (program, PID, measure, time, ms)
        self.breaks = []  # (packet, PID, time)
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
        video = next(v for v, (p, kind) in self.es.items() if p == program and kind in VIDEO)
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
            tops = "h1" + "".join(f"V-{max(buckets[j])}h1" for j in run[1:])
            bottoms = "".join(f"V-{min(buckets[j])}h-1" for j in run[::-1])
            area += f"M{i}-{max(values)}{tops}{bottoms}z"
            means = [f"{sum(buckets[j]) / len(buckets[j]):.2f}h1" for j in run]
            line += f"M{i}-" + "V-".join(means)
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
        # The clocks of the third go back again and again, and further than the first buckets reach.
        for name, data in {"clean.ts": CLEAN, "damaged.ts": DAMAGED, "looped.ts": CLEAN * 8,
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
        return records

    def test_all_numbers_come_from_the_packets(self):
        for path in ("damaged.ts", "looped.ts"):
            self.assertEqual(self.korva(*self.both, path).returncode, 0)
            want, (*alerts, report) = Expected(pathlib.Path(path).read_bytes()), self.records()
            self.assertEqual(
                [(a["packet"], a["pid"]) for a in alerts if a.get("kind") == "CC-BRK"],
                [(number, pid) for number, pid, _ in want.breaks])
            counts = {s["pid"]: s["processed"] for p in report["programs"] for s in p["streams"]}
            self.assertEqual(counts, {pid: want.counts[pid] for pid in want.es})
            for i, program in enumerate(report["programs"]):
                self.check_program(program, [s for s in want.samples if s[0] == i])
            page = pathlib.Path("html").read_text()
            plots = PLOT.findall(page)
            drawn = {(int(pid), int(kind)) for _, pid, kind, *_ in plots}
            self.assertEqual(drawn, {sample[1:3] for sample in want.samples})
            for plot in plots:
                self.check_plot(want, *plot)
            self.check_strips(page, want)

    def check_program(self, program, samples):
        total = sum(s["processed"] for s in program["streams"])
        video = sum(s["processed"] for s in program["streams"] if s["kind"] == "V")
        self.assertEqual(program["packets"], {
            "processed": total, "analyzed": total,
            "video": video, "audio": total - video, "other": 0})
        for kind, name in enumerate(NAMES):
            ms = [s[4] for s in samples if s[2] == kind]
            self.assertEqual(program["measures"][name], {
                "limit_ms": None, "count": len(ms), "total_ms": sum(ms), "min_ms": min(ms),
                "avg_ms": sum(ms) / len(ms), "max_ms": max(ms)})

    def check_plot(self, want, numbers, pid, kind, width, area, line, step, most, bars):
        buckets, steps = collections.defaultdict(list), collections.Counter()
        for _, _, _, at, ms in (s for s in want.samples if s[1:3] == (int(pid), int(kind))):
            buckets[at // int(width)].append(ms)
            steps[ms // int(step)] += 1
        self.assertEqual((area, line), band(buckets))
        values = sorted(ms for in_bucket in buckets.values() for ms in in_bucket)
        for percent in (50, 95, 99):
            exact = values[math.ceil(len(values) * percent / 100) - 1]
            shown = re.search(rf"p{percent}<dd>(\d+)", numbers.replace("\u202f", ""))[1]
            self.assertTrue(exact <= int(shown) <= exact * (1 + 1 / 128), (percent, exact, shown))
        self.assertEqual(int(most), max(steps.values()))
        heights = (f"M{i} 0v-{n / int(most):.4f}h1V0z" for i, n in sorted(steps.items()))
        self.assertEqual(bars, "".join(heights))

    def check_strips(self, page, want):
        for pid in {pid for _, pid, _ in want.breaks}:
            strip = rf'data-pid={pid} data-alert="CC-BRK" data-bucket=(\d+)><path d="(.*?)"'
            width, marks = re.search(strip, page).groups()
            hit = sorted({at // int(width) for _, p, at in want.breaks if p == pid})
            self.assertEqual(marks, "".join(f"M{i}.5 0v1" for i in hit))

    def test_damage_stands_where_it_is(self):
        self.korva(*self.both, "damaged.ts")
        *alerts, report = self.records()[1:]
        found = {(a["kind"], a["pid"], a["packet"], a["offset"]) for a in alerts}
        want = {("CC-BRK", 514, 915), ("PMT-DIFF", 4096, 979),
                ("CC-BRK", 257, 1491), ("PID-NDAT", 260, 1991)}
        self.assertEqual(found, {(*w, (w[2] - 1) * 188) for w in want})
        self.assertEqual([a["time"] for a in alerts if a["pid"] == 257], [333000 / 90000])
        counts = {k: n for p in report["programs"] for k, n in p["alerts"].items() if n}
        self.assertEqual(counts, {"CC-BRK": 1, "PMT-DIFF": 1, "PID-NDAT": 1})
        self.korva("-r", "900", *self.both, "damaged.ts")
        self.assertIn((257, 280120), {(a["pid"], a["offset"]) for a in self.records()[1:-1]})
        self.korva("-A", "off", *self.both, "damaged.ts")  # placed by packets
        jsonl, page = (text.decode() for text in self.files())
        width, mark = re.search(r'"PMT-DIFF" data-bucket=(\d+)><path d="M(\d+)', page).groups()
        self.assertEqual(int(mark), 978 // int(width))
        self.assertNotRegex(jsonl, r'_ms":[1-9]')

    def test_nothing_else_changes(self):
        checks = ("-A", "pcr_freq=79", "-A", "max_zreset_time=0")
        for path in ("clean.ts", "damaged.ts", "looped.ts", "none.ts"):
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

    def test_abbreviations(self):
        names = ("verbose version options srctag maxskip alerts hushlog from maxnum config syslog "
                 "track analyze json exit-alerts progress report").split()
        for prefix in {n[:i] for n in names for i in range(1, len(n) + 1)}:
            said = self.korva(f"--{prefix}", "/dev/null", "none.ts").stderr
            is_one = sum(n.startswith(prefix) for n in names) == 1
            self.assertEqual(b"ambiguous" not in said, is_one or prefix in names, prefix)
            self.assertNotIn(b"unrecognized", said)

    def test_exit_status(self):
        for option, path, status in (
            ("-v", "damaged.ts", 0),
            ("--exit-alerts", "damaged.ts", 3),
            ("--exit-alerts", "clean.ts", 0),
            ("--exit-alerts", "cut.ts", 2),
            ("--exit-alerts=CC-BRK", "damaged.ts", 3),
            ("--exit-alerts=CC-BRK,PAT-DIFF", "damaged.ts", 3),
            ("--exit-alerts=PAT-DIFF,PID-NDAT", "damaged.ts", 3),
            ("--exit-alerts=PAT-DIFF,AV-DELTA+", "damaged.ts", 0),
            ("--exit-alerts=", "clean.ts", 22),
            ("--exit-alerts=CC-BRK,cc", "clean.ts", 22),
            ("-v", "none.ts", 0),
            ("--exit-alerts=CC-BRK", "none.ts", 3),
            ("-v", ".", 0),  # a directory can be opened, not read
            ("--exit-alerts=CC-BRK", ".", 3),
            ("--json=/dev/full", "clean.ts", 2),
            ("--report=/dev/full", "clean.ts", 2),
            ("--json=/nonexistent/x", "clean.ts", 2),
        ):
            self.assertEqual(self.korva(option, path).returncode, status, (option, path))
        self.assertIn(b"[cc]", self.korva("--exit-alerts=cc", "clean.ts").stderr)
        for end, *args in (("limit", "-m", "9", "clean.ts"), ("complete", "-m", "1993", "clean.ts"),
                           ("cannot-open", "none.ts"), ("stopped", "cut.ts"),
                           ("read-failed", "."),
                           ("failed", "-r", "2", "/dev/stdin")):
            run = self.korva(*self.both, *args, input=b"")
            *_, before, last = self.records()
            self.assertEqual((last["end"], last["status"]), (end, run.returncode))
            if end in ("cannot-open", "read-failed"):
                self.assertEqual((before["kind"], before["packet"]), (end.upper(), 0))
                self.assertEqual(before["message"], os.strerror(before["errno"]))

    def test_input_is_never_overwritten(self):
        os.link("damaged.ts", "link.ts")
        self.assertEqual(self.korva("--json=link.ts", "damaged.ts").returncode, 2)
        self.assertEqual(pathlib.Path("damaged.ts").read_bytes(), DAMAGED)

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
        self.addCleanup(lambda: os.path.exists("fifo") and os.remove("fifo"))
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
