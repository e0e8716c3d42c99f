"""The program is killed in the middle of writes. Whatever was acknowledged before a flush is there afterwards, no
sector outside the requested range has changed, and the key file is what it was.

QUILLA_LONG_RUN makes it fifty kills instead of a few.
"""

import contextlib
import os
import random
import socket
import threading
import time
import unittest

import nbd
import oracle
import quilla

KILLS = 50 if "QUILLA_LONG_RUN" in os.environ else 4
SECTOR = 512
SECTORS = 2048
LOCKED = range(1024, 1536)  # never written: must never change


def content(sector, version):
    """A sector that tells what it is."""
    return (f"{sector:08d}.{version:08d}.".encode() * 32)[:SECTOR]


def parse(sector, data):
    """The version of a whole sector, or None when it is not one."""
    version = data[9:17]
    return int(version) if version.isdigit() and data == content(sector, int(version)) else None


class Writer(threading.Thread):
    """Writes versions over random runs of sectors until the connection breaks; knows what must be there."""

    def __init__(self, client, sent, safe, seed):
        super().__init__()
        self.client, self.sent, self.safe = client, sent, safe
        self.random = random.Random(seed)
        self.acknowledged = 0

    def run(self):
        pending = {}
        try:
            while True:
                first = self.random.randrange(SECTORS)
                count = self.random.randint(1, 64)
                run = [s for s in range(first, min(first + count, SECTORS)) if s not in LOCKED]
                run = run[:next((i for i in range(1, len(run)) if run[i] != run[i - 1] + 1), len(run))]
                if not run:
                    continue
                for sector in run:
                    self.sent[sector] += 1
                self.client.write(run[0] * SECTOR, b"".join(content(s, self.sent[s]) for s in run))
                pending.update((s, self.sent[s]) for s in run)
                self.acknowledged += 1
                if self.random.random() < 0.2:
                    self.client.flush()
                    self.safe.update(pending)
                    pending = {}
        except (OSError, quilla.Failure):
            return


class KillTest(quilla.DesktopTest):

    def kill_and_check(self, cipher, kills):
        chance = random.Random(cipher)
        volume = self.volume(size=SECTORS * SECTOR, cipher=cipher)
        oracle.make_files(volume)
        key_file = volume.key.read_bytes()
        sent = dict.fromkeys(range(SECTORS), 0)
        safe = dict.fromkeys(range(SECTORS), 0)
        program = self.desktop.start("mount", volume.path, "/password", volume.password)
        with nbd.Client(self.desktop.uri()) as client:
            for sector in range(0, SECTORS, 64):
                client.write(sector * SECTOR, b"".join(content(s, 0) for s in range(sector, sector + 64)))
            client.flush()
        writes = 0
        for number in range(kills):
            with nbd.Client(self.desktop.uri()) as client:
                writer = Writer(client, sent, safe, number)
                writer.start()
                time.sleep(chance.uniform(0.1, 0.6))
                program.kill()
                program.wait(quilla.LIMIT)
                # Wine's server at times keeps the connection of a killed process open; nobody answers on it.
                with contextlib.suppress(OSError):
                    client.connection.shutdown(socket.SHUT_RDWR)
                writer.join(quilla.LIMIT)
            self.assertFalse(writer.is_alive())
            self.assertGreater(writer.acknowledged, 0, "killed before anything was written")
            writes += writer.acknowledged
            self.assertEqual(volume.key.read_bytes(), key_file)
            self.assertEqual(volume.raw.stat().st_size, volume.size)
            self.desktop.uri_file("SEC0").unlink(missing_ok=True)  # what a killed program cannot remove
            quilla.wait_until(lambda: not self.desktop.window(), "the killed window to go")
            program = self.desktop.start("mount", volume.path, "/password", volume.password)
            with nbd.Client(self.desktop.uri()) as client:
                data = client.read(0, volume.size)
            for sector in range(SECTORS):
                found = parse(sector, data[sector * SECTOR:(sector + 1) * SECTOR])
                self.assertIsNotNone(found, f"sector {sector} is broken after kill {number}")
                self.assertGreaterEqual(found, safe[sector], f"a flushed write to sector {sector} is lost")
                self.assertLessEqual(found, sent[sector])
                safe[sector] = sent[sector] = found
        print(f"\n  {quilla.CIPHER_NAMES[cipher]}: killed {kills} times during {writes} acknowledged writes")
        self.desktop.dismount(volume)
        self.assertEqual(self.desktop.close(program), 0)

    def test_twofish(self):
        self.kill_and_check(quilla.CIPHER_TWOFISH, KILLS // 2)

    def test_cast128(self):
        self.kill_and_check(quilla.CIPHER_CAST128, KILLS // 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
