"""A list of a thousand volumes: the start, a mount and a change of the list, timed.

QUILLA_LONG_RUN compares lists of 100, 1,000 and 2,000.
"""

import os
import time
import unittest

import oracle
import quilla

SIZES = (100, 1000, 2000) if "QUILLA_LONG_RUN" in os.environ else (1000,)
VOLUMES_KEY = r"HKEY_CURRENT_USER\Software\Orvane\Quilla\Volumes"
IDM_CLOSE = 1003
WM_KEYDOWN, VK_HOME, VK_SPACE = 0x0100, 0x24, 0x20


def processor_seconds(process):
    with open(f"/proc/{process.pid}/stat", encoding="ascii") as file:
        fields = file.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


class ScaleTest(quilla.DesktopTest):

    def write_list(self, count):
        """Puts volumes into the registry whose files do not exist."""
        file = self.folder / "list.reg"
        with open(file, "w", encoding="ascii") as out:
            print(f"REGEDIT4\n\n[{VOLUMES_KEY}]", file=out)
            for i in range(count):
                print(f'"Z:\\\\nowhere\\\\Volumes of a user\\\\Volume {i}.raw"=""', file=out)
        self.desktop.tool("wine", "reg", "delete", VOLUMES_KEY, "/f", check=False)
        self.desktop.tool("wine", "regedit", "/s", str(file))

    def listed(self):
        return self.desktop.tool("wine", "reg", "query", VOLUMES_KEY).count(".raw")

    def clock(self, work, *arguments):
        start = time.monotonic()
        result = work(*arguments)
        return result, time.monotonic() - start

    def start_visible(self):
        program = self.desktop.start_serving()
        quilla.wait_until(self.desktop.is_visible, "the window to be shown")
        return program

    def test_long_lists(self):
        volume = self.volume()
        oracle.make_files(volume)
        for count in SIZES:
            self.write_list(count)
            program, start = self.clock(self.start_visible)
            busy = processor_seconds(program)
            _, mount = self.clock(self.desktop.mount, volume)
            self.desktop.dismount(volume)
            for key in (VK_HOME, VK_SPACE):
                self.desktop.send(WM_KEYDOWN, key, child="SysListView32")
            _, save = self.clock(self.desktop.send, quilla.WM_COMMAND, IDM_CLOSE)
            _, end = self.clock(self.desktop.close, program)
            print(f"\n  {count} volumes: shown after {start:.2f} s ({busy:.2f} s of a processor), mount {mount:.2f} s, "
                  f"save {save:.2f} s, end {end:.2f} s")
            self.assertEqual(self.listed(), count, "one volume was closed, and the mounted one is new")
            self.assertLess(max(start, mount, save, end), 15)


if __name__ == "__main__":
    unittest.main(verbosity=2)
