#!/usr/bin/env python3
"""Uses the installed library as an outside program would: embed_test.py ROOT BUILD KORVA [PREFIX]

Without PREFIX it is installed from BUILD. What is installed is used from a directory of its own: the program of docs/embedding.md and the
examples are built there, with no path into the sources. Also: what the library exports is listed in
exports.txt and documented in the headers, and each header stands alone.
"""

import json
import os
import pathlib
import re
import shlex
import socket
import subprocess
import sys
import tempfile
import time

root, build, korva, *given = (pathlib.Path(arg).resolve() for arg in sys.argv[1:])
os.chdir(work := pathlib.Path(tempfile.mkdtemp(prefix="korva-test-", dir=build)).resolve())
prefix = given[0] if given else work / "prefix"
STRICT = ["-pedantic", "-Wall", "-Wextra", "-Werror"]


def run(*command, **options):
    done = subprocess.run(command, capture_output=True, text=True, **options)
    if done.returncode != 0:
        sys.exit(f"{command}: status {done.returncode}\n{done.stdout}{done.stderr}")
    return done


def masked(text):
    text = re.sub(r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{6} UTC (\d+  )?", "", text, flags=re.M)
    return re.sub(r"^.*(STARTING|EXIT\(0\))\. PID=\d+\n", "", text, flags=re.M)


def check(ok, what):
    if not ok:
        sys.exit(f"{what}: see {work}")


if not given:
    run("cmake", "--install", build, "--prefix", prefix)
library = next(prefix.glob("**/libkorva.so.0.1"))
headers = sorted((prefix / "include/korva").iterdir())
os.environ.update(TZ="UTC", PKG_CONFIG_PATH=str(library.parent / "pkgconfig"))

# Each header alone, in both languages.
check([h.name for h in headers] == ["audit.h", "log.h", "readout.h", "tsan.h", "version.h"],
    "installed headers")
for header in headers:
    for compiler, language, standard in ("cc", "c", "c11"), ("c++", "c++", "c++20"):
        run(compiler, "-x", language, f"-std={standard}", *STRICT, "-fsyntax-only", "-I",
            prefix / "include", "-", input=f"#include <korva/{header.name}>\n")

# Exported is what the list has, and each name stands behind a comment that documents it.
names = (root / "tests/embed/exports.txt").read_text().split()
static = library.parent / "libkorva.a"
for command in ("nm", "-D", library), ("nm", "-g", static):
    symbols = re.findall(r"^[0-9a-f]+ \S (\S+)$", run(*command, "--defined-only").stdout, re.M)
    check(sorted(names) == sorted(symbols), f"{command}: differ in {set(names) ^ set(symbols)}")
check(all(re.match("(tsan|korva|audit)_", name) for name in names), "a name is not the library's")
manual = "\n".join(h.read_text() for h in headers)
for name in names:
    documented = rf"\*/\n(KORVA_API[^;]*;\n)*KORVA_API[^;]*\b{name}\b"
    check(re.search(documented, manual), f"{name} is not documented")

# The program of the page, shared and static: it prints what korva prints.
page = (prefix / "share/doc/korva/embedding.md").read_text()
programs = re.findall(r"```c\n(.*?)```", page, re.S)
(work / "probe.c").write_text(programs[0])
(work / "audit.c").write_text(programs[1])
run("cp", root / "samples/clean.ts", root / "samples/damaged.ts", work)
for link in [], ["--static"]:
    flags = shlex.split(run("pkg-config", "--cflags", "--libs", *link, "korva").stdout)
    run("cc", "-std=c11", *STRICT, "probe.c", "-o", "probe", *flags, *[l[1:] for l in link])
    env = {**os.environ, "LD_LIBRARY_PATH": "" if link else str(library.parent)}
    said, expected = run("./probe", "damaged.ts", env=env), run(korva, "-a", "on", "damaged.ts")
    check(masked(said.stderr) == masked(expected.stderr), "report differs")
    check(masked(said.stdout) + "\n" == masked(expected.stdout), "terse lines differ")
    check("tsan_stats END" in said.stderr and said.stdout.count("ALERT") == 4, "no report")

# The one that audits finds what korva finds, in both languages. Sync is lost in the middle.
def audited(*args):
    lines = run(korva, "--audit", "--json=-", *args).stdout.splitlines()
    return [record for record in map(json.loads, lines) if record["record"] in ("finding", "pid")]


damaged = (work / "damaged.ts").read_bytes()
(work / "shifted.ts").write_bytes(damaged[5:200_000] + damaged[200_100:])
for compiler, language in ("cc", ["-std=c11"]), ("c++", ["-x", "c++", "-std=c++20"]):
    flags = shlex.split(run("pkg-config", "--cflags", "--libs", "korva").stdout)
    run(compiler, *language, *STRICT, "-Wno-missing-field-initializers", "audit.c", "-x", "none",
        "-o", "audit", *flags)
    for capture in "damaged.ts", "shifted.ts":
        said = run("./audit", capture, env={**os.environ, "LD_LIBRARY_PATH": str(library.parent)})
        expected = [
            f"{f['severity']} {f['kind']} {-1 if f['pid'] is None else f['pid']} {f['packet']}"
            for f in audited("--limit=pcr_ms=40", capture) if f["record"] == "finding"]
        check(said.stdout.splitlines() == [*expected, "fail"], f"findings in {capture} differ")

# A program with names of its own and the records of the first version, in both languages.
for compiler, language in ("cc", ["-std=c11"]), ("c++", ["-x", "c++", "-std=c++20"]):
    for link in [], ["--static"]:
        flags = shlex.split(run("pkg-config", "--cflags", "--libs", *link, "korva").stdout)
        run(compiler, *language, *STRICT, root / "tests/embed/host.c", "-x", "none", "-o", "host",
            *flags, *[l[1:] for l in link])
        run("./host", "damaged.ts", env={**os.environ, "LD_LIBRARY_PATH": str(library.parent)})

# The examples, built with the CMake package. A lost datagram hits two streams alike.
run("cmake", "-S", prefix / "share/doc/korva/examples", "-B", "examples", "-D",
    f"CMAKE_PREFIX_PATH={prefix}")
run("cmake", "--build", "examples")
clean = (work / "clean.ts").read_bytes()
for name in "datagrams", "datagrams_static":
    pipes = dict.fromkeys(("stdin", "stdout", "stderr"), subprocess.PIPE)
    program = subprocess.Popen([f"examples/{name}"], **pipes)
    program.stdin.write(clean[: 281 * 7 * 188])
    program.stdin.flush()
    time.sleep(1.1)
    said = program.communicate(clean[282 * 7 * 188 :])[0].decode()
    for text in "ALERT CC-MLR stdin ", "STAT GLOBAL stdin ", "STAT PMTi stdin 1 ", "\nCC-MLR: 1\n":
        check(text in said, f"{name} does not say {text}")

script = prefix / "share/doc/korva/examples/korva_ctypes.py"
said = run(sys.executable, script, "damaged.ts", library)
check("CC-BRK program=1 pid=514 at 1:1[915]:(pcr=228600)+6\n" in said.stdout, said.stdout)
check(" cc_brk=1 cc_rst=0 pmt_diff=1 pid_ndat=1\n" in said.stdout, said.stdout)

# Over UDP, without a datagram in the middle, each tells what korva tells of such a file.
DATAGRAM = 7 * 188
cut = clean[: 100 * DATAGRAM] + clean[101 * DATAGRAM :]
(work / "cut.ts").write_bytes(cut)
expected = [f"PID {row['pid']} ({row['what']}): {row['packets']} packets, {row['lost']} lost"
            for row in audited("cut.ts") if row["record"] == "pid"]
check(sum(" 0 lost" not in row for row in expected) > 1, "nothing is lost")
script = prefix / "share/doc/korva/examples/audit_ctypes.py"
receivers = [subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
             for command in (["examples/audit_datagrams"], [sys.executable, script, "0", library])]
ports = [int(receiver.stdout.readline().split()[-1]) for receiver in receivers]


def is_waiting(port):
    queue = re.search(rf" 0100007F:{port:04X} \S+ \S+ \w+:(\w+)", open("/proc/net/udp").read())
    return queue and int(queue[1], 16) > 0


with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as udp:
    for at in range(0, len(cut), DATAGRAM):
        for port in ports:
            udp.sendto(cut[at : at + DATAGRAM], ("127.0.0.1", port))
        while at % (16 * DATAGRAM) == 0 and any(map(is_waiting, ports)):
            time.sleep(0.001)
for receiver in receivers:
    said, findings = receiver.communicate(timeout=60)
    check(said.splitlines()[:-1] == expected, f"{receiver.args}: {said}")
    check(re.search("fail CC-LOSS PID 257 at packet 7", findings), f"{receiver.args}: {findings}")

run("rm", "-r", work)
