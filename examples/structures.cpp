#include <tamber.h>

#include <iostream>
#include <optional>
#include <string>
#include <vector>

namespace shop {

struct Line {
  std::string name;
  std::vector<double> prices;
};
TAMBER_STRUCT(Line, name, prices)

struct Order {
  int32_t id;
  std::vector<Line> lines;
  std::optional<int32_t> discount;
};
TAMBER_STRUCT(Order, id, lines, discount)

}  // namespace shop

namespace {

constexpr const char* kScript =
    "struct Line\n"
    "  string name\n"
    "  double[] prices\n"
    "endstruct\n"
    "struct Order\n"
    "  int id\n"
    "  Line[] lines\n"
    "  int[] discount\n"
    "endstruct\n"
    "Order Extend(Order order, int[] numbers)\n"
    "  order.id = Sum(numbers)\n"
    "  order.lines[1].prices <<= 2.5\n"
    "  order.discount <<= 7\n"
    "  return order\n"
    "endproc\n";

int64_t Sum(const std::vector<int32_t>& values) {
  int64_t sum = 0;
  for (const int32_t value : values) sum += value;
  return sum;
}

}  // namespace

int main() {
  TamberContext context;
  RegisterFunction(context, "int Sum (int Values[])", Sum);
  if (!context.CompileScriptBuffer("orders", kScript, 1)) return 1;
  const shop::Order order{1, {{"pen", {1.5}}}, {}};
  for (const std::vector<int32_t>& numbers : {std::vector{4, 5}, {2147483647, 1}}) {
    if (const auto extended = Call<shop::Order>(context, "Extend", order, numbers)) {
      const shop::Order& now = extended.Value();
      std::cout << now.id << ' ' << now.lines[0].name << ' ' << now.lines[0].prices[1] << ' '
                << now.discount.value_or(0) << '\n';
    } else {
      std::cout << extended.Error().code << ' ' << extended.Error().detail.Str() << '\n';
    }
  }
  return 0;
}
