#pragma once

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "kel/sessionstore.h"
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

/// A session store in memory.
class MapStore : public SessionStore {
 public:
  bool SetInteger(std::string_view key, int64_t value) override {
    integers[std::string(key)] = value;
    return true;
  }
  bool SetText(std::string_view key, std::string_view value) override {
    texts[std::string(key)] = value;
    return true;
  }
  bool GetInteger(std::string_view key, int64_t& value) override {
    const auto found = integers.find(key);
    if (found == integers.end()) return false;
    value = found->second;
    return true;
  }
  bool GetText(std::string_view key, std::string& value) override {
    const auto found = texts.find(key);
    if (found == texts.end()) return false;
    value = found->second;
    return true;
  }
  bool Exists(std::string_view key) override {
    return integers.find(key) != integers.end() || texts.find(key) != texts.end();
  }
  std::vector<std::string> SubKeys(std::string_view prefix) override {
    std::vector<std::string> keys;
    for (const auto& [key, value] : integers) {
      if (key.starts_with(prefix)) keys.push_back(key);
    }
    for (const auto& [key, value] : texts) {
      if (key.starts_with(prefix)) keys.push_back(key);
    }
    return keys;
  }
  bool DeleteTree(std::string_view prefix) override {
    std::erase_if(integers, [&](const auto& entry) { return entry.first.starts_with(prefix); });
    std::erase_if(texts, [&](const auto& entry) { return entry.first.starts_with(prefix); });
    return true;
  }

  std::map<std::string, int64_t, std::less<>> integers;
  std::map<std::string, std::string, std::less<>> texts;
};
