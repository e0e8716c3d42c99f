"""The program is killed while eight clients write. Whatever was acknowledged is there afterwards, no sector outside the
requested ranges has changed, and the key file is what it was.

QUILLA_LONG_RUN makes it fifty kills instead of a few.
"""

import os
import random
import time
import unittest

import load
import oracle
import quilla

KILLS = 50 if "QUILLA_LONG_RUN" in os.environ else 4


class KillTest(quilla.DesktopTest):

    def kill_and_check(self, cipher, kills):
        chance = random.Random(cipher)
        volume = self.volume(size=load.SIZE, cipher=cipher)
        oracle.make_files(volume)
        key_file = volume.key.read_bytes()
        program = self.desktop.start("mount", volume.path, "/password", volume.password)
        clients = load.Load()
        clients.fill(self.desktop.uri())
        for number in range(kills):
            clients.start(self.desktop.uri())
            time.sleep(chance.uniform(0.0, 0.5))
            program.kill()
            program.wait(quilla.LIMIT)
            clients.end()  # Wine's server at times keeps the connections of a killed process open
            self.assertEqual(volume.key.read_bytes(), key_file)
            self.assertEqual(volume.raw.stat().st_size, volume.size)
            self.desktop.uri_file("SEC0").unlink(missing_ok=True)  # what a killed program cannot remove
            quilla.wait_until(lambda: not self.desktop.window(), "the killed window to go")
            program = self.desktop.start("mount", volume.path, "/password", volume.password)
            clients.check(self, self.desktop.uri(), f"after kill {number}")
        print(f"\n  {quilla.CIPHER_NAMES[cipher]}: killed {kills} times during {clients.writes} acknowledged writes")
        self.desktop.dismount(volume)
        self.assertEqual(self.desktop.close(program), 0)

    def test_twofish(self):
        self.kill_and_check(quilla.CIPHER_TWOFISH, KILLS // 2)

    def test_cast128(self):
        self.kill_and_check(quilla.CIPHER_CAST128, KILLS // 2)


if __name__ == "__main__":
    unittest.main(verbosity=2)
