"""A volume's whole life by keystrokes and clicks alone, with a picture of every step.

The pictures are kept in build/windows/screenshots. With QUILLA_DPI=144 or 192 the same runs at 150 or 200 %.
"""

import os
import pathlib
import shutil
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402
from hands import FIRST_ROW, Hands  # noqa: E402

MIB = 1 << 20
OLD_PASSWORD, NEW_PASSWORD = "97531", "Correct horse 24680"


class UserInterfaceTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        cls.dpi = int(os.environ.get("QUILLA_DPI", "96"))
        cls.desktop = cls.enterClassContext(quilla.Desktop(managed=True, dpi=cls.dpi))

    def setUp(self):
        suffix = "" if self.dpi == 96 else f"-{self.dpi}"
        pictures = quilla.BUILD / f"screenshots{suffix}" / self._testMethodName.removeprefix("test_")
        shutil.rmtree(pictures, ignore_errors=True)
        pictures.mkdir(parents=True)
        # A place on drive C: reads better in pictures than the long way through Z:.
        self.folder = self.desktop.prefix / "drive_c" / "Volumes"
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir()
        self.hands = Hands(self.desktop, pictures)

    def tearDown(self):
        self.desktop.end_instances()
        shutil.rmtree(self.folder, ignore_errors=True)

    def settings(self, password):
        return oracle.parse_key_file((self.folder / "Private.key").read_bytes(), quilla.CIPHER_TWOFISH, password)

    def create(self):
        hands = self.hands
        hands.expect("Quilla Tarn")
        # Out of the way of notices: a screen without a notification area shows them in its corner.
        hands.tool("windowmove", "--sync", hands.tool("getactivewindow"), 100, 300)
        hands.keys("Insert")
        hands.expect("New")
        hands.picture("new-empty")
        hands.type(r"C:\Volumes\Private")
        hands.keys("Tab", "Tab")  # over the button that browses
        hands.replace("16")
        hands.keys("Tab", "Tab", "Home", "Down")  # over the unit to the cipher: None, then Twofish
        hands.settle()  # on the way it was None, which has neither key nor password: both are back once it is idle
        hands.keys("Tab", "Tab", "Tab")  # over the key file, whose name has followed the volume's, and its button
        hands.type(OLD_PASSWORD)
        hands.keys("Tab")
        hands.type(OLD_PASSWORD)
        hands.keys("Tab")
        hands.picture("new-filled")
        hands.keys("Return")
        hands.expect("Quilla Tarn")
        hands.picture("created")
        self.assertEqual((self.folder / "Private.raw").stat().st_size, 16 * MIB)
        self.assertEqual(self.settings(OLD_PASSWORD)[2], 30 * quilla.MINUTE)

    def mount(self, password, wrong=None):
        hands = self.hands
        hands.expect("Quilla Tarn")
        if wrong:
            hands.click_row()
            hands.keys("Return")
        else:
            hands.click_row(repeat=2)
        hands.expect("Mount")
        if wrong:
            hands.type(wrong)
            hands.keys("Return")
            hands.expect("Quilla Tarn Error")
            hands.picture("wrong-password")
            hands.keys("Return")
            hands.expect("Mount")
            self.assertFalse(self.desktop.uri_file("SEC0").exists())
        hands.type(password)
        hands.picture("mount")
        hands.keys("Return")
        uri = self.desktop.uri("SEC0")
        hands.expect("Quilla Tarn")
        hands.picture("mounted")
        return uri

    def hide_and_come_back(self):
        """By the icon in the notification area, which Wine shows in a window of its own."""
        hands = self.hands
        hands.keys("alt+F4")
        quilla.wait_until(lambda: hands.active_title() != "Quilla Tarn", "the window to hide")
        hands.picture("hidden")
        hands.tool("mousemove", "--window", hands.tool("search", "--name", "Wine System Tray").split()[0], 10, 10)
        hands.tool("click", "--repeat", 2, "--delay", 60, 1)
        hands.expect("Quilla Tarn")

    def attach_by_hand(self):
        """Wine has no initiator, so the program says how it is done by hand."""
        hands = self.hands
        hands.click_row(button=3)
        hands.keys("Up")
        hands.picture("pop-up-of-a-mounted-volume")
        hands.keys("Return")
        hands.expect("Attach by Hand")
        hands.picture("attach-by-hand")
        hands.keys("Escape")
        hands.expect("Quilla Tarn")

    def change_time_out(self):
        hands = self.hands
        hands.keys("alt+Return")
        hands.expect("Properties")
        hands.picture("properties")
        hands.replace("45")  # it starts in the one field that can always be changed
        hands.picture("properties-45-minutes")
        hands.keys("Return")
        hands.expect("Quilla Tarn")
        self.assertEqual(self.settings(OLD_PASSWORD)[2], 45 * quilla.MINUTE)

    def dismount(self):
        self.hands.keys("alt+v")
        self.hands.picture("volume-menu")
        self.hands.keys("d")
        self.desktop.wait_gone("SEC0")
        self.hands.expect("Quilla Tarn")
        self.hands.picture("dismounted")

    def change_password(self):
        hands = self.hands
        master = self.settings(OLD_PASSWORD)[0]
        hands.click_row(button=3)
        hands.keys("Down", "Down", "Down")  # over Mount and Dismount
        hands.picture("pop-up")
        hands.keys("Return")
        hands.expect("Change Password")
        hands.type(OLD_PASSWORD)
        hands.keys("Tab")
        hands.type(NEW_PASSWORD)
        hands.keys("Tab")
        hands.type(NEW_PASSWORD + "!")
        hands.picture("change-password")
        hands.keys("Return")
        hands.expect("Quilla Tarn Error")
        hands.picture("passwords-differ")
        hands.keys("Return")
        hands.expect("Change Password")
        hands.type(NEW_PASSWORD)  # the field to be typed again has the keyboard, its old text selected
        hands.keys("Tab")
        hands.type(NEW_PASSWORD)
        hands.keys("Return")
        hands.expect("Quilla Tarn")
        self.assertEqual(self.settings(NEW_PASSWORD)[0], master, "the data key must not change with the password")

    def delete(self):
        hands = self.hands
        hands.keys("Delete")
        hands.expect("Confirm Delete")
        hands.picture("confirm-delete")
        hands.keys("Return")  # who presses it without reading keeps his data
        hands.expect("Quilla Tarn")
        self.assertEqual(sorted(path.name for path in self.folder.iterdir()), ["Private.key", "Private.raw"])
        hands.keys("Delete")
        hands.expect("Confirm Delete")
        hands.keys("Tab", "Return")
        hands.expect("Quilla Tarn")
        quilla.wait_until(lambda: not list(self.folder.iterdir()), "the files to go")
        hands.picture("deleted")
        listed = self.desktop.tool("wine", "reg", "query", r"HKCU\Software\Orvane\Quilla\Volumes", check=False)
        self.assertNotIn("Private", listed)

    def test_a_volumes_life_by_keyboard_and_mouse(self):
        hands = self.hands
        program = self.desktop.start()
        hands.take_up()
        hands.picture("started")
        self.create()
        uri = self.mount(OLD_PASSWORD)
        content = self.desktop.work / "content"
        content.write_bytes(os.urandom(16 * MIB))
        self.desktop.tool("nbdcopy", "--flush", str(content), uri)
        self.hide_and_come_back()
        self.attach_by_hand()
        self.change_time_out()
        self.dismount()
        self.change_password()
        uri = self.mount(NEW_PASSWORD, wrong=OLD_PASSWORD)
        back = self.desktop.work / "back"
        self.desktop.tool("nbdcopy", uri, str(back))
        self.assertTrue(back.read_bytes() == content.read_bytes(), "the volume came back different")
        self.dismount()
        self.delete()
        hands.keys("alt+F4")
        self.assertEqual(program.wait(quilla.LIMIT), 0)

    def test_a_mount_without_password_asks_for_it(self):
        """In a second process, which has no window of its own, and in the one that serves."""
        hands = self.hands
        volume = quilla.Volume(self.desktop.work, "Asked", MIB, quilla.CIPHER_CAST128)
        oracle.make_files(volume)
        serving = self.desktop.start_serving()
        hands.take_up()
        second = self.desktop.start(volume.path)  # a lone file means: mount
        hands.expect("Mount")
        hands.picture("asked-by-second-process")
        hands.type(volume.password)
        hands.keys("Return")
        self.assertEqual(second.wait(quilla.LIMIT), 0)
        self.desktop.uri("SEC0")
        self.desktop.dismount(volume)
        self.assertEqual(self.desktop.close(serving), 0)

        serving = self.desktop.start("mount", volume.path)
        hands.take_up("Mount", place=(4, 4))
        hands.keys("Escape")
        self.assertEqual(serving.wait(quilla.LIMIT), 0)
        self.assertEqual(list(self.desktop.local_data().glob("*.uri")), [])


if __name__ == "__main__":
    unittest.main(verbosity=2)
