#!/usr/bin/env python3
"""Holds docs/messages.md, the texts in the code, and the list of the tests that see them to each other."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
CONSTANT = re.compile(r'constexpr\s+std::string_view\s+\w+\s*=\s*"((?:[^"\\]|\\.)*)"', re.S)
# A document's key, as a constant or handed to a reader.
KEY = re.compile(r'(?:\w*[kK]ey\s*=\s*|read(?:Optional)?(?:String|Unsigned)\(\w+,\s*)"(\w+)"')
ENTRY = re.compile(r"^\| `([^`]+)` \|", re.M)


def constants():
    texts = set()
    for path in sorted(ROOT.glob("*/messages.h")):
        texts |= set(CONSTANT.findall(path.read_text()))
    return texts


def keys():
    found = set()
    for path in sorted((ROOT / "state").glob("*.cpp")):
        found |= set(KEY.findall(path.read_text()))
    return found


def splits_into(text, pieces, used):
    """True when `text` is a sequence of the code's texts; adds those to `used`."""
    if not text:
        return True
    for piece in sorted(pieces, key=len, reverse=True):
        if text.startswith(piece):
            inner = set()
            if splits_into(text[len(piece):], pieces, inner):
                used |= inner | {piece}
                return True
    return False


def check_catalogue(entries):
    texts = constants()
    invalid_keys = {"invalid " + key for key in keys()}
    used = set()
    for entry in entries:
        if entry in invalid_keys and entry not in texts:
            used.add("invalid ")
            continue
        for fixed in re.split(r"<[^>]+>", entry):
            # Numbers and paths stand between the code's texts; a lone digit or sign of the page's own does not count.
            if not splits_into(fixed, texts, used):
                yield f'the catalogue has "{entry}", which the code does not print'
                break
    for text in sorted(texts - used):
        yield f'the code has "{text}", which is not in the catalogue'
    for text in sorted(invalid_keys - set(entries) - NEVER_FAIL):
        yield f'the code reports "{text}", which is not in the catalogue'


# Keys whose failure is worded otherwise, or that are written and not read.
NEVER_FAIL = set()


def test_names():
    names = {}
    for path in sorted((ROOT / "tests").rglob("*_test.cpp")):
        for group, name in re.findall(r"^TEST(?:_F|_P)?\(\s*(\w+)\s*,\s*(\w+)", path.read_text(), re.M):
            names[f"{group}.{name}"] = path
    return names


def constant_names():
    """The name of each text in the code."""
    named = re.compile(r'constexpr\s+std::string_view\s+(\w+)\s*=\s*"((?:[^"\\]|\\.)*)"', re.S)
    return {text: name for path in ROOT.glob("*/messages.h") for name, text in named.findall(path.read_text())}


def mentions(path, text, names):
    """True when the test's file holds the longest fixed part of `text`, or names its constant."""
    source = path.read_text()
    fixed = max(re.split(r"<[^>]+>", text), key=len)
    name = names.get(fixed)
    return fixed.strip() in source or (name is not None and f"messages::{name}" in source)


def check_tests(entries):
    """Each line of the list: a text of the catalogue, a tab, and the test that sees it printed or reported."""
    tests = test_names()
    names = constant_names()
    listed = set()
    for line in (ROOT / "tests" / "message_tests.txt").read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        text, _, test = line.partition("\t")
        listed.add(text)
        if text not in entries:
            yield f'message_tests.txt has "{text}", which is not in the catalogue'
        elif test not in tests:
            yield f"message_tests.txt: there is no test {test}"
        elif not mentions(tests[test], text, names):
            yield f'message_tests.txt: the file of {test} does not mention "{text}"'
    for text in entries:
        if text not in listed:
            yield f'no test is listed for "{text}"'


def main():
    entries = ENTRY.findall((ROOT / "docs" / "messages.md").read_text())
    problems = [f'the catalogue has "{e}" twice' for e in sorted(set(entries)) if entries.count(e) > 1]
    problems += check_catalogue(entries)
    problems += check_tests(entries)
    for problem in problems:
        print(problem)
    print(f"messages: {len(entries)} texts, {len(problems)} problem(s)")
    return 1 if problems or not entries else 0


if __name__ == "__main__":
    sys.exit(main())
