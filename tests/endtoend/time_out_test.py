"""Volumes that dismount themselves when nobody uses them, and do not while somebody does."""

import time
import unittest

import load
import oracle
import quilla


class TimeOutTest(quilla.DesktopTest):

    def test_sweep_dismounts_what_is_due_with_its_slack(self):
        # The sweep looks 15 seconds ahead: 14 seconds are due at once, an hour is not, none is never due.
        due = self.volume("Due", timeout=14 * quilla.SECOND)
        later = self.volume("Later", timeout=60 * quilla.MINUTE)
        never = self.volume("Never", timeout=0)
        first = self.desktop.start_serving()
        for i, volume in enumerate((due, later, never)):
            oracle.make_files(volume)
            self.desktop.mount(volume, f"SEC{i}")
        self.assertEqual(self.desktop.run("AppRunAtTime"), 0)
        self.assertEqual(self.desktop.query(due).handle, 0)
        self.assertNotEqual(self.desktop.query(later).handle, 0)
        self.assertNotEqual(self.desktop.query(never).handle, 0)
        self.desktop.dismount(later)
        self.desktop.dismount(never)
        self.assertEqual(self.desktop.close(first), 0)

    def test_use_keeps_a_volume_mounted_and_idleness_ends_it(self):
        # Due after six idle seconds; the instance's own timer looks every fifteen.
        volume = self.volume(size=load.SIZE, timeout=21 * quilla.SECOND)
        oracle.make_files(volume)
        first = self.desktop.start("mount", volume.path, "/password", volume.password)
        clients = load.Load()
        clients.fill(self.desktop.uri())
        clients.start(self.desktop.uri())
        time.sleep(18)
        self.assertTrue(self.desktop.uri_file("SEC0").exists(), "dismounted in the middle of use")
        clients.stop()  # idle connections keep nothing mounted
        self.desktop.wait_gone("SEC0", limit=40)
        clients.end()
        self.assertEqual(self.desktop.query(volume).handle, 0)
        self.desktop.mount(volume)
        clients.check(self, self.desktop.uri(), "after the time-out")
        print(f"\n  timed out after {clients.writes} acknowledged writes")
        self.desktop.dismount(volume)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
