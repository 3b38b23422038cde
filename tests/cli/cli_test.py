#!/usr/bin/env python3
"""Holds whole runs of the program against the tables in expected/: ROOT PROGRAM [FAULTS]

FAULTS is the library that lets calls of the C library fail (support/faults_preload.cpp).
"""

import contextlib
import fcntl
import json
import os
import pathlib
import pty
import re
import shlex
import signal
import subprocess
import sys
import tempfile
import termios
import time
import types
import unittest

ROOT, PROGRAM, *FAULTS = (pathlib.Path(arg).resolve() for arg in sys.argv[1:])
SAMPLES = ROOT / "samples"
CLEAN, DAMAGED = ((SAMPLES / name).read_bytes() for name in ("clean.ts", "damaged.ts"))
KEPT = [name for name in os.environ if name == "PATH" or name.endswith("SAN_OPTIONS")]
ENV = {"TZ": "UTC", **{name: os.environ[name] for name in KEPT}}
FIELDS = re.compile(r"^\t(.*?: ) *(.*)$", re.M)
OF_A_FILE = {"skipped packets: ": "9000", "NDAT p-count: ": "10000", "PTS/DTS delta: ": "500 (ms)"}
LOST_OUT = "korva: standard output could not be written in full\n"
MASKS = (  # what differs from run to run
    (r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} UTC ", "<time> "),
    (r"^<time> \d+  ", "<time> <pid>  "),
    (r"( STARTING| EXIT\(\d+\))\. PID=\d+$", r"\1. PID=<pid>"),
    (r"\(0x[0-9a-f]{6,16}\)", "(<addr>)"),
    (r"\(nuvreck\) [0-9a-f]{8}; built", "(nuvreck) <checksum>; built"),
    (re.escape(str(PROGRAM)), "korva"),
)


def masked(output):
    text = output.decode()
    for pattern, words in MASKS:
        text = re.sub(pattern, words, text, flags=re.M)
    return text


def run(*command, env=(), **options):
    """Status and both masked outputs of a program."""
    env = {**ENV, **dict(env)}
    done = subprocess.run(command, capture_output=True, timeout=60, env=env, **options)
    return done.returncode, masked(done.stdout), masked(done.stderr)


def korva(*args, **options):
    return run(PROGRAM, *args, **options)


def failing(call, number):
    """What makes a call of the C library fail. In LD_PRELOAD, a path with a blank would be two."""
    library = FAULTS[0]
    where = {"LD_PRELOAD": library.name, "LD_LIBRARY_PATH": str(library.parent)}
    return {**where, f"FAIL_{call}": str(number)}


def expected(name):
    return (ROOT / "tests/cli/expected" / name).read_text()


def table(name):
    """Its cases, from "$ arguments = status" on; "|" stands between arguments of the same result.
    Settings for a.cfg are a line in braces, or one of a whole file. {x62} is so many letters x."""
    text = re.sub(r"\{x(\d+)\}", lambda m: "x" * int(m[1]), expected(name))
    cases = []
    for line in text.splitlines():
        if case := re.fullmatch(r"\$(.*) = (\d+) ?(.*)", line):
            status, lines = int(case[2]), [case[3]] if case[3] else []
            group = [
                types.SimpleNamespace(args=args.split(), settings="", status=status, lines=lines)
                for args in case[1].split("|")]
            cases += group
        elif line.startswith(("{", "vnt:")):
            for case in group:
                case.settings = section("true;" + line[1:-1]) if line[0] == "{" else line
        elif line and not line.startswith("#"):
            lines.append(line)
    return cases


def section(settings):
    return f"vnt: {{ stream_analyzer: {{ enabled = {settings} }}; }};\n"


def changes(dump, default):
    """The settings that differ, and the labels of those that are not shown."""
    fields = dict(FIELDS.findall(dump))
    changed = [label + value for label, value in fields.items() if default.get(label) != value]
    return changed + [label.strip() for label in default if label not in fields]


def small_capture(size):
    """Groups of PAT, PMT and three video packets, each of which can be understood by itself."""
    group = b"".join(CLEAN[n * 188 : (n + 1) * 188] for n in (1, 2, 5, 5, 5))
    stream = bytearray(group * (size // 5))
    for counter, at in enumerate(at for at in range(0, len(stream), 188) if at // 188 % 5 > 1):
        stream[at + 3] = stream[at + 3] & 0xF0 | counter & 15
    return stream


class Runs(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.addCleanup(os.chdir, os.getcwd())
        os.chdir(dir.name)

    def test_samples(self):
        args = ("-A", "max_zreset_time=0", "-A", "pcr_delta=840", "-A", "pdts_delta=181")
        terse, human = expected("damaged.out"), expected("damaged.err")
        hushed = re.sub(r".*  ALERT .*\n", "", human)
        for options, out, err in (
            ((), "\n", human), (("-a", "on"), terse, human),
            (("-H",), "\n", hushed), (("-H", "-a", "on"), terse, hushed),
        ):
            said = korva(*options, *args, "damaged.ts", cwd=SAMPLES)
            self.assertEqual(said, (0, out, err))

    def run_case(self, case, *more, **options):
        """The run, with settings files: a.cfg as the case gives it, and two others."""
        for name, text in {"a.cfg": case.settings, "b.cfg": section('true; source_tag = "b";'),
                           "off.cfg": section("false; max_skipped_pkts = 10;")}.items():
            pathlib.Path(name).write_text(text)
        return korva(*more, *case.args, **options)

    # The capture never exists: a run ends when it cannot be opened, with all settings printed.
    def test_settings(self):
        end, default = korva("none.ts")[2], expected("settings.txt")
        for case in table("changes.txt"):
            case.args += "none.ts", "ignored.ts"
            status, _, err = self.run_case(case, env={"SHOW_VNT_CFG": ""})
            reads_file = any(re.search(r"\b[ab].cfg", arg) for arg in case.args)
            was = dict(FIELDS.findall(default)) | (OF_A_FILE if reads_file else {})
            with self.subTest(case.args):
                wanted = "; ".join(case.lines).split("; ") if case.lines else []
                self.assertEqual((status, changes(err, was)), (case.status, wanted))
                self.assertTrue(err.startswith("analyzer: \n\tsource: "), err)
                said_last = end.replace("EXIT(0)", f"EXIT({case.status})")
                self.assertTrue(err.endswith("\n" + said_last), err)
        _, _, err = korva("none.ts", env={"SHOW_VNT_CFG": "1"})
        self.assertEqual(err, default + end)

    def test_options(self):
        usage = expected("usage.txt")
        app = usage.splitlines()[0]
        for case in table("options.txt"):
            end = f"<time> (NRM)  FSCN  {app} EXIT({case.status}). PID=<pid>\n"
            text = "".join(line + "\n" for line in case.lines)
            if "{" not in text:
                text += end
            text = re.sub(r" ?{usage}\n", "\n" + usage, text).lstrip().replace("{app}", app)
            with self.subTest(case.args):
                self.assertEqual(self.run_case(case), (case.status, "", text))
        no_path = "Expecting argument after the options.\n" + usage
        self.assertEqual(korva(""), (2, "", no_path))

    def test_input(self):
        ten, many = small_capture(10), small_capture(250)
        idle = (b"\x47\x1f\xff\x10" + bytes(184)) * 5001
        for name, content in {
            "ten.ts": ten, "many.ts": many, "one.ts": ten[:188], "two.ts": ten[: 2 * 188],
            "partial.ts": ten[: 5 * 188 + 100], "short.ts": ten[:187], "empty.ts": b"",
            "sync8.ts": ten[: 7 * 188] + b"H" + ten[7 * 188 + 1 :], "idle.ts": idle,
            "nearly_idle.ts": idle[2 * 188 :], "clean.ts": CLEAN, "damaged.ts": DAMAGED,
            "cut.ts": DAMAGED[:18800] + bytes(188),
        }.items():
            pathlib.Path(name).write_bytes(content)
        os.link("clean.ts", "link.ts")
        with open("far.ts", "wb") as far:  # the first packet behind 4 GiB
            far.seek(22_845_571 * 188)
            far.write(ten)
        told = re.compile(r"^.*(?:\(ERR\)|Moved|Unknown|Cannot).*$", re.M)
        counts = re.compile(r"(\d+/\d+) bytes/records read from \[|\tProcessed/analyzed +(.*)")
        for case in table("input.txt"):
            status, out, err = korva("-v", *case.args, input=many)
            read, analyzed = map("".join, zip(*counts.findall(err))) if counts.search(err) else "--"
            with self.subTest(case.args):
                wanted = " ".join([f"{read} {analyzed}", *told.findall(err)])
                self.assertEqual((status, wanted), (case.status, " ".join(case.lines)))
                self.assertEqual(out, "\n" if "Processed/" in err else "")

    def start(self, *args):
        """A run that reads a pipe, and the pipe's other end."""
        os.mkfifo("pipe")
        command = [PROGRAM, "-a", "on", "-S", "x", *args, "pipe"]
        program = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=ENV)
        self.addCleanup(program.kill)
        return program, open("pipe", "wb", buffering=0)

    # A jump to 0 is a reset if it comes long enough after the one before: here the writer waits.
    def test_counter_restarted_after_a_pause(self):
        program, pipe = self.start("-A", "max_zreset_time=300")
        pipe.write(small_capture(10) + small_capture(90))
        first = masked(program.stdout.readline())
        self.assertEqual(first, "<time> <pid>  ALERT CC-BRK x 257 0 5 0 0:0[13]\n")
        time.sleep(0.4)
        pipe.write(small_capture(10))
        pipe.close()
        reset = masked(program.communicate()[0])
        found = re.match(r"<time> <pid>  ALERT CC-RST x 257 0 5 0 (\d+) 0:0\[103\]\n", reset)
        self.assertTrue(found and 400 <= int(found[1]) < 100_000, reset)

    # After a signal the rest is read and counted, but not analyzed; a second one changes nothing.
    def test_signals(self):
        first = small_capture(100)
        first[99 * 188 + 3] ^= 2  # the alert shows that the first block was analyzed
        program, pipe = self.start("-v", "-A", "max_zreset_time=0")
        pipe.write(first)
        alert = masked(program.stdout.readline())
        self.assertEqual(alert, "<time> <pid>  ALERT CC-BRK x 257 0 10 9 0:0[100]\n")
        program.send_signal(signal.SIGINT)
        handled = program.stdout.readline() + program.stdout.readline()
        self.assertEqual(handled, b"\nSIG(2)\n")
        # A sanitizer may hold a signal that comes while it handles another back till the next read.
        program.send_signal(signal.SIGTERM)
        pipe.write(small_capture(150))
        pipe.close()
        out, err = (masked(output) for output in program.communicate())
        silent = "<time> <pid>  ALERT PID-NDAT x {} 0:0[100]\n"
        self.assertEqual(out, f"\nSIG(15)\n{silent}{silent}\n".format("258 0 1", "259 0 2"))
        self.assertEqual(program.returncode, 0)
        self.assertIn("47000/100 bytes/records read from [pipe]\n", err)
        self.assertIn("\tProcessed/analyzed             100/60\n", err)

    # A lost output costs no more than that output; standard error has a line about it at its end.
    def test_closed_and_full_standard_streams(self):
        args = "-a on -A max_zreset_time=0".split()
        command = "exec " + shlex.join(map(str, [PROGRAM, *args, SAMPLES / "damaged.ts"]))
        _, out, err = run("sh", "-c", command)
        self.assertEqual((out.count("ALERT"), err.count(" ALERT ")), (4, 4))
        for redirection, wanted in {
            "<&-": (0, out, err), ">&-": (0, "", err), "2>&-": (0, out, ""),
            "<&- >&- 2>&-": (0, "", ""),
            "2>/dev/full": (0, out, ""), ">/dev/full": (0, "", err + LOST_OUT),
        }.items():
            self.assertEqual(run("sh", "-c", command + " " + redirection), wanted, redirection)

        # The file must not grow. (The thread sanitizer writes a file of its own at the start.)
        if FAULTS:
            said = run("sh", "-c", f"ulimit -f 0; {command} >full")
            self.assertEqual(said, (0, "", err + LOST_OUT))

        # A reader that has gone ends the program the usual way, at its first line.
        gone = f"set -o pipefail; {{ sleep 0.2; {command}; }} | true"
        status, _, err = run("bash", "-c", gone)
        self.assertEqual((status, err.count(" ALERT ")), (128 + signal.SIGPIPE, 1))

    # A name can be anything, and must not command the terminal; files and pipes get it as it is.
    def test_names_on_a_terminal(self):
        name = b"a\x1b]0;t\x07\r\xc2\x9b\xe9\xc3\xa9\x7f.ts"
        shown = r"a\x1b]0;t\x07\x0d\xc2\x9b\xe9{}\x7f.ts".format("\u00e9")
        os.symlink(SAMPLES / "damaged.ts", name)
        command = [PROGRAM, "-v", "-a", "on", name]
        piped = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=ENV)
        master, slave = pty.openpty()
        with subprocess.Popen(command, stdout=slave, stderr=slave, env=ENV) as program:
            os.close(slave)
            text = b""
            with contextlib.suppress(OSError):  # the other end is closed
                while part := os.read(master, 65536):
                    text += part
        os.close(master)
        text = masked(text.replace(b"\r\n", b"\n"))
        self.assertEqual(piped.stdout.count(name), text.count(shown))
        self.assertNotRegex(text, "[^\t\n -~\u00e9]")

    def cut_while_analyzed(self, size, **options):
        """Cuts a file whose alerts nobody reads, so that the run waits, and lets it go on."""
        broken = CLEAN[188:564] + CLEAN[5 * 188 : 6 * 188] * 150_000
        pathlib.Path("cut.ts").write_bytes(broken)
        command = [PROGRAM, "-v", "-H", "-a", "on", "--json=cut.json", "cut.ts"]
        pipes = dict.fromkeys(("stdout", "stderr"), subprocess.PIPE)
        program = subprocess.Popen(command, env={**ENV, **options}, **pipes)
        self.addCleanup(program.kill)
        while int.from_bytes(fcntl.ioctl(program.stdout, termios.FIONREAD, bytes(4)),
                             sys.byteorder) < 60_000:  # of 64 KiB
            time.sleep(0.01)
        os.truncate("cut.ts", size)
        out, err = program.communicate()
        found = re.search(rb"INF.*  (\d+)/(\d+) bytes/records", err)
        self.assertNotIn(b"(ERR)", err)
        self.assertEqual((program.returncode, int(found[1])), (0, 188 * int(found[2])))
        self.assertEqual(out.count(b"ALERT CC-BRK"), int(found[2]) - 3)
        return int(found[2]), json.loads(pathlib.Path("cut.json").read_text().splitlines()[-1])

    # As a read that ends there: in what is still to come, or at once.
    def test_file_cut_while_it_is_analyzed(self):
        for size, packets in (20_000_077, range(106_383, 106_384)), (0, range(500, 3000)):
            records, report = self.cut_while_analyzed(size)
            self.assertEqual((records in packets, report["end"]), (True, "complete"), records)

    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_disk_that_fails_while_the_file_is_analyzed(self):
        records, report = self.cut_while_analyzed(10_000_000, **failing("READ", 1))
        self.assertIn(records, range(50_000, 53_192))
        self.assertEqual((report["end"], report["records"]), ("read-failed", records))

    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_read_error_ends_the_run_like_the_end_of_the_file(self):
        # The end of a mapped file is read: what is behind the last whole block.
        status, _, err = korva("-v", SAMPLES / "damaged.ts", env=failing("READ", 1))
        self.assertEqual(status, 0)
        self.assertRegex(err, r"(?s)357200/1900 bytes/records read from.*tsan_stats END")

    # Each allocation in turn, and more than the program makes; the PMT and the PAT change.
    @unittest.skipUnless(FAULTS, "a sanitizer has its own calls of the C library")
    def test_every_refused_allocation_is_survived(self):
        new_pat = CLEAN[188:376].replace(b"\xf0\1", b"\xf0\2")
        pathlib.Path("s.ts").write_bytes(DAMAGED[: 1000 * 188] + new_pat)
        refused = set()
        for n in range(1, 100):
            status, _, err = korva("s.ts", env=failing("CALLOC", n))
            refused.update(re.findall(r"(\w+): calloc\(\d+, \d+\) ERROR\(12\): Cannot all", err))
            wanted = (12, False) if "tsan_init: calloc(" in err else (0, True)
            self.assertEqual((status, "tsan_stats END" in err), wanted)
        self.assertEqual(refused, {"tsan_init", "dup_psi_sec", "another_PAT", "merge_PATs",
                                   "open_ctxt", "update_PMT"})


signal.alarm(200)  # a program that does not write would be waited for
unittest.main(argv=sys.argv[:1])
