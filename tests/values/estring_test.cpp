#include <cstring>
#include <string>

#include "value_testing.h"
#include "values/varestring.h"

namespace {

constexpr char kSecret[] = "tell nobody of this text";

class EStrings : public ValueTest {};

TEST_F(EStrings, NoPlainTextInMemoryOrDumps) {
  VarEString e("e", 0);
  e.SetStringValue(kSecret, 0);
  EXPECT_EQ(e.CipherBytes().size(), std::strlen(kSecret));
  EXPECT_EQ(e.CipherBytes().find("nobody"), std::string::npos);
  EXPECT_EQ(DumpOf(e).find("nobody"), std::string::npos);
  KelString value;
  e.DumpValue(value, "");
  EXPECT_EQ(value.Find("tell"), KelString::kNotFound);
  Held<Variable> clone(e.Clone());
  EXPECT_STREQ(clone->GetStringValue(), kSecret);
  EXPECT_EQ(DumpOf(*clone).find("nobody"), std::string::npos);
}

}  // namespace
