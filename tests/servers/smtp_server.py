#!/usr/bin/python3
"""A mail server on a listening socket that it inherits. Prints "ready" and serves until it is killed.

Each message becomes five files in the folder of messages: N.from, N.recipients (a line each), N.user and N.security, and
N.body, which comes last and is complete when it appears. Recipients that start with a name of REFUSALS are refused.
"""

import argparse
import asyncio
import functools
import pathlib
import socket
import ssl

from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword

REFUSALS = {
    "reject@": "550 5.1.1 No such recipient",
    "tempfail@": "451 4.3.0 Try again later",
}
COMMANDS = ["HELO", "EHLO", "STARTTLS", "AUTH", "MAIL", "RCPT", "DATA", "RSET", "NOOP", "HELP", "VRFY", "QUIT"]
END_OF_MESSAGE = "."
SIZE_LIMIT = 200 << 20


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--socket", type=int, required=True, help="descriptor of the listening socket")
    parser.add_argument("--messages", type=pathlib.Path, required=True, help="folder of the messages")
    parser.add_argument("--security", choices=["none", "starttls", "implicit"], default="none")
    parser.add_argument("--certificate")
    parser.add_argument("--key")
    parser.add_argument("--authentication", choices=["none", "offered", "demanded"], default="none")
    parser.add_argument("--reply", nargs=2, action="append", default=[], metavar=("START", "REPLY"),
                        help="answer to the commands that start so; if empty, the connection is closed")
    parser.add_argument("--disconnect-after", type=int, default=-1, help="number of bytes of a message")
    return parser.parse_args()


def replaceable(name):
    """@return the method for a command, which asks for another reply first"""
    original = getattr(SMTP, "smtp_" + name)

    @functools.wraps(original)  # also keeps what HELP shows
    async def answer(self, argument):
        reply = self.replacement(f"{name} {argument or ''}")
        if reply is None:
            await original(self, argument)
        else:
            await self.push(reply)

    return answer


class Server(SMTP):
    """One connection."""

    def __init__(self, handler, arguments, context):
        self.arguments = arguments
        self.bytes_left = None
        super().__init__(
            handler, hostname="localhost", data_size_limit=SIZE_LIMIT, enable_SMTPUTF8=True,
            loop=asyncio.get_running_loop(), tls_context=context if arguments.security == "starttls" else None,
            authenticator=authenticate, auth_require_tls=False,
            auth_required=arguments.authentication == "demanded")

    def replacement(self, line):
        """@return the reply that was asked for, None if there is none"""
        for start, reply in self.arguments.reply:
            if line.upper().startswith(start.upper()):
                if not reply:
                    raise asyncio.CancelledError  # closes the connection
                return reply
        return None

    async def push(self, status):
        is_message_next = status[:3] in ("354", b"354")
        self.bytes_left = self.arguments.disconnect_after if is_message_next else None
        await super().push(status)

    def data_received(self, data):
        if self.bytes_left is not None and self.bytes_left >= 0:
            if len(data) > self.bytes_left:
                self.transport.close()
                return
            self.bytes_left -= len(data)
        super().data_received(data)


for command in COMMANDS:
    setattr(Server, "smtp_" + command, replaceable(command))


def authenticate(server, session, envelope, mechanism, login):
    return AuthResult(success=login == LoginPassword(b"user", b"secret"), handled=False, auth_data=login)


class Store:
    """The handler of all sessions: refuses recipients, stores messages."""

    def __init__(self, arguments):
        self.arguments = arguments
        self.folder = arguments.messages
        self.count = 0

    async def handle_EHLO(self, server, session, envelope, hostname, responses):
        session.host_name = hostname
        if self.arguments.authentication == "none":
            return [line for line in responses if not line.startswith("250-AUTH")]
        return responses

    async def handle_RCPT(self, server, session, envelope, address, options):
        for start, answer in REFUSALS.items():
            if address.startswith(start):
                return answer
        envelope.rcpt_tos.append(address)
        envelope.rcpt_options.extend(options)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        reply = server.replacement(END_OF_MESSAGE)
        if reply is not None:
            return reply
        name = f"{self.count:06}"
        self.count += 1
        is_secure = server.transport.get_extra_info("ssl_object") is not None
        (self.folder / f"{name}.from").write_text(envelope.mail_from)
        (self.folder / f"{name}.recipients").write_text("".join(to + "\n" for to in envelope.rcpt_tos))
        (self.folder / f"{name}.user").write_text(session.auth_data.login.decode() if session.authenticated else "")
        (self.folder / f"{name}.security").write_text("TLS" if is_secure else "none")
        unfinished = self.folder / f"{name}.unfinished"
        unfinished.write_bytes(envelope.original_content)
        unfinished.rename(self.folder / f"{name}.body")
        return "250 Message stored"


def tls_context(arguments):
    if arguments.security == "none":
        return None
    context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
    context.load_cert_chain(arguments.certificate, arguments.key)
    return context


async def serve(arguments):
    store = Store(arguments)
    context = tls_context(arguments)
    listener = socket.socket(fileno=arguments.socket)
    server = await asyncio.get_running_loop().create_server(
        lambda: Server(store, arguments, context), sock=listener,
        ssl=context if arguments.security == "implicit" else None)
    print("ready", flush=True)
    await server.serve_forever()


asyncio.run(serve(parse_arguments()))
