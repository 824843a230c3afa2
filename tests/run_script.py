#!/usr/bin/env python3
"""Runs a script and compares what it does with the expectations written inside it as comments.

    run_script.py [--timeout SECONDS] TAMBER FILE

FILE is a script, or a text in Markdown whose code blocks marked "tamber" are scripts, run one by one. Each runs in an
empty directory (with a copy of what FILE's folder of the same name and the ending ".files" holds, if there is one).

    // expect: TEXT                   the next line of standard output; escapes as in a script's strings
    // expect error: NAME[: TEXT]     an error reported at this very line, if given with this text or detail; its
                                      number stands for the name of one that has none
    // expect error at [FILE:]N: NAME[: TEXT]   the same at another line, of another file
    // expect exit: N                 the exit status; else 0, or 1 when an error is expected; 128+N for signal N
    // args: A B    // options: A B   what follows the script's name on the command line, or precedes it
    // ini: LINE    // stdin: LINE    one line of tamber.ini, or of standard input
    // file NAME: LINE                one line of a file that lies in the working folder
    // timeout: SECONDS               instead of the usual one

A file NAME.out beside NAME.tam holds the whole standard output and takes the place of "expect:" comments. Whatever is
not expected, on standard output or standard error, is a failure, and so is a comment that begins with "expect" and is
none of the above.
"""

import argparse
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

DIRECTIVE = re.compile(
    r"//\s*(expect error at [^:]+:\d+|expect\b[^:]*|args|options|ini|stdin|timeout|file [\w.]+):(?: (.*)|$)")
MISSPELT = re.compile(r"//\s*expect")
ELSEWHERE = re.compile(r"expect error at (?:(.+):)?(\d+)")
REPORT = re.compile(r"(.*?)(?::(\d+))?: error (?:(\S+) )?\((-?\d+)\): (.*)")
ESCAPE = re.compile(r"\\(x[0-9A-Fa-f]{2}|.)")
NAMED = {"n": "\n", "r": "\r", "t": "\t", "b": "\b"}


def unescape(text):
    def char(match):
        code = match[1]
        return chr(int(code[1:], 16)) if len(code) == 3 else NAMED.get(code, code)
    return ESCAPE.sub(char, text)


class Expectations:
    """What the comments of one script ask for."""

    def __init__(self, name, source):
        self.output, self.errors, self.faults = [], [], []
        self.args, self.options, self.ini, self.stdin, self.files = [], [], "", "", {}
        self.exit = self.timeout = None
        for number, line in enumerate(source.split("\n"), 1):
            match = DIRECTIVE.search(line)
            if not match or not self.take(match[1].strip(), match[2] or "", name, number):
                if MISSPELT.search(line):
                    self.faults.append(f"line {number}: no such expectation: {line.strip()}")
        if self.exit is None:
            self.exit = 1 if self.errors else 0

    def take(self, kind, text, name, number):
        elsewhere = ELSEWHERE.fullmatch(kind)
        if kind == "expect":
            self.output.append(unescape(text))
        elif kind == "expect error" or elsewhere:
            error, _, detail = text.partition(":")
            if elsewhere:
                name, number = elsewhere[1] or name, int(elsewhere[2])
            self.errors.append((name, number, error.strip(), detail.strip()))
        elif kind == "expect exit":
            self.exit = int(text)
        elif kind == "args":
            self.args += shlex.split(text)
        elif kind == "options":
            self.options += shlex.split(text)
        elif kind == "ini":
            self.ini += text + "\n"
        elif kind == "stdin":
            self.stdin += unescape(text) + "\n"
        elif kind.startswith("file "):
            self.files[kind[5:]] = self.files.get(kind[5:], "") + text + "\n"
        elif kind == "timeout":
            self.timeout = float(text)
        else:
            return False
        return True


def lines_of(text):
    lines = text.split("\n")
    return lines[:-1] if lines[-1] == "" else lines


def compare_output(wanted, got):
    for number in range(max(len(wanted), len(got))):
        want = wanted[number] if number < len(wanted) else None
        have = got[number] if number < len(got) else None
        if want != have:
            return [f"output line {number + 1}: expected {want!r}, got {have!r}"]
    return []


MARK = re.compile(r"\s*\^ (?:line (\d+), )?column \d+|  called by \S+ at .*:\d+(?: \(\d+ times\))?|(?:note|hint): .+")


def compare_errors(wanted, stderr, name, source):
    """Every report must be expected and followed by the line it speaks of; nothing else may be there."""
    faults, wanted, source, lines = [], list(wanted), source.split("\n"), lines_of(stderr)
    while lines:
        line = lines.pop(0)
        match = REPORT.fullmatch(line)
        if not match:
            faults.append(f"standard error: {line}")
            continue
        file, number, error, text = pathlib.PurePath(match[1]).name, int(match[2] or 0), match[3] or match[4], match[5]
        hit = next((w for w in wanted if w[:3] == (file, number, error)
                    and (text.startswith(w[3]) or text.endswith(f": {w[3]}"))), None)
        if hit:
            wanted.remove(hit)
        else:
            faults.append(f"unexpected error: {line}")
        spoken = source[number - 1].strip() if file == name and 0 < number <= len(source) else None
        if file != name and lines and not REPORT.fullmatch(lines[0]):
            lines.pop(0)
        elif spoken:
            shown = lines.pop(0).strip() if lines else ""
            mark = MARK.fullmatch(lines[0]) if lines else None
            spoken = source[int(mark[1]) - 1].strip() if mark and mark[1] else spoken
            cut = "..." in (shown[:3], shown[-3:]) and shown.strip(".") in spoken
            if not cut and (not shown or not shown.startswith(spoken.rstrip("\\").rstrip())):
                faults.append(f"line {number} is not shown below its error, but: {shown}")
        # Where in the line it is, what is told besides, and what called the procedure.
        while lines and MARK.fullmatch(lines[0]):
            lines.pop(0)
    return faults + [f"line {w[1]}: {w[2]} was not reported" for w in wanted]


def run_case(tamber, path, name, source, timeout, expected_output=None):
    """Runs the script at `path`, whose text is `source`; returns the faults found."""
    expect = Expectations(name, source)
    with tempfile.TemporaryDirectory() as work:
        files = path.with_suffix(".files")
        if files.is_dir():
            shutil.copytree(files, work, dirs_exist_ok=True)
        for file, text in {**expect.files, **({"tamber.ini": expect.ini} if expect.ini else {})}.items():
            pathlib.Path(work, file).write_text(text, "latin-1")
        limit = expect.timeout or timeout
        try:
            done = subprocess.run([tamber, "--verify", *expect.options, str(path), *expect.args], cwd=work, timeout=limit,
                                  input=expect.stdin.encode("latin-1"), capture_output=True, check=False)
        except subprocess.TimeoutExpired:
            return expect.faults + [f"stopped after {limit:g} s"]
    status = done.returncode if done.returncode >= 0 else 128 - done.returncode
    wanted = expect.output if expected_output is None else lines_of(expected_output)
    faults = expect.faults + compare_output(wanted, lines_of(done.stdout.decode("latin-1")))
    faults += compare_errors(expect.errors, done.stderr.decode("latin-1"), name, source)
    if status != expect.exit:
        faults.append(f"exit status: expected {expect.exit}, got {status}")
    return faults


def markdown_blocks(text):
    """The code blocks marked "tamber", each padded so that its lines keep their numbers."""
    block, fence = None, None
    for number, line in enumerate(text.split("\n")):
        if block is None and line.strip() == "```tamber":
            block, fence = [""] * (number + 1), number + 1
        elif block is not None and line.strip() == "```":
            yield fence, "\n".join(block) + "\n"
            block = None
        elif block is not None:
            block.append(line)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--timeout", type=float, default=5)
    parser.add_argument("tamber", type=pathlib.Path)
    parser.add_argument("file", type=pathlib.Path)
    options = parser.parse_args()
    tamber, path = options.tamber.resolve(), options.file.resolve()
    source = path.read_text("latin-1")
    faults = []
    if path.suffix == ".md":
        cases = list(markdown_blocks(source))
        if not cases:
            faults.append("no block to run")
        for line, text in cases:
            with tempfile.TemporaryDirectory() as folder:
                script = pathlib.Path(folder, path.stem + ".tam")
                script.write_text(text, "latin-1")
                found = run_case(tamber, script, script.name, text, options.timeout)
                faults += [f"block at line {line}: {fault}" for fault in found]
    else:
        output = path.with_suffix(".out")
        expected = output.read_text("latin-1") if output.exists() else None
        faults = run_case(tamber, path, path.name, source, options.timeout, expected)
    for fault in faults:
        print(f"{options.file}: {fault}")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
