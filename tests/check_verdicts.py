#!/usr/bin/env python3
"""Holds what builds and their people go by against the findings: check_verdicts.py ROOT PROGRAM

--junit, --baseline and --baseline-write, in both modes, and --clip.
"""

import datetime
import fcntl
import json
import os
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree

import jsonschema

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
sys.path.insert(0, str(ROOT / "samples"))
import plant  # noqa: E402

SCHEMA = jsonschema.Draft7Validator(json.loads((ROOT / "docs/korva.schema.json").read_text()))
DAMAGED, CLEAN = (str(ROOT / "samples" / name) for name in ("damaged.ts", "clean.ts"))
CHECKS = ("-A", "max_zreset_time=0", "-A", "pcr_freq=79")
MODES = (CHECKS, ("--audit",))
ENTRY = 'kind = "{}"; reason = "why"; until = "9999-12-31"; '


def section(head, body):
    """Packets of a section, from the one that begins it on."""
    data = bytes(head[:1]) + (0xB000 | len(head) - 1 + len(body) + 4).to_bytes(2, "big") + bytes(head[1:]) + body
    crc = 0xFFFFFFFF
    for bit in (byte >> shift & 1 for byte in data for shift in range(7, -1, -1)):
        crc = (crc << 1 ^ (0x04C11DB7 if crc >> 31 != bit else 0)) & 0xFFFFFFFF
    data = b"\0" + data + crc.to_bytes(4, "big")
    return [data[at : at + 184].ljust(184, b"\xff") for at in range(0, len(data), 184)]


def stream(packets, per_second, lost, size=188):
    """A PCR each 40 ms, a PAT and a PMT of two packets each second; packets are lost before some."""
    counters, out = {}, []
    video = b"\x1b\xe1\x01\xf0\0"
    tables = [(0, True, *section([0, 0, 1, 0xC1, 0, 0], b"\0\1\xf0\0"))]
    for n, part in enumerate(section([2, 0, 1, 0xC1, 0, 0], b"\xe1\x01\xf0\xc8" + b"\x80\xc6" + bytes(198) + video)):
        tables.append((0x1000, n == 0, part))
    for n in range(packets):
        at, extra = n % per_second, b""
        if at < len(tables):
            pid, starts, payload = tables[at]
        elif n % (per_second // 25) == per_second // 50:
            pid, starts, payload = 257, False, bytes(176)
            pcr = n * 90000 // per_second << 15
            extra = b"\7\x10" + pcr.to_bytes(6, "big")
        else:
            pid, starts, payload = 0x1FFF, False, bytes(184)
        counters[pid] = (counters.get(pid, 0) + (6 if pid == 257 and n in lost else 1)) % 16
        head = bytes((0x47, starts << 6 | pid >> 8, pid & 255, 0x10 | bool(extra) << 5 | counters[pid]))
        packet = head + extra + payload
        out.append(n.to_bytes(4, "big") * (size == 192) + packet + bytes(16) * (size == 204))
    return b"".join(out)


class Verdicts(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(dir.name)

    def korva(self, *args):
        """Status of a run, its records, and its cases by name: state, message, places, output."""
        for name in ("json", "junit"):
            pathlib.Path(name).unlink(missing_ok=True)
        run = subprocess.run([PROGRAM, "--json=json", "--junit=junit", *args], capture_output=True)
        self.stderr = run.stderr.decode(errors="replace")
        if not os.path.exists("junit"):
            return run.returncode, [], {}
        lint = subprocess.run(["xmllint", "--noout", "--schema", ROOT / "tests/junit.xsd", "junit"],
                              capture_output=True, text=True)
        self.assertEqual(lint.returncode, 0, lint.stderr)
        root = xml.etree.ElementTree.parse("junit").getroot()
        records = [json.loads(line) for line in pathlib.Path("json").read_text().splitlines()]
        for record in records:
            SCHEMA.validate(record)
        cases = {}
        for case in root.iter("testcase"):
            result = next((part for part in case if part.tag != "system-out"), None)
            cases[case.get("name")] = ("passed", "", "") if result is None else (
                result.tag, result.get("message"), result.text or "")
            cases[case.get("name")] += (case.findtext("system-out") or "",)
        states = [case[0] for case in cases.values()]
        for suite in (root, root[0]):
            self.assertEqual([int(suite.get(n)) for n in ("tests", "failures", "errors")],
                             [len(states), states.count("failure"), states.count("error")])
        return run.returncode, records, cases

    def states(self, cases, state):
        return {name for name, case in cases.items() if case[0] == state}

    def baseline(self, *entries):
        pathlib.Path("base").write_text("allowed = (\n" + ",\n".join(f"{{{e}}}" for e in entries) + ");")
        return "--baseline=base"

    def test_cases_are_what_json_tells(self):
        for name, data in plant.PLANTS.items():
            pathlib.Path("in.ts").write_bytes(b"".join(data(plant.packets_of(plant.CLEAN))))
            _, records, cases = self.korva("--audit", "in.ts")
            self.assertEqual(cases["capture"][0], "passed")
            failed = {f["kind"] for f in records if f.get("severity") == "fail"}
            told = {kind for case in self.states(cases, "failure")
                    for kind in re.findall(r" packet \d+: ([A-Z-]+),", cases[case][2])}
            self.assertEqual(told, failed, name)
            told = re.findall(r" packet \d+: ([A-Z-]+),", "".join(case[2] + case[3] for case in cases.values()))
            self.assertEqual({*told}, {f["kind"] for f in records if f["record"] == "finding"}, name)
            for i in (r for r in records if r["record"] == "indicator"):
                case = cases.pop(f"{i['id']} {i['name']}")
                want = {"fail": "failure", "not-measurable": "skipped", "off": "skipped"}
                self.assertEqual(case[0], want.get(i["state"], "passed"), i)
                self.assertIn(i["reason"] or "", case[1])
        _, records, cases = self.korva(*CHECKS, DAMAGED)
        for check in records[-1]["checks"]:
            state, message, places, _ = cases[check["check"]]
            count = records[-1]["alerts"][check["check"]]
            self.assertEqual(state, "failure" if count else "passed" if check["state"] == "on" else "skipped")
            alerts = [a for a in records if a.get("kind") == check["check"]][:10]
            self.assertEqual(re.findall(r"^(?:0:00:)?(\S+).*? packet (\d+)", places, re.M),
                             [("-" if a["stream_time"] is None else f"{a['stream_time']:06.3f}", str(a["packet"]))
                              for a in alerts])
            self.assertTrue(message.startswith(f"{count} alert") or not count)

    def test_nothing_is_green_where_nothing_was_looked_at(self):
        pathlib.Path("none.ts").write_bytes(b"")
        pathlib.Path("null.ts").write_bytes((b"\x47\x1f\xff\x10" + bytes(184)) * 100)
        pathlib.Path("lost.ts").write_bytes(pathlib.Path(DAMAGED).read_bytes() + bytes(400))
        for mode, name, state, why in (
                (CHECKS, "none.ts", "failure", "no packet"), (("--audit",), "none.ts", "failure", "NOTHING CHECKED"),
                (CHECKS, "null.ts", "failure", "no PAT"), (CHECKS, "lost.ts", "failure", "without sync byte"),
                (("--audit",), "gone.ts", "error", "cannot be opened"), (CHECKS, ".", "error", "Is a directory"),
                (("--audit",), ".", "error", "cannot be read")):
            _, _, cases = self.korva(*mode, name)
            self.assertEqual(cases["capture"][0], state, (name, cases))
            self.assertRegex(cases["capture"][1], why)
        _, _, cases = self.korva(*CHECKS, "null.ts")
        self.assertEqual({cases[n][:2] for n in cases if n != "capture"} - {("skipped", "the check is off")},
                         {("skipped", "no PAT")})
        _, _, cases = self.korva("--audit", "null.ts")
        self.assertLessEqual({"2.5 PTS_error", "STAMP-LATE", "RATE-LOSS"}, self.states(cases, "skipped"))

    def test_foreign_text(self):
        tag = "a\x1b]<b>\"&'\n\udcff\uffff]]>"
        self.korva("-S", tag, DAMAGED)
        suite = xml.etree.ElementTree.parse("junit").getroot()[0]
        self.assertEqual(suite.get("name"), "a\ufffd]<b>\"&'\ufffd\ufffd\ufffd]]>")

    def test_what_is_allowed(self):
        for mode in MODES:
            self.assertEqual(self.korva(*mode, "--exit-alerts", "--baseline-write=new", DAMAGED)[0], 3)
            status, records, cases = self.korva(*mode, "--exit-alerts", "--baseline=new", "--report=page", DAMAGED)
            found = [r for r in records if r["record"] in ("alert", "finding")]
            self.assertEqual((status, self.states(cases, "failure")), (0, set()))
            self.assertTrue(found and all("allowed" in r for r in found))
            self.assertEqual(records[-1]["baseline"],
                             {"file": "new", "allowed": len(found), "unused": [], "expired": []})
            self.assertIn('class="verdict good"', pathlib.Path("page").read_text())
            until = datetime.date.fromisoformat(found[0]["allowed"]["until"])
            self.assertEqual((until - datetime.datetime.now(datetime.timezone.utc).date()).days, 90)
            # One less of the first kind is one that fails.
            text = pathlib.Path("new").read_text()
            fewer = re.sub(r"most = (\d+)", lambda m: f"most = {max(int(m[1]) - 1, 1)}", text)
            fewer = fewer.replace('"PID-GAP"', '"CC-ORDER"')
            pathlib.Path("new").write_text(fewer)
            status, records, cases = self.korva(*mode, "--exit-alerts", "--baseline=new", DAMAGED)
            self.assertEqual(status, 3)
            self.assertTrue(self.states(cases, "failure"))
            # Their reasons and days are kept in a new one.
            again = self.korva(*mode, "--exit-alerts", "--baseline=new", "--baseline-write=newer", DAMAGED)
            newer = pathlib.Path("newer").read_text().replace("found on", '\\"known\\" since')
            pathlib.Path("new").write_text(newer.replace(str(until), "2999-01-02"))
            self.korva(*mode, "--baseline=new", "--baseline-write=newer", DAMAGED)
            self.assertEqual(pathlib.Path("newer").read_text(), pathlib.Path("new").read_text())
            self.assertEqual(again[0], 3)

    def test_what_is_only_counted_is_not_allowed(self):
        packets = (bytes([0x47, 0x80 | pid >> 8, pid & 255, 0x10]) + bytes(184) for pid in range(32, 8000))
        pathlib.Path("in.ts").write_bytes(b"".join(packets) * 3)  # TEI, more often than is told one by one
        for option, status in (("--baseline-write=new", 0), ("--exit-alerts", 3), ("--exit-alerts=TEI", 3),
                               ("--exit-alerts=CC-LOSS", 0)):
            allow = ["--baseline=new"] if os.path.exists("new") else []
            run = subprocess.run([PROGRAM, "--audit", option, *allow, "in.ts"], stderr=subprocess.DEVNULL)
            self.assertEqual(run.returncode, status, option)

    def test_entries(self):
        loss = ENTRY.format("CC-LOSS")  # one: at 3.006 s on PID 257 of program 1
        for entry, passes in ((loss, True), (loss + "pid = 0x101; program_number = 1; most = 1L;", True),
                              (loss + "pid = 258;", False), (loss + "program_number = 2;", False),
                              (loss + 'from = "0:03"; to = "0:00:03.007";', True), (loss + "to = 3.0;", False),
                              (loss + "from = 4;", False), (loss + 'from = "1:00:00.5";', False),
                              (loss.replace("9999", "2020"), False)):
            args = ("--audit", "--exit-alerts=CC-LOSS", self.baseline(entry), DAMAGED)
            status, records, cases = self.korva(*args)
            self.assertEqual((status, cases["1.4 Continuity_count_error"][0]),
                             (0, "passed") if passes else (3, "failure"), entry)
            rest = records[-1]["baseline"]
            want = (1, 0, 0) if passes else (0, 0, 1) if "2020" in entry else (0, 1, 0)
            self.assertEqual((rest["allowed"], len(rest["unused"]), len(rest["expired"])), want)
            self.assertEqual("base:2: " in self.stderr, not passes)
        # Those of the other analyzer are passed over; stream time and program are known in both.
        lost = ENTRY.format("CC-BRK") + "pid = 257; program_number = 1; from = 3; to = 3.01;"
        _, records, cases = self.korva(*CHECKS, self.baseline(loss, lost), DAMAGED)
        self.assertEqual((records[-1]["baseline"]["allowed"], records[-1]["baseline"]["unused"]), (1, []))
        self.assertEqual([a["packet"] for a in records if "allowed" in a], [1491])
        self.assertTrue(cases["CC-BRK"][1].startswith("1 alert,"))
        args = (*CHECKS, "--exit-alerts=CC-BRK", self.baseline(lost, ENTRY.format("CC-BRK") + "pid = 514;"), DAMAGED)
        self.assertEqual(subprocess.run([PROGRAM, *args], capture_output=True).returncode, 0)

    def clips(self, *args, **options):
        """Status, and the records of the clips of a run, each held against the files."""
        os.makedirs("old", exist_ok=True)
        run = subprocess.run([PROGRAM, "--audit", *(f"--limit={table}_ms=0" for table in ("pat", "pmt", "pts")),
                              "--clip=clips", "--json=json", *args, "in.ts"],
                             capture_output=True, text=True, **options)
        self.stderr = run.stderr
        records = [json.loads(line) for line in pathlib.Path("json").read_text().splitlines()]
        for record in records:
            SCHEMA.validate(record)
        clips = [r for r in records if r["record"] == "clip"]
        self.assertEqual(sorted(os.path.basename(c["file"]) for c in clips), sorted(os.listdir("clips")))
        data = pathlib.Path("in.ts").read_bytes()
        for clip in clips:
            self.assertTrue(pathlib.Path(clip["file"]).read_bytes()[clip["table_bytes"]:]
                            == data[clip["offset"]:][:clip["bytes"]])
        return run.returncode, clips, data

    def test_clips(self):
        lost = [n * 1000 + 20 for n in (7, 10, 19)]  # the first two are less than 4 s apart
        for size in (188, 192, 204):
            pathlib.Path("in.ts").write_bytes(stream(25000, 1000, lost, size))
            status, clips, data = self.clips()
            self.assertEqual((status, [c["findings"] for c in clips]), (0, [2, 1]), self.stderr)
            for clip, first, last in zip(clips, (7020, 19020), (10020, 19020), strict=True):
                begin, end = clip["offset"] / size, (clip["offset"] + clip["bytes"]) / size
                for place, want, slack in ((first - 2000, begin, (-60, 0)), (last + 2000, end, (0, 60))):
                    self.assertEqual(want % 1, 0)
                    self.assertTrue(slack[0] <= want - place <= slack[1], (want, place))
                # Before it the last PAT and both packets of the last PMT.
                tables = [n for n in range(int(begin)) if n % 1000 < 3][-3:]
                self.assertEqual(pathlib.Path(clip["file"]).read_bytes()[:clip["table_bytes"]],
                                 b"".join(data[n * size : (n + 1) * size] for n in tables))
                self.assertEqual(os.path.basename(clip["file"]), {
                    7020: "00h00m07.000s-CC-LOSS-PID257+1.ts", 19020: "00h00m19.000s-CC-LOSS-PID257.ts"}[first])
            shutil.rmtree("clips")

    def test_many_clips(self):
        pathlib.Path("in.ts").write_bytes(stream(35000, 100, range(1006, 35000, 600)))
        status, clips, _ = self.clips()
        self.assertEqual((status, len(clips)), (0, 50))
        self.assertRegex(self.stderr, r"No clip of 7 places more")
        shutil.rmtree("clips")
        # One finding after the other: pieces of a minute at most, which hold them all.
        pathlib.Path("in.ts").write_bytes(stream(35000, 100, range(1006, 35000, 300)))
        _, clips, _ = self.clips()
        self.assertEqual(sum(clip["findings"] for clip in clips), 114)
        self.assertTrue(all(56 < clip["to"] - clip["from"] <= 60 for clip in clips[:-1]), clips)
        self.assertFalse(any(clip["cut_off"] for clip in clips))

    def test_clips_that_cannot_be(self):
        data = stream(12000, 1000, [7020])
        pathlib.Path("in.ts").write_bytes(data)
        full = dict(preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (200_000, 200_000)))
        os.mkdir("clips")
        status, clips, _ = self.clips(**full)
        self.assertEqual((status, clips), (2, []))
        self.assertIn("File too large", self.stderr)
        # A capture that another program writes to meanwhile.
        os.mkfifo("fifo")
        with subprocess.Popen([PROGRAM, "--audit", "--clip=clips", "--json=fifo", "in.ts"],
                              stderr=subprocess.PIPE, text=True) as run:
            with open("fifo", "rb") as reader:
                fcntl.fcntl(reader, fcntl.F_SETPIPE_SZ, 4096)  # less than there is to be read
                os.utime("in.ts", (1, 1))
                reader.read()
            self.assertIn("has changed since it was judged", run.stderr.read())
        self.assertEqual((run.returncode, os.listdir("clips")), (2, []))
        for args, status, said in (
                (("--audit", "--clip=in.ts", "in.ts"), 2, "Not a directory"), (("--clip=clips", "in.ts"), 22, "needs --audit"),
                (("--audit", "--clip=x", "fifo"), 2, "no regular file"), (("--audit", "--clip=no/x", "in.ts"), 2, "No such"),
                (("--audit", "--clip=clips", CLEAN), 0, "No clips: there are no findings")):
            run = subprocess.run([PROGRAM, *args], capture_output=True, text=True)
            self.assertEqual(run.returncode, status)
            self.assertIn(said, run.stderr)

    def test_the_job_of_the_documents(self):
        os.mkdir("captures")
        for path in (CLEAN, DAMAGED):
            shutil.copy(path, "captures")
        os.symlink(PROGRAM, "korva")
        where = {**os.environ, "PATH": f"{os.getcwd()}:{os.environ['PATH']}"}
        text = (ROOT / "docs/ci.md").read_text()
        self.assertEqual(text.count(" sh ci/captures.sh captures/*.ts\n"), 3)
        shown = re.search(r"ci/captures.sh captures/\*.ts\n    (.*?)\n    \$", text, re.S)[1].replace("\n    ", "\n")
        write = re.search(r"\$ (korva .*--baseline-write.*)", text)[1]
        for allow, status, says in (("true", 3, shown), (write, 0, "3 findings allowed")):
            subprocess.run(["sh", "-c", allow], env=where, stderr=subprocess.DEVNULL, check=True)
            job = subprocess.run(["sh", "-c", 'sh "$0" captures/*.ts', ROOT / "examples/captures.sh"],
                                 env=where, capture_output=True, text=True)
            self.assertEqual((job.returncode, job.stderr), (status, ""))
            self.assertIn(says, job.stdout)
            left = {f"{name}.ts.{what}" for name in ("clean", "damaged") for what in ("clips", "html", "log", "xml")}
            self.assertEqual({*os.listdir("artifacts")}, left)

    def test_nothing_misspelt_is_accepted(self):
        whole = ENTRY.format("CC-LOSS")
        pathlib.Path("part").write_text("\n\nallowed = ( 1 );")
        for text, said in (
                ('@include "part"', "part:3: an entry is a group"),
                ("allowed = (\n{ " + whole + "pids = 1; } );", r"base:2: \[pids\] is no key"),
                ("allowed = ( { " + whole.replace("CC-LOSS", "CC-LOST") + "} );", "is no kind"),
                ("allowed = ( { " + ENTRY.format("IDLE") + "} );", "is no kind"),
                ("allowed = ( { kind = \"TEI\"; reason = \"x\"; } );", "needs kind, reason and until"),
                ("allowed = ( { " + whole.replace("9999-12-31", "2026-02-30") + "} );", r"\[until\] is no day"),
                ("allowed = ( { " + whole.replace("9999-12-31", "2026-2-03") + "} );", r"\[until\] is no day"),
                ("allowed = ( { " + whole + "pid = 8192; } );", r"\[pid\] is no number"),
                ("allowed = ( { " + whole + "most = 0; } );", r"\[most\] is no number"),
                ("allowed = ( { " + whole + "most = 1.5; } );", r"\[most\] is no number"),
                ("allowed = ( { " + whole + 'from = "1:xx"; } );', r"\[from\] is no time"),
                ("allowed = ( { " + whole + "from = 2; to = 1; } );", "from is behind to"),
                ("allowed = ( { " + whole.replace("why", "a\\nb") + "} );", r"\[reason\] has more than one line"),
                ("allowed = { };", "is no list"), ("allow = ();", "is no key of a baseline"), ("", "there is no list"),
                ("allowed = ( 1 );", "an entry is a group"), ("allowed = (\n\n{ kind = };", "base:3: syntax error")):
            pathlib.Path("base").write_text(text)
            for mode in MODES:
                self.assertEqual(self.korva(*mode, "--baseline=base", CLEAN)[0], 2, text)
                self.assertRegex(self.stderr, said)
                told = [line for line in self.stderr.splitlines() if "korva (" not in line]
                self.assertEqual(len(told), 1, told)
        pathlib.Path("base").write_text("allowed = ();")
        for args, said in ((("--baseline=none", CLEAN), "No such file"), (("--baseline=.", CLEAN), "it is no file"),
                           (("--baseline=base", "--junit=./base", CLEAN), "it is the file of --baseline"),
                           (("--baseline-write=x", "--junit=x", CLEAN), "it is the file of --junit")):
            self.assertEqual(self.korva(*args)[0], 2)
            self.assertIn(said, self.stderr)
        self.assertEqual(pathlib.Path("base").read_text(), "allowed = ();")


unittest.main(argv=sys.argv[:1])
