#!/usr/bin/env python3
"""A thousand damaged copies of the samples through the program: ROOT KORVA [COUNT]

It may end with status 0 or 2 or on an assertion about the tables, and with nothing else.
"""

import random
import signal
import subprocess
import sys
from collections import Counter
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

PACKET = 188
TABLES = (b"\x40\0", b"\x50\0", b"\x50\1")  # PAT and PMTs
ASSERTED = ("tc->pmt_pid[tc->nprogs]", "tc->nprogs", "tc->nprogs < MAX_PMTS", "prog(tc)->pcr_pid")
ALL_CHECKS = ("-a on -k pmt_d:pat_d:cc_t -k all -A pcr_delta=100 -A pdts_delta=100 -A pcr_freq=40 "
              "-v -v").split()


def damage(packets, rng):
    """One fault of a random kind at a random place, tables and headers more often than payload."""
    at = rng.randrange(len(packets))
    kind = rng.choice(["bits", "bits", "drop", "repeat", "swap", "tables"])
    if kind == "tables":
        at = rng.choice([i for i, p in enumerate(packets) if p[1:3] in TABLES] or [at])
    if kind == "drop":
        del packets[at:at + rng.randint(1, 20)]
    elif kind == "repeat":
        packets.insert(at, packets[at])
    elif kind == "swap":
        other = rng.randrange(len(packets))
        packets[at], packets[other] = packets[other], packets[at]
    else:
        spoiled = bytearray(packets[at])
        for _ in range(rng.randint(1, 8)):
            spoiled[rng.randrange(1, 48 if rng.random() < 0.7 else PACKET)] ^= 1 << rng.randrange(8)
        packets[at] = bytes(spoiled)


def check(seed):
    rng, sample = random.Random(seed), streams[seed % 2]
    packets = [sample[i:i + PACKET] for i in range(0, len(sample), PACKET)]
    for _ in range(rng.randint(1, 30)):
        damage(packets, rng)
    stream = b"".join(packets)[:rng.choice([None, rng.randrange(len(sample))])]
    command = [program, *(ALL_CHECKS if seed % 4 > 1 else []), "/dev/stdin"]
    run = subprocess.run(command, input=stream, capture_output=True, timeout=60)
    err = run.stderr.decode(errors="replace")
    asserted = any(f"Assertion `{text}' failed." in err for text in ASSERTED)
    if run.returncode not in (0, 2, -signal.SIGABRT if asserted else 0):
        sys.exit(f"seed {seed}: status {run.returncode}\n{err[-3000:]}")
    return run.returncode


root, program = sys.argv[1:3]
seeds = range(int(sys.argv[3]) if len(sys.argv) > 3 else 1000)
streams = [Path(root, "samples", name).read_bytes() for name in ("clean.ts", "damaged.ts")]
with ThreadPoolExecutor(2) as pool:
    print(Counter(pool.map(check, seeds)))
