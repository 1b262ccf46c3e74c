#!/usr/bin/env python3
"""Makes one source file of the C++ blocks of a document: extract_snippets.py DOCUMENT OUTPUT.

Each block becomes the body of a function of its own that is given `launch`, as the guide says.
"""

import pathlib
import re
import sys

BLOCK = re.compile(r"^( *)```cpp\n(.*?)^\1```$", re.M | re.S)
TOP = """\
#include <windows.h>

#include <string>
#include <vector>

#include "launcher_client.h"

using namespace launcher_client;
"""


def main():
    document, output = map(pathlib.Path, sys.argv[1:3])
    text = document.read_text()
    parts = [TOP]
    for number, match in enumerate(BLOCK.finditer(text), 1):
        line = text.count("\n", 0, match.start()) + 2
        parts.append(f"\nvoid snippet{number}(const Launch& launch);\n"
                     f"void snippet{number}([[maybe_unused]] const Launch& launch) {{\n"
                     f'#line {line} "{document.as_posix()}"\n{match[2]}}}\n')
    if len(parts) < 2:
        sys.exit(f"no C++ in {document}")
    output.write_text("".join(parts))


if __name__ == "__main__":
    main()
