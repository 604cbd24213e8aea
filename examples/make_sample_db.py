#!/usr/bin/env python3
"""Writes the sample database in examples/sample: the same small address list
as a tagged document of each dialect and as delimited text (comma, CR LF,
double quote; code page 437)."""
import pathlib
import struct

FIELDS = ["Name", "City", "Phone"]
RECORDS = [
    ["José Núñez", "Sevilla", "555-0101"],
    ["Zoë Müller", "Köln", "555-0102"],
    ["François Gaël", "Besançon", "555-0103"],
    ["Ana, \"Annie\" Lee", "Tórshavn", "555-0104"],
]

# Extended characters of the tagged format: the OEM byte's (number, set).
EXTENDED = {
    "á": (0x1F, 1), "à": (0x21, 1), "ç": (0x27, 1), "é": (0x29, 1), "ë": (0x2F, 1),
    "í": (0x31, 1), "ñ": (0x39, 1), "ó": (0x3B, 1), "ö": (0x3F, 1), "ú": (0x43, 1),
    "ü": (0x47, 1), "Ñ": (0x38, 1), "É": (0x28, 1),
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
            number, charset = EXTENDED[ch]
            out += bytes([0xC0, number, charset, 0xC0])
        else:
            out += ch.encode("ascii")
    return bytes(out)


def header(minor):
    return b"\xffZRN" + struct.pack("<I", 76) + bytes([1, 10, 0, minor, 0, 0, 0, 0])


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
