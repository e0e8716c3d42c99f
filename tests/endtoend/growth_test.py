"""Two hundred mounts in a row leave nothing behind: handles, threads, memory."""

import os
import time
import unittest

import nbd
import oracle
import quilla

ROUNDS = 200
WARM_UP = 20


class GrowthTest(quilla.DesktopTest):

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
        quilla.wait_until(lambda: self.desktop.counts(first)[1] <= counts[0][1], "threads to end")
        counts.append(self.desktop.counts(first))
        print(f"\n  {ROUNDS} rounds, {1000 * elapsed / (ROUNDS + WARM_UP):.0f} ms each: "
              f"(handles, threads, KiB) {counts[0]} -> {counts[1]}")
        self.assertLessEqual(counts[1][0], counts[0][0] + 2)
        self.assertLessEqual(counts[1][2], counts[0][2] + 2048)
        self.assertEqual(self.desktop.close(first), 0)

    def test_starts_of_the_program_leave_nothing_behind(self):
        volume = self.volume()
        oracle.make_files(volume)
        first = self.desktop.start_serving()
        self.desktop.mount(volume)
        self.desktop.dismount(volume)
        before = self.desktop.counts(first)
        begin = time.monotonic()
        rounds = 10
        for _ in range(rounds):
            self.desktop.mount(volume)
            self.desktop.dismount(volume)
        elapsed = time.monotonic() - begin
        after = self.desktop.counts(first)
        print(f"\n  {rounds} mounts and dismounts by second instances, {1000 * elapsed / rounds:.0f} ms a pair: {before} -> {after}")
        self.assertLessEqual(after[0], before[0] + 2)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
