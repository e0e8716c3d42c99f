#!/usr/bin/env python3
"""driver_test.py LOADER IMAGE [READER]: runs the driver of a handheld in a loader (load_driver.cpp) and compares what it leaves in a
volume with nettle's ciphers: both ciphers, sectors near the start and beyond 2 GiB, at the image's base and relocated. Then
checks that the check of imports takes offence at what it is there for, and that a reader of another project (llvm-readobj)
finds in the image what was to be put there."""

import os
import pathlib
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
sys.path.insert(0, str(ROOT / "tools/desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

SECTORS = 300  # more than one piece of a request
PLACES = {"at its base": "0", "relocated": "23450000"}
STARTS = (0, 7, (3 << 30) // oracle.SECTOR - SECTORS)


def run_driver(loader, image, address, folder, cipher, start):
    volume, record, text = (folder / name for name in ("volume.raw", "record", "plain"))
    with open(volume, "wb") as file:
        file.truncate(3 << 30)
    key, plain = os.urandom(32), os.urandom(SECTORS * oracle.SECTOR)
    text.write_bytes(plain)
    record.write_bytes(quilla.Record(path=str(volume), size=3 << 30, cipher=cipher, key=key).pack())
    back = subprocess.run([*loader, image, address, record, text, str(start)], check=True, stdout=subprocess.PIPE,
                          timeout=60).stdout
    assert back == plain, "what was read is not what was written"
    sectors = oracle.SectorCipher(cipher, key)
    with open(volume, "rb") as file:
        file.seek(start * oracle.SECTOR)
        for number in range(start, start + SECTORS):
            at = (number - start) * oracle.SECTOR
            wanted = sectors.crypt("encrypt", number, plain[at:at + oracle.SECTOR])
            assert file.read(oracle.SECTOR) == wanted, f"sector {number} is not enciphered as it should be"


def check_image(image, change, folder):
    """Exit code and complaint of the check for a changed copy of an image."""
    copy = folder / "changed.dll"
    copy.write_bytes(change(image.read_bytes()))
    result = subprocess.run([ROOT / "tools/check-ce-image", copy], capture_output=True, text=True)
    return result.returncode, result.stderr


def read_image(reader, image):
    text = subprocess.run([reader, "--file-headers", "--coff-imports", "--coff-exports", "--coff-basereloc", image],
                          check=True, capture_output=True, text=True).stdout
    for wanted in ("MACHINE_ARM (0x1C0)", "SUBSYSTEM_WINDOWS_CE_GUI (0x9)", "Name: coredll.dll", "Symbol: CreateFileW (0)",
                   "Name: SEC_IOControl", "Type: HIGHLOW"):
        assert wanted in text, f"{reader} does not see {wanted}"


def main():
    loader, image = sys.argv[1].split(), pathlib.Path(sys.argv[2])
    with tempfile.TemporaryDirectory() as name:
        folder = pathlib.Path(name)
        for cipher in (quilla.CIPHER_CAST128, quilla.CIPHER_TWOFISH):
            for place, address in PLACES.items():
                for start in STARTS:
                    run_driver(loader, image, address, folder, cipher, start)
                print(f"{quilla.CIPHER_NAMES[cipher]}, {place}: as nettle has it")
        assert check_image(image, lambda data: data, folder)[0] == 0
        for old, new in ((b"VirtualAlloc\0", b"VirtualAlluc\0"), (b"coredll.dll\0", b"kernel3.dll\0")):
            code, complaint = check_image(image, lambda data: data.replace(old, new), folder)
            assert code != 0 and new[:-1].decode() in complaint, complaint
    print("the check of imports refuses a foreign name and a foreign library")
    if len(sys.argv) > 3:
        read_image(sys.argv[3], image)
        print(f"{sys.argv[3]} reads the image as it was meant")


if __name__ == "__main__":
    main()
