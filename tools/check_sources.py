#!/usr/bin/env python3
"""Checks that need no compiler: who may include whom, what stays out of the product, each message text once."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
MAY_USE = {
    "json": {"json"},
    "state": {"state", "json"},
    "os": {"os"},
    "slots": {"slots", "state", "json", "os"},
    "launcher": {"launcher", "slots", "state", "json", "os"},
    # Reads by the launcher's own readers; what it must not use stands below.
    "explain": {"explain", "launcher", "slots", "state", "json", "os"},
    # Its bodies of the platform layer where there is no Windows.
    "explain/host": {"explain", "os"},
}
# launcher-explain reads. These are the headers by which the launcher takes locks, writes, removes, starts and reports;
# of those that hold both reading and changing, tools/check_explain_imports.py judges what has come into the program.
READING_ONLY = {"explain", "explain/host"}
CHANGES = {"launcher/launch_iteration.h", "launcher/launch_sequence.h", "launcher/supervision.h",
           "launcher/transitions.h", "slots/attempt_pruning.h", "slots/transition_commit.h", "os/child_process.h",
           "os/error_box.h", "os/job.h", "os/lock_file.h", "os/log.h", "os/private_list.h"}
WINDOWS_HEADERS = re.compile(
    r"^(windows|winternl|ntsecapi|aclapi|sddl|shellapi|accctrl|securitybaseapi|processthreadsapi|winnt|windef)\.h$", re.I)
HEAVY_HEADERS = {"iostream", "ostream", "istream", "fstream", "sstream", "iomanip", "filesystem", "regex", "locale"}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]', re.M)
STRING = re.compile(r'"((?:[^"\\\n]|\\.)*)"')


def sources():
    for layer in MAY_USE:
        for path in sorted((ROOT / layer).glob("*")):
            if path.suffix in (".h", ".cpp"):
                yield layer, path


def without_comments(text):
    text = re.sub(r"/\*.*?\*/", "", text, flags=re.S)
    return re.sub(r"//[^\n]*", "", text)


def check_includes(layer, path, text):
    for quote, name in INCLUDE.findall(text):
        if quote == '"':
            target = name.split("/")[0]
            if target not in MAY_USE[layer] or (layer in READING_ONLY and name in CHANGES):
                yield f"{path}: {layer}/ must not include {name}"
        elif WINDOWS_HEADERS.match(name):
            if layer != "os" or path.suffix == ".h":
                yield f"{path}: only os/*.cpp may include <{name}>"
        elif name in HEAVY_HEADERS:
            yield f"{path}: <{name}> stays out of the product"


def check_messages():
    """A text that a messages.h defines stands nowhere else in the product."""
    defined = {}
    for path in sorted(ROOT.glob("*/messages.h")):
        for line in without_comments(path.read_text()).splitlines():
            if "constexpr" in line:
                for text in STRING.findall(line):
                    if text in defined:
                        yield f"{path}: \"{text}\" stands in {defined[text]} already"
                    defined[text] = path
    for _, path in sources():
        if path.name == "messages.h":
            continue
        code = INCLUDE.sub("", without_comments(path.read_text()))
        for text in STRING.findall(code):
            if text in defined:
                yield f"{path}: \"{text}\" belongs to {defined[text]} alone"


def main():
    problems = []
    for layer, path in sources():
        problems += check_includes(layer, path.relative_to(ROOT), path.read_text())
    problems += check_messages()
    for problem in problems:
        print(problem)
    print(f"sources: {len(problems)} problem(s)")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
