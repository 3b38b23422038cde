#!/usr/bin/env python3
"""Holds korva --audit against planted faults: audit_check.py ROOT PROGRAM

Every example of docs/findings.md is planted and has to say what stands there, no more and no less, in
all three forms. KORVA_ACCEPT=1 writes what is said into the document.
"""

import collections
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time
import unittest

import jsonschema

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
sys.path.insert(0, str(ROOT / "samples"))
import plant  # noqa: E402

SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
FINDINGS = ROOT / "docs/findings.md"
SECTION = re.compile(r"^### (\S+)\n(.*?)\n\n(    samples.*?\n)(?=\n###|\Z)", re.M | re.S)
COMMAND = "samples/plant.py {} | korva --audit -S demo /dev/stdin"


def planted(kind):
    return b"".join(plant.PLANTS[kind](plant.packets_of(plant.CLEAN)))


CLEAN = plant.CLEAN


class Audit(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(dir.name)

    def korva(self, data, *args):
        """Status, lines of both logs without their stamps, and the records of a run."""
        pathlib.Path("in.ts").write_bytes(data)
        args = ("-S", "demo", "--json=json", *args, "in.ts")
        run = subprocess.run([PROGRAM, "--audit", *args], capture_output=True, text=True)
        lines = [re.findall(r"AUDIT .*", text) for text in (run.stderr, run.stdout)]
        records = [json.loads(line) for line in pathlib.Path("json").read_text().splitlines()]
        for record in records:
            SCHEMA.validate(record)
        self.stderr = run.stderr
        self.verdict = re.search(r"^(PASS|FAIL|INCOMPLETE|NOTHING).*", run.stderr, re.M)[0]
        return run.returncode, *lines, records

    def findings(self, data, *args):
        """Kinds with packets, and the closing record."""
        records = self.korva(data, *args)[3]
        found = [(r["kind"], r["packet"]) for r in records if r["record"] == "finding"]
        return found, records[-1]

    def test_findings_are_those_of_the_document(self):
        text = new = FINDINGS.read_text()
        sections = SECTION.findall(text)
        self.assertEqual([kind for kind, *_ in sections], list(plant.PLANTS)[2:])
        for kind, prose, example in sections:
            status, human, terse, records = self.korva(planted(kind), "-a", "on", "--exit-alerts")
            shown = "".join(f"    {line}\n" for line in [COMMAND.format(kind), "", *human])
            new = new.replace(example, shown.replace("    \n", "\n"))
            findings = [r for r in records if r["record"] == "finding"]
            fails = [f for f in findings if f["severity"] == "fail"]
            self.assertEqual(status, 3 if fails else 0, kind)
            self.assertEqual(records[-1]["fails"], len(fails))
            self.assertEqual([line.split()[1] for line in human], [f["kind"] for f in findings])
            for finding, line in zip(findings, terse, strict=True):
                self.check_terse(finding, line)
            severity = next(f["severity"] for f in findings if f["kind"] == kind)
            self.assertRegex(prose, rf"\*\*Severity\.\*\* {severity}")
        if os.environ.get("KORVA_ACCEPT"):
            FINDINGS.write_text(new)
        self.assertEqual(text, new)

    def check_terse(self, finding, line):
        _, kind, tag, pid, packet, offset, at, *words = line.split()
        says = dict(word.split("=") for word in words)
        self.assertEqual((kind, tag, packet, offset),
                         (finding["kind"], "demo", str(finding["packet"]), str(finding["offset"])))
        self.assertEqual(pid, "-" if finding["pid"] is None else str(finding["pid"]))
        self.assertEqual(at == "-", finding["time"] is None)
        if at != "-":
            h, m, s = at.split(":")
            self.assertAlmostEqual(int(h) * 3600 + int(m) * 60 + float(s), finding["time"], 3)
        rest = {k: v for k, v in finding.items() if k in says and not k.endswith("time")}
        for key, value in rest.items():
            if "." in says[key]:
                self.assertAlmostEqual(float(says[key]), value, 3)
            elif isinstance(value, list):
                self.assertEqual(says[key], ",".join(map(str, value)))
            else:
                self.assertEqual(says[key], str(value).lower() if isinstance(value, bool) else str(value))
        told = {"record", "kind", "pid", "packet", "offset", "time"}
        self.assertLessEqual({k for k, v in finding.items() if v not in (None, [])} - told, set(says))

    def test_healthy_streams(self):
        constant = planted("constant")
        for data in (CLEAN, constant):
            for profile in ("mpeg", "dvb", "ott"):
                found, report = self.findings(data, f"--audit={profile}", "--limit=nit_ms=0",
                                              "--limit=sdt_ms=0", "--limit=eit_ms=0", "--limit=tdt_ms=0")
                self.assertEqual((found, report["verdict"]), ([], "pass"))
            self.assertEqual(report["cbr"], data is constant)
        # The SDT comes each half second, tables as often as A/65 asks for do not.
        self.assertEqual(self.findings(CLEAN, "--audit=atsc")[1]["verdict"], "fail")

    def tables(self, stderr):
        """Titles of the tables at the end, with their rows."""
        for block in stderr.split("\n\n"):
            title, _, *rows = [*block.splitlines(), ""]
            yield title, [re.split(r" {2,}", row.strip()) for row in rows if row]

    def test_tables_say_what_the_records_say(self):
        def number(text):
            return None if text == "-" else float(text.split()[0])

        for kind in ("PID-GAP", "PCR-JUMP", "STAMP-LATE", "TEI", "constant", "PSI-TABLE"):
            *_, records = self.korva(planted(kind))
            tables, of = dict(self.tables(self.stderr)), collections.defaultdict(list)
            for record in records:
                of[record["record"]].append(record)
            for row, r in zip(tables["Indicators of ETSI TR 101 290"], of["indicator"], strict=True):
                first = r["first"] or {"pid": None, "packet": None, "time": None}
                self.assertEqual(row[:2] + [row[2].lower().replace(" ", "-")], [r["id"], r["name"], r["state"]])
                self.assertEqual((int(row[3]), number(row[5]), number(row[6])),
                                 (r["count"], first["pid"], first["packet"]))
                self.assertEqual((number(row[7]), number(row[8])), (r["worst"], r["limit"]))
                self.assertEqual(row[9:], [r["reason"]] if r["reason"] else [])
            for row, r in zip(tables["PIDs"], of["pid"], strict=True):
                self.assertEqual(row[0], f"{r['pid']} (0x{r['pid']:04X})")
                self.assertEqual((row[1], row[2]),
                                 (r["what"], ",".join(map(str, r["program_numbers"])) or "-"))
                counts = [r[key] for key in ("packets", "scrambled", "tei", "duplicates", "lost", "pcrs")]
                self.assertEqual([int(row[i]) for i in (3, 8, 9, 10, 11, 12)], counts)
                measures = (r["bitrate"], r["pcr_max_ms"], *(r["pts_delay_ms"] or [None] * 3), r["longest_gap_ms"])
                for i, value in zip((5, 13, 14, 15, 16, 17), measures, strict=True):
                    self.assertEqual(row[i] == "-", value is None)
                    self.assertAlmostEqual(number(row[i]) or 0, value or 0, delta=0.501 if i == 5 else 0.051)
            self.assertAlmostEqual(sum(float(row[4]) for row in tables["PIDs"]), 100, delta=0.01)
            told = {row[0]: int(row[2]) for row in tables.get("Findings that have no indicator", [])}
            counted = sum(r["count"] for r in of["indicator"]) + sum(told.values())
            self.assertEqual(counted, sum(of["report"][0]["findings"].values()))

    def test_page_stays_small(self):
        """Every PID, and each time with packets lost."""
        packets = ((n >> 8 & 31, n & 255, 0x10 | (n >> 13) * 5 & 15) for n in range(8 * 8192))
        pathlib.Path("in.ts").write_bytes(b"".join(bytes((0x47, *p)).ljust(188, b"\xff") for p in packets))
        subprocess.run([PROGRAM, "--audit", "-H", "--report=page", "in.ts"], capture_output=True)
        page = pathlib.Path("page").read_text()
        self.assertLess(len(page), 300_000)
        self.assertRegex(page, "(?s)FAIL 57338 findings.*37\u202f337 more findings, of kinds.*7792 more PIDs")

    def test_packets_of_all_sizes(self):
        damaged, records = planted("CC-LOSS"), {}
        packets = plant.packets_of(damaged)
        for size, front, behind in ((188, b"", b""), (192, bytes(4), b""), (204, b"", bytes(16)),
                                    (208, b"", bytes(20))):
            data = b"x" * 99 + b"".join(front + bytes(p) + behind for p in packets) + b"x" * 99
            *_, found = self.korva(data)
            self.assertEqual(found[0]["packet_size"], size)
            self.assertEqual([found[-1][f"{part}_bytes"] for part in ("leading", "lost", "tail")],
                             [99, 0, 99])
            loss = next(r for r in found if r.get("kind") == "CC-LOSS")
            self.assertEqual(loss["offset"], 99 + (loss["packet"] - 1) * size + len(front))
            self.assertEqual(found, self.korva(data, f"--packet-size={size}")[3])
            records[size] = [{k: v for k, v in r.items() if k not in ("offset", "packet_size", "bytes")}
                             for r in found]
        self.assertTrue(all(r == records[188] for r in records.values()))

    def test_part_of_a_file(self):
        lost = ("CC-LOSS", 725)
        for args, found, packets, end in (
                (("-r", "700", "-m", "26"), [lost], 26, "limit"), (("-m", "724"), [], 724, "limit"),
                (("-r", "725"), [], 1266, "complete")):
            got, report = self.findings(planted("CC-LOSS") + b"tail", *args)
            self.assertEqual((got, report["packets"], report["end"]), (found, packets, end))
            self.assertEqual(report["bytes"], 1990 * 188 + 4)
            self.assertEqual(report["tail_bytes"], 0 if "-m" in args else 4)

    def test_nothing_to_check(self):
        for data, *args in ((b"",), (bytes(9999),), (CLEAN, "-r", "1994"), (CLEAN[:187],),
                            (CLEAN, "--packet-size=204")):
            status, _, _, records = self.korva(data, *args)
            self.assertEqual((status, [r["record"] for r in records]), (2, ["header", "report"]))
            report = records[-1]
            self.assertEqual((report["verdict"], report["end"], report["leading_bytes"]),
                             ("nothing-checked", "failed", len(data)))
            self.assertEqual(self.verdict, "NOTHING CHECKED")

    def test_unreadable(self):
        for path, end in (("none.ts", "cannot-open"), (".", "read-failed")):
            for args, status in (((), 0), (("--exit-alerts",), 3), (("--exit-alerts=TEI",), 3)):
                run = subprocess.run([PROGRAM, "--audit", "--json=json", *args, path], capture_output=True)
                report = json.loads(pathlib.Path("json").read_text().splitlines()[-1])
                self.assertEqual((run.returncode, report["end"], report["verdict"]),
                                 (status, end, "nothing-checked"))

    def test_exit_alerts(self):
        for kinds, status in (("CC-LOSS", 3), ("TEI,CC-LOSS", 3), ("TEI,PSI-CRC", 0)):
            self.assertEqual(self.korva(planted("CC-LOSS"), f"--exit-alerts={kinds}")[0], status)
        self.assertEqual(self.korva(planted("PMT-CHANGE"), "--exit-alerts=PMT-CHANGE")[0], 3)

    def test_limits(self):
        for args, kinds in (((), ["PCR-GAP"]), (("--limit=pcr_ms=160",), []),
                            (("--limit=pcr_ms=159.999",), ["PCR-GAP"]), (("--limit=pcr_ms=0",), [])):
            found, _ = self.findings(planted("PCR-GAP"), *args)
            self.assertEqual([kind for kind, _ in found], kinds, args)

    def settings(self, text, *args):
        pathlib.Path("conf").write_text(f"vnt: {{ {text} }};")
        run = subprocess.run([PROGRAM, "--audit", "-C", "conf", "--json=json", *args, ROOT / "samples/clean.ts"],
                             capture_output=True, text=True)
        return run.returncode, run.stderr

    def test_settings(self):
        text = ('audit: { profile = "dvb"; source_tag = "seven"; packet_size = 188;'
                " limits: { pcr_ms = 70; nit_ms = 0.5; tdt_ms = 0; }; };")
        for args, profile, source, pcr_ms in (((), "dvb", "seven", 70), (("--audit=ott",), "ott", "seven", 70),
                                              (("-S", "x", "--limit", "pcr_ms=9"), "dvb", "x", 9)):
            self.assertEqual(self.settings(text, *args)[0], 0)
            header = json.loads(pathlib.Path("json").read_text().splitlines()[0])
            self.assertEqual((header["profile"], header["source"], header["packet_size"]), (profile, source, 188))
            self.assertEqual([header["limits"][n] for n in ("pcr_ms", "nit_ms", "tdt_ms", "pat_ms")],
                             [pcr_ms, 0.5, 0, 500])
        self.assertEqual(self.settings("stream_analyzer: { enabled = true; };")[0], 0)
        for text, said in (
                ("audit: {\n colour = 1; };", r"conf:2: \[colour\] is no key of vnt.audit"),
                ("audit: { limits: {\n\n pcr = 1; }; };", r"conf:3: unknown limit \[pcr\]"),
                ('audit: { limits: { pcr_ms = "x"; }; };', r"conf:1: \[x\] is no value for pcr_ms"),
                ("audit: { limits = 5; };", r"conf:1: \[limits\] is no group"),
                ('audit: { profile = "mpg"; };', r"conf:1: unknown profile \[mpg\]"),
                ("audit: { packet_size = 187; };", r"conf:1: \[187\] is no packet size"),
                ("audit: { source_tag = 7; };", r"conf:1: \[source_tag\] is no text"),
                ("auditt: { };", "there is no group vnt.audit")):
            status, stderr = self.settings(text)
            self.assertEqual(status, 2, text)
            self.assertRegex(stderr, said)

    def test_options_that_are_refused(self):
        for args, said in (
                (("--audit=mpg",), r"--audit: unknown profile \[mpg\]"), (("-A", "pcr_freq=9"), "-A belongs to"),
                (("-k", "all"), "-k belongs to"), (("-s", "9"), "-s belongs to"), (("-a", "onn"), "-a: "),
                (("-m", "5x"), "-m: "), (("-m", "-1"), "-m: "), (("-r", "0"), "-r: "), (("-r", ""), "-r: "),
                (("--limit=pcr=1",), "unknown limit"), (("--limit=pcr_ms",), "not of the form"),
                (("--limit=pcr_ms=-1",), "no value"), (("--limit=pcr_ms=nan",), "no value"),
                (("--limit=pcr_ms=1e99",), "no value"), (("--limit=pcr_ms=5ms",), "no value"),
                (("--packet-size=187",), "no packet size"), (("--packet-size=0",), "no packet size"),
                (("--exit-alerts=CC-BRK",), "unknown kind"), (("--exit-alerts=TEI,",), "unknown kind")):
            run = subprocess.run([PROGRAM, "--audit", *args, "x.ts"], capture_output=True, text=True)
            lines = [line for line in run.stderr.splitlines() if " EXIT(" not in line]
            self.assertEqual((run.returncode, len(lines), os.listdir()), (22, 1, []), args)
            self.assertRegex(lines[0], said)
        for word in ("--limit=pcr_ms=1", "--packet-size=188"):
            run = subprocess.run([PROGRAM, word, "x.ts"], capture_output=True, text=True)
            self.assertRegex(f"{run.returncode} {run.stderr}", "^22 .* needs --audit")

    def test_signals_end_a_run_that_waits(self):
        os.mkfifo("fifo")
        for number in (signal.SIGINT, signal.SIGTERM):
            run = subprocess.Popen([PROGRAM, "--audit", "--json=json", "fifo"], stderr=subprocess.PIPE, text=True)
            with open("fifo", "wb", buffering=0) as fifo:
                fifo.write(CLEAN + b"x")
                time.sleep(0.5)
                run.send_signal(number)
                stderr = run.communicate(timeout=20)[1]
            report = json.loads(pathlib.Path("json").read_text().splitlines()[-1])
            self.assertEqual((run.returncode, report["end"], report["verdict"], report["packets"]),
                             (0, "signal", "incomplete", 1993))
            self.assertRegex(stderr, r"INCOMPLETE 0 findings \(signal, 374685 bytes read\)")


signal.alarm(250)
unittest.main(argv=sys.argv[:1])
