"""Reads a form from standard input, its Content-Type in the first line, with Python's email package, and prints each part
as a line of JSON: texts as the hexadecimal digits of their bytes, null for what the part does not say. Whatever the package
finds wrong is printed as "defects".
"""
import email
import json
import sys


def hexadecimal(text):
    return None if text is None else text.encode("latin-1").hex()


def report(part):
    disposition = {"kind": part.get_content_disposition(),
                   "name": hexadecimal(part.get_param("name", header="Content-Disposition")),
                   "file": hexadecimal(part.get_param("filename", header="Content-Disposition"))}
    return {**disposition, "type": part["Content-Type"], "body": hexadecimal(part.get_payload())}


content_type = sys.stdin.buffer.readline()
# A character for each byte: the package takes bytes outside ASCII in a header for an unknown encoding.
form = email.message_from_string((b"Content-Type: " + content_type + b"\n" + sys.stdin.buffer.read()).decode("latin-1"))
for part in form.get_payload():
    print(json.dumps(report(part), sort_keys=True, separators=(",", ":")))
wrong = [type(defect).__name__ for entity in form.walk() for defect in entity.defects]
if wrong or form.preamble or form.epilogue:
    print("defects", wrong, form.preamble, form.epilogue)
