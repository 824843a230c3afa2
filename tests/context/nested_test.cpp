
#include <chrono>

#include "context/contextstate.h"
#include "scriptrunner.h"
#include "values/errcodes.h"

namespace {

class Nested : public ScriptRunner {
 protected:
  /// A file that was not written just now, so that it need not be read again.
  static void PutOld(const std::string& name, std::string_view bytes) {
    using std::filesystem::file_time_type;
    Put(name, bytes);
    std::filesystem::last_write_time(name, file_time_type::clock::now() - std::chrono::hours(1));
  }
  /// Compiles what stands before `main`, and in there a procedure that calls the script.
  void Prepare(const std::string& declarations) {
    ASSERT_EQ(Compile(declarations + "\nproc main()\n  call \"x.tam\"\nendproc\n"), 1);
  }
  /// What a run of `main` prints, and the number of the error that was reported.
  std::string Call() {
    context_.RunProcedure("main", nullptr);
    const int32_t code = context_.GetDiagnostic().code;
    return code == 0 ? Printed() : Printed() + "!" + std::to_string(code);
  }
  /// Of scripts that need not be compiled again.
  uint32_t Kept() { return context_.State().keptCalls; }
};

TEST_F(Nested, AHostThatRefusesToShowOutputEndsTheRun) {
  Put("called.tam", "int x\n");
  context_.SetOutputSink(
      [](std::string_view text, void*) {
        if (text.empty()) throw 1;
      },
      nullptr);
  EXPECT_EQ(Run("int after = 7\nproc main()\n  string s\n  s = \"a\" + after\n"
                "  call \"called.tam\"\nendproc\n"),
            0);
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
  EXPECT_EQ(context_.GetDiagnostic().line, 5u);
  EXPECT_EQ(IntegerOf("after"), 7);
}

TEST_F(Nested, ScriptsThatCallThemselvesWithoutEndAreStopped) {
  Put("forever.tam", "Print(\"x\")\ncall \"forever.tam\"\n");
  ASSERT_EQ(context_.CompileScriptFile("forever.tam"), 1);
  EXPECT_EQ(context_.RunProcedure("main", nullptr), 0);
  EXPECT_EQ(Printed(), std::string(65, 'x'));
  EXPECT_EQ(context_.GetContextError(), ERR_INTERNAL);
}

TEST_F(Nested, AScriptBeginsAnewAtEveryCall) {
  struct Case {
    const char* declarations;
    const char* script;
    const char* first;
    const char* second;
    uint32_t kept;
  };
  constexpr Case kCases[] = {
      {"int g = 1", "int n = 3\nproc main()\n n += g\n g += 1\n Print(n + \" \" + g)\nendproc\n",
       "4 2", "4 2", 1},
      {"string s = \"a\"\nint[] a",
       "proc main()\n s += \"b\"\n a <<= 4\n Print(s + a[1])\nendproc\n", "ab4", "ab4", 1},
      {"struct P\n string s\nendstruct\nP[] ps",
       "struct P\n int other\nendstruct\nP p\nproc main()\n p.other += 1\n Print(\"\" + p.other)\n"
       " ps += 1\n ps[1].s = \"x\"\n Print(ps[1].s + ArrayGetSize(ps))\nendproc\n",
       "1x1", "1x1", 1},
      // What `exit` or an error ends is that call.
      {"", "int n\nproc main()\n n += 1\n Print(\"\" + n)\n exit\nendproc\n", "1", "1", 1},
      {"int zero", "proc main()\n Print(\"x\" + 1 / zero)\nendproc\n", "", "", 1},
      // Values that a run has to compute are computed for every call.
      {"int Shown()\n Print(\"v\")\n return 1\nendproc",
       "int n = Shown()\nproc main()\n Print(\"m\")\nendproc\n", "vm", "vm", 0},
      {"", "bool b = \"a\" == \"A\"\nproc main()\n Print(\"\" + b)\nendproc\n", "TRUE", "TRUE", 0},
      // One that calls itself is one of its own at every level.
      {"int depth",
       "proc main()\n depth += 1\n Print(\"\" + depth)\n if depth < 3\n call \"x.tam\"\n "
       "endif\nendproc\n",
       "123", "123", 3},
  };
  for (const Case& each : kCases) {
    context_.ResetContext();
    PutOld("x.tam", each.script);
    Prepare(each.declarations);
    EXPECT_EQ(Call(), each.first) << each.script;
    EXPECT_EQ(Kept(), each.kept) << each.script;
    EXPECT_EQ(Call(), each.second) << each.script;
  }
}

TEST_F(Nested, WhatHasChangedBetweenCallsIsSeen) {
  PutOld("x.tam", "include \"part.tam\"\nproc main()\n  Show()\nendproc\n");
  PutOld("part.tam", "proc Show()\n  Print(g + Word())\nendproc\n");
  Prepare("string g = \"a\"\nstring Word()\n  return \"1\"\nendproc");
  EXPECT_EQ(Call(), "a1");
  EXPECT_EQ(Call(), "a1");
  EXPECT_EQ(Kept(), 1u);
  context_.GetVariable("g", VARLIST_GLOBAL)->SetStringValue("b");
  EXPECT_EQ(Call(), "b1");
  // Of the same size, and with the time of the one before.
  const auto time = std::filesystem::last_write_time("part.tam");
  Put("part.tam", "proc Show()\n  Print(g + \"2222\")\nendproc\n");
  std::filesystem::last_write_time("part.tam", time);
  EXPECT_EQ(Call(), "b2222");
  context_.DeleteProcedure("Word");
  ASSERT_EQ(Compile("string Word()\n  return \"3\"\nendproc\n"), 1);
  PutOld("part.tam", "proc Show()\n  Print(g + Word())\nendproc\n");
  EXPECT_EQ(Call(), "b3");
  PutOld("x.tam", "const K = 5\nproc main()\n  Print(\"K\" + K)\nendproc\n");
  EXPECT_EQ(Call(), "K5");
  context_.RegisterInteger("Later", 6, VARLIST_CONSTANT);
  PutOld("x.tam", "proc main()\n  Print(\"L\" + Later)\nendproc\n");
  EXPECT_EQ(Call(), "L6");
  EXPECT_EQ(Kept(), 1u);
  context_.ResetContext();
  EXPECT_EQ(Kept(), 0u);
}

TEST_F(Nested, ThePolicyIsAskedAtEveryCall) {
  PutOld("x.tam", "include \"lib/part.tam\"\nproc main()\n  Print(\"x\")\nendproc\n");
  std::filesystem::create_directory("lib");
  PutOld("lib/part.tam", "int unused\n");
  Prepare("");
  EXPECT_EQ(Call(), "x");
  EXPECT_EQ(Kept(), 1u);
  kel::FilePolicy policy;
  policy.SetAccess(kel::Access::Read);
  ASSERT_TRUE(policy.AddDirectory("lib", kel::Access::None));
  context_.SetFilePolicy(policy);
  EXPECT_EQ(Call(), "!102");
  policy.SetAccess(kel::Access::None);
  context_.SetFilePolicy(policy);
  EXPECT_EQ(Call(), "!102");
}

}  // namespace
