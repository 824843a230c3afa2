-- An array of structures, updated in place

local balls = {}

local function Add(x, y, dx, dy)
  balls[#balls + 1] = {x = x, y = y, dx = dx, dy = dy, bounces = 0}
end

local function Move(count)
  for i = 1, count do
    local b = balls[i]
    b.x = b.x + b.dx
    b.y = b.y + b.dy
    if b.x < 0 or b.x > 100 then
      b.dx = -b.dx
      b.bounces = b.bounces + 1
    end
    if b.y < 0 or b.y > 100 then
      b.dy = -b.dy
      b.bounces = b.bounces + 1
    end
  end
end

for i = 1, 500 do
  Add(i % 100 + 0.0, i % 37 + 0.0, (i % 7 - 3) * 0.25, (i % 5 - 2) * 0.5)
end
for i = 1, 20000 do
  Move(500)
end
local total, sum = 0, 0.0
for i = 1, 500 do
  total = total + balls[i].bounces
  sum = sum + (balls[i].x + balls[i].y)
end
io.write("structs ", total, " ", math.floor(sum * 4), "\n")
