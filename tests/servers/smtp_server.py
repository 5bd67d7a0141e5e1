#!/usr/bin/python3
"""A mail server on a listening socket that it inherits. Prints "ready" and serves until it is killed.

Each message becomes three files in the folder of messages: N.from, N.recipients (a line each) and N.body, which comes
last and is complete when it appears. Recipients that start with a name of REFUSALS are refused.
"""

import argparse
import asyncio
import pathlib
import socket

from aiosmtpd.smtp import SMTP

REFUSALS = {
    "reject@": "550 5.1.1 No such recipient",
    "tempfail@": "451 4.3.0 Try again later",
}


def parse_arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--socket", type=int, required=True, help="descriptor of the listening socket")
    parser.add_argument("--messages", type=pathlib.Path, required=True, help="folder of the messages")
    return parser.parse_args()


class Store:
    """The handler of all sessions: refuses recipients, stores messages."""

    def __init__(self, folder):
        self.folder = folder
        self.count = 0

    async def handle_RCPT(self, server, session, envelope, address, options):
        for start, answer in REFUSALS.items():
            if address.startswith(start):
                return answer
        envelope.rcpt_tos.append(address)
        envelope.rcpt_options.extend(options)
        return "250 OK"

    async def handle_DATA(self, server, session, envelope):
        name = f"{self.count:06}"
        self.count += 1
        (self.folder / f"{name}.from").write_text(envelope.mail_from)
        (self.folder / f"{name}.recipients").write_text("".join(to + "\n" for to in envelope.rcpt_tos))
        unfinished = self.folder / f"{name}.unfinished"
        unfinished.write_bytes(envelope.original_content)
        unfinished.rename(self.folder / f"{name}.body")
        return "250 Message stored"


async def serve(arguments):
    store = Store(arguments.messages)
    listener = socket.socket(fileno=arguments.socket)
    server = await asyncio.get_running_loop().create_server(
        lambda: SMTP(store, hostname="localhost", enable_SMTPUTF8=True, loop=asyncio.get_running_loop()), sock=listener)
    print("ready", flush=True)
    await server.serve_forever()


asyncio.run(serve(parse_arguments()))
