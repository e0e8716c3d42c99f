#!/usr/bin/env python3
"""What holds by the device must hold by the kernel's rings (Linux 6.14), too: the cases of root and crash again, with
fuse.enable_uring set, and requests of all sizes at once."""

import mmap
import os
import pathlib
import random
import sys
import threading

import command
from command import DONE, MIB, PASSWORD
from crash_test import Crash  # noqa: F401  run here again
from root_test import Root  # noqa: F401

PARAMETER = pathlib.Path("/sys/module/fuse/parameters/enable_uring")
REGION = 4 * MIB
PAGE = 4096


class Rings(command.CommandTest):

    def work_on(self, region, faults):
        """Direct requests of 4 to 512 KiB in a region that nobody else writes, some of them synced."""
        chance = random.Random(region)
        expected = bytearray(REGION)
        buffer = mmap.mmap(-1, REGION)
        file = os.open(self.place / "data", os.O_RDWR | os.O_DIRECT)
        try:
            for count in range(300):
                size = PAGE << chance.randrange(8)
                at = chance.randrange(0, REGION - size + 1, PAGE)
                if chance.random() < 0.5:
                    expected[at:at + size] = buffer[:size] = chance.randbytes(size)
                    os.pwritev(file, [memoryview(buffer)[:size]], region * REGION + at)
                else:
                    os.preadv(file, [memoryview(buffer)[:size]], region * REGION + at)
                    if buffer[:size] != expected[at:at + size]:
                        faults.append((region, count, at, size))
                if count % 16 == 0:
                    os.fdatasync(file)
        finally:
            os.close(file)

    def test_requests_of_all_sizes_at_once(self):
        self.create("--format", "ext4")
        self.mount()
        open_files = [os.readlink(entry) for entry in pathlib.Path(f"/proc/{self.state()['process']}/fd").iterdir()]
        self.assertEqual(open_files.count("anon_inode:[io_uring]"), 2, "the rings are in use")
        (self.place / "data").write_bytes(bytes(8 * REGION))
        faults = []
        workers = [threading.Thread(target=self.work_on, args=(region, faults)) for region in range(8)]
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        self.assertEqual(faults, [])
        self.dismount(code=DONE)

    def test_a_place_that_the_kernel_refuses_is_done_without(self):
        """A wrong count of processors makes it refuse some; in a name space of mounts of its own, the command sees one."""
        count = self.folder / "possible"
        count.write_text(f"0-{os.cpu_count() + 1}\n", encoding="ascii")
        self.create()
        script = ('mount --bind "$1" /sys/devices/system/cpu/possible && echo "$2" | '
                  '"$3" mount "$4" "$5" --raw --password-file - && cat "$5/Private" >/dev/null && '
                  '"$3" dismount "$4"')
        told = self.run_as("timeout", "-k", "1", "30", "unshare", "-m", "sh", "-c", script, "sh", count, PASSWORD,
                           command.PROGRAM, self.raw, self.place)
        self.assertEqual(told.returncode, DONE, told.stderr)


if __name__ == "__main__":
    command.skip_unless(root=True, tools=("mkfs.ext4", "e2fsck"))
    if not PARAMETER.exists():
        print("SKIPPED: the kernel has no rings for FUSE", flush=True)
        sys.exit(command.SKIPPED)
    before = PARAMETER.read_text(encoding="ascii")
    PARAMETER.write_text("Y", encoding="ascii")
    try:
        command.main()
    finally:
        PARAMETER.write_text(before, encoding="ascii")
