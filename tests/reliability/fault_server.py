"""An HTTP server on loopback that does one harm to each file it serves, and nothing else."""

import random
import re
import socket
import struct
import threading
import time

SIZE = 1 << 20
PAGE = b"<html><body><h1>Please log in</h1></body></html>\n"
WHEN = "Sun, 06 Nov 1994 08:49:37 GMT"


class Resource:
    """One file, with its fault. States are changed by one connection after the other."""

    def __init__(self, fault, seed):
        self.random = random.Random(seed)
        self.fault = fault
        self.versions = [self.random.randbytes(SIZE)]
        self.etag = '"v1"'
        self.when = WHEN
        self.requests = 0
        self.cut_at = self.random.randrange(100_000, SIZE - 1)

    @property
    def body(self):
        return self.versions[-1]

    def change(self):
        """Another file in its place: of another size, half of the time."""
        size = SIZE if self.fault == "same-size" else SIZE + self.random.choice([0, self.random.randrange(-50_000, 50_000)])
        self.versions.append(self.random.randbytes(size))
        if self.fault == "changed":
            self.etag = '"v2"'
            self.when = "Mon, 07 Nov 1994 08:49:37 GMT"

    def is_right(self, content):
        """Any of its versions, whole."""
        return content in self.versions


class FaultServer:
    def __init__(self):
        self.resources = {}
        self.listener = socket.create_server(("127.0.0.1", 0), backlog=256)
        self.port = self.listener.getsockname()[1]
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            connection, _ = self.listener.accept()
            threading.Thread(target=self.serve, args=(connection,), daemon=True).start()

    def serve(self, connection):
        with connection:
            try:
                connection.settimeout(20)
                self.answer(connection, read_head(connection))
            except (OSError, ValueError):
                pass  # the client has gone

    def answer(self, connection, head):
        resource = self.resources[head.split(" ")[1].strip("/")]
        resource.requests += 1
        first = resource.requests == 1
        fault = resource.fault
        if fault == "page" and resource.requests == 2:
            send_all(connection, page())
            return
        start, status = asked_start(head, resource)
        if start is not None and fault == "no-ranges":
            start, status = None, 200
        if status == 416:
            connection.sendall(f"HTTP/1.1 416 Range Not Satisfiable\r\nContent-Range: bytes */{len(resource.body)}\r\n"
                               "Content-Length: 0\r\nConnection: close\r\n\r\n".encode())
            return
        if first and fault in CUTTING:
            self.cut(connection, resource)
            return
        begin = start or 0
        told, given = begin, begin
        if start is not None and resource.requests == 2:
            shift = resource.random.randrange(1, len(resource.body) - begin) if begin < len(resource.body) - 1 else 0
            told += shift if fault == "other-range" else 0
            given += shift if fault in ("other-range", "lying-range") else 0
        body = resource.body[given:]
        if fault == "lying-range" and given != told:
            body = (body + resource.body)[: len(resource.body) - told]
        extra = b"more than that" * 1000 if fault == "over-long" else b""
        connection.sendall(head_of(resource, start is not None, told, len(body)))
        send_all(connection, body + extra, SLOW if fault in SLOWED else 0)

    def cut(self, connection, resource):
        connection.sendall(head_of(resource, False, 0, len(resource.body)))
        send_all(connection, resource.body[: resource.cut_at])
        if resource.fault in ("changed", "same-size"):
            resource.change()
        if resource.fault == "stall":
            connection.recv(1)  # until the client has gone
        if resource.fault == "reset":
            time.sleep(0.05)  # what is on its way arrives: a reset throws it away
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


CUTTING = {"reset", "stall", "truncated", "no-ranges", "other-range", "lying-range", "changed", "same-size", "page"}
SLOWED = {"killed", "folder-gone"}
SLOW = 0.02  # seconds between blocks, a third of a second for all


def read_head(connection):
    head = b""
    while b"\r\n\r\n" not in head:
        block = connection.recv(4096)
        if not block:
            raise OSError("no request")
        head += block
    return head.decode("latin-1")


def asked_start(head, resource):
    """Where the part that is asked for begins, None for the whole, and the status."""
    found = re.search(r"\r\nrange: *bytes=(\d+)-", head, re.IGNORECASE)
    condition = re.search(r"\r\nif-range: *([^\r]+)", head, re.IGNORECASE)
    if not found or (condition and condition.group(1) not in (resource.etag, resource.when)):
        return None, 200
    start = int(found.group(1))
    return (start, 206) if start < len(resource.body) else (None, 416)


def page():
    return (f"HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: {len(PAGE)}\r\nConnection: close\r\n\r\n"
            .encode() + PAGE)


def head_of(resource, is_part, start, length):
    lines = ["HTTP/1.1 206 Partial Content" if is_part else "HTTP/1.1 200 OK",
             "Date: Sun, 22 Nov 2026 12:00:00 GMT", f"Content-Length: {length}", f"ETag: {resource.etag}",
             f"Last-Modified: {resource.when}", "Accept-Ranges: bytes", "Connection: close"]
    if is_part:
        lines.append(f"Content-Range: bytes {start}-{start + length - 1}/{max(len(resource.body), start + length)}")
    return ("\r\n".join(lines) + "\r\n\r\n").encode()


def send_all(connection, data, pause=0.0):
    block = 64 << 10
    for start in range(0, len(data), block):
        connection.sendall(data[start:start + block])
        if pause:
            time.sleep(pause)
