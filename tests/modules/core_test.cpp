#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <random>
#include <thread>

#include "context/contextstate.h"
#include "kel/sleep.h"
#include "modules/functioncaller.h"
#include "values/varref.h"

namespace {

using tamber::VarHolder;
using testing::ElementsAre;

class CoreModule : public FunctionCaller {
 protected:
  Variable* Add(const char* word, const char* name, enum_VarListType scope) {
    Variable* variable = context_.GetType(KelString(word))->CreateVariable(name);
    context_.AddVariable(variable, scope);
    return variable;
  }
};

TEST_F(CoreModule, ExportTurnsALocalIntoAReference) {
  Variable* local = Add("int", "Count", VARLIST_LOCAL);
  local->SetIntegerValue(3);
  local->SetVarFlags(Variable::Session);
  EXPECT_EQ(Integer("Export", "count"), 1);
  Variable* global = context_.GetVariable("count", VARLIST_GLOBAL);
  ASSERT_NE(global, nullptr);
  EXPECT_EQ(global->GetVarName(), "Count");
  EXPECT_EQ(global->GetVarFlags(), 0u);
  context_.GetVariable("count", VARLIST_LOCAL)->SetIntegerValue(8);
  EXPECT_EQ(global->GetIntegerValue(), 8) << "the local is a reference now";
  EXPECT_EQ(Integer("Export", "count"), 1) << "again: nothing changes";
  EXPECT_EQ(context_.GetVariable("count", VARLIST_GLOBAL), global);

  Add("double", "rate", VARLIST_GLOBAL)->SetDoubleValue(1);
  Add("int", "rate", VARLIST_LOCAL)->SetIntegerValue(2);
  EXPECT_EQ(Integer("Export", "rate"), 1);
  EXPECT_EQ(context_.GetVariable("rate", VARLIST_GLOBAL)->GetDoubleValue(), 2);

  Add("string", "name", VARLIST_GLOBAL)->SetStringValue(KelString("kept"));
  Add("int", "name", VARLIST_LOCAL);
  EXPECT_EQ(Integer("Export", "name"), 0);
  EXPECT_EQ(code_, 102);
  EXPECT_EQ(context_.GetVariable("name", VARLIST_LOCAL)->GetTypeId(), Variable::Integer);
  EXPECT_EQ(Integer("Export", "StrCase"), 0) << "no local";
  EXPECT_EQ(text_, "StrCase");
}

TEST_F(CoreModule, NotANumberComesLast) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const VarHolder mixed = Array<double>("double[]", {nan, 1, -nan, -INFINITY, 0, nan, INFINITY});
  for (const bool ascending : {true, false}) {
    const VarHolder sorted = Call("ArraySort", mixed, ascending);
    std::vector<double> values;
    for (uint32_t i = 1; i <= 4; ++i)
      values.push_back(sorted->GetArrayElement(i)->GetDoubleValue());
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end()) == ascending);
    for (uint32_t i = 5; i <= 7; ++i) {
      EXPECT_TRUE(std::isnan(sorted->GetArrayElement(i)->GetDoubleValue()));
    }
  }
  std::vector<float> many;
  std::mt19937 random(3);
  for (int i = 0; i < 5000; ++i) {
    many.push_back(random() % 3 == 0 ? NAN : static_cast<float>(random() % 100));
  }
  EXPECT_EQ(Call("ArraySort", Array<float>("float[]", many), true)->GetElementCount(), 5000u);
}

TEST_F(CoreModule, SeesThroughElementsThatAreReferenced) {
  const VarHolder numbers = Array<int32_t>("int[]", {3, 1, 2});
  const VarHolder reference(new VarReference(numbers->GetArrayElement(2)));
  reference->SetIntegerValue(9);
  EXPECT_THAT(Integers(*Call("ArraySort", numbers, true)), ElementsAre(2, 3, 9));
  EXPECT_EQ(Integer("ArrayFind", numbers, 9, 1), 2);
  EXPECT_THAT(Integers(*Call("ArraySetSize", numbers, 2)), ElementsAre(3, 9));
  reference->SetIntegerValue(3);
  EXPECT_THAT(Integers(*Call("ArrayRemoveDup", numbers)), ElementsAre(3, 2));
}

class SystemModule : public FunctionCaller {};

TEST_F(SystemModule, RandGivesTheSameNumbersEverywhere) {
  std::vector<int32_t> here;
  std::vector<int32_t> there;
  for (int i = 0; i < 4; ++i) here.push_back(Integer("Rand"));
  std::thread([&] {
    for (int i = 0; i < 4; ++i) there.push_back(Integer("Rand"));
  }).join();
  EXPECT_THAT(there, ElementsAre(16838, 5758, 10113, 17515)) << "a thread begins anew";
  for (const int32_t value : here) EXPECT_TRUE(value >= 0 && value <= 32767);
}

TEST_F(SystemModule, PrintCountsBytesAndKeepsNuls) {
  KelString output;
  context_.SetOutput(&output);
  EXPECT_EQ(Integer("Print", std::string("a\0\xC3\xA4", 4)), 4);
  EXPECT_EQ(Integer("Print", ""), 0);
  EXPECT_EQ(output.Str(), std::string("a\0\xC3\xA4", 4));
}

TEST_F(SystemModule, SleepsAndIsWoken) {
  const auto start = std::chrono::steady_clock::now();
  const auto passed = [&] { return std::chrono::steady_clock::now() - start; };
  for (const int32_t none : {0, -1, -2147483647 - 1}) {
    Call("Sleep", none);
    EXPECT_EQ(Call("Wait", none)->GetTypeId(), Variable::Boolean);
  }
  EXPECT_LT(passed(), std::chrono::milliseconds(500));
  EXPECT_EQ(Call("Sleep", 30)->GetBoolValue(), 1);
  EXPECT_GE(passed(), std::chrono::milliseconds(30));
  std::thread waker([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::atomic<uint32_t>& wake = context_.State().run.wake;
    wake = 1;
    kel::WakeSleepers(&wake);
  });
  Call("Wait", 2147483647);
  waker.join();
  EXPECT_LT(passed(), std::chrono::seconds(10));
}

/// Reads lines with ReadLine from a pipe that holds `input`.
TEST_F(SystemModule, ReadLineTakesOneLineOfAny) {
  const std::string input = "one\r\ntwo\n\nthree\rfour\n" + std::string("\0", 1) + "\n" +
                            std::string(8192, 'y') + "zz\nlast";
  std::FILE* file = std::tmpfile();
  std::fwrite(input.data(), 1, input.size(), file);
  std::rewind(file);
  const int before = ::dup(0);
  ::dup2(::fileno(file), 0);
  std::vector<std::string> lines;
  for (int i = 0; i < 10; ++i) {
    const VarHolder line = Call("ReadLine");
    lines.emplace_back(line->GetStringValue(), line->GetLength());
  }
  ::dup2(before, 0);
  ::close(before);
  std::fclose(file);
  EXPECT_THAT(lines, ElementsAre("one", "two", "", "three", "four", std::string("\0", 1),
                                 std::string(8192, 'y'), "zz", "last", ""));
}

}  // namespace
