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


class Crash(command.CommandTest):

    def test_killed_in_the_middle_of_writing(self):
        chance = random.Random(97531)
        self.create("--format", "ext4")
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
            self.assert_kept(acknowledged)
            print(f"killed after {len(acknowledged)} synced records: all there", file=sys.stderr, flush=True)
            self.dismount()


if __name__ == "__main__":
    command.skip_unless(root=True, tools=("mkfs.ext4", "e2fsck"))
    command.main()
