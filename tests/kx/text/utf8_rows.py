#!/usr/bin/env python3
"""Writes what Python's UTF-8 codec says, a row a line; bytes are in hexadecimal.

utf8_rows.py characters    all code points that have a UTF-8 form, some in each row: their UTF-32 (big endian) and their UTF-8
utf8_rows.py sequences     made bytes, the position of the first that does not belong (-1 when all do), and as UTF-32 the text in
                           which each byte that does not belong is U+DC00 plus the byte
"""
import itertools
import sys

BLOCK = 0x1000
# What lies at the borders of what a byte may be in a sequence.
BORDERS = bytes.fromhex("00 41 7F 80 8F 90 9F A0 BF C0 C1 C2 DF E0 E1 EC ED EE EF F0 F1 F3 F4 F5 FF")
LEADS_OF_FOUR = bytes.fromhex("C2 E0 ED F0 F1 F4 F5")
CONTINUATIONS = bytes.fromhex("41 7F 80 8F 90 9F A0 BF C0 C3")


def characters():
    for start in range(0, 0x110000, BLOCK):
        text = "".join(chr(code) for code in range(start, start + BLOCK) if not 0xD800 <= code <= 0xDFFF)
        yield text.encode("utf-32-be").hex(), text.encode("utf-8").hex()


def sequences():
    every_byte = bytes(range(256))
    yield from itertools.product(every_byte)
    yield from itertools.product(every_byte, every_byte)
    yield from itertools.product(BORDERS, BORDERS, BORDERS)
    yield from itertools.product(LEADS_OF_FOUR, CONTINUATIONS, CONTINUATIONS, CONTINUATIONS)
    yield from ((*"a\u00FC\u20AC".encode("utf-8"), *pair) for pair in itertools.product(BORDERS, BORDERS))


def position_of_error(sequence):
    try:
        sequence.decode("utf-8")
        return -1
    except UnicodeDecodeError as error:
        return error.start


def judged_sequences():
    for sequence in map(bytes, sequences()):
        kept = sequence.decode("utf-8", "surrogateescape").encode("utf-32-be", "surrogatepass")
        yield sequence.hex(), position_of_error(sequence), kept.hex()


for row in {"characters": characters, "sequences": judged_sequences}[sys.argv[1]]():
    print(*row, sep="\t")
