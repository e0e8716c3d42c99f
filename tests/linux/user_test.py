#!/usr/bin/env python3
"""The command without root: fusermount3, the plain file, ext4 by fuse2fs."""

import json
import os
import pathlib
import shutil
import signal
import subprocess
import unittest

import command
from command import BUSY, MIB, USAGE


class User(command.CommandTest):

    user = command.NOBODY

    def setUp(self):
        super().setUp()
        os.chmod("/dev/fuse", 0o666)  # as udev does it, which not every container runs
        # The user may not look into the folder of the build.
        program = self.enterContext(command.tempfile.TemporaryDirectory(prefix="quilla-program-"))
        os.chmod(program, 0o755)
        self.program = shutil.copy(command.PROGRAM, program)

    def quilla(self, *words, code=None, passwords=None):
        before, command.PROGRAM = command.PROGRAM, getattr(self, "program", command.PROGRAM)
        try:
            return super().quilla(*words, code=code, passwords=passwords)
        finally:
            command.PROGRAM = before

    def test_a_plain_file(self):
        self.create(size="8M")
        self.mount(self.place, "--raw")
        data = os.urandom(MIB)
        source = self.folder / "data"
        source.write_bytes(data)
        source.chmod(0o644)
        self.assertEqual(self.run_as("dd", f"if={source}", f"of={self.place}/Private", "bs=64K", "conv=notrunc,fsync").returncode, 0)
        self.dismount()
        self.mount("--raw")
        self.assertEqual(self.run_as("cmp", "-n", str(MIB), source, self.place / "Private").returncode, 0)
        self.dismount()

    def test_an_nbd_export(self):
        self.create(size="8M")
        self.mount(self.place, "--nbd", code=USAGE)
        uri = self.mount("--nbd").stdout.strip()
        socket = pathlib.Path(uri.removeprefix("nbd+unix:///?socket="))
        self.assertEqual(socket.stat().st_mode & 0o777, 0o600)
        source, back = self.folder / "source", self.folder / "back"
        source.write_bytes(os.urandom(8 * MIB))
        source.chmod(0o644)
        for words in ((source, uri), (uri, back)):
            self.assertEqual(self.run_as("nbdcopy", *words).returncode, 0)
        self.assertEqual(back.read_bytes(), source.read_bytes())
        with subprocess.Popen(["nbdkit", "-f", "-U", self.folder / "other", "nbd", f"uri={uri}", "shared=1"]) as client:
            command.wait_until(lambda: self.state()["clients"] == 1, "the client")
            self.assertIn(f"{client.pid} nbdkit", self.dismount(code=BUSY).stderr)
            client.terminate()
        command.wait_until(lambda: self.state()["clients"] == 0, "the client to go")
        self.dismount()
        self.assertFalse(socket.exists())
        self.mount("--nbd", "--read-only")
        self.assertIn("is_read_only: true", self.run_as("nbdinfo", uri).stdout)
        os.kill(self.state()["process"], signal.SIGTERM)
        command.wait_until(lambda: self.state() is None, "the service to end")

    def test_ext4_by_fuse2fs(self):
        self.create("--format", "ext4")
        self.mount()
        letter = self.place / "letter"
        self.assertEqual(self.run_as("dd", "if=/dev/urandom", f"of={letter}", "bs=1M", "count=8", "conv=fsync").returncode, 0)
        before = self.run_as("sha1sum", letter).stdout
        keeper = subprocess.Popen(["setpriv", f"--reuid={self.user}", f"--regid={self.user}", "--clear-groups",
                                   "sh", "-c", 'cd "$0" && echo there && exec sleep 60', self.place], stdout=subprocess.PIPE)
        keeper.stdout.readline()
        try:
            self.assertIn("sleep", self.dismount(code=BUSY).stderr)
        finally:
            keeper.kill()
            keeper.communicate()
        self.dismount()
        self.mount()
        self.assertEqual(self.run_as("sha1sum", letter).stdout, before)
        self.dismount()

    def test_a_journal_that_was_left_is_replayed_first(self):
        """fuse2fs alone cannot, and ends after it has said that it has mounted."""
        self.create("--format", "ext4")
        as_root = [command.PROGRAM, "mount", self.raw, self.place, "--password-file", "-"]
        subprocess.run(as_root, input=command.PASSWORD.encode(), check=True, stdout=subprocess.DEVNULL, env=command.ENVIRONMENT)
        with open(self.place / "letter", "wb", buffering=0) as file:
            file.write(b"dear" * 1000)
            os.fsync(file.fileno())
            told = subprocess.run([command.PROGRAM, "list", "--json"], capture_output=True, check=True, env=command.ENVIRONMENT)
            service = next(state for state in json.loads(told.stdout) if state["volume"] == str(self.raw))["process"]
            os.kill(service, signal.SIGKILL)
        subprocess.run([command.PROGRAM, "dismount", self.raw], capture_output=True, check=False, env=command.ENVIRONMENT)
        self.place.rmdir()
        self.mount()
        self.assertEqual(self.run_as("head", "-c", "8", self.place / "letter").stdout, "deardear")
        self.dismount()

    @unittest.skipUnless(shutil.which("fusefat"), "not installed: fusefat")
    def test_fat_by_fusefat(self):
        self.create("--format", "fat")
        self.mount()
        data = self.folder / "data"
        data.write_bytes(os.urandom(MIB))
        data.chmod(0o644)
        self.assertEqual(self.run_as("cp", data, self.place / "copy").returncode, 0)
        self.dismount()
        self.mount("--read-only")
        self.assertEqual(self.run_as("cmp", data, self.place / "copy").returncode, 0)
        self.dismount()


if __name__ == "__main__":
    command.skip_unless(user=True, tools=("fusermount3", "fuse2fs", "mkfs.ext4", "nbdcopy", "nbdinfo", "nbdkit", "setpriv"))
    command.main()
