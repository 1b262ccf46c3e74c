#!/usr/bin/env python3
"""Judges a built launcher.exe by what is in the file: check_executable.py LAUNCHER"""

import pathlib
import re
import sys

import pefile

# Part of every Windows, and taken by the loader from the system's folder alone ("known" libraries).
MAY_IMPORT = {"kernel32.dll", "advapi32.dll", "user32.dll", "shell32.dll", "msvcrt.dll"}
DIRECTORY = pefile.DIRECTORY_ENTRY
MANIFEST_TYPE = pefile.RESOURCE_TYPE["RT_MANIFEST"]


def utf16(text):
    return text.encode("utf-16-le")


def import_problems(image):
    imports = {entry.dll.decode().lower() for entry in getattr(image, "DIRECTORY_ENTRY_IMPORT", [])}
    if not imports:
        yield "has no import table"
    for name in sorted(imports - MAY_IMPORT):
        yield f"imports {name}, which may be missing or be replaced on a user's machine"
    for table in ("IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT", "IMAGE_DIRECTORY_ENTRY_BOUND_IMPORT"):
        if image.OPTIONAL_HEADER.DATA_DIRECTORY[DIRECTORY[table]].Size != 0:
            yield f"has an {table}: imports that the check of the table above does not see"


def hardening_problems(image):
    header = image.OPTIONAL_HEADER
    if header.Subsystem != pefile.SUBSYSTEM_TYPE["IMAGE_SUBSYSTEM_WINDOWS_GUI"]:
        yield "is not of the Windows GUI subsystem: it would open a console"
    for flag in ("HIGH_ENTROPY_VA", "DYNAMIC_BASE", "NX_COMPAT"):
        if not getattr(header, f"IMAGE_DLLCHARACTERISTICS_{flag}"):
            yield f"lacks {flag}"
    # The flags alone move nothing: without relocations the image stays where it was linked to.
    if image.FILE_HEADER.IMAGE_FILE_RELOCS_STRIPPED or not getattr(image, "DIRECTORY_ENTRY_BASERELOC", []):
        yield "has no relocations, so its address cannot be random"
    if not image.FILE_HEADER.IMAGE_FILE_LARGE_ADDRESS_AWARE:
        yield "is not aware of large addresses, so its address is one of few"
    if header.ImageBase < 1 << 32:
        yield "is linked below 4 GB, so its address is one of few"
    for section in image.sections:
        name = section.Name.rstrip(b"\0").decode()
        if section.IMAGE_SCN_MEM_EXECUTE and section.IMAGE_SCN_MEM_WRITE:
            yield f"has a section that is writable and executable: {name}"
        if section.IMAGE_SCN_MEM_SHARED:
            yield f"has a section that other processes share: {name}"


def manifest_of(image):
    resources = getattr(image, "DIRECTORY_ENTRY_RESOURCE", None)
    for entry in resources.entries if resources else []:
        if entry.id == MANIFEST_TYPE:
            data = entry.directory.entries[0].directory.entries[0].data.struct
            return image.get_data(data.OffsetToData, data.Size)
    return b""


def manifest_problems(image, content):
    manifest = manifest_of(image)
    for part in (b'level="asInvoker"', b'uiAccess="false"', b">true</longPathAware>",
                 b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"):
        if part not in manifest:
            yield f"its manifest lacks {part.decode()}"
    version = re.search(rb'name="Plinket.Launcher" version="(\d+\.\d+\.\d+)\.0"', manifest)
    if version is None or utf16(version[1].decode() + "\0") not in content:
        yield "its manifest names another version than its version information, or none"
    for text in ("VS_VERSION_INFO", "ProductVersion", "FileDescription", "Plinket launcher"):
        if utf16(text) not in content:
            yield f"its version information lacks {text}"


def problems_of(content):
    image = pefile.PE(data=content, fast_load=True)
    image.parse_data_directories([DIRECTORY[f"IMAGE_DIRECTORY_ENTRY_{name}"]
                                  for name in ("IMPORT", "RESOURCE", "BASERELOC")])
    yield from import_problems(image)
    yield from hardening_problems(image)
    yield from manifest_problems(image, content)


def main():
    problems = list(problems_of(pathlib.Path(sys.argv[1]).read_bytes()))
    for problem in problems:
        print(f"launcher.exe {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
