#!/usr/bin/env python3
"""Writes a small MRT update file for the end-to-end tests, built here
independently of the reader: BGP4MP_MESSAGE_AS4 UPDATEs of two peers and a
session's end; or (rib) a RIB dump of the same peers. Usage:
make_updates.py OUT [corrupt|rib]."""
import struct
import sys

T = 1764064800  # 2025-11-25T10:00:00Z


def record(t, typ, sub, body):
    return struct.pack(">IHHI", t, typ, sub, len(body)) + body


def prefix(text):
    addr, length = text.split("/")
    length = int(length)
    if ":" in addr:
        import ipaddress
        raw = ipaddress.IPv6Address(addr).packed
    else:
        raw = bytes(int(x) for x in addr.split("."))
    return bytes([length]) + raw[: (length + 7) // 8]


def attr(flags, typ, value):
    if flags & 0x10:
        return struct.pack(">BBH", flags, typ, len(value)) + value
    return struct.pack(">BBB", flags, typ, len(value)) + value


def path(*ases):
    return attr(0x40, 2, struct.pack(">BB", 2, len(ases)) +
                b"".join(struct.pack(">I", a) for a in ases))


def update(withdrawn=(), attrs=b"", nlri=()):
    w = b"".join(prefix(p) for p in withdrawn)
    n = b"".join(prefix(p) for p in nlri)
    body = struct.pack(">H", len(w)) + w + struct.pack(">H", len(attrs)) + \
        attrs + n
    return b"\xff" * 16 + struct.pack(">HB", 19 + len(body), 2) + body


def message(t, peer_as, peer_ip, msg, sub=4):
    head = struct.pack(">IIHH", peer_as, 64999, 0, 1) + \
        bytes(peer_ip) + bytes([192, 0, 2, 254])
    return record(t, 16, sub, head + msg)


def mp_reach(prefixes):
    nlri = b"".join(prefix(p) for p in prefixes)
    return attr(0x90, 14, struct.pack(">HBB", 2, 1, 16) + bytes(16) +
                b"\0" + nlri)


A, B = (65001, [192, 0, 2, 1]), (65002, [192, 0, 2, 2])
out = b"".join([
    message(T, *A, update(attrs=path(65001, 100), nlri=["10.0.0.0/8"])),
    message(T, *B, update(attrs=path(65002, 200),
                          nlri=["10.0.0.0/8", "10.1.0.0/16"])),
    message(T + 5, *A, update(attrs=path(65001, 400) +
                              mp_reach(["2001:db8::/32"]))),
    message(T + 10, *A, update(withdrawn=["10.0.0.0/8", "11.0.0.0/8"])),
    record(T + 20, 16, 5, struct.pack(">IIHH", B[0], 64999, 0, 1) +
           bytes(B[1]) + bytes([192, 0, 2, 254]) + struct.pack(">HH", 6, 1)),
])
mode = sys.argv[2] if len(sys.argv) > 2 else ""
if mode == "corrupt":
    out += message(T + 30, *A, update(nlri=["10.0.0.0/33"]))
elif mode == "rib":
    # A TABLE_DUMP_V2 dump of the same two peers just before: A (index 0)
    # and B hold 10.0.0.0/8, A alone 12.0.0.0/8.
    peers = b"".join(struct.pack(">BI", 2, 0) + bytes(ip) +
                     struct.pack(">I", asn) for asn, ip in (A, B))
    out = record(T - 60, 13, 1, struct.pack(">IH", 0, 0) +
                 struct.pack(">H", 2) + peers)

    def rib(seq, net, entries):
        body = struct.pack(">I", seq) + prefix(net) + \
            struct.pack(">H", len(entries))
        for index, attrs in entries:
            body += struct.pack(">HIH", index, T - 100, len(attrs)) + attrs
        return record(T - 60, 13, 2, body)
    out += rib(0, "10.0.0.0/8", [(0, path(65001, 301)), (1, path(65002, 300))])
    out += rib(1, "12.0.0.0/8", [(0, path(65001, 302))])
open(sys.argv[1], "wb").write(out)
