#!/usr/bin/env python3
"""Lists what a packet file holds: read_packet.py FILE

Needs nothing beyond Python's standard library. docs/packet-format.md describes the bytes; this program is also an
example of a reader written from that description alone. Numbers of arrays are printed as their bits.

Exits with 0 when the file is whole, and with 1 and a reason when it is not.
"""

import struct
import sys

MAGIC = b"\x8bkopk\r\n\x1a"
MARKER = 0xDBAC4B9E
TYPE_NAME, PACKET, END, INFORMATION = 1, 2, 3, 4
FIRST, LAST, TAGGED, MUST_UNDERSTAND = 1, 2, 4, 8
MOST_DEPTH = 64


class Damage(Exception):
    """What is wrong with a file, and at which byte."""


def crc_table():
    table = []
    for i in range(256):
        for _ in range(8):
            i = i >> 1 ^ (0x82F63B78 if i & 1 else 0)
        table.append(i)
    return table


CRC_TABLE = crc_table()


def crc32c(data, crc=0):
    """The checksum of what `crc` stands for, followed by data."""
    crc ^= 0xFFFFFFFF
    for byte in data:
        crc = crc >> 8 ^ CRC_TABLE[(crc ^ byte) & 0xFF]
    return crc ^ 0xFFFFFFFF


def masked(crc):
    return ((crc >> 15 | crc << 17) + 0xA282EAD8) & 0xFFFFFFFF


def type_id(name):
    h = 0xCBF29CE484222325
    for byte in name:
        h = (h ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return h


def check(condition, at, what):
    if not condition:
        raise Damage(f"byte {at}: {what}")


def read_file_header(data):
    """Returns the salt of the file and where its records begin."""
    check(len(data) >= 8 and data[:8] == MAGIC, 0, "not a packet file")
    check(len(data) >= 40, len(data), "cut off")
    major, _minor, length, needed, _optional, order, salt, zero = struct.unpack_from("<HHIIIIII", data, 8)
    check(order != 0x04030201, 24, "written in the wrong byte order")
    check(40 <= length <= 4096 and length % 8 == 0 and length <= len(data), 12, "file header damaged")
    (crc,) = struct.unpack_from("<I", data, length - 4)
    check(crc == masked(crc32c(data[: length - 4])), length - 4, "file header damaged")
    check(order == 0x01020304 and zero == 0, 24, "file header damaged")
    check(major == 1, 8, f"version {major} is not known here")
    check(needed == 0, 16, "needs a feature that is not known here")
    return salt, length


def read_records(data):
    """Yields (offset, kind, flags, type id, payload) of every record but the end."""
    salt, at = read_file_header(data)
    number = packets = header_crcs = 0
    while True:
        check(at + 32 <= len(data), at, "cut off")
        marker, crc, length, kind, flags, zero, type_, stored_number, payload_crc = struct.unpack_from(
            "<IIIBBHQII", data, at
        )
        check(marker == MARKER and crc == masked(crc32c(data[at + 8 : at + 32], salt)), at, "record damaged")
        check(length <= 1 << 20 and zero == 0 and flags < 16, at, "record damaged")
        check(stored_number == number & 0xFFFFFFFF, at, "record out of order")
        payload = data[at + 32 : at + 32 + length]
        following = at + 32 + (length + 7) // 8 * 8
        check(following <= len(data), at, "cut off")
        check(payload_crc == masked(crc32c(payload)), at, "payload damaged")
        check(not any(data[at + 32 + length : following]), at, "padding damaged")
        if kind == END:
            expected = struct.pack("<QQQII", number, packets, at, masked(header_crcs), 0)
            check(payload == expected and flags == 0 and type_ == 0, at, "end record disagrees with the file")
            check(following == len(data), following, "bytes after the end")
            return
        number += 1
        packets += kind == PACKET and flags & LAST != 0
        header_crcs = crc32c(data[at + 4 : at + 8], header_crcs)
        check(kind in (TYPE_NAME, PACKET, INFORMATION) or not flags & MUST_UNDERSTAND, at, "unknown record")
        yield at, kind, flags, type_, payload
        at = following


def read_packets(data):
    """Yields (offset, type name, id or None, values) of every packet."""
    names = {}
    parts = None
    last_id = 0
    for at, kind, flags, type_, payload in read_records(data):
        if kind == TYPE_NAME:
            check(0 < len(payload) < 256 and type_id(payload) == type_, at, "type name damaged")
            names[type_] = payload.decode("utf-8", "replace")
        if kind != PACKET:
            continue

        # A packet above 1 MiB takes several records.
        if flags & FIRST:
            check(parts is None, at, "parts of a packet missing")
            parts, first_flags, first_type = bytearray(), flags, type_
        check(parts is not None and type_ == first_type, at, "parts of a packet missing")
        parts += payload
        if not flags & LAST:
            continue
        body, parts = bytes(parts), None

        id_ = None
        if first_flags & TAGGED:
            check(len(body) >= 8, at, "packet damaged")
            (id_,) = struct.unpack_from("<Q", body)
            check(id_ > last_id, at, "object number repeated")
            last_id = id_
            body = body[8:]
        if not first_flags & LAST:
            check(len(body) >= 8 and struct.unpack_from("<Q", body)[0] == len(body) - 8, at, "packet damaged")
            body = body[8:]
        yield at, names.get(type_, f"type {type_:016x}"), id_, read_values(body, at)
    check(parts is None, len(data), "parts of a packet missing")


# Arrays by their tags: a name, and the bytes of an element.
ARRAYS = {0xA1: ("bytes", 1), 0xA2: ("shorts", 2), 0xA3: ("ints", 4), 0xA4: ("floats", 4), 0xA5: ("doubles", 8)}


def read_values(body, at, depth=0):
    """Returns the values of a packet or sub-packet as pairs of a name and what it holds."""
    values = []
    place = 0
    while place < len(body):
        tag = body[place]
        place += 1
        size_class = tag >> 5
        check(tag != 0 and size_class != 7, at, "value damaged")
        if size_class in (5, 6):
            check(len(body) - place >= 8, at, "value damaged")
            (length,) = struct.unpack_from("<Q", body, place)
            place += 8
        else:
            length = (0, 1, 2, 4, 8)[size_class]
        check(length <= len(body) - place, at, "value damaged")
        content = body[place : place + length]
        place += length

        if tag == 0x01:
            values.append(("chunk", None))
        elif tag in (0x02, 0x03):
            values.append(("bool", tag == 0x03))
        elif tag == 0x04:
            values.append(("reference", None))
        elif tag == 0x61:
            values.append(("int", struct.unpack("<i", content)[0]))
        elif tag == 0x81:
            values.append(("reference", struct.unpack("<Q", content)[0]))
        elif tag in ARRAYS:
            name, width = ARRAYS[tag]
            check(length % width == 0, at, "value damaged")
            values.append((name, [content[i : i + width][::-1].hex() for i in range(0, length, width)]))
        elif tag == 0xC1:
            check(depth < MOST_DEPTH, at, "nested too deep")
            values.append(("sub-packet", read_values(content, at, depth + 1)))
        else:
            values.append((f"value {tag:02x}", None))
    return values


def print_values(values, depth=1):
    for name, content in values:
        line = "  " * depth + name
        if name == "sub-packet":
            print(line)
            print_values(content, depth + 1)
        elif isinstance(content, list):
            print(" ".join([line, *content]))
        elif name == "reference" and content is None:
            print(line, "null")
        elif isinstance(content, bool):
            print(line, "true" if content else "false")
        else:
            print(line if content is None else f"{line} {content}")


def main(arguments):
    if len(arguments) != 1:
        print("usage: read_packet.py FILE", file=sys.stderr)
        return 2
    try:
        with open(arguments[0], "rb") as file:
            data = file.read()
        for _at, name, id_, values in read_packets(data):
            print(name if id_ is None else f"{name} = object {id_}")
            print_values(values)
    except (Damage, OSError) as problem:
        print(f"{arguments[0]}: {problem}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
