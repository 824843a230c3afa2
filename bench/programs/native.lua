-- Calls of built-ins

local word = "forty-two"
local list = {}
for i = 1, 33 do
  list[i] = 0
end
local total = 0
local StrLen, ArrayGetSize = string.len, rawlen or table.getn
for i = 1, 20000000 do
  total = total + StrLen(word)
  total = total - (ArrayGetSize(list) - 31)
end
io.write("native ", total, "\n")
