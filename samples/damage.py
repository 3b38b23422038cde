#!/usr/bin/env python3
"""Damages a transport stream in known places: damage.py IN OUT

Three things go wrong: a video track loses packets in the middle of a picture, a packet of an audio
track is sent twice, and from some point on a PMT has the next version and announces one more track,
which never gets data. Prints where, with 1-based packet numbers in OUT.
"""

import sys

SIZE = 188
LOST_PID, LOST_AT, LOST_COUNT = 257, 272, 3  # the PID's packets number 272, 273, 274
REPEATED_PID, REPEATED_AT = 514, 150  # the PID's packet number 150
PMT_PID, PMT_AT = 4096, 21  # the PID's packets from number 21 on
SILENT_TRACK = bytes([0x0F, 0xE0 | 260 >> 8, 260 & 0xFF, 0xF0, 0x06]) + b"\x0a\x04ita\x00"


def pid_of(packet):
    return (packet[1] & 0x1F) << 8 | packet[2]


def has_unit_start(packet):
    return bool(packet[1] & 0x40)


def has_adaptation_field(packet):
    return bool(packet[3] & 0x20)


def crc32_mpeg(data):
    crc = 0xFFFFFFFF
    for byte in data:
        crc ^= byte << 24
        for _ in range(8):
            crc = (crc << 1 ^ 0x04C11DB7 if crc & 0x80000000 else crc << 1) & 0xFFFFFFFF
    return crc.to_bytes(4, "big")


def with_silent_track(packet):
    """The same PMT packet, next version, with one more track that never gets data."""
    assert has_unit_start(packet) and not has_adaptation_field(packet) and packet[4] == 0
    section = bytearray(packet[5:])
    length = (section[1] & 0x0F) << 8 | section[2]
    section = section[: 3 + length - 4] + SILENT_TRACK
    length += len(SILENT_TRACK)
    section[1] = section[1] & 0xF0 | length >> 8
    section[2] = length & 0xFF
    version = (section[5] >> 1 & 0x1F) + 1
    section[5] = section[5] & 0xC1 | (version & 0x1F) << 1
    section += crc32_mpeg(section)
    return (packet[:5] + section).ljust(SIZE, b"\xff")


def damage(packets):
    out, seen = [], {}

    def report(pid, what):
        print(f"{pid:<5} {len(out) + 1:<10} {what}")

    for packet in packets:
        pid = pid_of(packet)
        nth = seen[pid] = seen.get(pid, 0) + 1
        if pid == LOST_PID and LOST_AT <= nth < LOST_AT + LOST_COUNT:
            assert not has_unit_start(packet)
            if nth == LOST_AT:
                report(pid, f"before this packet, {LOST_COUNT} packets in the middle of a picture are lost")
            continue
        if pid == PMT_PID and nth >= PMT_AT:
            if nth == PMT_AT:
                report(pid, "from here on the PMT has the next version and announces one more track")
            packet = with_silent_track(packet)
        out.append(packet)
        if pid == REPEATED_PID and nth == REPEATED_AT:
            report(pid, "the packet before is sent a second time")
            out.append(packet)
    return out


def main():
    with open(sys.argv[1], "rb") as file:
        data = file.read()
    packets = [data[at : at + SIZE] for at in range(0, len(data), SIZE)]
    print("PID   at packet  damage")
    with open(sys.argv[2], "wb") as file:
        file.writelines(damage(packets))


if __name__ == "__main__":
    main()
