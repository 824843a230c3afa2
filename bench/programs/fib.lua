-- Calls and recursion

local function Fib(n)
  if n < 2 then
    return n
  end
  return Fib(n - 1) + Fib(n - 2)
end

io.write("fib ", Fib(36), "\n")
