"""Mounts from two sides at once leave nothing behind: handles, threads, windows, memory.

QUILLA_LONG_RUN makes it five minutes instead of one round.
"""

from concurrent import futures
import os
import time
import unittest

import oracle
import quilla

SECONDS = 300 if "QUILLA_LONG_RUN" in os.environ else 0
SLACK = quilla.Counts(handles=2, threads=0, windows=0, drawing_objects=0, KiB=2048)


class GrowthTest(quilla.DesktopTest):

    def mount_all(self, volumes):
        for volume in volumes:
            self.assertEqual(self.desktop.run("mount", volume.path, "/password", volume.password), 0)
            self.assertNotEqual(self.desktop.query(volume).handle, 0, volume.path)

    def dismount_all(self, volumes):
        for volume in volumes:
            self.desktop.dismount(volume)
            self.assertEqual(self.desktop.query(volume).handle, 0, volume.path)

    def mount_in_turns(self, volumes, end):
        """What one of two sides does until the end; returns how often."""
        rounds = 0
        while rounds == 0 or time.monotonic() < end:
            self.mount_all(volumes)
            self.dismount_all(volumes)
            rounds += 1
        return rounds

    def run_both(self, work, volumes, *arguments):
        with futures.ThreadPoolExecutor() as pool:
            return list(pool.map(lambda half: work(half, *arguments), (volumes[:5], volumes[5:])))

    def test_ten_devices_from_two_processes_at_once(self):
        volumes = [self.volume(f"Ten{i}", cipher=(6, 10)[i % 2]) for i in range(10)]
        eleventh = self.volume("Eleventh")
        for volume in (*volumes, eleventh):
            oracle.make_files(volume)
        first = self.desktop.start_serving()
        self.run_both(self.mount_all, volumes)
        self.assertEqual(sorted(self.desktop.query(v).device for v in volumes), [f"SEC{i}:" for i in range(10)])
        self.assertEqual(len({self.desktop.uri(f"SEC{i}") for i in range(10)}), 10)
        refused = self.desktop.start("mount", eleventh.path, "/password", eleventh.password)
        self.assertEqual(self.desktop.box(), ("Quilla Error", "RegisterDevice() failed"))
        self.assertEqual(refused.wait(quilla.LIMIT), 0)
        self.assertEqual(self.desktop.query(eleventh).handle, 0)
        self.dismount_all(volumes)

        before = self.desktop.counts(first)
        begin = time.monotonic()
        rounds = self.run_both(self.mount_in_turns, volumes, begin + SECONDS)
        elapsed = time.monotonic() - begin
        # Threads that have been told to end may take their time about it.
        quilla.wait_until(lambda: self.desktop.counts(first).threads <= before.threads, "threads to end")
        after = self.desktop.counts(first)
        print(f"\n  {5 * sum(rounds)} mounts and dismounts in {elapsed:.0f} s: {before} -> {after}")
        for what, then, now, slack in zip(before._fields, before, after, SLACK):
            self.assertLessEqual(now, then + slack, what)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
