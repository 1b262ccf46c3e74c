#!/usr/bin/env python3
"""Counts the tests of one run, by layer and by platform, from the reports that the run left behind.

--failed REPORT: only the names of the failed ones in one report of CTest.
"""

import collections
import pathlib
import sys
import xml.etree.ElementTree as ElementTree


# Kinds of CTest entries that are tests by themselves; the other entries are programs that leave a report of their own.
SINGLE = ("end_to_end", "conformance", "documents", "launcher_file", "explain_file")


def outcome(case):
    if case.find("failure") is not None or case.find("error") is not None or case.get("status") == "fail":
        return "failed"
    if case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
        return "skipped"
    return "passed"


def read_reports(directory, counts):
    name = str(directory)
    platform = "Windows" if "windows" in name else "optimised" if "release" in name else "native"
    for report in sorted(directory.glob("*.xml")):
        layer = report.stem.split("_")[0]
        for case in ElementTree.parse(report).getroot().iter("testcase"):
            counts[layer, platform][outcome(case)] += 1
    last = {}  # outcome by name: that of a second run counts
    for report in (directory / "windows.junit", directory / "windows-alone.junit"):
        if report.exists():
            for case in ElementTree.parse(report).getroot().iter("testcase"):
                if case.get("status") != "notrun" or case.get("name") not in last:
                    last[case.get("name")] = outcome(case)
    for name, result in last.items():
        layer = name.split(".")[0]
        if layer in SINGLE:
            counts[layer, "Windows"][result] += 1


def failed_in(report):
    return [case.get("name") for case in ElementTree.parse(report).getroot().iter("testcase")
            if outcome(case) == "failed"]


def main():
    if sys.argv[1] == "--failed":
        print("\n".join(failed_in(sys.argv[2])))
        return 0
    counts = collections.defaultdict(collections.Counter)
    for name in sys.argv[1:]:
        read_reports(pathlib.Path(name), counts)
    totals = collections.Counter()
    print(f"\n{'layer':<13} {'platform':<10} {'passed':>7} {'failed':>7} {'skipped':>8}")
    for (layer, platform), count in sorted(counts.items()):
        totals.update(count)
        print(f"{layer:<13} {platform:<10} {count['passed']:>7} {count['failed']:>7} {count['skipped']:>8}")
    summary = f"{totals['passed']} passed, {totals['failed']} failed"
    if totals["skipped"]:
        summary += f", {totals['skipped']} skipped"
    print(summary)
    for name in sys.argv[1:]:
        first = pathlib.Path(name) / "windows.junit"
        if (pathlib.Path(name) / "windows-alone.junit").exists():
            print("failed beside the others, and run once more, alone: " + ", ".join(failed_in(first)))
    return 1 if totals["failed"] or not totals["passed"] else 0


if __name__ == "__main__":
    sys.exit(main())
