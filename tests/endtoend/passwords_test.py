"""Kills the program in the middle of changes of a password by its dialog, at random moments: one password always opens the
key file, and no file stays beside it. Checked with libargon2 and nettle. QUILLA_KILLS says how often.

Changes that are not killed are tried by mounts from the command line."""

import os
import pathlib
import random
import sys
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

KILLS = int(os.environ.get("QUILLA_KILLS", "3"))
WM_KEYDOWN, VK_HOME = 0x0100, 0x24
STEPS = 1, 1, 0, 0  # adds the option that slows down guessing, keeps it, takes it off, does without


class PasswordsTest(quilla.DesktopTest):

    def begin_change(self, old, new, strong):
        """Starts the program and has it change the password; the moment at which it begins."""
        self.desktop.start_serving()
        self.desktop.query(self.changed)  # and so its row is there
        self.assertEqual(self.files(), self.usual, "what was left goes with the next use")
        self.desktop.send(WM_KEYDOWN, VK_HOME, "SysListView32")
        self.assertTrue(self.desktop.desk.ask("change", old, new, strong))
        return time.monotonic()

    def mount(self, password):
        """Tries a wrong password and the right one by command line."""
        mount = "mount", self.changed.path, "/password"
        refused = self.desktop.start(*mount, "wrong")
        self.assertEqual(self.desktop.box(), ("Quilla Tarn Error", "Incorrect password"))
        self.assertNotEqual(refused.wait(quilla.LIMIT), 0)
        self.assertEqual(self.desktop.run(*mount, password), 0)
        self.desktop.uri("SEC0")
        self.desktop.dismount(self.changed)

    def files(self):
        return sorted(path.name for path in self.folder.rglob("*"))

    def opens(self, password):
        try:
            oracle.parse_key_file(self.changed.key.read_bytes(), self.changed.cipher, password)
            return True
        except quilla.Failure:
            return False

    def test_one_password_opens_whenever_the_program_is_killed(self):
        self.changed = self.volume(size=1 << 16, password="0")
        oracle.make_files(self.changed)
        stick = self.folder / "Stick"  # where the key file is; what leads to it is a link
        stick.mkdir()
        self.changed.key.rename(stick / "Real.key")
        self.changed.key.symlink_to(stick / "Real.key")
        self.usual = self.files()
        current, longest, left, done = "0", 0.0, 0, 0
        for number in range(len(STEPS) + KILLS):
            before, wanted = self.changed.key.read_bytes(), str(number + 1)
            begin = self.begin_change(current, wanted, STEPS[number % len(STEPS)])
            if number < len(STEPS):  # the first changes show how long one takes
                quilla.wait_until(lambda: self.changed.key.read_bytes() != before, "the change", interval=0.002)
                longest = max(longest, time.monotonic() - begin)
                self.mount(wanted)
            else:
                time.sleep(random.uniform(0, longest))
            self.desktop.end_instances()
            left += self.files() != self.usual
            opening = [password for password in (current, wanted) if self.opens(password)]
            self.assertEqual(len(opening), 1, f"change {number}")
            self.assertTrue(self.changed.key.is_symlink())
            done += number >= len(STEPS) and opening[0] == wanted
            current = opening[0]
        print(f"{KILLS} changes killed, {done} of them complete; a file stayed until the next use after {left}", file=sys.stderr)


if __name__ == "__main__":
    unittest.main()
