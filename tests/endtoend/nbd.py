"""A small NBD client in plain Python, and clients that misbehave."""

import re
import socket
import struct

import quilla

NBD_MAGIC = 0x4E42444D41474943
OPTION_MAGIC = 0x49484156454F5054
REPLY_MAGIC = 0x3E889045565A9
REQUEST_MAGIC = 0x25609513
SIMPLE_REPLY_MAGIC = 0x67446698

OPT_EXPORT_NAME, OPT_ABORT, OPT_LIST, OPT_GO = 1, 2, 3, 7
REP_ACK, REP_INFO = 1, 3
INFO_EXPORT = 0
CMD_READ, CMD_WRITE, CMD_DISC, CMD_FLUSH = 0, 1, 2, 3


def split_uri(uri):
    """(host, port, export name)"""
    match = re.fullmatch(r"nbd://([^:/]+):(\d+)/(SEC\d-[0-9a-f]{32})", uri)
    if not match:
        raise quilla.Failure(f"not an address of an export: {uri}")
    return match.group(1), int(match.group(2)), match.group(3)


def receive(connection, length):
    data = b""
    while len(data) < length:
        piece = connection.recv(length - len(data))
        if not piece:
            raise quilla.Failure("the server has closed the connection")
        data += piece
    return data


def connect(uri):
    """A connection after the greeting, before the first option."""
    host, port, _ = split_uri(uri)
    connection = socket.create_connection((host, port), timeout=quilla.LIMIT)
    magic, option_magic, _ = struct.unpack(">QQH", receive(connection, 18))
    if (magic, option_magic) != (NBD_MAGIC, OPTION_MAGIC):
        raise quilla.Failure("not an NBD server")
    connection.sendall(struct.pack(">I", 3))  # fixed newstyle, no zeroes
    return connection


def send_option(connection, option, data=b""):
    connection.sendall(struct.pack(">QII", OPTION_MAGIC, option, len(data)) + data)


def receive_reply(connection):
    """(reply type, data) of an option"""
    magic, _, reply, length = struct.unpack(">QIII", receive(connection, 20))
    if magic != REPLY_MAGIC:
        raise quilla.Failure("not a reply to an option")
    return reply, receive(connection, length)


def request_go(connection, name):
    """Asks for an export by name; returns its size, or None when it is refused."""
    encoded = name.encode()
    send_option(connection, OPT_GO, struct.pack(">I", len(encoded)) + encoded + struct.pack(">H", 0))
    size = None
    while True:
        reply, data = receive_reply(connection)
        if reply == REP_INFO and struct.unpack_from(">H", data)[0] == INFO_EXPORT:
            size = struct.unpack_from(">Q", data, 2)[0]
        elif reply == REP_ACK:
            return size
        elif reply & 0x80000000:
            return None


class Client:
    """One connection in its transmission phase."""

    def __init__(self, uri):
        self.connection = connect(uri)
        self.size = request_go(self.connection, split_uri(uri)[2])
        if self.size is None:
            raise quilla.Failure("the export is refused")
        self.cookie = 0

    def __enter__(self):
        return self

    def __exit__(self, *error):
        try:
            self._send(CMD_DISC, 0, 0)
        except OSError:
            pass
        self.connection.close()

    def _send(self, command, offset, length, payload=b""):
        self.cookie += 1
        self.connection.sendall(struct.pack(">IHHQQI", REQUEST_MAGIC, 0, command, self.cookie, offset, length) + payload)

    def _reply(self):
        magic, error, cookie = struct.unpack(">IIQ", receive(self.connection, 16))
        if magic != SIMPLE_REPLY_MAGIC or cookie != self.cookie:
            raise quilla.Failure("not the reply to the request")
        return error

    def read(self, offset, length):
        self._send(CMD_READ, offset, length)
        error = self._reply()
        if error:
            raise quilla.Failure(f"read at {offset}: error {error}")
        return receive(self.connection, length)

    def write(self, offset, data):
        self._send(CMD_WRITE, offset, len(data), data)
        error = self._reply()
        if error:
            raise quilla.Failure(f"write at {offset}: error {error}")

    def send_write(self, offset, data):
        """Sends a write without waiting for its reply."""
        self._send(CMD_WRITE, offset, len(data), data)

    def receive_acknowledgement(self):
        """Takes the reply to a write that was sent before; the server keeps their order."""
        magic, error, _ = struct.unpack(">IIQ", receive(self.connection, 16))
        if magic != SIMPLE_REPLY_MAGIC or error:
            raise quilla.Failure(f"write: error {error}")

    def flush(self):
        self._send(CMD_FLUSH, 0, 0)
        error = self._reply()
        if error:
            raise quilla.Failure(f"flush: error {error}")
