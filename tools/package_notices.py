"""NOTICES.txt: the terms of the run-time libraries that are linked into the programs.

The linker's map of each program says which files of which archives it took in; Debian's records say which package
brought each archive; that package's copyright file has the terms. So a library that is linked in one day brings its
notice along, or stops the packaging here.
"""

import pathlib
import re
import subprocess

DOCUMENTS = pathlib.Path("/usr/share/doc")
LICENCES = pathlib.Path("/usr/share/common-licenses")
MEMBER = re.compile(r"^(/\S+?\.a)\((\S+?)\)", re.M)
OBJECT = re.compile(r"^LOAD (/\S+\.o)$", re.M)
# Archives that only name what a library of the system has: nothing of theirs but the names gets into a program.
NAMES_ALONE = {"libkernel32.a", "libadvapi32.a", "libshell32.a", "libuser32.a", "libgdi32.a", "libole32.a",
               "libntdll.a", "libbcrypt.a"}
RULE = "=" * 78 + "\n"
FOREWORD = """NOTICES

The programs contain parts of run-time libraries that others have made, linked into them. The terms of these parts
follow, as the packages tell them that the parts were taken from.
"""


class Missing(Exception):
    """Something that the notices need is not there."""


def linked_files(link_map):
    """{path of the archive or object: names of the members taken in} for the text of a link map."""
    found = {}
    for archive, member in MEMBER.findall(link_map):
        found.setdefault(str(pathlib.Path(archive).resolve()), set()).add(member)
    for path in OBJECT.findall(link_map):
        found.setdefault(str(pathlib.Path(path).resolve()), set())
    if not found:
        raise Missing("a link map names no library at all")
    return {path: members for path, members in found.items() if pathlib.Path(path).name not in NAMES_ALONE}


def owner(path):
    """The Debian package that brought a file, and its version."""
    done = subprocess.run(["dpkg", "-S", path], capture_output=True, text=True)
    if done.returncode != 0:
        raise Missing(f"no package has brought {path}")
    package = done.stdout.split(":")[0]
    version = subprocess.run(["dpkg-query", "-W", "-f", "${Version}", package], capture_output=True, text=True,
                             check=True).stdout
    return package, version


def linked_into_elf(path):
    """The same as linked_files for a Linux program made by g++, which has no map: what it does not load it contains."""
    done = subprocess.run(["readelf", "-d", path], capture_output=True, text=True, check=True)
    loaded = re.findall(r"\(NEEDED\).*\[(.*)\]", done.stdout)
    contained = ["crtbeginS.o"] + [archive for library, archive in (
        ("libstdc++.so.6", "libstdc++.a"), ("libgcc_s.so.1", "libgcc.a"), ("libc.so.6", "libc.a"))
        if library not in loaded]
    return {str(pathlib.Path(subprocess.run(["g++", f"-print-file-name={name}"], capture_output=True, text=True,
                                            check=True).stdout.strip()).resolve()): set() for name in contained}


def copyright_of(package):
    path = DOCUMENTS / package / "copyright"
    if not path.exists():
        raise Missing(f"there is no {path}")
    return path.read_text(encoding="utf-8")


def cut(text, begin, end):
    """From the line `begin` up to the line that starts with `end`."""
    start = text.find(begin)
    stop = text.find(end, start + 1) if end else len(text)
    if start < 0 or stop < 0:
        raise Missing(f"a copyright file has no text from {begin!r} to {end!r} any more")
    return text[start:stop].rstrip() + "\n"


def compiler_terms(package):
    """libgcc, libstdc++ and the compiler's start-up files: the GPL with an exception that covers programs."""
    text = copyright_of(package)
    licence = LICENCES / "GPL-3"
    if not licence.exists():
        raise Missing(f"there is no {licence}")
    return (cut(text, "GCC is Copyright", "The libbacktrace library") + "\n" +
            cut(text, "GCC RUNTIME LIBRARY EXCEPTION", "libquadmath/") + "\n" + licence.read_text())


def stanzas(text):
    """The paragraphs of a machine-readable copyright file, as (files, licence, whole text)."""
    for paragraph in text.split("\n\n"):
        files = re.match(r"Files:((?:.*\n)(?:[ \t]+.*\n)*)", paragraph)
        if files:
            licence = re.search(r"^License: *(.*)", paragraph, re.M)
            yield files[1].split(), licence[1] if licence else "", paragraph.rstrip() + "\n"


def licence_texts(text, names):
    for paragraph in text.split("\n\n"):
        head = re.match(r"License: *(\S+)\n(?= )", paragraph)
        if head and head[1] in names:
            yield paragraph.rstrip() + "\n"


def stem(member):
    """The name of the source file: "libmingwex.a/lib64_libmingwex_a-mingw_vfprintf.o" came from mingw_vfprintf.c."""
    return re.split(r"_a-|/", pathlib.PurePath(member).stem)[-1]


def applies(files, members):
    """Whether a paragraph about these source files is about something that was linked."""
    threads = any("pthread" in member for member in members)
    for pattern in map(pathlib.PurePath, files):
        of_the_threads = "winpthreads" in pattern.parts
        if str(pattern) == "*" or str(pattern.parent) in ("mingw-w64-crt/crt", "mingw-w64-crt/gdtoa"):
            return True
        if threads and of_the_threads and (pattern.name in ("*", "pthread.h") and "tests_pthread" not in pattern.parts):
            return True
        if (of_the_threads or pattern.parts[0] == "mingw-w64-crt") and pattern.stem in map(stem, members):
            return True
    return False


def platform_terms(package, members):
    """The C run-time library of mingw-w64, whose parts have several licences: those of the parts linked."""
    text = copyright_of(package)
    chosen = [(licence, whole) for files, licence, whole in stanzas(text) if applies(files, members)]
    if not any("Files: *" in whole for _, whole in chosen):
        raise Missing(f"the copyright file of {package} has another form than expected")
    names = {name for licence, _ in chosen for name in re.split(r" (?:and|or) ", licence)}
    return "\n".join([whole for _, whole in chosen] + list(licence_texts(text, names)))


def by_package(linked):
    packages = {}
    for program, files in linked.items():
        for path, members in files.items():
            entry = packages.setdefault(owner(path), {"programs": set(), "files": set(), "members": set()})
            entry["programs"].add(program)
            entry["files"].add(pathlib.Path(path).name)
            entry["members"] |= {f"{pathlib.Path(path).name}/{member}" for member in members}
    return packages


def terms_of(package, entry):
    if package.startswith(("gcc-mingw-w64", "g++-mingw-w64", "libgcc", "libstdc++")):
        return compiler_terms(package)
    if package.startswith("mingw-w64"):
        return platform_terms(package, entry["members"])
    raise Missing(f"no rule for the terms of {package}, which {', '.join(sorted(entry['programs']))} contains")


def notices(linked):
    """The text of NOTICES.txt. `linked`: {name of the program: what linked_files or linked_into_elf says of it}."""
    parts = {}  # terms that several packages share are printed once
    for (package, version), entry in sorted(by_package(linked).items()):
        head = (f"{package} {version}\n  taken from {', '.join(sorted(entry['files']))}\n"
                f"  in {', '.join(sorted(entry['programs']))}\n")
        parts.setdefault(terms_of(package, entry), []).append(head)
    texts = [f"{RULE}{''.join(heads)}{RULE}\n{terms}" for terms, heads in parts.items()]
    return "\n".join([FOREWORD, *texts])
