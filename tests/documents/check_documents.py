#!/usr/bin/env python3
"""Holds the documents to the tree: links lead somewhere, the version is the change log's, the reference is complete."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "tools"))
sys.dont_write_bytecode = True
import check_messages  # noqa: E402  it knows how keys and texts stand in the code

BLOCK = re.compile(r"^( *)```.*?^\1```$", re.M | re.S)
LINK = re.compile(r"\]\(([^)\s]+)\)")
HEADING = re.compile(r"^#+ +(.*)$", re.M)
TREE_PATH = re.compile(r"(?:json|state|os|slots|launcher|explain|conformance|tests|tools|docs|examples|cmake)/[\w./*-]*$")
# Not links: what stands between backticks.
CODE = re.compile(r"`[^`\n]*`")


def documents():
    for pattern in ("*.md", "docs/*.md", "examples/*/*.md"):
        yield from sorted(ROOT.glob(pattern))


def anchors(text):
    """As the usual viewers make them: lower case, spaces to hyphens, other signs gone; repeated ones get a number."""
    found = set()
    for heading in HEADING.findall(BLOCK.sub("", text)):
        anchor = re.sub(r"[^\w\- ]", "", heading.strip().lower()).replace(" ", "-")
        number = 0
        while (name := anchor if number == 0 else f"{anchor}-{number}") in found:
            number += 1
        found.add(name)
    return found


def check_links():
    for path in documents():
        name = path.relative_to(ROOT)
        for target in LINK.findall(CODE.sub("", BLOCK.sub("", path.read_text()))):
            if re.match(r"[a-z]+:", target):
                continue
            file, _, anchor = target.partition("#")
            leads_to = (path.parent / file).resolve() if file else path
            if not leads_to.exists():
                yield f"{name}: no such file: {target}"
            elif anchor and anchor not in anchors(leads_to.read_text()):
                yield f"{name}: no such heading: {target}"


def check_paths():
    """Paths of this tree in backticks, also with a star in them."""
    for path in documents():
        for word in sorted(in_backticks(path.read_text())):
            if TREE_PATH.match(word) and not any(ROOT.glob(word.rstrip("/"))):
                yield f"{path.relative_to(ROOT)}: no such path: {word}"


def check_version():
    version = re.search(r'LAUNCHER_VERSION_TEXT "([^"]+)"', (ROOT / "launcher" / "version.h").read_text())[1]
    newest = re.search(r"^## \[([^\]]+)\]", (ROOT / "CHANGELOG.md").read_text(), re.M)
    if newest is None or newest[1] != version:
        yield f"CHANGELOG.md: the newest version is {newest and newest[1]}, launcher/version.h says {version}"


def in_backticks(text):
    return set(re.findall(r"`([^`\n]+)`", BLOCK.sub("", text)))


def check_reference():
    named = in_backticks((ROOT / "docs" / "state-reference.md").read_text())
    files = re.findall(r'= L"([^"]+)";', (ROOT / "slots" / "file_names.h").read_text())
    texts = set(check_messages.CONSTANT.findall((ROOT / "state" / "messages.h").read_text()))
    # "slot", "nonce" and others are handed over by constants; those that are written only stand in a call of their own.
    written = set()
    for path in (ROOT / "state").glob("*.cpp"):
        written |= set(re.findall(r'try_emplace\("(\w+)"', path.read_text()))
    variables = re.findall(r'L"(QUORVEX_BOOT_\w+)', (ROOT / "os" / "child_environment.cpp").read_text())
    for kind, words in (("file", files), ("text", texts), ("key", check_messages.keys() | written),
                        ("variable", [v.rstrip("=") for v in variables])):
        if len(words) < 4:
            yield f"too few words found in the code: {kind}"
        for word in sorted(set(words) - named):
            yield f"docs/state-reference.md: the {kind} `{word}` is missing"


def main():
    complaints = [*check_links(), *check_paths(), *check_version(), *check_reference()]
    for complaint in complaints:
        print(complaint)
    sys.exit(1 if complaints else 0)


if __name__ == "__main__":
    main()
