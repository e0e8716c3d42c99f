"""Key files and the bytes in the data file against another library, in both directions, in volumes of 4 TiB."""

import os
import pathlib
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import nbd  # noqa: E402
import oracle  # noqa: E402
import quilla  # noqa: E402

GIB = 1 << 30
# Sparse; behind the last whole sector are bytes that belong to none.
SECTORS = 4096 * GIB // oracle.SECTOR
SIZE = SECTORS * oracle.SECTOR + 345
PLACES = (0, 1, 4 * GIB // oracle.SECTOR - 1, 4 * GIB // oracle.SECTOR, SECTORS // 3, SECTORS // 2, SECTORS - 1)
RUN = 257
CIPHERS = (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH)
PASSWORDS = ("97531", "пароль ключ 鍵", "x" * 259, "")


class VolumeDataTest(quilla.DesktopTest):

    def setUp(self):
        super().setUp()
        self.first = self.desktop.start_serving()

    def test_key_files_open_here_and_there(self):
        seen = set()
        for cipher in CIPHERS:
            for number, password in enumerate(PASSWORDS):
                volume = self.volume(f"V{cipher}-{number}", cipher=cipher, password=password, timeout=number * quilla.MINUTE)
                self.desktop.create(volume)
                master, iv, timeout = oracle.parse_key_file(volume.key.read_bytes(), cipher, password)
                self.assertEqual(timeout, volume.timeout)
                seen.update((master, iv))
                with self.assertRaises(quilla.Failure):
                    oracle.parse_key_file(volume.key.read_bytes(), cipher, password + "!")
                theirs = oracle.build_key_file(cipher, password, os.urandom(128), os.urandom(20), 7 * quilla.MINUTE)
                volume.key.write_bytes(theirs)
                self.desktop.mount(volume)
                record = self.desktop.query(volume)
                self.assertEqual((record.cipher, record.size, record.timeout, record.key_path, record.device),
                                 (cipher, volume.size, 7 * quilla.MINUTE, volume.key_path, "SEC0:"))
                self.assertEqual(record.key, bytes(32), "the data key is still in the list")
                self.desktop.dismount(volume)
                self.assertEqual(volume.key.read_bytes(), theirs)
        self.assertEqual(len(seen), 2 * len(CIPHERS) * len(PASSWORDS), "keys or vectors repeat")

    def check_sectors(self, client, raw, cipher):
        """Both ways, at places where a position of 32 bits in bytes or sectors would end."""
        def seek(number):
            raw.seek(number * oracle.SECTOR)
            return raw

        for number in PLACES:
            plain = os.urandom(oracle.SECTOR)
            client.write(number * oracle.SECTOR, plain)
            self.assertEqual(seek(number).read(oracle.SECTOR), cipher.crypt("encrypt", number, plain), number)
            plain = os.urandom(oracle.SECTOR)
            seek(number).write(cipher.crypt("encrypt", number, plain))
            self.assertEqual(client.read(number * oracle.SECTOR, oracle.SECTOR), plain, number)
        # A run of sectors is its sectors; one that was never written deciphers the file's zeros.
        run = [os.urandom(oracle.SECTOR) for _ in range(RUN)]
        client.write(1000 * oracle.SECTOR, b"".join(run))
        client.flush()
        for number, plain in enumerate(run, 1000):
            self.assertEqual(seek(number).read(oracle.SECTOR), cipher.crypt("encrypt", number, plain), number)
        self.assertEqual(client.read(2000 * oracle.SECTOR, oracle.SECTOR),
                         cipher.crypt("decrypt", 2000, bytes(oracle.SECTOR)))

    def test_sectors_are_what_another_library_makes_of_them(self):
        for cipher in CIPHERS:
            volume = self.volume(f"V{cipher}", size=SIZE, cipher=cipher)
            try:
                key = oracle.make_files(volume)
            except OSError as error:
                self.skipTest(f"this file system has no files of 4 TiB: {error}")
            before = self.desktop.memory(self.first)
            with nbd.Client(self.desktop.mount(volume)) as client, open(volume.raw, "r+b", buffering=0) as raw:
                self.assertEqual(client.size, SECTORS * oracle.SECTOR)
                self.check_sectors(client, raw, oracle.SectorCipher(cipher, key))
            self.assertLess(self.desktop.memory(self.first) - before, 16 * 1024)
            self.desktop.dismount(volume)
            self.assertEqual(volume.raw.stat().st_size, SIZE)
            self.assertLess(volume.raw.stat().st_blocks * oracle.SECTOR, 1 << 20, "the file is not sparse any more")

    def test_volume_without_cipher_holds_plain_data(self):
        """The command line checks a key block all the same; one under no cipher is its own plain text."""
        volume = self.volume(cipher=quilla.CIPHER_NONE)
        oracle.make_files(volume)
        volume.key.write_bytes(oracle.build_key_file(volume.cipher, "", os.urandom(128), bytes(20), volume.timeout))
        with nbd.Client(self.desktop.mount(volume)) as client:
            client.write(4096, b"plain" * 1024)
            self.assertEqual(volume.raw.read_bytes()[4096:4096 + 5120], b"plain" * 1024)


if __name__ == "__main__":
    unittest.main(verbosity=2)
