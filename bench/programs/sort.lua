-- Unpredictable branches and array elements that move: insertion sort

local seed = 42

local function NextRandom()
  seed = (seed * 3877 + 29573) % 139968
  return seed
end

local a, n = {}, 12000
for i = 1, n do
  a[i] = NextRandom()
end
for i = 2, n do
  local v = a[i]
  local k = i - 1
  while k > 0 do
    if a[k] <= v then
      break
    end
    a[k + 1] = a[k]
    k = k - 1
  end
  a[k + 1] = v
end
local check = 0
for i = 1, n do
  check = (check * 31 + a[i]) % 65521
end
io.write("sort ", a[1], " ", a[n], " ", check, "\n")
