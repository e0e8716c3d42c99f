#!/usr/bin/env python3
"""The packages for Windows in a fresh Wine prefix: unpacked, installed, used, and gone without a trace."""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest
import zipfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools" / "desk"))
import hands  # noqa: E402
import nbd  # noqa: E402
import oracle  # noqa: E402
import quilla  # noqa: E402

PACKAGES = pathlib.Path(os.environ.get("QUILLA_PACKAGES", ROOT / "build" / "packages"))
FILES = {"QuillaTarn.exe", "QuillaDriver.dll", "Quilla.htm", "AttachDrive.ps1", "DetachDrive.ps1", "License.txt"}
PRODUCT_KEY = r"HKCU\Software\Microsoft\Windows\CurrentVersion\Uninstall\QuillaTarn"
LIST_KEY = r"HKCU\Software\Orvane"
RUNNING = 3
# What Wine itself writes when programs run, and where an uninstaller keeps its running copy.
NOT_OURS = ("Temp", "users/Public", "ProgramData", "windows")


def running(word):
    """The processes with a word in their command line."""
    for process in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if word.encode() in process.read_bytes():
                yield process
        except OSError:
            pass  # it has just ended


class FreshDesktop(quilla.Desktop):

    def __init__(self, folder):
        super().__init__(managed=True)
        self.folder, self.prefix, self.work = folder, folder / "prefix", folder / "work"

    def start_screen(self, cleanup):
        super().start_screen(cleanup)
        self.environment["WINEDLLOVERRIDES"] += ";winemenubuilder.exe=d"  # would write to the user's own menu


class WindowsTest(unittest.TestCase):

    @classmethod
    def setUpClass(cls):
        folder = pathlib.Path(cls.enterClassContext(tempfile.TemporaryDirectory(prefix="quilla-packages-")))
        cls.desktop = cls.enterClassContext(FreshDesktop(folder))
        cls.setup, = PACKAGES.glob("*-setup.exe")
        cls.version = cls.setup.name.split("-")[1]
        user, = (path for path in (cls.desktop.prefix / "drive_c" / "users").iterdir() if path.name != "Public")
        cls.installed = user / "AppData" / "Local" / "Programs" / "Quilla Tarn"
        cls.shortcut = user / "AppData/Roaming/Microsoft/Windows/Start Menu/Programs/Quilla Tarn.lnk"

    def tearDown(self):
        self.desktop.end_instances()

    def run_wine(self, *words):
        return subprocess.run(["wine", *map(str, words)], env=self.desktop.environment, stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=120, check=False).returncode

    def registry(self, key):
        """The lines of a key of this user, none if it is not there."""
        return self.desktop.tool("wine", "reg", "query", key, "/s", check=False).splitlines() if \
            self.run_wine("reg", "query", key) == 0 else []

    def files(self):
        drive = self.desktop.prefix / "drive_c"
        names = {str(path.relative_to(drive)) for path in drive.rglob("*")}
        return {name for name in names if not any(part in name for part in NOT_OURS)}

    def install(self):
        self.assertEqual(self.run_wine(self.setup, "/S"), 0)
        self.assertEqual({path.name for path in self.installed.iterdir()}, FILES | {"Uninstall.exe"})

    def use(self, program, meanwhile=lambda: None):
        """One volume's life with a program: its sectors against nettle."""
        quilla.PROGRAM = program
        volume = quilla.Volume(self.desktop.work, program.parent.name.replace(" ", ""), 1 << 20, quilla.CIPHER_TWOFISH)
        sectors = oracle.SectorCipher(volume.cipher, oracle.make_files(volume))
        data = os.urandom(oracle.SECTOR)
        with nbd.Client(self.desktop.mount(volume)) as client:
            client.write(7 * oracle.SECTOR, data)
            client.flush()
            stored = volume.raw.read_bytes()[7 * oracle.SECTOR:8 * oracle.SECTOR]
            self.assertEqual(sectors.crypt("decrypt", 7, stored), data)
            self.assertEqual(client.read(7 * oracle.SECTOR, oracle.SECTOR), data)
        meanwhile()
        self.desktop.dismount(volume)
        quilla.wait_until(lambda: not self.desktop.window(), "the instance to end")

    def uninstall(self):
        """Silently; the uninstaller leaves the work to a copy of itself, whose exit code nobody sees."""
        self.assertEqual(self.run_wine(self.installed / "Uninstall.exe", "/S"), 0)
        quilla.wait_until(lambda: not list(running("~nsu")), "the uninstaller's copy")

    def refuse_while_in_use(self):
        self.assertEqual(self.run_wine(self.setup, "/S"), RUNNING)
        self.uninstall()
        self.assertEqual({path.name for path in self.installed.iterdir()}, FILES | {"Uninstall.exe"})

    def test_installed_used_and_removed(self):
        before = self.files()
        self.install()
        self.assertTrue(self.shortcut.is_file())
        told = "\n".join(self.registry(PRODUCT_KEY))
        self.assertIn(f"DisplayVersion    REG_SZ    {self.version}", told)
        self.use(self.installed / "QuillaTarn.exe", self.refuse_while_in_use)
        self.run_wine("reg", "add", LIST_KEY + r"\Quilla\Volumes", "/v", "mine", "/d", "x", "/f")
        (self.installed / "Private.raw").write_bytes(b"x")  # a volume that was kept there

        self.uninstall()
        self.assertEqual(self.registry(PRODUCT_KEY), [])
        self.assertEqual([path.name for path in self.installed.iterdir()], ["Private.raw"])
        self.assertTrue(self.registry(LIST_KEY), "the list went without a question")

        (self.installed / "Private.raw").unlink()
        self.install()
        self.remove_with_the_list()
        self.assertEqual(self.files() - before, set())
        self.assertEqual(self.registry(PRODUCT_KEY) + self.registry(LIST_KEY), [])

    def remove_with_the_list(self):
        """By keyboard: Uninstall, Yes to the question about the list, Close."""
        user = hands.Hands(self.desktop, None)
        self.desktop.spawn("wine", str(self.installed / "Uninstall.exe"))

        def press(key, until):
            def pressed():
                if user.active_title() == "Quilla Tarn Uninstall":
                    user.keys(key)
                return until()
            quilla.wait_until(pressed, f"what {key} does", interval=0.5)

        press("Return", lambda: not self.registry(PRODUCT_KEY))
        self.assertTrue(self.registry(LIST_KEY), "the list went before the answer")
        press("alt+y", lambda: not self.registry(LIST_KEY))
        press("Return", lambda: user.active_title() != "Quilla Tarn Uninstall")

    def test_unpacked(self):
        archive, = PACKAGES.glob("*.zip")
        with zipfile.ZipFile(archive) as file:
            file.extractall(self.desktop.work)
        folder = self.desktop.work / f"QuillaTarn-{self.version}"
        self.assertEqual({path.name for path in folder.iterdir()}, FILES)
        self.use(folder / "QuillaTarn.exe")


if __name__ == "__main__":
    unittest.main(verbosity=2)
