-- Arrays of double: matrices kept row by row

local function Fill(m, n, scale)
  for r = 1, n do
    for c = 1, n do
      m[(r - 1) * n + c] = scale * (r - c) * (r + c - 2)
    end
  end
end

local a, b, m = {}, {}, {}
local n = 320
Fill(a, n, 0.001)
Fill(b, n, 0.002)
for r = 1, n do
  local row = (r - 1) * n
  for c = 1, n do
    local sum = 0.0
    for k = 1, n do
      sum = sum + a[row + k] * b[(k - 1) * n + c]
    end
    m[row + c] = sum
  end
end
local trace = 0.0
for r = 1, n do
  trace = trace + m[(r - 1) * n + r]
end
trace = trace / 1000
io.write("matmul ", trace < 0 and math.ceil(trace) or math.floor(trace), "\n")
