"""Other projects' NBD clients on the real program."""

import os
import subprocess
import unittest

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

    @unittest.skipUnless(os.access("/dev/fuse", os.R_OK | os.W_OK), "no /dev/fuse on this machine")
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
            fuse.terminate()
            fuse.wait(10)


if __name__ == "__main__":
    unittest.main(verbosity=2)
