"""Other projects' NBD and iSCSI clients on the real program."""

import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

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

    def test_both_exports_of_a_volume_see_each_others_writes(self):
        volume = self.volume(size=16 * MIB)
        oracle.make_files(volume)
        self.desktop.start("mount", volume.path, "/password", volume.password)
        uri = self.desktop.uri()
        file = self.desktop.local_data() / "SEC0.iscsi"
        quilla.wait_until(file.exists, "the file with the secret")
        self.assertEqual(file.stat().st_mode & 0o007, 0)
        keys = dict(line.split("=", 1) for line in file.read_text().split())
        disk = f"iscsi://{keys['user']}%{keys['secret']}@{keys['address']}:{keys['port']}/{keys['target']}/0"
        run = ("qemu-io", "-f", "raw")
        self.assertNotIn("failed", self.desktop.tool(*run, "-c", "write -P 0xab 512 1M", "-c", "flush", uri))
        told = self.desktop.tool(*run, "-c", "read -P 0xab 512 1M", "-c", "write -P 0x5a 8M 1536", "-c", "flush", disk)
        self.assertNotIn("failed", told)
        self.assertNotIn("failed", self.desktop.tool(*run, "-c", "read -P 0x5a 8M 1536", uri))
        stranger = disk.replace(keys["secret"], "0123456789abcdef")
        self.assertIn("auth", self.desktop.tool("iscsi-inq", stranger, check=False).lower())
        self.desktop.run("dismount", volume.path)
        quilla.wait_until(lambda: not file.exists(), "the file with the secret to go")


if __name__ == "__main__":
    unittest.main(verbosity=2)
