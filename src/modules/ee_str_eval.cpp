#include <limits>
#include <memory>
#include <optional>

#include "context/contextstate.h"
#include "engine/arith.h"
#include "kel/kelascii.h"
#include "kel/number.h"
#include "modules/ee_str_bodies.h"
#include "values/limittable.h"

namespace tamber::strings {
namespace {

struct VariableDeleter {
  void operator()(Variable* variable) const { Variable::Delete(variable); }
};
using Value = std::unique_ptr<Variable, VariableDeleter>;

/// Longer texts are numbers too, when the compiler says so.
constexpr size_t kLongestPlain = 4096;

/// Value of a text that is one number as the language writes integers, with a minus before it or
/// without; nothing for all other texts. Numbers out of files and forms need no compiler.
std::optional<int32_t> PlainInteger(std::string_view text) {
  if (text.size() > kLongestPlain) return std::nullopt;
  text = kel::Trimmed(text);
  const bool negative = text.starts_with('-');
  if (negative) text.remove_prefix(1);
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  if (hex) text.remove_prefix(2);
  const uint64_t base = hex ? 16 : 10;
  if (text.empty() || text.size() > (hex ? 8U : 10U)) return std::nullopt;
  uint64_t number = 0;
  for (const char c : text) {
    if (!(hex ? kel::IsHexDigit(c) : kel::IsDigit(c))) return std::nullopt;
    number = number * base + static_cast<uint64_t>(kel::HexValue(c));
  }
  if (number > std::numeric_limits<uint32_t>::max()) return std::nullopt;
  const auto value = static_cast<int32_t>(static_cast<uint32_t>(number));
  return negative ? NegInt(value) : value;
}

/// Value of a text that is one number as the language writes it in a literal or turns it into text,
/// exponents included; nothing for all other texts. A word that means a number counts unless the
/// script has given it a meaning.
template <class Real>
std::optional<Real> PlainReal(TamberContext& context, std::string_view text,
                              bool (*parse)(std::string_view, Real&)) {
  if (text.size() > kLongestPlain) return std::nullopt;
  text = kel::Trimmed(text);
  const std::string_view digits = text.substr(text.starts_with('-') ? 1 : 0);
  if (digits.empty()) return std::nullopt;
  const bool isWord = kel::IsAlpha(digits.front());
  if (!isWord && !kel::IsDigit(digits.front())) return std::nullopt;
  Real number = 0;
  if (!parse(text, number)) return std::nullopt;
  constexpr uint32_t kAnyScope =
      VARLIST_LOCAL | VARLIST_GLOBAL | VARLIST_CONSTANT | VARLIST_EXTERNAL;
  const bool isName = isWord && context.FindVariable(KelString(digits), kAnyScope) >= 0;
  return isName ? std::nullopt : std::optional<Real>(number);
}

/// The expression's value; null with the failure reported to the call.
///
/// The text often comes from a user, so what does not compile is a run-time error of the call and
/// not the end of the run. Only running out of memory or stack stays what it is.
Value Evaluate(Call& call, std::string_view expression, Kind target = Kind::Any) {
  int32_t code = 0;
  const KelString text(expression);
  Value value(call.Context().State().EvaluateText(text, code, *TypeDesc::Of(target)));
  if (code == 0 && value) return value;
  // Recursion that went too deep has been reported where it did.
  if (EndsEveryRun(code) && call.Context().GetContextError() == code) return nullptr;
  const bool keeps = (code > 0 && code < kFirstFatalError) || EndsEveryRun(code);
  call.Fail(keeps ? code : ERR_FUNCFAILED, Excerpt(text));
  return nullptr;
}

template <class Result>
Result Read(Call& call, std::string_view expression, Result (Variable::*getter)() const,
            Kind target = Kind::Any) {
  const Value value = Evaluate(call, expression, target);
  return value ? (value.get()->*getter)() : Result{};
}

}  // namespace

bool CaseSwitch(Call& call) { return call.Context().GetSwitch("StrCase") != 0; }

std::string IntText(Call& call, int32_t value) {
  return IntTextIn(call.Context().GetSwitch("IntBase"), value);
}

int32_t EvalInteger(Call& call, std::string_view expression) {
  if (const auto number = PlainInteger(expression)) return *number;
  return Read(call, expression, &Variable::GetIntegerValue);
}

int32_t EvalType(Call& call, std::string_view expression) {
  constexpr int32_t kArrayOf = 1000;
  const Value value = Evaluate(call, expression);
  call.Fail(0, {});
  // Asking for the type is no error, whatever the functions in the text say beside their results.
  TamberContext& context = call.Context();
  if (context.GetContextError() < kFirstFatalError) context.SetContextError(0, {});
  if (!value) return 0;
  const TypeRef type = TypeOf(*value);
  if (!type->IsArray()) return type->TypeId();
  return kArrayOf + (type->Element() ? type->Element()->TypeId() : type->TypeId());
}

char EvalChar(Call& call, std::string_view expression) {
  return Read(call, expression, &Variable::GetCharValue);
}

bool EvalBoolean(Call& call, std::string_view expression) {
  return Read(call, expression, &Variable::GetBoolValue) != 0;
}

float EvalFloat(Call& call, std::string_view expression) {
  if (const auto number = PlainReal<float>(call.Context(), expression, kel::ParseFloat))
    return *number;
  return Read(call, expression, &Variable::GetFloatValue);
}

double EvalDouble(Call& call, std::string_view expression) {
  if (const auto number = PlainReal<double>(call.Context(), expression, kel::ParseDouble))
    return *number;
  return Read(call, expression, &Variable::GetDoubleValue, Kind::Double);
}

std::string EvalText(Call& call, std::string_view expression) {
  const Value value = Evaluate(call, expression);
  if (!value) return {};
  if (value->GetTypeId() != Variable::String) return IntText(call, value->GetIntegerValue());
  const char* text = value->GetStringValue();
  return {text, value->GetLength()};
}

}  // namespace tamber::strings
