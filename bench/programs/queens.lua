-- Back-tracking: all ways to place thirteen queens

local columns, rising, falling = {}, {}, {}
local size = 13

local function Place(row)
  if row > size then
    return 1
  end
  local found = 0
  for c = 1, size do
    if not columns[c] and not rising[row + c] and not falling[row - c + size] then
      columns[c] = true
      rising[row + c] = true
      falling[row - c + size] = true
      found = found + Place(row + 1)
      columns[c] = false
      rising[row + c] = false
      falling[row - c + size] = false
    end
  end
  return found
end

for i = 1, 2 * size do
  columns[i], rising[i], falling[i] = false, false, false
end
io.write("queens ", Place(1), "\n")
