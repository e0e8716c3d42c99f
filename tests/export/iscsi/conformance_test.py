#!/usr/bin/env python3
"""conformance_test.py SERVER | URL: the tests of libiscsi against the target, of the native server or one that runs already.

Every test of the suite must have run and none may fail; the names of those that skip themselves stand in
permitted_skips.txt, each with its reason, and no other may. Data on the target is lost.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

HERE = pathlib.Path(__file__).resolve().parent
SIZE = 16 << 20
SECONDS = 60  # for one suite
TOOL = "iscsi-test-cu"


def listed():
    """Names of all tests, by suite: {"SCSI.Read10": {"SCSI.Read10.Simple", ...}}"""
    names = subprocess.run([TOOL, "--list"], text=True, capture_output=True, check=True).stdout.split()
    tests = {}
    for name in names:
        parts = name.split(".")
        if len(parts) == 3 and parts[0] in ("SCSI", "iSCSI"):
            tests.setdefault(".".join(parts[:2]), set()).add(name)
    return tests


def run_suite(suite, url):
    """What became of each test of a suite, how many the suite itself counts as run and as failed, what it said."""
    run = subprocess.run([TOOL, "--dataloss", "--verbose", "-t", suite, url], text=True, capture_output=True,
                         timeout=SECONDS)
    log = run.stdout + run.stderr
    results = {}
    for part in re.split(r"^  Test: ", log, flags=re.M)[1:]:
        name, body = part.split(" ...", 1)
        # The verdict stands behind the name or, after words of the test, at the start of a line.
        verdict = re.search(r"(?:\A|\n)(passed|FAILED)", body)
        said = body[:verdict.start()] if verdict else body
        results[f"{suite}.{name}"] = ("failed" if not verdict or verdict.group(1) == "FAILED" else
                                      "skipped" if "[SKIPPED]" in said else "passed")
    counts = re.search(r"^ +tests +(\d+) +(\d+) +(\d+) +(\d+)", log, re.M)
    ran, failed = (int(counts.group(2)), int(counts.group(4))) if counts else (0, -1)
    return results, ran, failed, log


def check(url):
    permitted = {line.split()[0] for line in (HERE / "permitted_skips.txt").read_text().splitlines()
                 if line.strip() and not line.startswith("#")}
    results, faults = {}, []
    for suite, names in listed().items():
        outcome, ran, failed, log = run_suite(suite, url)
        results |= outcome
        if failed != 0 or ran != len(names) or set(outcome) != names:
            faults.append(f"{suite}: {ran} of {len(names)} ran, {failed} failed\n{log}")
    skipped = {name for name, what in results.items() if what == "skipped"}
    faults += [f"{name} skipped itself" for name in sorted(skipped - permitted)]
    faults += [f"{name} does not skip itself any more" for name in sorted(permitted - skipped)]
    passed = sum(what == "passed" for what in results.values())
    failed = len(results) - passed - len(skipped)
    print(f"{len(results)} tests, {passed} passed, {len(skipped)} skipped, {failed} failed")
    print("\n".join(faults))
    return 1 if faults or failed or not passed else 0


def main():
    if sys.argv[1].startswith("iscsi:"):
        return check(sys.argv[1])
    with tempfile.NamedTemporaryFile(suffix=".raw") as volume:
        volume.truncate(SIZE)
        # Plain: with sanitizers a cipher takes seven times as long as all else, and tells nothing here.
        server = subprocess.Popen([sys.argv[1], volume.name, "0", "37" * 32], text=True, stdout=subprocess.PIPE)
        try:
            server.stdout.readline()
            result = check(server.stdout.readline().strip())
        finally:
            server.terminate()
            ended = server.wait()
        return result or ended


if __name__ == "__main__":
    sys.exit(main())
