"""A connection to one of the exports, for the clients of the tests and demonstrations."""

import socket

import quilla


class Stream:
    """A TCP connection that is closed at the end of its with statement."""

    def __init__(self, host, port):
        self.connection = socket.create_connection((host, port), quilla.LIMIT)
        self.input = self.connection.makefile("rb")

    def __enter__(self):
        return self

    def __exit__(self, *error):
        self.close()

    def close(self):
        self.input.close()
        self.connection.close()

    def receive(self, length):
        data = self.input.read(length)
        if len(data) < length:
            raise quilla.Failure("the peer has closed the connection")
        return data
