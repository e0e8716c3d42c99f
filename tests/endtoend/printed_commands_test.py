"""The commands that README and help page print, run as they are printed, by a shell in a home of its own."""

import html
import pathlib
import re
import subprocess
import sys
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

MIB = 1 << 20
LETTER = b"Dear reader"

# What the other blocks begin with, and why they are not run here.
NOT_HERE = {"make": "what continuous integration runs", "QuillaTarn.exe": "forms, tried by command_line_test",
            "nbd://": "an example", "quilla create": "mounts, tried by tests/linux", "wnbd-client": "needs Windows",
            "modprobe": "needs a kernel with the module nbd"}


def blocks():
    """Each block of commands, of both documents."""
    readme = (quilla.ROOT / "README.md").read_text()
    for block in re.findall(r"(?:^    \S.*\n)+", readme, re.M):
        yield re.sub(r"(?m)^    ", "", block)
    page = (quilla.ROOT / "ui" / "Quilla.htm").read_text()
    for block in re.findall(r"<pre><code>(.*?)</code></pre>", page, re.S):
        yield html.unescape(block) + "\n"


class PrintedCommandsTest(unittest.TestCase):

    def setUp(self):
        self.desktop = self.enterContext(quilla.Desktop())
        self.home = self.desktop.work / "home"
        self.home.mkdir()
        (self.home / ".wine").symlink_to(self.desktop.prefix)
        (self.home / "letter.txt").write_bytes(LETTER)

    def paste(self, text):
        """All lines of a block into one shell, which ends with the first that fails."""
        result = subprocess.run(["bash", "-e"], input=text, text=True, cwd=self.home, timeout=60, check=False,
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                env=self.desktop.environment | {"HOME": str(self.home)})
        self.assertEqual(result.returncode, 0, f"{text}\n{result.stdout}")

    def test_each_block_does_what_it_says(self):
        volume = quilla.Volume(self.desktop.work, "Printed", 8 * MIB, quilla.CIPHER_TWOFISH)
        oracle.make_files(volume)
        self.desktop.start_serving()
        self.desktop.mount(volume)
        uri, count = "", 0
        for block in blocks():
            if any(block.startswith(start) for start in NOT_HERE):
                continue
            # A machine that starts from the volume runs until it is switched off.
            lines = [line for line in block.splitlines(True) if not line.startswith("qemu-system")]
            if lines[0].startswith("URI="):
                uri = lines[0]
            else:
                lines.insert(0, uri)
            self.paste("".join(lines))
            count += 1
        self.assertEqual(count, 4, "a block is new, or gone: say in NOT_HERE why it is not run")
        for copy in ("image.bin", "copy.img"):
            self.assertEqual((self.home / copy).stat().st_size, 8 * MIB)
        told = self.desktop.tool("mtype", "-i", str(self.home / "copy.img"), "::letter.txt")
        self.assertEqual(told.encode(), LETTER)
        self.desktop.dismount(volume)


if __name__ == "__main__":
    unittest.main(verbosity=2)
