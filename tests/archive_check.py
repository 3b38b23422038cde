#!/usr/bin/env python3
"""Runs korva-archive over captures of all kinds, killed in the middle and over ssh: ROOT PROGRAM"""

import collections
import csv
import os
import pathlib
import shlex
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest

ROOT, PROGRAM = (pathlib.Path(arg).resolve() for arg in sys.argv[1:3])
SSHD = shutil.which("sshd", path=os.defpath + ":/usr/sbin:/sbin")
CLEAN, DAMAGED = (
    (ROOT / "samples" / name).read_bytes()[: 1000 * 188] for name in ("clean.ts", "damaged.ts"))
# A PAT and a PMT that end the run.
NO_PROGRAM = bytes.fromhex("474000100000b0090001c1000000000000").ljust(188, b"\xff")
NO_PCR = DAMAGED[376:389] + b"\xe0\0" + DAMAGED[391:564]
FOUND = {"CC-BRK": 1, "PMT-DIFF": 1, "PID-NDAT": 1}
KINDS = (  # result, its rank, alerts, content or what makes it
    ("clean", 6, {}, CLEAN),
    ("alerts", 5, FOUND, DAMAGED),
    ("truncated", 5, FOUND, DAMAGED[:-100]),
    ("truncated", 6, {}, CLEAN[:-100]),
    ("empty", 3, {}, b""), ("empty", 3, {}, b"G" * 187),
    ("unreadable", 1, {}, lambda path: path.symlink_to("gone")),
    ("aborted", 0, {}, CLEAN[:188] + NO_PROGRAM),
    ("aborted", 0, {"CC-BRK": 1, "PMT-DIFF": 2}, DAMAGED + NO_PCR),
    ("stopped", 2, {"OUT-OF-SYNC": 1}, CLEAN + bytes(188)),
    ("skipped", 4, {}, os.mkfifo), ("skipped", 4, {}, os.mkdir),
)
NAMES = ("plain", "two  blanks", "'\"$x`{#}{}", "-a on", "caf\xe9", "no utf-8 \udcff", "line\nend",
         "tab\t;&|*?\\n")
SCRIPT = """#!/bin/sh
for file; do :; done
printf '%s\\0' "$file" >>{}
exec {} "$@"
"""


class Archive(unittest.TestCase):
    def setUp(self):
        dir = tempfile.TemporaryDirectory()
        self.addCleanup(dir.cleanup)
        self.dir, self.want = pathlib.Path(dir.name), {}
        self.out, self.runs = self.dir / "a {#} 'dir", self.dir / "runs"
        # Remembers what it ran on. Temporary files may lie where nothing is executed.
        bin = tempfile.TemporaryDirectory(dir=PROGRAM.parent)
        self.addCleanup(bin.cleanup)
        self.korva = pathlib.Path(bin.name) / "korva"
        paths = map(shlex.quote, map(str, (self.runs, PROGRAM)))
        self.korva.write_text(SCRIPT.format(*paths))
        self.korva.chmod(0o755)

    def make(self, first, end):
        for i in range(first, end):
            path = self.dir / f"captures/{i % 7}/{NAMES[i % len(NAMES)]} {i}.ts"
            self.want[str(path)] = *_, content = KINDS[i % len(KINDS)]
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_bytes(content) if isinstance(content, bytes) else content(path)
        (self.dir / "list").write_bytes(b"".join(os.fsencode(path) + b"\0" for path in self.want))

    def command(self, *options, source="list", korva_options=""):
        # Standard input is closed, as some daemons leave it: the lock must not take its number.
        return ["sh", "-c", 'exec "$@" <&-', "-", ROOT / "tools/korva-archive",
                "-j2", "-o", self.out, "--korva", self.korva, *options, self.dir / source,
                "--", "-A", "max_zreset_time=0", *korva_options.split()]

    def archive(self, *options, status=0, **source):
        run = subprocess.run(self.command(*options, **source), capture_output=True)
        self.assertEqual(run.returncode, status, run)
        return run.stderr.decode() if status else run.stdout.decode()

    def checked(self):
        status = {p: pathlib.Path(f"{self.out}/files{p}/korva.status") for p in self.want}
        return {p for p in self.want if status[p].exists() and status[p].read_text()}

    def ran(self):
        return collections.Counter(os.fsdecode(self.runs.read_bytes()).split("\0")[:-1])

    def check_table(self, shown):
        with open(self.out / "table.csv", newline="", errors="surrogateescape") as file:
            rows = list(csv.DictReader(file))
        self.assertEqual(sorted(row["file"] for row in rows), sorted(self.want))
        listed = [line.split()[0] for line in shown.splitlines()]
        self.assertEqual(listed, ["result"] + [row["result"] for row in rows])
        order = []
        for row in rows:
            result, rank, alerts, _ = self.want[row["file"]]
            total = sum(alerts.values())
            order.append((rank, -total))
            found = {kind: int(row[kind]) for kind in list(row)[3:-2] if row[kind] != "0"}
            said = row["result"], found, row["alerts"]
            self.assertEqual(said, (result, alerts, str(total)), row)
            if result != "skipped":
                text = pathlib.Path(f"{self.out}/files{row['file']}/korva.alerts").read_bytes()
                self.assertEqual(text.count(b" ALERT "), total - (result == "stopped"))
        self.assertEqual(order, sorted(order))

    def test_killed_and_resumed(self):
        self.make(0, 500)
        null = subprocess.DEVNULL
        run = subprocess.Popen(self.command(), stdout=null, stderr=null, start_new_session=True)
        while len(self.checked()) < 125 and run.poll() is None:
            time.sleep(0.02)
        run.kill()
        self.assertIn("still at work", self.archive("--resume", status=1))
        while subprocess.run(["pkill", "-KILL", "-s", str(run.pid), "-r", "DRST"]).returncode == 0:
            time.sleep(0.02)
        run.wait()
        done, before = self.checked(), self.ran()
        self.assertTrue(125 <= len(done) < 400, len(done))
        self.assertIn("holds a run", self.archive(status=1))
        self.check_table(self.archive("--resume"))
        again = self.ran() - before
        files = {path for path, want in self.want.items() if want[0] != "skipped"}
        self.assertEqual(set(again), files - done)
        self.assertEqual(set(again.values()), {1})
        self.check_table(self.archive("--resume"))
        self.assertEqual(self.ran(), before + again)

    def test_options_that_fail(self):
        self.make(0, 4)
        self.want = {path: ("failed", 0, {}, want[3]) for path, want in self.want.items()}
        self.check_table(self.archive(korva_options="-A pcr_freq"))

    def test_new_files_in_a_directory(self):
        for first, options in ((0, ()), (26, ("--resume",))):
            self.make(first, first + 26)
            self.want = {p: want for p, want in self.want.items() if not os.path.isdir(p)}
            self.check_table(self.archive(*options, source="captures"))
        self.assertEqual(set(self.ran().values()), {1})

    @unittest.skipUnless(SSHD, "sshd is not installed: the way over ssh is not tested")
    def test_over_ssh(self):
        self.make(0, 52)
        with socket.create_server(("127.0.0.1", 0)) as server:
            key, port = str(self.dir / "key"), str(server.getsockname()[1])
        subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", key], check=True)
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)
        sshd = subprocess.Popen([
            SSHD, "-D", "-q", "-f", "/dev/null", "-p", port, "-h", key, "-oListenAddress=127.0.0.1",
            f'-oAuthorizedKeysFile="{key}.pub"', "-oStrictModes=no", "-oPidFile=none"])
        ssh = ["ssh", "-F", "/dev/null", "-p", port, "-i", key, "-oStrictHostKeyChecking=no",
               "-oBatchMode=yes", "-oUserKnownHostsFile=/dev/null", "-oLogLevel=ERROR", "127.0.0.1"]
        try:
            until = time.monotonic() + 60
            while (tried := subprocess.run([*ssh, "true"], capture_output=True)).returncode:
                self.assertTrue(sshd.poll() is None and time.monotonic() < until, tried)
                time.sleep(0.1)
            self.check_table(self.archive("--sshlogin", shlex.join(ssh)))
        finally:
            sshd.terminate()
            sshd.wait()
        jobs = (self.out / "joblog").read_text(errors="replace").splitlines()[1:]
        self.assertEqual({job.split("\t")[1] for job in jobs}, {shlex.join(ssh)})


unittest.main(argv=sys.argv[:1])
