"""What programs that fetch files make of faults: measure.py --downloader PROGRAM [--runs N] [--seed N] [--fault NAME]

Each run is one file with one fault. The program is started again, up to five times, until it says that all is well.
"done": it says so, and the file under the name is whole. "wrong": it says so, and it is not. "error": it never says so.
"hang": it has not ended within 30 seconds."""

import argparse
import concurrent.futures
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time
import zlib

import fault_server

FAULTS = {
    "killed": "the client is killed at any moment, three times",
    "reset": "the connection is reset in the middle",
    "stall": "the server falls silent in the middle",
    "truncated": "the body ends too early",
    "over-long": "more comes than was announced",
    "no-ranges": "broken off; the server then ignores ranges",
    "other-range": "broken off; then another part comes than was asked for, and says so",
    "lying-range": "broken off; then other bytes come than Content-Range says",
    "changed": "broken off; then the file is another one",
    "same-size": "broken off; then the file is another one of the same size, time and ETag",
    "page": "broken off; then a page comes with status 200",
    "disk-full": "the disk is full",
    "folder-gone": "the folder is removed meanwhile",
    "no-permission": "the folder may not be written to",
}
LIMIT = 30  # seconds
STARTS = 5
NOBODY = 65534


def commands(downloader):
    return {
        "CFileDownload": lambda url, path: [downloader, url, path],
        "wget -c": lambda url, path: ["wget", "-q", "-c", "--tries=3", "--waitretry=0.1", "--read-timeout=2", "-O", path, url],
        "curl -C -": lambda url, path: ["curl", "-sSf", "-C", "-", "--retry", "2", "--retry-delay", "1", "--retry-all-errors",
                                        "--speed-limit", "1", "--speed-time", "2", "-o", path, url],
        "aria2c -c": lambda url, path: ["aria2c", "-q", "-c", "--auto-file-renaming=false", "--max-tries=3", "--retry-wait=0",
                                        "--timeout=2", "--file-allocation=none", "-d", os.path.dirname(path),
                                        "-o", os.path.basename(path), url],
    }


def start(command, fault):
    user = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if fault == "no-permission" and os.geteuid() == 0 else {}
    return subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                            cwd="/", **user)


def run_once(command, fault, chance, folder, attempt):
    """The exit status, or None for a hang."""
    process = start(command, fault)
    try:
        if fault == "killed" and attempt < 3:
            time.sleep(chance.uniform(0, 0.5))
            process.kill()
        if fault == "folder-gone" and attempt == 0:
            time.sleep(chance.uniform(0.05, 0.3))
            shutil.rmtree(folder, ignore_errors=True)
        return process.wait(LIMIT)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()
        return None


def outcome(command, fault, resource, folder, seed):
    chance = random.Random(seed)
    path = os.path.join(folder, "file")
    for attempt in range(STARTS):
        status = run_once(command, fault, chance, folder, attempt)
        if status is None:
            return "hang"
        if status == 0:
            return "done" if is_right(path, resource) else "wrong"
    return "error"


def is_right(path, resource):
    try:
        with open(path, "rb") as file:
            return resource.is_right(file.read())
    except OSError:
        return False


def measure(server, make_command, client, fault, number, seed):
    seed = zlib.crc32(f"{seed} {fault} {number}".encode())  # the same for all clients
    resource = fault_server.Resource(fault, seed)
    name = f"{zlib.crc32(client.encode())}-{fault}-{number}"
    server.resources[name] = resource
    folder = tempfile.mkdtemp(prefix="norla-reliability-")
    mounted = False
    try:
        if fault == "disk-full":
            size = random.Random(seed).randrange(64 << 10, 900 << 10)
            subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size}", "tmpfs", folder], check=True)
            mounted = True
        os.chmod(folder, 0o555 if fault == "no-permission" else 0o755)
        url = f"http://127.0.0.1:{server.port}/{name}"
        return outcome(make_command(url, os.path.join(folder, "file")), fault, resource, folder, seed)
    finally:
        if mounted:
            subprocess.run(["umount", folder], check=True)
        shutil.rmtree(folder, ignore_errors=True)
        del server.resources[name]


def cell(outcomes):
    counts = [(outcomes.count(kind), kind) for kind in ("done", "error", "hang", "wrong")]
    return ", ".join(f"**{count} {kind}**" if kind in ("wrong", "hang") else f"{count} {kind}"
                     for count, kind in counts if count)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--downloader", required=True)
    parser.add_argument("--runs", type=int, default=50)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--jobs", type=int, default=8)
    parser.add_argument("--fault", choices=FAULTS, action="append")
    options = parser.parse_args()
    clients = {name: make for name, make in commands(options.downloader).items() if shutil.which(make("", "/x")[0])}
    server = fault_server.FaultServer()
    print("| Fault | " + " | ".join(clients) + " |\n|---|" + "---|" * len(clients))
    ours = []
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for fault in options.fault or FAULTS:
            if fault == "disk-full" and os.geteuid() != 0:
                print("disk-full is left out: only root may mount a small disk", file=sys.stderr)
                continue
            running = {client: [pool.submit(measure, server, make, client, fault, number, options.seed)
                                for number in range(options.runs)] for client, make in clients.items()}
            outcomes = {client: [future.result() for future in futures] for client, futures in running.items()}
            ours += outcomes["CFileDownload"]
            print(f"| {FAULTS[fault]} | " + " | ".join(cell(found) for found in outcomes.values()) + " |", flush=True)
    return 1 if "wrong" in ours or "hang" in ours else 0


if __name__ == "__main__":
    sys.exit(main())
