#!/usr/bin/env python3
"""A volume file on another computer, that of sshfs over the loopback interface, and what happens when that goes away in
the middle of writing: errors reach the writer, what was acknowledged is there, and nothing hangs."""

import getpass
import os
import pathlib
import signal
import socket
import subprocess
import threading
import time

import command
from command import BAD_FILE, BUSY, DONE

LIMIT = 30  # seconds for everything that has to end by itself


class Server:
    """An SSH server of the test's own, with keys of its own, that serves one user until it is cut off."""

    def __init__(self, folder):
        self.folder = folder
        for name in ("host", "user"):
            subprocess.run(["ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", folder / name], check=True)
        with socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            self.port = free.getsockname()[1]
        self.config = folder / "sshd_config"
        self.config.write_text(f"Port {self.port}\nListenAddress 127.0.0.1\nHostKey {folder}/host\nUsePAM no\n"
                               f"AuthorizedKeysFile {folder}/user.pub\nStrictModes no\nPidFile none\n"
                               "PermitRootLogin prohibit-password\nSubsystem sftp internal-sftp\n", encoding="ascii")
        pathlib.Path("/run/sshd").mkdir(exist_ok=True)
        self.process = None

    def start(self):
        self.process = subprocess.Popen(["/usr/sbin/sshd", "-D", "-q", "-f", self.config])
        command.wait_until(self.answers, "the SSH server")

    def answers(self):
        with socket.socket() as probe:
            return probe.connect_ex(("127.0.0.1", self.port)) == 0

    def cut_off(self):
        """Ends the server and its connections, as a computer does that loses its power."""
        waiting = [self.process.pid] if self.process else []
        for process in waiting:
            children = pathlib.Path(f"/proc/{process}/task/{process}/children")
            waiting += [int(child) for child in children.read_text(encoding="ascii").split()]
            os.kill(process, signal.SIGSTOP)  # starts no others
        for process in waiting:
            os.kill(process, signal.SIGKILL)
        if self.process:
            self.process.wait()
        self.process = None

    def mount(self, source, place):
        options = [f"port={self.port}", f"IdentityFile={self.folder}/user", "UserKnownHostsFile=/dev/null",
                   "StrictHostKeyChecking=no", "LogLevel=ERROR"]
        subprocess.run(["sshfs", f"{getpass.getuser()}@127.0.0.1:{source}", place, "-o", ",".join(options)], check=True,
                       timeout=LIMIT)


class Network(command.CommandTest):

    def setUp(self):
        super().setUp()
        self.there, self.here = self.folder / "there", self.folder / "here"
        self.there.mkdir()
        self.here.mkdir()
        self.raw, self.key = self.here / "Private.raw", self.here / "Private.key"
        self.server = Server(self.folder)
        self.connect()
        self.addCleanup(self.server.cut_off)

    def connect(self):
        self.server.start()
        self.server.mount(self.there, self.here)
        self.addCleanup(subprocess.run, ["umount", "-l", self.here], capture_output=True, check=False)

    def test_the_server_goes_away_in_the_middle_of_writing(self):
        self.create("--format", "ext4")
        self.mount(self.place)
        acknowledged = []
        writer = threading.Thread(target=self.write_until_it_fails, args=(acknowledged,))
        writer.start()
        time.sleep(1)
        self.server.cut_off()
        writer.join(LIMIT)
        self.assertFalse(writer.is_alive(), "a write hangs")
        self.assertTrue(acknowledged)
        begin = time.monotonic()
        self.assertIn("data may be lost", self.dismount(code=BAD_FILE).stderr)
        self.assertLess(time.monotonic() - begin, LIMIT)
        self.assertFalse(os.path.ismount(self.place))
        subprocess.run(["umount", "-l", self.here], capture_output=True, check=False)  # if sshfs has not done it
        self.connect()
        self.assert_kept(acknowledged)
        self.quilla("dismount", self.place, code=DONE)

    def test_force_frees_all_that_wait_for_a_disk_that_hangs(self):
        self.create("--format", "ext4")
        self.mount(self.place)
        acknowledged = []
        writer = threading.Thread(target=self.write_until_it_fails, args=(acknowledged,))
        writer.start()
        command.wait_until(lambda: acknowledged, "the first write")
        service = self.state()["process"]
        disk = self.file_system_process()
        os.kill(disk, signal.SIGSTOP)
        try:
            time.sleep(1)
            self.assertIn(f"{os.getpid()} ", self.quilla("dismount", self.place, code=BUSY).stderr)
            begin = time.monotonic()
            self.assertIn(f"process {service}", self.quilla("dismount", self.place, "--force", code=BUSY).stderr)
            writer.join(LIMIT)
            self.assertFalse(writer.is_alive(), "a write hangs")
            self.assertLess(time.monotonic() - begin, LIMIT)
            self.assertFalse(os.path.ismount(self.place))
        finally:
            os.kill(disk, signal.SIGCONT)
        command.wait_until(lambda: not os.path.exists(f"/proc/{service}"), "the service to end with its disk's answer")
        self.assert_kept(acknowledged)
        self.quilla("dismount", self.place, code=DONE)

    def file_system_process(self):
        """The sshfs that serves the folder."""
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (folder / "cmdline").read_bytes().split(b"\0")
            except OSError:
                continue
            if words[0] == b"sshfs" and str(self.here).encode() in words:
                return int(folder.name)
        raise AssertionError("no sshfs")


if __name__ == "__main__":
    command.skip_unless(root=True, tools=("mkfs.ext4", "e2fsck", "sshfs", "sshd", "ssh-keygen"))
    command.main()
