"""The harms that are done to files on their way, and a file to which one of them is done."""

import random
import select
import socket
import ssl
import struct
import threading
import time

SIZE = 1 << 20
SIZE_IN_PARTS = 6 << 20  # a store takes no part below 5 MiB but the last
PAGE = b"<html><body><h1>Please log in</h1></body></html>\n"
BLOCK = 64 << 10
SLOW = 0.02  # seconds for a block, a third of a second for all
PATIENCE = 60  # seconds for which a server waits for its client

DOWN = {
    "killed": "the client is killed at any moment, three times",
    "reset": "the connection is reset at any byte",
    "stall": "the server falls silent at any byte",
    "truncated": "the connection ends at any byte",
    "garbled": "a byte is another one when it arrives",
    "over-long": "more comes than was announced",
    "no-ranges": "broken off; the server then gives no parts",
    "other-range": "broken off; then another part comes than was asked for",
    "lying-range": "broken off; then other bytes come than the answer says",
    "changed": "broken off; then the file is another one",
    "same-size": "broken off; then the file is another one of the same size and time",
    "page": "broken off; then something else comes in place of the file",
    "disk-full": "the disk is full",
    "folder-gone": "the folder is removed meanwhile",
    "no-permission": "the folder may not be written to",
}
UP = {
    "killed": "the client is killed at any moment, three times",
    "reset": "the connection is reset at any byte",
    "stall": "the server falls silent at any byte",
    "truncated": "the connection ends at any byte",
    "garbled": "a byte is another one when it arrives",
    "refused": "the server refuses the file at first",
    "early": "the server says in the middle that it has all",
    "lost": "the server loses the end, and says that it has all",
    "no-append": "broken off; the server then appends nothing",
    "changed": "the file is changed while it is sent",
    "disk-full": "the server's disk is full",
    "folder-gone": "the server's folder is removed meanwhile",
}
# What cannot happen: SSH's server is a real one, nobody but the ends of TLS and SSH can tell a byte from another, and a
# store has another tag for other bytes.
IMPOSSIBLE = {
    ("http", "down"): {"garbled"},
    ("https", "down"): set(),
    ("ftp", "down"): {"garbled"},
    ("ftps", "down"): set(),
    ("sftp", "down"): {"over-long", "no-ranges", "other-range", "lying-range", "page"},
    ("s3", "down"): {"garbled", "same-size"},
    ("http", "up"): {"garbled", "no-append"},
    ("https", "up"): {"no-append"},
    ("ftp", "up"): {"garbled", "early"},
    ("ftps", "up"): {"early"},
    ("sftp", "up"): {"refused", "early", "lost", "no-append"},
    ("s3", "up"): {"garbled", "no-append"},
}
PROTOCOLS = ["http", "https", "ftp", "ftps", "sftp", "s3"]
DIRECTIONS = ["down", "up"]
BROKEN_OFF = {"down": {"no-ranges", "other-range", "lying-range", "changed", "same-size", "page"}, "up": {"no-append"}}
BROKEN_ANYWHERE = {"reset", "stall", "truncated", "garbled"}
SLOWED = {"killed", "folder-gone", "changed"}  # what the moment matters for


def size_of(protocol, direction):
    return SIZE_IN_PARTS if (protocol, direction) == ("s3", "up") else SIZE


def faults_of(protocol, direction):
    return [fault for fault in (DOWN if direction == "down" else UP) if fault not in IMPOSSIBLE[protocol, direction]]


class FaultyFile:
    """A file and its fault. Its server uses it in one connection after the other."""

    def __init__(self, fault, direction, seed, size=SIZE):
        self.random = random.Random(seed)
        self.size = size
        self.fault = fault
        self.direction = direction
        self.versions = [self.random.randbytes(size)]
        self.number = 1  # of the version, as far as the server tells
        self.transfers = 0
        self.is_gone = False  # the folder at the server
        self.files = {}  # what the server was sent: bytes by their name
        self.uploads = {}  # to a store, by parts that are not one yet: id -> number -> bytes
        self.detour = None  # to a port of the server's: another port, which leads there
        self.breaks = 1 if fault in BROKEN_OFF[direction] else 0
        if fault in BROKEN_ANYWHERE:
            self.breaks = self.random.randint(1, 3)
        self.room = self.random.randrange(SIZE // 16, SIZE - SIZE // 8)  # of a disk that is full

    @property
    def body(self):
        return self.versions[-1]

    def change(self):
        """Another file in its place: of another size, half of the time."""
        same = self.fault == "same-size"
        size = self.size if same else self.size + self.random.choice([0, self.random.randrange(-50_000, 50_000)])
        self.versions.append(self.random.randbytes(size))
        self.number += 0 if same else 1

    def next_break(self):
        """The byte at which the transfer that begins now is broken off; -1: before the first answer; None: nowhere."""
        self.transfers += 1
        if self.transfers > self.breaks:
            return None
        if self.fault in BROKEN_ANYWHERE:
            return -1 if self.random.random() < 0.2 else self.random.randrange(len(self.body))
        return self.random.randrange(100_000, len(self.body) - 1)

    def has(self, content):
        """Any of its versions, whole."""
        return content in self.versions

    def pause(self, count):
        """As long as so many bytes take where the moment matters."""
        if self.fault in SLOWED:
            time.sleep(SLOW * count / BLOCK * SIZE / self.size)

    def send(self, connection, data):
        for start in range(0, len(data), BLOCK):
            connection.sendall(data[start:start + BLOCK])
            self.pause(len(data[start:start + BLOCK]))


class Listener:
    """A server on a free port of loopback: serve(connection) on a thread for each. What is sent to it stands in its
    client's memory and not in the system's."""

    def __init__(self, serve):
        self.serve = serve
        self.socket = socket.socket()
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 32 << 10)
        self.socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 1400)
        self.socket.bind(("127.0.0.1", 0))
        self.socket.listen(256)
        self.port = self.socket.getsockname()[1]
        threading.Thread(target=self.accept_all, daemon=True).start()

    def accept_all(self):
        while True:
            try:
                connection, _ = self.socket.accept()
            except OSError:
                return  # closed
            threading.Thread(target=self.serve_one, args=(connection,), daemon=True).start()

    def serve_one(self, connection):
        with connection:
            try:
                connection.settimeout(PATIENCE)
                self.serve(connection)
            except (OSError, ValueError):
                pass  # the client has gone, or speaks nonsense

    def close(self):
        self.socket.shutdown(socket.SHUT_RDWR)  # which wakes who accepts
        self.socket.close()


def wait_for_end(connection):
    """Falls silent, until the client has gone."""
    while connection.recv(BLOCK):
        pass


def stop_listening(connection):
    """Falls silent and takes nothing more, until the client has gone."""
    poll = select.poll()
    poll.register(connection, select.POLLHUP | select.POLLERR | select.POLLRDHUP)
    poll.poll(PATIENCE * 1000)


def finish(connection):
    """With TLS an end is told, or else it is no end. The client may have gone by then."""
    if isinstance(connection, ssl.SSLSocket):
        try:
            connection.unwrap()
        except OSError:
            pass


def reset(connection):
    """What is on its way arrives before: a reset throws it away."""
    time.sleep(0.05)
    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
    connection.close()
