#!/usr/bin/python3
"""Makes the package once more, from sources in another folder, and compares: check_package_again.py PACKAGE.zip...

Each zip named has to come out the same to the byte. The test programs are built only if their zip is among them.
"""

import pathlib
import shutil
import subprocess
import sys
import tempfile
import zipfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
PROGRAMS = ("launcher", "launcher_explain", "conformance", "sample_runtime")
BUILDS = (("windows-release", PROGRAMS), ("windows-symbols", PROGRAMS), ("native-release", ("launcher_explain",)))


def run(folder, *command):
    done = subprocess.run([str(word) for word in command], cwd=folder, capture_output=True, text=True)
    if done.returncode != 0:
        sys.exit(f"failed: {' '.join(map(str, command))}\n{done.stdout}{done.stderr}")


def package_again(folder, with_tests):
    sources = folder / "a folder of another name"
    shutil.copytree(ROOT, sources, ignore=shutil.ignore_patterns("build", ".git", "__pycache__"))
    for preset, targets in BUILDS:
        run(sources, "cmake", "--preset", preset)
        everything = with_tests and preset == "windows-release"
        run(sources, "cmake", "--build", "--preset", preset, *([] if everything else ["--target", *targets]))
    run(sources, "tools/package", *([] if with_tests else ["--without-tests"]))
    return sources / "build" / "package"


def describe(first, second):
    with zipfile.ZipFile(first) as one, zipfile.ZipFile(second) as other:
        names = sorted(set(one.namelist()) | set(other.namelist()))
        for name in names:
            if name not in one.namelist() or name not in other.namelist():
                print(f"  only one of them has {name}")
            elif one.read(name) != other.read(name):
                print(f"  {name} differs")


def main():
    packages = [pathlib.Path(argument).resolve() for argument in sys.argv[1:]]
    if not packages:
        sys.exit(__doc__)
    status = 0
    with tempfile.TemporaryDirectory(prefix="package-again-") as folder:
        made = package_again(pathlib.Path(folder), any("tests" in path.name for path in packages))
        for path in packages:
            if path.read_bytes() != (made / path.name).read_bytes():
                print(f"{path.name} is not the same when it is made again")
                describe(path, made / path.name)
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
