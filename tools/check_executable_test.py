#!/usr/bin/env python3
"""Spoils copies of launcher.exe, one property at a time: each must be noticed. check_executable_test.py LAUNCHER"""

import pathlib
import sys
import unittest

import pefile

from check_executable import SOURCES, problems_of

LAUNCHER = pathlib.Path(sys.argv.pop()).read_bytes()


def utf16(text):
    return text.encode("utf-16-le")


def spoiled(change):
    """The launcher's bytes after change(image) has altered header fields in place."""
    image = pefile.PE(data=LAUNCHER, fast_load=True)
    change(image)
    return bytes(image.write())


def section(image, name):
    return next(each for each in image.sections if each.Name.rstrip(b"\0") == name)


def make_writable(image):
    section(image, b".text").Characteristics |= pefile.SECTION_CHARACTERISTICS["IMAGE_SCN_MEM_WRITE"]


def make_shared(image):
    section(image, b".data").Characteristics |= pefile.SECTION_CHARACTERISTICS["IMAGE_SCN_MEM_SHARED"]


def clear_flag(name):
    def change(image):
        image.OPTIONAL_HEADER.DllCharacteristics &= ~pefile.DLL_CHARACTERISTICS[f"IMAGE_DLLCHARACTERISTICS_{name}"]
    return change


def clear_file_flag(name):
    def change(image):
        image.FILE_HEADER.Characteristics &= ~pefile.IMAGE_CHARACTERISTICS[name]
    return change


def drop_directory(name):
    def change(image):
        entry = image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY[name]]
        entry.VirtualAddress = entry.Size = 0
    return change


def add_delay_imports(image):
    image.OPTIONAL_HEADER.DATA_DIRECTORY[pefile.DIRECTORY_ENTRY["IMAGE_DIRECTORY_ENTRY_DELAY_IMPORT"]].Size = 32


def use_console(image):
    image.OPTIONAL_HEADER.Subsystem = pefile.SUBSYSTEM_TYPE["IMAGE_SUBSYSTEM_WINDOWS_CUI"]


def link_low(image):
    image.OPTIONAL_HEADER.ImageBase = 0x400000


class ExecutableTest(unittest.TestCase):
    def test_the_launcher_as_built_has_no_problem(self):
        self.assertEqual([], list(problems_of(LAUNCHER)))

    def test_each_spoiled_header_is_noticed(self):
        for change, word in (
            (make_writable, "writable and executable: .text"),
            (make_shared, "other processes share: .data"),
            (clear_flag("HIGH_ENTROPY_VA"), "HIGH_ENTROPY_VA"),
            (clear_flag("DYNAMIC_BASE"), "DYNAMIC_BASE"),
            (clear_flag("NX_COMPAT"), "NX_COMPAT"),
            (clear_file_flag("IMAGE_FILE_LARGE_ADDRESS_AWARE"), "large addresses"),
            (drop_directory("IMAGE_DIRECTORY_ENTRY_BASERELOC"), "no relocations"),
            (drop_directory("IMAGE_DIRECTORY_ENTRY_IMPORT"), "no import table"),
            (drop_directory("IMAGE_DIRECTORY_ENTRY_RESOURCE"), "manifest lacks"),
            (add_delay_imports, "DELAY_IMPORT"),
            (use_console, "GUI subsystem"),
            (link_low, "below 4 GB"),
        ):
            with self.subTest(word):
                self.assertTrue(any(word in problem for problem in problems_of(spoiled(change))))

    def test_a_large_file_is_noticed(self):
        self.assertTrue(any("larger" in problem for problem in problems_of(LAUNCHER + bytes(192 * 1024))))

    def test_an_import_that_leads_elsewhere_is_noticed(self):
        self.assertIn(b"AddAccessAllowedAceEx\0", LAUNCHER)
        spoiled_imports = LAUNCHER.replace(b"AddAccessAllowedAceEx\0", b"SystemFunction036".ljust(22, b"\0"))
        self.assertTrue(any("leads to a library" in problem for problem in problems_of(spoiled_imports)))

    def test_each_spoiled_text_is_noticed(self):
        for old, new, word in (
            (b"SHELL32.dll", b"SHELL33.dll", "imports shell33.dll"),
            (b'level="asInvoker"', b'level="isInvoker"', "asInvoker"),
            (b'uiAccess="false"', b'uiAccess="truth"', "uiAccess"),
            (b">true</longPathAware>", b">nope</longPathAware>", "longPathAware"),
            (b"{8e0f7a12", b"{8e0f7a13", "8e0f7a12"),
            (b"<!-- Windows 10 and 11 -->", b'<supportedOS Id="{a}"/>   ', "other systems"),
            (b">true/pm</dpiAware>", b">nope/pm</dpiAware>", "true/pm"),
            (b">PerMonitorV2,", b">PerMonitorV1,", "PerMonitorV2"),
            (b'Common-Controls" version="6.', b'Common-Controls" version="5.', "Common-Controls"),
            (b"6595b64144ccf1df", b"6595b64144ccf1de", "6595b64144ccf1df"),
            (b"</assembly>", b"</assemblx>", "no XML"),
            (b'name="Plinket.Launcher" version="1.', b'name="Plinket.Launcher" version="7.', "another version"),
            (utf16("FileDescription"), utf16("FileDescriptiom"), "as FileDescription"),
            (utf16("ProductName"), utf16("ProductMane"), "as ProductName"),
            (utf16("launcher.exe"), utf16("launcher.exf"), "as OriginalFilename"),
        ):
            with self.subTest(word):
                self.assertIn(old, LAUNCHER)
                self.assertTrue(any(word in problem for problem in problems_of(LAUNCHER.replace(old, new))))

    def test_each_spoiled_version_number_is_noticed(self):
        numbers = LAUNCHER.index(b"\xbd\x04\xef\xfe") + 8  # behind the signature and version of the fixed part
        for offset, word in ((2, "numbers of FileVersion"), (4, "numbers of FileVersion"),
                             (10, "numbers of ProductVersion"), (12, "numbers of ProductVersion")):
            with self.subTest(offset):
                content = bytearray(LAUNCHER)
                content[numbers + offset] += 1
                self.assertTrue(any(word in problem for problem in problems_of(bytes(content))))

    def test_another_name_or_version_in_the_source_is_noticed(self):
        for old, new, words in (
            ('TEXT "1.', 'TEXT "7.', ("another version than version.h", "as FileVersion", "as ProductVersion",
                                      "numbers of FileVersion", "numbers of ProductVersion", "disagrees")),
            ("NUMBERS 1,", "NUMBERS 7,", ("disagrees",)),
            ('L"Plinket', 'L"Plonket', ("as ProductName", "as FileDescription")),
        ):
            self.assertIn(old, SOURCES)
            problems = list(problems_of(LAUNCHER, SOURCES.replace(old, new)))
            for word in words:
                with self.subTest(new + ": " + word):
                    self.assertTrue(any(word in problem for problem in problems))


if __name__ == "__main__":
    unittest.main()
