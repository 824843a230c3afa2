#!/usr/bin/env python3
"""The runner of script tests must fail when it should: it is shown scripts that do too much, too little or the wrong
thing. In place of the command stands a program that does what the script's lines "//!" say."""

import os
import pathlib
import sys
import tempfile
import unittest

import run_script

COMMAND = f"""#!{sys.executable}
import os, sys, time
at = next(i for i, a in enumerate(sys.argv) if a.endswith(".tam"))
status = 0
for number, line in enumerate(open(sys.argv[at]), 1):
    verb, _, text = line.partition("//! ")[2].rstrip("\\n").partition(" ")
    if verb == "out": print(text)
    if verb == "err": print(text.replace("HERE", f"{{sys.argv[at]}}:{{number}}"), file=sys.stderr)
    if verb == "show": print(line.rstrip("\\n"), file=sys.stderr)
    if verb == "args": print(sys.argv[1:at], sys.argv[at + 1:])
    if verb == "stdin": print(sys.stdin.read(), end="")
    if verb == "ini": print(open("tamber.ini").read(), end="")
    if verb == "list": print(sorted(os.listdir(".")))
    if verb == "sleep": time.sleep(float(text))
    if verb == "kill": os.kill(os.getpid(), int(text))
    if verb == "exit": status = int(text)
sys.exit(status)
"""


class RunnerTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.command = pathlib.Path(self.folder.name, "tamber")
        self.command.write_text(COMMAND)
        os.chmod(self.command, 0o755)

    def faults(self, source, **options):
        path = pathlib.Path(self.folder.name, "case.tam")
        path.write_text(source)
        return run_script.run_case(self.command, path, path.name, source, options.pop("timeout", 5), **options)

    def assert_passes(self, source, **options):
        self.assertEqual(self.faults(source, **options), [])

    def assert_fails(self, source, with_text, **options):
        self.assertIn(with_text, "\n".join(self.faults(source, **options)))

    def test_output(self):
        self.assert_passes("//! out a\n// expect: a\n//! out b c\n// expect: b c\n")
        self.assert_passes("//! out a\tb\n// expect: a\\tb\n//! out \n// expect:\n")
        self.assert_fails("//! out a\n// expect: b\n", "expected 'b', got 'a'")
        self.assert_fails("//! out a\n// expect: a \n", "expected 'a ', got 'a'")
        self.assert_fails("//! out a\n", "got 'a'")
        self.assert_fails("// expect: a\n", "expected 'a', got None")
        self.assert_fails("//! out b\n//! out a\n// expect: a\n// expect: b\n", "output line 1")
        self.assert_passes("//! out a\n", expected_output="a\n")
        self.assert_fails("//! out a\n", "output line 2", expected_output="a\nb\n")

    def test_errors(self):
        line = "//! err HERE: error ERR_X (12): text: more // expect error: ERR_X"
        shown = f"int x {line}\n//! exit 1\n"
        self.assert_fails(shown, "is not shown below its error")
        self.assert_fails("//! err HERE: error ERR_X (12): t\n//! exit 1\n// expect exit: 1\n", "unexpected error")
        self.assert_fails("// expect error: ERR_X\n//! exit 1\n", "ERR_X was not reported")
        self.assert_fails("//! err something else\n", "standard error: something else")
        self.assert_fails("//! err HERE: error ERR_Y (12): t // expect error: ERR_X\n//! exit 1\n", "ERR_X was not")

    def test_source_line_below_the_error(self):
        source = "//! err case.tam:2: error ERR_X (12): text\n  Fail() //! show // expect error: ERR_X\n//! exit 1\n"
        self.assert_passes(source)
        self.assert_fails(source.replace("//! show", "//! err Pass()"), "is not shown below its error")

    def test_exit_status(self):
        self.assert_fails("//! exit 1\n", "expected 0, got 1")
        self.assert_passes("//! exit 3\n// expect exit: 3\n")
        self.assert_fails("// expect exit: 3\n", "expected 3, got 0")
        self.assert_passes("//! kill 8\n// expect exit: 136\n")
        self.assert_fails("//! kill 8\n", "got 136")

    def test_time(self):
        self.assert_fails("//! sleep 20\n", "stopped after 0.3 s", timeout=0.3)
        self.assert_fails("// timeout: 0.2\n//! sleep 20\n", "stopped after 0.2 s")

    def test_surroundings(self):
        self.assert_passes("// options: --check\n// args: 'a b' c\n//! args\n// expect: ['--verify', '--check'] ['a b', 'c']\n")
        self.assert_passes("// stdin: one\n// stdin: two\n//! stdin\n// expect: one\n// expect: two\n")
        self.assert_passes("// ini: [A]\n// ini: b=1\n//! ini\n// expect: [A]\n// expect: b=1\n")
        self.assert_passes("//! list\n// expect: []\n")
        self.assert_passes("// file tamber.ini: [A]\n// file tamber.ini: b=1\n//! ini\n// expect: [A]\n// expect: b=1\n")
        pathlib.Path(self.folder.name, "case.files").mkdir()
        pathlib.Path(self.folder.name, "case.files", "data").write_text("")
        self.assert_passes("//! list\n// expect: ['data']\n")

    def test_misspelt_expectations(self):
        for comment in ("expects: a", "expect a", "expect output: a", "expect error at x: ERR_X"):
            self.assert_fails(f"// {comment}\n", "no such expectation")

    def test_markdown(self):
        text = "# Title\n```tamber\none\n```\n```cpp\nother\n```\n```tamber\ntwo\n```\n"
        self.assertEqual(list(run_script.markdown_blocks(text)), [(2, "\n\none\n"), (8, "\n" * 8 + "two\n")])


if __name__ == "__main__":
    unittest.main()
