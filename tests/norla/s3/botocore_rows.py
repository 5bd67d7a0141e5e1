#!/usr/bin/env python3
"""Signs requests to S3 stores with botocore, a row a line: texts separated by tabs, each as its UTF-8 bytes in hexadecimal.

botocore_rows.py make COUNT   makes requests and writes them with their signatures
botocore_rows.py sign         reads requests and writes their signatures

A request: method, URL, time, access key id, secret, session token, region, digest of the body, lifetime in seconds, and
then names and values of the headers. Signatures: V4 of the headers, V4 of the URL, V2 of the headers. They stand in front.
"""
import random
import sys
import urllib.parse
from email.utils import formatdate
from calendar import timegm
from time import strptime
from unittest import mock

from botocore.auth import HmacV1Auth, S3SigV4Auth, S3SigV4QueryAuth
from botocore.awsrequest import AWSRequest
from botocore.credentials import Credentials

random.seed(1)

LETTERS = "aZ09-._~ /?#[]@!$&'()*+,;=%\"<>\\^`{|}:"
OTHERS = "\x01\t\x7f\x80\xa0\xe4\xff\u07ff\u0800\ufffd\U00010000\U0001f600\U0010ffff"
NAMES = ["prefix", "marker", "max-keys", "delimiter", "X", "x", "a b", "uploads", "acl", "versionId", "uploadId", "partNumber",
         "response-content-type", "\xe4"]
HEADERS = ["Content-Type", "Content-MD5", "Range", "x-amz-acl", "X-Amz-Meta-A", "x-amz-meta-b", "If-Match"]


def text(alphabet, most):
    return "".join(random.choices(alphabet, k=random.randrange(1, most)))


def quoted(plain):
    return urllib.parse.quote(plain, safe=random.choice(["", "~"]))


def made_request():
    key = text(LETTERS + random.choice(["", OTHERS]), 40)
    url = random.choice(["http://localhost:8000", "https://s3.example.org", "http://[::1]:80", "https://h:443"])
    url += "/bucket/" + "/".join(quoted(part) for part in key.split("/"))
    if random.random() < 0.5:
        names = random.sample(NAMES, random.randrange(1, 5))
        url += "?" + "&".join(quoted(name) + "=" + quoted(text(LETTERS + OTHERS, 10)) for name in names)
    headers = []
    for name in random.sample(HEADERS, random.randrange(4)):
        # As whoever sends a header has to write it: no blanks around it.
        headers += [name, text("abc019 =\"/", 20).strip(" ") or "x"]
    time = "20%02d%02d%02dT%02d%02d%02dZ" % tuple(random.randrange(*span) for span in (
        (10, 99), (1, 13), (1, 29), (0, 24), (0, 60), (0, 60)))
    return [random.choice(["GET", "PUT", "HEAD", "DELETE", "POST"]), url, time, text("ABC123", 20), text("abcXYZ/+=\xe4", 40),
            random.choice(["", text("abc/+=", 30)]), random.choice(["us-east-1", "eu-central-1", "auto"]),
            random.choice(["UNSIGNED-PAYLOAD", "0123456789abcdef" * 4]), str(random.randrange(1, 604801)), *headers]


def request_of(fields):
    request = AWSRequest(method=fields[0], url=fields[1])
    request.context["timestamp"] = fields[2]
    for name, value in zip(fields[9::2], fields[10::2]):
        request.headers.add_header(name, value)
    return request


def signature(auth, request):
    auth._modify_request_before_signing(request)
    return auth.signature(auth.string_to_sign(request, auth.canonical_request(request)), request)


def signatures(fields):
    payload, lifetime = fields[7], int(fields[8])
    credentials = Credentials(fields[3], fields[4], fields[5] or None)
    place = ("s3", fields[6])
    signer = S3SigV4Auth(credentials, *place)
    with mock.patch.object(signer, "payload", return_value=payload):
        by_headers = signature(signer, request_of(fields))
    by_url = signature(S3SigV4QueryAuth(credentials, *place, expires=lifetime), request_of(fields))
    old = HmacV1Auth(credentials)
    request = request_of(fields)
    date = formatdate(timegm(strptime(fields[2], "%Y%m%dT%H%M%SZ")), usegmt=True)
    with mock.patch.object(old, "_get_date", return_value=date):
        old_one = old.get_signature(request.method, urllib.parse.urlsplit(request.url), request.headers)
    return [by_headers, by_url, old_one]


def rows():
    if sys.argv[1] == "make":
        for _ in range(int(sys.argv[2])):
            fields = made_request()
            yield signatures(fields) + fields
    else:
        for line in sys.stdin:
            yield signatures([bytes.fromhex(field).decode("utf-8") for field in line.rstrip("\n").split("\t")])


for row in rows():
    print(*(field.encode("utf-8").hex() for field in row), sep="\t")
