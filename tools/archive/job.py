"""Runs korva on the captures of one batch, on whichever host: job.py BATCH, in the program folder.

It keeps what each run says in files/PATH and writes its row to a file in rows and, on a line, to
standard output. It is copied into the folder of the results, where each host sees it, and needs nothing but Python.
"""

import contextlib
import json
import os
import resource
import select
import signal
import stat
import sys
import time

import folders
import judge

OUTPUT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# Logs, records and page of a capture take 64 MiB at most: 12 from the front, 4 from the end of each.
FRONT, END = 12 << 20, 4 << 20
PIPE = 64 << 10  # bytes that a pipe holds
PAUSE_MS = 10
DETAIL = 300  # characters
TAG = 63  # bytes that korva keeps of a source tag
LOGS = ("korva.alerts", "korva.report", "korva.jsonl", "korva.html")
ENVIRONMENT = {name: value for name, value in os.environb.items() if name != b"POSIXLY_CORRECT"}
running = None  # korva's process


class Log:
    """A pipe from korva to a file that keeps the front and the end of what comes."""

    def __init__(self, name, folder_fd):
        self.file = open(name, "wb", opener=folders.open_beside(folder_fd))
        self.is_json = name.endswith(".jsonl")
        self.room, self.end, self.cut = FRONT, bytearray(), 0
        self.read_end, self.write_end = os.pipe()
        os.set_blocking(self.read_end, False)

    def __enter__(self):
        return self

    def take(self):
        """Returns how many bytes there were."""
        try:
            data = os.read(self.read_end, PIPE)
        except BlockingIOError:
            return 0
        self.write(data)
        return len(data)

    def write(self, data):
        if self.room > 0 and len(data) <= self.room:
            self.room -= len(data)
            self.file.write(data)
            return
        if self.room > 0:  # up to the end of a line
            front = data[:data.rfind(b"\n", 0, self.room) + 1]
            self.file.write(front)
            self.room, data = 0, data[len(front):]
        self.end += data
        if len(self.end) > 2 * END:
            self.drop(len(self.end) - END)

    def drop(self, size):
        self.cut += size
        del self.end[:size]

    def write_end_of_file(self):
        if len(self.end) > END:
            self.drop(len(self.end) - END)
        if self.cut:
            self.drop(self.end.find(b"\n") + 1)
            mark = '{"record":"cut","bytes":%d}\n' if self.is_json else "korva-archive: %d bytes left out here\n"
            self.file.write((mark % self.cut).encode())
        self.file.write(self.end)

    def __exit__(self, *_):
        os.close(self.read_end)
        with self.file:
            self.write_end_of_file()


def tag_of(path):
    """The path, or what korva has room for of its end, on one line."""
    tag = os.fsencode("".join(c if c.isprintable() or "\udc80" <= c <= "\udcff" else "?" for c in path))
    if len(tag) <= TAG:
        return tag
    end = tag[3 - TAG:]
    return b"..." + end[next((i for i in range(4) if end[i] & 0xc0 != 0x80), 0):]


def name_of(path):
    """As a word that is no option. It stands before the others: only the first one is a capture."""
    name = path.rpartition("/")[2]
    return f"./{name}" if name.startswith("-") else name


def start(options, path, logs):
    """Returns korva's process, which alone holds the other ends of the pipes."""
    alerts, report, *files = (log.write_end for log in logs)
    for fd in files:
        os.set_inheritable(fd, True)
    outputs = [f"{option}=/dev/fd/{fd}" for option, fd in zip(("--json", "--report"), files)]
    program, *words = options["korva"]
    try:
        return os.posix_spawnp(
            program, [program, "-a", "on", "-S", tag_of(path), name_of(path), *outputs, *words],
            ENVIRONMENT, setsigdef=[signal.SIGPIPE, signal.SIGXFSZ],  # which Python ignores
            file_actions=[(os.POSIX_SPAWN_OPEN, 0, "/dev/null", os.O_RDONLY, 0),
                          (os.POSIX_SPAWN_DUP2, alerts, 1), (os.POSIX_SPAWN_DUP2, report, 2)])
    finally:
        for log in logs:
            os.close(log.write_end)


def keep_outputs(logs, process):
    """Until korva has ended. It is left in peace as long as it says little: each line would wake us."""
    end = select.poll()
    end.register(process_fd := os.pidfd_open(process), select.POLLIN)
    try:
        pause_ms = PAUSE_MS
        while not end.poll(pause_ms):
            most = max(log.take() for log in logs)
            pause_ms = PAUSE_MS if most < PIPE // 4 else 0
    finally:
        os.close(process_fd)
    while any([log.take() for log in logs]):
        pass


def run_korva(options, path, folder_fd):
    """Returns the exit status as a shell has it, and how many bytes the logs lack."""
    global running
    with contextlib.ExitStack() as stack:
        names = LOGS if options["report"] else LOGS[:-1]
        logs = [stack.enter_context(Log(name, folder_fd)) for name in names]
        running = start(options, path, logs)
        try:
            keep_outputs(logs, running)
        except OSError:  # no room for them
            os.kill(running, signal.SIGKILL)
            raise
        finally:
            code = os.waitstatus_to_exitcode(os.waitpid(running, 0)[1])
            running = None
    return code if code >= 0 else 128 - code, sum(log.cut for log in logs)


def what_is(mode):
    return "directory" if stat.S_ISDIR(mode) else "FIFO" if stat.S_ISFIFO(mode) else "device or socket"


def check(options, path, folder_fd):
    """The row of a capture, with all that korva says of it in that folder."""
    capture_folder, _, name = path.rpartition("/")
    try:
        go_to(capture_folder or "/")
    except OSError as error:
        return without_run(path, folder_fd, "unreadable", error.strerror)
    size, mtime = None, None
    try:
        found = os.stat(name)
        if not stat.S_ISREG(found.st_mode):
            return without_run(path, folder_fd, "skipped", f"{what_is(found.st_mode)}, no regular file")
        size, mtime = found.st_size, found.st_mtime_ns
    except OSError:
        pass  # korva says why it cannot be opened
    begin = time.monotonic()
    status, cut = run_korva(options, path, folder_fd)
    seconds = time.monotonic() - begin
    row = judge.row_of(path, status, size or 0, folder_fd)
    notes = [row["detail"], cut and f"{cut / 1e6:.1f} MB of logs left out",
             mtime and is_changed(name, size, mtime) and "changed while it was checked"]
    return {**row, "size": size, "mtime": mtime, "seconds": round(seconds, 3),
            "detail": "; ".join(filter(None, notes))[:DETAIL]}


def go_to(folder):
    fd = folders.open_folder(folder)
    try:
        os.fchdir(fd)
    finally:
        os.close(fd)


def is_changed(name, size, mtime):
    try:
        now = os.stat(name)
    except OSError:
        return True
    return (now.st_size, now.st_mtime_ns) != (size, mtime)


def forget(folder_fd):
    """What an earlier run has left."""
    for name in LOGS:
        try:
            os.unlink(name, dir_fd=folder_fd)
        except FileNotFoundError:
            pass


def without_run(path, folder_fd, result, detail):
    forget(folder_fd)
    return judge.empty_row(path, result, detail)


def do_capture(options, path):
    try:
        folder_fd = folders.open_folder(OUTPUT + "/files" + path, create=True)
    except OSError as error:
        return judge.empty_row(path, "not checked", f"no room for its results: {error.strerror}")
    try:
        return check(options, path, folder_fd)
    except OSError as error:
        cause = f"cannot run {options['korva'][0]}: " if error.filename == options["korva"][0] else ""
        return judge.empty_row(path, "not checked", cause + error.strerror)
    finally:
        os.close(folder_fd)


def rows_in(lines):
    """Without the line at which a job was killed."""
    for line in lines:
        try:
            yield json.loads(line)
        except ValueError:
            continue


def done_elsewhere(batch_rows):
    """Rows by path of a host that had begun with this batch."""
    rows = {}
    for name in os.listdir(f"{OUTPUT}/rows"):
        if name.startswith(batch_rows):
            with open(f"{OUTPUT}/rows/{name}", "rb") as lines:
                rows.update((row["file"], row) for row in rows_in(lines) if row["result"] != "not checked")
    return rows


def do_batch(options, batch, name):
    """Returns whether all captures could be checked. What is in a row is done."""
    host, done = os.uname().nodename, True
    earlier = done_elsewhere(name)
    with open(f"{OUTPUT}/rows/{name}{host}.{os.getpid()}", "ab", buffering=0) as rows:
        for path in batch:
            row = earlier.get(path) or {**do_capture(options, path), "host": host}
            done &= row["result"] != "not checked"
            line = json.dumps(row)
            rows.write(line.encode() + b"\n")
            print(line, flush=True)
    return done


def stop(number, _):
    if running:
        os.kill(running, signal.SIGKILL)
    os._exit(128 + number)


def main():
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    for number in judge.STOPPING:
        signal.signal(number, stop)
    with open(f"{OUTPUT}/options") as file:
        options = json.load(file)
    number = sys.argv[1]
    with open(f"{OUTPUT}/batches/{number}") as file:
        batch = json.load(file)
    return 0 if do_batch(options, batch, f"{options['run']}.{number}.") else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BrokenPipeError:  # nobody waits for the rows any more
        os._exit(1)
    except OSError as error:
        sys.exit(f"no room for results: {error.strerror}")
