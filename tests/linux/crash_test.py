#!/usr/bin/env python3
"""Kills the service in the middle of fsync'ed writes and looks what is left: no acknowledged write may be lost, and the
file system must be clean after its journal was replayed. QUILLA_KILLS says how often; twice when it says nothing."""

import os
import random
import signal
import subprocess
import sys
import threading
import time

import command
from command import DONE

RECORD = 4096


class Crash(command.CommandTest):

    def write_until_it_fails(self, acknowledged):
        """Appends numbered records and syncs each; what has been synced is noted."""
        number = 0
        try:
            with open(self.place / "journal", "wb", buffering=0) as file:
                while True:
                    file.write(number.to_bytes(8, "little") * (RECORD // 8))
                    os.fsync(file.fileno())
                    acknowledged.append(number)
                    number += 1
        except OSError:
            pass

    def test_killed_in_the_middle_of_writing(self):
        chance = random.Random(97531)
        self.create("--format", "ext4")
        checked = self.folder / "checked"
        for _ in range(int(os.environ.get("QUILLA_KILLS", "2"))):
            self.mount()
            acknowledged = []
            writer = threading.Thread(target=self.write_until_it_fails, args=(acknowledged,))
            writer.start()
            time.sleep(0.2 + chance.random() * 0.5)
            os.kill(self.state()["process"], signal.SIGKILL)
            writer.join(20)
            self.assertFalse(writer.is_alive(), "a write hangs after the service's death")
            self.assertTrue(acknowledged)
            subprocess.run(["umount", "-l", self.place], check=True)
            self.mount(checked, "--raw")
            plain = checked / "Private"
            # The first run replays the journal, the second must find nothing.
            replay = self.run_as("e2fsck", "-p", plain)
            self.assertLess(replay.returncode, 4, replay.stdout)
            clean = self.run_as("e2fsck", "-fn", plain)
            self.assertEqual(clean.returncode, 0, clean.stdout)
            self.quilla("dismount", checked, code=DONE)
            self.mount()
            data = (self.place / "journal").read_bytes()
            for number in acknowledged:
                self.assertEqual(data[number * RECORD:(number + 1) * RECORD], number.to_bytes(8, "little") * (RECORD // 8))
            print(f"killed after {len(acknowledged)} synced records: all there", file=sys.stderr, flush=True)
            self.dismount()


if __name__ == "__main__":
    command.skip_unless(root=True, tools=("mkfs.ext4", "e2fsck"))
    command.main()
