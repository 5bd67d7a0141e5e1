#!/usr/bin/env python3
"""Writes what Python's urllib.parse makes of made texts, a row a line: texts separated by tabs, each as its UTF-8 bytes in
hexadecimal.

urllib_rows.py FUNCTION COUNT
"""
import random
import re
import sys
import urllib.parse

random.seed(1)

LETTERS = "aZ09-._~ /?#[]@!$&'()*+,;=%\"<>\\^`{|}:"
OTHERS = "\0\t\r\n\x7f\x80\xa0\xe4\xff\u0130\u0131\u07ff\u0800\ud7ff\ue000\ufffd\uffff\U00010000\U0001f600\U0010ffff"
PIECES = ["%", "%%", "%4", "%41", "%4A", "%4a", "%zz", "%2", "%2B", "%26", "%3D", "%25", "%00", "%20", "+", "&", "&&", "=",
          "==", "a", "B", "7", "\xe9", "\u20ac", "%C3%A9", "%e2%82%ac", "%F0%9F%98%80", "%C3", "%A9", "%ff", "%ed%a0%80",
          "%c0%80"]


def text():
    alphabet = random.choice([LETTERS, LETTERS + OTHERS, OTHERS])
    return "".join(random.choices(alphabet, k=random.randrange(30)))


def escaped_text():
    return "".join(random.choices(random.choice([PIECES, PIECES[:-5]]), k=random.randrange(12)))


def lower_escapes(escaped):
    return re.sub("%..", lambda escape: escape[0].lower(), escaped)


def decode(unquote, escaped):
    """Empty where the bytes are not UTF-8; urllib's own default is a text with replacement characters."""
    try:
        return unquote(escaped, errors="strict")
    except UnicodeDecodeError:
        return ""


def parse(query):
    """What parse_qsl finds, with the empty parts that it would leave out."""
    parts = query.split("&")
    last = parts.pop()
    parts = [part or "=" for part in parts] + [last]
    pairs = {}
    for part in parts:
        # One by one, because of what decode() does about other bytes.
        for name, value in urllib.parse.parse_qsl(part, keep_blank_values=True, encoding="latin-1"):
            pairs[recode(name)] = recode(value)
    return pairs


def recode(latin1):
    """parse_qsl has taken each escaped byte for a character and has kept the others: they are all bytes of UTF-8 again."""
    try:
        return latin1.encode("latin-1").decode("utf-8")
    except UnicodeDecodeError:
        return ""


def flat(pairs):
    return [word for pair in sorted(pairs.items()) for word in pair]


def made_map():
    return {text(): text() for _ in range(random.randrange(5))}


def quoting(quote, safe="", change=lambda quoted: quoted):
    """A row of a text and what it is escaped to."""
    def row():
        plain = text()
        return [plain, change(quote(plain, safe=safe))]
    return row


def unquoting(unquote):
    """A row of an escaped text and what is in it."""
    def row():
        escaped = escaped_text()
        return [escaped, decode(unquote, escaped)]
    return row


def joining(change=lambda joined: joined, **how):
    """A row of a query and then the keys and values that it was made from."""
    def row():
        pairs = made_map()
        return [change(urllib.parse.urlencode(sorted(pairs.items()), **how)), *flat(pairs)]
    return row


def splitting():
    """A row of a query and then the keys and values that are in it."""
    query = "".join(random.choices([piece for piece in PIECES if piece.isascii()], k=random.randrange(16)))
    return [query, *flat(parse(query))]


ROWS = {
    "urlEscape": quoting(urllib.parse.quote, change=lower_escapes),
    "urlEscapePlus": quoting(urllib.parse.quote_plus, change=lower_escapes),
    "formURLEncode": quoting(urllib.parse.quote, safe="/"),
    "formURLEncodeSlash": quoting(urllib.parse.quote),
    "urlUnescape": unquoting(urllib.parse.unquote),
    "urlUnescapePlus": unquoting(urllib.parse.unquote_plus),
    "encodeURLParams": joining(lower_escapes),
    "formURLEncodeMap": joining(quote_via=urllib.parse.quote, safe=""),
    "decodeURLParams": splitting,
}


def main():
    function, count = sys.argv[1:]
    for _ in range(int(count)):
        print(*(text.encode("utf-8").hex() for text in ROWS[function]()), sep="\t")


main()
