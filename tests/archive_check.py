#!/usr/bin/env python3
"""Runs korva-archive over captures of all kinds, killed in the middle and over ssh: ROOT PROGRAM"""

import collections
import contextlib
import csv
import fcntl
import html.parser
import json
import os
import pathlib
import re
import shlex
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
SSHD = shutil.which("sshd", path=os.defpath + ":/usr/sbin:/sbin")
CLEAN, DAMAGED = (
    (ROOT / "samples" / name).read_bytes()[: 1000 * 188] for name in ("clean.ts", "damaged.ts"))
# A PAT and a PMT that end the run.
NO_PROGRAM = bytes.fromhex("474000100000b0090001c1000000000000").ljust(188, b"\xff")
NO_PCR = DAMAGED[376:389] + b"\xe0\0" + DAMAGED[391:564]
FOUND = {"CC-BRK": 1, "PMT-DIFF": 1, "PID-NDAT": 1}
ORDER = ["aborted", "not checked", "unreadable", "failed", "stopped", "gone", "empty", "nothing checked", "skipped"]
UNCHECKED = {"not checked", "unreadable", "failed", "gone", "empty", "nothing checked", "skipped"}
KINDS = (  # result, alerts, content or what makes it
    ("clean", {}, CLEAN),
    ("alerts", FOUND, DAMAGED), ("alerts", FOUND, DAMAGED[:-100]),
    ("truncated", {}, CLEAN[:-100]),
    ("empty", {}, b""), ("empty", {}, b"G" * 187),
    ("nothing checked", {}, CLEAN[:188] * 50),
    ("unreadable", {}, lambda path: path.symlink_to("gone")),
    ("aborted", {}, CLEAN[:188] + NO_PROGRAM),
    ("aborted", {"CC-BRK": 1, "PMT-DIFF": 2}, DAMAGED + NO_PCR),
    ("stopped", {"OUT-OF-SYNC": 1}, CLEAN + bytes(188)),
    ("skipped", {}, os.mkfifo),
)
NAMES = ("plain", "two  blanks", "'\"$x`{#}{}", "-a on", "caf\xe9", "no utf-8 \udcff", "line\nend",
         "tab\t;&|*?\\n", "\x1b[31m", "=1+<b>&amp;", "n" * 245)
KORVA = """#!/bin/sh
printf '%s/%s\\0' "$PWD" "${{5#./}}" >>{}
exec {} "$@"
"""
STORM = """#!/usr/bin/python3
import os, sys
for fd, line in (1, b" ALERT x\\n"), (2, b"WRN x\\n"):
    for i in range(40):
        os.write(fd, line * (1 << 17))
os.write(2, b"the last line\\n")
with open(next(word[7:] for word in sys.argv if word.startswith("--json=")), "wb") as file:
    file.write(b'{"record":"header","first_packet":1}\\n')
    for i in range(300000):
        file.write(b'{"record":"alert","kind":"CC-BRK","pid":257,"packet":%d,"offset":0,"time":null}\\n' % i)
    file.write(b'{"record":"report","end":"complete","bytes":188000,"packets":'
               b'{"processed":1000,"analyzed":9},"alerts":{"CC-BRK":300000}}\\n')
"""


def shown(path):
    return "".join(c if c.isprintable() else "".join(f"\\x{b:02x}" for b in os.fsencode(c)) for c in path)


class Page(html.parser.HTMLParser):
    def __init__(self, text):
        super().__init__()
        self.tags = []
        self.feed(text)

    def handle_starttag(self, tag, attributes):
        self.tags.append((tag, dict(attributes)))

    def values(self, name):
        return [attributes[name] for _, attributes in self.tags if name in attributes]


class Archive(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.dir, self.want = pathlib.Path(dir.name).resolve(), {}
        self.out, self.runs = self.dir / "a {#} 'dir", self.dir / "runs"
        bin = tempfile.TemporaryDirectory(dir=PROGRAM.parent)  # others may lie where nothing is executed
        self.addCleanup(bin.cleanup)
        self.bin = pathlib.Path(bin.name)
        quoted = [shlex.quote(str(path)) for path in (self.runs, PROGRAM)]
        self.korva = self.program("korva", KORVA.format(*quoted))  # remembers what it ran on

    def program(self, name, text):
        path = self.bin / name
        path.write_text(text)
        path.chmod(0o755)
        return path

    def make(self, first, end):
        for i in range(first, end):
            path = self.dir / f"captures/{i % 7}/{NAMES[i % len(NAMES)]} {i}.ts"
            self.want[str(path)] = *_, content = KINDS[i % len(KINDS)]
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content) if isinstance(content, bytes) else content(path)
        (self.dir / "list").write_bytes(b"".join(os.fsencode(path) + b"\0" for path in self.want))

    def command(self, *sources, korva_options=("-A", "max_zreset_time=0")):
        sources = sources or ("--list", self.dir / "list")
        return [ROOT / "tools/korva-archive", "-j2", "-o", self.out, "--korva", self.korva,
                *sources, "--", *korva_options]

    def archive(self, *sources, status=2, said="", input=None, **options):
        """Returns the lines of standard output; what is said on standard error is one line at most."""
        run = subprocess.run(self.command(*sources, **options), capture_output=True, input=input, cwd=self.dir)
        self.assertEqual(run.returncode, status, run)
        self.assertRegex(run.stderr.decode(), f"^(.*{said}.*\n)?$" if said else "^$")
        return run.stdout.decode().splitlines()

    def checked(self):
        """What is not tried again."""
        lines = b"".join(path.read_bytes() for path in (self.out / "rows").glob("*")).splitlines()
        rows = [json.loads(line) for line in lines if line.endswith(b"}")]
        return {row["file"] for row in rows if row["result"] not in ("not checked", "unreadable")}

    def ran(self):
        return collections.Counter(os.fsdecode(self.runs.read_bytes()).split("\0")[:-1])

    def rows(self):
        text = (self.out / "table.csv").read_bytes().decode()
        self.assertTrue(text.replace("\r\n", "").isprintable())
        return list(csv.DictReader(text.splitlines()))

    def check_table(self, lines):
        rows = self.rows()
        self.assertEqual(sorted(row["file"] for row in rows), sorted(map(shown, self.want)))
        wanted, order = {shown(path): want for path, want in self.want.items()}, []
        for row in rows:
            result, alerts, _ = wanted[row["file"]]
            total = sum(alerts.values())
            order.append((ORDER.index(result) if result in ORDER else len(ORDER), -total, result == "clean"))
            found = {kind: int(row[kind]) for kind in list(row)[3:-8] if row[kind] != "0"}
            self.assertEqual((row["result"], found, row["alerts"]), (result, alerts, str(total)), row)
        self.assertEqual(order, sorted(order))
        self.check_lines(lines, [row["result"] for row in rows])

    def check_lines(self, lines, results):
        bad = [result for result in results if result != "clean"]
        unchecked = sum(result in UNCHECKED for result in bad)
        self.assertRegex(lines.pop(), fr"^{len(results)} captures?, {len(bad) - unchecked} not clean, {unchecked} not "
                         r"checked, (\d+\.\d [kM]B|0 B) in \d+\.\d s$")
        if "as checked before" in lines[-1]:
            lines.pop()
        self.assertEqual([line.split("  ")[0] for line in lines], ["result", *bad])

    def test_killed_and_resumed(self):
        self.make(0, 300)
        null = subprocess.DEVNULL
        run = subprocess.Popen(self.command(), stdin=null, stdout=null, stderr=null, start_new_session=True)
        while len(self.checked()) < 75 and run.poll() is None:
            time.sleep(0.02)
        run.kill()
        while subprocess.run(["pkill", "-KILL", "-s", str(run.pid), "-r", "DRST"]).returncode == 0:
            time.sleep(0.02)
        run.wait()
        done, before = self.checked(), self.ran()
        self.assertTrue(75 <= len(done) < 240, len(done))
        self.archive(status=1, said="holds a run")
        self.check_table(self.archive("--resume"))
        again = self.ran() - before
        files = {path for path, want in self.want.items() if want[0] != "skipped"}
        self.assertEqual(set(again), files - done)
        self.assertEqual(set(again.values()), {1})
        self.check_table(self.archive("--resume"))

    def test_options_that_fail(self):
        self.make(0, 5)
        self.want = {path: ("failed", {}, want[2]) for path, want in self.want.items()}
        self.check_table(self.archive(korva_options=["-A", "pcr_freq"]))
        self.make(5, 7)
        self.assertIn(" and 6 more  ", self.archive("--resume", "captures", korva_options=["-A", "pcr_freq"])[1])
        shutil.rmtree(self.out)
        self.assertIn("unrecognized option '--no'", self.archive("captures", korva_options=["--no"])[1])
        for word in ("--json=x", "--rep=x", "--junit=x", "--clip=x", "--baseline-w=x"):
            self.archive(korva_options=[word], status=1, said="--report makes a page for each")

    def test_what_a_baseline_allows(self):
        (self.dir / "d").mkdir()
        (self.dir / "d/a.ts").write_bytes(DAMAGED)
        entry = '{{ kind = "{}"; reason = "r"; until = "9999-12-31"; }}'
        for kinds, result in ((list(FOUND), "clean"), (list(FOUND)[:2], "alerts")):
            (self.dir / "base").write_text(f"allowed = ({','.join(map(entry.format, kinds))});")
            self.archive("d", korva_options=["-A", "max_zreset_time=0", "--baseline", "base", "none.ts"], status=0)
            row, = self.rows()
            self.assertEqual((row["result"], int(row["alerts"])), (result, 3 - len(kinds)))
            self.assertEqual(len((self.out / "findings.jsonl").read_text().splitlines()), 3)  # marked
            shutil.rmtree(self.out)

    def test_what_changes_between_runs(self):
        self.make(0, 4)
        clean, damaged, short, cut = (pathlib.Path(path) for path in self.want)
        self.check_table(self.archive("captures", status=0))
        clean.write_bytes(CLEAN + DAMAGED)
        damaged.write_bytes(DAMAGED)
        short.unlink()
        (self.dir / "captures/new.ts").write_bytes(CLEAN)
        lines = self.archive("--resume", "captures", "--exit-alerts", status=3)
        self.assertEqual(lines[-2], "1 as checked before, 1 new, 1 grown, 1 changed, 1 gone")
        rows = {row["since"]: row["file"] for row in self.rows()}
        self.assertEqual(rows, {"": str(cut), "new": str(self.dir / "captures/new.ts"), "grown": str(clean),
                                "changed": str(damaged), "gone": str(short)})
        self.assertEqual(max(self.ran().values()), 2)
        lines = self.archive("--resume", status=0)
        self.assertEqual(lines[-2], "4 as checked before, 0 new, 0 grown, 0 changed, 0 gone")
        cut.unlink()
        self.archive("--resume", "--exit-alerts=NOT-CHECKED", status=0)
        clean.unlink()
        os.mkfifo(clean)
        self.archive("--resume", "--exit-alerts=NOT-CHECKED", status=3)
        self.assertEqual(os.listdir(f"{self.out}/files{clean}"), [])

    def test_sources(self):
        a, b = self.dir / "d/a.ts", self.dir / "d/b.ts"
        a.parent.mkdir()
        for path in (a, b):
            path.write_bytes(CLEAN)
        (self.dir / "link").symlink_to("d")
        (a.parent / "loop").symlink_to("..")
        (self.dir / "empty").mkdir()
        for sources, listed, files in (
                ([a, "--list", "-", "d"], b"", [a, b]),
                (["-"], b"d/a.ts\r\n\r\nd/b.ts\r\n", [a, b]), (["-"], b"\xef\xbb\xbfd/a.ts\n", [a]),
                (["-"], b"d/b.ts\0d/a.ts\0", [a, b]),
                (["-"], f"/{a}\n{a}\nd/./a.ts\nlink/a.ts\nempty/../d//a.ts\n".encode(), [a]),
                (["link/../d/a.ts"], b"", [a]), (["d", "--pattern", "B*"], b"", [b])):
            self.archive("--all", *sources, input=listed, status=0)
            self.assertEqual([row["file"] for row in self.rows()], sorted(map(str, files)), listed)
            shutil.rmtree(self.out)
        for listed in (CLEAN, CLEAN[4:100], b"x" * 5000, "a.ts\n".encode("utf-16")):
            self.archive("-", input=listed, status=1, said="is no list of paths")
        self.archive("--list", "nowhere", status=1, said="nowhere.*No such file")
        os.chmod(self.dir / "empty", 0)
        self.archive("nowhere", "empty", "d")
        cause = "without captures" if os.geteuid() == 0 else "Permission denied"
        self.assertRegex(" ".join(row["detail"] for row in self.rows()), f"{cause}.*No such file")
        (self.dir / "nowhere").write_bytes(CLEAN)
        self.assertEqual(self.archive("--resume", status=0)[0][:21], "2 as checked before, ")
        row = self.rows()[0]
        self.assertEqual(row["size"], "188000")
        self.assertAlmostEqual(float(row["duration"]), 2.05, delta=0.05)  # seconds
        self.assertAlmostEqual(int(row["bitrate"]), 735000, delta=15000)

    def test_audit(self):
        (self.dir / "d").mkdir()
        wanted = {  # result, alerts, kinds, indicators that fail
            "a.ts": ("fail", 4, {"CC-LOSS": 4}, ["1.4"], CLEAN[: 500 * 188] + CLEAN[507 * 188 :]),
            "b.ts": ("fail", 1, {"SYNC-LOSS": 1}, ["1.1"], CLEAN[: 400 * 188] + bytes(100) + CLEAN[400 * 188 :]),
            "c.ts": ("clean", 0, {"LEADING": 1}, [], bytes(5) + CLEAN),
            "d.ts": ("truncated", 0, {}, [], CLEAN[:-100]), "e.ts": ("empty", 0, {}, [], b"")}
        for name, (*_, content) in wanted.items():
            (self.dir / "d" / name).write_bytes(content)
        self.archive("--audit", "--exit-alerts=CC-LOSS", "d", "nowhere", korva_options=(), status=3)
        rows = {pathlib.Path(row["file"]).name: row for row in self.rows()}
        self.assertEqual(rows.pop("nowhere")["detail"], "No such file or directory")
        for name, row in rows.items():
            names = list(row)
            kinds, indicators = names[3 : names.index("1.1")], names[names.index("1.1") : -8]
            found = {kind: int(row[kind]) for kind in kinds if row[kind] != "0"}
            failed = [indicator for indicator in indicators if row[indicator] == "fail"]
            self.assertEqual((row["result"], int(row["alerts"]), found, failed), wanted[name][:4])
        records = map(json.loads, (self.out / "findings.jsonl").read_text().splitlines())
        self.assertEqual(sorted(record["kind"] for record in records), ["CC-LOSS"] * 4 + ["LEADING", "SYNC-LOSS"])

    def test_path_beyond_the_limit(self):
        place, fd = self.dir, os.open(self.dir, os.O_PATH)
        for name in ["captures"] + ["d" * 250] * 17:
            os.mkdir(name, dir_fd=fd)
            place, fd = place / name, os.open(name, os.O_PATH, dir_fd=fd)
        with open("x.ts", "wb", opener=lambda name, flags: os.open(name, flags, dir_fd=fd)) as file:
            file.write(DAMAGED)
        self.want[str(place / "x.ts")] = KINDS[1]
        for options in (["captures"], ["--resume"]):
            self.check_table(self.archive(*options, status=0))
        self.assertEqual((self.out / "findings.jsonl").read_text().count(str(place / "x.ts")), 3)

    def test_outputs(self):
        self.make(0, 26)
        metrics = self.dir / "korva.prom"
        self.check_table(self.archive("--report", "--openmetrics", metrics, "captures"))
        rows = self.rows()
        total = sum(int(row["alerts"]) for row in rows)
        records = [json.loads(line) for line in (self.out / "findings.jsonl").read_text().splitlines()]
        self.assertEqual(len(records), total)
        self.assertLessEqual({record["file"] for record in records}, set(self.want))

        page = Page(text := (self.out / "index.html").read_text())
        self.assertNotRegex(text, "https?:|<link|<script src|<b>")
        links = [urllib.parse.unquote(link, errors="surrogateescape") for link in page.values("href")]
        pages = [link for link in links if link.endswith("/korva.html")]
        read = {path for path, want in self.want.items() if want[0] not in ("skipped", "aborted")}
        self.assertLessEqual(read, {link[5:-11] for link in pages})
        self.assertTrue(all((self.out / link).stat().st_size for link in links if len(link) < 4000))
        path = next(path for path in read if "nnn" in path)
        header = pathlib.Path(f"{self.out}/files{path}/korva.jsonl").read_text().partition("\n")[0]
        self.assertEqual(json.loads(header)["source"], "..." + path[-60:])
        self.assertEqual(page.values("scope").count("row"), len(rows))
        self.assertEqual(len(page.values("aria-label")), sum(row["alerts"] != "0" for row in rows) - 2)  # aborted

        samples = metrics.read_text().splitlines()
        for line in samples:
            self.assertRegex(line, r'^(# (HELP|TYPE) korva_\w+ .*|# EOF|'
                             r'korva_\w+(\{\w+="([^"\\]|\\["\\])*"\})? [0-9.]+)$')
        self.assertEqual(len(set(line.rpartition(" ")[0] for line in samples)), len(samples))
        self.assertIn(f'korva_archive_captures{{result="alerts"}} {sum(r["result"] == "alerts" for r in rows)}', samples)

    def test_statuses_and_differences(self):
        path = self.dir / "d/a.ts"
        path.parent.mkdir()
        for content, options, status in (
                (CLEAN, ["--exit-alerts"], 0), (CLEAN[:-9], ["--exit-alerts"], 3),
                (DAMAGED, [], 0), (DAMAGED, ["--exit-alerts"], 3),
                (DAMAGED, ["--exit-alerts=PCR-FREQ"], 0), (DAMAGED + NO_PCR, [], 2), (CLEAN + bytes(188), [], 2)):
            path.write_bytes(content)
            shutil.rmtree(self.out, ignore_errors=True)
            self.archive(*options, "d", status=status)
        old, self.out = self.out, self.dir / "new"
        path.write_bytes(DAMAGED)
        self.archive("d", status=0)
        for outs, status, told in (
                ((old, self.out), 3, "a.ts: 3 new, 1 gone, 0 unchanged.*1 with new"),
                ((self.out, self.out), 0, "^1 captures in both, 0 with new.*1 unchanged"), ((old, "d"), 1, "^$")):
            run = subprocess.run([ROOT / "tools/korva-archive", "diff", *outs],
                                 capture_output=True, text=True, cwd=self.dir)
            self.assertEqual(run.returncode, status, run)
            self.assertRegex(run.stdout.replace("\n", " "), told)

    def test_storm_of_logs(self):
        path = self.dir / "a.ts"
        path.write_bytes(CLEAN)
        self.korva = self.program("storm", STORM)
        self.archive("a.ts", status=0)
        row, = self.rows()
        self.assertEqual((row["result"], row["CC-BRK"]), ("alerts", "300000"))
        self.assertIn("MB of logs left out", row["detail"])
        files = list(pathlib.Path(f"{self.out}/files{path}").iterdir())
        self.assertLess(sum(file.stat().st_size for file in files), 65 << 20)
        report = (files[0].parent / "korva.report").read_text()
        end = r"WRN x\nkorva-archive: \d+ bytes left out here\nWRN x(.|\n)*the last line\n$"
        self.assertRegex(report[-(5 << 20):], end)
        records = list(map(json.loads, (self.out / "findings.jsonl").read_text().splitlines()))
        self.assertEqual((records[0]["packet"], records[-1]["packet"]), (0, 299999))
        self.assertEqual([record["record"] for record in records].count("cut"), 1)

    def begin(self):
        """Returns the run when korva is at work, which it is until there is a file `go`."""
        (self.dir / "a.ts").write_bytes(CLEAN)
        wait = f"until [ -e {shlex.quote(str(self.dir / 'go'))} ]; do sleep 0.1; done\nexec"
        self.korva = self.program("slow", self.korva.read_text().replace("exec", wait))
        run = subprocess.Popen(["sh", "-c", 'exec "$@" <&- >&- 2>&-', "-", *self.command(self.dir / "a.ts")])
        while not self.runs.exists() and run.poll() is None:
            time.sleep(0.02)
        return run

    def test_lock_without_standard_input_and_killed(self):
        run = self.begin()
        for _ in range(2):
            self.archive("a.ts", status=1, said="still at work")
            run.kill()
            run.wait()
        (self.dir / "go").touch()
        with open(self.out / "lock") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)

    def test_stopped(self):
        run = self.begin()
        run.terminate()
        self.assertEqual(run.wait(), 130)
        (self.dir / "go").touch()
        self.assertEqual(self.archive("--resume", status=0)[0], "0 as checked before, 1 new, 0 grown, 0 changed, 0 gone")

    def test_what_korva_says_last(self):
        (self.dir / "a.ts").write_bytes(CLEAN)
        self.korva = self.program("crash", "#!/bin/sh\necho '=HYPERLINK(1)' >&2\nkill -SEGV $$\n")
        self.archive("a.ts")
        row, = self.rows()
        self.assertEqual((row["result"], row["status"], row["detail"]), ("aborted", "139", "'=HYPERLINK(1)"))

    @contextlib.contextmanager
    def server(self):
        """Yields what logs in."""
        with socket.create_server(("127.0.0.1", 0)) as server:
            key, port = str(self.dir / "key"), str(server.getsockname()[1])
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)
        sshd = subprocess.Popen([
            SSHD, "-D", "-q", "-f", "/dev/null", "-p", port, "-h", key,
            "-oListenAddress=127.0.0.1", "-oListenAddress=127.0.0.2", "-oStrictModes=no",
            f'-oAuthorizedKeysFile="{key}.pub"', "-oPidFile=none",
            '-oForceCommand=echo Welcome; eval "$SSH_ORIGINAL_COMMAND"'])
        ssh = ["ssh", "-F", "/dev/null", "-p", port, "-i", key, "-oStrictHostKeyChecking=no",
               "-oBatchMode=yes", "-oUserKnownHostsFile=/dev/null", "-oLogLevel=ERROR"]
        try:
            until = time.monotonic() + 60
            while (tried := subprocess.run([*ssh, "127.0.0.1", "true"], capture_output=True)).returncode:
                self.assertTrue(sshd.poll() is None and time.monotonic() < until, tried)
                time.sleep(0.1)
            yield ssh
        finally:
            sshd.terminate()
            sshd.wait()

    @unittest.skipUnless(SSHD, "sshd is not installed: the way over ssh is not tested")
    def test_over_ssh(self):
        self.make(0, 52)
        with self.server() as ssh:
            hosts = [shlex.join([*ssh, address]) for address in ("127.0.0.1", "127.0.0.2")]
            logins = [word for host in (*hosts, "nowhere.invalid") for word in ("--sshlogin", host)]
            self.check_table(self.archive(*logins, "captures", said="host nowhere.invalid is left out: .*resolve"))
        jobs = (self.out / "joblog").read_text(errors="replace").splitlines()[1:]
        self.assertEqual({job.split("\t")[1] for job in jobs}, set(hosts))


unittest.main(argv=sys.argv[:1])
