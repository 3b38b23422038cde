"""Which hosts can be used, and how many cores they have."""

import os
import shlex
import subprocess
import sys

from text import shown

REACH_S = 30  # for a host to answer
QUESTION = """\
test -f {options} || {{ echo the output directory is not there; exit 1; }}
for program in python3 perl {korva}; do
  command -v "$program" >/dev/null || {{ echo "$program is not there"; exit 1; }}
done
nproc
"""


class Host:
    def __init__(self, login, cores):
        self.login, self.cores = login, cores


def cores_here():
    return len(os.sched_getaffinity(0))


def logins_of(words):
    """As parallel(1) takes them: lists with commas, unless it is a command line of ssh."""
    for word in words:
        yield from [word] if " " in word else filter(None, word.split(","))


def host_of(login):
    """Without the number of jobs in front."""
    number, _, host = login.partition("/")
    return host if number.isdigit() else login


def ask(host, question):
    """Starts a shell there that answers."""
    ssh = shlex.split(host) if " " in host else ["ssh", "-o", "BatchMode=yes", "-o", "ConnectTimeout=10", host]
    return subprocess.Popen([*ssh, "exec sh -c " + shlex.quote(question)], stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, errors="replace")


def answer_of(asked):
    try:
        said, errors = asked.communicate(timeout=REACH_S)
    except subprocess.TimeoutExpired:
        asked.kill()
        return "", "it does not answer"
    if asked.returncode == 0:
        return said.split()[-1], ""
    lines = (said + errors).strip().splitlines()
    return "", lines[-1] if lines else f"status {asked.returncode}"


def find_hosts(options):
    """Those that can be used; a line for each other one."""
    if not options.logins:
        return [Host(":", cores_here())]
    question = QUESTION.format(options=shlex.quote(options.output + "/options"), korva=shlex.quote(options.korva))
    logins = list(logins_of(options.logins))
    asked = [None if host_of(login) == ":" else ask(host_of(login), question) for login in logins]
    hosts = []
    for login, shell in zip(logins, asked):
        cores, trouble = answer_of(shell) if shell else (cores_here(), "")
        if trouble:
            print(f"korva-archive: host {shown(login)} is left out: {shown(trouble)}", file=sys.stderr)
        else:
            hosts.append(Host(login, int(cores)))
    return hosts
