"""Counts the instructions of compiling, against `luac5.4 -p` on the same lines of ordinary code, and the memory held.

A script is made of procedures with locals, loops, branches, calls, arrays, strings and comments, line by line the same
in both languages. An empty script is subtracted, so that what is left is what the lines cost.
"""

import subprocess

from cliffs import BENCH, count, host_command

LINES = 10000
INSTRUCTIONS_BOUND = 1.5  # against luac, per size
GROWTH_BOUND = 2.1        # twice the lines against once
HELD_BOUND = 200          # bytes per line

TAMBER_HEAD = """// What the parts of a plant cost.
struct Part
  string name
  int weight
  double price
endstruct

const int LIMIT = 1000
const string MARK = "; "

int total
string title = "parts"
int[] counts
Part last

int Cost0(int count, string label)
  return count
endproc
"""

LUA_HEAD = """-- What the parts of a plant cost.
last = {
  name = "",
  weight = 0,
  price = 0 }


LIMIT = 1000
MARK = "; "

total = 0
title = "parts"
counts = {}
last = { name = "" }

function Cost0(count, label)
  return count
end
"""

TAMBER_PART = """
// Adds up what part {n} costs, and says so when it is much.
int Cost{n}(int count, string label)
  int i, sum, rest
  string text
  double rate
  int[] sizes

  rate = 1.5 + {n} * 0.25
  text = "part {n}: " + label
  for (i = 1; i <= count; i += 1)
    sum += i * 3 + (count - i) % {mod}
    if sum > LIMIT && i < {low}
      sum = sum - {step}
      text = text + MARK + i
    elif sum < 0
      sum = 0
    else
      sum = sum + Cost{before}(i, text)
    endif
    sizes <<= sum
  endfor
  // What is left is halved until it fits.
  rest = sum
  while rest > {high}
    rest = rest / 2
    total += 1
    counts[1] = counts[1] + rest
  wend
  if StrLen(text) > 80
    Print("long: " + text + "\\n")
  endif
  last.name = title + StrToUpper(label)
  last.weight = sizes[1] * 2 + rest
  last.price = rate * last.weight
  if !(last.weight == {low})
    total = total + last.weight - Cost{before}(rest + 1, "rest")
  endif
  return sum + StrLen(text) * 2
endproc
"""

LUA_PART = """
-- Adds up what part {n} costs, and says so when it is much.
function Cost{n}(count, label)
  local i, sum, rest = 0, 0, 0
  local text = ""
  local rate = 0
  local sizes = {{}}

  rate = 1.5 + {n} * 0.25
  text = "part {n}: " .. label
  for i = 1, count do
    sum = sum + i * 3 + (count - i) % {mod}
    if sum > LIMIT and i < {low} then
      sum = sum - {step}
      text = text .. MARK .. i
    elseif sum < 0 then
      sum = 0
    else
      sum = sum + Cost{before}(i, text)
    end
    sizes[#sizes + 1] = sum
  end
  -- What is left is halved until it fits.
  rest = sum
  while rest > {high} do
    rest = rest // 2
    total = total + 1
    counts[1] = counts[1] + rest
  end
  if #text > 80 then
    print("long: " .. text .. "\\n")
  end
  last.name = title .. string.upper(label)
  last.weight = sizes[1] * 2 + rest
  last.price = rate * last.weight
  if not (last.weight == {low}) then
    total = total + last.weight - Cost{before}(rest + 1, "rest")
  end
  return sum + #text * 2
end
"""


def script(head, part, lines):
    """So many lines: as many parts as fit, and comments."""
    text, each = [head], part.count("\n")
    for n in range(1, (lines - head.count("\n")) // each + 1):
        text.append(part.format(n=n, before=n - 1, mod=n % 17 + 2, low=n % 50 + 1, step=n % 300 + 7, high=n * 10))
    text.append(("#" if part is TAMBER_PART else "--") + " no more\n")
    text[-1] *= lines - sum(piece.count("\n") for piece in text[:-1])
    return "".join(text)


def instructions(command, head, part, path, folder):
    """What so many lines cost, and twice as many, less what an empty script costs."""
    costs = []
    for lines in (0, LINES, 2 * LINES):
        path.write_text(script(head, part, lines) if lines else "")
        costs.append(count(command + [path], folder))
    return costs[1] - costs[0], costs[2] - costs[0]


def held(tamber, folder):
    """Bytes per line of a compiled script, its source among them, and of a program made of it."""
    empty, full = folder / "empty.tam", folder / "full.tam"
    empty.write_text("proc Cost0()\nendproc\n")
    full.write_text(script(TAMBER_HEAD, TAMBER_PART, LINES))
    host = host_command(tamber, folder, BENCH / "compiled_memory.c", empty) + [full]
    said = subprocess.run(host, cwd=folder, capture_output=True, check=True).stdout
    return [int(number) / LINES for number in said.split()]


def measure(tamber, folder):
    """Prints the figures and their bounds. Returns how many failed."""
    path, lua = folder / "lines.tam", folder / "lines.lua"
    own = instructions([tamber, "--check"], TAMBER_HEAD, TAMBER_PART, path, folder)
    luac = instructions(["luac5.4", "-p"], LUA_HEAD, LUA_PART, lua, folder)
    script_bytes, program_bytes = held(tamber, folder)
    rows = [
        (f"instructions, {LINES} lines", own[0], luac[0], own[0] / luac[0], INSTRUCTIONS_BOUND),
        (f"instructions, {2 * LINES} lines", own[1], luac[1], own[1] / luac[1], INSTRUCTIONS_BOUND),
        ("twice the lines against once", own[1], own[0], own[1] / own[0], GROWTH_BOUND),
    ]
    failures = 0
    print(f"{'compiling':32}{'':>14}{'against':>14}{'ratio':>8}{'bound':>8}")
    for name, one, other, ratio, bound in rows:
        failures += ratio > bound
        print(f"{name:32}{one:14}{other:14}{ratio:8.2f}{bound:8}{'  too much' if ratio > bound else ''}")
    for name, value in (("bytes per line, compiled", script_bytes), ("bytes per line, program", program_bytes)):
        failures += value > HELD_BOUND
        print(f"{name:32}{'':28}{value:8.0f}{HELD_BOUND:8}{'  too much' if value > HELD_BOUND else ''}")
    return failures
