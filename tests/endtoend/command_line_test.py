"""What a user of the command line sees: boxes, exit codes, and an instance that serves unseen."""

import pathlib
import sys
import unittest
from concurrent import futures

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

USAGE = ("Quilla Tarn",
         "Incorrect command line format\n\nmount\t[/volume] VolumeFile.raw [/key KeyFile.key] [/password 97531]\n"
         "dismount\t[/volume] VolumeFile.raw")
WRONG_PASSWORD = ("Quilla Tarn Error", "Incorrect password")
MINUS_ONE = 255  # as much of it as a Unix exit status holds


class CommandLineTest(quilla.DesktopTest):

    def run_with_box(self, *words):
        """(box, exit code) of an instance that shows one."""
        process = self.desktop.start(*words)
        box = self.desktop.box()
        return box, process.wait(quilla.LIMIT)

    def test_first_instance_mounts_unseen_and_ends_after_the_last_dismount(self):
        volume = self.volume()
        oracle.make_files(volume)
        elsewhere = volume.key.rename(volume.key.with_name("Elsewhere.key"))
        first = self.desktop.start("mount", volume.path, "/key", quilla.windows_path(elsewhere),
                                   "/password", volume.password)
        self.desktop.uri("SEC0")
        elsewhere.rename(volume.key)
        self.assertFalse(self.desktop.is_visible())
        # Wine turns the owner-only access list into rights of the user and of his group.
        self.assertEqual(self.desktop.uri_file("SEC0").stat().st_mode & 0o007, 0, "others can read the address")

        self.desktop.send(quilla.WM_CLOSE)
        self.assertIsNotNone(self.desktop.window(), "closed with a volume mounted")
        self.assertNotEqual(self.desktop.query(volume).handle, 0)

        self.assertEqual(self.desktop.run(), 0)  # a start without a command brings the window to the front
        self.assertTrue(self.desktop.is_visible())
        self.desktop.send(quilla.WM_CLOSE)
        self.assertFalse(self.desktop.is_visible())

        self.desktop.dismount(volume)
        self.assertFalse(self.desktop.uri_file("SEC0").exists())
        self.assertEqual(self.desktop.query(volume).handle, 0)
        self.assertIsNone(first.poll(), "nobody has closed it")
        self.assertEqual(self.desktop.close(first), 0)

    def test_what_cannot_be_done_is_told_and_leaves_nothing(self):
        volume = self.volume()
        oracle.make_files(volume)
        before = volume.key.read_bytes()
        wrong_password = "mount", volume.path, "/password", "97532"
        # The first instance shows the box, closes its hidden window and ends.
        self.assertEqual(self.run_with_box(*wrong_password), (WRONG_PASSWORD, 0))
        self.assertEqual(self.run_with_box("mount", "a.raw", "b.key", "password", "surplus"), (USAGE, 0))
        first = self.desktop.start_serving()
        self.assertEqual(self.run_with_box(*wrong_password), (WRONG_PASSWORD, MINUS_ONE))
        for line in (["mount", "/volume", "a.raw", "/volume", "b.raw"], ["dismount", "a.raw", "/key", "b.key"],
                     ["mount", "x" * 260]):
            self.assertEqual(self.run_with_box(*line), (USAGE, 1), line)
        self.assertEqual(self.desktop.query(volume).handle, 0)
        self.assertEqual(list(self.desktop.local_data().glob("*.uri")), [])
        self.assertEqual(volume.key.read_bytes(), before)
        self.assertEqual(self.desktop.close(first), 0)

    def test_ten_devices_from_two_processes_at_once(self):
        volumes = [self.volume(f"Ten{i}", cipher=(6, 10)[i % 2]) for i in range(10)]
        eleventh = self.volume("Eleventh")
        for volume in (*volumes, eleventh):
            oracle.make_files(volume)
        first = self.desktop.start_serving()

        def mount(half):
            for volume in half:  # a relative path means a file of the sender's current folder
                self.assertEqual(self.desktop.run("mount", volume.raw.name, "/password", volume.password,
                                                  cwd=volume.raw.parent), 0)

        with futures.ThreadPoolExecutor() as pool:
            list(pool.map(mount, (volumes[:5], volumes[5:])))
        self.assertEqual(sorted(self.desktop.query(v).device for v in volumes), [f"SEC{i}:" for i in range(10)])
        self.assertEqual(len({self.desktop.uri(f"SEC{i}") for i in range(10)}), 10)
        refused = self.desktop.start("mount", eleventh.path, "/password", eleventh.password)
        self.assertEqual(self.desktop.box(), ("Quilla Error", "RegisterDevice() failed"))
        self.assertEqual(refused.wait(quilla.LIMIT), 0)
        self.assertEqual(self.desktop.query(eleventh).handle, 0)
        for volume in volumes:
            self.desktop.dismount(volume)
            self.assertEqual(self.desktop.query(volume).handle, 0, volume.path)
        self.assertEqual(self.desktop.close(first), 0)


if __name__ == "__main__":
    unittest.main(verbosity=2)
