#!/usr/bin/env python3
"""The command seen from a shell: options, exit status, what goes to which stream. cli_test.py TAMBER"""

import ctypes.util
import os
import pathlib
import re
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

HELLO = 'proc main()\n  Print("hello\\n")\nendproc\n'
BROKEN = 'proc main()\n  Print("hello\\n"\nendproc\n'
DIVIDES = 'proc main()\n  int zero\n  Print("before\\n")\n  zero = 7 / zero\nendproc\n'
SHOWS_ARGS = """extern string[] Args
proc main()
  int i
  for (i = 1; i <= 3; i += 1)
    Print(Args[i] + "\\n")
  endfor
endproc
"""


class CommandTest(unittest.TestCase):
    command = ""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def script(self, text, name="a.tam"):
        (self.folder / name).write_text(text)
        return name

    def run_tamber(self, *args, stdin="", **options):
        done = subprocess.run([self.command, *args], cwd=self.folder, input=stdin.encode(), capture_output=True,
                              timeout=60, check=False, **options)
        return done.returncode, done.stdout.decode("latin-1"), done.stderr.decode("latin-1")

    def test_a_script_runs(self):
        self.assertEqual(self.run_tamber(self.script(HELLO)), (0, "hello\n", ""))
        self.assertEqual(self.run_tamber("-", stdin=HELLO), (0, "hello\n", ""))
        self.assertEqual(self.run_tamber(self.script("#!/usr/bin/env tamber\n" + HELLO)), (0, "hello\n", ""))

    def test_a_parse_error_names_file_line_and_reason(self):
        status, output, errors = self.run_tamber(self.script(BROKEN))
        self.assertEqual((status, output), (1, ""))
        self.assertRegex(errors, r"\A.*a\.tam:2: error ERR_\w+ \(20\d\d\d\): .+\n.*Print\(\"hello\\n\"\n *\^ column 3\n\Z")
        status, _, errors = self.run_tamber("-", stdin=BROKEN)
        self.assertEqual(status, 1)
        self.assertRegex(errors, r":2: error ERR_")

    def test_a_run_time_error_is_shown_although_the_report_goes_to_a_file(self):
        status, output, errors = self.run_tamber(self.script(DIVIDES))
        self.assertEqual((status, output), (1, "before\n"))
        self.assertRegex(errors, r"\A.*a\.tam:4: error ERR_DIVIDEBYZERO \(11\): Divide by zero error.*\n.*7 / zero\n           \^ column 12\n\Z")

    def test_files_that_are_no_scripts(self):
        (self.folder / "folder").mkdir()
        (self.folder / "nul.tam").write_bytes(b"proc main()\0endproc\n")
        for name, error in (("none.tam", r"ERR_FILENOTFOUND \(103\): File does not exist"),
                            ("folder", r"ERR_FILENOTVALID .*: is a directory"),
                            ("nul.tam", r"ERR_FILENOTVALID .*: holds NUL bytes.*")):
            status, output, errors = self.run_tamber(name)
            self.assertEqual((status, output), (1, ""), name)
            self.assertRegex(errors, rf"\A{self.folder}/{name}: error {error}\n\Z", "the path once, and no line")

    def test_check_compiles_only(self):
        self.assertEqual(self.run_tamber("--check", self.script(HELLO)), (0, "", ""))
        self.assertEqual(self.run_tamber("--check", self.script(BROKEN))[0], 1)

    def test_a_remainder_by_zero_in_a_declaration_is_an_error_of_compiling(self):
        main = "proc main()\nendproc\n"
        for text, line in ((f"const int X = 5 % 0\n{main}", 1), (f"const int Z = 0\nint g = 3 + 7 % Z\n{main}", 2),
                           (f"int F(int n)\n  array a\n  a <<= n\n  return 5 % a[1]\nendproc\nint g = F(0)\n{main}", 4)):
            status, _, errors = self.run_tamber("--check", self.script(text))
            self.assertEqual(status, 1, text)
            self.assertRegex(errors, rf"\A\S+a\.tam:{line}: error ERR_DIVIDEBYZERO", text)

    def test_a_script_that_calls_itself_is_told_once(self):
        errors = self.run_tamber(self.script('proc main()\n  call "a.tam"\nendproc\n'))[2]
        self.assertRegex(errors, r"\A\S+a\.tam:2: error .*\n.*\n.*\n  called by main at \S+ \(64 times\)\n\Z")

    def test_a_status_of_the_script_s_own(self):
        for value, status in (("0", 0), ("7", 7), ("255", 255), ("256", 1), ("-1", 1), ('7 + FileGetSize("/none")', 1)):
            text = f"extern int ExitCode\nproc main()\n  ExitCode = {value}\nendproc\n"
            done = self.run_tamber(self.script(text))
            self.assertEqual(done[0], status, value)
            self.assertEqual("ExitCode is" in done[2], value in ("256", "-1"))

    def test_output_is_collected_and_none_is_lost(self):
        text = 'proc main()\n  int z\n  Print("a\\n")\n  PrintError("b\\n")\n  Print("c\\n")\n  %s\nendproc\n'
        for statement, status, shown in (("z = 5 % z", -8, r"\S+a\.tam:6: error ERR_DIVIDEBYZERO .*\n.*\n +\^ column 9\n"),
                                         ("z = 5 / z", 1, r"\S+a\.tam:6: error .*\n.*\n.*\n"), ("z = 1", 0, "")):
            name = self.script(text % statement)
            done = subprocess.run([self.command, name], cwd=self.folder, stdout=subprocess.PIPE, check=False,
                                  stderr=subprocess.STDOUT, timeout=60)
            self.assertEqual(done.returncode, status)
            self.assertRegex(done.stdout.decode(), rf"\Aa\nb\nc\n{shown}\Z")
        asks = self.script('proc main()\n  Print("name? ")\n  Print("hi " + ReadLine())\n  FileCreate("x")\n  Sleep(60000)\n'
                           "endproc\n")
        with subprocess.Popen([self.command, asks], cwd=self.folder, stdin=subprocess.PIPE, stdout=subprocess.PIPE) as run:
            self.assertEqual(run.stdout.read(6), b"name? ")
            run.stdin.write(b"bob\n")
            run.stdin.flush()
            while not (self.folder / "x").exists() and run.poll() is None:
                time.sleep(0.01)
            run.terminate()
            self.assertEqual((run.stdout.read(), run.wait(60)), (b"hi bob", -15))

    def test_arguments(self):
        name = self.script(SHOWS_ARGS)
        self.assertEqual(self.run_tamber(name, "--check", "[a,b]", ""), (0, "--check\n[a,b]\n\n", ""))
        self.assertIn("ERR_VARARRAYBOUNDS", self.run_tamber(name, "one")[2])
        own = self.script('string[] Args\nproc main()\n  Print("own\\n")\nendproc\n')
        self.assertEqual(self.run_tamber(own, "x"), (0, "own\n", ""))
        self.assertEqual(self.run_tamber(self.script(HELLO), "x")[0], 0)

    def test_the_calls_that_led_to_an_error_are_shown(self):
        name = self.script("proc main()\n\tOuter(0)\nendproc\nproc Outer(int n)\n  Inner(n)\nendproc\n"
                           "proc Inner(int n)\n\tn = 1 / n\nendproc\n")
        lines = self.run_tamber(name)[2].splitlines()
        self.assertRegex(lines[0], r"a\.tam:8: error ERR_DIVIDEBYZERO")
        self.assertEqual(lines[1:3], ["\tn = 1 / n", "\t      ^ column 8"])
        self.assertRegex(lines[3], r"\A  called by Outer at .*a\.tam:5\Z")
        self.assertRegex(lines[4], r"\A  called by main at .*a\.tam:2\Z")

        deep = self.script("int Down(int n)\n  if n == 0\n    return 1 / n\n  endif\n  return Down(n - 1)\nendproc\n"
                           "proc main()\n  Print(\"\" + Down(5))\nendproc\n", "deep.tam")
        self.assertRegex(self.run_tamber(deep)[2], r"\n  called by Down at .*:5 \(5 times\)\n  called by main at .*:8\n\Z")

        self.script("proc main()\n  int z\n  z = 1 / z\nendproc\n", "called.tam")
        calls = self.script('proc Other()\n  call "called.tam"\nendproc\nproc main()\n  Other()\nendproc\n', "calls.tam")
        self.assertRegex(self.run_tamber(calls)[2], r"called\.tam:3: error .*\n.*\n.*\n  called by Other at .*/calls\.tam:2\n"
                                                    r"  called by main at .*/calls\.tam:5\n\Z")

    def test_the_mark_stands_under_the_place(self):
        for line, mark in (("\tz = 1 / z", "\t      ^ column 8"), ("  z\t= 1 / z", "   \t    ^ column 9"),
                           ('  Print("gr\u00f6\u00dfe " + 1 / z)', "                     ^ column 24"),
                           ('  Print("\u6f22\u5b57e\u0301" + 1 / z)', "                    ^ column 25"),
                           ("  z = 1 + \\\n  2 / z", "    ^ line 4, column 5")):
            errors = self.run_tamber(self.script(f"proc main()\n  int z\n{line}\nendproc\n"))[2].splitlines()
            self.assertRegex(errors[0], r"a\.tam:3: error ERR_DIVIDEBYZERO")
            self.assertEqual(errors[2], mark)

    def test_notes_and_hints_below_errors(self):
        procedure = "proc F(int a)\nendproc\nproc main()\n  int count\n  int[3] list\n  %s\nendproc\n"
        for line, told in (('count = "x"', "note: the target is of type int.*, the value of type string"),
                           ("count = cuont", 'hint: did you mean "count"\\?'), ("Prnt(1)", 'hint: did you mean "Print"\\?'),
                           ("list[5] = 1", "note: the index is 5, the array has 3 elements"),
                           ("F(1, 2)", "note: the call has 2 arguments, the procedure is F\\(int.* a\\)"),
                           ("StrLeft(count)", "note: the call has 1 argument: int.*\nnote: there is .*StrLeft"),
                           ("int x = 1", "hint: a local declaration takes no value"),
                           ("int F", "note: it is the procedure of .*/a.tam, line 1"),
                           ("int count", "note: this procedure declares it in line 4"),
                           ("other = 1", "note: no variable .* is declared\nhint: a variable is declared before"),
                           ("Other(1)", "note: there is no procedure or function"), ("count++", "hint: .*\\+= 1"),
                           ("while count = 1\n  wend", 'hint: "==" compares'), ("count = !FALSE and TRUE", 'hint: .*"&&"'),
                           ("Print(\u201cx\u201d)", "hint: .*ASCII"), ("int gr\u00f6\u00dfe", "hint: .*ASCII"),
                           ("count = 99999999999", "note: .*2147483647"), ("list[] = 1", 'hint: .*"<<="'),
                           ("Print(count)", 'note: .*\nnote: there is int Print .*\nhint: a number becomes a string'),
                           ('Print("a" & "b")', 'note: .*\nhint: strings are joined by "\\+"'),
                           ("switch count", 'hint: .*"elif"'),
                           ('list += "n"', 'note: what an array grows .*string\\nhint: an element is appended by "<<="'),
                           ("return 1", "hint: a procedure that returns a value"),
                           ("if 1", 'note: there is no "endif" for the "if" of line 6 before line 7')):
            errors = self.run_tamber(self.script(procedure % line))[2]
            self.assertRegex(errors, rf"\^.*\n{told}", line)
        for script, told in (("int x\nint x", "note: it is a variable of .*/a.tam, line 1"),
                             ("const X = 1\n\nstruct x\n  int y\nendstruct", "note: it is a constant of .*/a.tam, line 1"),
                             ("const X = 1\nproc main()\n  X = 2\nendproc", "note: it is a constant of .*/a.tam, line 1"),
                             ("struct P\n  int y\nendstruct\nint P", "note: it is a type of .*/a.tam, line 1"),
                             ("int ErrCode", "note: it is a variable that every script has"),
                             ("proc F(int a, int a)\nendproc", "note: it is a parameter"),
                             ("struct P\n  int y\nproc main()\nendproc", 'note: struct P begins in line 1; .*"endstruct"'),
                             ("struct P\n  strng y\nendstruct", 'hint: did you mean "string"'),
                             ("proc main()\n  int[][] a\nendproc", "hint: there are no arrays of arrays"),
                             ("def F()", 'hint: a procedure begins with "proc"'), ("int a,", "hint: a name is missing here"),
                             ("include a.tam", "note: .*\\nhint: the name of a file is written in double quotes"),
                             ("int F()\n  return\nendproc", "note: the procedure returns a value of type int"),
                             ("proc Mend()\nendproc\nproc main()\n  int z\n  ErrHandler = \"Mnd\"\n  z = 1 / z\nendproc",
                              'hint: did you mean "Mend"\\?')):
            self.assertRegex(self.run_tamber(self.script(script + "\n"))[2], rf"\^.*\n{told}", script)

    def test_long_lines_are_cut_and_control_bytes_escaped(self):
        line = "  Print(\"" + "x" * 400 + "\x1b[31m\" + unknown)"
        shown = self.run_tamber(self.script(f"proc main()\n{line}\nendproc\n"))[2].splitlines()
        self.assertLessEqual(len(shown[1]), 120)
        self.assertTrue(shown[1].startswith("...x"))
        self.assertIn("\\x1b[31m", shown[1])
        self.assertEqual(shown[1][shown[2].index("^"):][:7], "unknown")

    def test_output_that_cannot_be_written(self):
        endless = self.script('while 1\n  Print("x")\nwend\n')
        with open("/dev/full", "wb") as full:
            done = subprocess.run([self.command, endless], cwd=self.folder, stdout=full, stderr=subprocess.PIPE,
                                  timeout=60, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertRegex(done.stderr.decode(), r"\Atamber: cannot write to standard output: .+\n\Z")

    def test_a_report_that_cannot_be_written_is_noticed_once(self):
        (self.folder / "tamber.log").mkdir()
        errors = self.run_tamber(self.script(DIVIDES))[2]
        self.assertEqual(errors.count("Internal Error: Failed to open output file"), 1)

    def test_errors_say_what_they_are_about(self):
        (self.folder / "m.so").write_text("no library")
        bogus = "struct P\n  bogus x\nendstruct\n"
        for text, error in (('include "m.so"\n', r"\(20117\): .*: m\.so\n"), (bogus, r"error \(20211\): \w.*: bogus\n"),
                            ('int g = 5 + FileGetSize("/none")\nproc main()\nendproc\n',
                             r"a\.tam:1: error ERR_FILENOTFOUND .*: /none\nint g = .*\n {12}\^ column 13\n"),
                            ("proc Other()\nendproc\n", r"\A\S*a\.tam: error ERR_PROCNOMAIN"),
                            ("gr\u00f6\u00dfe = 1\n", r": gr\u00f6\u00dfe\n")):
            name = self.script(text)
            errors = self.run_tamber(name)[2].encode("latin-1").decode()
            self.assertRegex(errors, error)

    def test_text_on_the_command_line(self):
        self.assertEqual(self.run_tamber("-e", 'Print("hi\\n")'), (0, "hi\n", ""))
        self.assertEqual(self.run_tamber("-e", SHOWS_ARGS, "1", "-e", "3"), (0, "1\n-e\n3\n", ""))
        self.assertRegex(self.run_tamber("-e", "bogus")[2], r"\A<text>:1: error ERR_BADSTATEMENT")

    def test_dump_and_trace_go_to_standard_error(self):
        name = self.script(HELLO)
        status, output, errors = self.run_tamber("--dump", name)
        self.assertEqual((status, output), (0, "hello\n"))
        self.assertIn("main", errors)
        status, output, errors = self.run_tamber("--trace", name)
        self.assertEqual((status, output), (0, "hello\n"))
        self.assertRegex(errors, r"(?s)Entering main.*Leaving main, executed \d+ statements")
        self.assertFalse((self.folder / "tamber.log").exists())

    def test_a_library_that_is_missing_ends_the_run_and_is_named(self):
        for name in ("sodium", "nettle", "curl-gnutls", "curl"):
            file = ctypes.util.find_library(name)
            if file:
                (self.folder / file).write_text("no library\n")
        environment = {**os.environ, "LD_LIBRARY_PATH": str(self.folder)}
        for statement, library in (('secret = "x"', "sodium"), ('Take("x", secret)', "sodium"), ('secrets <<= "x"', "sodium"),
                                   ('StrEncodeBase64("x")', "nettle")):
            name = self.script("proc Take(estring a, estring b)\nendproc\nproc main()\n  ErrHandler = \"INLINE_HANDLER\"\n"
                               f"  estring secret\n  estring[] secrets\n  {statement}\n  Print(\"lost\")\nendproc\n")
            status, output, errors = self.run_tamber(name, env=environment)
            self.assertEqual((status, output), (1, ""), statement)
            self.assertRegex(errors, rf"\ATamber: .*lib{library}.*\n(.*\n)*.*error ERR_NOMEMORY \(20113\)", statement)
        fetches = self.script('proc main()\n  FileCopy("http://127.0.0.1:1/x", "x", TRUE)\nendproc\n')
        status, _, errors = self.run_tamber(fetches, env=environment)
        self.assertEqual(status, 1)
        self.assertRegex(errors, r"\ATamber: .*libcurl")

    def test_help_and_the_manual_page_tell_of_the_same_options(self):
        manual = (pathlib.Path(__file__).parent.parent / "docs" / "tamber.1").read_text().replace("\\", "")
        offered, told = (set(re.findall(r"(?<!\w)--\w+", text)) for text in (self.run_tamber("--help")[1], manual))
        self.assertIn("--sandbox", offered)
        self.assertEqual(offered, told)

    def test_wrong_command_lines(self):
        name = self.script(HELLO)
        for args in ((), ("--bogus", name), ("--session", "0", name), ("--session", "x", name),
                     ("--session", "4294967296", name), ("--ini", "none.ini", name), ("--session",),
                     ("--log", "x", name), ("--",), ("-e",), ("--color=red", name)):
            status, output, errors = self.run_tamber(*args)
            self.assertEqual((status, output), (2, ""), args)
            self.assertIn("--help", errors)
        self.assertEqual(self.run_tamber("--session", "1", "--color", name)[2].splitlines()[0],
                         "tamber: --color 'a.tam': it is auto, always or never")

    def test_limits(self):
        endless = self.script("proc main()\n  while TRUE\n    Print(\"0123456789\")\n  wend\nendproc\n")
        (self.folder / "tamber.ini").write_text("[TamberLimits]\nMaxSteps=3\nMaxOutput=1K\n")
        for args, lines, error in (((), 4, "ERR_STEPLIMIT (20121): Limit of steps exceeded: steps=3"),
                                   (("--limit", "steps=5"), 6, "steps=5"),
                                   (("--limit=steps=0,time=10s",), 102, "output=1024"),
                                   (("--limit", "steps=0,output=0", "--limit", "time=50"), None, "time=50")):
            status, output, errors = self.run_tamber(*args, endless)
            self.assertEqual(status, 1)
            self.assertIn(error, errors)
            if lines is not None:
                self.assertEqual(output, "0123456789" * lines)
        for wrong in ("steps", "steps=", "steps=-1", "steps=1K", "time=1h", "memory=18446744073709551615G", "x=1", ",", "=1"):
            status, output, errors = self.run_tamber("--limit", wrong, endless)
            self.assertEqual((status, output), (2, ""), wrong)
            self.assertIn("tamber: --limit '%s': limits are" % wrong, errors)

    def test_what_is_only_tried_writes_a_report_when_asked(self):
        name = self.script(BROKEN)
        for ini, written in (("", False), ("[TamberParseErrors]\nOutputName=tamber.log\n", True)):
            (self.folder / "tamber.ini").write_text(ini)
            for args in (("-e", BROKEN), ("--check", name)):
                self.assertEqual(self.run_tamber(*args)[0], 1)
                self.assertEqual((self.folder / "tamber.log").exists(), written, (ini, args))

    def test_reports_of_processes_are_whole_and_their_file_is_bounded(self):
        (self.folder / "tamber.ini").write_text("[TamberRunErrors]\nOutputPrefix=<<\nOutputSuffix=>>\n"
                                                "DumpSource=0\nDumpGlobals=*\nOutputSize=6000\nOutputKeep=90\n")
        name = self.script(DIVIDES)
        runs = [subprocess.Popen([self.command, name], cwd=self.folder, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.DEVNULL) for _ in range(40)]
        self.assertEqual({run.wait(60) for run in runs}, {1})
        files = [file.read_bytes() for file in self.folder.glob("tamber.log*")]
        for text in files:
            self.assertRegex(text, rb"\A(<<\r\n[^<>]+Divide by zero error[^<>]+ErrHandler[^<>]+>>\r\n)+\Z")
        self.assertEqual(sum(text.count(b"<<") for text in files), 40)
        # Processes that find the file full at the same time append to it all the same.
        self.assertLess(max(map(len, files)), 6000 + 9 * len(files[0]) // files[0].count(b"<<"))

    def test_a_store_that_is_away_is_no_new_one(self):
        script = self.script("session int n\nproc main()\n  n += 1\n  Print(\"\" + n)\nendproc\n")
        (self.folder / "tamber.ini").write_text("[TamberConfig]\nSessionFile=away/store\n")
        status, output, error = self.run_tamber("--session", "7", script)
        self.assertEqual((status, output), (2, "1"))
        self.assertIn("the file cannot be reached", error)

    def test_sessions_leave_one_file_that_only_its_owner_reads(self):
        self.script("session int own = 10\nproc main()\n  own += 1\n  Print(\"\" + own)\nendproc\n", "called.tam")
        script = self.script("session int n\nproc main()\n  n += 1\n  call \"called.tam\"\n  Print(\" \" + n)\nendproc\n")
        for shown in ("11 1", "12 2"):
            self.assertEqual(self.run_tamber("--session", "7", script), (0, shown, ""))
        self.assertEqual([file.name for file in self.folder.glob("TamberSessions*")], ["TamberSessions"])
        self.assertEqual((self.folder / "TamberSessions").stat().st_mode & 0o777, 0o600)

    def test_a_session_that_could_not_be_loaded_is_not_saved(self):
        script = self.script("session int n = 1\nproc main()\n  Print(n + \"\\n\")\n  n += 1\n"
                             "  FileCreate(\"loaded\")\n  while !FileExists(\"go\")\n    Sleep(5)\n"
                             "  wend\nendproc\n")
        go = self.folder / "go"
        go.touch()
        for n in "12":
            self.assertEqual(self.run_tamber("--session", "7", script), (0, n + "\n", ""))
        for name in ("go", "loaded"):
            (self.folder / name).unlink()
        other = sqlite3.connect(self.folder / "TamberSessions", isolation_level=None)
        other.execute("PRAGMA journal_mode=DELETE")
        other.execute("BEGIN EXCLUSIVE")
        with subprocess.Popen([self.command, "--session", "7", script], cwd=self.folder, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE) as run:
            while not (self.folder / "loaded").exists() and run.poll() is None:
                time.sleep(0.01)
            other.close()
            go.touch()
            output, errors = run.communicate(timeout=60)
        self.assertEqual((run.returncode, output), (2, b"1\n"))
        self.assertRegex(errors, rb"\Atamber: the store of session 7 failed, .*: database is locked\n\Z")
        self.assertEqual(self.run_tamber("--session", "7", script), (0, "3\n", ""))

    def test_help_and_version(self):
        status, output, errors = self.run_tamber("--help")
        self.assertEqual((status, errors), (0, ""))
        self.assertIn("tamber [OPTION...] SCRIPT [ARG...]", output)
        self.assertRegex(self.run_tamber("--version")[1], r"\Atamber \d+\.\d+\.\d+\n\Z")

    def test_a_script_whose_name_looks_like_an_option(self):
        self.assertEqual(self.run_tamber("--", self.script(HELLO, "-a.tam"))[:2], (0, "hello\n"))


if __name__ == "__main__":
    CommandTest.command = os.path.abspath(sys.argv.pop(1))
    unittest.main()
