#!/usr/bin/env python3
"""The Debian packages: made, installed, tried and removed again. package_test.py SOURCE

Only root can install; anybody else unpacks them and tries what is inside."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

PACKAGES = ("libkeltamber0", "libkeltamber-dev", "tamber")


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


def installed(package):
    done = subprocess.run(["dpkg-query", "-W", "-f=${db:Status-Status}", package], capture_output=True, text=True,
                          check=False)
    return done.stdout == "installed"


class PackageTest(unittest.TestCase):
    source = None

    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.work)
        # apt reads packages as a user of its own.
        cls.work.chmod(0o755)
        run(cls.source / "scripts/package", cls.work)
        cls.files = {p.name.split("_")[0]: p for p in cls.work.glob("*.deb")}

    def try_it(self, root, environment):
        main, program = self.source / "tests/install/consumer/main.cpp", self.work / "program"
        library = next((root / "usr/lib").rglob("libKelTamber.so"))
        include = root / "usr/include"
        run("c++", "-std=c++20", f"-I{include}", f"-I{include}/tamber", main, "-o", program, f"-L{library.parent}",
            "-lKelTamber")
        self.assertEqual(run(program, env=environment), "41\n")
        self.assertEqual(run(root / "usr/bin/tamber", "-e", 'Print("hi\\n")', env=environment, cwd=self.work), "hi\n")

    def test_documentation_lies_under_the_packages_names(self):
        manual = ["README.md", "docs/README.md", "docs/builtins/README.md", "docs/language/types.md", "examples/tour.tam"]
        for package, more in zip(PACKAGES, ([], manual, manual)):
            root = self.work / f"{package}.files"
            run("dpkg-deb", "-x", self.files[package], root)
            self.assertEqual([p.name for p in (root / "usr/share/doc").iterdir()], [package])
            for name in ["copyright", "changelog.gz", "changelog.Debian.gz", *more]:
                self.assertTrue((root / "usr/share/doc" / package / name).is_file(), f"{package}: {name}")
            self.assertRegex(run("dpkg-deb", "-f", self.files[package], "Maintainer"), r"^[\w ]+ <\S+@\S+>$")
        self.assertTrue((root / "usr/share/man/man1/tamber.1.gz").is_file())

    def test_every_file_is_built_as_the_distribution_asks(self):
        commands = run("ninja", "-C", self.source / "build-package", "-t", "commands", "tamber")
        log = self.work / "commands.log"
        log.write_text("dpkg-buildpackage: info: source package tamber\n" + commands)
        # Packages are stripped.
        run("blhc", "--all", "--ignore-flag", "-g", log)

    def test_they_work(self):
        if os.geteuid() != 0 or any(map(installed, PACKAGES)):
            root = self.work / "root"
            for file in self.files.values():
                run("dpkg-deb", "-x", file, root)
            library = next((root / "usr/lib").rglob("libKelTamber.so"))
            self.try_it(root, dict(os.environ, LD_LIBRARY_PATH=str(library.parent)))
            return
        try:
            run("dpkg", "-i", *self.files.values())
            self.try_it(pathlib.Path("/"), None)
            self.assertIn("0.1", run("pkg-config", "--modversion", "tamber"))
        finally:
            run("dpkg", "-P", *PACKAGES)
        self.assertFalse(any(map(installed, PACKAGES)))
        self.assertFalse(pathlib.Path("/usr/include/tamber").exists())


if __name__ == "__main__":
    PackageTest.source = pathlib.Path(sys.argv.pop(1)).resolve()
    unittest.main()
