"""The command line of korva-archive: see korva-archive(1)."""

import argparse
import fcntl
import json
import os
import re
import shutil
import signal
import sys
import time

import folders
import judge
import rows as all_rows
import run
import sources
import table
from text import error_text, shown

PATTERNS = ["*.ts", "*.mpg", "*.mpegts", "*.trp"]
# Of korva; where an abbreviation fits several, it is the first one.
PATH_OPTIONS = ("--config", "--baseline")
OWN_OUTPUTS = ("--json", "--report", "--clip", "--junit", "--baseline-write")
USAGE = """%(prog)s [options] DIR|CAPTURE ... [-- korva options]
       %(prog)s diff OLD NEW"""


def parser_of():
    parser = argparse.ArgumentParser(
        prog="korva-archive", usage=USAGE, allow_abbrev=False,
        description="Runs korva over every capture and tells which are not clean, worst first.")
    parser.add_argument("sources", nargs="*", metavar="DIR|CAPTURE",
                        help="directory to search, or a capture; '-' is a list")
    parser.add_argument("--list", dest="lists", action="append", default=[], metavar="FILE",
                        help="file with a path per line or NUL ('-': standard input); can be repeated")
    parser.add_argument("-o", "--output", default="korva-archive.out", metavar="DIR",
                        help="directory of the results (%(default)s)")
    parser.add_argument("--all", action="store_true", help="show clean captures too")
    parser.add_argument("--report", action="store_true", help="a page for each capture, and index.html")
    parser.add_argument("--openmetrics", metavar="FILE", help="numbers for a node exporter's text directory")
    parser.add_argument("--exit-alerts", metavar="KINDS",
                        help="status 3 when a capture is not clean (has alerts of these kinds)")
    parser.add_argument("--audit", metavar="PROFILE", help="have korva judge by the standards")
    parser.add_argument("-j", "--jobs", help="captures checked at a time on each host (default: its cores)")
    parser.add_argument("--sshlogin", dest="logins", action="append", default=[], metavar="HOST",
                        help="run on this host, as with parallel(1); ':' is this one; can be repeated")
    parser.add_argument("--pattern", dest="patterns", action="append", metavar="GLOB",
                        help=f"names to search for, in any case ({' '.join(PATTERNS)}); can be repeated")
    parser.add_argument("--korva", default="korva", metavar="PROGRAM", help="the program to run")
    parser.add_argument("--resume", action="store_true",
                        help="go on with an earlier run; check what is new or has changed")
    return parser


def with_whole_paths(words):
    """Options of korva, which runs elsewhere."""
    words = list(words)
    for at, word in enumerate(words):
        name, equals, path = ("-C", "", word[2:]) if word.startswith("-C") else word.partition("=")
        full = next((option for option in (*PATH_OPTIONS, *OWN_OUTPUTS)
                     if len(name) > 2 and option.startswith(name)), name)
        if full in ("-C", *PATH_OPTIONS) and path:
            words[at] = name + equals + os.path.abspath(path)
        elif full in ("-C", *PATH_OPTIONS) and at + 1 < len(words):
            words[at + 1] = os.path.abspath(words[at + 1])
        elif full in OWN_OUTPUTS:
            sys.exit(f"korva-archive: {shown(word)} is one file for all captures; "
                     "--report makes a page for each, findings.jsonl has the records")
    return words


def kinds_for_exit(words, is_audit):
    """All of them when none is named."""
    known = {*(table.AUDIT_KINDS if is_audit else table.KINDS), all_rows.UNCHECKED}
    kinds = set(filter(None, words.split(",")))
    if kinds - known:
        sys.exit(f"korva-archive: no kind of {'finding' if is_audit else 'alert'}: {shown(min(kinds - known))}")
    return kinds or {*known, all_rows.UNCLEAN}


def parse_command_line(args):
    at = args.index("--") if "--" in args else len(args)
    # The value of these is optional and stands behind "=".
    own = [word + "=" if word in ("--exit-alerts", "--audit") else word for word in args[:at]]
    parser = parser_of()
    options = parser.parse_intermixed_args(own)
    options.lists += ["-" for source in options.sources if source == "-"]
    options.sources = [source for source in options.sources if source != "-"]
    if not options.sources and not options.lists and not options.resume:
        parser.error("no directory, capture or list is named")
    options.output = sources.plain(options.output)
    options.patterns = options.patterns or PATTERNS
    if "/" in options.korva:
        options.korva = os.path.abspath(options.korva)
    audit = [] if options.audit is None else ["--audit" + (options.audit and f"={options.audit}")]
    options.korva_options = audit + with_whole_paths(args[at + 1:])
    options.is_audit = any(word.partition("=")[0] == "--audit" for word in options.korva_options)
    if options.exit_alerts is not None:
        options.exit_alerts = kinds_for_exit(options.exit_alerts, options.is_audit)
    return options


def hold_standard_streams():
    """A file that is opened later must not take the place of one that is closed."""
    while (fd := os.open(os.devnull, os.O_RDWR)) <= 2:
        os.set_inheritable(fd, True)
    os.close(fd)
    for name, fd in (("stdout", 1), ("stderr", 2)):
        if getattr(sys, name) is None:
            setattr(sys, name, open(fd, "w"))
        getattr(sys, name).reconfigure(errors="backslashreplace")


def read(path):
    with open(path, "rb") as file:
        return file.read()


def lock(output):
    """Held until the last job of this run has ended, even if this program is killed before."""
    fd = os.open(f"{output}/lock", os.O_RDWR | os.O_CREAT, 0o666)
    try:
        fcntl.flock(fd, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except BlockingIOError:
        sys.exit(f"korva-archive: a run is still at work in {shown(output)}")
    return fd


def prepare(options):
    """Returns captures, troubles and the lock; leaves list and options in the output directory."""
    kept = f"{options.output}/options"
    os.makedirs(f"{options.output}/rows", exist_ok=True)
    lock_fd = lock(options.output)
    earlier = all_rows.captures_in(options.output)
    if earlier and not options.resume:
        sys.exit(f"korva-archive: {shown(options.output)} holds a run: go on with --resume, or choose another -o")
    settings = {"korva": [options.korva, *options.korva_options], "report": options.report}
    before = json.loads(read(kept)) if earlier else settings
    if any(before[name] != value for name, value in settings.items()):
        sys.exit(f"korva-archive: the run in {shown(options.output)} has other options for korva")
    captures, troubles = sources.find(options, earlier)
    settings["run"] = f"{time.time_ns()}"
    folders.write_whole(kept, [json.dumps(settings).encode()])
    write_list(options, captures)
    return captures, troubles, lock_fd


def write_list(options, captures):
    folders.write_whole(f"{options.output}/list", (os.fsencode(capture) + b"\0" for capture in captures))


def check_captures(options, captures, lock_fd):
    """Rows of all captures, and what of them is known since when; None when stopped."""
    known = all_rows.Known()
    kept = all_rows.kept_rows(options.output) if options.resume else {}
    for capture in captures:
        known.add(capture, kept.get(capture), options.resume)
    rows = run.run(options, known.sizes, lock_fd) if known.sizes else {}
    if rows is None:
        return None
    for capture in known.sizes:
        known.rows[capture] = rows.get(capture) or judge.empty_row(capture, "not checked", "no host could do it")
    for capture, row in known.rows.items():
        row["since"] = known.since.get(capture, "")
    there = [capture for capture in captures if known.rows[capture]["result"] != "gone"]
    write_list(options, there)
    all_rows.keep_rows(options.output, (known.rows[capture] for capture in there))
    return known


def writers_of(options, rows, totals):
    """What makes the files, and what it takes."""
    yield table.write_csv, f"{options.output}/table.csv", rows, options.is_audit
    yield folders.write_whole, f"{options.output}/findings.jsonl", table.findings_lines(options.output, rows)
    if options.report:
        import page
        yield page.write_page, options, rows, totals
    if options.openmetrics:
        import metrics
        yield metrics.write_metrics, options.openmetrics, rows, totals


def write_outputs(options, rows, totals):
    """Tells what cannot be written, and writes the rest; returns whether all was."""
    troubles = []
    for write, *words in writers_of(options, rows, totals):
        try:
            write(*words)
        except OSError as error:
            troubles.append(error)
            print(f"korva-archive: {error_text(error)}", file=sys.stderr)
    return not troubles


def print_table(options, rows, known, totals):
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    listed = [row for row in rows
              if options.all or not all_rows.is_clean(row) or row["since"] in ("grown", "changed")]
    if listed:
        print("\n".join(table.table_lines(listed)))
    if options.resume:
        since = list(known.since.values())
        counts = ", ".join(f"{since.count(what)} {what}" for what in all_rows.SINCE)
        print(f"{len(known.rows) - len(known.sizes) - since.count('gone')} as checked before, {counts}")
    print(totals.summary())


def status_of(options, rows):
    if options.exit_alerts and any(all_rows.has_kind(row, options.exit_alerts) for row in rows):
        return 3
    return 2 if any(row["result"] in judge.NOT_WHOLE for row in rows) else 0


def archive(options):
    begin = time.monotonic()
    if not shutil.which("parallel"):
        sys.exit("korva-archive: GNU Parallel is not installed")
    if not options.logins and not shutil.which(options.korva):
        sys.exit(f"korva-archive: cannot run {shown(options.korva)}")
    captures, troubles, lock_fd = prepare(options)
    if not captures and not troubles:
        sys.exit("korva-archive: no captures")
    known = check_captures(options, captures, lock_fd)
    if known is None:
        print("korva-archive: stopped; the same command with --resume goes on", file=sys.stderr)
        return 130
    rows = sorted([*known.rows.values(), *troubles.values()], key=all_rows.badness)
    totals = all_rows.Totals(rows, known, time.monotonic() - begin)
    is_written = write_outputs(options, rows, totals)
    print_table(options, rows, known, totals)
    return status_of(options, rows) if is_written else 2


def main(args):
    hold_standard_streams()
    if args[:1] == ["diff"]:
        import diff
        if len(args) != 3:
            sys.exit("usage: korva-archive diff OLD NEW")
        return diff.diff(*args[1:])
    return archive(parse_command_line(args))
