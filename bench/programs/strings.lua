-- Text: numbers joined to words, comparisons, a text that grows

local key, last, line = "", "", ""
local same, less, full = 0, 0, 0
for i = 1, 2500000 do
  key = "item" .. (i % 1000) .. "/" .. (i % 7)
  if key == "item7/3" then
    same = same + 1
  end
  if key < last then
    less = less + 1
  end
  last = key
  line = line .. "x"
  if i % 64 == 0 then
    if line == "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx" then
      full = full + 1
    end
    line = ""
  end
end
io.write("strings ", same, " ", less, " ", full, " ", last, "\n")
