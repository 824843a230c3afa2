#include "host/call.h"

#include <gtest/gtest.h>

#include "tamber.h"

namespace {

class CallTest : public ::testing::Test {
 protected:
  CallTest() {
    context_.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, nullptr);
    context_.SetOutputSink(
        [](std::string_view text, void* user) { static_cast<std::string*>(user)->append(text); },
        &output_);
  }
  void Compile(const char* script) {
    ASSERT_TRUE(context_.CompileScriptBuffer("test", script, 1))
        << context_.GetDiagnostic().name.GetString() << " in line "
        << context_.GetDiagnostic().line;
  }

  TamberContext context_;
  std::string output_;
};

constexpr const char* kScript =
    "int calls\n"
    "int Add(int a, int b)\n"
    "  calls += 1\n"
    "  return a + b\n"
    "endproc\n"
    "int Sum(int[] all)\n"
    "  int total, i\n"
    "  for (i = 1; i <= ArrayGetSize(all); i += 1)\n"
    "    total += all[i]\n"
    "  endfor\n"
    "  return total\n"
    "endproc\n"
    "proc Grow(int & n)\n"
    "  n *= 2\n"
    "endproc\n"
    "int Broken(int n)\n"
    "  return n / (n - n)\n"
    "endproc\n"
    "int Outer(int n)\n"
    "  return Broken(n)\n"
    "endproc\n"
    "proc Stops()\n"
    "  exit\n"
    "endproc\n";

TEST_F(CallTest, WhatDoesNotFitIsRefusedWithItsReason) {
  Compile(kScript);
  const auto error = [&](auto result) {
    EXPECT_FALSE(result);
    return result ? std::string() : result.Error().name.Str() + ": " + result.Error().detail.Str();
  };
  EXPECT_EQ(error(Call(context_, "Nowhere")), "ERR_PROCNOTFOUND: Nowhere");
  EXPECT_EQ(error(Call(context_, "Add", 1)), "ERR_PROCPARMCOUNT: Add takes 2, given 1");
  EXPECT_EQ(error(Call(context_, "Add", 1, 2, 3)), "ERR_PROCPARMCOUNT: Add takes 2, given 3");
  EXPECT_EQ(error(Call(context_, "Add", 1, "2")),
            "ERR_EXPRPARMMATCH: Add, parameter 2 takes integer, given string");
  EXPECT_EQ(error(Call(context_, "Grow", 1)),
            "ERR_EXPRPARMMATCH: Grow, parameter 1 takes a variable of type integer, given "
            "integer");
  EXPECT_EQ(error(Call(context_, "Sum", static_cast<Variable*>(nullptr))),
            "ERR_EXPRPARMMATCH: Sum, parameter 1 takes integer[], given nothing");
  EXPECT_EQ(error(Call(context_, "Grow", static_cast<Variable*>(nullptr))),
            "ERR_EXPRPARMMATCH: Grow, parameter 1 takes a variable of type integer, given nothing");
  EXPECT_EQ(error(Call<std::string>(context_, "Add", 1, 2)),
            "ERR_PROCBADRETTYPE: Add returns integer, wanted string");
  EXPECT_EQ(error(Call<int32_t>(context_, "Stops")),
            "ERR_PROCBADRETTYPE: Stops returns nothing, wanted integer");
  EXPECT_EQ(context_.GetVariable("calls", VARLIST_GLOBAL)->GetIntegerValue(), 0) << "nothing ran";
  EXPECT_EQ(Call<int32_t>(context_, "Add", 1, 2).Value(), 3) << "and the context is as before";
}

TEST_F(CallTest, AnErrorOfTheScriptComesBackWithItsPlaceAndCalls) {
  Compile(kScript);
  const auto result = Call<int32_t>(context_, "Outer", 1);
  ASSERT_FALSE(result);
  const TamberDiagnostic& error = result.Error();
  EXPECT_EQ(error.name, "ERR_DIVIDEBYZERO");
  EXPECT_EQ(error.file, "test");
  EXPECT_EQ(error.line, 17u);
  EXPECT_EQ(error.column, 12u);
  EXPECT_EQ(error.sourceLine, "  return n / (n - n)");
  EXPECT_EQ(error.procedure, "Broken");
  ASSERT_EQ(error.callStack.size(), 2u);
  EXPECT_EQ(error.callStack[1].procedure, "Outer");
  EXPECT_EQ(error.callStack[1].line, 20u);
  EXPECT_TRUE(Call<int32_t>(context_, "Add", 1, 2));
  EXPECT_EQ(context_.GetDiagnostic().code, 0);
  EXPECT_EQ(context_.GetDiagnostic().file, "") << "nothing is left of the error";
}

TEST_F(CallTest, ARegistrationThatIsRefusedLeavesItsRecord) {
  const auto sum = [](int32_t n) { return n; };
  EXPECT_EQ(RegisterFunction(context_, "int Sum (int[] Values)", sum), 0u);
  EXPECT_EQ(context_.GetDiagnostic().code, ERR_VARBADTYPE);
  EXPECT_EQ(context_.GetDiagnostic().detail, "int Sum (int[] Values)");
  EXPECT_EQ(context_.RegisterStructure("S", "nosuch x", nullptr), 0);
  EXPECT_EQ(context_.GetDiagnostic().code, context_.GetContextError());
}

TEST_F(CallTest, WhatIsTooMuchForOneProcedureIsNamed) {
  const auto many = [](const char* before, const char* after, int count = 65'600) {
    std::string text;
    for (int i = 0; i < count; ++i) text += before + std::to_string(i) + after;
    return text;
  };
  const auto error = [&](const std::string& script) {
    TamberContext context;
    context.SetDefaultReports(false);
    if (context.CompileScriptBuffer("large", KelString(script), 1))
      context.RunProcedure("main", nullptr);
    return context.GetContextErrorText().Str();
  };
  EXPECT_EQ(error("proc main()\n" + many("int v", "\n") + "endproc\n"),
            "main: more than 65534 local variables and parameters");
  EXPECT_EQ(error(many("int g", "\n") + "proc main()\n" + many("g", " = 1\n") + "endproc\n"),
            "main: more than 65536 different names");
  EXPECT_EQ(error("struct S\n" + many("int m", "\n") +
                  "endstruct\nproc main()\nS s\ns.m65599 = 1\nendproc\n"),
            "main: more than 65536 members of a structure");
  // What is called or appended does not count as often as it is.
  EXPECT_EQ(error("proc main()\nint[] a\nint n\n" + many("a <<= StrLen(\"", "\")\n") + "endproc\n"),
            "");
}

/// Compiles and runs a script that fails; the source line of the error with a "^" before the
/// column.
std::string MarkedLine(const std::string& script) {
  TamberContext context;
  context.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, nullptr);
  RegisterFunction(context, "int Refused (int N)",
                   [](int32_t) -> int32_t { throw tamber::ScriptError(ERR_INVALIDPARAM, "no"); });
  const TamberDiagnostic& error = context.GetDiagnostic();
  if (context.CompileScriptBuffer("test", script, 1) && error.code == 0)
    context.RunProcedure("main", nullptr);
  std::string line = error.sourceLine.Str();
  if (error.column == 0 || error.column > line.size() + 1) return "no column";
  return line.insert(error.column - 1, "^");
}

std::string InMain(const std::string& body) {
  return "int F(int a, int b)\n  return a / b\nendproc\nproc Nothing()\nendproc\n"
         "proc Twice(int & n)\nendproc\nstruct P\n  int[] q\nendstruct\n"
         "proc main()\n  int a, b, z\n  int[] v\n  P[] p\n  string s\n" +
         body + "\nendproc\n";
}

/// Scripts, each with a "^" before the place that its error must name.
void ExpectMarked(std::initializer_list<const char*> bodies) {
  for (const std::string wanted : bodies) {
    const size_t caret = wanted.find('^');
    std::string body = wanted;
    body.erase(caret, 1);
    const size_t start = wanted.rfind('\n', caret) + 1;
    EXPECT_EQ(MarkedLine(InMain(body)), wanted.substr(start, wanted.find('\n', start) - start));
  }
}

TEST_F(CallTest, AFailureOfCompilingPointsAtTheToken) {
  ExpectMarked({"  a = 1 + ^wrong * 2", "\t^wrong here", "  a = a + ^StrLen(a, a)",
                "  a = (b + 1) ^* v", "  b = ^(1 + 2 * (3 + 4)", "  b = 1 + 2^)", "  Print(^\"abc)",
                "  b =^", "  b = 1 ^+", "  b ^3", "  p[1].^x = 1", "  a = a.^", "  ^a.x = 1",
                "  a = a + ^b[1]", "  v[^\"x\"] = 1", "  a = 1 + ^Nothing()", "  Twice(1 ^+ a)"});
  ExpectMarked(
      {"  a = F(1, ^s)", "  a = ^F(1) + F(1, 2)", "  for (a = ^wrong; a < 3; a += 1)\n  endfor",
       "  for (a = 1; a < ^wrong; a += 1)\n  endfor", "  for (a = 1; a < 3; a += ^wrong)\n  endfor",
       "  int c ^d", "  int c, ^a", "  a = 3 ^b", "  if a\n  elif ^wrong\n  endif", "  return ^3",
       "  a = ^Nothing()", "  s ^+= v", "  int ^größe", "  a = \"größe\" + ^wrong",
       "  a = 1 + \\\n    2 + \\\n    ^wrong + 3",
       "  for (a = 1; \\\n    a < ^wrong; a += 1)\n  endfor"});
  EXPECT_EQ(MarkedLine("int g = 1 + wrong\n"), "int g = 1 + ^wrong");
}

TEST_F(CallTest, AFailureOfRunningPointsAtTheOperatorOrTheCall) {
  ExpectMarked({"  a = a + b ^/ z", "  a ^/= z", "  a = 1 + v^[3]", "  p += 1\n  p[1].q^[z] = 4",
                "  while 1 < 2 ^/ z\n  wend", "  a = F(1, 1) + ^F(z)",
                "  if z == 0 && 3 ^/ z > 4\n  endif", "  Print(\"\" + 1.5 ^/ z)",
                "  a = 1 + ^Refused(b)", "  for (a = 1 ^/ z; a < 3; a += 1)\n  endfor",
                "  for (a = 1; a < 3 ^/ z; a += 1)\n  endfor",
                "  for (a = 1; a < 3; a += 1 ^/ z)\n  endfor",
                "  a = 1 + \\\n\t2 * \\\n\t\\\n    5 ^/ z + 1", "  \\\n  a = 5 ^/ z",
                "  a = 1 + \\\n  2 ^/ z \\\n  // no more", "  v <<= 1 ^/ z"});
  EXPECT_EQ(MarkedLine("int g = 5 + 1 / 0\n"), "int g = 5 + 1 ^/ 0");
}

void Note(const std::string& text) {
  if (text == "bad") throw std::runtime_error("no such note");
  if (text == "worse") throw tamber::ScriptError(ERR_KEYNOTFOUND, text);
  if (text == "numberless") throw tamber::ScriptError(0, text);
}

int32_t Half(int32_t n) {
  if (n % 2 != 0) throw tamber::ScriptError(ERR_INVALIDPARAM, "odd");
  return n / 2;
}

class RegisterTest : public CallTest {};

TEST_F(RegisterTest, ExceptionsBecomeErrorsOfTheScript) {
  ASSERT_NE(RegisterFunction(context_, "int Note (string Text)", Note), 0u);
  ASSERT_TRUE(RegisterFunctionLater(context_, "int Half (int N)", Half));
  Compile(
      "proc Run(string text)\n"
      "  Note(text)\n"
      "endproc\n"
      "int Handled()\n"
      "  ErrHandler = INLINE_HANDLER\n"
      "  Note(\"worse\")\n"
      "  return ErrCode\n"
      "endproc\n"
      "int HalfOrNothing(int n)\n"
      "  ErrHandler = INLINE_HANDLER\n"
      "  n = Half(n)\n"
      "  return n\n"
      "endproc\n");
  EXPECT_TRUE(Call(context_, "Run", "good"));
  const auto numberless = Call(context_, "Run", "numberless");
  ASSERT_FALSE(numberless);
  EXPECT_EQ(numberless.Error().detail, "Note: numberless") << "code 0 is no error of the language";
  const auto bad = Call(context_, "Run", "bad");
  ASSERT_FALSE(bad);
  EXPECT_EQ(bad.Error().name, "ERR_INTERNAL");
  EXPECT_EQ(bad.Error().detail, "Note: no such note");
  EXPECT_EQ(bad.Error().line, 2u);
  const auto worse = Call(context_, "Run", "worse");
  ASSERT_FALSE(worse);
  EXPECT_EQ(worse.Error().name, "ERR_KEYNOTFOUND");
  EXPECT_EQ(Call<int32_t>(context_, "Handled").Value(), ERR_KEYNOTFOUND);
  EXPECT_EQ(Call<int32_t>(context_, "HalfOrNothing", 8).Value(), 4);
  EXPECT_EQ(Call<int32_t>(context_, "HalfOrNothing", 7).Value(), 0) << "not the argument";
}

TEST_F(RegisterTest, NothingAsAResultIsTheEmptyValue) {
  using Nothing = tamber::VariablePtr;
  RegisterFunction(context_, "string Text (int N)", [](int32_t) -> const char* { return nullptr; });
  RegisterFunction(context_, "int Number (int N)", [](int32_t) { return Nothing(); });
  RegisterFunction(context_, "array List (int N)", [](int32_t) { return Nothing(); });
  RegisterFunction(context_, "array Texts ()", [] { return std::vector<const char*>{nullptr}; });
  Compile(
      "string Run()\n"
      "  array known\n"
      "  known <<= Number(Number(1))\n"
      "  Number(1)\n"
      "  return Text(1) + Text(known[1]) + Number(2) + ArrayGetSize(List(3)) + Texts()[1]\n"
      "endproc\n");
  const auto result = Call<std::string>(context_, "Run");
  ASSERT_TRUE(result) << result.Error().detail.View();
  EXPECT_EQ(result.Value(), "00");
}

// What a host's function holds goes when the function is replaced, and may look at the others then.
TEST_F(RegisterTest, AFunctionThatIsReplacedLeavesTheTableWhole) {
  size_t named = 0;
  const auto count = [&](void*) {
    for (uint32_t i = 1; i <= context_.GetFunctionCount(); ++i)
      named += context_.GetFunction(i) != nullptr ? 1 : 0;
  };
  const auto holder = [&] {
    return [last = std::shared_ptr<void>(nullptr, count)](int32_t n) { return n; };
  };
  const auto table = [&] { return std::exchange(named, 0) == context_.GetFunctionCount(); };
  ASSERT_NE(RegisterFunction(context_, "int Old (int N)", holder()), 0u);
  ASSERT_NE(RegisterFunction(context_, "int Old (int N)", Half, {}, true), 0u);
  EXPECT_TRUE(table());
  RegisterFunction(context_, "int Old (int N)", holder(), {}, true);
  context_.FunctionList::ClearList();
  EXPECT_TRUE(table());
}

// What a function was passed stays, whatever it does to the variables that it came from.
TEST_F(RegisterTest, ArgumentsOutliveWhatTheyWereReadFrom) {
  const auto change = [](TamberContext& context, std::string_view text, int32_t times) {
    context.GetVariable("g", VARLIST_GLOBAL)->SetStringValue(std::string(60, 'n').c_str(), 60);
    if (times > 1) Call(context, "Again", times - 1);
    return std::string(text.substr(0, 3));
  };
  const FunctionTraits blind{.localsBlind = true};
  ASSERT_NE(RegisterFunction(context_, "string Change (string Text, int Times)", change), 0u);
  ASSERT_NE(RegisterFunction(context_, "string Blind (string Text, int Times)", change, blind), 0u);
  ASSERT_NE(RegisterFunction(context_, "string Odd (int N)",
                             [](int32_t n) -> std::string { return std::to_string(Half(n)); }),
            0u);
  ASSERT_NE(RegisterFunction(context_, "string Word ()", []() -> const char* { return "word"; }),
            0u);
  ASSERT_NE(
      RegisterFunction(
          context_, "int StrLen (string Value)", [](std::string_view) { return 1; }, {}, true),
      0u);
  Compile(
      "string g, t\n"
      "proc Again(int n)\n"
      "  Change(g, n)\n"
      "endproc\n"
      "proc Run()\n"
      "  ErrHandler = INLINE_HANDLER\n"
      "  g = \"old and long enough to be allocated\"\n"
      "  t = g\n"
      "  t = \"\"\n"
      "  Print(Change(g, 2) + g + Blind(g, 1) + Odd(4) + Odd(3) + StrLen(g) + Word())\n"
      "endproc\n");
  EXPECT_TRUE(Call(context_, "Run"));
  EXPECT_EQ(output_, "old" + std::string(60, 'n') + "nnn2" + "1word");
}

TEST_F(CallTest, AHandlerThatFailsWhenItIsToldEndsWithTheStack) {
  Compile("int Div(int n)\n  return 1 / n\nendproc\n");
  context_.SetDiagnosticHandler(
      [](const TamberDiagnostic&, void* user) {
        EXPECT_FALSE(Call<int32_t>(*static_cast<TamberContext*>(user), "Div", 0));
      },
      &context_);
  EXPECT_EQ(Call<int32_t>(context_, "Div", 0).Error().code, ERR_DIVIDEBYZERO);
}

TEST_F(CallTest, AHandlerMayUseTheContextAndWhatItThrowsIsDropped) {
  struct Told {
    TamberContext* context;
    int depth;
    std::string names, reports;
  } told{&context_, 0, {}, {}};
  context_.SetDiagnosticHandler(
      [](const TamberDiagnostic& error, void* user) {
        auto& all = *static_cast<Told*>(user);
        if (all.depth++ == 0) {
          EXPECT_TRUE(Call(*all.context, "Good"));
          EXPECT_FALSE(Call(*all.context, "Bounds"));
          EXPECT_FALSE(all.context->CompileScriptBuffer("other", "bogus", 1));
        }
        all.names += error.name.Str() + " ";
        throw std::runtime_error("from the handler");
      },
      &told);
  context_.SetReportSink(
      [](const KelString&, std::string_view text, void* user) -> bool {
        auto& all = *static_cast<Told*>(user);
        if (text.find("error") != text.npos) all.reports += text.substr(2, text.find(" in ") - 2);
        throw 1;
      },
      &told);
  Compile(
      "int zero\nint[] list\nint Good()\n  return 1\nendproc\n"
      "int Divide()\n  return 2 / zero\nendproc\nint Bounds()\n  return list[1]\nendproc\n");
  const auto result = Call<int32_t>(context_, "Divide");
  ASSERT_FALSE(result);
  EXPECT_EQ(result.Error().name, "ERR_DIVIDEBYZERO");
  EXPECT_EQ(result.Error().line, 7u);
  EXPECT_EQ(told.names, "ERR_VARARRAYBOUNDS ERR_BADSTATEMENT ERR_DIVIDEBYZERO ");
  EXPECT_TRUE(told.reports.ends_with("Run time error ERR_DIVIDEBYZERO")) << told.reports;
  EXPECT_FALSE(context_.CompileScriptBuffer("more", "proc p()\n  bogus\nendproc\n", 1));
  EXPECT_EQ(context_.GetDiagnostic().line, 2u);
  EXPECT_EQ(Call<int32_t>(context_, "Good").Value(), 1);
}

// Each of them counts among those that are being read until it is done.
TEST_F(CallTest, BuffersOfOneNameAreCompiledWithinEachOther) {
  RegisterFunction(context_, "int Again (int N)", [](TamberContext& context, int32_t n) {
    const std::string text = "int g" + std::to_string(n) + " = " +
                             (n < 3 ? "Again(" + std::to_string(n + 1) + ")" : "5") + "\n";
    context.CompileScriptBuffer("part", text, 1);
    return context.GetVariable("g" + std::to_string(n), VARLIST_GLOBAL)->GetIntegerValue() + 1;
  });
  ASSERT_NE(context_.CompileScriptBuffer("part", "int g = Again(1)\n", 1), 0);
  EXPECT_EQ(context_.GetVariable("g", VARLIST_GLOBAL)->GetIntegerValue(), 8);
}

TEST_F(CallTest, AResetInTheMiddleOfARunEndsItWell) {
  context_.SetOutputSink(
      [](std::string_view, void* user) { static_cast<TamberContext*>(user)->ResetContext(); },
      &context_);
  Compile("int z\nproc main()\n  string s\n  s = \"local\"\n  Print(s)\n  Print(s + z)\nendproc\n");
  const auto result = Call(context_, "main");
  ASSERT_FALSE(result);
  EXPECT_EQ(result.Error().name, "ERR_VARNOTDECLARED");
  EXPECT_EQ(Call(context_, "main").Error().name, "ERR_PROCNOMAIN");
}

// Procedures that were read before it are the compiler's until it is done.
TEST_F(CallTest, AResetInTheMiddleOfACompilationEndsItWell) {
  RegisterFunction(context_, "int Reset ()", [](TamberContext& context) {
    context.ResetContext();
    return 1;
  });
  const KelString text("int P()\n  return 1\nendproc\nint g = Reset()\nint h = P()\n");
  EXPECT_EQ(context_.CompileScriptBuffer("part", text, 1), 0);
  EXPECT_EQ(Call(context_, "P").Error().name, "ERR_PROCNOTFOUND");
}

// What the compiler can know, it refuses.
template <class... Args>
concept Callable = requires(TamberContext& context, Args... args) {
  Call<int32_t>(context, "P", args...);
};
static_assert(Callable<int32_t, std::string, const char*, Variable*>);
static_assert(Callable<int64_t, std::vector<int>, std::optional<double>>);
static_assert(!Callable<uint64_t> && !Callable<uint32_t> && !Callable<void*>);
static_assert(!tamber::host::Taken<std::string_view> && !tamber::host::Taken<Variable*>);
static_assert(!tamber::host::Received<uint64_t> && !tamber::host::Received<std::string&> &&
              !tamber::host::Received<const char*>);

class ServerTest : public CallTest {};

TEST_F(ServerTest, OneContextServesManySessions) {
  char folder[] = "/tmp/tamber-sessions-XXXXXX";
  ASSERT_NE(mkdtemp(folder), nullptr);
  context_.SetIniPath(KelString(folder) + "/tamber.ini");
  EXPECT_FALSE(context_.LoadSession());
  EXPECT_FALSE(context_.SaveSession());
  context_.SetSessionId(1);
  Compile(
      "session int visits\n"
      "int scratch = 7\n"
      "int[] list\n"
      "int Visit()\n"
      "  visits += 1\n"
      "  scratch += 1\n"
      "  list <<= visits\n"
      "  return visits * 100 + scratch * 10 + ArrayGetSize(list)\n"
      "endproc\n");
  EXPECT_FALSE(context_.RestoreGlobals());
  context_.KeepGlobals();
  const auto visit = [&](uint32_t session) {
    context_.SetSessionId(session);
    EXPECT_TRUE(context_.RestoreGlobals());
    EXPECT_TRUE(context_.LoadSession());
    const int32_t result = Call<int32_t>(context_, "Visit").ValueOr(-1);
    EXPECT_TRUE(context_.SaveSession());
    return result;
  };
  EXPECT_EQ(visit(1), 181);
  EXPECT_EQ(visit(2), 181);
  EXPECT_EQ(visit(1), 281);
  EXPECT_EQ(visit(1), 381);
  EXPECT_EQ(visit(2), 281);
  context_.ResetContext();
  EXPECT_FALSE(context_.RestoreGlobals());
}

}  // namespace
