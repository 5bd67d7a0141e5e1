"""Carries connections to a server that knows nothing of faults, and does one harm to them."""

import selectors

import faults

HANDSHAKE = 5000  # bytes until the file follows, about


class Relay:
    """On a port of its own, for one file. The bytes that are counted go where the file goes."""

    def __init__(self, file, connect, change=None):
        """connect(): a socket to the server. change(): another file in the place of this one."""
        self.file = file
        self.connect = connect
        self.change = change or file.change
        self.listener = faults.Listener(self.carry)
        self.port = self.listener.port

    def close(self):
        self.listener.close()

    def carry(self, client):
        broken_at = self.file.next_break()
        if broken_at == -1:
            broken_at = self.file.random.randrange(HANDSHAKE)
        with self.connect() as server, selectors.DefaultSelector() as selector:
            counted = server if self.file.direction == "down" else client
            sinks = {client: server, server: client}
            for source in sinks:
                source.settimeout(faults.PATIENCE)
                selector.register(source, selectors.EVENT_READ)
            while selector.get_map():
                ready = selector.select(faults.PATIENCE)
                if not ready:
                    return
                for source in [key.fileobj for key, _ in ready]:
                    most = broken_at if source is counted and broken_at is not None else faults.BLOCK
                    if most == 0:
                        if self.break_off(client):
                            return
                        broken_at = None
                        self.garble(source, sinks[source])
                        continue
                    block = source.recv(min(most, faults.BLOCK))
                    if not block:
                        selector.unregister(source)
                        sinks[source].shutdown(1)
                        continue
                    sinks[source].sendall(block)
                    if source is counted:
                        broken_at = None if broken_at is None else broken_at - len(block)
                        self.file.pause(len(block))

    def break_off(self, client):
        """False where it goes on."""
        if self.file.fault in ("changed", "same-size"):
            self.change()
        if self.file.fault == "stall":
            faults.stop_listening(client)
        if self.file.fault == "reset":
            faults.reset(client)
        return self.file.fault != "garbled"

    def garble(self, source, sink):
        block = source.recv(1)
        if block:
            sink.sendall(bytes([block[0] ^ (1 << self.file.random.randrange(8))]))
