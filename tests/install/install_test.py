#!/usr/bin/env python3
"""The installed library as programs find it. install_test.py SOURCE BUILD COMPILER CXX_ID [TEST...]"""

import gzip
import os
import pathlib
import platform
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion", "-Werror"]
# g++ 12 sees overlapping copies in every `"text" + std::string` (its bug 105651).
QUIET = {"GNU": ["-Wno-restrict"]}


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{' '.join(map(str, command))}\n{done.stdout}{done.stderr}")
    return done.stdout


def public_symbols(library):
    """What the library shows, without the version of the ABI."""
    lines = (line.split() for line in run("nm", "-D", "--defined-only", library).splitlines())
    return {name.partition("@")[0] for *_, kind, name in lines if kind != "A"}


def readable(symbols):
    return run("c++filt", *sorted(symbols)) if symbols else ""


class InstallTest(unittest.TestCase):
    source, build, compiler, compiler_id = None, None, None, None

    @classmethod
    def setUpClass(cls):
        cls.work = pathlib.Path(tempfile.mkdtemp())
        cls.addClassCleanup(shutil.rmtree, cls.work)
        run("cmake", "--install", cls.build, "--prefix", cls.work / "first")
        # What was installed can be moved.
        cls.prefix = cls.work / "moved here"
        (cls.work / "first").rename(cls.prefix)
        cls.include = cls.prefix / "include" / "tamber"
        cls.library = next(cls.prefix.glob("lib*/**/libKelTamber.so"))

    def configure(self, source, build, *settings):
        return run("cmake", "-G", "Ninja", "-S", source, "-B", build, f"-DCMAKE_CXX_COMPILER={self.compiler}",
                   "-DCMAKE_BUILD_TYPE=Release", *settings)

    def test_what_is_shipped_is_hardened(self):
        # FORTIFY needs an optimising compiler; clang has it for fewer calls.
        fortified = self.compiler_id == "GNU" and \
            "CMAKE_BUILD_TYPE:STRING=Debug" not in (self.build / "CMakeCache.txt").read_text()
        for file in self.library, self.prefix / "bin/tamber":
            with self.subTest(file.name):
                headers = run("readelf", "--wide", "--file-header", "--segments", "--dynamic", file)
                self.assertRegex(headers, r"Type: +DYN")
                self.assertIn("GNU_RELRO", headers)
                self.assertRegex(headers, r"\(FLAGS_1\).*\bNOW\b")
                self.assertNotIn("TEXTREL", headers)
                self.assertNotRegex(headers, r"GNU_STACK.* RWE ")
                symbols = run("nm", "-D", "--undefined-only", file)
                self.assertIn("__stack_chk_fail", symbols)
                if fortified:
                    self.assertRegex(symbols, r"__(?!stack)\w+_chk\b")
        # The note on indirect branches is lost where the system's start files have none; the instructions remain.
        landing = {"x86_64": b"\xf3\x0f\x1e\xfa", "aarch64": b"\x5f\x24\x03\xd5"}.get(platform.machine())
        if landing:
            self.assertGreater(self.library.read_bytes().count(landing), len(public_symbols(self.library)) // 2)

    def test_a_project_finds_the_cmake_package(self):
        found = f"-DCMAKE_PREFIX_PATH={self.prefix}"
        project, build = self.source / "tests/install/consumer", self.work / "cmake"
        self.configure(project, build, found, "-DTAMBER_WANTED=0.1")
        run("cmake", "--build", build)
        self.assertEqual(run(build / "consumer"), "41\n")
        with self.assertRaisesRegex(AssertionError, r"that is compatible\s+with requested"):
            self.configure(project, self.work / "newer", found, "-DTAMBER_WANTED=1.0")

    def test_a_program_finds_it_by_pkg_config(self):
        environment = dict(os.environ, PKG_CONFIG_PATH=str(self.library.parent / "pkgconfig"))
        # Folders with blanks come back with them escaped, for a shell to read.
        flags = run("pkg-config", "--cflags", "--libs", "tamber", env=environment).strip()
        main, program = self.source / "tests/install/consumer/main.cpp", self.work / "by-pkg-config"
        run("sh", "-c", f"{self.compiler} -std=c++20 '{main}' -o '{program}' {flags}")
        self.assertEqual(run(program, env=dict(os.environ, LD_LIBRARY_PATH=str(self.library.parent))), "41\n")

    def test_the_command_finds_its_library(self):
        self.assertEqual(run(self.prefix / "bin/tamber", "-e", 'Print("hi\\n")'), "hi\n")
        self.assertIn("tamber \\- run", (self.prefix / "share/man/man1/tamber.1").read_text())

    def test_the_examples_build_and_run(self):
        examples, build = next(self.prefix.glob("share/doc/*/examples")), self.work / "examples"
        self.configure(examples, build, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", build)
        programs = sorted(p for p in examples.iterdir() if p.suffix in (".cpp", ".c"))
        self.assertTrue(programs)
        for program in programs:
            with self.subTest(program.name):
                wanted = program.with_suffix(".out").read_text()
                with tempfile.TemporaryDirectory() as folder:
                    self.assertEqual(run(build / program.stem, cwd=folder), wanted)
        for script in examples.glob("*.py"):
            with self.subTest(script.name):
                environment = dict(os.environ, LIBTAMBER=str(self.library))
                self.assertEqual(run(sys.executable, "-B", script, env=environment, cwd=self.work),
                                 script.with_suffix(".py.out").read_text())

    def test_a_module_builds_on_its_own(self):
        folder = self.work / "module"
        shutil.copytree(self.source / "examples/module", folder)
        self.configure(folder, folder / "build", f"-DCMAKE_PREFIX_PATH={self.prefix}")
        run("cmake", "--build", folder / "build")
        output = run(self.prefix / "bin/tamber", "counter.tam", cwd=folder)
        self.assertEqual(output, "value 999 after 1 call\nThe counter has reached its highest value\n")

    def test_every_public_header_stands_alone(self):
        for header in sorted(self.include.rglob("*.h")):
            with self.subTest(header.name):
                language = ["-x", "c", "-std=c11"] if header.name == "tamber_c.h" else ["-x", "c++", "-std=c++20"]
                compiler = "cc" if header.name == "tamber_c.h" else self.compiler
                quiet = [] if header.name == "tamber_c.h" else QUIET.get(self.compiler_id, [])
                run(compiler, *language, *WARNINGS, *quiet, "-fsyntax-only", "-I", self.include, "-include", header,
                    os.devnull)

    def test_all_that_the_headers_show_can_be_linked(self):
        if self.compiler_id != "GNU":
            self.skipTest("only g++ keeps inline functions that nobody calls")
        program, open_namespaces = ["#include <tamber.h>\nint main() {}\n"], []
        for header in sorted(self.include.rglob("*.h")):
            access, before = "", ""
            declared = re.compile(r"namespace \S+ \{\n(?:(?:class|struct) \w+;\n)+\}\n")
            for line in declared.sub("", header.read_text()).splitlines():
                if found := re.match(r"namespace (\S+) \{", line):
                    open_namespaces.append(found[1])
                elif line.startswith("}  // namespace"):
                    open_namespaces.pop()
                elif found := re.match(r" *(public|protected|private):", line):
                    access = found[1]
                elif "TAMBER_LOCAL" in line and "#define" not in line:
                    self.assertEqual(access, "private", f"{header.name}: {line}")
                elif (found := re.match(r"class TAMBER_API (\w+)(?! final)", line)) and "template" not in before:
                    # A class of one's own needs all virtual functions of its base.
                    program.append("struct My%d : %s { virtual void Key(); virtual ~My%d(); };\nvoid My%d::Key() {}\n"
                                   "My%d::~My%d() {}\n" % (len(program), "::".join(open_namespaces + [found[1]]),
                                                           *[len(program)] * 4))
                before = line
        self.assertGreater(len(program), 40)
        source = self.work / "everything.cpp"
        source.write_text("".join(program))
        run(self.compiler, "-std=c++20", "-O0", "-fkeep-inline-functions", "-I", self.include, source, "-o",
            self.work / "everything", self.library, f"-Wl,--no-undefined,-rpath,{self.library.parent}")

    def test_what_is_marked_for_hosts_is_exported(self):
        shown = public_symbols(self.library)
        # Every module has a stamp of its own.
        hidden = {"TamberModuleStamp"}
        # What is linked now: a build directory keeps the objects of sources that have gone.
        for item in re.findall(r"\S+\.o$", run("ninja", "-C", self.build, "-t", "inputs", "KelTamber"), re.MULTILINE):
            for line in run("readelf", "-sW", self.build / item).splitlines():
                found = re.search(r" (?:GLOBAL|WEAK) +DEFAULT +\d+ (?!_ZZ?N?K?St|_ZT.St|_ZN9__gnu)(\S+)", line)
                if found and found[1] not in shown:
                    hidden.add(found[1])
        self.assertEqual(hidden, {"TamberModuleStamp"}, "cmake/exports.map.in lacks them")

    def test_symbols_are_those_under_review(self):
        if self.compiler_id != "GNU":
            self.skipTest("which inline functions are there is up to the compiler; the list is that of g++")
        if "CMAKE_BUILD_TYPE:STRING=Release" not in (self.build / "CMakeCache.txt").read_text():
            self.skipTest("the list is that of a release build")
        description = gzip.decompress((self.source / "docs/abi/libKelTamber.abi.gz").read_bytes()).decode()
        listed = set(re.findall(r"<elf-symbol name='([^']+)'", description))
        shown = public_symbols(self.library)
        self.assertEqual((readable(shown - listed), readable(listed - shown)), ("", ""),
                         "added or gone: see docs/abi.md; scripts/abi --accept makes the description anew")

    def test_a_static_build_shows_nothing(self):
        build = self.work / "static"
        self.configure(self.source, build, "-DBUILD_SHARED_LIBS=OFF")
        for source in ("kel/kelstring", "values/varint", "context/errlist"):
            item = f"CMakeFiles/tamber_{source.split('/')[0]}.dir/src/{source}.cpp.o"
            run("ninja", "-C", build, item)
            shown = [line for line in run("readelf", "-sW", build / item).splitlines()
                     if re.search(r" (GLOBAL|WEAK) +DEFAULT +\d+ ", line) and not re.search(r" _Z\w*St", line)]
            self.assertEqual(shown, [], source)

    def test_it_builds_inside_other_projects(self):
        # Beside the build folder the compiler's command lines are the same, and the cache has the objects already.
        build = self.build.with_name(self.build.name + "-subproject")
        self.addCleanup(shutil.rmtree, build, True)
        project, settings = self.source / "tests/install/subproject", (f"-DTAMBER_SOURCE={self.source}",
                                                                       "-DTAMBER_WERROR=ON")
        self.configure(project, self.work / "subdirectory", *settings)
        self.configure(project, build, "-DUSE_FETCHCONTENT=ON", *settings)
        run("cmake", "--build", build)
        self.assertEqual(run(build / "consumer"), "41\n")


if __name__ == "__main__":
    InstallTest.source, InstallTest.build = (pathlib.Path(p).resolve() for p in (sys.argv.pop(1), sys.argv.pop(1)))
    InstallTest.compiler, InstallTest.compiler_id = sys.argv.pop(1), sys.argv.pop(1)
    unittest.main()
