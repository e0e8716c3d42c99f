"""The bytes in the data file, sector by sector against libgcrypt and nettle."""

import os
import time
import unittest

import nbd
import oracle
import quilla

GIB = 1 << 30


class VolumeDataTest(quilla.DesktopTest):

    def mount(self, cipher, size):
        volume = self.volume(f"V{cipher}", size=size, cipher=cipher)
        key = oracle.make_files(volume)
        return volume, oracle.SectorCipher(cipher, key), self.desktop.mount(volume)

    def raw_sector(self, volume, number):
        with open(volume.raw, "rb") as raw:
            raw.seek(number * oracle.SECTOR)
            return raw.read(oracle.SECTOR)

    def test_sectors_are_what_another_library_makes_of_them(self):
        first = self.desktop.start_serving()
        for cipher in (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH):
            # Sparse, beyond 4 GiB and beyond 2^32 bytes of one file position word; the tail is no sector.
            size = 6 * GIB + 12345
            volume, sectors, uri = self.mount(cipher, size)
            count = size // oracle.SECTOR
            with nbd.Client(uri) as client:
                self.assertEqual(client.size, count * oracle.SECTOR)
                for number in (0, 1, count // 2, 4 * GIB // oracle.SECTOR - 1, 4 * GIB // oracle.SECTOR,
                               5 * GIB // oracle.SECTOR + 7, count - 1):
                    with self.subTest(cipher=cipher, sector=number):
                        plain = os.urandom(oracle.SECTOR)
                        client.write(number * oracle.SECTOR, plain)
                        self.assertEqual(self.raw_sector(volume, number), sectors.encrypt(number, plain))
                        # The other way round: what the library puts into the file reads as plain text here.
                        plain = os.urandom(oracle.SECTOR)
                        with open(volume.raw, "r+b", buffering=0) as raw:
                            raw.seek(number * oracle.SECTOR)
                            raw.write(sectors.encrypt(number, plain))
                        self.assertEqual(client.read(number * oracle.SECTOR, oracle.SECTOR), plain)
                # A run of sectors is its sectors; one that was never written deciphers the file's zeros.
                run = os.urandom(257 * oracle.SECTOR)
                client.write(1000 * oracle.SECTOR, run)
                client.flush()
                for i in range(257):
                    self.assertEqual(self.raw_sector(volume, 1000 + i),
                                     sectors.encrypt(1000 + i, run[i * oracle.SECTOR:(i + 1) * oracle.SECTOR]), i)
                self.assertEqual(client.read(2000 * oracle.SECTOR, oracle.SECTOR),
                                 sectors.decrypt(2000, bytes(oracle.SECTOR)))
                # Part of a sector changes that part only.
                client.write(1000 * oracle.SECTOR + 500, b"across the border")
                expected = run[:500] + b"across the border" + run[517:1024]
                self.assertEqual(client.read(1000 * oracle.SECTOR, 1024), expected)
            self.desktop.dismount(volume)
            self.assertEqual(volume.raw.stat().st_size, size)
            volume.raw.unlink()
        self.assertEqual(self.desktop.close(first), 0)

    def check_plain(self, volume):
        with nbd.Client(self.desktop.uri("SEC0")) as client:
            client.write(4096, b"plain" * 1024)
            self.assertEqual(volume.raw.read_bytes()[4096:4096 + 5120], b"plain" * 1024)
        self.desktop.dismount(volume)

    def test_volume_without_cipher_holds_plain_data(self):
        first = self.desktop.start_serving()
        volume = self.volume("Bare", cipher=quilla.CIPHER_NONE)
        oracle.make_files(volume)
        record, result = self.desktop.request("mount", quilla.Record(path=volume.path))
        self.assertEqual((result, record.handle != 0), (0, True))
        self.check_plain(volume)
        # The command line checks a key block all the same; one under no cipher is its own plain text.
        volume = self.volume("Keyed", cipher=quilla.CIPHER_NONE)
        oracle.make_files(volume)
        volume.key.write_bytes(oracle.build_key_file(volume.cipher, "", os.urandom(128), bytes(20), volume.timeout))
        self.desktop.mount(volume)
        self.check_plain(volume)
        self.assertEqual(self.desktop.close(first), 0)

    def test_large_sparse_volume_mounts_at_once_with_flat_memory(self):
        size = 4096 * GIB
        first = self.desktop.start_serving()
        small = self.volume("Small")
        large = self.volume("Large", size=size)
        oracle.make_files(small)
        try:
            key = oracle.make_files(large)
        except OSError as error:
            self.skipTest(f"this file system has no files of 4 TiB: {error}")
        self.desktop.mount(small, "SEC0")
        before = self.desktop.counts(first).KiB
        start = time.monotonic()
        uri = self.desktop.mount(large, "SEC1")
        elapsed = time.monotonic() - start
        places = [0, size // 2 - oracle.SECTOR, size // 2, size - oracle.SECTOR, *range(GIB, size, 123 * GIB)]
        sectors = {place: os.urandom(oracle.SECTOR) for place in places}
        with nbd.Client(uri) as client:
            self.assertEqual(client.size, size)
            for place, sector in sectors.items():
                client.write(place, sector)
            for place, sector in sectors.items():
                self.assertEqual(client.read(place, oracle.SECTOR), sector, place)
        after = self.desktop.counts(first).KiB
        print(f"\n  4 TiB: mounted in {elapsed:.2f} s, memory {before} -> {after} KiB")
        self.assertLess(after - before, 16 * 1024)
        self.assertLess(large.raw.stat().st_blocks * oracle.SECTOR, 1 << 20, "the file is not sparse any more")
        self.desktop.dismount(large)
        self.desktop.dismount(small)
        cipher = oracle.SectorCipher(large.cipher, key)
        with open(large.raw, "rb") as raw:
            for place, sector in sectors.items():
                raw.seek(place)
                self.assertEqual(cipher.decrypt(place // oracle.SECTOR, raw.read(oracle.SECTOR)), sector, place)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
