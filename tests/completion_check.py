#!/usr/bin/env python3
"""Presses TAB behind words in bash and zsh: completion_check.py ROOT

Nothing that was typed is carried out, and what can follow is still offered. A shell that is not
installed is left out.
"""

import os
import pathlib
import pty
import shlex
import shutil
import signal
import sys
import tempfile

ROOT = shlex.quote(str(pathlib.Path(sys.argv[1]).resolve()))
SHELLS = {
    "bash": ("--norc -i", f"source {ROOT}/completions/korva.bash"),
    "zsh": ("-f -i", f"fpath=({ROOT}/completions $fpath); autoload -U compinit; compinit -D -u"),
}
COMMAND = "$(touch${IFS}made)"
HOSTILE = ("-k {}:", "-k pmt_d:{}:", "-k 'a[{}]:", "-kpmt_d:{}:", "-A {}", "-A cc_track={}",
           "-Y {}", "-a {}", "--exit-alerts={},", "--exit-alerts=CC-BRK,`touch${{IFS}}made`,", "--json={}",
           "{}", "--{}=")


def answer(terminal, typed):
    """What the shell shows until it waits again, behind a command that takes the place of what was
    typed."""
    os.write(terminal, typed.encode() + b"\x15PS1='re''ady '; echo $((6 * 7)) answers\n")
    shown = b""
    while b"ready " not in shown.partition(b"42 answers")[2]:
        shown += os.read(terminal, 4096)
    return shown.decode(errors="replace")


def check(shell, options, setup):
    with tempfile.TemporaryDirectory() as directory:
        child, terminal = pty.fork()
        if child == 0:
            os.chdir(directory)
            env = {"PATH": os.environ["PATH"], "TERM": "dumb", "HOME": directory}
            os.execvpe(shell, [shell, *options.split()], env)
        answer(terminal, setup + "\n")
        for word in HOSTILE:
            answer(terminal, f"korva {word.format(COMMAND)}\t\t")
            if os.path.exists(f"{directory}/made"):
                sys.exit(f"{shell} carries out what stands in: {word}")
        shown = answer(terminal, "korva -a on --exit-al\t\t")
        if "--exit-alerts" not in shown:
            sys.exit(f"{shell} offers nothing: {shown}")
        os.kill(child, signal.SIGKILL)
        os.close(terminal)
        os.waitpid(child, 0)


signal.alarm(120)  # a shell that does not answer would be waited for
for name, how in SHELLS.items():
    if shutil.which(name):
        check(name, *how)
    else:
        print(f"{name} is not installed: its completion is not tested")
