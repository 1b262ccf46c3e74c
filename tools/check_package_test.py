#!/usr/bin/python3
"""Spoils copies of a package in one thing at a time: each must be noticed. check_package_test.py PACKAGE.zip"""

import copy
import pathlib
import sys
import tempfile
import unittest

import check_package
import package_zip

PACKAGE = check_package.Package(pathlib.Path(sys.argv.pop()).resolve())


def spoiled(change):
    package = copy.copy(PACKAGE)
    package.files = dict(PACKAGE.files)
    package.entries = [copy.copy(entry) for entry in PACKAGE.entries]
    change(package)
    return package


def entry_of(package, name):
    return next(entry for entry in package.entries if entry.filename == f"{package.top}/{name}")


def replace(name, old, new):
    def change(package):
        assert old in package.files[name], (name, old)
        package.files[name] = package.files[name].replace(old, new)
    return change


def append(name, more):
    def change(package):
        package.files[name] += more
    return change


def remove(name):
    def change(package):
        del package.files[name]
    return change


def set_entry(name, field, value):
    def change(package):
        setattr(entry_of(package, name), field, value)
    return change


def flip_code(package):
    content = bytearray(package.files["launcher.exe"])
    content[0x2000] ^= 1
    package.files["launcher.exe"] = bytes(content)


def swap_symbols(package):
    package.files["symbols/launcher.exe.debug"] = package.files["symbols/entry-v1.exe.debug"]


def use_stripped(package):
    package.files["symbols/launcher.exe.debug"] = package.files["launcher.exe"]


def cut_sum(package):
    lines = package.files[package_zip.SUMS].splitlines(keepends=True)
    package.files[package_zip.SUMS] = b"".join(lines[1:])


class PackageTest(unittest.TestCase):
    def notices(self, change, word, check=check_package.problems_of):
        problems = list(check(spoiled(change)))
        self.assertTrue(any(word in problem for problem in problems), (word, problems))

    def test_the_package_as_made_has_no_problem(self):
        self.assertEqual([], list(check_package.problems_of(PACKAGE)))

    def test_each_missing_part_is_noticed(self):
        for name in check_package.PARTS:
            with self.subTest(name):
                self.notices(remove(name), f"lacks {name}", check_package.part_problems)

    def test_odd_entries_are_noticed(self):
        for change, word in (
            (lambda package: package.entries.reverse(), "not in order"),
            (lambda package: package.entries.append(package.entries[-1]), "twice"),
            (set_entry("VERSION", "external_attr", 0o100666 << 16), "mode 100666"),
            (set_entry("VERSION", "external_attr", 0o100755 << 16), "mode 100755"),
            (set_entry("VERSION", "external_attr", 0o120777 << 16), "mode 120777"),
            (set_entry("linux/launcher-explain", "external_attr", 0o100644 << 16), "mode 100644"),
            (set_entry("VERSION", "date_time", (2025, 1, 1, 0, 0, 0)), "a time of"),
            (set_entry("VERSION", "filename", f"{PACKAGE.top}/../VERSION"), "outside"),
            (set_entry("VERSION", "filename", "VERSION"), "outside"),
        ):
            with self.subTest(word):
                self.notices(change, word, check_package.entry_problems)

    def test_wrong_checksums_are_noticed(self):
        for change, word in (
            (append("VERSION", b" "), "wrong checksum of VERSION"),
            (cut_sum, "no checksum of"),
            (append(package_zip.SUMS, b"00  nothing.txt\n"), "nothing.txt, which is not there"),
        ):
            with self.subTest(word):
                self.notices(change, word, check_package.sum_problems)

    def test_another_version_anywhere_is_noticed(self):
        version = PACKAGE.files["VERSION"].strip()
        for change, word in (
            (append("VERSION", b"9"), "is called"),
            (replace("CHANGELOG.md", b"## ", b"## 99.9.9 "), "99.9.9"),
            (replace("CHANGELOG.md", b"## ", b"# "), "no version"),
            (replace("launcher.exe", version.decode().encode("utf-16-le"), "9.9.9".encode("utf-16-le")), "9.9.9"),
        ):
            with self.subTest(word):
                self.notices(change, word, check_package.version_problems)

    def test_links_that_lead_nowhere_are_noticed(self):
        for more, word in (
            (b"\n[a](docs/no-such.md)\n", "no-such.md"),
            (b"\n![a](docs/pictures/no-such.png)\n", "no-such.png"),
            (b"\n[a](docs/design.md#no-such-heading)\n", "no-such-heading"),
            (b"\n[a](#no-such-heading)\n", "no-such-heading"),
            (b"\n[a]: ../outside.md\n", "outside.md"),
        ):
            with self.subTest(word):
                self.notices(append("README.md", more), word, check_package.link_problems)

    def test_links_that_lead_on_are_not(self):
        more = b"\n[a](docs/) [b](https://example.com/) [c](docs/design.md#layers) `[d](e)`\n```\n[f](g)\n```\n"
        problems = list(check_package.link_problems(spoiled(append("README.md", more))))
        self.assertEqual(list(check_package.link_problems(PACKAGE)), problems)

    def test_a_place_of_the_building_machine_is_noticed(self):
        for name, more in (("launcher.exe", b"/home/x"), ("README.md", b"/tmp/x"),
                           ("conformance.exe", "/root/x".encode("utf-16-le"))):
            with self.subTest(name):
                self.notices(append(name, more), name, check_package.place_problems)

    def test_symbols_of_something_else_are_noticed(self):
        for change, word in (
            (flip_code, ".text has other contents"),
            (swap_symbols, "do not fit launcher.exe"),
            (use_stripped, "launcher.exe without any"),
        ):
            with self.subTest(word):
                self.notices(change, word, check_package.symbol_problems)

    def test_symbols_that_name_nothing_are_noticed(self):
        self.notices(use_stripped, "do not know the launch sequence", check_package.naming_problems)

    def test_missing_notices_are_noticed(self):
        for old, word in ((b"conformance.exe", "conformance.exe"), (b"RUNTIME LIBRARY EXCEPTION", "RUNTIME LIBRARY"),
                          (b"the mingw-w64 project", "mingw-w64")):
            with self.subTest(word):
                self.notices(replace("NOTICES.txt", old, b"-"), word, check_package.notice_problems)

    def test_a_launcher_that_does_not_launch_is_noticed(self):
        with tempfile.TemporaryDirectory(prefix="spoiled ", dir=check_package.drive_c()) as folder:
            top, app = pathlib.Path(folder) / "top", pathlib.Path(folder) / "App"
            for name in ("launcher.exe", "examples/sample_runtime/entry-v1.exe"):
                (top / name).parent.mkdir(parents=True, exist_ok=True)
                (top / name).write_bytes(PACKAGE.files["launcher-explain.exe"])
            check_package.install(top, app)

            problems = "".join(check_package.launch_problems(app))

        self.assertIn("not with its runtime's 41", problems)
        self.assertIn("has not started the runtime", problems)


if __name__ == "__main__":
    unittest.main()
