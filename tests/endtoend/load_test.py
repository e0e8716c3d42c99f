"""Dismounts, closing and the end of the session while eight clients write: what was acknowledged is there afterwards.

QUILLA_LONG_RUN makes it many rounds instead of one.
"""

import os
import random
import time
import unittest

import load
import oracle
import quilla

ROUNDS = 25 if "QUILLA_LONG_RUN" in os.environ else 1


class LoadTest(quilla.DesktopTest):

    def setUp(self):
        super().setUp()
        self.mounted = self.volume(size=load.SIZE)
        oracle.make_files(self.mounted)
        self.program = self.desktop.start("mount", self.mounted.path, "/password", self.mounted.password)
        self.clients = load.Load()
        self.clients.fill(self.desktop.uri())

    def let_loose(self):
        self.clients.start(self.desktop.uri())
        time.sleep(random.uniform(0.0, 0.5))

    def check(self, when):
        self.clients.check(self, self.desktop.uri(), when)

    def report(self, what):
        print(f"\n  {ROUNDS} times {what} during {self.clients.writes} acknowledged writes")

    def test_dismount_by_command(self):
        for number in range(ROUNDS):
            self.let_loose()
            self.desktop.dismount(self.mounted)
            self.clients.join()  # the server has ended their connections
            self.clients.end()
            self.desktop.mount(self.mounted)
            self.check(f"after dismount {number}")
        self.report("dismounted")
        self.desktop.dismount(self.mounted)
        self.assertEqual(self.desktop.close(self.program), 0)

    def test_closing_leaves_the_clients_alone(self):
        self.let_loose()
        self.desktop.send(quilla.WM_CLOSE)
        before = self.clients.writes
        quilla.wait_until(lambda: self.clients.writes > before + 1000, "writes after the window was closed")
        self.clients.stop()
        self.clients.end()
        self.assertIsNone(self.program.poll())
        self.check("after closing")

    def test_end_of_the_session(self):
        for number in range(ROUNDS):
            self.let_loose()
            self.desktop.tool("wineboot", "--end-session")
            self.program.wait(quilla.LIMIT)
            self.clients.end()
            self.assertFalse(self.desktop.uri_file("SEC0").exists(), "still mounted at the end of the session")
            self.program = self.desktop.start("mount", self.mounted.path, "/password", self.mounted.password)
            self.check(f"after session {number}")
        self.report("ended the session")


if __name__ == "__main__":
    unittest.main(verbosity=2)
