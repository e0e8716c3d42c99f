"""Runs the native command from outside. A script that cannot run here says why and ends with SKIPPED."""

import json
import os
import pathlib
import pty
import select
import shutil
import subprocess
import sys
import tempfile
import time
import unittest

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / "tools" / "desk"))

PROGRAM = os.path.abspath(os.environ.get("QUILLA", pathlib.Path(__file__).resolve().parents[2] / "build/linux/bin/quilla"))
SKIPPED = 77
DONE, USAGE, WRONG_PASSWORD, BAD_FILE, BUSY, SYSTEM_LACKS = range(6)
MIB = 1 << 20
PASSWORD = "Grüße 97531 \U0001f511"
NOBODY = 65534
RECORD = 4096
# The leak check of a sanitized build traces the process, which the program forbids.
ENVIRONMENT = dict(os.environ, ASAN_OPTIONS="detect_leaks=0", PATH=os.environ["PATH"] + ":/usr/sbin:/sbin")


def skip_unless(root=False, user=False, tools=()):
    """Ends the script with its reason where the system cannot do what it is about."""
    reason = None
    if root and os.geteuid() != 0:
        reason = "needs root"
    elif not os.path.exists("/dev/fuse"):
        reason = "needs /dev/fuse"
    elif root and not os.path.exists("/dev/loop-control"):
        reason = "needs loop devices"
    elif user and os.geteuid() != 0:
        reason = "needs root, to become another user"
    else:
        missing = [tool for tool in tools if not shutil.which(tool, path=ENVIRONMENT["PATH"])]
        if missing:
            reason = "not installed: " + ", ".join(missing)
    if reason is None and root:
        probe = subprocess.run(["unshare", "-m", "true"], capture_output=True, check=False)
        if probe.returncode:
            reason = "may not mount here"
    if reason:
        print(f"SKIPPED: {reason}", flush=True)
        sys.exit(SKIPPED)


def wait_until(condition, what, limit=20):
    end = time.monotonic() + limit
    while not condition():
        if time.monotonic() > end:
            raise AssertionError(f"waited {limit} s for {what}")
        time.sleep(0.02)


class CommandTest(unittest.TestCase):
    """Every case has a folder of its own and leaves nothing mounted."""

    user = None  # who runs the command: None = whoever runs the test

    def setUp(self):
        self.folder = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="quilla-test-")))
        if self.user is not None:
            os.chown(self.folder, self.user, self.user)
            self.folder.chmod(0o700)
        self.raw = self.folder / "Private.raw"
        self.key = self.folder / "Private.key"
        self.place = self.folder / "Private"

    def enterContext(self, context):
        value = context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        return value

    def tearDown(self):
        for state in self.mounted():
            if str(self.folder) in state["volume"] + state["place"]:
                self.quilla("dismount", state["volume"], "--force")

    def run_as(self, *words, **options):
        if self.user is not None:
            words = ("setpriv", f"--reuid={self.user}", f"--regid={self.user}", "--clear-groups", *words)
        return subprocess.run([str(word) for word in words], text=True, capture_output=True, check=False, timeout=120,
                              env=dict(ENVIRONMENT, XDG_RUNTIME_DIR=""), **options)

    def quilla(self, *words, code=None, passwords=None):
        """Runs the command; with passwords, they come on its standard input."""
        extra = ["--password-file", "-"] if passwords is not None else []
        lines = "".join(f"{password}\n" for password in passwords or ())
        result = self.run_as(PROGRAM, *words, *extra, input=lines)
        if code is not None:
            self.assertEqual(result.returncode, code, result.stderr)
        return result

    def type_at_terminal(self, words, lines):
        """Runs the command on a terminal of its own and answers its questions; returns exit code and screen."""
        process, terminal = pty.fork()
        if process == 0:
            os.execve(PROGRAM, [PROGRAM, *map(str, words)], ENVIRONMENT)
        screen = b""
        waiting = list(lines)
        while True:
            if not select.select([terminal], [], [], 20)[0]:
                self.fail(f"the command waits: {screen!r}")
            try:
                piece = os.read(terminal, 1024)
            except OSError:
                break
            if not piece:
                break
            screen += piece
            if waiting and screen.rstrip(b" ").endswith(b":"):
                os.write(terminal, waiting.pop(0).encode() + b"\n")
        os.close(terminal)
        return os.waitstatus_to_exitcode(os.waitpid(process, 0)[1]), screen.decode()

    def create(self, *options, size="64M", strength=("--no-strength",)):
        """Mostly without strength: under a sanitizer each password would take seconds."""
        self.quilla("create", self.raw, "--size", size, *strength, *options, passwords=[PASSWORD], code=DONE)

    def mount(self, *options, code=DONE, password=PASSWORD):
        return self.quilla("mount", self.raw, *options, passwords=[password], code=code)

    def dismount(self, *options, code=DONE):
        return self.quilla("dismount", self.raw, *options, code=code)

    def mounted(self):
        result = self.quilla("list", "--json")
        return json.loads(result.stdout) if result.returncode == DONE else []

    def state(self):
        return next((state for state in self.mounted() if state["volume"] == str(self.raw)), None)

    def write_until_it_fails(self, acknowledged):
        """Appends numbered records and syncs each; what has been synced is noted."""
        number = 0
        try:
            with open(self.place / "journal", "wb", buffering=0) as file:
                while True:
                    file.write(number.to_bytes(8, "little") * (RECORD // 8))
                    os.fsync(file.fileno())
                    acknowledged.append(number)
                    number += 1
        except OSError:
            pass

    def assert_kept(self, acknowledged):
        """After a crash: the file system is clean, and what was acknowledged is there. Leaves the volume mounted."""
        checked = self.folder / "checked"
        self.quilla("mount", self.raw, checked, "--raw", passwords=[PASSWORD], code=DONE)
        plain = checked / "Private"
        # The first run replays the journal, the second must find nothing.
        replay = self.run_as("e2fsck", "-p", plain)
        self.assertLess(replay.returncode, 4, replay.stdout)
        clean = self.run_as("e2fsck", "-fn", plain)
        self.assertEqual(clean.returncode, 0, clean.stdout)
        self.quilla("dismount", checked, code=DONE)
        self.quilla("mount", self.raw, self.place, passwords=[PASSWORD], code=DONE)
        data = (self.place / "journal").read_bytes()
        for number in acknowledged:
            self.assertEqual(data[number * RECORD:(number + 1) * RECORD], number.to_bytes(8, "little") * (RECORD // 8))


def main():
    program = unittest.main(module="__main__", exit=False, verbosity=2)
    sys.exit(not program.result.wasSuccessful())
