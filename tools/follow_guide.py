#!/usr/bin/python3
"""Unpacks a package and follows its own guide's afternoon to the end, under Wine: follow_guide.py PACKAGE.zip"""

import pathlib
import subprocess
import sys
import tempfile

import check_package

GUIDE = "docs/integrators-guide.md"
FOLLOW = check_package.ROOT / "tests" / "documents" / "afternoon_test.py"
PROGRAMS = ("launcher.exe", "examples/sample_runtime/entry-v1.exe", "launcher-explain.exe")


def main():
    check_package.drive_c()
    with tempfile.TemporaryDirectory(prefix="package-guide-") as folder:
        top = check_package.unpack(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(folder))
        # The steps are read from the tree; they must be those that the package tells.
        if (top / GUIDE).read_bytes() != (check_package.ROOT / GUIDE).read_bytes():
            print(f"the package has another {GUIDE}")
            return 1
        return subprocess.run([sys.executable, str(FOLLOW), *(str(top / name) for name in PROGRAMS)],
                              check=False).returncode


if __name__ == "__main__":
    sys.exit(main())
