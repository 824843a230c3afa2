-- Arrays of bool and int: the primes below eight million

local composite, primes = {}, {}
local n, count, last = 8000000, 0, 0
for i = 1, n do
  composite[i] = false
end
for i = 2, n do
  if not composite[i] then
    primes[#primes + 1] = i
    count = count + 1
    last = i
    if i <= 2828 then
      for k = i * i, n, i do
        composite[k] = true
      end
    end
  end
end
io.write("sieve ", count, " ", last, " ", primes[1000], "\n")
