"""How programs are told to fetch and to send a file: to go on with what is there, to wait two seconds at most for a
byte, and to make three attempts."""

import os

CURL = ["curl", "-sSf", "--retry", "2", "--retry-delay", "1", "--retry-all-errors", "--connect-timeout", "5",
        "--speed-limit", "1", "--speed-time", "2"]


def curl_trust(environment):
    if "NORLA_CA_FILE" in environment:
        return ["--cacert", environment["NORLA_CA_FILE"]]
    if "NORLA_SSH_KEY" in environment:
        return ["--key", environment["NORLA_SSH_KEY"], "--pubkey", environment["NORLA_SSH_KEY"] + ".pub"]
    return []


def trust_of_others(environment):
    return ["--ca-certificate=" + environment["NORLA_CA_FILE"]] if "NORLA_CA_FILE" in environment else []


def ours(program):
    return lambda place, path: [program, place.url, path]


def wget(place, path):
    return ["wget", "-nv", "-c", "--tries=3", "--waitretry=0.1", "--read-timeout=2", "--connect-timeout=5", "-O", path,
            *(["--ftps-implicit"] if place.url.startswith("ftps:") else []),
            *trust_of_others(place.environment), place.url]


def curl_place(place):
    """To a store it speaks HTTP, signed."""
    if not place.url.startswith("s3:"):
        return [*curl_trust(place.environment), place.url]
    login = place.environment["AWS_ACCESS_KEY_ID"] + ":" + place.environment["AWS_SECRET_ACCESS_KEY"]
    return ["--aws-sigv4", "aws:amz:us-east-1:s3", "--user", login, place.url.replace("s3:", "http:", 1)]


def curl_down(place, path):
    return [*CURL, "-C", "-", "-o", path, *curl_place(place)]


def aria2c(place, path):
    return ["aria2c", "--no-conf", "-c", "--auto-file-renaming=false", "--max-tries=3", "--retry-wait=0", "--timeout=2",
            "--connect-timeout=5", "--file-allocation=none", "--summary-interval=0", "-d", os.path.dirname(path), "-o",
            os.path.basename(path), *trust_of_others(place.environment), place.url]


def curl_up(place, path):
    return [*CURL, "-T", path, *curl_place(place)]


def curl_up_again(place, path):
    return [*CURL, "-C", "-", "-T", path, *curl_place(place)]


# Program -> how it is called, and over which protocols.
DOWN = {
    "wget -c": (wget, ["http", "https", "ftp", "ftps"]),
    "curl -C -": (curl_down, ["http", "https", "ftp", "ftps", "sftp", "s3"]),
    "aria2c -c": (aria2c, ["http", "https", "ftp"]),  # over SFTP it knows no keys; FTP with TLS it does not speak
}
UP = {
    "curl -T": (curl_up, ["http", "https", "ftp", "ftps", "sftp", "s3"]),
    "curl -C - -T": (curl_up_again, ["ftp", "ftps", "sftp"]),
}


def others_of(direction):
    return DOWN if direction == "down" else UP
