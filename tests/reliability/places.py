"""Where files are fetched from and sent to: the servers of each protocol, and the place that a file has there."""

import os
import pwd
import shutil
import socket
import ssl
import subprocess

import faults
import ftp_faults
import http_faults
import relay
import s3_faults


class Place:
    """A file at a server, for one run of one program."""

    def __init__(self, file, url, environment, content, remove_folder, close):
        self.file = file
        self.url = url
        self.environment = environment
        self.content = content  # what has been sent there under the file's name; None for nothing
        self.remove_folder = remove_folder  # at the server
        self.close = close


def open_place(server, url, file, name, environment, close=lambda: None):
    """At a server of our own, which has the file by its name."""
    server.files[name] = file

    def remove_folder():
        file.is_gone = True
        file.files.clear()
        file.uploads.clear()

    def leave():
        close()
        del server.files[name]

    return Place(file, url, environment, lambda: file.files.get("file"), remove_folder, leave)


class Http:
    def __init__(self, _folder):
        self.server = http_faults.Server()

    def open(self, file, name, _folder):
        return open_place(self.server, f"http://127.0.0.1:{self.server.port}/{name}", file, name, {})


def make_trust(folder, name):
    """What a server of our own shows in TLS, and what programs are told to believe it by."""
    certificate, key = os.path.join(folder, name + "-certificate.pem"), os.path.join(folder, name + "-key.pem")
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes",
                    "-days", "2", "-subj", "/CN=127.0.0.1", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout",
                    key, "-out", certificate], check=True, stdin=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    return context, {"NORLA_CA_FILE": certificate}


class Garbler:
    """A way to ports of a server's that does what the file would suffer from."""

    def __init__(self, file):
        self.port = None  # of the server
        self.relay = relay.Relay(faults.FaultyFile(file.fault, file.direction, file.random.random()),
                                 lambda: socket.create_connection(("127.0.0.1", self.port)))
        file.breaks = 0

    def to(self, port):
        self.port = port
        return self.relay.port


class Https:
    def __init__(self, folder):
        context, self.environment = make_trust(folder, "https")
        self.server = http_faults.Server(context)

    def open(self, file, name, _folder):
        if file.fault != "garbled":
            return open_place(self.server, f"https://127.0.0.1:{self.server.port}/{name}", file, name, self.environment)
        way = Garbler(file)
        return open_place(self.server, f"https://127.0.0.1:{way.to(self.server.port)}/{name}", file, name,
                          self.environment, way.relay.close)


class Ftp:
    def __init__(self, _folder):
        self.server = ftp_faults.Server()

    def open(self, file, name, _folder):
        return open_place(self.server, f"ftp://127.0.0.1:{self.server.port}/{name}/file", file, name, {})


class Ftps:
    """TLS from the first byte on, of the files too."""

    def __init__(self, folder):
        context, self.environment = make_trust(folder, "ftps")
        self.server = ftp_faults.Server(context)

    def open(self, file, name, _folder):
        url = f"ftps://127.0.0.1:{self.server.port}/{name}/file"
        if file.fault != "garbled":
            return open_place(self.server, url, file, name, self.environment)
        way = Garbler(file)
        file.detour = way.to
        return open_place(self.server, url, file, name, self.environment, way.relay.close)


class S3:
    def __init__(self, _folder):
        self.server = s3_faults.Server()

    def open(self, file, name, _folder):
        return open_place(self.server, f"s3://127.0.0.1:{self.server.port}/bucket/{name}", file, name,
                          {"AWS_ACCESS_KEY_ID": "anybody", "AWS_SECRET_ACCESS_KEY": "anything"})


class Sftp:
    """OpenSSH's server, one process for each connection."""

    WHEN = [784111777, 784198177]
    CONFIGURATION = ("HostKey {folder}/host-key\nAuthorizedKeysFile {folder}/user-key.pub\n"
                     "PidFile none\nStrictModes no\nUsePAM no\nUseDNS no\nPermitRootLogin prohibit-password\n"
                     "PubkeyAuthentication yes\nPasswordAuthentication no\nKbdInteractiveAuthentication no\n"
                     "Subsystem sftp internal-sftp\n"
                     "ForceCommand internal-sftp\nLogLevel QUIET\n")

    def __init__(self, folder):
        self.folder = folder
        if os.geteuid() == 0:
            os.makedirs("/run/sshd", exist_ok=True)  # where sshd gives up its rights
        for name in ("host-key", "user-key"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "test", "-f",
                            os.path.join(folder, name)], check=True)
        os.chmod(os.path.join(folder, "user-key"), 0o644)  # programs run as somebody else too
        with open(os.path.join(folder, "host-key.pub"), encoding="ascii") as key:
            self.host_key = key.read()
        self.configuration = os.path.join(folder, "sshd.conf")
        with open(self.configuration, "w", encoding="ascii") as file:
            file.write(self.CONFIGURATION.format(folder=folder))

    def connect(self):
        ours, theirs = socket.socketpair()
        with theirs:
            process = subprocess.Popen(["/usr/sbin/sshd", "-i", "-f", self.configuration], stdin=theirs, stdout=theirs,
                                       stderr=subprocess.DEVNULL)
        return Connection(ours, process)

    def open(self, file, name, folder):
        """The folder holds what belongs to this run alone."""
        store = os.path.join(folder, "store")
        path = os.path.join(store, "file")
        way = relay.Relay(file, self.connect, lambda: (file.change(), self.write(path, file)))
        if file.direction == "down":
            os.makedirs(store, exist_ok=True)
            self.write(path, file)
        home = os.path.join(folder, "home")
        os.makedirs(os.path.join(home, ".ssh"))
        with open(os.path.join(home, ".ssh", "known_hosts"), "w", encoding="ascii") as hosts:
            hosts.write(f"[127.0.0.1]:{way.port} {self.host_key}")
        return Place(file, f"sftp://{pwd.getpwuid(os.geteuid()).pw_name}@127.0.0.1:{way.port}{path}",
                     {"HOME": home, "NORLA_SSH_KEY": os.path.join(self.folder, "user-key")}, lambda: content_of(path),
                     lambda: remove_contents(store), way.close)

    def write(self, path, file):
        new = path + ".new"
        with open(new, "wb") as target:
            target.write(file.body)
        os.utime(new, (self.WHEN[file.number - 1],) * 2)
        os.replace(new, path)


class Connection:
    """A socket to a process that ends with it."""

    def __init__(self, ours, process):
        self.socket = ours
        self.process = process

    def __enter__(self):
        return self.socket

    def __exit__(self, *_):
        self.socket.close()
        try:
            self.process.wait(10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()


def content_of(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except OSError:
        return None


def remove_contents(folder):
    """And the folder, unless a disk is mounted there."""
    shutil.rmtree(folder, ignore_errors=True)


OPENERS = {"http": Http, "https": Https, "ftp": Ftp, "ftps": Ftps, "sftp": Sftp, "s3": S3}
