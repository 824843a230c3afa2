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
using testing::IsEmpty;

class CoreModule : public FunctionCaller {
 protected:
  Variable* Add(const char* word, const char* name, enum_VarListType scope) {
    Variable* variable = context_.GetType(KelString(word))->CreateVariable(name);
    context_.AddVariable(variable, scope);
    return variable;
  }

  /// Structures with a number, a text and a fraction.
  VarHolder People(const std::vector<std::pair<int32_t, std::string>>& people) {
    if (context_.GetType("Person") == nullptr) {
      context_.RegisterStructure("Person", "int Age; string Name; double Weight;", nullptr);
    }
    VarHolder array(context_.GetType("Person[]")->CreateVariable(""));
    for (const auto& [age, name] : people) {
      Variable* person = context_.GetType("Person")->CreateVariable("");
      person->GetStructElement("Age")->SetIntegerValue(age);
      person->GetStructElement("Name")->SetStringValue(KelString(name));
      person->GetStructElement("Weight")->SetDoubleValue(age / 2.0);
      EXPECT_EQ(array->AddArrayElement(person), 1);
    }
    return array;
  }

  static std::vector<std::string> Names(const Variable& people) {
    std::vector<std::string> names;
    for (uint32_t i = 1; i <= people.GetElementCount(); ++i) {
      names.emplace_back(people.GetArrayElement(i)->GetStructElement("Name")->GetStringValue());
    }
    return names;
  }
};

TEST_F(CoreModule, TypesAndValuesOfVariables) {
  const struct {
    const char* word;
    int32_t type;
  } kTypes[] = {{"bool", 2},       {"char", 3},     {"int", 4},        {"float", 5},
                {"double", 6},     {"string", 7},   {"estring", 7},    {"bool[]", 1002},
                {"char[]", 1003},  {"int[]", 1004}, {"float[]", 1005}, {"double[]", 1006},
                {"string[]", 1007}};
  for (const auto& row : kTypes) {
    VarHolder made(context_.GetType(KelString(row.word))->CreateVariable("probe"));
    context_.AddVariable(made->Duplicate(), VARLIST_GLOBAL);
    EXPECT_EQ(Integer("VarGetType", "PROBE"), row.type) << row.word;
    Variable::Delete(context_.RemoveVariable("probe", VARLIST_GLOBAL));
  }
  People({});
  Add("Person[]", "people", VARLIST_GLOBAL);
  Add("Person", "one", VARLIST_LOCAL);
  EXPECT_EQ(Integer("VarGetType", "people"), 1009);
  EXPECT_EQ(Integer("VarGetType", "one"), 9);
  EXPECT_EQ(Integer("VarGetType", "TRUE"), 2);
  EXPECT_EQ(Integer("VarGetType", "unknown"), 0);
  EXPECT_EQ(code_, 0);

  Add("double", "d", VARLIST_GLOBAL)->SetDoubleValue(-2.75);
  EXPECT_EQ(Integer("VarGetIntegerValue", "d"), -2);
  EXPECT_EQ(Call("VarGetFloatValue", "d")->GetFloatValue(), -2.75f);
  EXPECT_EQ(Call("VarGetBooleanValue", "d")->GetBoolValue(), 1);
  EXPECT_STREQ(Call("VarGetStringValue", "d")->GetStringValue(), "-2.75");
  EXPECT_STREQ(Call("VarGetStringValue", "TRUE")->GetStringValue(), "TRUE");
  EXPECT_STREQ(Call("VarGetStringValue", "people")->GetStringValue(), "");
  EXPECT_EQ(Call("VarGetCharValue", "none")->GetTypeId(), Variable::Char);
  Add("estring", "secret", VARLIST_GLOBAL)->SetStringValue(KelString("key"));
  EXPECT_STREQ(Call("VarGetStringValue", "secret")->GetStringValue(), "key");
}

TEST_F(CoreModule, CreatesAndSetsVariables) {
  EXPECT_EQ(Call("VarCreate", "made", 4)->GetBoolValue(), 1);
  EXPECT_EQ(Call("VarCreate", "Made", 4)->GetBoolValue(), 1) << "it is there";
  EXPECT_EQ(code_, 0);
  for (const int32_t type : {7, 9, 1, 8, 0, -1, 1004}) {
    EXPECT_EQ(Call("VarCreate", "made", type)->GetBoolValue(), 0);
    EXPECT_EQ(code_, 102);
  }
  context_.SetContextError(11, "before");
  for (const char* name : {"a-b", "TRUE", "Print", ""}) {
    EXPECT_EQ(Call("VarCreate", name, 4)->GetBoolValue(), 0) << name;
    EXPECT_EQ(code_, 102);
    EXPECT_EQ(context_.GetContextError(), 11) << "the check of the name leaves nothing behind";
  }
  EXPECT_EQ(Call("VarSetIntegerValue", "made", 5)->GetBoolValue(), 1);
  EXPECT_EQ(Call("VarSetDoubleValue", "made", 6.9)->GetBoolValue(), 1);
  EXPECT_EQ(Integer("VarGetIntegerValue", "made"), 6);
  Add("string", "made", VARLIST_LOCAL);
  EXPECT_EQ(Call("VarSetStringValue", "made", "local first")->GetBoolValue(), 1);
  EXPECT_STREQ(context_.GetVariable("made", VARLIST_LOCAL)->GetStringValue(), "local first");
  EXPECT_EQ(Call("VarSetIntegerValue", "made", 1)->GetBoolValue(), 0) << "a text takes no number";
  EXPECT_EQ(code_, 102);
  EXPECT_EQ(Call("VarSetBooleanValue", "TRUE", false)->GetBoolValue(), 0) << "a constant";
  EXPECT_EQ(Call("VarSetCharValue", "absent", 'c')->GetBoolValue(), 0);
  EXPECT_EQ(text_, "absent");
}

TEST_F(CoreModule, DefinedLooksEverywhere) {
  Add("int", "local", VARLIST_LOCAL);
  Add("int", "outside", VARLIST_EXTERNAL);
  for (const char* name : {"LOCAL", "StrCase", "TRUE", "arrayfind"}) {
    EXPECT_EQ(Integer("Defined", name), 1) << name;
  }
  for (const char* name : {"outside", "nothing", ""}) EXPECT_EQ(Integer("Defined", name), 0);
}

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

TEST_F(CoreModule, SizesOfArrays) {
  const VarHolder numbers = Array<int32_t>("int[]", {1, 2, 3});
  EXPECT_EQ(Integer("ArrayGetSize", numbers), 3);
  EXPECT_EQ(Integer("ArrayGetSize", 7), 0) << "a scalar has no elements";
  EXPECT_EQ(code_, 0);
  EXPECT_THAT(Integers(*Call("ArraySetSize", numbers, 5)), ElementsAre(1, 2, 3, 0, 0));
  EXPECT_THAT(Integers(*Call("ArraySetSize", numbers, 1)), ElementsAre(1));
  EXPECT_THAT(Integers(*Call("ArraySetSize", numbers, -4)), IsEmpty());
  EXPECT_THAT(Integers(*numbers), ElementsAre(1, 2, 3)) << "the argument is untouched";
  const VarHolder none = Array<std::string>("string[]", {});
  const VarHolder grown = Call("ArraySetSize", none, 2);
  EXPECT_THAT(Texts(*grown), ElementsAre("", ""));
  EXPECT_EQ(grown->IsSameType(none.get()), 1);
  const VarHolder people = Call("ArraySetSize", People({{1, "a"}}), 2);
  EXPECT_THAT(Names(*people), ElementsAre("a", ""));
}

TEST_F(CoreModule, SortsScalars) {
  const VarHolder numbers = Array<int32_t>("int[]", {3, -1, 2147483647, 0, -2147483647 - 1, 3});
  EXPECT_THAT(Integers(*Call("ArraySort", numbers, true)),
              ElementsAre(-2147483647 - 1, -1, 0, 3, 3, 2147483647));
  EXPECT_THAT(Integers(*Call("ArraySort", numbers, false)),
              ElementsAre(2147483647, 3, 3, 0, -1, -2147483647 - 1));
  EXPECT_EQ(numbers->GetArrayElement(1)->GetIntegerValue(), 3);
  EXPECT_THAT(Integers(*Call("ArraySort", Array<bool>("bool[]", {true, false, true}), true)),
              ElementsAre(0, 1, 1));
  EXPECT_THAT(Integers(*Call("ArraySort", Array<char>("char[]", {'b', '\xE9', 'a'}), true)),
              ElementsAre(-23, 97, 98));

  const VarHolder words = Array<std::string>("string[]", {"b", "B", "a", "\xC3", "A", "", "ab"});
  EXPECT_THAT(Texts(*Call("ArraySort", words, true, true)),
              ElementsAre("", "A", "B", "a", "ab", "b", "\xC3"));
  const auto kFolded = ElementsAre("", "a", "A", "ab", "b", "B", "\xC3");
  EXPECT_THAT(Texts(*Call("ArraySort", words, true, false)), kFolded);
  EXPECT_THAT(Texts(*Call("ArraySort", words, true)), kFolded) << "StrCase is 0";
  context_.GetVariable("StrCase", VARLIST_GLOBAL)->SetIntegerValue(1);
  EXPECT_THAT(Texts(*Call("ArraySort", words, false)),
              ElementsAre("\xC3", "b", "ab", "a", "B", "A", ""));
  EXPECT_THAT(Texts(*Call("ArraySort", Array<std::string>("estring[]", {"b", "c", "a"}), true)),
              ElementsAre("a", "b", "c"));
  EXPECT_EQ(Call("ArraySort", Array<int32_t>("int[]", {}), true)->GetElementCount(), 0u);
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

TEST_F(CoreModule, SortsStructuresByMember) {
  const VarHolder people = People({{3, "c"}, {1, "B"}, {3, "a"}, {2, "b"}, {1, "A"}});
  EXPECT_THAT(Names(*Call("ArraySort", people, "AGE", true)), ElementsAre("B", "A", "b", "c", "a"));
  EXPECT_THAT(Names(*Call("ArraySort", people, "age", false)), ElementsAre("c", "a", "b", "B", "A"))
      << "stable in this direction as well";
  EXPECT_THAT(Names(*Call("ArraySort", people, "weight", true)),
              ElementsAre("B", "A", "b", "c", "a"));
  EXPECT_THAT(Names(*Call("ArraySort", people, "name", true, true)),
              ElementsAre("A", "B", "a", "b", "c"));
  EXPECT_THAT(Names(*Call("ArraySort", people, "name", true, false)),
              ElementsAre("a", "A", "B", "b", "c"));
  EXPECT_EQ(code_, 0);
  EXPECT_THAT(Names(*Call("ArraySort", people, "none", true)),
              ElementsAre("c", "B", "a", "b", "A"));
  EXPECT_EQ(code_, 102);
  EXPECT_EQ(text_, "none");
  EXPECT_THAT(Names(*Call("ArraySort", people, true)), ElementsAre("c", "B", "a", "b", "A"));
  EXPECT_EQ(code_, 102) << "structures have no order of their own";
  EXPECT_THAT(Integers(*Call("ArraySort", Array<int32_t>("int[]", {2, 1}), "x", true)),
              ElementsAre(2, 1));
  EXPECT_EQ(code_, 102);
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

TEST_F(CoreModule, RemovesRepetitions) {
  EXPECT_THAT(Integers(*Call("ArrayRemoveDup", Array<int32_t>("int[]", {3, 1, 3, 3, 2, 1}))),
              ElementsAre(3, 1, 2));
  const VarHolder words = Array<std::string>("string[]", {"b", "A", "B", "a", "", ""});
  EXPECT_THAT(Texts(*Call("ArrayRemoveDup", words)), ElementsAre("b", "A", ""));
  EXPECT_THAT(Texts(*Call("ArrayRemoveDup", words, true)), ElementsAre("b", "A", "B", "a", ""));
  EXPECT_THAT(Names(*Call("ArrayRemoveDup", People({{1, "x"}, {2, "x"}, {1, "X"}, {1, "y"}}))),
              ElementsAre("x", "x", "y"));
  const VarHolder zeros = Array<double>("double[]", {0.0, -0.0, NAN, 1, NAN});
  EXPECT_EQ(Call("ArrayRemoveDup", zeros)->GetElementCount(), 3u);
}

TEST_F(CoreModule, FindsElements) {
  const VarHolder numbers = Array<int32_t>("int[]", {5, 7, 5});
  EXPECT_EQ(Integer("ArrayFind", numbers, 5, 0), 1);
  EXPECT_EQ(Integer("ArrayFind", numbers, 5, -9), 1);
  EXPECT_EQ(Integer("ArrayFind", numbers, 5, 2), 3);
  EXPECT_EQ(Integer("ArrayFind", numbers, 5, 4), 0);
  EXPECT_EQ(Integer("ArrayFind", numbers, 5, 2147483647), 0);
  EXPECT_EQ(Integer("ArrayFind", numbers, 7.0, 1), 2);
  EXPECT_EQ(Integer("ArrayFind", numbers, 7.5, 1), 0);
  EXPECT_EQ(Integer("ArrayFind", Array<int32_t>("int[]", {}), 5, 1), 0);
  EXPECT_EQ(Integer("ArrayFind", Array<double>("double[]", {NAN, 0.5}), 0.5, 1), 2);
  EXPECT_EQ(Integer("ArrayFind", Array<float>("float[]", {0.1f}), 0.1f, 1), 1);
  const VarHolder words = Array<std::string>("string[]", {"one", "Two", ""});
  EXPECT_EQ(Integer("ArrayFind", words, "two", 1), 2);
  EXPECT_EQ(Integer("ArrayFind", words, "", 1), 3);
  context_.GetVariable("StrCase", VARLIST_GLOBAL)->SetIntegerValue(1);
  EXPECT_EQ(Integer("ArrayFind", words, "two", 1), 0);
  const VarHolder letters = Array<char>("char[]", {'a', 'b'});
  EXPECT_EQ(Integer("ArrayFind", letters, "b", 1), 2);
  EXPECT_EQ(Integer("ArrayFind", letters, "ab", 1), 0);
  EXPECT_EQ(Integer("ArrayFind", Array<bool>("bool[]", {false, true}), 1, 1), 2);
}

TEST_F(CoreModule, FindsStructures) {
  const VarHolder people = People({{3, "c"}, {1, "B"}, {3, "a"}});
  EXPECT_EQ(Integer("ArrayFind", people, "Age", 3, 2), 3);
  EXPECT_EQ(Integer("ArrayFind", people, "name", "b", 1), 2);
  EXPECT_EQ(Integer("ArrayFind", people, "weight", 0.5, 1), 2);
  EXPECT_EQ(Integer("ArrayFind", people, "age", 1.0f, 1), 2);
  EXPECT_EQ(Integer("ArrayFind", people, "age", 8, 1), 0);
  EXPECT_EQ(code_, 0);
  EXPECT_EQ(Integer("ArrayFind", people, "shoe", 8, 1), 0);
  EXPECT_EQ(code_, 102);
  EXPECT_EQ(Integer("ArrayFind", People({}), "shoe", 8, 1), 0);
  EXPECT_EQ(code_, 0) << "nothing to look a member up in";
}

TEST_F(CoreModule, NamesErrors) {
  EXPECT_STREQ(Call("GetErrorName", 11)->GetStringValue(), "ERR_DIVIDEBYZERO");
  EXPECT_STREQ(Call("GetErrorText", 103)->GetStringValue(), "File does not exist");
  EXPECT_STREQ(Call("GetErrorName", 999)->GetStringValue(), "");
}

class SystemModule : public FunctionCaller {};

TEST_F(SystemModule, MinAndMaxKeepTheTypeOfTheirArguments) {
  EXPECT_EQ(Integer("Min", 3, -4), -4);
  EXPECT_EQ(Integer("Max", 3, -4), 3);
  const VarHolder smaller = Call("Min", 1.5f, 2.5f);
  EXPECT_EQ(smaller->GetTypeId(), Variable::Float);
  EXPECT_EQ(smaller->GetFloatValue(), 1.5f);
  for (const char* name : {"Min", "Max"}) {
    Call(name, 1.5, 2.5);
    EXPECT_EQ(code_, 20505);
    Call(name, 1, 2.5f);
    EXPECT_EQ(code_, 20505);
  }
}

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
