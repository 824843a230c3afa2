#include <gtest/gtest.h>

#include <string>

#include "tamber.h"

namespace {

constexpr uint32_t kScopes = VARLIST_LOCAL | VARLIST_GLOBAL;

int32_t Get(TamberContext& context, std::string_view name) {
  const Variable* variable = context.GetVariable(KelString(name), kScopes);
  return variable != nullptr ? variable->GetIntegerValue() : -1;
}

int32_t Set(TamberContext& context, std::string_view name, int32_t value) {
  if (Variable* variable = context.GetVariable(KelString(name), kScopes))
    variable->SetIntegerValue(value);
  return value;
}

std::string SetText(TamberContext& context, std::string_view name, std::string_view text) {
  context.GetVariable(KelString(name), kScopes)->SetStringValue(KelString(text));
  return "+";
}

/// Changes an array in place, then makes it longer.
int32_t Bump(TamberContext& context, std::string_view name) {
  Variable* array = context.GetVariable(KelString(name), VARLIST_LOCAL);
  array->GetArrayElement(1)->SetIntegerValue(array->GetArrayElement(1)->GetIntegerValue() + 10);
  array->AdjustArraySize(1);
  return static_cast<int32_t>(array->GetElementCount());
}

int32_t Member(TamberContext& context, std::string_view name) {
  Variable* structure = context.GetVariable(KelString(name), VARLIST_LOCAL);
  structure->GetStructElement("X")->SetIntegerValue(9);
  return structure->GetStructElement("Y")->GetIntegerValue();
}

/// Scripts see locals as they are when they are looked at, whoever changes them by name.
const struct {
  const char* body;
  const char* printed;
} kCases[] = {
    {"int x\nx = 1\nint y\ny = x + Set(\"x\", 5)\nShow(y)\nShow(x)\n", "6 5 "},
    {"int x\nx = 1\nint y\ny = Add(x, Set(\"x\", 5)) + x\nShow(y)\n", "11 "},
    {"int x\nx = 1\nx = Set(\"x\", 5) - x\nShow(x)\n", "0 "},
    {"int x\nx = 1\nx = x - Set(\"x\", 5)\nShow(x)\n", "-4 "},
    {"int x\nx = 1\nif (x < Set(\"x\", 3) && x == 3)\n  Show(x)\nendif\n", "3 "},
    {"string s\ns = \"a\"\ns = s + SetText(\"s\", \"bbb\") + s\nPrint(s)\n", "a+bbb"},
    {"string s\nstring t\ns = \"a\"\nt = SetText(\"s\", \"new text\") + s\nPrint(t)\n",
     "+new text"},
    {"int a[3]\nint i\ni = 1\na[i] = Set(\"i\", 2)\nShow(a[1])\nShow(a[2])\n", "2 0 "},
    {"int a[3]\na[1] = a[1] + Bump(\"a\")\nShow(a[1])\nShow(a[Bump(\"a\")])\nShow(a[1])\n",
     "4 0 14 "},
    {"int a[3]\na[2] = Bump(\"a\")\na <<= Bump(\"a\")\nShow(a[1])\nShow(a[2])\nShow(a[6])\n",
     "20 4 5 "},
    {"P p\np.Y = 4\np.X = Member(\"p\") + p.X\nShow(p.X)\n", "13 "},
    {"P p\nP q\nq = p\nq.Y = Member(\"p\")\nShow(p.X)\nShow(q.X)\n", "9 0 "},
    {"Show(Get(\"g\"))\nint g\ng = 3\nShow(Get(\"g\"))\nShow(Set(\"g\", 4))\nShow(g)\n",
     "70 3 4 4 "},
    {"if (Zero() == 1)\n  int g\nendif\nShow(Get(\"g\"))\n", "70 "},
    {"if (Zero() == 0)\n  int g\n  g = 5\nendif\nShow(Get(\"g\"))\n", "5 "},
    {"Show(Get(\"none\"))\nShow(Deeper(4))\n", "-1 4 "},
    {"int x\nx = 2\nShow(Eval(\"x * Set(\\\"x\\\", 7) + x\"))\nShow(x)\n", "21 7 "},
    {"int x\nx = 2\nShow(Keep(\"x\"))\nx = 3\nShow(Get(\"x\"))\n", "2 3 "},
    {"int a[2]\na[1] = 4 + Keep(\"a\")\nShow(a[1])\n", "4 "},
    {"int k\nk = 7\nShow(ByName(k))\nint g\ng = 8\nShow(ByName(g))\n", "7 8 "},
};

TEST(Locals, AreFoundAndChangedByNameWhereverTheyAreKept) {
  for (const bool usesLocals : {false, true}) {
    for (const auto& [body, printed] : kCases) {
      TamberContext context;
      context.SetCodeVerification(true);
      tamber::VariablePtr kept;
      KelString output;
      context.SetOutput(&output);
      FunctionTraits traits;
      traits.usesLocals = usesLocals;
      RegisterFunction(context, "int Get (string Name)", Get, traits);
      RegisterFunction(context, "int Set (string Name, int Value)", Set, traits);
      RegisterFunction(context, "string SetText (string Name, string Text)", SetText, traits);
      RegisterFunction(context, "int Bump (string Name)", Bump, traits);
      RegisterFunction(context, "int Member (string Name)", Member, traits);
      RegisterFunction(
          context, "int Zero ()", [] { return int32_t{0}; }, traits);
      RegisterFunction(
          context, "int Eval (string Text)",
          [](TamberContext& caller, std::string_view text) {
            int32_t code = 0;
            return tamber::VariablePtr(caller.EvaluateText(KelString(text), code))
                ->GetIntegerValue();
          },
          traits);
      RegisterFunction(
          context, "int Keep (string Name)",
          [&kept](TamberContext& caller, std::string_view name) {
            kept.reset(caller.GetVariable(KelString(name), VARLIST_LOCAL)->Duplicate());
            return kept->GetIntegerValue();
          },
          traits);
      const std::string script =
          std::string(
              "struct P\n  int X\n  int Y\nendstruct\nint g = 70\n"
              "int Add(int a, int b)\n  return a + b\nendproc\n"
              "int Deeper(int n)\n  int r\n  if (n > 0)\n    r = Deeper(n - 1) + 1\n  endif\n"
              "  int unused\n  unused = Set(\"n\", 0)\n  return r + n\nendproc\n"
              "int ByName(int & i)\n  return Eval(\"i\")\nendproc\n"
              "proc Show(int n)\n  Print(\"\" + n + \" \")\nendproc\nproc main()\n") +
          body + "endproc\n";
      ASSERT_EQ(context.CompileScriptBuffer("locals", script, 1), 1) << script;
      ASSERT_EQ(context.RunProcedure("main", nullptr), 1) << script;
      EXPECT_EQ(output.Str(), printed) << body << usesLocals;
    }
  }
}

TEST(Locals, OnlyWhoSaysSoTakesThemAway) {
  for (const bool usesLocals : {false, true}) {
    TamberContext context;
    FunctionTraits traits;
    traits.usesLocals = usesLocals;
    RegisterFunction(
        context, "int Take (string Name)",
        [](TamberContext& caller, std::string_view name) {
          const tamber::VariablePtr taken(caller.RemoveVariable(KelString(name), VARLIST_LOCAL));
          const int32_t at = caller.FindVariable("y", VARLIST_LOCAL);
          caller.ReplaceVariable(static_cast<uint32_t>(at), new VarInteger("y", 0), VARLIST_LOCAL);
          return taken ? taken->GetIntegerValue() : -1;
        },
        traits);
    ASSERT_EQ(context.CompileScriptBuffer(
                  "x", "int F()\nint x\nint y\nx = 4\nx = Take(\"x\")\nreturn y\nendproc\n", 1),
              1);
    const auto result = Call<int32_t>(context, "F");
    ASSERT_FALSE(result.IsOk());
    EXPECT_EQ(result.Error().code, usesLocals ? ERR_NOEXTERNVAR : ERR_FUNCFAILED);
  }
}

}  // namespace
