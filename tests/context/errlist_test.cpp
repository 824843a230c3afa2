#include "context/errlist.h"

#include <gtest/gtest.h>

#include <map>
#include <vector>

namespace {

std::vector<int32_t> Walk(const ErrorList& list) {
  std::vector<int32_t> codes;
  for (int32_t code = list.GetNextErrorCode(0); code != 0; code = list.GetNextErrorCode(code)) {
    codes.push_back(code);
    if (codes.size() > 1000) break;  // a walk that does not end
  }
  return codes;
}

ErrorList BuiltIn() {
  ErrorList list;
  list.Initialise();
  return list;
}

// Scripts and hosts have these numbers in their sources.
TEST(ErrorListTest, NumbersNeverMove) {
  const std::map<int32_t, const char*> pinned = {
      {ERR_DIVIDEBYZERO, "ERR_DIVIDEBYZERO"},
      {11, "ERR_DIVIDEBYZERO"},
      {12, "ERR_VARARRAYBOUNDS"},
      {101, "ERR_INVALIDPARAM"},
      {102, "ERR_FUNCFAILED"},
      {103, "ERR_FILENOTFOUND"},
      {107, "ERR_BADHANDLE"},
      {114, "ERR_EXECFAILED"},
      {120, "ERR_TCPCREATEFAIL"},
      {128, "ERR_SOCKETERROR"},
      {20000, "ERR_PARSEERROR"},
      {20013, "ERR_VARNOTSTRUCT"},
      {20016, "ERR_VARNOTDECLARED"},
      {20113, "ERR_NOMEMORY"},
      {20119, "ERR_NOERRHANDLER"},
      {20212, "ERR_NOEXTERNVAR"},
      {20315, "ERR_BREAKALONE"},
      {20316, "ERR_CONTUNMATCHED"},
      {20404, "ERR_PROCDUPLICATE"},
      {20416, "ERR_RETURNNOTEMPTY"},
      {20501, "ERR_EXPREMPTY"},
      {20507, "ERR_EXPRSIGNATURE"},
      {20511, "ERR_EXPRFUNCPARCOUNT"},
      {20604, "ERR_SCRNOTOKEN"},
      {20800, "ERR_PROXYUNREACHABLE"},
  };
  const ErrorList list = BuiltIn();
  for (const auto& [code, name] : pinned) EXPECT_EQ(list.GetErrorName(code), name) << code;
  EXPECT_EQ(list.GetErrorText(103), "File does not exist");
  EXPECT_EQ(list.GetErrorText(20403), "'Main' procedure not defined anywhere");
  EXPECT_EQ(Walk(list).size(), 102u);
}

TEST(ErrorListTest, NewCodesFollowTheLastRuntimeCode) {
  ErrorList list = BuiltIn();
  EXPECT_EQ(list.GetNewRuntimeErrorCode(), 129u);
  EXPECT_EQ(list.GetNewRuntimeErrorCode(), 129u);
  EXPECT_EQ(list.AddError(129, "ERR_MINE", "mine"), 102);
  EXPECT_EQ(list.GetNewRuntimeErrorCode(), 130u);
  list.AddError(20900, "ERR_FATAL", "fatal codes do not count");
  EXPECT_EQ(list.GetNewRuntimeErrorCode(), 130u);
  list.AddError(50, "ERR_LOWER", "the last one counts, not the highest");
  EXPECT_EQ(list.GetNewRuntimeErrorCode(), 51u);
}

TEST(ErrorListTest, ContextsDoNotSeeEachOthersErrors) {
  ErrorList first = BuiltIn();
  ErrorList second = BuiltIn();
  first.AddError(129, "ERR_MINE", "mine");
  ErrorList nested = first;
  nested.AddError(130, "ERR_NESTED", "nested");
  first.AddError(131, "ERR_LATER", "later");
  EXPECT_EQ(second.GetErrorName(129), "");
  EXPECT_EQ(nested.GetErrorName(129), "ERR_MINE");
  EXPECT_EQ(nested.GetErrorName(131), "");
  EXPECT_EQ(first.GetErrorName(130), "");
  EXPECT_EQ(BuiltIn().GetErrorName(129), "");
}

}  // namespace
