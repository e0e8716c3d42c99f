#!/usr/bin/env python3
"""Mounting as root: loop device, the system's own file systems, what goes wrong and how it ends."""

import os
import pathlib
import signal
import stat
import subprocess
import time

import command
from command import BAD_FILE, BUSY, DONE, MIB, PASSWORD, USAGE, WRONG_PASSWORD

import oracle
import quilla

FILE_SYSTEMS = pathlib.Path("/proc/filesystems").read_text(encoding="ascii").split()


def loop_devices():
    return subprocess.run(["losetup", "-a"], capture_output=True, text=True, check=True).stdout


class Root(command.CommandTest):

    def assert_nothing_left(self):
        command.wait_until(lambda: not os.path.ismount(self.place), "the mount to go")
        command.wait_until(lambda: "(/Private)" not in loop_devices(), "the loop device to go")
        command.wait_until(lambda: self.state() is None, "the service to end")

    def test_a_volume_lives(self):
        self.create("--format", "ext4")
        begin = time.monotonic()
        self.assertEqual(self.mount().stdout, f"{self.place}\n")
        (self.place / "letter").write_bytes(b"dear diary" * 100000)
        self.assertLess(time.monotonic() - begin, 2)
        state = self.state()
        self.assertEqual((state["place"], state["cipher"], state["timeoutSeconds"]), (str(self.place), "twofish", 1800))
        status = pathlib.Path(f"/proc/{state['process']}/status").read_text(encoding="ascii")
        if "asan" not in pathlib.Path(f"/proc/{state['process']}/maps").read_text(encoding="ascii"):
            peak = int(status.split("VmHWM:")[1].split()[0])
            self.assertLess(peak, 16 * 1024, "KiB of memory")
        self.assertIn(str(self.place), self.mount(code=BUSY).stderr)
        with open(self.place / "letter", "rb"):
            told = self.dismount(code=BUSY).stderr
            self.assertIn(str(os.getpid()), told)
            self.assertTrue(os.path.ismount(self.place))
        self.dismount()
        self.assertFalse(self.place.exists(), "a folder that was made for the mount goes with it")
        self.assert_nothing_left()
        self.assertNotIn(b"dear diary", self.raw.read_bytes())
        self.mount("--read-only")
        self.assertEqual((self.place / "letter").read_bytes(), b"dear diary" * 100000)
        with self.assertRaises(OSError):
            (self.place / "more").write_bytes(b"x")
        self.quilla("dismount", self.place, code=DONE)

    def test_the_plain_file_is_what_nettle_makes_of_the_data_file(self):
        for cipher, number in (("twofish", quilla.CIPHER_TWOFISH), ("cast128", quilla.CIPHER_CAST128)):
            volume = quilla.Volume(self.folder, cipher, MIB, number, PASSWORD)
            sectors = oracle.SectorCipher(number, oracle.make_files(volume))
            place = self.folder / "plain"
            self.quilla("mount", volume.raw, place, "--raw", passwords=[PASSWORD], code=DONE)
            plain = place / cipher
            self.assertEqual(plain.stat().st_size, MIB)
            data = os.urandom(MIB)
            with open(plain, "r+b", buffering=0) as file:
                for at in range(0, MIB, 100_001):  # no piece starts or ends with a sector
                    file.write(data[at:at + 100_001])
                os.fsync(file.fileno())
                self.assertEqual(os.pread(file.fileno(), 5000, 700_003), data[700_003:705_003])
                with self.assertRaises(OSError):
                    os.pwrite(file.fileno(), b"x", MIB)
            stored = volume.raw.read_bytes()
            for n in range(MIB // 512):
                self.assertEqual(sectors.crypt("decrypt", n, stored[n * 512:n * 512 + 512]), data[n * 512:n * 512 + 512])
            self.quilla("dismount", place, code=DONE)

    def test_whoever_unmounts_ends_the_service(self):
        self.create("--format", "ext4")
        self.place.mkdir()
        self.mount()
        subprocess.run(["umount", self.place], check=True)
        self.assert_nothing_left()
        self.assertTrue(self.place.is_dir())
        self.mount()
        os.kill(self.state()["process"], signal.SIGTERM)
        self.assert_nothing_left()

    def test_a_hung_or_dead_service_leaves_nothing_that_hangs(self):
        self.create("--format", "ext4")
        self.mount()
        os.kill(self.state()["process"], signal.SIGSTOP)
        self.dismount("--force")
        self.assert_nothing_left()
        self.mount()
        os.kill(self.state()["process"], signal.SIGKILL)
        self.assertEqual((self.state()["answers"], "ended unexpectedly" in self.quilla("list").stdout), (False, True))
        self.assertIn("quilla dismount", self.mount(code=BUSY).stderr)
        told = self.dismount(code=BAD_FILE).stderr
        self.assertIn(f"{self.place} has been unmounted", told)
        self.mount("--foreground", "--read-only", "--raw", password="wrong", code=WRONG_PASSWORD)
        with subprocess.Popen([command.PROGRAM, "mount", "--foreground", "--password-file", "-", self.raw], text=True,
                              stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=command.ENVIRONMENT) as service:
            service.stdin.write(PASSWORD + "\n")
            service.stdin.close()
            self.assertEqual(service.stdout.readline(), f"{self.place}\n")
            os.chdir(self.place.parent)
            self.quilla("dismount", "./Private/", code=DONE)
            self.assertEqual(service.wait(20), DONE)

    def test_a_place_that_does_not_suit_is_named(self):
        self.create("--format", "ext4")
        (self.folder / "file").write_bytes(b"")
        (self.folder / "full").mkdir()
        (self.folder / "full" / "file").write_bytes(b"")
        for place in ("file", "full", "missing/below"):
            self.assertIn(place, self.mount(self.folder / place, code=BAD_FILE).stderr)
        self.mount(code=WRONG_PASSWORD, password="wrong")
        self.assertFalse(self.place.exists())
        self.mount(self.folder / "new")
        self.dismount()

    def device(self):
        """A loop device over 64 MiB, and a second node of it."""
        disk, alias = self.folder / "disk", self.folder / "alias"
        disk.touch()
        os.truncate(disk, 64 * MIB)
        made = subprocess.run(["losetup", "--find", "--show", disk], capture_output=True, text=True, check=True)
        self.addCleanup(subprocess.run, ["losetup", "--detach", made.stdout.strip()], check=True)
        os.mknod(alias, 0o600 | stat.S_IFBLK, os.stat(made.stdout.strip()).st_rdev)
        return made.stdout.strip(), alias

    def test_a_block_device_is_overwritten_only_with_consent(self):
        device, _ = self.device()
        subprocess.run(["mkfs.ext4", "-q", "-L", "Diary", device], check=True)
        create = "create", device, "--key", self.key, "--no-strength"
        for refused in (("create", device), (*create, "--size", "1M")):
            self.quilla(*refused, "--yes", passwords=[PASSWORD], code=USAGE)
        self.assertIn("ext4", self.quilla(*create, passwords=[PASSWORD], code=USAGE).stderr)
        code, screen = self.type_at_terminal(create, ["no"])
        self.assertEqual((code, "Diary" in screen), (USAGE, True), screen)
        self.place.mkdir()
        subprocess.run(["mount", device, self.place], check=True)
        self.quilla(*create, "--yes", passwords=[PASSWORD], code=BUSY)
        subprocess.run(["umount", self.place], check=True)
        self.assertFalse(self.key.exists())
        subprocess.run(["e2fsck", "-fn", device], check=True, capture_output=True)
        code, screen = self.type_at_terminal(create, ["yes", PASSWORD, PASSWORD])
        self.assertEqual(code, DONE, screen)
        nothing = subprocess.run(["blkid", "-p", device], capture_output=True, check=False)
        self.assertEqual(nothing.returncode, 2, nothing.stdout)

    def test_a_volume_may_be_a_block_device(self):
        device, alias = self.device()
        self.quilla("create", device, "--key", self.key, "--format", "ext4", "--no-strength", passwords=[PASSWORD], code=DONE)
        key = "--key", self.key
        self.quilla("mount", device, self.place, passwords=[PASSWORD], code=USAGE)
        self.quilla("mount", device, *key, passwords=[PASSWORD], code=USAGE)
        held = os.open(alias, os.O_RDWR | os.O_EXCL)
        self.quilla("mount", device, self.place, *key, passwords=[PASSWORD], code=BUSY)
        os.close(held)
        self.quilla("mount", device, self.place, *key, passwords=[PASSWORD], code=DONE)
        (self.place / "letter").write_bytes(b"dear diary" * 100000)
        self.assertIn("mounted already", self.quilla("mount", alias, "elsewhere", *key, passwords=[PASSWORD], code=BUSY).stderr)
        with self.assertRaises(OSError):
            os.open(device, os.O_RDWR | os.O_EXCL)
        self.quilla("dismount", alias, code=DONE)
        self.assertNotIn(b"dear diary", pathlib.Path(device).read_bytes())
        self.quilla("mount", alias, self.place, *key, "--read-only", passwords=[PASSWORD], code=DONE)
        self.assertEqual((self.place / "letter").read_bytes(), b"dear diary" * 100000)
        self.quilla("dismount", self.place, code=DONE)

    def test_without_a_file_system_it_says_so(self):
        self.create()
        self.assertIn("--raw", self.mount(code=BAD_FILE).stderr)
        self.assert_nothing_left()

    def test_a_used_file_is_busy(self):
        self.create()
        with subprocess.Popen([command.sys.executable, "-c", LOCKER, self.raw], stdin=subprocess.PIPE,
                              stdout=subprocess.PIPE) as locker:
            locker.stdout.readline()
            self.mount("--raw", code=BUSY)
            locker.stdin.close()
        self.mount("--raw")
        self.dismount()

    def test_a_read_only_file_system_is_mounted_for_reading(self):
        self.create("--format", "ext4")
        self.mount()
        (self.place / "letter").write_bytes(b"dear")
        self.dismount()
        view = self.folder / "view"
        view.mkdir()
        subprocess.run(["mount", "--bind", "-o", "ro", self.folder, view], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", view], check=True)
        place = self.folder / "place"
        told = self.quilla("mount", view / "Private.raw", place, passwords=[PASSWORD], code=DONE).stderr
        self.assertIn("for reading only", told)
        self.assertEqual((place / "letter").read_bytes(), b"dear")
        self.quilla("dismount", place, code=DONE)

    def test_a_full_disk_fails_writes_and_nothing_else(self):
        small = self.folder / "small"
        small.mkdir()
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=8m", "none", small], check=True)
        self.addCleanup(subprocess.run, ["umount", "-l", small], check=True)
        self.raw = small / "Private.raw"
        self.create()
        place = self.folder / "plain"
        self.mount(place, "--raw")
        with open(place / "Private", "r+b", buffering=0) as file:
            with self.assertRaises(OSError):
                for at in range(0, 32 * MIB, MIB):
                    os.pwrite(file.fileno(), bytes(MIB), at)
            self.assertEqual(os.pread(file.fileno(), 4096, 0), bytes(4096))
        self.dismount()

    def test_the_time_out_dismounts(self):
        self.create("--format", "ext4", "--timeout", "1")
        key = self.key.read_bytes()
        self.key.write_bytes(key[:40] + (160_000_000).to_bytes(8, "little") + key[48:])  # 16 s, of which 15 are slack
        self.mount()
        self.assertTrue(os.path.ismount(self.place))
        # The service looks at its time-out whenever it is asked something, and every 15 seconds.
        command.wait_until(lambda: self.state() is None, "the time-out")
        self.assert_nothing_left()


LOCKER = """
import fcntl, sys
file = open(sys.argv[1], "r+b")
fcntl.lockf(file, fcntl.LOCK_EX, 1, 1 << 62)
print("locked", flush=True)
sys.stdin.read()
"""


def file_system_case(kind, tool):
    def case(self):
        if kind not in FILE_SYSTEMS:
            self.skipTest(f"the kernel has no {kind}")
        self.create("--format", tool, size="256M" if kind in ("xfs", "btrfs") else "64M")
        self.mount()
        (self.place / "file").write_bytes(b"x" * MIB)
        self.dismount()
        self.mount()
        self.assertEqual((self.place / "file").read_bytes(), b"x" * MIB)
        self.dismount()
    return case


for _kind, _tool in (("vfat", "fat"), ("exfat", "exfat")):
    setattr(Root, f"test_file_system_{_kind}", file_system_case(_kind, _tool))


if __name__ == "__main__":
    command.skip_unless(root=True, tools=("mkfs.ext4", "losetup", "unshare"))
    command.main()
