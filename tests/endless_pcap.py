#!/usr/bin/env python3
"""A capture of any length, written to standard output, for memory tests: the tool must decode it with
flat memory whatever its length. Deterministic.

usage: endless_pcap.py BULK_PCAP BYTES

BULK_PCAP is the bulk workload's capture (bench/workloads/bulk.py). The output is a classic pcap of at
least BYTES bytes, in rounds one second of capture time apart. Each round holds
  * the first 2,000 messages of BULK_PCAP (decoded),
  * 4,000 full-size UDP datagrams that are not SOME/IP (passed over),
  * what the reader must hold, and must let go of within its bounds: the first segment of a SOME/IP-TP
    message that never ends, the first fragment of an IP datagram that never ends, and a TCP segment
    beyond a hole that is never filled.
"""
import struct
import sys

ROUND_MESSAGES, FILLERS = 2000, 4000


def ip(proto, payload, ident=0, flags=0x4000):
    return struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(payload), ident & 0xFFFF, flags, 64, proto, 0,
                       bytes([10, 0, 0, 3]), bytes([10, 0, 0, 4])) + payload


def frame(seconds, packet):
    data = b"\x02\x00\x00\x00\x00\x02\x02\x00\x00\x00\x00\x01\x08\x00" + packet
    return struct.pack("<IIII", seconds, 0, len(data), len(data)) + data


def someip(method, session, kind, payload):
    return struct.pack(">HHIHHBBBB", 0x1234, method, 8 + len(payload), 0, session & 0xFFFF, 1, 1, kind, 0) + payload


def udp(port, payload):
    return struct.pack(">HHHH", port, port, 8 + len(payload), 0) + payload


def tcp(seq, flags, payload):
    return struct.pack(">HHIIBBHHH", 40000, 30501, seq & 0xFFFFFFFF, 0, 0x50, flags, 0xFFFF, 0, 0) + payload


def held(n, seconds):
    """Frames the reader keeps state for: a TP message, a fragmented datagram, a stream beyond a hole."""
    tp = udp(30490, someip(0x8001, n, 0x22, struct.pack(">I", 1) + bytes(1024)))
    fragment = ip(17, udp(30499, someip(0x8001, n, 0x02, bytes(1400)))[:1024], ident=n, flags=0x2000)
    stream = tcp(1001 + 2048 * n, 0x10, someip(0x8001, n, 0x02, bytes(1008)))
    return frame(seconds, ip(17, tp)) + frame(seconds, fragment) + frame(seconds, ip(6, stream))


def main():
    bulk, want = sys.argv[1], int(sys.argv[2])
    with open(bulk, "rb") as f:
        header, rest = f.read(24), f.read()
    frames, at = [], 0
    while at < len(rest) and len(frames) < ROUND_MESSAGES:
        size = struct.unpack_from("<I", rest, at + 8)[0]
        frames.append(rest[at:at + 16 + size])
        at += 16 + size
    messages = b"".join(frames)
    out = sys.stdout.buffer
    out.write(header)
    # The stream opens with a SYN so that its first bytes count as SOME/IP.
    start = 1700000000
    out.write(frame(start, ip(6, tcp(1000, 0x02, b""))))
    written, n = 24, 0
    while written < want:
        seconds = start + n
        filler = frame(seconds, ip(17, udp(9, bytes(range(256)) * 5 + bytes(192))))
        chunk = messages + filler * FILLERS + held(n, seconds)
        out.write(chunk)
        written += len(chunk)
        n += 1


if __name__ == "__main__":
    main()
