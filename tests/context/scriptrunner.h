#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "context/tambctxt.h"
#include "kel/tempdir.h"
#include "values/varint.h"

/// A context in an empty directory of its own, whose prints are collected; reports go to tamber.log
/// there, as long as a test puts no tamber.ini.
class ScriptRunner : public TempDirTest {
 protected:
  void SetUp() override {
    TempDirTest::SetUp();
    context_.SetOutput(&output_);
  }

  int32_t Compile(std::string_view text) {
    return context_.CompileScriptBuffer("test.tam", text, 1);
  }
  /// Compiles a text and runs its main procedure.
  int32_t Run(std::string_view text) {
    return Compile(text) != 0 ? context_.RunProcedure("main", nullptr) : 0;
  }
  static int32_t IntegerOf(TamberContext& context, const char* name) {
    const Variable* variable = context.GetVariable(name, VARLIST_GLOBAL | VARLIST_CONSTANT);
    EXPECT_NE(variable, nullptr) << name;
    return variable != nullptr ? variable->GetIntegerValue() : -1;
  }
  int32_t IntegerOf(const char* name) { return IntegerOf(context_, name); }
  std::string TextOf(const char* name) {
    const Variable* variable = context_.GetVariable(name, VARLIST_GLOBAL | VARLIST_CONSTANT);
    EXPECT_NE(variable, nullptr) << name;
    return variable != nullptr ? variable->GetStringValue() : "";
  }
  bool Knows(const char* name, uint32_t mask) { return context_.FindVariable(name, mask) >= 0; }
  /// The prints since the last call.
  std::string Printed() {
    std::string printed = output_.Str();
    output_.Clear();
    return printed;
  }
  std::string ErrorText() { return context_.GetContextErrorText().Str(); }

  KelString output_;
  TamberContext context_;
};
