#!/usr/bin/python3
"""Judges a package as somebody who has nothing else: check_package.py [--no-runs] PACKAGE.zip"""

import json
import os
import pathlib
import posixpath
import re
import shutil
import stat
import subprocess
import sys
import tempfile
import zipfile

import pefile

import check_executable
import package_symbols
import package_zip

ROOT = pathlib.Path(__file__).resolve().parent.parent
WINE = ROOT / "tools" / "wine"

WINDOWS_PROGRAMS = ("launcher.exe", "launcher-explain.exe", "conformance.exe", "examples/sample_runtime/entry-v1.exe")
LINUX_PROGRAM = "linux/launcher-explain"
PARTS = (*WINDOWS_PROGRAMS, LINUX_PROGRAM,
         *(f"symbols/{posixpath.basename(name)}.debug" for name in WINDOWS_PROGRAMS),
         "runtime-library/launcher_client.h", "runtime-library/launcher_client.cpp", "runtime-library/README.md",
         "examples/sample_runtime/README.md", "examples/sample_runtime/main.cpp",
         "README.md", "CHANGELOG.md", "NOTICES.txt", "VERSION", package_zip.SUMS,
         "docs/integrators-guide.md", "docs/messages.md", "docs/threat-model.md", "docs/package.md",
         "docs/never-seen-on-windows.md")
# Where the machine that builds keeps things.
PLACES = ("/tmp/", "/root/", "/home/", str(ROOT) + "/")
NOTICES = ("GCC RUNTIME LIBRARY EXCEPTION", "GNU GENERAL PUBLIC LICENSE", "the mingw-w64 project")


class Package:
    """What is in the zip: `files`, by their names without the top folder."""

    def __init__(self, path):
        self.top = path.name.removesuffix(".zip")
        with zipfile.ZipFile(path) as archive:
            self.entries = archive.infolist()
            self.files = {entry.filename.removeprefix(f"{self.top}/"): archive.read(entry) for entry in self.entries}

    def text(self, name):
        return self.files.get(name, b"").decode("utf-8", "replace")


def part_problems(package):
    for name in PARTS:
        if not package.files.get(name):
            yield f"lacks {name}"


def entry_problems(package):
    names = [entry.filename for entry in package.entries]
    if names != sorted(names, key=str.encode):
        yield "its files are not in order"
    for name in {name for name in names if names.count(name) > 1}:
        yield f"has {name} twice"
    for entry in package.entries:
        mode = entry.external_attr >> 16
        wanted = stat.S_IFREG | (0o755 if entry.filename == f"{package.top}/{LINUX_PROGRAM}" else 0o644)
        if not entry.filename.startswith(f"{package.top}/") or ".." in entry.filename.split("/"):
            yield f"would unpack {entry.filename} outside of its folder"
        if mode != wanted:
            yield f"has {entry.filename} with mode {mode:o}"
        if entry.date_time != package_zip.DATE:
            yield f"tells a time of {entry.filename}"


def sum_problems(package):
    lines = package.text(package_zip.SUMS).splitlines()
    sums = {name: value for value, _, name in (line.partition("  ") for line in lines)}
    for name in sorted(package.files.keys() - {package_zip.SUMS} - sums.keys()):
        yield f"has no checksum of {name}"
    for name, value in sorted(sums.items()):
        if name not in package.files:
            yield f"has a checksum of {name}, which is not there"
        elif package_zip.sum_of(package.files[name]) != value:
            yield f"has a wrong checksum of {name}"


def version_problems(package):
    version = package.text("VERSION").strip()
    if package.top != f"plinket-launcher-{version}":
        yield f"is called {package.top}, and its VERSION says {version}"
    newest = re.search(r"^## +\[?v?(\d+\.\d+\.\d+)", package.text("CHANGELOG.md"), re.M)
    if not newest or newest[1] != version:
        yield f"begins its CHANGELOG.md with {newest[1] if newest else 'no version'}, not {version}"
    for name in WINDOWS_PROGRAMS[:3]:
        told = told_version(package.files.get(name))
        if told != version and (told or name == "launcher.exe"):
            yield f"has {name} with the version {told}, not {version}"


def told_version(content):
    if not content:
        return None
    image = pefile.PE(data=content, fast_load=True)
    image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_RESOURCE"]])
    return dict(check_executable.version_texts(image)).get("ProductVersion")


def without_code(markdown):
    markdown = re.sub(r"^(```|~~~).*?^\1", "", markdown, flags=re.M | re.S)
    return re.sub(r"`[^`\n]*`", "", markdown)


def anchors(markdown):
    """What headings can be linked to by, as the usual viewers make it."""
    headings = re.findall(r"^#+ +(.*)$", re.sub(r"^(```|~~~).*?^\1", "", markdown, flags=re.M | re.S), re.M)
    return {re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-") for heading in headings}


def link_problems(package):
    for name in package.files:
        if not name.endswith(".md"):
            continue
        text = without_code(package.text(name))
        targets = re.findall(r"\]\(\s*<?([^)>\s]+)[^)]*\)", text) + re.findall(r"^\[[^\]]+\]: *(\S+)", text, re.M)
        for target in targets:
            if re.match(r"[a-z]+:", target):
                continue
            path, _, anchor = target.partition("#")
            found = posixpath.normpath(posixpath.join(posixpath.dirname(name), path)) if path else name
            if found not in package.files and not any(other.startswith(f"{found}/") for other in package.files):
                yield f"has a link in {name} to {target}, which is not there"
            elif anchor and found.endswith(".md") and anchor not in anchors(package.text(found)):
                yield f"has a link in {name} to {target}, which has no such heading"


def place_problems(package):
    for name, content in package.files.items():
        for place in PLACES:
            if place.encode() in content or place.encode("utf-16-le") in content:
                yield f"has {name}, which names {place}"


def symbol_problems(package):
    for name in WINDOWS_PROGRAMS:
        symbols = package.files.get(f"symbols/{posixpath.basename(name)}.debug")
        if not symbols or name not in package.files:
            continue  # told above
        for problem in package_symbols.differences(package.files[name], symbols):
            yield f"has symbols that do not fit {name}: {problem}"
        if not package_symbols.has_debug_information(symbols):
            yield f"has symbols of {name} without any"


def naming_problems(package):
    """A crash address in the launcher leads to a function and its line."""
    with tempfile.TemporaryDirectory(prefix="package-symbols-") as folder:
        path = pathlib.Path(folder) / "launcher.exe.debug"
        path.write_bytes(package.files.get("symbols/launcher.exe.debug", b""))
        names = subprocess.run(["x86_64-w64-mingw32-nm", "-C", path], capture_output=True, text=True).stdout
        found = re.search(r"^([0-9a-f]+) T (launcher_stub::run\(.*\))$", names, re.M)
        if not found:
            yield "has symbols that do not know the launch sequence"
            return
        inside = int(found[1], 16) + 16
        line = subprocess.run(["x86_64-w64-mingw32-addr2line", "-f", "-C", "-e", path, f"{inside:#x}"],
                              capture_output=True, text=True).stdout.split("\n")
        if not line[0].startswith("launcher_stub::") or not re.search(r"\.(cpp|h):\d+", line[1]):
            yield f"has symbols that lead from {inside:#x} to {line[:2]}"


def notice_problems(package):
    text = package.text("NOTICES.txt")
    for name in (*WINDOWS_PROGRAMS, LINUX_PROGRAM):
        if name not in text:
            yield f"has no notices for {name}"
    for part in NOTICES:
        if part not in text:
            yield f"has notices without the words {part!r}"


def unpack(path, folder):
    with zipfile.ZipFile(path) as archive:
        archive.extractall(folder)
    return folder / path.name.removesuffix(".zip")


def run(*command, folder):
    return subprocess.run([str(word) for word in command], cwd=folder, capture_output=True, text=True, timeout=120,
                          errors="replace")


def drive_c():
    """Where programs under Wine keep state roots; the prefix is made if there is none."""
    subprocess.run([WINE, "cmd", "/c", "exit", "0"], capture_output=True)
    return pathlib.Path(os.environ.get("LAUNCHER_WINEPREFIX", ROOT / "build" / "wineprefix")) / "drive_c"


def install(top, app):
    """An installation made of what is in the package and nothing else."""
    (app / "seed").mkdir(parents=True)
    shutil.copyfile(top / "launcher.exe", app / "launcher.exe")
    shutil.copyfile(top / "examples/sample_runtime/entry-v1.exe", app / "seed" / "entry-v1.exe")
    (app / "bootstrap-v1.json").write_text(json.dumps(
        {"schemaVersion": 1, "installId": "package", "seedSlot": "seed", "stateRoot": "state"}))
    (app / "seed" / "script.txt").write_text("ready\nsleep 1500\nexit 41\n")


def launch_problems(app):
    """The seed's first run."""
    done = run(WINE, app / "launcher.exe", folder=app)
    if done.returncode != 41:
        yield f"has a launcher.exe that ends with {done.returncode}, not with its runtime's 41: {done.stdout}"
    if not list(app.glob("state/attempts/*/ready-v1")):
        yield "has a launcher.exe that has not started the runtime"


def run_problems(path):
    with tempfile.TemporaryDirectory(prefix="package ", dir=drive_c()) as folder:
        top, app = unpack(path, pathlib.Path(folder)), pathlib.Path(folder) / "App with a space"
        (top / LINUX_PROGRAM).chmod(0o755)
        install(top, app)
        yield from launch_problems(app)
        windows_app = f"Z:{app}".replace("/", "\\")
        for command, words in (
            ((top / LINUX_PROGRAM, app), "seed"),
            ((WINE, top / "launcher-explain.exe", windows_app), "seed"),
            ((WINE, top / "conformance.exe", "--launcher", f"{windows_app}\\launcher.exe", "--seed",
              f"{windows_app}\\seed", "--only", "starts,ready,exit-code"), "ready"),
        ):
            done = run(*command, folder=folder)
            if done.returncode != 0 or words not in done.stdout:
                yield f"has a program that ends with {done.returncode}: {command}\n{done.stdout}{done.stderr}"


def problems_of(package):
    for check in (part_problems, entry_problems, sum_problems, version_problems, link_problems, place_problems,
                  symbol_problems, naming_problems, notice_problems):
        yield from check(package)


def main():
    path = pathlib.Path(sys.argv[-1]).resolve()
    problems = list(problems_of(Package(path)))
    if "--no-runs" not in sys.argv and not problems:
        problems += run_problems(path)
    for problem in problems:
        print(f"{path.name} {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
