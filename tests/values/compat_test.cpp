#include <array>
#include <string>
#include <vector>

#include "value_testing.h"
#include "values/cellops.h"
#include "values/vararray.h"
#include "values/varbool.h"
#include "values/varchar.h"
#include "values/vardouble.h"
#include "values/varestring.h"
#include "values/varfloat.h"
#include "values/varhandle.h"
#include "values/varint.h"
#include "values/varnone.h"
#include "values/varstring.h"
#include "values/varstruct.h"

namespace {

class Compatibility : public ValueTest {
 protected:
  Compatibility() {
    point.SetStructName("Point");
    size.SetStructName("Size");
    number.SetIntegerValue(65);
    letter.SetCharValue('B');
    flag.SetBoolValue(1);
    real.SetFloatValue(2.5F);
    wide.SetDoubleValue(3.5);
    text.SetStringValue("word", 0);
    secret.SetStringValue("hush", 0);
    chars.SetArraySize(2);
    chars.GetArrayElement(1)->SetCharValue('o');
    chars.GetArrayElement(2)->SetCharValue('k');
  }

  VarNone none{"v", 0};
  VarBoolean flag{"v", 0};
  VarChar letter{"v", 0};
  VarInteger number{"v", 0};
  VarFloat real{"v", 0};
  VarDouble wide{"v", 0};
  VarString text{"v", 0};
  VarEString secret{"v", 0};
  VarHandle file{"v", "File", 0};
  VarHandle match{"v", "Match", 0};
  VarStruct point{"v", 0};
  VarStruct size{"v", 0};
  VarArray any{"v", 0};
  VarIntegerArray ints{"v", 0};
  VarDoubleArray doubles{"v", 0};
  VarCharArray chars{"v", 0};
  VarStringArray strings{"v", 0};
  VarEStringArray secrets{"v", 0};
  const std::vector<Variable*> all{&none, &flag,   &letter,  &number, &real,    &wide,
                                   &text, &secret, &file,    &match,  &point,   &size,
                                   &any,  &ints,   &doubles, &chars,  &strings, &secrets};
};

// Rows are targets, columns sources, both in the order of `all`:
// none bool char int float double string estring file match point size | array int[] double[]
// char[] string[] estring[]
constexpr std::array<const char*, 18> kTakes{
    "x.................",  // none takes nothing else
    ".xxx..............",  // bool takes no float
    ".xxx..xx..........",  // char takes a string
    ".xxxxx..xx........",  // integer takes handles
    ".xxxxx............",  // float takes no handle
    ".xxxxx............",  // double
    "..x...xx.......x..",  // string takes a char and chars, no number
    "..x...xx.......x..",  // estring
    "...x....xx........",  // handle takes any handle
    "...x....xx........",  //
    "..........x.......",  // a structure takes its own kind only
    "...........x......",  //
    "............xxxxxx",  // array takes every array
    "............xx....",  // int[]
    "............x.x...",  // double[]
    "............x..x..",  // char[]
    "............x...xx",  // string[]
    "............x...xx",  // estring[]
};
TEST_F(Compatibility, EveryPairOfTypes) {
  for (size_t to = 0; to < all.size(); ++to) {
    for (size_t from = 0; from < all.size(); ++from) {
      const std::string pair = WordOf(*all[to]) + " <- " + WordOf(*all[from]);
      const bool takes = kTakes[to][from] == 'x';
      EXPECT_EQ(all[to]->IsCompatible(all[from]) != 0, takes) << pair;
      const auto isText = [&](size_t i) { return all[i] == &text || all[i] == &secret; };
      const auto areTexts = [&](size_t i) { return all[i] == &strings || all[i] == &secrets; };
      const bool same =
          to == from || (isText(to) && isText(from)) || (areTexts(to) && areTexts(from));
      EXPECT_EQ(all[to]->IsSameType(all[from]) != 0, same) << pair;
      Held<Variable> target(all[to]->Clone());
      const std::string before = DumpOf(*target);
      EXPECT_EQ(target->Assign(all[from]), takes && to != 0) << pair;
      if (!takes) {
        EXPECT_EQ(DumpOf(*target), before) << pair;
      }
    }
    EXPECT_EQ(all[to]->IsCompatible(nullptr), 0);
    EXPECT_EQ(all[to]->IsSameType(nullptr), 0);
    EXPECT_EQ(all[to]->Assign(nullptr), 0);
  }
}

TEST_F(Compatibility, AssignConverts) {
  EXPECT_EQ(flag.Assign(&number), 1);
  EXPECT_EQ(flag.GetIntegerValue(), 1);
  EXPECT_EQ(text.Assign(&chars), 1);
  EXPECT_EQ(TextOf(text), "ok");
  EXPECT_EQ(match.Assign(&file), 1);
  EXPECT_EQ(match.GetHandleName(), "Match");
}

}  // namespace
