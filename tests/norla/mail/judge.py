"""Reads messages from standard input, each behind a line with its size in bytes, with Python's email package, and prints
what it found in each as a line of JSON: texts as the hexadecimal digits of their UTF-8 form, bodies decoded by their
transfer encoding. Whatever the package finds wrong with an entity is printed as its "defects".
"""
import email
import email.policy
import json
import sys
from email.header import decode_header
from email.utils import parseaddr

# Fields that have a grammar of their own: the package shows them in a normal form of its own.
STRUCTURED = {"content-type", "content-transfer-encoding", "mime-version"}


def hexadecimal(text):
    return text.encode("utf-8", "surrogateescape").hex()


def decoded(raw):
    return "".join(piece if isinstance(piece, str) else piece.decode(charset or "latin-1")
                   for piece, charset in decode_header(raw))


def readings(name, raw):
    """The value as the package's older and newer interface read it; once, if they agree."""
    if name.lower() in STRUCTURED:
        return [raw]
    return dict.fromkeys([decoded(raw), str(email.policy.default.header_fetch_parse(name, raw))])


def content(entity):
    parts = entity.get_payload()
    if isinstance(parts, list):
        yield "parts", [report(part) for part in parts]
    elif entity.get_content_maintype() == "multipart":
        yield "parts", []
    else:
        yield "body", entity.get_payload(decode=True).hex()
    for key in ("preamble", "epilogue"):
        if getattr(entity, key):
            yield key, hexadecimal(getattr(entity, key))


def report(entity):
    raw = {name: value for name, value in entity.raw_items() if name.lower() != "from"}
    found = {"headers": [[name, *map(hexadecimal, readings(name, value))] for name, value in raw.items()]}
    found.update(content(entity))
    for name, value in entity.raw_items():
        if name.lower() == "from":
            display, address = parseaddr("".join(value.splitlines()))
            found["from"] = [hexadecimal(decoded(display)), hexadecimal(address)]
    if "content-type" in entity and "name" in entity["content-type"].params:
        found["name"] = hexadecimal(entity["content-type"].params["name"])
    if entity.defects:
        found["defects"] = [type(defect).__name__ for defect in entity.defects]
    return found


while size := sys.stdin.buffer.readline():
    message = sys.stdin.buffer.read(int(size))
    found = report(email.message_from_bytes(message, policy=email.policy.default))
    print(json.dumps(found, sort_keys=True, separators=(",", ":")))
