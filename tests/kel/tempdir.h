#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

/// A fixture with an empty directory of its own, which is the current one during the test.
class TempDirTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (std::filesystem::temp_directory_path() / "tamber-kel-XXXXXX").string();
    ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
    dir_ = std::filesystem::canonical(pattern).string();
    before_ = std::filesystem::current_path();
    std::filesystem::current_path(dir_);
  }

  void TearDown() override {
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(dir_);
  }

  static void Put(const std::string& name, std::string_view bytes) {
    std::ofstream(name, std::ios::binary) << bytes;
  }

  static std::string Get(const std::string& name) {
    std::ifstream file(name, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  std::string dir_;

 private:
  std::filesystem::path before_;
};
