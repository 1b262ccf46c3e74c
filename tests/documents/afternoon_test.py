#!/usr/bin/env python3
"""Follows "An afternoon" of the integrator's guide, step by step, under Wine, and compares what is seen.

afternoon_test.py LAUNCHER RUNTIME [EXPLAIN]: the executables that the zip would hold.
A block "save PATH" is written to that file, a block "bat" is typed, and each line of the block "seen" after it must come
out, in that order; "<...>" in such a line stands for anything.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parents[2]
GUIDE = ROOT / "docs" / "integrators-guide.md"
WINE = ROOT / "tools" / "wine"
FOLDER = pathlib.Path(os.environ.get("LAUNCHER_WINEPREFIX", ROOT / "build" / "wineprefix")) / "drive_c" / "walk"
ZIP = ("launcher.exe", "examples/sample_runtime/entry-v1.exe", "launcher-explain.exe")  # in the order of the arguments
BLOCK = re.compile(r"^( *)```(\S+)(?: ([^\n]*))?\n(.*?)^\1```$", re.M | re.S)


def section(text):
    start = text.index("\n## An afternoon\n")
    end = text.find("\n## ", start + 1)
    return text[start:end if end > 0 else len(text)]


def blocks(text):
    for match in BLOCK.finditer(section(text)):
        indent, language, words, content = match.groups()
        yield language, words or "", re.sub(rf"^{indent}", "", content, flags=re.M)


def lay_out(programs):
    shutil.rmtree(FOLDER, ignore_errors=True)
    for program, place in zip(programs, ZIP):
        path = FOLDER / "package" / place
        path.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(program, path)


def save(name, content):
    (FOLDER / name.replace("\\", "/")).write_bytes(content.replace("\n", "\r\n").encode())


def typed(commands):
    """Types the lines, by a batch file in which `call` lets it go on after another one. Returns what comes out."""
    lines = [f"call {line}" if line.split()[0] == "run" else line for line in commands.splitlines() if line.strip()]
    save("typed.cmd", "\n".join(["@echo off", "cd /d C:\\walk"] + lines) + "\n")
    done = subprocess.run([WINE, "C:\\walk\\typed.cmd"], capture_output=True, timeout=200, check=False)
    (FOLDER / "typed.cmd").unlink()
    return done.stdout.decode(errors="replace").replace("\r", "")


def missing_line(expected, output):
    """The first line of `expected` that does not come in its turn, or none."""
    rest = output
    for line in expected.splitlines():
        pattern = ".*?".join(re.escape(part) for part in re.split(r"<[^<>]*>", line.rstrip()))
        found = re.search(rf"^{pattern}\s*?$", rest, re.M)
        if not found:
            return line
        rest = rest[found.end():]
    return None


def main():
    subprocess.run([WINE, "cmd", "/c", "exit", "0"], stdout=subprocess.DEVNULL, check=True)  # makes the prefix
    lay_out(sys.argv[1:])
    output, compared = "", 0
    for language, words, content in blocks(GUIDE.read_text()):
        if "save " in words:
            save(words.split("save ", 1)[1], content)
        elif language == "bat":
            began = time.monotonic()
            output = typed(content)
            print(f"-- {time.monotonic() - began:.1f} s\n{content}{output}", flush=True)
        elif words == "seen":
            compared += 1
            line = missing_line(content, output)
            if line is not None:
                sys.exit(f"the guide shows, and nothing printed: {line}")
    if compared < 3:
        sys.exit(f"only {compared} outputs of the guide were compared")


if __name__ == "__main__":
    main()
