"""Eight clients, of both exports, that write to a volume as fast as they are served, and know what must be there afterwards."""

import collections
import contextlib
import pathlib
import random
import socket
import sys
import threading

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import iscsi  # noqa: E402
import nbd  # noqa: E402
import quilla  # noqa: E402

SECTOR = 512
CLIENTS = 8
SESSIONS = 2  # of them by iSCSI, which has no more
SLOT = 160  # sectors; a whole one is large enough for the server to share it among processors
SLOTS = 20  # of each client
IN_FLIGHT = 16  # less than the slots, so no two requests for the same sector are ever under way
SECTORS = SLOT * SLOTS * (CLIENTS + 1)
SIZE = SECTORS * SECTOR


def content(sector, version):
    """A sector that tells what it is."""
    return (f"{sector:08d}.{version:08d}.".encode() * 29)[:SECTOR]


def parse(sector, data):
    """The version of a whole sector, or None when it is not one."""
    version = data[9:17]
    return int(version) if version.isdigit() and data == content(sector, int(version)) else None


class Load:
    """The slots of the clients lie in turn, and after each turn one that nobody ever writes."""

    def __init__(self):
        self.sent = [0] * SECTORS  # the newest version on its way to each sector
        self.safe = [0] * SECTORS  # the newest one that was acknowledged
        self.writes = 0
        self.stopping = threading.Event()
        self.clients, self.threads = [], []

    def fill(self, uri):
        """Writes version 0 everywhere."""
        with nbd.Client(uri) as client:
            for first in range(0, SECTORS, SLOT):
                client.write(first * SECTOR, b"".join(content(s, 0) for s in range(first, first + SLOT)))

    def start(self, uri, target):
        """Lets the clients loose, two of them by iSCSI; returns when each is at work."""
        self.stopping.clear()
        begin = self.writes
        self.clients = [iscsi.Client(target, i) if i < SESSIONS else nbd.Client(uri) for i in range(CLIENTS)]
        self.threads = [threading.Thread(target=self._write, args=(i, client)) for i, client in enumerate(self.clients)]
        for thread in self.threads:
            thread.start()
        quilla.wait_until(lambda: self.writes >= begin + CLIENTS * IN_FLIGHT, "the clients to be at work")

    def _write(self, index, client):
        chance = random.Random(index)
        pending = collections.deque()
        slot = 0
        with contextlib.suppress(OSError, quilla.Failure):
            while pending or not self.stopping.is_set():
                if len(pending) < IN_FLIGHT and not self.stopping.is_set():
                    count = SLOT if chance.random() < 0.1 else chance.randint(1, 16)
                    first = SLOT * (slot * (CLIENTS + 1) + index) + chance.randint(0, SLOT - count)
                    slot = (slot + 1) % SLOTS
                    run = range(first, first + count)
                    for sector in run:
                        self.sent[sector] += 1
                    pending.append(run)
                    client.send_write(first * SECTOR, b"".join(content(s, self.sent[s]) for s in run))
                else:
                    client.receive_reply()
                    for sector in pending.popleft():
                        self.safe[sector] = self.sent[sector]
                    self.writes += 1

    def stop(self):
        """Has the clients take their last replies; their connections stay."""
        self.stopping.set()
        self.join()

    def end(self):
        """Waits for the clients, whose connections have ended or end now from this side."""
        for client in self.clients:
            with contextlib.suppress(OSError):
                client.connection.shutdown(socket.SHUT_RDWR)
        self.join()
        for client in self.clients:
            client.close()

    def join(self):
        """Waits until no client is at work any more."""
        for thread in self.threads:
            thread.join(quilla.LIMIT)
            if thread.is_alive():
                raise quilla.Failure("a client is still waiting for a reply")

    def check(self, test, uri, when):
        """Every sector is whole, as new as its last acknowledged write at least, and none was touched unasked."""
        with nbd.Client(uri) as client:
            for first in range(0, SECTORS, SLOT):
                data = client.read(first * SECTOR, SLOT * SECTOR)
                for i in range(SLOT):
                    sector = first + i
                    found = parse(sector, data[i * SECTOR:(i + 1) * SECTOR])
                    test.assertIsNotNone(found, f"sector {sector} is broken {when}")
                    test.assertGreaterEqual(found, self.safe[sector], f"a write to sector {sector} is lost {when}")
                    test.assertLessEqual(found, self.sent[sector], f"sector {sector} {when}")
                    self.safe[sector] = found
