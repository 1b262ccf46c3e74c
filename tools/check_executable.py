#!/usr/bin/env python3
"""Judges a built launcher.exe by its headers: check_executable.py LAUNCHER OBJDUMP"""

import pathlib
import re
import subprocess
import sys

MAY_IMPORT = {"kernel32.dll", "advapi32.dll", "user32.dll", "shell32.dll", "msvcrt.dll"}


def utf16(text):
    return text.encode("utf-16-le")


def problems_of(headers, content):
    imports = {name.lower() for name in re.findall(r"DLL Name: (\S+)", headers)}
    if not imports:
        yield "no import table was found"
    for name in sorted(imports - MAY_IMPORT):
        yield f"imports {name}, which may be missing or be replaced on a user's machine"
    if not re.search(r"^Subsystem\s+\w+\s+\(Windows GUI\)", headers, re.M):
        yield "is not of the Windows GUI subsystem: it would open a console"
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        if flag not in headers:
            yield f"lacks {flag}"
    for part in (b'level="asInvoker"', b"<longPathAware", b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"):
        if part not in content:
            yield f"its manifest lacks {part.decode()}"
    version = re.search(rb'name="Plinket.Launcher" version="(\d+\.\d+\.\d+)\.0"', content)
    if version is None or utf16(version[1].decode() + "\0") not in content:
        yield "its manifest names another version than its version information, or none"
    for text in ("VS_VERSION_INFO", "ProductVersion", "FileDescription", "Plinket launcher"):
        if utf16(text) not in content:
            yield f"its version information lacks {text}"


def main():
    launcher, objdump = sys.argv[1:]
    headers = subprocess.run([objdump, "-p", launcher], capture_output=True, text=True, check=True).stdout
    problems = list(problems_of(headers, pathlib.Path(launcher).read_bytes()))
    for problem in problems:
        print(f"launcher.exe {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
