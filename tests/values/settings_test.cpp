#include "values/settings.h"

#include <gmock/gmock.h>

#include <fstream>

namespace {

// The page of the manual holds one row for each key of the table, section by section, and no other.
TEST(Settings, TheManualTellsOfEveryKey) {
  std::ifstream page(TAMBER_SOURCE_DIR "/docs/configuration.md");
  std::vector<std::string> rows;
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("| `")) rows.push_back(line);
  }
  std::vector<std::string> expected;
  for (const tamber::IniKeyInfo& key : tamber::IniKeys()) {
    const std::string value = key.value.empty() ? "" : "`" + std::string(key.value) + "`";
    expected.push_back("| `" + std::string(key.name) + "` | " + value + " | " +
                       std::string(key.meaning) + " |");
  }
  EXPECT_EQ(rows, expected);
}

}  // namespace
