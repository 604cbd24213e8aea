#!/usr/bin/env python3
"""Writes the sample database in examples/sample: the same small address list
as a tagged document of each dialect (contacts.doc, contacts1.doc) and as
delimited text (contacts.txt: comma, CR LF, double quote, code page 437).

The driver stores only printable ASCII in the tagged documents that it
writes, so the accented letters of the sample's names are written here as
the format's extended characters: four bytes, 192, the character number,
the character set, 192."""
import pathlib
import struct

FIELDS = ["Name", "City", "Phone"]
RECORDS = [
    ["José Núñez", "Sevilla", "555-0101"],
    ["Zoë Müller", "Köln", "555-0102"],
    ["François Gaël", "Besançon", "555-0103"],
    ["Ana, \"Annie\" Lee", "Tórshavn", "555-0104"],
]

# Character set 1 of the driver's character table: the accented Latin
# letters, as character number and the byte of code page 437 it reads as.
SET_1 = (
    "17:E1 1B:A0 1D:83 1E:8E 1F:84 21:85 22:8F 23:86 24:92 25:91 26:80 27:87 28:90 29:82 2B:88 2D:89 2F:8A "
    "31:A1 33:8C 35:8B 37:8D 38:A5 39:A4 3B:A2 3D:93 3E:99 3F:94 41:95 43:A3 45:96 46:9A 47:81 49:97 8B:98"
)
EXTENDED = {
    bytes([int(oem, 16)]).decode("cp437"): int(number, 16)
    for number, oem in (row.split(":") for row in SET_1.split())
}

PREFIX = bytes.fromhex(
    "FB FF 05 00 32 00 00 00  00 00 06 00 08 00 00 00  42 00 00 00 08 00 02 00"
    "00 00 4A 00 00 00 00 00  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00"
    "00 00 08 00 7C 00 78 00  00 00 00 00")
FIELD_END_1 = bytes.fromhex("DE 31 04 00 04 00 31 DE 0A")
RECORD_END_1 = bytes.fromhex("DE 34 06 00 00 00 06 00 34 DE 0C")
NAME_LIST = bytes.fromhex("DE 62 04 00 04 00 62 DE")


def tagged_text(text):
    out = bytearray()
    for ch in text:
        if ch in EXTENDED:
            out += bytes([0xC0, EXTENDED[ch], 1, 0xC0])
        else:
            out += ch.encode("ascii")
    return bytes(out)


def header(minor):
    return b"\xffZRN" + struct.pack("<I", 16 + len(PREFIX)) + bytes([1, 10, 0, minor, 0, 0, 0, 0])


def dialect0():
    head = b"\x0e\n"
    for name in FIELDS:
        head += b"\xc3\x0c\xc3" + tagged_text(name) + b"\xc4\x0c\xc4\n"
    head += b"\x12\n\x05\n"
    body = b"".join(b"".join(tagged_text(v) + b"\x12\n" for v in record) + b"\x05\n" for record in RECORDS)
    return header(0) + PREFIX + head + body


def dialect1():
    head = NAME_LIST + b"\n" + b"".join(tagged_text(n) + b"~" for n in FIELDS) + b"~" + RECORD_END_1
    body = b"".join(b"".join(tagged_text(v) + FIELD_END_1 for v in record) + RECORD_END_1 for record in RECORDS)
    return header(1) + PREFIX + head + body


def delimited():
    lines = (",".join('"' + v + '"' for v in record) + "\r\n" for record in RECORDS)
    return "".join(lines).encode("cp437")


def main():
    folder = pathlib.Path(__file__).with_name("sample")
    folder.mkdir(exist_ok=True)
    (folder / "contacts.doc").write_bytes(dialect0())
    (folder / "contacts1.doc").write_bytes(dialect1())
    (folder / "contacts.txt").write_bytes(delimited())


if __name__ == "__main__":
    main()
