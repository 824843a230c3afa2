-- One call of a built-in in a loop

local word = "forty-two"
local total = 0
local StrLen = string.len
for i = 1, 30000000 do
  total = total + StrLen(word)
end
io.write("strlen ", total, "\n")
