#!/usr/bin/env python3
"""The bulk workload: N notifications of one event service, as hex lines, as a capture, and the format
file that describes them. Deterministic: the same N and seed give the same bytes on every machine.

usage: bench/workloads/bulk.py OUTDIR [N=100000] [SEED=1]

Writes into OUTDIR
  bulk.json   the format: service 4660 (0x1234), big endian, 32-bit length fields, UTF-8 strings, three
              events 32769..32771 that differ in their last parameter
  bulk.txt    one line per message: "<event id> <payload hex>" (message type 2, notification)
  bulk.pcap   the same messages as a classic pcap: Ethernet / IPv4 / UDP 30490 -> 30490, one SOME/IP
              message per datagram, 1 ms apart

A payload holds every basic type, a structure, three uint16, a vector of 1..25 uint32, two strings and a
tagged value written as two uint32 (its length, its selector) and one member, the member named by the
event: a uint32 (32769), a string (32770) or a structure (32771). Payloads are about 100 to 270 bytes.
"""
import argparse
import json
import os
import random
import struct

SERVICE, PORT = 0x1234, 30490
WORDS = ["alpha", "beta", "gamma", "delta", "Grüße", "naïve", "ÆØÅ", "日本",
         "sensor", "door", "left", "front", "status", "ok", "warning"]

# One description for the format file and the payloads: (name, type, value maker). The struct
# module's codes stand for the basic types; "struct", "vector" and "string" for the containers.
BASIC = {"B": "uint8_t", "H": "uint16_t", "I": "uint32_t", "Q": "uint64_t", "b": "int8_t", "h": "int16_t",
         "i": "int32_t", "q": "int64_t", "f": "float", "d": "double", "?": "bool"}
POINT = [("x", "h"), ("y", "i"), ("valid", "?")]


def sentence(r, least, most):
    return " ".join(r.choice(WORDS) for _ in range(r.randrange(least, most + 1)))


COMMON = [
    ("u8", "B", lambda r: r.randrange(256)), ("u16", "H", lambda r: r.randrange(65536)),
    ("u32", "I", lambda r: r.getrandbits(32)), ("u64", "Q", lambda r: r.getrandbits(64)),
    ("i8", "b", lambda r: r.randrange(-128, 128)), ("i16", "h", lambda r: r.randrange(-32768, 32768)),
    ("i32", "i", lambda r: r.randrange(-2**31, 2**31)), ("i64", "q", lambda r: r.randrange(-2**63, 2**63)),
    ("f32", "f", lambda r: r.uniform(-1e3, 1e3)), ("f64", "d", lambda r: r.uniform(-1e6, 1e6)),
    ("flag", "?", lambda r: bool(r.randrange(2))), ("color", "B", lambda r: r.randrange(3)),
    ("temp", "f", lambda r: r.uniform(-40, 85)),
    ("point", "struct", lambda r: [r.randrange(-32768, 32768), r.randrange(-2**31, 2**31), bool(r.randrange(2))]),
    ("fixed_0", "H", lambda r: r.randrange(65536)), ("fixed_1", "H", lambda r: r.randrange(65536)),
    ("fixed_2", "H", lambda r: r.randrange(65536)),
    ("vec", "vector", lambda r: [r.getrandbits(32) for _ in range(r.randrange(1, 26))]),
    ("name", "string", lambda r: sentence(r, 1, 7)), ("wname", "string", lambda r: sentence(r, 0, 2)),
]
# The tagged value's members, by selector: (event ID, name, type, value maker).
MEMBERS = {1: (0x8001, "asU32", "I", lambda r: r.getrandbits(32)),
           2: (0x8002, "asText", "string", lambda r: r.choice(WORDS)),
           3: (0x8003, "asPoint", "struct", lambda r: [1, 2, True])}


def param(name, kind):
    if kind == "struct":
        return {"ParamName": name, "ParamType": "STRUCTURE", "SubParams": [param(n, k) for n, k in POINT]}
    if kind == "vector":
        return {"ParamName": name, "ParamType": "VECTOR", "SubParams": [param("e", "I")]}
    if kind == "string":
        return {"ParamName": name, "ParamType": "STRING"}
    return {"ParamName": name, "ParamType": BASIC[kind]}


def with_length(body):
    return struct.pack(">I", len(body)) + body


def encode(kind, value):
    if kind == "struct":
        return with_length(b"".join(struct.pack(">" + k, v) for (_, k), v in zip(POINT, value)))
    if kind == "vector":
        return with_length(struct.pack(">%dI" % len(value), *value))
    if kind == "string":
        return with_length(b"\xef\xbb\xbf" + value.encode("utf-8") + b"\0")
    return struct.pack(">" + kind, value)


def format_file():
    events = []
    for selector, (event, name, kind, _) in sorted(MEMBERS.items()):
        params = [param(n, k) for n, k, _ in COMMON] + [param("variant_len", "I"), param("variant_sel", "I"),
                                                        param(name, kind)]
        events.append({"EventName": "Bulk_" + name, "EventID": str(event),
                       "Params": [{"MethodType": "event", "ParamsDetails": params}]})
    attribute = {"ArrayLengthFieldSize": "0", "VectorLengthFieldSize": "32", "StructLengthFieldSize": "32",
                 "StringLengthFieldSize": "32", "UnionLengthFieldSize": "32", "UnionTypeSelectorFieldSize": "32",
                 "DataAlignment": "8", "ByteOrderEnum": "BYTE_ORDER_BIG_ENDIAN", "StringEncoding": "UTF8"}
    return {"Services": [{"ServiceName": "BulkService", "ServiceID": str(SERVICE), "Attribute": attribute,
                          "Events": events}]}


def message(r):
    body = b"".join(encode(kind, make(r)) for _, kind, make in COMMON)
    selector = r.randrange(1, 4)
    event, _, kind, make = MEMBERS[selector]
    member = encode(kind, make(r))
    return event, body + struct.pack(">II", len(member), selector) + member


def frame(event, session, payload, ip_id):
    someip = struct.pack(">HHIHHBBBB", SERVICE, event, 8 + len(payload), 0, session, 1, 1, 0x02, 0) + payload
    udp = struct.pack(">HHHH", PORT, PORT, 8 + len(someip), 0) + someip
    ip = bytearray(struct.pack(">BBHHHBBH4s4s", 0x45, 0, 20 + len(udp), ip_id & 0xFFFF, 0x4000, 64, 17, 0,
                               bytes((10, 0, 0, 1)), bytes((10, 0, 0, 2))))
    total = sum(struct.unpack(">10H", ip))
    while total >> 16:
        total = (total & 0xFFFF) + (total >> 16)
    ip[10:12] = struct.pack(">H", ~total & 0xFFFF)
    return bytes.fromhex("020000000002020000000001" "0800") + bytes(ip) + udp


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0], epilog=__doc__.split("\n\n", 1)[1],
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("outdir")
    parser.add_argument("n", nargs="?", type=int, default=100000, help="messages (default 100000)")
    parser.add_argument("seed", nargs="?", type=int, default=1, help="(default 1)")
    args = parser.parse_args()
    out, count, r = args.outdir, args.n, random.Random(args.seed)
    os.makedirs(out, exist_ok=True)
    with open(os.path.join(out, "bulk.json"), "w", encoding="utf-8") as f:
        json.dump(format_file(), f, indent=1, ensure_ascii=False)
        f.write("\n")
    start_us = 1_700_000_000 * 1_000_000
    with open(os.path.join(out, "bulk.txt"), "w") as txt, open(os.path.join(out, "bulk.pcap"), "wb") as pcap:
        pcap.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, 1))
        for i in range(count):
            event, payload = message(r)
            txt.write("%d %s\n" % (event, payload.hex()))
            data = frame(event, i % 0xFFFF + 1, payload, i)
            sec, usec = divmod(start_us + i * 1000, 1_000_000)
            pcap.write(struct.pack("<IIII", sec, usec, len(data), len(data)) + data)


if __name__ == "__main__":
    main()
