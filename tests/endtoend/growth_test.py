"""Mounts in a row and from two sides at once leave nothing behind: handles, threads, windows, memory.

QUILLA_LONG_RUN makes it five minutes instead of one round.
"""

from concurrent import futures
import os
import time
import unittest

import nbd
import oracle
import quilla

ROUNDS = 200
WARM_UP = 20
SECONDS = 300 if "QUILLA_LONG_RUN" in os.environ else 0


class GrowthTest(quilla.DesktopTest):

    def expect_no_growth(self, before, after):
        for what, then, now, slack in zip(before._fields, before, after, (2, 0, 0, 0, 2048)):
            self.assertLessEqual(now, then + slack, what)

    def test_mounts_leave_nothing_behind(self):
        volume = self.volume(size=4 << 20)
        key = oracle.make_files(volume)
        first = self.desktop.start_serving()
        record = volume.record()
        record.key = key
        counts = []
        begin = time.monotonic()
        for number in range(ROUNDS + WARM_UP):
            if number == WARM_UP:
                counts.append(self.desktop.counts(first))
            mounted, result = self.desktop.request("mount", record)
            self.assertEqual((result, mounted.handle != 0), (0, True), f"round {number}")
            if number % 20 == 0:
                with nbd.Client(self.desktop.uri("SEC0")) as client:
                    data = os.urandom(1 << 20)
                    client.write(0, data)
                    self.assertEqual(client.read(0, 1 << 20), data)
            dismounted, _ = self.desktop.request("dismount", record)
            self.assertEqual(dismounted.handle, 0)
        elapsed = time.monotonic() - begin
        # Threads that have been told to end may take their time about it.
        quilla.wait_until(lambda: self.desktop.counts(first).threads <= counts[0].threads, "threads to end")
        counts.append(self.desktop.counts(first))
        print(f"\n  {ROUNDS} rounds, {1000 * elapsed / (ROUNDS + WARM_UP):.0f} ms each: "
              f"{counts[0]} -> {counts[1]}")
        self.expect_no_growth(*counts)
        self.assertEqual(self.desktop.close(first), 0)

    def mount_in_turns(self, volumes, end):
        """What one of two processes does until the end: mounts its volumes one after the other and dismounts them."""
        rounds = 0
        while rounds == 0 or time.monotonic() < end:
            for act in (("mount", "/password", "97531"), ("dismount",)):
                for volume in volumes:
                    self.assertEqual(self.desktop.run(act[0], volume.path, *act[1:]), 0)
                    self.assertEqual(self.desktop.query(volume).handle != 0, act[0] == "mount", volume.path)
            rounds += 1
        return rounds

    def run_both(self, work, volumes, *arguments):
        with futures.ThreadPoolExecutor() as pool:
            return list(pool.map(lambda half: work(half, *arguments), (volumes[:5], volumes[5:])))

    def test_ten_devices_from_two_processes_at_once(self):
        volumes = [self.volume(f"Ten{i}", cipher=(6, 10)[i % 2]) for i in range(10)]
        for volume in volumes:
            oracle.make_files(volume)
        first = self.desktop.start_serving()

        def mount(half):
            for volume in half:
                self.assertEqual(self.desktop.run("mount", volume.path, "/password", volume.password), 0)

        self.run_both(mount, volumes)
        self.assertEqual(sorted(self.desktop.query(v).device for v in volumes), [f"SEC{i}:" for i in range(10)])
        eleventh = self.volume("Eleventh")
        oracle.make_files(eleventh)
        refused = self.desktop.start("mount", eleventh.path, "/password", eleventh.password)
        self.assertEqual(self.desktop.box(), ("Quilla Error", "RegisterDevice() failed"))
        self.assertEqual(refused.wait(quilla.LIMIT), 0)
        self.assertEqual(self.desktop.query(eleventh).handle, 0)
        for volume in volumes:
            device = self.desktop.query(volume).device.rstrip(":")
            with nbd.Client(self.desktop.uri(device)) as client:
                client.write(0, bytes(512))
            self.desktop.dismount(volume)

        counts = [self.desktop.counts(first)]
        begin = time.monotonic()
        rounds = self.run_both(self.mount_in_turns, volumes, begin + SECONDS)
        elapsed = time.monotonic() - begin
        quilla.wait_until(lambda: self.desktop.counts(first).threads <= counts[0].threads, "threads to end")
        counts.append(self.desktop.counts(first))
        print(f"\n  {5 * sum(rounds)} mounts and dismounts in {elapsed:.0f} s: {counts[0]} -> {counts[1]}")
        self.expect_no_growth(*counts)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
