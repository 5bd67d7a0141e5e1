"""How programs are told to fetch and to send a file: to go on with what is there, to wait two seconds at most for a
byte, and to make three attempts."""

import os

CURL = ["curl", "-sSf", "--retry", "2", "--retry-delay", "1", "--retry-all-errors", "--connect-timeout", "5",
        "--speed-limit", "1", "--speed-time", "2"]


def curl_trust(protocol, environment):
    if protocol == "https":
        return ["--cacert", environment["NORLA_CA_FILE"]]
    if protocol == "sftp":
        return ["--key", environment["NORLA_SSH_KEY"], "--pubkey", environment["NORLA_SSH_KEY"] + ".pub"]
    return []


def trust_of_others(protocol, environment):
    return ["--ca-certificate=" + environment["NORLA_CA_FILE"]] if protocol == "https" else []


def ours(program):
    return lambda place, path, protocol: [program, place.url, path]


def wget(place, path, protocol):
    return ["wget", "-nv", "-c", "--tries=3", "--waitretry=0.1", "--read-timeout=2", "--connect-timeout=5", "-O", path,
            *trust_of_others(protocol, place.environment), place.url]


def curl_down(place, path, protocol):
    return [*CURL, "-C", "-", *curl_trust(protocol, place.environment), "-o", path, place.url]


def aria2c(place, path, protocol):
    return ["aria2c", "--no-conf", "-c", "--auto-file-renaming=false", "--max-tries=3", "--retry-wait=0", "--timeout=2",
            "--connect-timeout=5", "--file-allocation=none", "--summary-interval=0", "-d", os.path.dirname(path), "-o",
            os.path.basename(path), *trust_of_others(protocol, place.environment), place.url]


def curl_up(place, path, protocol):
    return [*CURL, *curl_trust(protocol, place.environment), "-T", path, place.url]


def curl_up_again(place, path, protocol):
    return [*CURL, "-C", "-", *curl_trust(protocol, place.environment), "-T", path, place.url]


# Program -> how it is called, and over which protocols.
DOWN = {
    "wget -c": (wget, ["http", "https", "ftp"]),
    "curl -C -": (curl_down, ["http", "https", "ftp", "sftp"]),
    "aria2c -c": (aria2c, ["http", "https", "ftp"]),  # over SFTP it knows no keys
}
UP = {
    "curl -T": (curl_up, ["http", "https", "ftp", "sftp"]),
    "curl -C - -T": (curl_up_again, ["ftp", "sftp"]),
}


def others_of(direction):
    return DOWN if direction == "down" else UP
