#!/usr/bin/env python3
"""Sessions when a system call on their store fails, or the process dies there. stores_test.py TAMBER FAULTS"""

import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

SCRIPT = """session int n
session string s
session int[1] list
string Of(int number)
  string s
  int i
  for (i = 1; i <= 10; i += 1)
    s = s + MakeStr(number, "%01000d")
  endfor
  return s
endproc
proc main()
  if (n > 0 && (s != Of(n) || list[1] != n))
    Print("torn ")
  endif
  Print("" + n)
  n += 1
  s = Of(n)
  list[1] = n
endproc
"""


class StoresTest(unittest.TestCase):
    command = faults = ""

    def run_tamber(self, folder, **fault):
        environment = {**os.environ, "LD_PRELOAD": self.faults, **fault} if fault else None
        done = subprocess.run([self.command, "--session", "7", "a.tam"], cwd=folder, env=environment,
                              capture_output=True, timeout=60, check=False)
        return done.returncode, done.stdout.decode(), done.stderr.decode()

    def check(self, mode, first):
        """Walks the fault from the first call on the store to behind the last; `first`: the run that makes the store."""
        with tempfile.TemporaryDirectory() as name:
            folder = pathlib.Path(name)
            mark = folder / "mark"
            (folder / "a.tam").write_text(SCRIPT)
            kept = 0
            for at in range(1, 1000):
                if first:
                    for store in folder.glob("TamberSessions*"):
                        store.unlink()
                    kept = 0
                mark.unlink(missing_ok=True)
                status, output, errors = self.run_tamber(folder, TAMBER_FAULT_AT=str(at), TAMBER_FAULT_MODE=mode,
                                                         TAMBER_FAULT_MARK=str(mark))
                told = (at, status, output, errors)
                if status == 0:
                    self.assertEqual(output, str(kept), told)
                elif mode != "kill":
                    self.assertIn(status, (1, 2), told)
                    self.assertIn("the store of session 7 failed", errors, told)
                after = self.run_tamber(folder)
                self.assertEqual((after[0], after[2]), (0, ""), told)
                wanted = (kept + 1,) if status == 0 else (kept, kept + 1)
                self.assertIn(after[1], [str(n) for n in wanted], told)
                kept = int(after[1]) + 1
                if not mark.exists():
                    return at
        self.fail("the fault is reached without end")

    def test_nothing_that_was_acknowledged_is_lost(self):
        for mode in ("once", "on", "kill"):
            for first in (False, True):
                with self.subTest(mode=mode, first=first):
                    self.assertGreater(self.check(mode, first), 10, "the library is at work")


if __name__ == "__main__":
    StoresTest.faults = os.path.abspath(sys.argv.pop())
    StoresTest.command = os.path.abspath(sys.argv.pop())
    unittest.main()
