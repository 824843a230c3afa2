#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "context/tambctxt.h"
#include "modules/ee_str.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {

/// Calls functions of the string module as running code does: arguments on a stack, a call record,
/// one result.
class StringCaller {
 public:
  /// The row of the registration table whose prototype contains `key`, such as "StrMid" or
  /// "MakeStr (char".
  static const FUNCMOD_FUNCTION& Row(std::string_view key) {
    const auto* row = static_cast<const FUNCMOD_FUNCTION*>(
        TamberContext::FindRegistrationList(GetStringModule(), FUNCMOD_FUNCTIONS));
    while (!row->prototype.IsEmpty() && row->prototype.View().find(key) == std::string_view::npos) {
      ++row;
    }
    EXPECT_FALSE(row->prototype.IsEmpty()) << key;
    return *row;
  }

  template <class... Args>
  StringCaller& Call(std::string_view key, const Args&... args) {
    stack_.PopAll();
    (Push(args), ...);
    FunctionCallInfo info{&context_, &stack_, 0, KelString()};
    Row(key).implementation(&info);
    code = info.errorCode;
    errorText = info.errorText.Str();
    EXPECT_EQ(stack_.GetSize(), 1U) << key;
    return *this;
  }
  template <class... Args>
  std::string Text(std::string_view key, const Args&... args) {
    Call(key, args...);
    EXPECT_EQ(stack_.GetTypeId(0), Variable::String) << key;
    KelString text;
    stack_.PopKelString(text);
    return text.Str();
  }
  template <class... Args>
  int32_t Int(std::string_view key, const Args&... args) {
    Call(key, args...);
    EXPECT_EQ(stack_.GetTypeId(0), Variable::Integer) << key;
    return stack_.PopInteger();
  }
  template <class... Args>
  bool Bool(std::string_view key, const Args&... args) {
    Call(key, args...);
    EXPECT_EQ(stack_.GetTypeId(0), Variable::Boolean) << key;
    return stack_.PopBoolean() != 0;
  }
  /// The elements of an array result: texts, numbers, or members joined by ",".
  template <class... Args>
  std::vector<std::string> Elements(std::string_view key, const Args&... args) {
    Call(key, args...);
    EXPECT_EQ(stack_.GetTypeId(0), Variable::Array) << key;
    return ElementsOf(*stack_.GetVariable(0));
  }
  static std::vector<std::string> ElementsOf(const Variable& array) {
    std::vector<std::string> texts;
    for (uint32_t i = 1; i <= array.GetElementCount(); ++i) {
      texts.push_back(TextOfElement(*array.GetArrayElement(i)));
    }
    return texts;
  }
  void SetSwitch(const char* name, int32_t value) {
    context_.GetVariable(KelString(name), VARLIST_GLOBAL)->SetIntegerValue(value);
  }
  Stack& GetStack() { return stack_; }

  int32_t code = 0;
  std::string errorText;

 private:
  static std::string TextOfElement(Variable& element) {
    if (element.GetTypeId() == Variable::Struct) {
      return TextOfElement(*element.GetStructElement(1)) + "," +
             TextOfElement(*element.GetStructElement(2));
    }
    if (element.GetTypeId() == Variable::Integer) return std::to_string(element.GetIntegerValue());
    const char* text = element.GetStringValue();
    return {text, element.GetLength()};
  }
  void Push(int value) { stack_.PushInteger(value); }
  void Push(bool value) { stack_.PushBoolean(value ? 1 : 0); }
  void Push(char value) { stack_.PushChar(value); }
  void Push(float value) { stack_.PushFloat(value); }
  void Push(double value) { stack_.PushDouble(value); }
  void Push(const char* text) { stack_.PushString(KelString(text)); }
  void Push(const std::string& text) { stack_.PushString(KelString(text)); }
  void Push(Variable* variable) { stack_.PushVariable(variable->Duplicate()); }

  TamberContext context_;
  Stack stack_;
};

}  // namespace tamber
