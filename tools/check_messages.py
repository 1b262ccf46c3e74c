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


def test_body(path, test):
    group, name = test.split(".")
    text = path.read_text()
    match = re.search(rf"^TEST(?:_F|_P)?\(\s*{group}\s*,\s*{name}\b", text, re.M)
    following = re.search(r"^}", text[match.start():], re.M)
    return text[match.start():match.start() + following.end()]


def check_tests(entries):
    """Each line of the list: a text of the catalogue, a tab, and the test that sees it printed or reported."""
    names = test_names()
    listed = set()
    for line in (ROOT / "tests" / "message_tests.txt").read_text().splitlines():
        if not line or line.startswith("#"):
            continue
        text, _, test = line.partition("\t")
        listed.add(text)
        if text not in entries:
            yield f'message_tests.txt has "{text}", which is not in the catalogue'
        elif test not in names:
            yield f"message_tests.txt: there is no test {test}"
        else:
            # The fixed beginning stands in the test itself: a test is not listed for a text that it does not look at.
            fixed = max(re.split(r"<[^>]+>", text), key=len)
            if fixed.strip() not in test_body(names[test], test):
                yield f'message_tests.txt: {test} does not mention "{fixed}"'
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
