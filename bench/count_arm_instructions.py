#!/usr/bin/env python3
"""count_arm_instructions.py FOLDER: how many instructions the driver's image for Windows CE on ARM takes (FOLDER is build/handheld-arm)
to set up its keys and to encipher and decipher sectors. An emulator runs the tests' loader one instruction at a time and tells the
address of each; those from the call of an entry point to its return are counted, with what the loader's C library does in the
system's place (clearing and copying memory, a call for each transfer). The counts are exact and hardly change from one time to
the next; what they mean on a handheld is an estimate. Fills in its section of docs/benchmarks.md."""

import os
import pathlib
import subprocess
import sys
import tempfile

import benchmark_document

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent.parent / "tools/desk"))
import oracle  # noqa: E402
import quilla  # noqa: E402

ENTRIES = ("SEC_Init", "SEC_IOControl", "SEC_Deinit")
CALLS = ("set-up", "write", "read", "end")  # of the loader, in turn
INSTRUCTION = 4  # bytes
RUN = 32  # sectors
CLOCK = 400  # MHz
CYCLES = (1.0, 1.5)  # an instruction, at best and more likely


def entry_addresses(elf):
    listing = subprocess.run(["llvm-nm", "--defined-only", elf], check=True, text=True, stdout=subprocess.PIPE).stdout
    symbols = {name: int(address, 16) for address, _, name in map(str.split, listing.splitlines())}
    return {symbols[name] for name in ENTRIES}


def count(folder, cipher, sectors):
    """Instructions of each call, with a request of so many sectors to write and one to read them."""
    entries = entry_addresses(folder / "quilladriver/QuillaDriver.elf")
    with tempfile.TemporaryDirectory() as name:
        volume, record, plain = (pathlib.Path(name) / part for part in ("volume.raw", "record", "plain"))
        with open(volume, "wb") as file:
            file.truncate(1 << 20)
        plain.write_bytes(os.urandom(sectors * oracle.SECTOR))
        record.write_bytes(quilla.Record(path=str(volume), size=1 << 20, cipher=cipher, key=os.urandom(32)).pack())
        emulator = subprocess.Popen(
            ["qemu-arm", "-singlestep", "-d", "nochain,exec", folder / "load_driver", folder / "bin/QuillaDriver.dll", "0",
             record, plain, "0"], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        steps, place, back = [], 0, None
        for line in emulator.stderr:
            before, place = place, int(line.split(b"/", 2)[1], 16)
            if place in entries:
                steps.append(0)
                back = before + INSTRUCTION
            elif place == back:
                back = None
            if back is not None:
                steps[-1] += 1
        assert emulator.wait() == 0 and len(steps) == len(CALLS), f"the loader ended in call {len(steps)}"
    return dict(zip(CALLS, steps))


def main():
    folder = pathlib.Path(sys.argv[1])
    sectors, keys = [], []
    for cipher, name in ((quilla.CIPHER_TWOFISH, "Twofish-256 XTS"), (quilla.CIPHER_CAST128, "CAST-128 CBC")):
        one, run = count(folder, cipher, 1), count(folder, cipher, 1 + RUN)
        keys.append((name, f"{one['set-up']:,}", *(f"{one['set-up'] * cycles / CLOCK / 1000:.2f}" for cycles in CYCLES)))
        for phase in ("write", "read"):
            each = (run[phase] - one[phase]) / RUN / oracle.SECTOR
            sectors.append((f"{name}, {phase}", f"{one[phase]:,}", f"{one[phase] / oracle.SECTOR:.1f}", f"{each:.1f}",
                            *(f"{CLOCK / cycles / each:.1f}" for cycles in CYCLES)))
    likely = [f"at {cycles:g} {'cycle' if cycles == 1 else 'cycles'} an instruction" for cycles in CYCLES]
    benchmark_document.write_section("count-arm-instructions", [
        "## A handheld's processor", "",
        "To repeat: `tools/run-benchmarks handheld`.", "",
        "What the driver's image for ARM (ARMv5, machine 0x1C0, portable kernels) executes, counted by qemu-arm one instruction at a",
        "time from the call of an entry point to its return, with what the loader's C library does in the system's place: clearing and",
        f"copying memory. A handheld's processor had {CLOCK} MHz. **The MB/s and ms are estimates**: nothing was measured on a handheld,",
        f"and caches, memory and the card's own speed are left out. {CYCLES[0]:g} cycle an instruction is the best that such processors do,",
        f"{CYCLES[1]:g} is likelier with tables in the cache.", "",
        *benchmark_document.table(["sectors of 512 bytes", "instructions for a request of one", "for a byte of it",
                                   "for a byte of further ones", *(f"MB/s {text} (estimate)" for text in likely)], sectors),
        "", *benchmark_document.table(["`SEC_Init`, key set-up included", "instructions",
                                       *(f"ms {text} (estimate)" for text in likely)], keys)])


if __name__ == "__main__":
    main()
