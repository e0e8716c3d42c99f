"""Other projects' NBD clients on the real program."""

import unittest

import oracle
import quilla

MIB = 1 << 20


class ClientsTest(quilla.DesktopTest):

    def test_nbdinfo_tells_the_abilities_and_qemu_uses_them(self):
        volume = self.volume(size=64 * MIB)
        oracle.make_files(volume)
        self.desktop.start("mount", volume.path, "/password", volume.password)
        uri = self.desktop.uri()
        told = self.desktop.tool("nbdinfo", uri)
        for line in (f"export-size: {64 * MIB} ", "is_read_only: false", "can_flush: true", "can_fua: true",
                     "can_multi_conn: true", "can_trim: false", "can_zero: true", "block_size_minimum: 512"):
            self.assertIn(line, told)
        told = self.desktop.tool(
            "qemu-io", "-f", "raw", "-c", "write -P 0xab 0 1M", "-c", "write -P 0x5a 512 1536", "-c", "write -z 8M 4M",
            "-c", "aio_write -P 0x11 16M 2M", "-c", "aio_flush", "-c", "flush", "-c", "read -P 0x5a 512 1536",
            "-c", "read -P 0xab 2k 1022k", "-c", "read -P 0 8M 4M", "-c", "read -P 0x11 16M 2M", uri)
        self.assertNotIn("failed", told)
        # Zeros are enciphered too: no hole tells where nothing is.
        self.assertNotIn(bytes(512), volume.raw.read_bytes()[8 * MIB:12 * MIB])


if __name__ == "__main__":
    unittest.main(verbosity=2)
