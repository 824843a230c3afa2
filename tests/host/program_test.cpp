#include "context/program.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

#include "kel/tempdir.h"
#include "tamber.h"

extern "C" TAMBER_API int cleanupCount;

namespace {

using Program = std::shared_ptr<const TamberProgram>;

constexpr const char* kScript =
    "struct Point\n  int x\n  string[] names\nendstruct\n"
    "const int LIMIT = 10\nconst string GREETING = \"hello, \"\n"
    "int hits = 7\nstring title = \"of the program\"\nint[] table\nPoint origin\nestring secret\n"
    "int Hit()\n  hits += 1\n  return hits\nendproc\n"
    "int Sum(int n)\n  int i, s\n  for (i = 1; i <= n; i += 1)\n    s += i\n  endfor\n"
    "  return s\nendproc\n"
    "string Greet(string who)\n  title += \"!\"\n  origin.x += 1\n  origin.names <<= who\n"
    "  table <<= origin.x\n  return GREETING + who + title\nendproc\n"
    "string State()\n  return title + hits + secret + ArrayGetSize(table) + origin.x + "
    "ArrayGetSize(origin.names)\nendproc\n"
    "string Text(string t)\n  return StrEvalAsString(t)\nendproc\n"
    "int Divide(int n)\n  return hits / n\nendproc\n"
    "int Outer(int n)\n  return Divide(n)\nendproc\n"
    "proc SetUp()\n  table += 3\n  secret = \"s\"\n  origin.names <<= \"first\"\nendproc\n"
    "proc Loop()\n  while TRUE\n  wend\nendproc\n";

class ProgramTest : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    prepared_.emplace();
    prepared_->SetDefaultReports(false);
  }
  void Compile(const std::string& text, TamberContext& context) {
    ASSERT_TRUE(context.CompileScriptBuffer("test", KelString(text), 1))
        << context.GetDiagnostic().name.Str() << context.GetDiagnostic().line;
  }
  Program Prepare(const char* script = kScript) {
    Compile(script, *prepared_);
    if (prepared_->GetProcedure("SetUp") != nullptr) prepared_->RunProcedure("SetUp", nullptr);
    return prepared_->Freeze();
  }
  static std::string Of(TamberContext& context, const char* procedure) {
    return Call<std::string>(context, procedure).ValueOr("failed");
  }

  std::optional<TamberContext> prepared_;
};

TEST_F(ProgramTest, ContextsBeginAsThePreparedOneAndShareNothing) {
  Program program = Prepare();
  ASSERT_NE(program, nullptr);
  TamberContext first(program), second(program);
  prepared_->CompileScriptBuffer("more", "int Later()\n  return 1\nendproc\n", 1);
  EXPECT_EQ(Call<int32_t>(*prepared_, "Later").ValueOr(0), 1);
  EXPECT_EQ(Call<int32_t>(*prepared_, "Hit").ValueOr(0), 8);
  prepared_.reset();
  EXPECT_EQ(Call<std::string>(first, "Greet", "you").ValueOr(""), "hello, youof the program!");
  EXPECT_EQ(Call<int32_t>(first, "Hit").ValueOr(0), 8);
  EXPECT_EQ(Of(first, "State"), "of the program!8s412");
  EXPECT_EQ(Of(second, "State"), "of the program7s301");
  EXPECT_FALSE(Call<int32_t>(second, "Later"));
  program.reset();
  EXPECT_EQ(Call<std::string>(second, "Text", "GREETING + LIMIT + Sum(LIMIT)").ValueOr(""),
            "hello, 1055");
}

TEST_F(ProgramTest, AContextGoesOnAsIfItHadCompiledItsScripts) {
  Program program = Prepare();
  Put("called.tam", "proc main()\n  Print(GREETING + hits)\n  hits = 99\nendproc\n");
  TamberContext context(program);
  KelString output;
  context.SetOutput(&output);
  Compile(
      "const int MORE = LIMIT + 1\nPoint[] points\n"
      "proc Extend()\n  points += 2\n  points[2].x = Sum(MORE)\n  Print(\"\" + points[2].x)\n"
      "  call \"called.tam\"\nendproc\n",
      context);
  EXPECT_TRUE(Call(context, "Extend"));
  EXPECT_EQ(output.Str(), "66hello, 7");
  EXPECT_EQ(context.CompileScriptBuffer("again", "int hits\n", 1), 0);
  EXPECT_EQ(context.GetDiagnostic().name, "ERR_VAREXISTS");
  // Errors tell the same places.
  const auto failed = Call<int32_t>(context, "Outer", 0);
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.Error().line, 37u);
  EXPECT_EQ(failed.Error().callStack.size(), 2u);
  context.KeepGlobals();
  EXPECT_EQ(Call<int32_t>(context, "Hit").ValueOr(0), 8);
  context.RestoreGlobals();
  EXPECT_EQ(Call<int32_t>(context, "Hit").ValueOr(0), 8);
  // Of what it has and has not, another program can be made.
  Program second = context.Freeze();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(Call<int32_t>(context, "Hit").ValueOr(0), 9);
  TamberContext extended(second);
  extended.SetOutput(&output);
  output.Clear();
  EXPECT_TRUE(Call(extended, "Extend"));
  EXPECT_EQ(output.Str(), "66hello, 8");
  extended.ResetContext();
  EXPECT_EQ(Call(extended, "Hit").Error().name, "ERR_PROCNOTFOUND");
  Compile("int hits = 1\nint Hit()\n  return hits\nendproc\n", extended);
  EXPECT_EQ(Call<int32_t>(extended, "Hit").ValueOr(0), 1);
}

TEST_F(ProgramTest, FunctionsGetTheRunningContext) {
  TamberContext* seen = nullptr;
  RegisterFunction(*prepared_, "int Here ()", [&seen](TamberContext& context) {
    seen = &context;
    return context.FindErrorCode("ERR_OWN");
  });
  const int32_t code = prepared_->RegisterErrorCode(0, "ERR_OWN", "of the host");
  Program program = Prepare("int Ask()\n  return Here()\nendproc\nproc Trace()\nendproc\n");
  TamberContext context(program);
  EXPECT_EQ(Call<int32_t>(context, "Ask").ValueOr(0), code);
  EXPECT_EQ(seen, &context);
  // What counts statements is other code.
  context.SetProcedureTrace(true);
  std::string trace;
  context.SetReportSink(
      [](const KelString&, std::string_view text, void* user) {
        static_cast<std::string*>(user)->append(text);
        return true;
      },
      &trace);
  EXPECT_EQ(Call<int32_t>(context, "Ask").ValueOr(0), code);
  EXPECT_NE(trace.find("Entering Ask"), std::string::npos);
}

TEST_F(ProgramTest, WhatCannotBeMadeIsRefused) {
  Program inside = Prepare("int x\n");
  int32_t refused = 0;
  RegisterFunction(*prepared_, "int Now ()", [&](TamberContext& context) {
    inside = context.Freeze();
    return refused = context.GetContextError();
  });
  Compile("int Try()\n  return Now()\nendproc\n", *prepared_);
  static_cast<void>(Call<int32_t>(*prepared_, "Try"));
  EXPECT_EQ(inside, nullptr);
  EXPECT_EQ(refused, ERR_FUNCFAILED);
  prepared_->SetContextError(ERR_VAREXISTS, "x");
  EXPECT_EQ(prepared_->Freeze(), nullptr);
  EXPECT_EQ(prepared_->GetContextError(), ERR_VAREXISTS) << "the error stands";
  prepared_->SetContextError(0, "");
  EXPECT_NE(prepared_->Freeze(), nullptr);
  EXPECT_THROW(TamberContext{Program()}, std::invalid_argument);
}

TEST_F(ProgramTest, AContextKeepsWhatItHasNotLookedAtWhenItsProgramGoes) {
  Program program = Prepare();
  TamberContext context(program);
  prepared_.reset();
  program = context.Freeze();
  EXPECT_FALSE(context.CompileScriptBuffer("more", "int HITS\n", 1));
  ASSERT_FALSE(context.GetDiagnostic().notes.empty());
  EXPECT_EQ(context.GetDiagnostic().notes[0].text, "it is a variable of test, line 7");
  EXPECT_EQ(Of(context, "State"), "of the program7s301");
  program = TamberContext(program).Freeze();
  EXPECT_FALSE(TamberContext(program).CompileScriptBuffer("more", "int LIMIT\n", 1));
  EXPECT_EQ(Call<std::string>(context, "Greet", "you").ValueOr(""), "hello, youof the program!");
}

TEST_F(ProgramTest, AResetTakesAwayAllThatCameFromAProgram) {
  RegisterFunction(*prepared_, "bool Reset ()", [](TamberContext& context) {
    context.ResetContext();
    return true;
  });
  const char* first =
      "const int LIMIT = 1\nstring First()\n  return \"first \" + LIMIT\nendproc\n"
      "string Resets()\n  bool done\n  done = Reset()\n  return \"re\" + \"set\"\nendproc\n";
  Program program = Prepare(first);
  std::optional<TamberContext> ofProgram(program);
  for (TamberContext* context : {&*prepared_, &*ofProgram}) {
    for (const char* end : {"First", "Resets"}) {
      EXPECT_EQ(Of(*context, end).substr(1), end[0] == 'F' ? "irst 1" : "eset");
      context->ResetContext();
      Compile(first, *context);
      EXPECT_EQ(Of(*context, "First"), "first 1");
      context->Freeze();
    }
    context->ResetContext();
    Compile("string Second()\n  return \"the second \" + 2\nendproc\n", *context);
    Program second = context->Freeze();
    program.reset();
    EXPECT_EQ(Of(*context, "Second"), "the second 2");
    EXPECT_FALSE(context->CompileScriptBuffer("more", "int F()\n  return LIMIT\nendproc\n", 1));
  }
}

TEST_F(ProgramTest, ThreadsRunOneProgramAtTheSameTime) {
  Program program = Prepare();
  prepared_.reset();
  std::vector<std::thread> threads;
  std::atomic<int> wrong = 0;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&wrong, program, i] {
      for (int round = 0; round < 60; ++round) {
        TamberContext context(program);
        context.SetProcedureTrace(round % 20 == i);
        context.SetReportSink([](const KelString&, std::string_view, void*) { return true; }, {});
        wrong +=
            Call<std::string>(context, "Greet", "you").ValueOr("") != "hello, youof the program!";
        wrong +=
            Call<std::string>(context, "Text", "GREETING + Sum(LIMIT)").ValueOr("") != "hello, 55";
        wrong += Of(context, "State") != "of the program!7s412";
        wrong += Call<int32_t>(context, "Outer", 0).Error().line != 37;
      }
    });
  }
  // The last of them ends the program.
  program.reset();
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

TEST_F(ProgramTest, ProgramsMadeOfOneAnotherDoNotPileUp) {
  Program program = Prepare();
  std::vector<std::weak_ptr<const TamberProgram>> made;
  for (int i = 0; i < 6; ++i) {
    // Of the prepared context again, or of one that has another's constants.
    TamberContext context(program);
    program = i % 2 == 0 ? prepared_->Freeze() : context.Freeze();
    ASSERT_NE(program, nullptr);
    made.push_back(program);
  }
  prepared_.reset();
  EXPECT_EQ(std::count_if(made.begin(), made.end(), [](const auto& old) { return !old.expired(); }),
            2)
      << "the last one, and the one that has its constants";
  TamberContext context(program);
  EXPECT_EQ(Call<std::string>(context, "Greet", "you").ValueOr(""), "hello, youof the program!");
}

TEST_F(ProgramTest, ModulesStayAsLongAsTheirProgram) {
  void* handle = nullptr;
  ASSERT_TRUE(prepared_->LoadFunctionModule(TEST_MODULES_DIR "/netutil.so", "", &handle));
  const int before = cleanupCount;
  Program program = Prepare(
      "NetRange range\nint Ask()\n  range.Ports <<= NetTwice(NET_PORT)\n"
      "  if !NetContext()\n    return 0\n  endif\n  return range.Ports[1] + Rand()\nendproc\n");
  ASSERT_NE(program, nullptr);
  EXPECT_EQ(Call<int32_t>(*prepared_, "Ask").ValueOr(0), 202);
  std::optional<TamberContext> first(std::in_place, program), second;
  program = prepared_->Freeze();
  prepared_->ResetContext();
  EXPECT_FALSE(prepared_->CompileScriptBuffer("gone", "int n = NetTwice(1)\n", 1));
  prepared_.reset();
  second.emplace(program);
  // What is made of it uses the first one's module.
  program = second->Freeze();
  for (std::optional<TamberContext>* context : {&first, &second}) {
    std::thread([context] { EXPECT_EQ(Call<int32_t>(**context, "Ask").ValueOr(0), 202); }).join();
    context->reset();
    EXPECT_EQ(cleanupCount, before);
  }
  { TamberContext(std::exchange(program, nullptr)); }
  EXPECT_EQ(cleanupCount, before + 1);
}

TEST_F(ProgramTest, AStopEndsOneContextOfMany) {
  Program program = Prepare();
  TamberContext stopped(program), other(program);
  std::thread timer([&] { stopped.RequestStop(); });
  EXPECT_EQ(Call(stopped, "Loop").Error().name, "ERR_STOPPED");
  timer.join();
  EXPECT_EQ(Call<int32_t>(other, "Hit").ValueOr(0), 8);
}

TEST_F(ProgramTest, ClientsHaveSessions) {
  Put("own.ini", "[TamberConfig]\nSessionFile=sessions\n");
  prepared_->SetIniPath("own.ini");
  Program program = Prepare(
      "session int visits\nint Visit()\n  visits += 1\n  return visits\n"
      "endproc\n");
  for (const uint32_t client : {1u, 2u, 1u, 1u}) {
    TamberContext context(program);
    context.SetSessionId(client);
    ASSERT_TRUE(context.LoadSession());
    static_cast<void>(Call<int32_t>(context, "Visit"));
    ASSERT_TRUE(context.SaveSession());
  }
  TamberContext context(program);
  context.SetSessionId(1);
  ASSERT_TRUE(context.LoadSession());
  EXPECT_EQ(Call<int32_t>(context, "Visit").ValueOr(0), 4);
}

}  // namespace
