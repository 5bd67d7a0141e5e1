#!/usr/bin/env python3
"""Writes what Python's urllib.parse makes of made texts, a row a line: the name of a function and then its arguments and
its result, separated by tabs, each text as its UTF-8 bytes in hexadecimal.

urllib_rows.py COUNT
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


def row(function, *texts):
    print(function, *(text.encode("utf-8").hex() for text in texts), sep="\t")


def made_map():
    return {text(): text() for _ in range(random.randrange(5))}


def main():
    for _ in range(int(sys.argv[1])):
        plain = text()
        row("urlEscape", plain, lower_escapes(urllib.parse.quote(plain, safe="")))
        row("urlEscapePlus", plain, lower_escapes(urllib.parse.quote_plus(plain, safe="")))
        row("formURLEncode", plain, urllib.parse.quote(plain, safe="/"))
        row("formURLEncodeSlash", plain, urllib.parse.quote(plain, safe=""))
        escaped = escaped_text()
        row("urlUnescape", escaped, decode(urllib.parse.unquote, escaped))
        row("urlUnescapePlus", escaped, decode(urllib.parse.unquote_plus, escaped))
        pairs = made_map()
        row("encodeURLParams", lower_escapes(urllib.parse.urlencode(sorted(pairs.items()))), *flat(pairs))
        quoted = urllib.parse.urlencode(sorted(pairs.items()), quote_via=urllib.parse.quote, safe="")
        row("formURLEncodeMap", quoted, *flat(pairs))
        ascii_query = "".join(random.choices([piece for piece in PIECES if piece.isascii()], k=random.randrange(16)))
        row("decodeURLParams", ascii_query, *flat(parse(ascii_query)))


main()
