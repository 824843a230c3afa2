#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "values/variable.h"

/// Gives its holder back when it leaves scope.
struct ReleaseHolder {
  void operator()(Variable* variable) const { Variable::Delete(variable); }
};
template <class T>
using Held = std::unique_ptr<T, ReleaseHolder>;

template <class T, class... Args>
Held<T> Make(Args&&... args) {
  return Held<T>(new T(std::forward<Args>(args)...));
}

/// Fails the test that leaves a variable behind.
class ValueTest : public testing::Test {
 protected:
  // In the destructor, so that the variables of a fixture are gone.
  ~ValueTest() override { EXPECT_EQ(Variable::LiveCount(), alive_); }

  /// The test made something that stays.
  void KeepsVariables() { alive_ = Variable::LiveCount(); }

 private:
  int64_t alive_ = Variable::LiveCount();
};

inline std::string DumpOf(const Variable& variable, const char* indent = "") {
  KelString out;
  variable.Dump(out, indent);
  return out.Str();
}

inline std::string WordOf(const Variable& variable) {
  KelString out;
  variable.DumpType(out, "", 0);
  return out.Str();
}

inline std::string TextOf(Variable& variable) {
  return std::string(variable.GetStringValue(), variable.GetLength());
}
