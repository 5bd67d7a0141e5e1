"""What programs that fetch and send files make of faults.

Each run is one file with one fault. The program is started again, up to five times, until it says that all is well.
"done": it says so, and the file under the name is whole. "wrong": it says so, and it is not. "error": it never says so.
"left": the same, and something else is under the name; of this library's at any time. "hang": it has not ended within a
minute. "crash": a signal has ended it. "mute": one of this library's has failed without a word. The exit status is 1
when one of this library's has ended otherwise than "done" or "error"."""

import argparse
import concurrent.futures
import os
import random
import shutil
import subprocess
import sys
import tempfile
import threading
import zlib

import clients
import faults
import places

LIMIT = 60  # seconds
STARTS = 5
KILLS = 3
NOBODY = 65534
KINDS = ["done", "error", "left", "mute", "crash", "hang", "wrong"]
FINE = ["done", "error"]
BOLD = ["mute", "crash", "hang", "wrong"]
NAMES = {"fault": list(faults.DOWN | faults.UP), "protocol": faults.PROTOCOLS, "direction": faults.DIRECTIONS}


class Bad(Exception):
    """What has become of a run at once."""


class Run:
    """One program, one file, one fault."""

    def __init__(self, protocol, fault, direction, seed, name, opener, folder):
        self.protocol = protocol
        self.fault = fault
        self.chance = random.Random(seed)
        self.last_words = ""
        self.file = faults.FaultyFile(fault, direction, seed, faults.size_of(protocol, direction))
        self.is_download = direction == "down"
        self.folder = os.path.join(folder, "target")
        os.makedirs(self.folder)
        self.path = os.path.join(self.folder, "file")
        os.makedirs(os.path.join(folder, "store"))
        self.small_disk = self.mount(folder) if fault == "disk-full" else None
        self.place = opener.open(self.file, name, folder)
        if not self.is_download:
            with open(self.path, "wb") as source:
                source.write(self.file.body)
        if fault == "no-permission":
            os.chmod(self.folder, 0o555)
        self.environment = {**os.environ, "HOME": os.path.join(folder, "home"), **self.place.environment}

    def mount(self, folder):
        """Where the file is to be, unless that is within a server of our own."""
        if not self.is_download and self.protocol != "sftp":
            return None
        disk = self.folder if self.is_download else os.path.join(folder, "store")
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={self.file.room}", "tmpfs", disk], check=True)
        return disk

    def leave(self):
        self.place.close()
        if self.small_disk:
            subprocess.run(["umount", "--lazy", self.small_disk], check=True)

    def outcome(self, make_command, is_ours):
        try:
            for attempt in range(STARTS):
                command = make_command(self.place, self.path)
                if self.start(command, attempt, is_ours):
                    return "done" if self.is_right(self.content()) else "wrong"
            return "error" if self.is_clean() else "left"
        except Bad as bad:
            return str(bad)

    def start(self, command, attempt, is_ours):
        """Whether it says that all is well."""
        user = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if self.needs_nobody() else {}
        process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   cwd="/", env=self.environment, **user)
        meanwhile = self.meanwhile(process, attempt)
        if meanwhile:
            meanwhile.start()
        try:
            words, _ = process.communicate(timeout=LIMIT)
        except subprocess.TimeoutExpired as error:
            process.kill()
            process.communicate()
            raise Bad("hang") from error
        finally:
            if meanwhile:
                meanwhile.cancel()
                meanwhile.join()
        self.last_words = words.decode(errors="replace").strip()
        if process.returncode < 0 and not (meanwhile and self.fault == "killed"):
            raise Bad("crash")
        if is_ours and process.returncode > 0 and not words.strip():
            raise Bad("mute")
        if is_ours and not self.is_clean() and self.fault != "lost":  # which is what the server makes of it
            raise Bad("left")  # not even for a moment
        return process.returncode == 0

    def needs_nobody(self):
        return self.fault == "no-permission" and os.geteuid() == 0

    def meanwhile(self, process, attempt):
        """What happens at any moment while the program runs; None for nothing."""
        if self.fault == "killed" and attempt < KILLS:
            return threading.Timer(self.chance.uniform(0, 0.5), process.kill)
        if attempt > 0:
            return None
        moment = self.chance.uniform(0.02, 0.3)
        if self.fault == "folder-gone" and self.is_download:
            return threading.Timer(moment, places.remove_contents, [self.folder])
        if self.fault == "folder-gone":
            return threading.Timer(moment, self.place.remove_folder)
        if self.fault == "changed" and not self.is_download:
            return threading.Timer(moment, self.change_source)
        return None

    def change_source(self):
        self.file.change()
        with open(self.path, "r+b") as source:
            source.write(self.file.body)
            source.truncate()

    def content(self):
        return places.content_of(self.path) if self.is_download else self.place.content()

    def is_right(self, content):
        return content is not None and self.file.has(bytes(content))

    def is_clean(self):
        """Nothing under the name that is not the file."""
        content = self.content()
        return content is None or self.is_right(content)


def measure(opener, protocol, direction, client, fault, number, options, make_command):
    seed = zlib.crc32(f"{options.seed} {protocol} {direction} {fault} {number}".encode())  # the same for all clients
    name = f"{zlib.crc32(client.encode())}-{direction}-{fault}-{number}"
    folder = tempfile.mkdtemp(prefix="norla-reliability-")
    os.chmod(folder, 0o755)
    run = None
    try:
        run = Run(protocol, fault, direction, seed, name, opener, folder)
        outcome = run.outcome(make_command, client.startswith("CFile"))
        if outcome != "done" and options.verbose:
            print(f"{protocol} {direction} {client}: {outcome}, --fault {fault}, run {number}: {run.last_words}",
                  file=sys.stderr, flush=True)
        return outcome
    finally:
        if run:
            run.leave()
        shutil.rmtree(folder, ignore_errors=True)


def cell(outcomes):
    if not outcomes:
        return "does not speak it"
    counts = [(outcomes.count(kind), kind) for kind in KINDS]
    return ", ".join(f"**{count} {kind}**" if kind in BOLD else f"{count} {kind}" for count, kind in counts if count)


def programs(options, direction):
    """Name -> how it is called, over which protocols."""
    ours = {"CFileDownload": options.downloader} if direction == "down" else {"CFileUpload": options.uploader}
    own = {name: (clients.ours(program), faults.PROTOCOLS) for name, program in ours.items()}
    others = {} if options.only_ours else clients.others_of(direction)
    return {**own, **{name: call for name, call in others.items() if shutil.which(name.split(" ")[0])}}


def table(opener, protocol, direction, options, pool):
    """Prints it. Returns whether this library's column has nothing but what is fine."""
    called = programs(options, direction)
    words = faults.DOWN if direction == "down" else faults.UP
    print(f"\n{protocol.upper()}, {direction}\n\n| Fault | " + " | ".join(called) + " |")
    print("|---|" + "---|" * len(called), flush=True)
    ours = []
    for fault in faults.faults_of(protocol, direction):
        if options.fault and fault not in options.fault:
            continue
        if fault == "disk-full" and os.geteuid() != 0:
            print("disk-full is left out: only root may mount a small disk", file=sys.stderr)
            continue
        running = {name: [pool.submit(measure, opener, protocol, direction, name, fault, number, options, make)
                          for number in range(options.runs) if protocol in spoken]
                   for name, (make, spoken) in called.items()}
        outcomes = {name: [future.result() for future in futures] for name, futures in running.items()}
        ours += next(iter(outcomes.values()))
        print(f"| {words[fault]} | " + " | ".join(cell(found) for found in outcomes.values()) + " |", flush=True)
    return all(outcome in FINE for outcome in ours)


def parse_options():
    parser = argparse.ArgumentParser(prog="scripts/reliability", allow_abbrev=False)
    parser.add_argument("--runs", type=int, default=36)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=8)
    for name, choices in NAMES.items():
        parser.add_argument("--" + name, choices=choices, action="append")
    parser.add_argument("--downloader", help="a program that fetches a file by this library")
    parser.add_argument("--uploader", help="a program that sends a file by this library")
    parser.add_argument("--only-ours", action="store_true", help="no other programs")
    parser.add_argument("--verbose", action="store_true", help="name each run that is not done, and its program's last words")
    parser.add_argument("--names", choices=NAMES, help="print what may stand behind this option, and do nothing else")
    options = parser.parse_args()
    if not options.names and not (options.downloader and options.uploader):
        parser.error("--downloader and --uploader are wanted")
    return options


def main():
    options = parse_options()
    if options.names:
        print("\n".join(NAMES[options.names]))
        return 0
    is_fine = True
    with tempfile.TemporaryDirectory(prefix="norla-reliability-") as folder, \
            concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        os.chmod(folder, 0o755)
        openers = {protocol: places.OPENERS[protocol](folder) for protocol in options.protocol or faults.PROTOCOLS}
        for direction in options.direction or faults.DIRECTIONS:
            for protocol, opener in openers.items():
                is_fine = table(opener, protocol, direction, options, pool) and is_fine
    return 0 if is_fine else 1


if __name__ == "__main__":
    sys.exit(main())
