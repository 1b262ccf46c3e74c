#!/usr/bin/python3
"""Signs a copy of the packaged launcher.exe with a throw-away certificate and runs it: signing_test.py PACKAGE.zip

A signature is put behind the program and noted in its header; nothing that the system loads may change by it, the
symbols must still fit, and the program must still be what tools/check_executable.py wants of it.
"""

import pathlib
import subprocess
import sys
import tempfile
import unittest

import check_executable
import check_package
import package_symbols

PACKAGE = pathlib.Path(sys.argv.pop()).resolve()
NAME = "Throw-away certificate of a test"


def run(*command):
    return subprocess.run([str(word) for word in command], capture_output=True, text=True)


def must(*command):
    done = run(*command)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


class SigningTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="signing ", dir=check_package.drive_c())
        cls.addClassCleanup(folder.cleanup)
        cls.work = pathlib.Path(folder.name)
        cls.top = check_package.unpack(PACKAGE, cls.work)
        cls.plain = (cls.top / "launcher.exe").read_bytes()
        cls.key, cls.certificate = cls.work / "key.pem", cls.work / "certificate.pem"
        must("openssl", "req", "-x509", "-newkey", "rsa:2048", "-nodes", "-days", "2", "-subj", f"/CN={NAME}",
             "-addext", "extendedKeyUsage=codeSigning", "-keyout", cls.key, "-out", cls.certificate)
        cls.signed_path = cls.work / "signed.exe"
        must("osslsigncode", "sign", "-h", "sha256", "-certs", cls.certificate, "-key", cls.key, "-n",
             "Plinket launcher", "-in", cls.top / "launcher.exe", "-out", cls.signed_path)
        cls.signed = cls.signed_path.read_bytes()

    def verify(self, path):
        return run("osslsigncode", "verify", "-CAfile", self.certificate, "-in", path)

    def test_the_signature_is_found_to_be_good_and_ours(self):
        done = self.verify(self.signed_path)

        self.assertEqual(0, done.returncode, done.stdout + done.stderr)
        self.assertIn(NAME, done.stdout)

    def test_a_changed_byte_or_a_missing_signature_is_found(self):
        changed = bytearray(self.signed)
        changed[0x2000] ^= 1
        for content in (bytes(changed), self.plain):
            path = self.work / "other.exe"
            path.write_bytes(content)
            self.assertNotEqual(0, self.verify(path).returncode)

    def test_what_is_loaded_does_not_change_and_the_symbols_still_fit(self):
        symbols = (self.top / "symbols" / "launcher.exe.debug").read_bytes()

        self.assertNotEqual(self.plain, self.signed)
        self.assertEqual([], list(package_symbols.differences(self.plain, self.signed)))
        self.assertEqual([], list(package_symbols.differences(self.signed, symbols)))

    def test_version_manifest_and_all_else_stay_as_they_should_be(self):
        self.assertEqual([], list(check_executable.problems_of(self.signed)))
        self.assertEqual(check_package.told_version(self.plain), check_package.told_version(self.signed))

    def test_the_signed_launcher_runs_its_runtime_and_ends_with_its_code(self):
        (self.top / "launcher.exe").write_bytes(self.signed)

        check_package.install(self.top, self.work / "App")

        self.assertEqual([], list(check_package.launch_problems(self.work / "App")))


if __name__ == "__main__":
    unittest.main()
