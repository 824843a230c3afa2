// A built-in that uses the context which calls it: runs procedures, compiles, evaluates, changes
// variables and functions, stops, resets and freezes, while scripts run.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>

#include "declarations.h"
#include "harness.h"

namespace {

/// What the script does between the calls of the built-in.
constexpr const char* kCallers =
    "int Back(int &n)\nn = n + 1\nn = Host(n, s) + n\nreturn n\nendproc\n"
    "proc Deep(int[] r)\nint l\nstring k\nk = s\nl = Host(l, k)\nr <<= l\nk = k + s + Host(l, k)\n"
    "if l < 3\nDeep(r)\nendif\nendproc\n"
    "proc Loop()\nint j\nfor (j = 1; j < 4; j += 1)\na[j] = Host(a[j], t[1]) + q[1].X\nendfor\n"
    "endproc\n"
    "proc Parts()\np.List <<= Host(p.X, p.Name)\nq[1] = Get(p)\ng <<= Host(p.List[1], q[1].Name)\n"
    "endproc\n"
    "proc Texts()\ni = MakeInt(\"Host(i, s)\")\nendproc\n"
    "proc Handled()\nErrHandler = \"Texts\"\ni = a[9]\nendproc\n";

constexpr std::array kProcedures{"Back",  "Deep",    "Loop",  "Parts",
                                 "Texts", "Handled", "Twice", "New"};
constexpr std::array kExpressions{"Host(i, s)", "a[i]",  "Back(i)",   "p",
                                  "l",          "k + s", "Get(q[1])", "n"};
constexpr std::array kNames{"i", "s", "a", "p", "q", "g", "t", "n", "l", "k", "ErrHandler"};

FuzzedDataProvider* bytes = nullptr;
int depth = 0;

template <class Table>
const char* OneOf(const Table& table) {
  return table[bytes->ConsumeIntegralInRange<size_t>(0, table.size() - 1)];
}

void Compile(TamberContext& context) {
  const std::string body = bytes->ConsumeBool() ? "Host(1, \"x\")" : OneOf(kExpressions);
  const std::string name = bytes->ConsumeBool() ? "New" : OneOf(kProcedures);
  context.CompileScriptBuffer("new", "proc " + name + "()\ni = " + body + "\nendproc\n", 1);
}

void ChangeVariable(TamberContext& context) {
  constexpr uint32_t kAll = VARLIST_LOCAL | VARLIST_GLOBAL;
  const KelString name(OneOf(kNames));
  Variable* variable = context.GetVariable(name, kAll);
  const auto scope = bytes->ConsumeBool() ? VARLIST_LOCAL : VARLIST_GLOBAL;
  switch (bytes->ConsumeIntegralInRange(0, 5)) {
    case 0:
      Variable::Delete(context.RemoveVariable(name, scope));
      break;
    case 1:
      context.AddVariable(new VarInteger(name, 0), scope);
      break;
    case 2:
      if (variable != nullptr) variable->SetArraySize(bytes->ConsumeIntegralInRange(0U, 50U));
      break;
    case 3:
      if (variable != nullptr) variable->SetStringValue("text", 0);
      break;
    case 4:
      if (variable != nullptr) variable->Assign(context.GetVariable(OneOf(kNames), kAll));
      break;
    default:
      context.ReplaceVariable(bytes->ConsumeIntegralInRange(0U, 20U), new VarString(name, 0),
                              scope);
  }
}

int32_t Host(TamberContext& context, int32_t number, const std::string& text);

void Manage(TamberContext& context) {
  switch (bytes->ConsumeIntegralInRange(0, 8)) {
    case 0:
      context.ResetContext();
      break;
    case 1:
      context.SetContextError(0, "");
      context.Freeze();
      break;
    case 2:
      context.RequestStop();
      break;
    case 3:
      context.CancelStop();
      break;
    case 4:
      context.KeepGlobals();
      break;
    case 5:
      context.RestoreGlobals();
      break;
    case 6:
      context.CreateLocalContext();
      break;
    case 7:
      context.RemoveLocalContext();
      break;
    default:
      RegisterFunction(context, "int Host (int Number, string Text)", &Host, {}, true);
  }
}

void Step(TamberContext& context) {
  int32_t code = 0;
  switch (bytes->ConsumeIntegralInRange(0, 5)) {
    case 0:
      Call(context, OneOf(kProcedures));
      break;
    case 1:
      Call<int32_t>(context, OneOf(kProcedures), context.GetVariable("i", VARLIST_GLOBAL));
      break;
    case 2:
      Variable::Delete(context.EvaluateText(OneOf(kExpressions), code));
      break;
    case 3:
      Compile(context);
      break;
    case 4:
      ChangeVariable(context);
      break;
    default:
      Manage(context);
  }
}

int32_t Host(TamberContext& context, int32_t number, const std::string& text) {
  if (depth >= 5) return number;
  ++depth;
  for (int steps = bytes->ConsumeIntegralInRange(0, 3); steps > 0; --steps) Step(context);
  --depth;
  if (bytes->ConsumeIntegralInRange(0, 15) == 0) throw tamber::ScriptError(102, text);
  return number + static_cast<int32_t>(text.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::shared_ptr<const TamberProgram> program = [] {
    const std::unique_ptr<TamberContext> context = fuzz::MakeContext(false);
    RegisterFunction(*context, "int Host (int Number, string Text)", &Host);
    return fuzz::MakeProgram(*context, std::string(fuzz::kDeclarations) + kCallers);
  }();
  fuzz::WithoutLeak([&] {
    FuzzedDataProvider input(data, size);
    bytes = &input;
    depth = 0;
    TamberContext context(program);
    const fuzz::Budget budget(context);
    for (int step = 0; step < 20 && input.remaining_bytes() > 0; ++step) Step(context);
  });
  return 0;
}
