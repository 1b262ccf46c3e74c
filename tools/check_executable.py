#!/usr/bin/env python3
"""Judges a built launcher.exe by what is in the file: check_executable.py LAUNCHER"""

import pathlib
import re
import sys
import xml.etree.ElementTree

import pefile

ROOT = pathlib.Path(__file__).resolve().parent.parent
# The one place for the version, and the one for the name: the title of the error box.
SOURCES = (ROOT / "launcher" / "version.h").read_text() + (ROOT / "os" / "messages.h").read_text()

# Part of every Windows, and taken by the loader from the system's folder alone ("known" libraries).
MAY_IMPORT = {"kernel32.dll", "advapi32.dll", "user32.dll", "shell32.dll", "msvcrt.dll"}
# They only lead on to a library that is not a known one, cryptbase: the loader would look for it in the program's own
# folder, before any code of the program has run.
LEADS_ELSEWHERE = re.compile(rb"SystemFunction0\d\d")
LARGEST = 192 * 1024  # bytes
DIRECTORY = pefile.DIRECTORY_ENTRY
MANIFEST_TYPE = pefile.RESOURCE_TYPE["RT_MANIFEST"]


def import_problems(image):
    imports = {entry.dll.decode().lower() for entry in getattr(image, "DIRECTORY_ENTRY_IMPORT", [])}
    if not imports:
        yield "has no import table"
    for entry in getattr(image, "DIRECTORY_ENTRY_IMPORT", []):
        for function in entry.imports:
            if LEADS_ELSEWHERE.fullmatch(function.name or b""):
                yield f"imports {function.name.decode()}, which leads to a library that may lie beside it"
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


def version_in(sources, form):
    return re.search(rf"^#define LAUNCHER_VERSION_{form} (.+)$", sources, re.M)[1].strip('"').replace(", ", ",")


def manifest_problems(image, sources):
    manifest = manifest_of(image)
    for part in (b'level="asInvoker"', b'uiAccess="false"', b">true</longPathAware>", b">true/pm</dpiAware>",
                 b">PerMonitorV2,PerMonitor</dpiAwareness>",
                 b'name="Microsoft.Windows.Common-Controls" version="6.0.0.0"', b'publicKeyToken="6595b64144ccf1df"', b"{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a}"):
        if part not in manifest:
            yield f"its manifest lacks {part.decode()}"
    if manifest.count(b"<supportedOS ") != 1:
        yield "its manifest names other systems than those that are supported"
    try:
        xml.etree.ElementTree.fromstring(manifest)
    except xml.etree.ElementTree.ParseError as error:
        yield f"its manifest is no XML, so it would not start at all: {error}"
    version = version_in(sources, "TEXT")
    if f'name="Plinket.Launcher" version="{version}.0"'.encode() not in manifest:
        yield "its manifest names another version than version.h, or none"


def version_texts(image):
    for blocks in getattr(image, "FileInfo", []):
        for block in blocks:
            for table in getattr(block, "StringTable", []):
                yield from ((key.decode(), value.decode()) for key, value in table.entries.items())


def version_problems(image, sources):
    product = re.search(r'errorBoxTitle = L"([^"]+)"', sources)[1]
    version = version_in(sources, "TEXT")
    texts = dict(version_texts(image))
    for key, wanted in (("ProductName", product), ("FileDescription", product), ("FileVersion", version),
                        ("ProductVersion", version), ("OriginalFilename", "launcher.exe")):
        if texts.get(key) != wanted:
            yield f"its version information has {texts.get(key)} as {key}, not {wanted}"
    fixed = getattr(image, "VS_FIXEDFILEINFO", [])
    for name in ("FileVersion", "ProductVersion"):
        numbers = [f"{word >> 16},{word & 0xffff}" for each in fixed
                   for word in (getattr(each, name + "MS"), getattr(each, name + "LS"))]
        if ",".join(numbers) != version.replace(".", ",") + ",0":
            yield f"its version information has {numbers} as the numbers of {name}, not {version}.0"
    if version_in(sources, "NUMBERS") != version.replace(".", ",") + ",0":
        yield "its version.h disagrees with itself"


def problems_of(content, sources=SOURCES):
    image = pefile.PE(data=content, fast_load=True)
    image.parse_data_directories([DIRECTORY[f"IMAGE_DIRECTORY_ENTRY_{name}"]
                                  for name in ("IMPORT", "RESOURCE", "BASERELOC")])
    if len(content) > LARGEST:
        yield f"is larger than agreed: {len(content)} bytes"
    yield from import_problems(image)
    yield from hardening_problems(image)
    yield from manifest_problems(image, sources)
    yield from version_problems(image, sources)


def main():
    problems = list(problems_of(pathlib.Path(sys.argv[1]).read_bytes()))
    for problem in problems:
        print(f"launcher.exe {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
