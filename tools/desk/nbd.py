"""A small NBD client in plain Python."""

import struct
import urllib.parse

import quilla
from stream import Stream

OPTION_MAGIC = 0x49484156454F5054
REQUEST_MAGIC = 0x25609513
SIMPLE_REPLY_MAGIC = 0x67446698
NO_ZEROES = 3  # and the fixed newstyle handshake
OPT_EXPORT_NAME = 1
CMD_READ, CMD_WRITE, CMD_FLUSH = 0, 1, 3


class Client(Stream):
    """A connection in its transmission phase."""

    def __init__(self, uri):
        address = urllib.parse.urlsplit(uri)
        name = address.path[1:].encode()
        super().__init__(address.hostname, address.port)
        self.receive(18)  # the greeting
        self.connection.sendall(struct.pack(">IQII", NO_ZEROES, OPTION_MAGIC, OPT_EXPORT_NAME, len(name)) + name)
        self.size, _ = struct.unpack(">QH", self.receive(10))

    def send(self, command, offset=0, length=0, payload=b""):
        self.connection.sendall(struct.pack(">IHHQQI", REQUEST_MAGIC, 0, command, 0, offset, length) + payload)

    def receive_reply(self):
        """Takes the reply to the oldest request that has none; the server keeps their order."""
        magic, error, _ = struct.unpack(">IIQ", self.receive(16))
        if magic != SIMPLE_REPLY_MAGIC or error:
            raise quilla.Failure(f"error {error} in a reply")

    def read(self, offset, length):
        self.send(CMD_READ, offset, length)
        self.receive_reply()
        return self.receive(length)

    def send_write(self, offset, data):
        self.send(CMD_WRITE, offset, len(data), data)

    def write(self, offset, data):
        self.send_write(offset, data)
        self.receive_reply()

    def flush(self):
        self.send(CMD_FLUSH)
        self.receive_reply()
