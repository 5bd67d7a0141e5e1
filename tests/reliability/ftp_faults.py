"""An FTP server on loopback that does one harm to each file that it gives or takes, and nothing else."""

import socket

import faults

WHEN = ["19941106084937", "19941107084937"]
NOT_THERE = "550 No such file or folder."


class Server:
    """The file NAME stands as /NAME/file, where what is sent is kept under the names that it comes with."""

    def __init__(self, context=None):
        """context: of TLS from the first byte on, None for none."""
        self.files = {}
        self.context = context
        self.listener = faults.Listener(lambda connection: Session(self, connection).run())
        self.port = self.listener.port


class Session:
    """One control connection."""

    def __init__(self, server, control):
        self.server = server
        self.control = self.protected(control)
        self.folder = ""
        self.start = 0
        self.from_name = None
        self.listener = None

    def run(self):
        self.say("220 Ready")
        with self.control.makefile("rb") as lines:
            for line in lines:
                verb, _, argument = line.decode("utf-8").rstrip("\r\n").partition(" ")
                handler = getattr(self, "do_" + verb.lower(), None)
                if handler is None:
                    self.say("502 Not implemented.")
                elif handler(argument) is False:
                    return

    def say(self, line):
        self.control.sendall(line.encode() + b"\r\n")

    def find(self, path):
        """The file with its fault, None where there is none, and the last name."""
        whole = path if path.startswith("/") else self.folder + "/" + path
        parts = [part for part in whole.split("/") if part]
        file = self.server.files.get(parts[0]) if parts else None
        if file is None or file.is_gone:
            return None, ""
        return file, "/".join(parts[1:])

    def content(self, path):
        """What stands there, None for nothing."""
        file, name = self.find(path)
        if file is None:
            return None
        if file.direction == "down":
            return file.body if name == "file" else None
        return file.files.get(name)

    def do_pbsz(self, _):
        self.say("200 None.")

    def do_prot(self, _):
        self.say("200 So be it.")

    def do_user(self, _):
        self.say("331 Password?")

    def do_pass(self, _):
        self.say("230 Welcome.")

    def do_syst(self, _):
        self.say("215 UNIX Type: L8")

    def do_type(self, _):
        self.say("200 Type set.")

    def do_noop(self, _):
        self.say("200 Yes.")

    def do_quit(self, _):
        self.say("221 Bye.")
        return False

    def do_pwd(self, _):
        self.say(f'257 "{self.folder or "/"}"')

    def do_cwd(self, path):
        new = path if path.startswith("/") else self.folder + "/" + path
        if new.strip("/") and self.find(new)[0] is None:
            self.say(NOT_THERE)
            return
        self.folder = "/" + new.strip("/") if new.strip("/") else ""
        self.say("250 Changed.")

    def do_size(self, path):
        content = self.content(path)
        self.say(NOT_THERE if content is None else f"213 {len(content)}")

    def do_mdtm(self, path):
        if self.content(path) is None:
            self.say(NOT_THERE)
        else:
            self.say(f"213 {WHEN[self.find(path)[0].number - 1]}")

    def do_rest(self, text):
        if self.gives_no_parts() and int(text) > 0:
            self.say("502 Not implemented.")
            return
        self.start = int(text)
        self.say("350 From there.")

    def gives_no_parts(self):
        file, _ = self.find("file")
        return file is not None and file.fault in ("no-ranges", "no-append") and file.transfers > 0

    def do_dele(self, path):
        file, name = self.find(path)
        self.say(NOT_THERE if file is None or file.files.pop(name, None) is None else "250 Removed.")

    def do_rnfr(self, path):
        self.from_name = path
        self.say(NOT_THERE if self.content(path) is None else "350 And to?")

    def do_rnto(self, path):
        file, name = self.find(path)
        _, before = self.find(self.from_name)
        if file is None or before not in file.files:
            self.say(NOT_THERE)
            return
        file.files[name] = file.files.pop(before)
        self.say("250 Renamed.")

    # The data connection.

    def listen(self):
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 32 << 10)
        self.listener.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, 1400)
        self.listener.bind(("127.0.0.1", 0))
        self.listener.listen(1)
        self.listener.settimeout(faults.PATIENCE)
        return self.listener.getsockname()[1]

    def data_port(self):
        """Where the client is to connect to."""
        port = self.listen()
        file, _ = self.find("file")
        return file.detour(port) if file is not None and file.detour else port

    def do_pasv(self, _):
        port = self.data_port()
        self.say(f"227 Entering Passive Mode (127,0,0,1,{port >> 8},{port & 255})")

    def do_epsv(self, _):
        self.say(f"229 Entering Extended Passive Mode (|||{self.data_port()}|)")

    def accept(self):
        with self.listener:
            connection, _ = self.listener.accept()
        connection.settimeout(faults.PATIENCE)
        return connection

    def protected(self, connection):
        return self.server.context.wrap_socket(connection, server_side=True) if self.server.context else connection

    def open(self, answer):
        """The data connection: with TLS the client begins to speak behind this answer."""
        connection = self.accept()
        self.say(answer)
        return self.protected(connection)

    def send(self, content, file):
        """Who has enough may close it."""
        with self.open("150 Here it comes.") as data:
            try:
                file.send(data, content)
                faults.finish(data)
            except OSError:
                self.say("426 Broken off.")
                return
        self.say("226 Sent.")

    def do_retr(self, path):
        start, self.start = self.start, 0
        content = self.content(path)
        if content is None:
            self.say(NOT_THERE)
            return None
        file, _ = self.find(path)
        if file.direction == "up":  # somebody compares what is there
            self.send(content[start:], file)
            return None
        return Download(self, file).give(start)

    def do_stor(self, path):
        start, self.start = self.start, 0
        return self.take(path, start)

    def do_appe(self, path):
        if self.gives_no_parts():
            self.say("502 Not implemented.")
            return None
        return self.take(path, len(self.content(path) or b""))

    def take(self, path, start):
        file, name = self.find(path)
        if file is None:
            self.say(NOT_THERE)
            return None
        return Upload(self, file, name).take(start)


class Download:
    def __init__(self, session, file):
        self.session = session
        self.file = file

    def give(self, start):
        """False when the control connection ends with it."""
        file = self.file
        broken_at = file.next_break()
        if broken_at is not None:
            return Break(self.session, file).give(start, broken_at)
        given = file.body[start:]
        if file.transfers == 2 and start > 0:
            given = self.other_bytes(start)
        self.session.send(given + (b"more than that" * 1000 if file.fault == "over-long" else b""), file)
        return None

    def other_bytes(self, start):
        file = self.file
        if file.fault == "other-range":
            return file.body  # as if nothing had been asked for
        if file.fault == "lying-range" and start < len(file.body) - 1:
            shift = file.random.randrange(1, len(file.body) - start)
            return (file.body[start + shift:] + file.body)[:len(file.body) - start]
        return faults.PAGE if file.fault == "page" else file.body[start:]


class Break:
    """A transfer that is broken off, in one of the ways that there are."""

    def __init__(self, session, file):
        self.session = session
        self.file = file
        self.control = session.control

    def give(self, start, broken_at):
        if broken_at < 0:
            return self.end_early()
        with self.session.open("150 Here it comes.") as data:
            whole = self.file.fault == "stall" and broken_at % 4 == 0  # the last answer is what is missing
            data.sendall(self.file.body[start:len(self.file.body) if whole else max(start, broken_at)])
            if self.file.fault in ("changed", "same-size"):
                self.file.change()
            return self.end(data, broken_at, whole)

    def end_early(self):
        """Before the first answer."""
        if self.file.fault == "stall":
            faults.wait_for_end(self.control)
        if self.file.fault == "reset":
            faults.reset(self.control)
        return False

    def end(self, data, chance, is_whole=False):
        fault = self.file.fault
        if fault == "stall":
            if is_whole:
                faults.finish(data)
                data.close()
            faults.wait_for_end(self.control)
            return False
        if fault == "reset":
            faults.reset(data)
        data.close()
        if fault in ("reset", "truncated") and chance % 3 == 0:
            if fault == "reset":
                faults.reset(self.control)
            return False
        self.session.say("226 Done." if fault == "truncated" and chance % 3 == 1 else "426 Broken off.")
        return None


class Upload:
    def __init__(self, session, file, name):
        self.session = session
        self.file = file
        self.name = name
        self.position = 0

    def take(self, start):
        """False when the control connection ends with it."""
        file, session = self.file, self.session
        broken_at = file.next_break()
        is_first = file.transfers == 1
        if file.fault == "refused" and is_first and file.random.random() < 0.5:
            session.say("450 Busy.")
            return None
        if broken_at == -1:
            return Break(session, file).end_early()
        content = file.files.setdefault(self.name, bytearray())  # which others may still write to
        del content[start:]
        self.position = start
        with session.open("150 Go on.") as data:
            if broken_at is not None:
                return self.break_off(data, content, broken_at)
            if file.fault == "disk-full" and not self.read_to(data, content, file.room):
                data.close()
                session.say("452 The disk is full.")
                return None
            self.read_to(data, content, None)
            faults.finish(data)
        if file.fault == "refused" and is_first:
            session.say("451 Something went wrong.")
            return None
        if file.fault == "lost" and is_first:
            del content[file.room:]
        session.say("226 Stored.")
        return None

    def break_off(self, data, content, broken_at):
        is_whole = self.file.fault == "stall" and broken_at % 4 == 0
        if is_whole:
            self.read_to(data, content, None)
        elif self.read_to(data, content, broken_at):
            is_whole = True
        if self.file.fault == "stall" and not is_whole:
            faults.stop_listening(data)
            faults.wait_for_end(self.session.control)  # where the rest was on its way already
            return False
        return Break(self.session, self.file).end(data, broken_at, is_whole)

    def read_to(self, data, content, size):
        """True when its end has come before that size."""
        while size is None or self.position < size:
            block = data.recv(faults.BLOCK if size is None else min(faults.BLOCK, size - self.position))
            if not block:
                return True
            content.extend(bytes(max(0, self.position - len(content))))
            content[self.position:self.position + len(block)] = block
            self.position += len(block)
            self.file.pause(len(block))
        return False
