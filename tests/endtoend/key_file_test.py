"""Key files in both directions: made here and opened by nettle, made with nettle and opened here."""

import unittest

import oracle
import quilla

CIPHERS = (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH)
PASSWORDS = ("97531", "", "пароль ключ 鍵", "x" * 259)


class KeyFileTest(quilla.DesktopTest):

    def test_files_of_the_program_open_with_another_library(self):
        first = self.desktop.start_serving()
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
        self.assertEqual(len(seen), 2 * len(CIPHERS) * len(PASSWORDS), "keys or vectors repeat")
        self.assertEqual(self.desktop.close(first), 0)

    def test_files_of_another_library_open_in_the_program(self):
        first = self.desktop.start_serving()
        for cipher in CIPHERS:
            for number, password in enumerate(PASSWORDS):
                if not password:
                    continue  # an empty word cannot be told from none on this side of the process start
                volume = self.volume(f"V{cipher}-{number}", cipher=cipher, password=password, timeout=7 * quilla.MINUTE)
                oracle.make_files(volume)
                before = volume.key.read_bytes()
                self.desktop.mount(volume)
                record = self.desktop.query(volume)
                self.assertEqual((record.cipher, record.size, record.timeout, record.key_path, record.device),
                                 (cipher, volume.size, volume.timeout, volume.key_path, "SEC0:"))
                self.assertEqual(record.key, bytes(32), "the data key is still in the list")
                self.desktop.dismount(volume)
                self.assertEqual(volume.key.read_bytes(), before)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
