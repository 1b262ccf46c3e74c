#!/usr/bin/env python3
"""An integrator's icon gets into the executable's resources, and no other: launcher_icon_test.py CMAKE COMPILER

Configures this source tree anew, builds the resource script as the build does, and links it alone."""

import pathlib
import struct
import subprocess
import sys
import tempfile
import unittest

import pefile

SOURCE = pathlib.Path(__file__).resolve().parent.parent
COMPILER = sys.argv.pop()
CMAKE = sys.argv.pop()
SCRIPT = "launcher/CMakeFiles/launcher.dir/launcher.rc.res"
SIDE = 16  # pixels


def icon_image():
    header = struct.pack("<IiiHHIIiiII", 40, SIDE, 2 * SIDE, 1, 32, 0, 0, 0, 0, 0, 0)
    pixels = b"".join(struct.pack("<I", 0xFF000000 | number) for number in range(SIDE * SIDE))
    return header + pixels + bytes(4 * SIDE)  # and the mask: nothing is see-through


def icon_file():
    image = icon_image()
    return struct.pack("<HHH", 0, 1, 1) + struct.pack("<BBBBHHII", SIDE, SIDE, 0, 0, 1, 32, len(image), 22) + image


def resources_of(path):
    """Type of the resource to the bytes of each."""
    image = pefile.PE(str(path))
    return {pefile.RESOURCE_TYPE.get(kind.id, kind.id): [
        image.get_data(language.data.struct.OffsetToData, language.data.struct.Size)
        for entry in kind.directory.entries for language in entry.directory.entries]
        for kind in image.DIRECTORY_ENTRY_RESOURCE.entries}


class IconTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def configure(self, icon):
        return subprocess.run(
            [CMAKE, "-S", SOURCE, "-B", self.folder / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
             f"-DCMAKE_TOOLCHAIN_FILE={SOURCE}/cmake/mingw-w64.cmake", f"-DLAUNCHER_ICON={icon}"],
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def build(self, icon):
        configured = self.configure(icon)
        self.assertEqual(0, configured.returncode, configured.stdout)
        subprocess.run([CMAKE, "--build", self.folder / "build", "--target", SCRIPT], check=True,
                       stdout=subprocess.DEVNULL)
        library = self.folder / "resources.dll"
        subprocess.run([COMPILER, "-shared", "-nostdlib", "-Wl,-e,0", "-o", library, self.folder / "build" / SCRIPT],
                       check=True)
        return resources_of(library)

    def test_the_icon_is_in_and_goes_again_with_the_option(self):
        icon = self.folder / "the maker's own.ico"
        icon.write_bytes(icon_file())

        with_icon = self.build(icon)
        self.assertEqual([icon_image()], with_icon["RT_ICON"])
        self.assertEqual(1, len(with_icon["RT_GROUP_ICON"]))

        without_icon = self.build("")
        self.assertEqual({"RT_VERSION", "RT_MANIFEST"}, set(without_icon))
        for kind in without_icon:
            self.assertEqual(without_icon[kind], with_icon[kind])

    def test_an_icon_that_is_not_there_stops_the_configuration(self):
        configured = self.configure(self.folder / "missing.ico")
        self.assertNotEqual(0, configured.returncode)
        self.assertIn("LAUNCHER_ICON: there is no", configured.stdout)


if __name__ == "__main__":
    unittest.main()
