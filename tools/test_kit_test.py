#!/usr/bin/python3
"""Tries the test kit's script under Wine, in a folder with a space in its name: test_kit_test.py KIT.zip"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

import check_package
import package_zip

KIT = pathlib.Path(sys.argv.pop()).resolve()
# Without a display Wine opens no window.
DISPLAY = [] if os.environ.get("DISPLAY") else ["xvfb-run", "-a"]


class KitTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory(prefix="test kit ", dir=check_package.drive_c())
        self.addCleanup(folder.cleanup)
        with zipfile.ZipFile(KIT) as archive:
            archive.extractall(folder.name)
        self.kit = pathlib.Path(folder.name) / KIT.name.removesuffix(".zip")

    def run_tests(self, *arguments):
        return subprocess.run([*DISPLAY, str(check_package.WINE), "cmd", "/c", "run-tests.cmd", *arguments],
                              cwd=self.kit, capture_output=True, text=True, timeout=300).returncode

    def summary(self):
        return (self.kit / "logs" / "summary.txt").read_text()

    def test_the_checksums_are_those_of_the_files(self):
        sums = dict(reversed(line.split("  ")) for line in (self.kit / package_zip.SUMS).read_text().splitlines())

        found = {path.relative_to(self.kit).as_posix(): package_zip.sum_of(path.read_bytes())
                 for path in package_zip.files_below(self.kit) if path.name != package_zip.SUMS}

        self.assertEqual(found, sums)

    def test_the_fast_programs_all_pass(self):
        code = self.run_tests("smoke")

        self.assertEqual(0, code, self.summary())
        passed = [line.split()[1].rstrip(",") for line in self.summary().splitlines() if line.startswith("passed")]
        self.assertIn("end_to_end_tests", passed)
        self.assertGreaterEqual(len(passed), 6)
        for name in passed:
            self.assertIn("<testsuites ", (self.kit / "logs" / f"{name}.xml").read_text(errors="replace"))

    def test_a_program_that_fails_and_one_that_is_missing_are_told(self):
        shutil.copyfile(self.kit / "tests/conformance/conformance.exe", self.kit / "tests/json_tests.exe")
        (self.kit / "tests/state_tests.exe").unlink()

        code = self.run_tests("smoke")

        self.assertEqual(1, code)
        for name in ("json_tests", "state_tests"):
            self.assertIn(f"FAILED  {name},", self.summary())

    def test_a_scope_that_does_not_exist_is_refused(self):
        self.assertEqual(2, self.run_tests("everything"))


if __name__ == "__main__":
    unittest.main()
