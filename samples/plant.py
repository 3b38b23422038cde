#!/usr/bin/env python3
"""Plants one fault in clean.ts: plant.py KIND >OUT

KIND is a finding of korva --audit (docs/findings.md), or one of "clean", the stream as it is, and
"constant", the stream at a constant rate. Program 1 has its PMT on PID 4096, video on 257 and audio
on 258 and 259; program 2 is on 4097, 513 and 514.
"""

import pathlib
import sys

from damage import SIZE, crc32_mpeg, pid_of

CLEAN = (pathlib.Path(__file__).parent / "clean.ts").read_bytes()
RATE, WRAP = 2_500_000, 2**33 * 300  # bit/s, ticks of 27 MHz


def packets_of(data):
    return [bytearray(data[at : at + SIZE]) for at in range(0, len(data), SIZE)]


def counter(packet):
    return packet[3] & 15


def has_payload(packet):
    return packet[3] & 0x10


def payload_at(packet):
    return 5 + packet[4] if packet[3] & 0x20 else 4


def has_pcr(packet):
    return packet[3] & 0x20 and packet[4] and packet[5] & 0x10


def pcr_of(packet):
    return (int.from_bytes(packet[6:11], "big") >> 7) * 300 + ((packet[10] & 1) << 8 | packet[11])


def set_pcr(packet, ticks):
    base, extension = divmod(ticks % WRAP, 300)
    packet[6:12] = (base << 15 | 0x7E00 | extension).to_bytes(6, "big")


def is_start(packet, pid):
    return pid_of(packet) == pid and packet[1] & 0x40


def stamps_at(packet):
    """Where the PTS and the DTS of a PES header are."""
    at = payload_at(packet)
    if not packet[1] & 0x40 or packet[at : at + 3] != b"\0\0\1":
        return []
    return [at + 9, at + 14][: (packet[at + 7] >> 6).bit_count()]


def stamp(packet, at):
    a, b, c, d, e = packet[at : at + 5]
    return (a & 14) << 29 | b << 22 | (c & 254) << 14 | d << 7 | e >> 1


def set_stamp(packet, at, t):
    new = packet[at] & 0xF1 | t >> 29 & 14, t >> 22, t >> 14 | 1, t >> 7, t << 1 | 1
    packet[at : at + 5] = bytes(byte & 255 for byte in new)


def move_stamps(packet, ms):
    for at in stamps_at(packet):
        set_stamp(packet, at, (stamp(packet, at) + ms * 90) % 2**33)


def renumbered(stream):
    """Counters go up by one at each payload, as if nothing had been taken out or put in."""
    last = {}
    for p in stream:
        pid = pid_of(p)
        now = (last.get(pid, counter(p) - 1) + bool(has_payload(p))) & 15
        p[3], last[pid] = p[3] & 0xF0 | now, now
    return stream


def constant(stream):
    """Null packets are put in, so that PCRs tell one rate."""
    pcrs = [(i, pcr_of(p)) for i, p in enumerate(stream) if has_pcr(p) and pid_of(p) == 257]
    ticks = SIZE * 8 * 27_000_000 // RATE
    out = []
    for (i, t), (j, u) in zip(pcrs, pcrs[1:]):
        for n in range(i, j):
            due = (t + (u - t) * (n - i) // (j - i) - pcrs[0][1]) // ticks
            out += [bytearray(b"\x47\x1f\xff\x10".ljust(SIZE, b"\xff")) for _ in range(len(out), due)]
            out.append(stream[n])
            if has_pcr(stream[n]):
                set_pcr(stream[n], pcrs[0][1] + (len(out) - 1) * ticks)
    return out


def looped(stream, times):
    """The stream again and again, with clocks that go on."""
    pcrs = [pcr_of(p) for p in stream if has_pcr(p) and pid_of(p) == 257]
    ms = (pcrs[-1] - pcrs[0]) // 27000 + 100
    out = []
    for n in range(times):
        for p in map(bytearray, stream):
            if has_pcr(p):
                set_pcr(p, pcr_of(p) + n * ms * 27000)
            move_stamps(p, n * ms)
            out.append(p)
    return renumbered(out)


def with_section(packet, change):
    """The section of a packet, changed and with its CRC made right again."""
    length = (packet[6] & 15) << 8 | packet[7]
    section = bytearray(packet[5 : 8 + length - 4])
    change(section)
    section[1:3] = section[1] & 0xF0 | len(section) + 1 >> 8, len(section) + 1 & 255
    packet[5:] = (section + crc32_mpeg(section)).ljust(SIZE - 5, b"\xff")


def next_version(section):
    section[5] = section[5] & 0xC1 | (section[5] + 2) & 0x3E


def on_pid(stream, pid, change, first=700, count=None):
    """Changes packets of one PID, `count` of them from packet `first` (1-based) on."""
    for p in [p for p in stream[first - 1 :] if pid_of(p) == pid][:count]:
        change(p)
    return stream


def set_bits(at, bits):
    def change(packet):
        packet[at] |= bits

    return change


def in_section(change):
    return lambda packet: with_section(packet, change)


def without(stream, pid, first, last):
    return renumbered([p for i, p in enumerate(stream, 1) if pid_of(p) != pid or not first <= i <= last])


def put_in(stream, at, *packets):
    return stream[:at] + list(map(bytearray, packets)) + stream[at:]


def place_of(stream, pid, first=700):
    """Index of the first packet in the middle of something of this PID, from there on."""
    return next(i for i, p in enumerate(stream) if i >= first and pid_of(p) == pid and not p[1] & 0x40)


def sync_byte(stream):
    stream[place_of(stream, 257)][0] = 0
    return stream


def cc_loss(stream):
    at = [i for i, p in enumerate(stream) if pid_of(p) == 513 and i > 710][:3]
    return [p for i, p in enumerate(stream) if i not in at]


def cc_dup(stream):
    at = place_of(stream, 257)
    return put_in(stream, at, stream[at], stream[at])


def cc_order(stream):
    at = place_of(stream, 513)
    other = place_of(stream, 513, at + 1)
    stream[at], stream[other] = stream[other], stream[at]
    return stream


def cc_af(stream):
    """A multiplexer that counts packets of an adaptation field alone."""
    at = place_of(stream, 513)
    alone = bytes([0x47, 2, 1, 0x20 | counter(stream[at]), 183, 0]).ljust(SIZE, b"\xff")
    for p in stream[at:]:
        if pid_of(p) == 513:
            p[3] = p[3] & 0xF0 | (counter(p) + 1) & 15
    return put_in(stream, at, alone)


def psi_crc(stream):
    return on_pid(stream, 4096, lambda p: p.__setitem__(20, p[20] ^ 1), count=1)


def psi_syntax(stream):
    return on_pid(stream, 4096, set_bits(6, 15), count=1)


def psi_table(stream):
    return on_pid(stream, 0, in_section(lambda s: s.__setitem__(0, 0x42)), count=1)


def retype_german(section):
    at = section.index(bytes([0x0F, 0xE1, 3]))
    section[at] = 0x11


def drop_program_2(section):
    del section[12:16]
    next_version(section)


def new_pmt(section):
    retype_german(section)
    next_version(section)


def pcr_gap(stream):
    at = next(i for i, p in enumerate(stream) if i > 700 and pid_of(p) == 257 and has_pcr(p))
    stream[at][5] &= 0xEF
    return stream


def pcr_jump(stream):
    for p in stream[700:]:
        if pid_of(p) in (257, 258, 259):
            move_stamps(p, 5000)
            if has_pcr(p):
                set_pcr(p, pcr_of(p) + 5 * 27_000_000)
    return stream


def pcr_accuracy(stream):
    stream = constant(stream)
    late = [p for p in stream if pid_of(p) == 257 and has_pcr(p)][25]
    set_pcr(late, pcr_of(late) + 54)
    return stream


def no_stamps(packet):
    if stamps_at(packet):
        packet[payload_at(packet) + 7] &= 0x3F


def late_or_early(ms, first=1):
    return lambda stream: on_pid(stream, 258, lambda p: move_stamps(p, ms), first)


def one_picture(change):
    """Changes the PTS and the DTS of a picture that has both."""

    def plant(stream):
        p = next(p for p in stream[700:] if is_start(p, 257) and len(stamps_at(p)) == 2)
        at = stamps_at(p)
        for place, t in zip(at, change(*(stamp(p, a) for a in at))):
            set_stamp(p, place, t)
        return stream

    return plant


def scrambled(stream):
    return on_pid(stream, 259, set_bits(3, 0x80), count=20)


def protect(section):
    section[10:12] = 0xF0, 6
    section[12:12] = bytes([9, 4, 0, 1, 0xE2, 0])


def rate_loss(stream):
    stream = constant(stream)
    at = next(i for i, p in enumerate(stream) if i > 3000 and pid_of(p) == 0x1FFF)
    return stream[:at] + stream[at + 1 :]


def afc_reserved(stream):
    at = place_of(stream, 513)
    bad = bytearray(stream[at])
    bad[3] &= 0xCF
    return put_in(stream, at, bad)


def af_syntax(stream):
    p = stream[place_of(stream, 513)]
    p[3] |= 0x20
    p[4] = 184
    return stream


def unreferenced(stream):
    foreign = [bytearray([0x47, 2, 0xBC, 0x10 | n & 15]).ljust(SIZE, b"\xff") for n in range(40)]
    for n, p in enumerate(foreign):
        stream.insert(300 + 30 * n, p)
    return stream


def announce_data(section):
    section += bytes([0x05, 0xE2, 0xBC, 0xF0, 0])


PLANTS = {
    "clean": lambda s: s,
    "constant": constant,
    "SYNC-LOSS": lambda s: put_in(s, 700, b"\0" * 100),
    "SYNC-BYTE": sync_byte,
    "TEI": lambda s: on_pid(s, 258, set_bits(1, 0x80), count=2),
    "CC-LOSS": cc_loss,
    "CC-DUP": cc_dup,
    "CC-ORDER": cc_order,
    "CC-AF": cc_af,
    "PSI-CRC": psi_crc,
    "PSI-SYNTAX": psi_syntax,
    "PSI-TABLE": psi_table,
    "PSI-SCRAMBLED": lambda s: on_pid(s, 0, set_bits(3, 0x80), count=2),
    "PSI-VERSION": lambda s: on_pid(s, 4096, in_section(retype_german)),
    "PSI-GAP": lambda s: without(s, 4096, 700, 1000),
    "PCR-GAP": pcr_gap,
    "PCR-JUMP": pcr_jump,
    "PCR-ACCURACY": pcr_accuracy,
    "PTS-GAP": lambda s: on_pid(s, 258, no_stamps, count=50),
    "STAMP-LATE": late_or_early(-1000),
    "STAMP-DELAY": late_or_early(2000),
    "STAMP-BASE": late_or_early(100_000),
    "STAMP-ORDER": one_picture(lambda pts, dts: (dts - 3600, dts)),
    "STAMP-BACK": one_picture(lambda pts, dts: (pts, dts - 9000)),
    "STAMP-JUMP": late_or_early(400, 700),
    "PID-GAP": lambda s: without(s, 259, 700, 1300),
    "SCRAMBLED": scrambled,
    "CAT-MISSING": lambda s: scrambled(on_pid(s, 4096, in_section(protect), 1)),
    "RATE-LOSS": rate_loss,
    "AFC-RESERVED": afc_reserved,
    "AF-SYNTAX": af_syntax,
    "PID-UNREFERENCED": unreferenced,
    "LEADING": lambda s: put_in(s, 0, b"\0" * 50),
    "PAT-CHANGE": lambda s: on_pid(s, 0, in_section(drop_program_2)),
    "PMT-CHANGE": lambda s: on_pid(s, 4096, in_section(new_pmt)),
    "PID-ABSENT": lambda s: looped(on_pid(s, 4096, in_section(announce_data), 1), 3),
}

if __name__ == "__main__":
    if len(sys.argv) != 2 or sys.argv[1] not in PLANTS:
        sys.exit(f"{__doc__}\n{' '.join(PLANTS)}")
    sys.stdout.buffer.write(b"".join(PLANTS[sys.argv[1]](packets_of(CLEAN))))
