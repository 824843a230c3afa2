"""Counts what ordinary things cost in instructions, beside their neighbours, so that no cliff grows back.

A row is a statement that a script repeats. It is run under callgrind twice, the second time with twice as many
repetitions; the difference divided by the number of repetitions is its cost. A row fails beyond its bound: twice what
its neighbour costs in the same run, or, where the neighbour does something else, a number of instructions.
"""

import collections
import os
import pathlib
import re
import subprocess

BENCH = pathlib.Path(__file__).resolve().parent
SECONDS_PER_RUN = 120
REPETITIONS = 200

# bound: another row's statement with what it needs (the neighbour), or a number of instructions.
Row = collections.namedtuple("Row", "name outside locals before statement bound")
HostRow = collections.namedtuple("HostRow", "name source bound")
Neighbour = collections.namedtuple("Neighbour", "outside locals before statement")


def repeated(text, count):
    return f'"{text * count}"'


FIND = 'found = StrMatchPcre("the item7 and others", p[k + 1])'
TAKE = "proc Take(int &x)\n x += 1\nendproc"
SWAP = "proc Swap(int &x, int &y)\n int t\n t = x\n x = y\n y = t\nendproc"
SECRETS = "a += {0}\n for (k = 1; k <= {0}; k += 1)\n a[k] = \"x\"\n endfor"


def walk(depth):
    """A recursion so deep that holds an element at every level."""
    return f"""struct Node
 int x
endstruct
Node[] nodes
int Walk(Node &n, int left)
 n.x += 1
 if left == 0
 return 0
 endif
 return Walk(nodes[left], left - 1)
endproc
proc Prepare()
 nodes += {depth + 1}
endproc"""


LIST = """string[] list
string[] GetList()
 return list
endproc
proc Fill(int count)
 int k
 for (k = 1; k <= count; k += 1)
 list <<= "item" + k
 endfor
endproc"""


def wide(members):
    """A structure of so many members, and a procedure that returns one."""
    lines = "".join(f" int m{n}\n" for n in range(members))
    return f"struct Wide\n{lines}endstruct\nWide made\nWide Make()\n return made\nendproc"


def holding(statement):
    """A procedure of 20 locals with a statement that is not reached."""
    names = ", ".join(f"v{n}" for n in range(20))
    return f"proc F(int n, string s)\n int {names}\n v1 = n\n if n < 0\n {statement}\n endif\nendproc"


def wide_globals(count):
    return "".join(f"int g{n}\n" for n in range(count))


CALL = 'call "called.tam"'
CALLED = "proc main()\n int n\n n = 1\nendproc\n"
TWO_TEXTS = "string a, b\n int n"
ROWS = [
    Row("equal strings, 1000 bytes", "", TWO_TEXTS,
        f"a = {repeated('x', 1000)}\n b = {repeated('x', 1000)}",
        "if a == b\n n += 1\n endif", 600),
    Row("equal but for case, 1000 bytes", "", TWO_TEXTS,
        f"a = {repeated('x', 1000)}\n b = {repeated('X', 1000)}",
        "if a == b\n n += 1\n endif", 4200),
    Row("order of strings, 1000 bytes, with case", "", TWO_TEXTS,
        f"StrCase = TRUE\n a = {repeated('x', 1000)}\n b = {repeated('x', 1000)}",
        "if a <= b\n n += 1\n endif", 4400),
    Row("elif chain over 50 strings", "", TWO_TEXTS, 'a = "case50"',
        'if a == "case0"\n n += 1\n' + "".join(f' elif a == "case{n}"\n n += 1\n' for n in range(1, 51)) + " endif",
        3180),
    Row("append to a member, 50,000 bytes", "struct Page\n string text\nendstruct", "Page p",
        f"p.text = {repeated('x', 50000)}", 'p.text += "x"',
        Neighbour("", "string text", f"text = {repeated('x', 50000)}", 'text += "x"')),
    Row("append to an element, 50,000 bytes", "", "string[] a\n int k",
        f"a += 3\n k = 2\n a[k] = {repeated('x', 50000)}", 'a[k] += "x"',
        Neighbour("", "string text", f"text = {repeated('x', 50000)}", 'text += "x"')),
    Row("append a call to a part of a global, 50,000 bytes", "struct Page\n string text\nendstruct\nPage[] pages", "",
        f"pages += 1\n pages[1].text = {repeated('x', 50000)}", 'pages[1].text += StrToUpper("x")',
        Neighbour("string text", "", f"text = {repeated('x', 50000)}", 'text += StrToUpper("x")')),
    Row("call of an empty procedure", "proc Empty()\nendproc", "", "", "Empty()", 110),
    Row("sums of globals", "int total, step", "", "step = 2", "total += step\n total = total + i",
        Neighbour("", "int total, step", "step = 2", "total += step\n total = total + i")),
    Row("results of Min and Max", "", "int n", "", "n = Min(i, 5) * 2 + Max(n, 3)", 150),
    Row("a built-in with C++ parameters", "", "string s, t", 's = "forty"', "t = StrLeft(s, 2)", 600),
    Row("MakeInt of a negative number", "", "string s\n int n", 's = "-12"', "n = MakeInt(s)", 860),
    Row("StrEvalAsInteger of an expression again", "", "int n, k", "k = 2", 'n = StrEvalAsInteger("k + 1")', 3800),
    Row("StrEvalAsInteger of a number", "", "string s\n int n", 's = "12"', "n = StrEvalAsInteger(s)", 860),
    Row("StrEvalAsDouble of a number", "", "string s\n double d", 's = "1.5"', "d = StrEvalAsDouble(s)", 860),
    Row("StrEvalAsDouble of an integer", "", "string s\n double d", 's = "-12"', "d = StrEvalAsDouble(s)", 860),
    Row("StrEvalAsFloat of a number", "", "string s\n float d", 's = "-1.5e3"', "d = StrEvalAsFloat(s)", 860),
    Row("one of 100 patterns", "", "string[] p\n bool found\n int k",
        f"for (k = 0; k < 100; k += 1)\n p <<= \"item\" + k + \"[0-9]+\"\n {FIND}\n endfor",
        f"k = i % 100\n {FIND}",
        Neighbour("", "string[] p\n bool found\n int k",
                  f"for (k = 0; k < 20; k += 1)\n p <<= \"item\" + k + \"[0-9]+\"\n {FIND}\n endfor",
                  f"k = i % 20\n {FIND}")),
    Row("element by reference", TAKE, "int[] a", "a += 10", "Take(a[3])", 800),
    Row("another element by reference", TAKE, "int[] a", "a += 10", "Take(a[i % 10 + 1])", 1200),
    Row("member of an element by reference", "struct P\n int x\nendstruct\n" + TAKE, "P[] a", "a += 10",
        "Take(a[3].x)", 1000),
    Row("two elements by reference", SWAP, "int[] a", "a += 10", "Swap(a[3], a[4])", 1200),
    Row("read of an element of an array of any type", "", "array a\n int n", "a <<= 1", "n = a[1]", 100),
    Row("write of an element of an array of any type", "", "array a", "a <<= 1", "a[1] = i", 100),
    Row("string in an array of any type", "", "array a\n string s", 'a <<= "x"\n s = "y"', "a[1] = s\n s = a[1]", 800),
    Row("write to an array of 800 encrypted strings", "", "estring[] a\n int k", SECRETS.format(800),
        'a[i % 10 + 1] = "y"',
        Neighbour("", "estring[] a\n int k", SECRETS.format(10), 'a[i % 10 + 1] = "y"')),
    Row("recursion over elements, 400 deep", walk(400), "", "Prepare()", "Walk(nodes[401], 400)", 600000),
    Row("element of a result, 1000 strings", LIST, "string s", "Fill(1000)", "s = GetList()[5]", 530),
    Row("member of a result, 200 members", wide(200), "int n", "", "n = Make().m3", 430),
    Row("call of a procedure that holds MakeInt and Defined", holding("n = MakeInt(s) + Defined(s)"), "",
        "", 'F(i, "1")', Neighbour(holding("n = n + 1"), "", "", 'F(i, "1")')),
    Row("call of a procedure that holds Export", holding('n = Export("v3")'), "", "", 'F(i, "1")',
        Neighbour(holding("n = n + 1"), "", "", 'F(i, "1")')),
    Row("call of a script, 100 globals", wide_globals(100), "", "", CALL, 2 * 13000),
    HostRow("500 globals restored, none changed", "restore_globals.c", 50000),
    HostRow("200 elements of session arrays, saved and loaded", "session_array.c", 25000),
]


def script(part, repetitions):
    return f"""{part.outside}
proc main()
 {part.locals}
 int i
 {part.before}
 for (i = 1; i <= {repetitions}; i += 1)
 {part.statement}
 endfor
endproc
"""


def count(command, folder):
    """The instructions of a whole run. Raises when it fails."""
    callgrind = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null"]
    done = subprocess.run(callgrind + command, cwd=folder, capture_output=True, timeout=SECONDS_PER_RUN)
    told = done.stderr.decode("latin-1")
    collected = re.search(r"Collected : (\d+)", told)
    if done.returncode != 0 or done.stdout or collected is None:
        lines = done.stdout.decode("latin-1").splitlines() or told.splitlines() or ["no message"]
        raise RuntimeError(f"failed ({done.returncode}): {lines[0]}")
    return int(collected.group(1))


def script_command(tamber, folder, part, repetitions):
    path = folder / "cliff.tam"
    path.write_text(script(part, repetitions))
    return [tamber, path]


def host_command(tamber, folder, source, repetitions):
    """A program in C that is given the number of repetitions, linked with the library of the command."""
    host = folder / source.stem
    library = tamber.parent.parent / "lib"
    if not host.exists():
        subprocess.run(["cc", "-O2", "-I", BENCH.parent / "src", source, "-o", host, "-L", library,
                        f"-Wl,-rpath,{library}", "-lKelTamber"], check=True)
    return [host, str(repetitions)]


def cost(tamber, folder, part):
    if isinstance(part, HostRow):
        source, command = BENCH / part.source, host_command
    else:
        source, command = part, script_command
    once, twice = (count(command(tamber, folder, source, REPETITIONS * times), folder) for times in (1, 2))
    return (twice - once) / REPETITIONS


def put_old(path, text):
    """A file that was not written just now: such a one is compiled at every call."""
    path.write_text(text)
    os.utime(path, (0, 0))


def measure(tamber, folder, words):
    """Prints the rows whose names contain one of the words (none: all). Returns how many failed."""
    put_old(folder / "called.tam", CALLED)
    failures = 0
    print(f"{'instructions':44}{'cost':>9}{'bound':>9}")
    for row in ROWS:
        if words and not any(word in row.name for word in words):
            continue
        try:
            own = cost(tamber, folder, row)
            bound = row.bound
            if isinstance(bound, Neighbour):
                bound = 2 * cost(tamber, folder, bound)
        except (RuntimeError, subprocess.TimeoutExpired) as fault:
            failures += 1
            print(f"{row.name:44}  {fault}")
            continue
        failures += own > bound
        print(f"{row.name:44}{own:9.0f}{bound:9.0f}{'  too much' if own > bound else ''}", flush=True)
    return failures
