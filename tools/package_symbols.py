"""Debug symbols for programs that ship without: package_symbols.py SHIPPED UNSTRIPPED

The unstripped program is linked a second time from the same sources with -g. Its addresses tell something about the
shipped one only if code and data are the same, byte for byte and at the same place; that is looked at here.
"""

import pathlib
import sys

import pefile

HEADER = ("ImageBase", "AddressOfEntryPoint", "SectionAlignment", "Subsystem", "DllCharacteristics")


def loaded_sections(image):
    """What the system loads, by name. Debug sections are marked as discardable and begin with "/" or ".debug"."""
    sections = {}
    for section in image.sections:
        name = section.Name.rstrip(b"\0").decode()
        if not name.startswith(("/", ".debug")):
            sections[name] = (section.VirtualAddress, section.Misc_VirtualSize,
                              section.get_data()[:section.Misc_VirtualSize].rstrip(b"\0"))
    return sections


def differences(shipped, unstripped):
    """In what the two programs (their bytes) differ apart from the symbols."""
    images = [pefile.PE(data=content, fast_load=True) for content in (shipped, unstripped)]
    for field in HEADER:
        values = [getattr(image.OPTIONAL_HEADER, field) for image in images]
        if values[0] != values[1]:
            yield f"{field} is {values[0]:#x} and {values[1]:#x}"
    first, second = map(loaded_sections, images)
    if not {".text", ".rdata", ".data"} <= first.keys():
        yield "the shipped one lacks a section that every program has"
    for name in sorted(first.keys() | second.keys()):
        if name not in first or name not in second:
            yield f"only one of them has {name}"
        elif first[name][:2] != second[name][:2]:
            yield f"{name} has another place or size"
        elif first[name][2] != second[name][2]:
            yield f"{name} has other contents"


def has_debug_information(unstripped):
    image = pefile.PE(data=unstripped, fast_load=True)
    return any(section.Name.startswith((b"/", b".debug")) for section in image.sections)


def main():
    shipped, unstripped = (pathlib.Path(argument).read_bytes() for argument in sys.argv[1:3])
    problems = list(differences(shipped, unstripped))
    if not has_debug_information(unstripped):
        problems.append("the second one has no debug information")
    for problem in problems:
        print(f"{sys.argv[1]}, {sys.argv[2]}: {problem}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
