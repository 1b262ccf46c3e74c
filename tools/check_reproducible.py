#!/usr/bin/env python3
"""Builds launcher.exe once more, in another folder, and compares it byte by byte: check_reproducible.py LAUNCHER

The sources are copied, too: neither where they lie nor where they are built may show in the file.
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent


def run(*command):
    done = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}\n{done.stdout}{done.stderr}")


def build_again(folder):
    sources = folder / "a folder of another name" / "sources"
    shutil.copytree(ROOT, sources, ignore=shutil.ignore_patterns("build", ".git", "corpus"))
    (sources / "tests" / "fuzz" / "corpus").mkdir()
    build = folder / "build"
    run("cmake", "-S", sources, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
        f"-DCMAKE_TOOLCHAIN_FILE={sources / 'cmake' / 'mingw-w64.cmake'}")
    run("cmake", "--build", build, "--target", "launcher")
    return (build / "launcher" / "launcher.exe").read_bytes()


def main():
    first = pathlib.Path(sys.argv[1]).read_bytes()
    with tempfile.TemporaryDirectory(prefix="launcher-again-") as folder:
        second = build_again(pathlib.Path(folder))
    if first == second:
        return 0
    differing = sum(a != b for a, b in zip(first, second))
    print(f"launcher.exe is not the same: {len(first)} and {len(second)} bytes, {differing} of them differ")
    return 1


if __name__ == "__main__":
    sys.exit(main())
