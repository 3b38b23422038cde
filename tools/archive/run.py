"""Has the captures checked by GNU Parallel, in batches, on the cores of this host or of many."""

import json
import os
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time

import hosts as all_hosts
from text import shown, size_text, time_text

HERE = os.path.dirname(os.path.abspath(__file__))
MODULES = ("job.py", "judge.py", "folders.py")  # what runs on each host
BATCH = 150  # captures
BATCH_BYTES = 256 << 20


def jobs_at_a_time(options, hosts):
    if options.jobs and options.jobs.isdigit():
        return int(options.jobs) * len(hosts)
    return sum(host.cores for host in hosts)


def batches_of(sizes, jobs):
    """Dealt out by size, largest captures first, so that no long one is begun last."""
    paths = sorted(sizes, key=sizes.get, reverse=True)
    batches = max(jobs, len(paths) // BATCH, sum(sizes.values()) // BATCH_BYTES)
    return [paths[first::batches] for first in range(min(batches, len(paths)))]


def prepare(options, batches):
    """What the jobs need, where all hosts see it."""
    for folder in ("batches", "program"):
        shutil.rmtree(f"{options.output}/{folder}", ignore_errors=True)
        os.mkdir(f"{options.output}/{folder}")
    for number, batch in enumerate(batches):
        with open(f"{options.output}/batches/{number}", "w") as file:
            file.write(json.dumps(batch))
    for module in MODULES:
        shutil.copy(f"{HERE}/{module}", f"{options.output}/program")


def command_line(options, hosts):
    log = f"{options.output}/joblog"
    command = ["parallel", "--plain", "--will-cite", "--line-buffer"]
    command += ["--joblog", f"+{log}" if os.path.exists(log) else log]
    command += ["--jobs", options.jobs] if options.jobs else []
    if options.logins:
        command += ["--env", "KORVA_JOB", "--retries", str(min(3, len(hosts)))]
    for host in hosts if options.logins else []:
        is_counted = all_hosts.host_of(host.login) != host.login
        command += ["--sshlogin", host.login if is_counted else f"{host.cores}/{host.login}"]
    python = "python3" if options.logins else shlex.quote(sys.executable)
    return [*command, f'exec {python} -BES "$KORVA_JOB" {{}}']


class Progress:
    """How far the run is, on a terminal."""

    def __init__(self, sizes):
        self.on = sys.stderr.isatty()
        self.sizes, self.done, self.bytes = sizes, set(), 0
        self.begin = self.told = time.monotonic()
        self.all = sum(sizes.values())

    def tell(self, path):
        if path not in self.done:
            self.done.add(path)
            self.bytes += self.sizes.get(path, 0)
        now = time.monotonic()
        if self.on and now - self.told > 0.2:
            self.told = now
            left = (now - self.begin) * (self.all / self.bytes - 1) if self.bytes else 0
            print(f"\r{len(self.done)} of {len(self.sizes)} captures, {size_text(self.bytes)} of "
                  f"{size_text(self.all)}, {time_text(left)} left\033[K", end="", file=sys.stderr, flush=True)

    def end(self):
        if self.on:
            print("\r\033[K", end="", file=sys.stderr, flush=True)


def tell_once(lines):
    """What a host says over and over, once."""
    told = set()
    for line in lines:
        text = shown(os.fsdecode(line).strip())
        if text and text not in told:
            told.add(text)
            print(f"korva-archive: {text}", file=sys.stderr, flush=True)


def stop_parallel(engine):
    """At the second signal it ends its jobs."""
    while engine.poll() is None:
        engine.terminate()
        time.sleep(0.2)


def stop_on_signals(engine):
    """Returns what is set by a signal."""
    stopped = threading.Event()

    def stop(_number, _frame):
        if not stopped.is_set():
            stopped.set()
            threading.Thread(target=stop_parallel, args=[engine]).start()

    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, stop)
    return stopped


def start(options, hosts, batches, lock_fd):
    env = {**os.environ, "PARALLEL_SHELL": "/bin/sh", "KORVA_JOB": f"{options.output}/program/job.py"}
    pipe = subprocess.PIPE
    engine = subprocess.Popen(command_line(options, hosts), stdin=pipe, stdout=pipe, stderr=pipe, env=env,
                              pass_fds=[lock_fd])
    threading.Thread(target=tell_once, args=[engine.stderr]).start()
    try:
        with engine.stdin as numbers:
            numbers.write("".join(f"{number}\n" for number in range(len(batches))).encode())
    except BrokenPipeError:
        pass  # it says why it did not take them
    return engine


def follow(engine, progress):
    """Returns the rows by path as they come."""
    rows = {}
    for line in engine.stdout:
        if line.startswith(b'{"file"'):  # and no greeting of a host
            row = json.loads(line)
            rows[row["file"]] = row
            progress.tell(row["file"])
    engine.wait()
    progress.end()
    return rows


def run(options, sizes, lock_fd):
    """Returns the rows by path, or None when the run was stopped by a signal."""
    hosts = all_hosts.find_hosts(options)
    if not hosts:
        sys.exit("korva-archive: there is no host to run on")
    batches = batches_of(sizes, jobs_at_a_time(options, hosts))
    prepare(options, batches)
    engine = start(options, hosts, batches, lock_fd)
    stopped = stop_on_signals(engine)
    rows = follow(engine, Progress(sizes))
    shutil.rmtree(f"{options.output}/batches", ignore_errors=True)
    return None if stopped.is_set() else rows
