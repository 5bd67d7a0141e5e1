#!/usr/bin/python3
"""An FTP server for one user, on a listening socket that it inherits. Prints "ready" and serves until it is killed."""

import argparse
import socket

from pyftpdlib.authorizers import DummyAuthorizer
from pyftpdlib.handlers import FTPHandler, TLS_DTPHandler, TLS_FTPHandler
from pyftpdlib.servers import FTPServer


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--socket", type=int, required=True, help="descriptor of the listening socket")
    parser.add_argument("--root", required=True, help="the user's folder")
    parser.add_argument("--commands", required=True, help="file that gets a line for each command")
    parser.add_argument("--tls", choices=["none", "explicit", "implicit"], default="none")
    parser.add_argument("--certificate")
    parser.add_argument("--key")
    return parser.parse_args()


class CommandLog:
    """Mixed into a handler: records each command before it is carried out."""

    auth_failed_timeout = 0
    commands = None

    def pre_process_command(self, line, cmd, arg):
        self.commands.write(line + "\n")
        super().pre_process_command(line, cmd, arg)


class PlainHandler(CommandLog, FTPHandler):
    pass


class DataConnection(TLS_DTPHandler):
    """pyftpdlib 1.5.7 closes a connection whose handshake comes before the transfer command."""

    def readable(self):
        return self._ssl_accepting or super().readable()


class ExplicitHandler(CommandLog, TLS_FTPHandler):
    dtp_handler = DataConnection


class ImplicitHandler(ExplicitHandler):
    def handle(self):
        self.secure_connection(self.get_ssl_context())
        super().handle()


def main():
    arguments = parse_arguments()
    handler = {"none": PlainHandler, "explicit": ExplicitHandler, "implicit": ImplicitHandler}[arguments.tls]
    handler.commands = open(arguments.commands, "a", buffering=1, encoding="utf-8")
    handler.certfile = arguments.certificate
    handler.keyfile = arguments.key
    handler.authorizer = DummyAuthorizer()
    handler.authorizer.add_user("user", "secret", arguments.root, perm="elradfmwMT")
    server = FTPServer(socket.socket(fileno=arguments.socket), handler)
    print("ready", flush=True)
    server.serve_forever(handle_exit=False)


main()
