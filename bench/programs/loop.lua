-- A tight loop over integers with branches

local sum, odd, threes = 0, 0, 0
for i = 1, 60000000 do
  if i % 3 == 0 then
    threes = threes + 1
  elseif i % 2 == 1 then
    odd = odd + 1
  else
    sum = (sum + i) % 65536
  end
end
io.write("loop ", threes, " ", odd, " ", sum, "\n")
