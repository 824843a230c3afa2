-- Bodies that attract each other: double arithmetic in scalars and arrays

local px, py, vx, vy, mass = {}, {}, {}, {}, {}

local function AddBody(x, y, u, v, m)
  px[#px + 1] = x
  py[#py + 1] = y
  vx[#vx + 1] = u
  vy[#vy + 1] = v
  mass[#mass + 1] = m
end

local function Advance(dt, n)
  for i = 1, n do
    for k = i + 1, n do
      local dx = px[i] - px[k]
      local dy = py[i] - py[k]
      local d2 = dx * dx + dy * dy + 0.01
      local root = d2 * 0.5 + 0.5
      for r = 1, 4 do
        root = 0.5 * (root + d2 / root)
      end
      local mag = dt / (d2 * root)
      vx[i] = vx[i] - dx * mass[k] * mag
      vy[i] = vy[i] - dy * mass[k] * mag
      vx[k] = vx[k] + dx * mass[i] * mag
      vy[k] = vy[k] + dy * mass[i] * mag
    end
  end
  for i = 1, n do
    px[i] = px[i] + dt * vx[i]
    py[i] = py[i] + dt * vy[i]
  end
end

local function Truncate(x)
  return x < 0 and math.ceil(x) or math.floor(x)
end

AddBody(0.0, 0.0, 0.0, 0.0, 39.5)
AddBody(4.84, 1.16, 0.6, 2.81, 0.038)
AddBody(8.34, 4.12, 1.01, 1.82, 0.011)
AddBody(12.89, 15.11, 1.08, 0.87, 0.0017)
AddBody(15.38, 25.92, 0.98, 0.59, 0.002)
for step = 1, 400000 do
  Advance(0.001, 5)
end
io.write("nbody ", Truncate(px[2] * 1000000), " ", Truncate(py[2] * 1000000), "\n")
