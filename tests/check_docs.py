#!/usr/bin/env python3
"""Holds the documents against the program: check_docs.py ROOT PROGRAM

The man page is clean, and it, the completions and the example settings name every option, word and
key that the sources have, and no option that they lack. The alerts shown for the damaged sample are
what the program says.
"""

import pathlib
import re
import shutil
import subprocess
import sys

root, program = (pathlib.Path(arg).resolve() for arg in sys.argv[1:])


def check(ok, message):
    if not ok:
        sys.exit(message)


def read(path):
    return (root / path).read_text()


def run(*command, **options):
    return subprocess.run(command, cwd=root, capture_output=True, text=True, **options)


def check_names(kind, names, texts):
    check(names, f"no {kind} found in the sources")
    for path, text in texts.items():
        for name in names:
            check(re.search(rf"(?<!\w){name}(?!\w)", text), f"{path} lacks {kind} {name}")


page, conf = read("docs/korva.1"), read("docs/korva.conf")
completions = {p: read(p) for p in ("completions/korva.bash", "completions/_korva")}
options, settings = read("vantor/tsa/option_table.cpp"), read("vantor/tsanalyze/settings.cpp")

if shutil.which("mandoc"):
    lint = run("mandoc", "-T", "lint", "-W", "warning", str(root / "docs/korva.1"))
    check(lint.returncode == 0, lint.stdout)

# Options.
items = [line for line in page.splitlines() if line.startswith(".It Fl")]
in_page = set(re.findall(r"Fl (?:\\&)?(\S)(?=\s|$)", "\n".join(items)))
long_in_page = set(re.findall(r"Fl Fl ([\w-]+)", "\n".join(items)))
shorts = set(re.search(r'short_options_in_order\[\] = "-([^"]+)"', options)[1]) - {":"}
longs = set(re.findall(r'\{"([\w-]{2,})", \w+_argument', options))
short_help = set(re.findall(r"^ {7}-(\S)", run(program, "-?").stderr, re.M))
check(in_page == shorts, f"korva.1 and options.cpp differ in {in_page ^ shorts}")
check(long_in_page == longs, f"korva.1 and options.cpp differ in {long_in_page ^ longs}")
check(short_help and short_help <= in_page, f"korva.1 lacks {short_help - in_page} of the help")
check_names("option", longs, completions)
help = run(program, "--help")
check((help.returncode, help.stderr) == (0, ""), "--help fails")
headings = re.findall(r"^  (?:-(\S)|  )(?:, |  )?(?:--([\w-]+))?", help.stdout, re.M)
shown = {letter for letter, _ in headings} - {""}, {name for _, name in headings} - {""}
check(shown == (shorts, longs), "--help and option_table.cpp differ")
words = re.search(r"--longoptions \\\n +(\S+)", read("scripts/run"))[1]
check(set(re.split(":*,|:+$", words)) - {""} == longs, "scripts/run and option_table.cpp differ")

# Options of the archive.
help = run(sys.executable, "tools/korva-archive", "--help").stdout
check_names("option", set(re.findall(r"^  (?:-\w.*)?--([\w-]+)", help, re.M)) - {"help"}, {
    p: read(p) for p in ("docs/korva-archive.1", "completions/korva-archive.bash",
                         "completions/_korva-archive")})

# Words of -A and -k, keys of the settings file.
traces = re.findall(r'\{"\w+", "(\w+)", "(\w+)", &tracking_opt', settings)
check_names("trace word", {word for _, word in traces}, {"korva.1": page, **completions})
words = re.findall(r'\{"(\w+)", &tsan_config::\w+\}|strcmp\(name, "(\w+)"\)', settings)
check_names("analyzer word", {a or b for a, b in words}, {"korva.1": page, **completions})
keys = set(re.findall(r'(?:look|load_config|get_member)\w*\(\w+, "(\w+)"', settings))
keys |= set(re.findall(r'\{"(\w+)", &tsan_config::\w+, \w+\}', settings)) | {k for k, _ in traces}
check_names("key", keys, {"korva.1": page, "korva.conf": conf})

# Of --audit: kinds of findings, limits, keys of the settings file.
names = read("vantor/audit/names.cpp")
limits, kinds = (set(re.findall(rf'"({name})"', names)) for name in (r"[a-z]+_[a-z_]+", "[A-Z]+(?:-[A-Z]+)+|TEI"))
kinds -= {"EIT-P", "EIT-F"}
check_names("limit", limits, {"korva.1": page, "korva.conf": conf, **completions})
check_names("kind of finding", kinds | {"SCRAMBLED", "LEADING"}, completions)
audit_keys = set(re.findall(r'key == "(\w+)"', read("vantor/tsa/audit_settings.cpp")))
check_names("key", audit_keys, {"korva.1": page, "korva.conf": conf})

# What bash offers behind the cursor; only the part behind the last "=" or ":" is replaced.
for line, choices in {
    "korva --ex": "--exit-alerts",
    "korva -A pcr_": "pcr_delta= pcr_freq=",
    "korva -Apcr_f": "-Apcr_freq=",
    "korva -A cc_track=": "0 1",
    "korva -k pmt_d:pat_": "pat_pmt pat_d",
    "korva -a on -Y local1": "local1",
    "korva --exit-alerts=CC-BRK,PID": "CC-BRK,PID-NDAT",
    "korva --exit-alerts ": "",
    "korva --audit --exit-alerts=CC-LOSS,TE": "CC-LOSS,TEI",
    "korva --audit=d": "dvb",
    "korva --audit --limit=pcr_": "pcr_ms= pcr_accuracy_ns=",
    "korva --limit pmt": "pmt_ms=",
    "korva --packet-size 20": "204 208",
    "korva-archive --rep": "--report",
    "korva-archive --audit=d": "dvb",
    "korva-archive --audit --exit-alerts=CC-LOSS,TE": "CC-LOSS,TEI",
    "korva-archive /srv -- -A pcr_f": "pcr_freq=",
}.items():
    script = ("compopt() { :; }; source completions/korva-archive.bash; COMP_LINE=$1 COMP_POINT=${#1};"
              '_korva${2:+_archive}; echo "${COMPREPLY[*]}"')
    offered = run("bash", "-c", script, "-", line, "archive" * line.startswith("korva-archive")).stdout
    check(offered.split() == choices.split(), f"{line}: bash offers {offered}")

# The example settings load, and find nothing in a stream that has nothing.
for example in (conf, re.search(r"^    vnt: \{.*?^    \};", read("README.md"), re.M | re.S)[0]):
    loaded = run(program, "-v", "-C", "/dev/stdin", "samples/clean.ts", input=example)
    check(loaded.returncode == 0 and "analyzer: \n" in loaded.stderr, loaded.stderr)
    check("(WRN)" not in loaded.stderr, loaded.stderr)

loaded = run(program, "--audit", "-C", "/dev/stdin", "samples/clean.ts", input=conf)
check(loaded.returncode == 0 and "\nPASS" in loaded.stderr, loaded.stderr)

# The examples. Other lines than those of the sample come from streams that are not shipped.
sample = "samples/damaged.ts"
limits = ("max_zreset_time=0", "pcr_delta=840", "pdts_delta=180", "pcr_freq=79")
said = run(program, "-a", "on", *(w for limit in limits for w in ("-A", limit)), sample)
lines = set(re.findall(r"ALERT .*", said.stdout + said.stderr))
for path in ("docs/alerts.md", "README.md"):
    for shown in re.findall(rf"ALERT \S+ \[?{sample}.*", read(path)):
        check(shown in lines, f"{path} shows what the program does not say: {shown}")
