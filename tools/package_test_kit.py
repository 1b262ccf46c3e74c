"""The second zip: the Windows test programs as they were built, with a script that runs them on a Windows machine."""

import pathlib
import re
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
SCRIPT = "run-tests.cmd"

# What a test program needs beside it, by the folder it is built in. The folders are the same in the kit. A name with
# folders is a path in the build.
BESIDE = {
    "tests/os": ("command_line_corpus",),
    "tests/explain": ("explain/launcher-explain.exe", "launcher/launcher.exe",
                      "examples/sample_runtime/entry-v1.exe"),
    "tests/conformance": ("launcher.exe", "entry-v1.exe", "conformance.exe"),
    "tests/call_faults": ("call_fault_runtime.exe", "messages.md"),
    "tests/end_to_end": ("launcher.exe", "entry-v1.exe", "exhausted_launcher.exe", "unguarded_launcher.exe",
                         "inside_probe.exe", "launcher_on_played_volume.exe", "planted_library.dll"),
}


class Missing(Exception):
    """A part of the kit is not there, or one is there that nobody has arranged for."""


def test_programs(build):
    """All test programs that this build makes, as paths below it."""
    done = subprocess.run(["ninja", "-C", build, "-t", "targets", "all"], capture_output=True, text=True)
    if done.returncode != 0:
        raise Missing(f"{build} is no folder that something was built in")
    found = re.findall(r"^(tests/\S+_tests\.exe): CXX_EXECUTABLE_LINKER", done.stdout, re.M)
    if not found:
        raise Missing(f"{build} has no test programs")
    return sorted(found)


def copy(source, target):
    target.parent.mkdir(parents=True, exist_ok=True)
    if source.is_dir():
        shutil.copytree(source, target)
    elif source.is_file():
        shutil.copyfile(source, target)
    else:
        raise Missing(f"there is no {source}")


def in_windows_form(text):
    """The command interpreter finds its labels reliably only where lines end as Windows has them."""
    return text.replace("\r\n", "\n").replace("\n", "\r\n")


def check_script(script, programs):
    """Every program of the kit is run by the script, and nothing else is."""
    named = {name.replace("\\", "/") for name in re.findall(r"^call :program (\S+\.exe)", script, re.M)}
    for program in sorted(named ^ set(programs)):
        raise Missing(f"{program} is {'not built' if program in named else f'not run by {SCRIPT}'}")


def lay_out(folder, build, version):
    programs = test_programs(build)
    script = (ROOT / "tools" / "windows_kit" / SCRIPT).read_text()
    check_script(script, programs)
    for program in programs:
        copy(build / program, folder / program)
    for place, names in BESIDE.items():
        for name in names:
            source = build / name if "/" in name else build / place / name
            copy(source, folder / place / source.name)
    (folder / SCRIPT).write_text(in_windows_form(script), newline="")
    (folder / "VERSION").write_text(f"{version}\n", newline="\n")
    copy(ROOT / "tools" / "windows_kit" / "README.md", folder / "README.md")
    copy(ROOT / "docs" / "never-seen-on-windows.md", folder / "never-seen-on-windows.md")
    check_paths(folder, build)


def check_paths(folder, build):
    """A test program that looks for something where this machine keeps it would find nothing elsewhere."""
    places = {str(place) for place in (ROOT, build.resolve())}
    for path in sorted(folder.rglob("*")):
        content = path.read_bytes() if path.is_file() else b""
        for place in places:
            if place.encode() in content or place.encode("utf-16-le") in content:
                raise Missing(f"{path.relative_to(folder)} names {place}")
