"""What is in launcher.exe: it is linked once more, with a link map, and the sizes of its pieces are added up by origin."""

import collections
import pathlib
import re
import shlex
import subprocess
import tempfile

IMAGE_BASE = 0x140000000
PIECE = re.compile(r"^ (\.\S+)\s+0x([0-9a-f]+)\s+0x([0-9a-f]+)\s(\S.*)$")
NOT_IN_THE_FILE = (".debug", ".bss")
ORIGINS = (  # (what a piece's file name holds, whose it is), the first match counts
    ("dll stuff", "imports"), ("liblauncher_core", "launcher/"), ("launcher.rc", "version, manifest, icon"), ("launcher.dir", "launcher/"),
    ("liblauncher_slots", "slots/"), ("liblauncher_state", "state/"), ("liblauncher_json", "json/"),
    ("liblauncher_os", "os/"), ("libstdc++", "libstdc++"), ("libgcc", "libgcc: unwinding"),
    ("libpthread", "winpthreads"), ("libwinpthread", "winpthreads"),
    ("libkernel32", "imports"), ("libuser32", "imports"), ("libadvapi32", "imports"), ("libshell32", "imports"),
    ("libmsvcrt", "mingw-w64 start-up, C library's imports"), ("libmingw", "mingw-w64 start-up, C library's imports"),
    ("crt", "mingw-w64 start-up, C library's imports"))


def link_with_map(build, directory):
    commands = subprocess.run(["ninja", "-C", str(build), "-t", "commands", "-s", "launcher/launcher.exe"], check=True,
                              capture_output=True, text=True).stdout.strip().splitlines()
    # ": && COMPILER ... && :"
    words = shlex.split(commands[-1].split("&&")[1])
    words[words.index("-o") + 1] = str(directory / "launcher.exe")
    words = [word for word in words if not word.startswith("-Wl,--out-implib")]
    link_map = directory / "launcher.map"
    subprocess.run([*words, f"-Wl,-Map,{link_map}"], cwd=build, check=True)
    return link_map.read_text(), (directory / "launcher.exe").stat().st_size


def origin(file):
    for part, whose in ORIGINS:
        if part in file:
            return whose
    return "other: " + pathlib.PurePath(file).name


def sizes_by_origin(link_map):
    placed = link_map[link_map.index("Linker script and memory map"):]
    joined = re.sub(r"^( \.\S+)\n\s+", r"\1 ", placed, flags=re.M)  # long names have a line of their own
    sizes = collections.Counter()
    for line in joined.splitlines():
        piece = PIECE.match(line)
        if piece is None or piece[1].startswith(NOT_IN_THE_FILE) or int(piece[2], 16) < IMAGE_BASE:
            continue
        sizes[origin(piece[4])] += int(piece[3], 16)
    return sizes


def breakdown(build):
    """Returns ([(whose, bytes)], largest first, and the size of the file)."""
    with tempfile.TemporaryDirectory() as directory:
        link_map, size = link_with_map(build, pathlib.Path(directory))
    sizes = sizes_by_origin(link_map)
    sizes["headers, alignment"] = size - sum(sizes.values())
    return sizes.most_common(), size
