#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "context/tambctxt.h"
#include "values/cellops.h"
#include "values/vararray.h"
#include "values/varholder.h"

/// Calls built-ins as a script does: by name, overload by the types of the arguments, arguments on
/// a stack.
class FunctionCaller : public testing::Test {
 protected:
  using Arguments = std::vector<tamber::VarHolder>;

  static tamber::VarHolder Value(bool value) {
    return Make(tamber::Kind::Bool, &Variable::SetBoolValue, value);
  }
  static tamber::VarHolder Value(char value) {
    return Make(tamber::Kind::Char, &Variable::SetCharValue, value);
  }
  static tamber::VarHolder Value(int32_t value) {
    return Make(tamber::Kind::Int, &Variable::SetIntegerValue, value);
  }
  static tamber::VarHolder Value(float value) {
    return Make(tamber::Kind::Float, &Variable::SetFloatValue, value);
  }
  static tamber::VarHolder Value(double value) {
    return Make(tamber::Kind::Double, &Variable::SetDoubleValue, value);
  }
  static tamber::VarHolder Value(const std::string& value) {
    tamber::VarHolder made(tamber::MakeVariable(tamber::TypeDesc::Of(tamber::Kind::String), {}));
    made->SetStringValue(KelString(value));
    return made;
  }
  static tamber::VarHolder Value(const char* value) { return Value(std::string(value)); }
  /// A variable that stays the test's.
  static tamber::VarHolder Value(const tamber::VarHolder& value) {
    return tamber::VarHolder(value->Duplicate());
  }

  /// An array of the type word ("int[]") with these elements.
  template <class T>
  tamber::VarHolder Array(const char* word, const std::vector<T>& elements) {
    tamber::VarHolder array(context_.GetType(KelString(word))->CreateVariable(""));
    for (const T& element : elements) {
      EXPECT_EQ(array->AddArrayElement(Value(element).release()), 1);
    }
    return array;
  }

  template <class... Args>
  tamber::VarHolder Call(const std::string& name, const Args&... args) {
    Stack stack;
    std::vector<tamber::TypeRef> types;
    (Push(stack, types, Value(args)), ...);
    std::vector<const tamber::TypeDesc*> loans;
    for (const tamber::TypeRef& type : types) loans.push_back(type.Get());
    const uint32_t index = context_.FindBestSignature(std::string_view(name), loans);
    EXPECT_NE(index, 0u) << "no overload of " << name;
    if (index == 0) return Value(0);
    FunctionCallInfo info{&context_, &stack, 0, ""};
    context_.GetFunction(index)->GetImplementation()(&info);
    code_ = info.errorCode;
    text_ = info.errorText.Str();
    EXPECT_EQ(stack.GetSize(), 1u) << name;
    return tamber::VarHolder(stack.PopVariable());
  }

  template <class... Args>
  int32_t Integer(const std::string& name, const Args&... args) {
    return Call(name, args...)->GetIntegerValue();
  }

  template <class... Args>
  bool IsTrue(const std::string& name, const Args&... args) {
    return Call(name, args...)->GetBoolValue() != 0;
  }
  template <class... Args>
  std::string Text(const std::string& name, const Args&... args) {
    const tamber::VarHolder value = Call(name, args...);
    return {value->GetStringValue(), value->GetLength()};
  }

  static std::vector<std::string> Texts(const Variable& array) {
    std::vector<std::string> texts;
    for (uint32_t i = 1; i <= array.GetElementCount(); ++i) {
      texts.emplace_back(array.GetArrayElement(i)->GetStringValue());
    }
    return texts;
  }
  static std::vector<int32_t> Integers(const Variable& array) {
    std::vector<int32_t> values;
    for (uint32_t i = 1; i <= array.GetElementCount(); ++i) {
      values.push_back(array.GetArrayElement(i)->GetIntegerValue());
    }
    return values;
  }

  TamberContext context_;
  int32_t code_ = 0;  ///< what the last call reported
  std::string text_;

 private:
  template <class T, class Setter>
  static tamber::VarHolder Make(tamber::Kind kind, Setter setter, T value) {
    tamber::VarHolder made(tamber::MakeVariable(tamber::TypeDesc::Of(kind), {}));
    ((*made).*setter)(value);
    return made;
  }
  static void Push(Stack& stack, std::vector<tamber::TypeRef>& types, tamber::VarHolder value) {
    types.push_back(tamber::TypeOf(*value));
    stack.PushVariable(value.release());
  }
};
