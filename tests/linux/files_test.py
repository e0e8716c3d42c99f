#!/usr/bin/env python3
"""What the command does to files, checked with nettle: creation, passwords, what it tells and refuses."""

import json
import os
import pathlib
import random
import resource
import subprocess
import sys
import time

import command
from command import BAD_FILE, DONE, PASSWORD, SYSTEM_LACKS, USAGE, WRONG_PASSWORD

import oracle
import quilla

MINUTE_UNITS = 600_000_000


class Files(command.CommandTest):

    def test_creates_what_the_other_edition_reads(self):
        for cipher, number in (("twofish", quilla.CIPHER_TWOFISH), ("cast128", quilla.CIPHER_CAST128)):
            raw, key = self.folder / f"{cipher}.raw", self.folder / f"{cipher}.key"
            self.quilla("create", raw, "--size", "1M", "--cipher", cipher, "--timeout", "7", "--no-strength",
                        passwords=[PASSWORD], code=DONE)
            master, iv, timeout = oracle.parse_key_file(key.read_bytes(), number, PASSWORD)
            self.assertEqual(raw.stat().st_size, 1 << 20)
            self.assertEqual(key.stat().st_mode & 0o777, 0o600)
            self.assertEqual(timeout, 7 * MINUTE_UNITS)
            self.quilla("check", raw, passwords=[PASSWORD], code=DONE)
            self.quilla("check", raw, passwords=[PASSWORD + "!"], code=WRONG_PASSWORD)
            old = key.read_bytes()
            self.quilla("passwd", raw, passwords=["wrong", "x"], code=WRONG_PASSWORD)
            self.assertEqual(key.read_bytes(), old)
            self.quilla("passwd", raw, passwords=[PASSWORD, ""], code=DONE)
            same, fresh, _ = oracle.parse_key_file(key.read_bytes(), number, "")
            self.assertEqual(same, master)
            self.assertNotEqual(fresh, iv)

    def test_strength_comes_stays_and_goes(self):
        def guessing():
            return json.loads(self.quilla("info", self.raw, "--json", code=DONE).stdout)["guessing"]

        self.create(size="1M", strength=())
        self.assertEqual(guessing(), "slowed down (64 MiB, 3 passes, 4 lanes)")
        strong = self.key.read_bytes()
        self.assertEqual(len(strong), 824)
        self.quilla("passwd", self.raw, "--no-strength", passwords=[PASSWORD, "b"], code=DONE)
        self.assertEqual((guessing(), self.key.stat().st_size), ("fast", 760))
        self.quilla("check", self.raw, passwords=["b"], code=DONE)
        self.quilla("passwd", self.raw, "--strength", "0.001", passwords=["b", "c"], code=DONE)
        self.assertEqual(guessing(), "slowed down (64 MiB, 1 passes, 4 lanes)")
        self.quilla("passwd", self.raw, passwords=["c", "d"], code=DONE)
        self.assertEqual(guessing(), "slowed down (64 MiB, 1 passes, 4 lanes)")
        self.assertNotEqual(self.key.read_bytes()[776:808], strong[776:808], "a new salt each time")
        oracle.parse_key_file(self.key.read_bytes(), quilla.CIPHER_TWOFISH, "d")
        self.key.write_bytes(strong[:-4] + b"\2\0\0\0")
        self.quilla("check", self.raw, passwords=[PASSWORD], code=BAD_FILE)
        self.raw.unlink(), self.key.unlink()
        self.quilla("create", self.raw, "--size", "1M", "--no-strength", passwords=[PASSWORD], code=DONE)
        self.assertEqual(self.key.stat().st_size, 760)

    def test_one_password_opens_whenever_the_command_is_killed(self):
        """QUILLA_KILLS changes of the password are killed in the middle, at random moments (200 in the long run)."""
        self.quilla("create", self.raw, "--size", "1M", "--no-strength", passwords=["0"], code=DONE)
        options = (["--strength", "0.001"], [], ["--no-strength"], [])
        current, killed, begun, longest, left = "0", 0, 0, 0.0, 0
        files = sorted([self.raw.name, self.key.name])
        while killed < int(os.environ.get("QUILLA_KILLS", 3)):
            wanted = str(begun + 1)
            begin = time.monotonic()
            process = subprocess.Popen([command.PROGRAM, "passwd", self.raw, "--password-file", "-", *options[begun % 4]],
                                       stdin=subprocess.PIPE, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            process.stdin.write(f"{current}\n{wanted}\n".encode())
            process.stdin.close()
            if begun >= len(options):  # the first changes show how long one takes
                time.sleep(random.uniform(0, longest))
                killed += process.poll() is None
                process.kill()
            process.wait()
            begun += 1
            if begun <= len(options):
                longest = max(longest, time.monotonic() - begin)
            left += sorted(os.listdir(self.folder)) != files
            self.quilla("info", self.raw, code=DONE)
            self.assertEqual(sorted(os.listdir(self.folder)), files, "what was left goes with the next use")
            opens = [password for password in (current, wanted) if self.opens(password)]
            self.assertEqual(len(opens), 1)
            current = opens[0]
        print(f"{killed} of {begun} changes killed; a temporary file stayed after {left}", file=sys.stderr)

    def test_too_little_memory_is_no_wrong_password(self):
        self.create(size="1M", strength=())
        before = self.key.read_bytes()
        for words in (["check"], ["passwd"], ["passwd", "--no-strength"]):
            process = subprocess.Popen([command.PROGRAM, words[0], self.raw, *words[1:], "--password-file", "-"],
                                       stdin=subprocess.PIPE, stderr=subprocess.PIPE, env=command.ENVIRONMENT)
            memory = pathlib.Path(f"/proc/{process.pid}")
            # It waits for the password; what it has by then it keeps, and 16 MiB more are allowed.
            command.wait_until(lambda: (memory / "stat").read_text().rsplit(")", 1)[1].split()[0] == "S", "the command to ask")
            pages = int((memory / "statm").read_text().split()[0])
            resource.prlimit(process.pid, resource.RLIMIT_AS, (pages * resource.getpagesize() + (16 << 20),) * 2)
            _, told = process.communicate(f"{PASSWORD}\nnew\n".encode(), timeout=60)
            self.assertEqual((process.returncode, b"too little memory" in told), (SYSTEM_LACKS, True), told)
        self.assertEqual(self.key.read_bytes(), before)

    def opens(self, password):
        try:
            oracle.parse_key_file(self.key.read_bytes(), quilla.CIPHER_TWOFISH, password)
        except quilla.Failure:
            return False
        return True

    def test_a_volume_without_cipher_has_no_key_file(self):
        self.quilla("create", self.raw, "--size", "1M", "--cipher", "none", code=DONE)
        self.assertFalse(self.key.exists())

    def test_tells_what_it_knows_without_a_password(self):
        self.create(size="3M")
        told = json.loads(self.quilla("info", self.raw, "--json", code=DONE).stdout)
        self.assertEqual((told["size"], told["cipher"], told["timeoutMinutes"], told["keyFile"]),
                         (3 << 20, "twofish", 30, "readable"))

    def test_touches_nothing_that_is_there(self):
        self.raw.write_bytes(b"mine")
        self.quilla("create", self.raw, "--size", "1M", passwords=[PASSWORD], code=BAD_FILE)
        self.assertEqual(self.raw.read_bytes(), b"mine")
        self.raw.unlink()
        self.key.write_bytes(b"mine, too")
        self.quilla("create", self.raw, "--size", "1M", passwords=[PASSWORD], code=BAD_FILE)
        self.assertEqual(self.key.read_bytes(), b"mine, too")
        self.assertFalse(self.raw.exists(), "of a creation that breaks off nothing is left")

    def test_names_a_key_file_that_cannot_be_used(self):
        self.create(size="1M")
        good = self.key.read_bytes()
        for bad in (b"", good[:71], good[:100], b"\xff" * len(good)):
            self.key.write_bytes(bad)
            result = self.quilla("check", self.raw, passwords=[PASSWORD], code=BAD_FILE)
            self.assertIn(str(self.key), result.stderr)
        self.key.unlink()
        self.assertIn(str(self.key), self.quilla("mount", self.raw, passwords=[PASSWORD], code=BAD_FILE).stderr)

    def test_refuses_what_it_does_not_understand(self):
        for words in ((), ("frobnicate",), ("create", self.raw), ("create", self.raw, "--size", "1X"),
                      ("create", self.raw, "--size", "511"), ("create", self.raw, "--size", "1M", "--cipher", "rot13"),
                      ("create", self.raw, "--size", "1M", "--timeout", "-1"), ("mount",), ("mount", "a", "b", "c"),
                      ("mount", "--key"), ("dismount",), ("mount", self.raw, "--password", PASSWORD)):
            with self.subTest(words=words):
                self.quilla(*words, code=USAGE)
        self.assertFalse(self.raw.exists())
        self.quilla("check", self.folder / "None.raw", passwords=[PASSWORD], code=BAD_FILE)
        for bad in ("\udcff", "x" * 260):
            lines = bad.encode("utf-8", "surrogateescape") + b"\n"
            result = subprocess.run([command.PROGRAM, "create", self.raw, "--size", "1M", "--password-file", "-"],
                                    input=lines, capture_output=True, check=False, env=command.ENVIRONMENT)
            self.assertEqual(result.returncode, USAGE, result.stderr)

    def test_asks_on_the_terminal_without_echo(self):
        words = ("create", self.raw, "--size", "1M")
        code, screen = self.type_at_terminal(words, ["a long secret", "a long secreT"])
        self.assertEqual(code, WRONG_PASSWORD, screen)
        self.assertFalse(self.raw.exists())
        code, screen = self.type_at_terminal(words, ["secret", "secret"])
        self.assertEqual(code, DONE, screen)
        self.assertNotIn("secret", screen)
        self.quilla("check", self.raw, passwords=["secret"], code=DONE)


if __name__ == "__main__":
    command.main()
