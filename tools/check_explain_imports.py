#!/usr/bin/env python3
"""Sees to it that launcher-explain.exe can only read: check_explain_imports.py LAUNCHER-EXPLAIN LAUNCHER

It imports nothing by which a file, a directory, an access list or another process could be changed. CreateFileW is
imported for reading (os/state_file_reading.cpp, os/link_target.cpp), WriteFile for the console (os/console.cpp).
"""

import re
import sys

import pefile

CHANGES = re.compile(
    r"(Delete|Move|Copy|Replace|Lock|Unlock|SetEndOf|Flush)File|(Create|Remove)Directory|SetFile|CreateHardLink|"
    r"CreateSymbolicLink|CreateFileMapping|DeviceIoControl|Security|(Set|Add).*(Acl|Ace)|CreateProcess|ShellExecute|"
    r"WinExec|Terminate|CreateRemoteThread|WriteProcessMemory|JobObject|RegSet|RegCreate|RegDelete|MessageBox|"
    r"_?w?f?(open|creat|remove|rename|unlink|mkdir|rmdir|system)|_?w?(spawn|exec)[lv]")
MAY_IMPORT = {"kernel32.dll", "msvcrt.dll"}


def problems_of(imports):
    for library, names in imports.items():
        if library not in MAY_IMPORT:
            yield f"imports {library}"
        yield from (f"imports {name}" for name in names if CHANGES.match(name.lstrip("_")) or CHANGES.search(name))


def imports_of(path):
    image = pefile.PE(path, fast_load=True)
    image.parse_data_directories([pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_IMPORT"]])
    return {entry.dll.decode().lower(): [(function.name or b"#").decode() for function in entry.imports]
            for entry in image.DIRECTORY_ENTRY_IMPORT}


def main():
    explain, launcher = (imports_of(path) for path in sys.argv[1:3])
    # The pattern proves itself on the launcher, which changes nearly everything that there is.
    found = set(problems_of(launcher))
    for name in ("DeleteFileW", "MoveFileExW", "CreateDirectoryW", "RemoveDirectoryW", "SetFileAttributesW",
                 "FlushFileBuffers", "SetNamedSecurityInfoW", "CreateProcessW", "TerminateProcess", "MessageBoxW"):
        if f"imports {name}" not in found:
            print(f"this check does not see the launcher's {name}")
            return 1
    problems = list(problems_of(explain))
    for problem in problems:
        print(f"launcher-explain.exe {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
