#!/usr/bin/env python3
"""program_test.py ROOT FOLDER: runs the program's image of the handheld in a 32-bit root with Wine (tools/make-wine32-root; needs root).
FOLDER holds QuillaTarn.exe, QuillaDriver.dll and the tests' coredll.dll. A second instance hands on its commands: mounting
loads the driver's image through RegisterDevice; what is written through its control codes, by the block device export of the
desktop, has to lie in the data file as nettle enciphers it."""

import os
import pathlib
import shutil
import subprocess
import sys
import time

HERE = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent.parent / "tools/desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

LIMIT = 60
PASSWORD = "97531"
SIZE = 1 << 20
ENVIRONMENT = {"HOME": "/root", "WINEPREFIX": "/root/prefix", "WINEDEBUG": "-all", "DISPLAY": ":77", "WINEDLLOVERRIDES":
               "mscoree,mshtml=", "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
URI = "root/prefix/drive_c/users/root/AppData/Local/Quilla Tarn/SEC0.uri"


class Machine:
    """The root with its own processes, which end with it."""

    def __init__(self, root):
        self.root = root
        self.shell = subprocess.Popen(["unshare", "-m", "-p", "-f", "--kill-child", "chroot", root, "bash"],
                                      stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True, env=ENVIRONMENT)
        self.run("mount -t proc proc /proc; cd /opt/quilla; rm -f /tmp/.X77-lock; Xvfb :77 -screen 0 640x480x24 >/dev/null 2>&1 & sleep 1")
        self.run("[ -d $WINEPREFIX ] || timeout 120 wine wineboot -i >/dev/null 2>&1")

    def run(self, command):
        """The last line that a command prints, and its exit code."""
        self.shell.stdin.write(f"{command}\necho; echo done $?\n" if command.endswith("& sleep 1") else
                               f"{command} </dev/null; code=$?; echo; echo done $code\n")
        self.shell.stdin.flush()
        last = ""
        for line in self.shell.stdout:
            if line.startswith("done "):
                return last, int(line.split()[1])
            last = line.strip() or last
        raise AssertionError(f"the machine ended in {command}")

    def close(self):
        self.shell.stdin.close()
        self.shell.wait(LIMIT)


def await_file(path, exists=True):
    end = time.monotonic() + LIMIT
    while path.exists() != exists:
        assert time.monotonic() < end, f"{path} does not {'come' if exists else 'go'}"
        time.sleep(0.05)


def check_volume(machine, folder, cipher):
    name = quilla.CIPHER_NAMES[cipher]
    raw, key_file = folder / f"v{cipher}.raw", folder / f"v{cipher}.key"
    raw.write_bytes(bytes(SIZE))
    master = os.urandom(128)
    key_file.write_bytes(oracle.build_key_file(cipher, PASSWORD, master, os.urandom(20), 0))
    uri = machine.root / URI
    words = rf"Z:\\opt\\quilla\\{raw.name}"
    _, code = machine.run(f"timeout {LIMIT} wine QuillaTarn.exe mount {words} /password {PASSWORD}")
    assert code == 0, f"mount ended with {code}"
    await_file(uri)
    plain = os.urandom(SIZE)
    image = folder / "plain"
    image.write_bytes(plain)
    address = uri.read_text().strip()
    subprocess.run(["nbdcopy", "--flush", image, address], check=True, timeout=LIMIT)
    sectors = oracle.SectorCipher(cipher, master[:32])
    wanted = b"".join(sectors.crypt("encrypt", n, plain[n * 512:n * 512 + 512]) for n in range(SIZE // 512))
    assert raw.read_bytes() == wanted, "the data file is not enciphered as it should be"
    back = folder / "back"
    subprocess.run(["nbdcopy", address, back], check=True, timeout=LIMIT)
    assert back.read_bytes() == plain, "what was read is not what was written"
    _, code = machine.run(f"timeout {LIMIT} wine QuillaTarn.exe dismount {words}")
    assert code == 0, f"dismount ended with {code}"
    await_file(uri, exists=False)
    print(f"{name}: mounted by a second instance, written, read and dismounted, as nettle has it")


def check_wrong_password(machine, folder):
    """The volume of the last cipher stays what it was, and the second instance says -1."""
    result = machine.root / "tmp/code"
    result.unlink(missing_ok=True)
    words = rf"Z:\\opt\\quilla\\v{quilla.CIPHER_TWOFISH}.raw"
    machine.run(f"(timeout {LIMIT} wine QuillaTarn.exe mount {words} /password 97532; echo $? >/tmp/code.part; mv /tmp/code.part /tmp/code) & sleep 1")
    box, code = machine.run(f"timeout {LIMIT} xdotool search --sync --onlyvisible --name '^Quilla Tarn Error$'")
    assert code == 0, "no box tells of the wrong password"
    machine.run(f"xdotool windowfocus {box} key Return")
    await_file(result)
    assert result.read_text().strip() == "255" and not (machine.root / URI).exists()
    print("a wrong password is told and mounts nothing")


def main():
    root, images = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    folder = root / "opt/quilla"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name in ("QuillaTarn.exe", "QuillaDriver.dll", "coredll.dll"):
        shutil.copy(images / name, folder)
    machine = Machine(root)
    try:
        machine.run("timeout 300 wine QuillaTarn.exe >/dev/null 2>&1 & sleep 1")
        window, code = machine.run(f"timeout {LIMIT} xdotool search --sync --onlyvisible --name '^Quilla Tarn$'")
        assert code == 0, "the window does not come"
        print("the window is there")
        for cipher in (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH):
            check_volume(machine, folder, cipher)
        check_wrong_password(machine, folder)
        # New by the keyboard: a dialog comes, and goes with Escape.
        machine.run(f"xdotool windowfocus {window} mousemove 200 250 click 1 key Insert")
        dialog, code = machine.run(f"timeout {LIMIT} xdotool search --sync --onlyvisible --name '^New$'")
        assert code == 0, "New opens no dialog"
        machine.run("xdotool key Escape")
        print("New opens its dialog")
        machine.run(f"sleep 1; xdotool windowfocus {window} mousemove 18 32 click 1 sleep 0.5 key Up sleep 0.2 key Return")
        _, code = machine.run("for i in $(seq 100); do grep -l [Q]uillaTarn /proc/[0-9]*/cmdline >/dev/null 2>&1 || break; "
                              "sleep 0.1; done; [ $i -lt 100 ]")
        assert code == 0, "the program does not end"
        print("File > Exit ends it")
    finally:
        machine.close()


if __name__ == "__main__":
    main()
