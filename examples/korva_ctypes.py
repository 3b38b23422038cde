#!/usr/bin/env python3
"""Analyzes a capture through the shared library: korva_ctypes.py FILE [LIBRARY]

Prints each alert as it is found and the packets and alerts of each program at the end. The records
are those of korva/readout.h, field by field.
"""

import ctypes as c
import sys

PACKET = 188


def record(name, **fields):
    return type(name, (c.Structure,), {"_fields_": list(fields.items())})


Alert = record(
    "Alert",
    size=c.c_size_t, kind=c.c_uint, program=c.c_int, pid=c.c_uint32, pkt_idx=c.c_uint64,
    ptag=c.c_char_p, last_pcr=c.c_uint64,
)  # the fields of all kinds; those of single kinds follow in the header
OnAlert = c.CFUNCTYPE(None, c.c_void_p, c.POINTER(Alert))
Readout = record(
    "Readout",
    size=c.c_size_t, opaque=c.c_void_p, on_alert=OnAlert, on_sample=c.c_void_p,
    measure_all=c.c_bool,
)
Stats = record(
    "Stats",
    size=c.c_size_t, processed=c.c_uint64, analyzed=c.c_uint64, start_skipped=c.c_uint64,
    programs=c.c_size_t, lost_sync=c.c_uint64, pat_diff=c.c_uint64, cc_mlr=c.c_uint64,
)
COUNTS = (
    "processed analyzed video audio other video_analyzed audio_analyzed other_analyzed "
    "av_delta_plus av_delta0 pcr_delta pcr_freq cc_brk cc_rst pmt_diff pid_ndat"
).split()
ProgramStats = record(
    "ProgramStats",
    size=c.c_size_t, streams=c.c_size_t, pmt_pid=c.c_uint32, pcr_pid=c.c_uint32,
    **dict.fromkeys(COUNTS, c.c_uint64),
)  # without the averages behind: a record may be a shorter one


def load(path):
    lib = c.CDLL(path)
    lib.tsan_init.restype = c.c_void_p
    lib.tsan_alert_name.restype = c.c_char_p
    return lib


def analyze(lib, path):
    config = c.create_string_buffer(1024)  # the settings record, larger than it is
    lib.tsan_default_config(config)
    ctx = c.c_void_p(lib.tsan_init(path.encode(), config, None))
    if not ctx:
        sys.exit("no memory")
    lib.tsan_survive(ctx, c.c_bool(True))  # whatever its tables say

    def on_alert(_, alert):
        a = alert.contents
        name = lib.tsan_alert_name(a.kind).decode()
        print(f"{name} program={a.program} pid={a.pid} at {a.ptag.decode()}")

    readout = Readout(size=c.sizeof(Readout), on_alert=OnAlert(on_alert))
    if lib.tsan_set_readout(ctx, c.byref(readout)) != 0:
        sys.exit("another version of the library")

    with open(path, "rb") as capture:
        while len(packet := capture.read(PACKET)) == PACKET:
            if lib.tsan_process(ctx, packet) != 0:
                break
    lib.tsan_check_ndat(ctx)
    return ctx


def show(lib, ctx):
    stats = Stats(size=c.sizeof(Stats))
    lib.tsan_get_stats(ctx, c.byref(stats))
    print(f"packets: {stats.processed} processed, {stats.analyzed} analyzed")
    for i in range(stats.programs):
        program = ProgramStats(size=c.sizeof(ProgramStats))
        lib.tsan_get_program_stats(ctx, c.c_size_t(i), c.byref(program))
        counts = (f"{name}={getattr(program, name)}" for name in COUNTS)
        print(f"program {i} (PMT {program.pmt_pid}):", *counts)


def main():
    lib = load(sys.argv[2] if len(sys.argv) > 2 else "libkorva.so.0.1")
    ctx = analyze(lib, sys.argv[1])
    show(lib, ctx)
    lib.tsan_free(ctx)


main()
