#!/usr/bin/python3
"""Starts a program for each connection to a listening socket that it inherits; the connection is the program's standard
input and output. Prints "ready" and serves until it is killed."""

import argparse
import resource
import socket
import subprocess

# Servers of this kind begin by closing every descriptor that they might have.
DESCRIPTORS = 1024


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--socket", type=int, required=True, help="descriptor of the listening socket")
    parser.add_argument("program", nargs="+", help="the program and its arguments")
    return parser.parse_args()


def limit_descriptors():
    _, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    limit = DESCRIPTORS if hard == resource.RLIM_INFINITY else min(DESCRIPTORS, hard)
    resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))


def main():
    arguments = parse_arguments()
    limit_descriptors()
    listener = socket.socket(fileno=arguments.socket)
    children = []
    print("ready", flush=True)
    while True:
        connection, _ = listener.accept()
        with connection:
            children = [child for child in children if child.poll() is None]
            children.append(subprocess.Popen(arguments.program, stdin=connection, stdout=connection))


main()
