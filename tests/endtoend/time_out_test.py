"""A volume dismounts itself when nobody uses it, and does not while somebody does."""

import time
import unittest

import load
import oracle
import quilla


class TimeOutTest(quilla.DesktopTest):

    def test_use_keeps_a_volume_mounted_and_idleness_ends_it(self):
        # Due after six idle seconds; the instance's own timer looks every fifteen.
        volume = self.volume(size=load.SIZE, timeout=21 * quilla.SECOND)
        oracle.make_files(volume)
        first = self.desktop.start("mount", volume.path, "/password", volume.password)
        clients = load.Load()
        clients.fill(self.desktop.uri())
        clients.start(self.desktop.uri())
        time.sleep(18)
        self.assertEqual(self.desktop.run("AppRunAtTime"), 0)
        self.assertTrue(self.desktop.uri_file("SEC0").exists(), "dismounted in the middle of use")
        clients.stop()  # idle connections keep nothing mounted
        self.desktop.wait_gone("SEC0", limit=40)
        clients.end()
        self.assertEqual(self.desktop.query(volume).handle, 0)
        self.desktop.mount(volume)
        clients.check(self, self.desktop.uri(), "after the time-out")
        print(f"\n  timed out after {clients.writes} acknowledged writes")

        time.sleep(7)  # due again, but the timer's next look is still to come
        self.assertEqual(self.desktop.run("AppRunAtTime"), 0)
        self.assertFalse(self.desktop.uri_file("SEC0").exists(), "the wake-up word has swept nothing")
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
