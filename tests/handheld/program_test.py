#!/usr/bin/env python3
"""program_test.py ROOT FOLDER: runs the program's image of the handheld with the 32-bit Wine of a root (tools/make-wine32-root).
FOLDER holds QuillaTarn.exe, QuillaDriver.dll and the tests' coredll.dll. Volumes are mounted by a second instance and in the
dialogs, by keystrokes: mounting loads the driver's image through RegisterDevice, and what is written through its control codes,
by the block device export of the desktop, has to lie in the data file as nettle enciphers it."""

import os
import pathlib
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "tools/desk"))
import hands  # noqa: E402
import oracle  # noqa: E402
import quilla  # noqa: E402

LIMIT = 180  # in an emulator everything takes its time
PASSWORD = "97531"
SIZE = 1 << 20

# Whose programs of x86 the machine does not run itself, they run in an emulator, for these processes only. It is open from
# the registration on (F), so the root does not have to hold it. The kernel expands the bytes of the ELF header and its mask.
PREPARE = r"""
read -r pid rest </proc/self/stat && echo "$pid" && mount -t proc proc "$1/proc"
if [ -e "$1/qemu-i386" ]; then
    mount -t binfmt_misc none "$1/proc/sys/fs/binfmt_misc"
    printf '%s%s%s%s' ':i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00' \
        ':\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff' ":$1/qemu-i386" ':F' \
        >"$1/proc/sys/fs/binfmt_misc/register"
fi
Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp 3>&1 >/dev/null 2>&1 &
exec cat"""


class Machine:
    """Wine and a screen with name spaces of their own: all processes end with them."""

    def __init__(self, root):
        self.root = root
        self.folder = root / "opt/quilla"
        self.keeper = subprocess.Popen(["unshare", "-r", "-m", "-p", "-f", "--kill-child", "sh", "-ec", PREPARE, "sh", root],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.pid, display = (self.keeper.stdout.readline().strip() for _ in range(2))
        assert display, "there are no name spaces for users here, or no screen"
        self.environment = {**os.environ, "DISPLAY": f":{display}", "HOME": "/root", "WINEPREFIX": "/root/prefix", "WINEDEBUG":
                            "-all", "WINEDLLOVERRIDES": "mscoree,mshtml=", "WINESERVER": "/usr/lib/wine/wineserver32"}
        if not (root / "root/prefix/system.reg").exists():
            self.start("wineboot", "-i").wait(300)

    def start(self, *words):
        return subprocess.Popen(["nsenter", "-t", self.pid, "-U", "--preserve-credentials", "-m", "-p", "chroot", self.root,
                                 "/usr/lib/wine/wine", *words], env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def start_program(self, *words):
        return self.start("/opt/quilla/QuillaTarn.exe", *words)

    def run_program(self, *words):
        code = self.start_program(*words).wait(LIMIT)
        assert code == 0, f"{words[0]} ended with {code}"

    def tool(self, *words, check=True):
        return subprocess.run(words, env=self.environment, check=check, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=LIMIT).stdout

    def address_file(self):
        return next(self.root.glob("root/prefix/drive_c/users/*/AppData/Local/Quilla Tarn/SEC0.uri"), None)

    def close(self):
        self.keeper.stdin.close()
        self.keeper.wait(LIMIT)


class Screen(hands.Hands):
    """Without a window manager, which would hand on the keyboard."""

    def find(self, title):
        """The visible window of a title, nothing, or a complaint: another may go while they are looked through."""
        return self.tool("search", "--onlyvisible", "--name", f"^{title}$")

    def has_keyboard(self, title):
        window = self.find(title)
        self.tool("windowfocus", window)
        return window.isdecimal() and self.tool("getwindowfocus") == window

    def enter(self, title):
        """Return, which ends the window of this title."""
        self.keys("Return")
        quilla.wait_until(lambda: not self.find(title), f'"{title}" to end', LIMIT)


def check_data(machine, raw, cipher, master):
    """Writes all of the mounted volume, compares and dismounts it."""
    address = quilla.wait_until(machine.address_file, "the mounted volume", LIMIT).read_text().strip()
    plain, image = os.urandom(SIZE), machine.folder / "plain"
    image.write_bytes(plain)
    machine.tool("nbdcopy", "--flush", image, address)
    sectors = oracle.SectorCipher(cipher, master[:32])
    wanted = b"".join(sectors.crypt("encrypt", n, plain[n * 512:n * 512 + 512]) for n in range(SIZE // 512))
    assert raw.read_bytes() == wanted, "the data file is not enciphered as it should be"
    machine.tool("nbdcopy", address, image)
    assert image.read_bytes() == plain, "what was read is not what was written"
    machine.run_program("dismount", in_machine(raw))
    quilla.wait_until(lambda: not machine.address_file(), "the dismount", LIMIT)


def in_machine(path):
    return rf"Z:\opt\quilla\{path.name}"


def check_commands(machine, screen):
    for cipher in (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH):
        volume = quilla.Volume(machine.folder, f"v{cipher}", SIZE, cipher)
        master = oracle.make_files(volume)
        machine.run_program("mount", in_machine(volume.raw), "/password", volume.password)
        check_data(machine, volume.raw, cipher, master)
        print(f"{quilla.CIPHER_NAMES[cipher]}: mounted by a second instance, written, read and dismounted, as nettle has it")
    instance = machine.start_program("mount", in_machine(volume.raw), "/password", "97532")
    screen.expect("Quilla Tarn Error")
    screen.enter("Quilla Tarn Error")
    assert instance.wait(LIMIT) == 255 and not machine.address_file()
    print("a second instance tells of a wrong password and mounts nothing")


def check_dialogs(machine, screen):
    volume = quilla.Volume(machine.folder, "New", SIZE, quilla.CIPHER_TWOFISH)
    screen.expect("Quilla Tarn")
    screen.keys("Insert")
    screen.expect("New")
    screen.type(in_machine(volume.raw).removesuffix(".raw"))
    screen.keys("Tab")
    screen.replace("1")
    screen.keys("Tab", "M", "Tab", "T", "Tab", "Tab")
    screen.type(volume.password)
    screen.enter("New")
    assert volume.raw.stat().st_size == SIZE
    master, _, timeout = oracle.parse_key_file(volume.key.read_bytes(), volume.cipher, volume.password)
    assert timeout == volume.timeout
    print("New by its dialog: the files are there, and the oracle opens the key file")
    screen.expect("Quilla Tarn")
    screen.keys("Return")
    screen.expect("Mount")
    screen.type("97532")
    screen.keys("Return")
    screen.expect("Quilla Tarn Error")
    assert not machine.address_file()
    screen.enter("Quilla Tarn Error")
    screen.expect("Mount")
    screen.replace(volume.password)
    screen.enter("Mount")
    check_data(machine, volume.raw, volume.cipher, master)
    print("Mount by its dialog: a wrong password is told, and the right one mounts")


def main():
    root, images = (pathlib.Path(word).resolve() for word in sys.argv[1:3])
    machine = Machine(root)
    shutil.rmtree(machine.folder, ignore_errors=True)
    machine.folder.mkdir(parents=True)
    for name in ("QuillaTarn.exe", "QuillaDriver.dll", "coredll.dll"):
        shutil.copy(images / name, machine.folder)
    screen = Screen(machine, images.parent, LIMIT)
    try:
        program = machine.start_program()
        screen.expect("Quilla Tarn")
        print("the window is there")
        check_commands(machine, screen)
        check_dialogs(machine, screen)
        screen.expect("Quilla Tarn")
        screen.keys("F10", "Down", "Up", "Return")
        assert program.wait(LIMIT) == 0
        print("File > Exit ends it")
    finally:
        machine.close()


if __name__ == "__main__":
    main()
