#!/usr/bin/env python3
"""Runs a build's test suite under wine, where a program now and then dies before it
runs at all (no output, no test line) for reasons of wine's own. Such a test is run once
more, and the log says so; a test that printed anything of a test (a "[ RUN ]" line) and
failed is a failure and is never run again.

    ctest_under_wine.py BUILD_DIR JOBS
"""

import os
import re
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

TEST_LINE = "[ RUN      ]"


def run_ctest(build, jobs, junit, names=None):
    command = ["ctest", "--test-dir", build, "--output-on-failure", "-j", str(jobs), "--timeout", "300",
               "--output-junit", junit]
    if names:
        command += ["-R", "^(" + "|".join(re.escape(n) for n in names) + ")$"]
    return subprocess.run(command).returncode


def failed_tests(junit):
    """(name, output) of every test the report gives as failed."""
    failed = []
    for case in ET.parse(junit).getroot().iter("testcase"):
        if case.get("status") in ("fail", "failed") or case.find("failure") is not None:
            out = case.find("system-out")
            failed.append((case.get("name"), out.text if out is not None and out.text else ""))
    return failed


def died_before_running(output):
    return TEST_LINE not in output


def main():
    build, jobs = sys.argv[1], int(sys.argv[2])
    with tempfile.TemporaryDirectory() as scratch:
        first = os.path.join(scratch, "first.xml")
        if run_ctest(build, jobs, first) == 0:
            return 0
        failed = failed_tests(first)
        if not failed:
            print("== windows: the test run failed without a failed test to show for it")
            return 1
        printed = [name for name, output in failed if not died_before_running(output)]
        silent = [name for name, output in failed if died_before_running(output)]
        for name in silent:
            print(f"== windows: {name} died under wine without printing a test line; running it once more")
        if printed:
            print("== windows: failed: " + ", ".join(printed))
            return 1
        again = os.path.join(scratch, "again.xml")
        if run_ctest(build, 1, again, silent) != 0:
            print("== windows: failed again: " + ", ".join(name for name, _ in failed_tests(again)))
            return 1
        print(f"== windows: {len(silent)} test(s) that died before running passed when run again")
        return 0


if __name__ == "__main__":
    sys.exit(main())
