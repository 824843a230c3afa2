// Every built-in with arguments of any value: calls of them are compiled and run, and the variables
// that they use hold what the input says.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>

#include "declarations.h"
#include "harness.h"

namespace {

constexpr std::string_view kAnyName = "ibcfdsveatpqgmhk";

/// The declared variables of a type.
std::string_view NamesOf(const tamber::TypeDesc& type) {
  using tamber::Kind;
  switch (type.GetKind()) {
    case Kind::Bool:
      return "b";
    case Kind::Char:
      return "c";
    case Kind::Int:
      return "iz";
    case Kind::Float:
      return "f";
    case Kind::Double:
      return "d";
    case Kind::String:
      return "svwe";
    case Kind::Array:
      return "atqgm";
    case Kind::Handle:
      return "hk";
    default:
      return kAnyName;
  }
}

/// Mostly a variable of the type, sometimes any.
std::string NameFor(FuzzedDataProvider& input, const tamber::TypeRef& type) {
  const std::string_view names =
      input.ConsumeIntegralInRange(0, 9) > 0 && type ? NamesOf(*type) : kAnyName;
  return std::string(1, names[input.ConsumeIntegralInRange<size_t>(0, names.size() - 1)]);
}

std::string CallOfAny(FuzzedDataProvider& input, const TamberContext& context) {
  const uint32_t index = input.ConsumeIntegralInRange<uint32_t>(1, context.GetFunctionCount());
  const TamberFunction& function = *context.GetFunction(index);
  std::string call = std::string(function.GetName().Str()) + "(";
  for (const tamber::TypeRef& type : function.ParameterTypes())
    call += (call.back() == '(' ? "" : ", ") + NameFor(input, type);
  call += ")\n";
  return input.ConsumeBool() ? call : NameFor(input, function.ReturnType()) + " = " + call;
}

/// What means something to one function or another, or anything.
KelString Text(FuzzedDataProvider& input) {
  constexpr std::array kWords{"own", "directory", "directory/own", "i",  "a[1]", "p.Name",
                              "*",   "1 + 2",     "([a-z]+)(x)?",  "\\1"};
  if (input.ConsumeBool()) return KelString(input.ConsumeRandomLengthString(64));
  return KelString(kWords[input.ConsumeIntegralInRange<size_t>(0, kWords.size() - 1)]);
}

void Fill(FuzzedDataProvider& input, TamberContext& context) {
  const auto variable = [&](const char* name) -> Variable& {
    return *context.GetVariable(name, VARLIST_GLOBAL);
  };
  for (const char* name : {"i", "z"})
    variable(name).SetIntegerValue(input.ConsumeIntegralInRange(0, 9) > 0
                                       ? input.ConsumeIntegralInRange(-2, 20)
                                       : input.ConsumeIntegral<int32_t>());
  variable("c").SetCharValue(input.ConsumeIntegral<char>());
  variable("f").SetFloatValue(static_cast<float>(input.ConsumeIntegral<int32_t>()) / 3);
  variable("d").SetDoubleValue(input.ConsumeFloatingPoint<double>());
  for (const char* name : {"s", "v", "w", "e"}) variable(name).SetStringValue(Text(input));
  for (uint32_t i = 1; i <= 3; ++i)
    variable("a").GetArrayElement(i)->SetIntegerValue(input.ConsumeIntegral<int8_t>());
  for (uint32_t i = 1; i <= 2; ++i)
    variable("t").GetArrayElement(i)->SetStringValue(KelString(input.ConsumeRandomLengthString(8)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const auto program = fuzz::MakeProgram(
      *fuzz::MakeContext(false), std::string(fuzz::kDeclarations) +
                                     "string v, w\ndouble[] m\nTextFileHandle h\nFileFindInfo k\n");
  fuzz::WithoutLeak([&] {
    FuzzedDataProvider input(data, size);
    std::ofstream("own") << "one\ntwo\n";
    TamberContext context(program);
    const fuzz::Budget budget(context);
    Fill(input, context);
    for (int calls = input.ConsumeIntegralInRange(1, 6); calls > 0; --calls) {
      const std::string name = "call" + std::to_string(calls);
      const std::string call = CallOfAny(input, context);
      context.CancelStop();
      context.CompileScriptBuffer(name, "proc " + name + "()\n" + call + "endproc\n", 1);
      context.RunProcedure(name, nullptr);
    }
  });
  return 0;
}
