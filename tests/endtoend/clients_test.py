"""Real NBD clients on the real program, and clients that mean harm while another is at work."""

import os
import signal
import socket
import subprocess
import threading
import unittest

import nbd
import oracle
import quilla

MIB = 1 << 20


class ClientsTest(quilla.DesktopTest):

    def setUp(self):
        super().setUp()
        self.mounted = self.volume(size=64 * MIB)
        oracle.make_files(self.mounted)
        self.first = self.desktop.start("mount", self.mounted.path, "/password", self.mounted.password)
        self.uri = self.desktop.uri("SEC0")

    def tearDown(self):
        self.desktop.dismount(self.mounted)
        self.assertEqual(self.desktop.close(self.first), 0)
        super().tearDown()

    def random_file(self, name, size):
        path = self.folder / name
        path.write_bytes(os.urandom(size))
        return path

    def test_nbdinfo_tells_size_and_abilities(self):
        self.assertEqual(self.desktop.tool("nbdinfo", "--size", self.uri).strip(), str(64 * MIB))
        told = self.desktop.tool("nbdinfo", self.uri)
        for line in ("is_read_only: false", "can_flush: true", "can_fua: true", "can_multi_conn: true", "can_trim: false",
                     "can_zero: true", "block_size_minimum: 512", "block_size_preferred: 4096"):
            self.assertIn(line, told)

    def test_nbdcopy_brings_back_what_it_took_there(self):
        original = self.random_file("original", 64 * MIB)
        copy = self.folder / "copy"
        self.desktop.tool("nbdcopy", "--flush", str(original), self.uri)
        self.desktop.tool("nbdcopy", self.uri, str(copy))
        self.assertTrue(original.read_bytes() == copy.read_bytes(), "the copy differs")
        self.assertFalse(original.read_bytes()[:4096] in self.mounted.raw.read_bytes())

    def test_qemu_writes_and_reads_patterns(self):
        told = self.desktop.tool(
            "qemu-io", "-f", "raw", "-c", "write -P 0xab 0 1M", "-c", "write -P 0x5a 512 1536", "-c", "write -z 8M 4M",
            "-c", "aio_write -P 0x11 16M 2M", "-c", "aio_flush", "-c", "flush", "-c", "read -P 0x5a 512 1536",
            "-c", "read -P 0xab 2k 1022k", "-c", "read -P 0 8M 4M", "-c", "read -P 0x11 16M 2M", self.uri)
        self.assertNotIn("failed", told)
        # Zeros are enciphered too: no hole tells where nothing is.
        self.assertNotIn(bytes(512), self.mounted.raw.read_bytes()[8 * MIB:12 * MIB])

    @unittest.skipUnless(quilla.has_fuse(), "no /dev/fuse on this machine")
    def test_nbdfuse_shows_the_volume_as_a_file(self):
        image = self.folder / "volume"
        image.touch()
        fuse = subprocess.Popen(["nbdfuse", str(image), self.uri], stdin=subprocess.DEVNULL)
        try:
            quilla.wait_until(lambda: fuse.poll() is not None or image.stat().st_size == 64 * MIB, "nbdfuse")
            if fuse.poll() is not None:
                self.skipTest("nbdfuse cannot mount here")
            self.desktop.tool("mkfs.fat", "-n", "QUILLA", str(image))
            document = self.random_file("document", 3 * MIB + 77)
            self.desktop.tool("mcopy", "-i", str(image), str(document), "::Document.bin")
            self.assertIn("Document", self.desktop.tool("mdir", "-i", str(image)))
            back = self.folder / "back"
            self.desktop.tool("mcopy", "-i", str(image), "::Document.bin", str(back))
            self.assertEqual(back.read_bytes(), document.read_bytes())
        finally:
            subprocess.run(["umount", str(image)], check=False)
            try:
                fuse.wait(10)
            except subprocess.TimeoutExpired:
                fuse.send_signal(signal.SIGTERM)
                fuse.wait(10)

    def test_hostile_peers_cost_only_themselves(self):
        host, port, name = nbd.split_uri(self.uri)
        stop, faults, rounds = threading.Event(), [], []

        def work():
            """An honest client that goes on all the time."""
            try:
                with nbd.Client(self.uri) as client:
                    while not stop.is_set():
                        data = os.urandom(8192)
                        offset = 8192 * (len(rounds) % 1000)
                        client.write(offset, data)
                        if client.read(offset, 8192) != data:
                            faults.append(f"wrong data at {offset}")
                        rounds.append(offset)
            except (quilla.Failure, OSError) as error:
                faults.append(str(error))

        worker = threading.Thread(target=work)
        worker.start()
        try:
            quilla.wait_until(lambda: rounds or faults, "the honest client")
            # Wrong names, one of them the right one but for its last digit, one empty.
            for wrong in ("SEC0", name[:-1] + ("0" if name[-1] != "0" else "1"), "", name.upper(), "x" * 4000):
                with nbd.connect(self.uri) as connection:
                    self.assertIsNone(nbd.request_go(connection, wrong))
            with nbd.connect(self.uri) as connection:
                nbd.send_option(connection, nbd.OPT_EXPORT_NAME, b"guess")
                self.assertEqual(connection.recv(1), b"", "a wrong name by the old way ends the connection")
            # No listing tells the name.
            with nbd.connect(self.uri) as connection:
                nbd.send_option(connection, nbd.OPT_LIST)
                reply, data = nbd.receive_reply(connection)
                self.assertTrue(reply & 0x80000000)
                self.assertNotIn(name.encode(), data)
            # Garbage before, in and after the handshake.
            for start in (lambda: socket.create_connection((host, port), quilla.LIMIT), lambda: nbd.connect(self.uri),
                          lambda: nbd.Client(self.uri).connection):
                with start() as connection:
                    try:
                        connection.sendall(os.urandom(1 << 18))
                        while connection.recv(65536):
                            pass
                    except OSError:
                        pass  # reset: as good an answer as any
            # Half a handshake, left standing, a hundred times; the honest one holds its place.
            idle = []
            try:
                for _ in range(100):
                    idle.append(socket.create_connection((host, port), quilla.LIMIT))
                    idle[-1].sendall(b"\0\0")
                reached = len(rounds)
                quilla.wait_until(lambda: len(rounds) > reached + 50 or faults, "the honest client to go on")
            finally:
                for connection in idle:
                    connection.close()
        finally:
            stop.set()
            worker.join(quilla.LIMIT)
        self.assertEqual(faults, [])
        # Once they have gone there is room again.
        with nbd.Client(self.uri) as client:
            client.read(0, 512)


if __name__ == "__main__":
    unittest.main(verbosity=2)
