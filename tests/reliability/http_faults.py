"""An HTTP server on loopback that does one harm to each file that it gives or takes, and nothing else."""

import hashlib
import re

import faults

WHEN = ["Sun, 06 Nov 1994 08:49:37 GMT", "Mon, 07 Nov 1994 08:49:37 GMT"]


class Server:
    """Files stand under /NAME; what is sent there is kept once all of it has come."""

    def __init__(self, context=None):
        """context: of TLS, None for none."""
        self.files = {}
        self.context = context
        self.listener = faults.Listener(self.serve)
        self.port = self.listener.port

    def serve(self, connection):
        if self.context:
            connection = self.context.wrap_socket(connection, server_side=True)
        with connection:
            head, rest = read_head(connection)
            method, path = head.split(" ")[:2]
            file = self.files[path.strip("/")]
            if method == "PUT":
                Upload(connection, file, head, rest).take()
            elif method == "HEAD":
                answer_head(connection, file)
            else:
                answer(connection, file, head)


def read_head(connection):
    """Lines up to the empty one, and what has come behind it."""
    head = b""
    while b"\r\n\r\n" not in head:
        block = connection.recv(4096)
        if not block:
            raise OSError("no request")
        head += block
    head, _, rest = head.partition(b"\r\n\r\n")
    return head.decode("latin-1") + "\r\n", rest


# Downloads.


def answer(connection, file, head):
    broken_at = file.next_break()
    if file.fault == "page" and file.transfers == 2:
        header = f"Content-Type: text/html\r\nContent-Length: {len(faults.PAGE)}\r\n\r\n"
        connection.sendall(status_line("200 OK") + header.encode() + faults.PAGE)
        return
    start = asked_start(head, file)
    if file.fault == "no-ranges" and file.transfers > 1:
        start = None
    if start is not None and start >= len(file.body):
        connection.sendall(status_line("416 Range Not Satisfiable")
                           + f"Content-Range: bytes */{len(file.body)}\r\nContent-Length: 0\r\n\r\n".encode())
        return
    if broken_at is not None:
        break_off(connection, file, start, broken_at)
        return
    told, given = begin_of(file, start or 0)
    body = file.body[given:]
    if given != told:
        body = (body + file.body)[:len(file.body) - told]
    connection.sendall(head_of(file, start is not None, told, len(body)))
    file.send(connection, body + (b"more than that" * 1000 if file.fault == "over-long" else b""))


def begin_of(file, start):
    """Where the part that comes begins, as is told and in truth."""
    if file.transfers != 2 or start == 0 or file.fault not in ("other-range", "lying-range"):
        return start, start
    shift = file.random.randrange(1, len(file.body) - start) if start < len(file.body) - 1 else 0
    return (start + shift if file.fault == "other-range" else start), start + shift


def break_off(connection, file, start, broken_at):
    begin = start or 0
    head = head_of(file, start is not None, begin, len(file.body) - begin)
    if broken_at < 0:
        connection.sendall(head[:file.random.randrange(len(head))])
    else:
        connection.sendall(head + file.body[begin:max(begin, broken_at)])
    if file.fault in ("changed", "same-size"):
        file.change()
    fall_silent(connection, file)


def fall_silent(connection, file):
    """Or resets the connection; or lets it end, in the hands of the caller."""
    if file.fault == "stall":
        faults.wait_for_end(connection)
    if file.fault == "reset":
        faults.reset(connection)


def asked_start(head, file):
    """Where the part that is asked for begins; None for the whole."""
    found = re.search(r"\r\nrange: *bytes=(\d+)-", head, re.IGNORECASE)
    condition = re.search(r"\r\nif-range: *([^\r]+)", head, re.IGNORECASE)
    if not found or (condition and condition.group(1) not in (tag_of(file), time_of(file))):
        return None
    return int(found.group(1))


def tag_of(file):
    return f'"{hashlib.md5(file.versions[file.number - 1]).hexdigest()}"'


def time_of(file):
    return WHEN[file.number - 1]


def length_of(head):
    found = re.search(r"\r\ncontent-length: *(\d+)", head, re.IGNORECASE)
    return int(found.group(1)) if found else 0


def status_line(status):
    return f"HTTP/1.1 {status}\r\nDate: Sun, 22 Nov 2026 12:00:00 GMT\r\nConnection: close\r\n".encode()


def head_of(file, is_part, start, length):
    lines = [f"Content-Length: {length}", f"ETag: {tag_of(file)}", f"Last-Modified: {time_of(file)}",
             "Accept-Ranges: bytes"]
    if is_part:
        lines.append(f"Content-Range: bytes {start}-{start + length - 1}/{max(len(file.body), start + length)}")
    return status_line("206 Partial Content" if is_part else "200 OK") + ("\r\n".join(lines) + "\r\n\r\n").encode()


# Uploads.


def answer_head(connection, file):
    content = file.files.get("file")
    if content is None:
        connection.sendall(status_line("404 Not Found") + b"\r\n")
    else:
        connection.sendall(status_line("200 OK") + f"Content-Length: {len(content)}\r\n\r\n".encode())


class Upload:
    def __init__(self, connection, file, head, rest):
        self.connection = connection
        self.file = file
        self.body = bytearray(rest)
        self.length = length_of(head)
        self.waits = re.search(r"\r\nexpect: *100-continue", head, re.IGNORECASE)

    def take(self):
        file = self.file
        broken_at = file.next_break()
        is_first = file.transfers == 1
        if file.is_gone or (file.fault == "refused" and is_first and file.random.random() < 0.5):
            self.say("404 Not Found" if file.is_gone else "503 Service Unavailable")
            return
        if self.waits and broken_at != -1:
            self.connection.sendall(b"HTTP/1.1 100 Continue\r\n\r\n")
        if broken_at is not None:
            self.break_off(broken_at)
        elif file.fault == "disk-full":
            self.read_to(file.room)
            self.say("507 Insufficient Storage")
        elif file.fault == "early" and is_first:
            self.read_to(file.room)
            self.say("201 Created")
        else:
            self.read_to(self.length)
            self.keep(is_first)

    def keep(self, is_first):
        file = self.file
        if file.is_gone:
            self.say("404 Not Found")
        elif file.fault == "refused" and is_first:
            self.say("500 Internal Server Error")
        else:
            self.store(file.fault != "lost" or not is_first)

    def store(self, is_whole):
        self.file.files["file"] = bytes(self.body if is_whole else self.body[:self.file.room])
        self.say("201 Created")

    def break_off(self, broken_at):
        self.read_to(max(0, min(broken_at, self.length)))
        if self.file.fault == "stall":
            if broken_at % 2 == 0:
                self.read_to(self.length)
            faults.stop_listening(self.connection)
        if self.file.fault == "reset":
            faults.reset(self.connection)

    def read_to(self, size):
        while len(self.body) < size:
            block = self.connection.recv(min(faults.BLOCK, size - len(self.body)))
            if not block:
                raise OSError("the client has gone")
            self.body += block
            self.file.pause(len(block))

    def say(self, status, header=""):
        """What still comes is thrown away, or else the answer would be."""
        self.connection.sendall(status_line(status) + f"{header}Content-Length: 0\r\n\r\n".encode())
        self.connection.shutdown(1)
        faults.wait_for_end(self.connection)
