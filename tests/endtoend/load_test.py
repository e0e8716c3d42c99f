"""Kills, dismounts, time-outs, closing and the end of the session while eight clients write. Whatever was acknowledged is
there afterwards, and no sector outside the requested ranges has changed.

QUILLA_LONG_RUN makes it fifty kills and 25 rounds of the others instead of a few.
"""

import os
import pathlib
import random
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import load  # noqa: E402
import oracle  # noqa: E402
import quilla  # noqa: E402

ROUNDS = 25 if "QUILLA_LONG_RUN" in os.environ else 1


class LoadTest(quilla.DesktopTest):

    def mount(self, **settings):
        """Starts an instance with a volume that is full of what the clients know."""
        self.mounted = self.volume(size=load.SIZE, **settings)
        oracle.make_files(self.mounted)
        self.start()
        self.clients = load.Load()
        self.clients.fill(self.desktop.uri())

    def start(self):
        self.program = self.desktop.start("mount", self.mounted.path, "/password", self.mounted.password)

    def let_loose(self):
        self.clients.start(self.desktop.uri(), self.desktop.target())
        time.sleep(random.uniform(0.0, 0.5))

    def check(self, when):
        self.clients.check(self, self.desktop.uri(), when)

    def report(self, what):
        print(f"\n  {what} during {self.clients.writes} acknowledged writes")

    def kill(self, cipher):
        self.mount(cipher=cipher)
        key_file = self.mounted.key.read_bytes()
        kills = max(2, ROUNDS)
        for number in range(kills):
            self.let_loose()
            self.program.kill()
            self.program.wait(quilla.LIMIT)
            self.clients.end()  # Wine's server at times keeps the connections of a killed process open
            self.assertEqual(self.mounted.key.read_bytes(), key_file)
            self.assertEqual(self.mounted.raw.stat().st_size, self.mounted.size)
            quilla.wait_until(lambda: not self.desktop.window(), "the killed window to go")
            self.assertTrue(self.desktop.uri_file("SEC0").exists(), "nobody is left to remove the file")
            self.program = self.desktop.start_serving()
            self.assertFalse(self.desktop.uri_file("SEC0").exists(), "the next instance clears up")
            self.desktop.mount(self.mounted)
            self.check(f"after kill {number}")
        self.report(f"{quilla.CIPHER_NAMES[cipher]}: killed {kills} times")

    def test_kill_with_twofish(self):
        self.kill(quilla.CIPHER_TWOFISH)

    def test_kill_with_cast128(self):
        self.kill(quilla.CIPHER_CAST128)

    def test_dismount_by_command(self):
        self.mount()
        for number in range(ROUNDS):
            self.let_loose()
            self.desktop.dismount(self.mounted)
            self.clients.join()  # the server has ended their connections
            self.clients.end()
            self.desktop.mount(self.mounted)
            self.check(f"after dismount {number}")
        self.report(f"dismounted {ROUNDS} times")

    def test_closing_leaves_the_clients_alone(self):
        self.mount()
        self.let_loose()
        self.desktop.send(quilla.WM_CLOSE)
        before = self.clients.writes
        quilla.wait_until(lambda: self.clients.writes > before + 1000, "writes after the window was closed")
        self.clients.stop()
        self.clients.end()
        self.assertIsNone(self.program.poll())
        self.check("after closing")

    def test_end_of_the_session(self):
        self.mount()
        for number in range(ROUNDS):
            self.let_loose()
            self.desktop.tool("wineboot", "--end-session")
            self.program.wait(quilla.LIMIT)
            self.clients.end()
            self.assertFalse(self.desktop.uri_file("SEC0").exists(), "still mounted at the end of the session")
            self.start()
            self.check(f"after session {number}")
        self.report(f"ended the session {ROUNDS} times")

    def test_use_keeps_a_volume_mounted_and_idleness_ends_it(self):
        # Due after six idle seconds; the instance's own timer looks every fifteen.
        self.mount(timeout=21 * quilla.SECOND)
        self.clients.start(self.desktop.uri(), self.desktop.target())
        time.sleep(18)
        self.assertEqual(self.desktop.run("AppRunAtTime"), 0)
        self.assertTrue(self.desktop.uri_file("SEC0").exists(), "dismounted in the middle of use")
        self.clients.stop()  # idle connections keep nothing mounted
        self.desktop.wait_gone("SEC0", limit=40)
        self.clients.end()
        self.assertEqual(self.program.wait(quilla.LIMIT), 0, "never shown, it ends with what it has mounted")
        self.desktop.mount(self.mounted)
        self.check("after the time-out")
        self.report("timed out once")

        time.sleep(7)  # due again, but the timer's next look is still to come
        self.assertEqual(self.desktop.run("AppRunAtTime"), 0)
        self.assertFalse(self.desktop.uri_file("SEC0").exists(), "the wake-up word has swept nothing")
        quilla.wait_until(lambda: not self.desktop.window(), "the instance to end with its volume")


if __name__ == "__main__":
    unittest.main(verbosity=2)
