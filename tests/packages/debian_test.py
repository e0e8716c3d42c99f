#!/usr/bin/env python3
"""The Debian package, installed for real into a copy of this system that nothing of remains: an overlay in a mount
namespace of its own."""

import gzip
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
PACKAGES = pathlib.Path(os.environ.get("QUILLA_PACKAGES", ROOT / "build" / "packages"))
SKIPPED = 77

# Runs inside; "$0" is the package. A volume is made, used and found again by the installed command.
LIFE = r"""
set -eux
dpkg -i "$0"
dpkg --verify quilla
test "$(stat -c %U:%a /usr/bin/quilla)" = root:755
cd /root
printf 'secret\n' >password
quilla create Private.raw --size 64M --format ext4 --no-strength --password-file password
quilla mount Private.raw --password-file password
echo dear >Private/letter
quilla list
quilla dismount Private.raw
quilla mount Private.raw --password-file password
test "$(cat Private/letter)" = dear
umount Private
test "$(printf 'set +u; . /usr/share/bash-completion/completions/quilla; COMP_WORDS=(quilla mo); COMP_CWORD=1; _quilla
    echo "$COMPREPLY"' | bash)" = mount
dpkg -L quilla >before
dpkg -r quilla
while read -r path; do [ -d "$path" ] || ! [ -e "$path" ] || { echo "left: $path"; exit 1; }; done <before
[ ! -e /usr/share/doc/quilla ]
test -f Private.raw && test -f Private.key
"""

INSIDE = r"""
set -eu
work=$1 package=$2 life=$3
mount -t tmpfs none "$work"
mkdir "$work/upper" "$work/own" "$work/root"
mount -t overlay none -o "lowerdir=/,upperdir=$work/upper,workdir=$work/own" "$work/root"
for place in dev proc sys; do mount --rbind "/$place" "$work/root/$place"; done
mount -t tmpfs none "$work/root/run"
cp "$package" "$work/root/root/quilla.deb"
exec chroot "$work/root" /bin/sh -c "$life" /root/quilla.deb
"""


class DebianTest(unittest.TestCase):

    def setUp(self):
        self.package, = PACKAGES.glob("quilla_*.deb")

    def test_installed_used_and_removed(self):
        work = self.enterContext(tempfile.TemporaryDirectory(prefix="quilla-packages-"))
        result = subprocess.run(["unshare", "--mount", "sh", "-c", INSIDE, "sh", work, self.package, LIFE], text=True,
                                capture_output=True, timeout=120, check=False)
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)

    def test_says_what_it_needs_and_brings_what_it_says(self):
        def told(*words):
            return subprocess.run(["dpkg-deb", *words], check=True, capture_output=True).stdout

        control = told("-f", self.package).decode()
        self.assertRegex(control, r"(?m)^Depends: .*libc6 \(>= 2")
        manual = told("--fsys-tarfile", self.package)
        page = subprocess.run(["tar", "-xO", "./usr/share/man/man1/quilla.1.gz"], input=manual, check=True,
                              capture_output=True).stdout
        self.assertEqual(gzip.decompress(page), (ROOT / "linux" / "quilla.1").read_bytes())


if __name__ == "__main__":
    if os.geteuid() != 0 or not os.path.exists("/dev/fuse"):
        print("SKIPPED: needs root and /dev/fuse")
        sys.exit(SKIPPED)
    unittest.main(verbosity=2)
