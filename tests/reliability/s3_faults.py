"""A store of objects on loopback that speaks S3, looks at no signature and does one harm to each object that it gives
or takes, and nothing else."""

import hashlib
import re
import urllib.parse
from xml.sax.saxutils import escape

import faults
import http_faults

XML = '<?xml version="1.0" encoding="UTF-8"?>\n'


class Server(http_faults.Server):
    """Objects stand under /bucket/NAME; what is sent there is kept under the name "file"."""

    def serve(self, connection):
        with connection:
            head, rest = http_faults.read_head(connection)
            method, target = head.split(" ")[:2]
            path, _, query = target.partition("?")
            asked = dict(urllib.parse.parse_qsl(query, keep_blank_values=True))
            name = path.removeprefix("/bucket").strip("/") or asked["prefix"]
            if name in self.files:  # else its run has ended
                Exchange(connection, self.files[name], name, asked).answer(method, head, rest)


class Exchange:
    """One request and its answer."""

    def __init__(self, connection, file, name, asked):
        self.connection = connection
        self.file = file
        self.name = name
        self.asked = asked

    def answer(self, method, head, rest):
        if self.file.is_gone:
            self.refuse("404 Not Found", "NoSuchBucket", head, rest)
        elif "uploads" in self.asked and method == "POST":
            self.begin()
        elif "uploads" in self.asked:
            self.list_uploads()
        elif "uploadId" in self.asked and self.asked["uploadId"] not in self.file.uploads:
            self.refuse("404 Not Found", "NoSuchUpload", head, rest)
        elif method == "PUT":
            Upload(self.connection, self.file, head, rest, self.asked).take()
        elif method == "POST":
            self.complete(head, rest)
        elif method == "DELETE":
            del self.file.uploads[self.asked["uploadId"]]
            self.say("204 No Content")
        elif "uploadId" in self.asked:
            self.list_parts()
        elif self.file.direction == "down":
            http_faults.answer(self.connection, self.file, head)
        else:
            self.tell_object()

    def say(self, status, document="", header=""):
        body = (XML + document).encode() if document else b""
        self.connection.sendall(http_faults.status_line(status)
                                + f"{header}Content-Length: {len(body)}\r\n\r\n".encode() + body)

    def refuse(self, status, code, head, rest):
        read_body(self.connection, head, rest)
        self.say(status, error_document(code))

    def begin(self):
        identity = f"upload-{len(self.file.uploads) + self.file.transfers}-{self.file.random.randrange(10 ** 9)}"
        self.file.uploads[identity] = {}
        self.say("200 OK", f"<InitiateMultipartUploadResult><Bucket>bucket</Bucket><Key>{escape(self.name)}</Key>"
                           f"<UploadId>{identity}</UploadId></InitiateMultipartUploadResult>")

    def list_uploads(self):
        found = "".join(f"<Upload><Key>{escape(self.name)}</Key><UploadId>{identity}</UploadId>"
                        f"<Initiated>2026-11-22T12:00:{number:02}.000Z</Initiated></Upload>"
                        for number, identity in enumerate(self.file.uploads))
        self.say("200 OK", f"<ListMultipartUploadsResult><Bucket>bucket</Bucket><IsTruncated>false</IsTruncated>{found}"
                           "</ListMultipartUploadsResult>")

    def list_parts(self):
        parts = self.file.uploads[self.asked["uploadId"]]
        found = "".join(f"<Part><PartNumber>{number}</PartNumber><ETag>{tag_of(part)}</ETag><Size>{len(part)}</Size></Part>"
                        for number, part in sorted(parts.items()))
        self.say("200 OK", f"<ListPartsResult><IsTruncated>false</IsTruncated>{found}</ListPartsResult>")

    def complete(self, head, rest):
        """Where it is broken off, the object may be there all the same."""
        file = self.file
        document = read_body(self.connection, head, rest).decode()
        broken_at = file.next_break()
        if broken_at is not None and broken_at % 2 == 0:
            http_faults.fall_silent(self.connection, file)
            return
        parts = file.uploads[self.asked["uploadId"]]
        named = re.findall(r"<PartNumber>(\d+)</PartNumber>\s*<ETag>([^<]*)</ETag>", document)
        if not named or any(int(number) not in parts or tag.replace("&quot;", '"') != tag_of(parts[int(number)])
                            for number, tag in named):
            self.say("400 Bad Request", error_document("InvalidPart"))
            return
        whole = b"".join(parts[int(number)] for number, _ in named)
        file.files["file"] = whole
        del file.uploads[self.asked["uploadId"]]
        if broken_at is not None:
            http_faults.fall_silent(self.connection, file)
            return
        self.say("200 OK", f"<CompleteMultipartUploadResult><Bucket>bucket</Bucket><Key>{escape(self.name)}</Key>"
                           f"<ETag>{tag_of(whole)}</ETag></CompleteMultipartUploadResult>")

    def tell_object(self):
        content = self.file.files.get("file")
        if content is None:
            self.say("404 Not Found")
        else:
            self.connection.sendall(http_faults.status_line("200 OK")
                                    + f"Content-Length: {len(content)}\r\nETag: {tag_of(content)}\r\n\r\n".encode())


class Upload(http_faults.Upload):
    """Of an object, or of one of its parts."""

    def __init__(self, connection, file, head, rest, asked):
        super().__init__(connection, file, head, rest)
        self.asked = asked
        self.is_chunked = re.search(r"\r\nx-amz-content-sha256: *STREAMING-", head, re.IGNORECASE)

    def store(self, is_whole):
        """The tag is that of all that has come, whether it is kept or not."""
        content = without_chunks(self.body) if self.is_chunked else bytes(self.body)
        kept = content if is_whole else content[:self.file.room]
        if "uploadId" in self.asked:
            self.file.uploads[self.asked["uploadId"]][int(self.asked["partNumber"])] = kept
        else:
            self.file.files["file"] = kept
        self.say("200 OK", f"ETag: {tag_of(content)}\r\n")


def read_body(connection, head, rest):
    """What has come of it is behind the head."""
    if re.search(r"\r\nexpect: *100-continue", head, re.IGNORECASE):
        connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
    body = rest
    while len(body) < http_faults.length_of(head):
        block = connection.recv(faults.BLOCK)
        if not block:
            raise OSError("the client has gone")
        body += block
    return body


def tag_of(content):
    return f'"{hashlib.md5(content).hexdigest()}"'


def error_document(code):
    return f"<Error><Code>{code}</Code><Message>{code}.</Message></Error>"


def without_chunks(body):
    """What was signed chunk by chunk: each is told with its length, the last one is empty."""
    content = bytearray()
    start = 0
    while True:
        end = body.index(b"\r\n", start)
        length = int(bytes(body[start:end]).split(b";")[0], 16)
        if length == 0:
            return bytes(content)
        content += body[end + 2:end + 2 + length]
        start = end + 2 + length + 2
