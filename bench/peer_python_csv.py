"""Reads a delimited file with Python's csv module, as the benchmark's peer.

Arguments: the directory, the file's name in it and its number of fields.
Every field of every record goes into a buffer of 254 characters; prints the
number of records and the characters of all fields.
"""
import csv
import os
import sys

BUFFER_TEXT_LIMIT = 254


def main(directory, name, field_count):
    records = 0
    text = 0
    with open(os.path.join(directory, name), newline="", encoding="latin-1") as table:
        for row in csv.reader(table):
            if len(row) != field_count:
                sys.exit(f"record {records + 1} has {len(row)} fields")
            records += 1
            for field in row:
                text += len(field[:BUFFER_TEXT_LIMIT])
    print(records, text)


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], int(sys.argv[3]))
