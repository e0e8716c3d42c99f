"""Commands started at the same moment, and error boxes that nobody answers: everybody gets his answer, and ends."""

import os
import pathlib
import signal
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import nbd  # noqa: E402
import oracle  # noqa: E402
import quilla  # noqa: E402

LVM_GETITEMCOUNT = 0x1004
ROUNDS = int(os.environ.get("QUILLA_RACE_ROUNDS", "30"))


class RacesTest(quilla.DesktopTest):

    def at_once(self, *commands):
        """Starts instances at the same moment."""
        return [self.desktop.start(*words) for words in commands]

    def wait(self, condition, what):
        """Waits, and tells the box that may stand in the way, who still runs and what is still mounted."""
        try:
            return quilla.wait_until(condition, what)
        except quilla.Failure as failure:
            running = [process.args[2:] for process in self.desktop.instances if process.poll() is None]
            devices = [path.name for path in self.desktop.local_data().glob("*.uri")]
            window = self.desktop.window()
            raise quilla.Failure(f"{failure}; running: {running}, window: {window}, devices: {devices}, "
                                 f"box: {self.desktop.box(0)}, {self.desktop.complaints()}") from None

    def check_exit_codes(self, processes, what):
        codes = [process.poll() for process in processes]
        self.assertFalse(any(codes), f"{what}: {codes}, {self.desktop.complaints()}")

    def test_instances_that_start_together_all_end(self):
        volumes = [self.volume(f"Data{i}", size=1 << 16) for i in range(3)]
        for volume in volumes:
            oracle.make_files(volume)
        for i in range(ROUNDS):
            mounts = self.at_once(*(("mount", volume.path, "/password", volume.password) for volume in volumes))
            self.wait(lambda: sum(process.poll() is None for process in mounts) == 1,
                      f"all but the serving instance to end (round {i})")
            self.check_exit_codes(mounts, f"mounts of round {i}")
            self.wait(lambda: len(list(self.desktop.local_data().glob("*.uri"))) == 3, f"three devices (round {i})")
            # The window was never shown: the last dismount is the end of the serving instance, too.
            dismounts = self.at_once(*(("dismount", volume.path) for volume in volumes))
            self.wait(lambda: None not in [process.poll() for process in dismounts + mounts],
                      f"all to end (round {i})")
            self.check_exit_codes(mounts + dismounts, f"round {i}")
            self.desktop.instances.clear()

    def waits_for_its_turn(self, process):
        """Waits until an instance has the thread that takes the mutex of the exchanges for it."""
        self.wait(lambda: len(os.listdir(f"/proc/{process.pid}/task")) > 1, "an exchange to begin")

    def test_a_mount_outlives_the_instance_that_it_found(self):
        volume = self.volume()
        oracle.make_files(volume)
        for is_unlocked in (False, True):
            first = self.desktop.start_serving()
            self.desktop.desk.ask("take")
            mount = self.desktop.start("mount", volume.path, "/password", volume.password)
            self.waits_for_its_turn(mount)
            while is_unlocked and self.desktop.send(LVM_GETITEMCOUNT, 0, "SysListView32") == 0:
                self.desktop.desk.ask("give")
                self.desktop.desk.ask("take")  # behind the mount's look-up, if that waits already
            self.waits_for_its_turn(mount)
            self.assertEqual(self.desktop.close(first), 0)
            self.desktop.desk.ask("give")
            self.wait(self.desktop.uri_file("SEC0").exists, f"the mount, unlocked: {is_unlocked}")
            self.assertIsNone(mount.poll(), "it serves now")
            self.desktop.dismount(volume)
            self.assertEqual(mount.wait(quilla.LIMIT), 0)

    def test_nobody_waits_for_a_box(self):
        missing, volume = self.volume("Missing"), self.volume()
        oracle.make_files(missing)
        oracle.make_files(volume)
        missing.raw.unlink()
        first = self.desktop.start_serving()
        self.assertEqual(self.desktop.run("mount", missing.path, "/password", missing.password), 0)
        # The box stands in the serving instance now, and others are served all the same.
        self.assertEqual(self.desktop.run("mount", volume.path, "/password", volume.password), 0)
        self.desktop.uri("SEC0")
        self.assertEqual(self.desktop.run("dismount", "Z:/" + str(volume.raw)[1:]), 0)
        self.desktop.wait_gone("SEC0")
        self.desktop.send(quilla.WM_CLOSE)
        self.assertIsNone(first.poll(), "closed under its own box")
        self.assertEqual(self.desktop.box(), ("Quilla Error", "RegisterDevice() failed"))
        self.assertEqual(first.wait(quilla.LIMIT), 0, "the close was forgotten")

    @unittest.skipUnless(pathlib.Path("/dev/fuse").exists(), "no FUSE on this machine")
    def test_a_disk_that_hangs_holds_up_nobody_else(self):
        (self.folder / "disk").mkdir()
        hung, volume = self.volume("disk/Hung", cipher=quilla.CIPHER_NONE), self.volume()
        oracle.make_files(volume)
        self.addCleanup(self.desktop.tool, "fusermount3", "-u", "-z", str(hung.raw.parent), check=False)
        disk = self.desktop.spawn("nbdfuse", str(hung.raw), "--command", "nbdkit", "-s", "memory", str(hung.size))
        self.wait(hung.raw.exists, "the disk")
        process = self.desktop.start_serving()
        self.desktop.request("mount", self.desktop.request("query", hung.record())[0])
        client = self.enterContext(nbd.Client(self.desktop.uri("SEC0")))
        client.write(0, b"1" * 4096)
        os.kill(disk.pid, signal.SIGSTOP)
        try:
            client.send_write(4096, b"2" * 4096)
            begin = time.monotonic()
            self.desktop.send(quilla.WM_COMMAND, quilla.IDM_DISMOUNT_ALL)
            self.desktop.mount(volume, "SEC1")
            self.desktop.dismount(volume)
            self.desktop.send(quilla.WM_CLOSE)
            self.assertLess(time.monotonic() - begin, 10, "the window waited for the disk")
            self.assertIsNone(process.poll(), "ended with a volume mounted")
        finally:
            os.kill(disk.pid, signal.SIGCONT)
        ask = self.desktop.desk.ask
        quilla.wait_until(lambda: process.poll() is not None or not ask("send", quilla.WM_CLOSE, 0, ""),
                          "the dismount to be completed")

    def test_a_start_takes_over_from_one_that_was_killed(self):
        volume = self.volume()
        oracle.make_files(volume)
        volume.key.write_bytes(b"\1" * 100)
        first = self.desktop.start("mount", volume.path, "/password", volume.password)
        quilla.wait_until(self.desktop.window, "the event")  # with the error still to be answered
        waiting = self.desktop.start()
        quilla.wait_until(lambda: waiting.poll() is not None, "the second start to be served behind the box")
        first.kill()
        first.wait(quilla.LIMIT)
        process = self.desktop.start_serving()
        self.assertEqual(self.desktop.close(process), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
