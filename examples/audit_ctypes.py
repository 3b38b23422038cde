#!/usr/bin/env python3
"""Audits a stream that comes over UDP, and tells what each PID lost: audit_ctypes.py [PORT [LIBRARY]]

Datagrams of 7 packets are taken from that port of the loopback, any free one with 0 or without it.
Findings come to standard error, what each PID carried and lost to standard output when nothing has
come for two seconds. The records are those of korva/audit.h, field by field.
"""

import ctypes as c
import socket
import sys

PACKET = 188
MPEG, COMPLETE = 0, 0  # audit_profile, audit_ending


def record(name, **fields):
    return type(name, (c.Structure,), {"_fields_": list(fields.items())})


Finding = record(
    "Finding",
    size=c.c_size_t, kind=c.c_uint, severity=c.c_uint, pid=c.c_int32, program_number=c.c_int32,
    packet=c.c_uint64, offset=c.c_uint64, time=c.c_double,
)  # others follow in the header
OnFinding = c.CFUNCTYPE(None, c.c_void_p, c.POINTER(Finding))
Config = record(
    "Config",
    size=c.c_size_t, profile=c.c_uint, limits=c.c_double * 32, first_packet=c.c_uint64,
    opaque=c.c_void_p, on_finding=OnFinding,
)  # without what follows: a record may be a shorter one
Pid = record(
    "Pid",
    size=c.c_size_t, pid=c.c_uint16, what=c.c_char * 48, program_numbers=c.c_void_p,
    programs=c.c_size_t, packets=c.c_uint64, scrambled=c.c_uint64, tei=c.c_uint64,
    duplicates=c.c_uint64, lost=c.c_uint64,
)
Report = record("Report", size=c.c_size_t, verdict=c.c_uint, packets=c.c_uint64)


def load(path):
    lib = c.CDLL(path)
    lib.audit_init.restype = c.c_void_p
    for name in "kind", "severity", "verdict":
        getattr(lib, f"audit_{name}_name").restype = c.c_char_p
    return lib


def new_audit(lib, on_finding):
    config = Config(size=c.sizeof(Config))
    lib.audit_default_config(MPEG, c.byref(config))
    config.on_finding = on_finding
    err = c.c_int()
    audit = c.c_void_p(lib.audit_init(c.byref(config), c.byref(err)))
    if not audit:
        sys.exit(f"no audit: {err.value}")
    return audit


def open_port(port):
    udp = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    udp.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4 << 20)  # for bursts; it may be less
    udp.bind(("127.0.0.1", port))
    print("listening on port", udp.getsockname()[1], flush=True)
    return udp


def receive(lib, audit, udp):
    offset = 0  # in the stream, bytes
    try:
        while True:
            datagram = udp.recv(65536)
            lib.audit_datagram(
                audit, datagram, c.c_size_t(len(datagram)), c.c_size_t(PACKET), c.c_uint64(offset))
            offset += len(datagram)
            udp.settimeout(2)
    except TimeoutError:
        pass


def show(lib, audit):
    pid = Pid(size=c.sizeof(Pid))
    index = 0
    while lib.audit_get_pid(audit, c.c_size_t(index), c.byref(pid)) == 0:
        print(f"PID {pid.pid} ({pid.what.decode()}): {pid.packets} packets, {pid.lost} lost")
        index += 1
    report = Report(size=c.sizeof(Report))
    lib.audit_get_report(audit, c.byref(report))
    print(lib.audit_verdict_name(report.verdict).decode())


def main():
    lib = load(sys.argv[2] if len(sys.argv) > 2 else "libkorva.so.0.1")

    @OnFinding
    def on_finding(_, finding):
        f = finding.contents
        severity, kind = lib.audit_severity_name(f.severity), lib.audit_kind_name(f.kind)
        print(severity.decode(), kind.decode(), "PID", f.pid, "at packet", f.packet, file=sys.stderr)

    audit = new_audit(lib, on_finding)
    receive(lib, audit, open_port(int(sys.argv[1]) if len(sys.argv) > 1 else 0))
    lib.audit_end(audit, COMPLETE)
    show(lib, audit)
    lib.audit_free(audit)


main()
