#include <gmock/gmock.h>

#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "context/tambctxt.h"
#include "modules/ee_dir.h"
#include "modules/ee_file.h"
#include "modules/ee_str.h"
#include "modules/ee_var.h"
#include "modules/tambutil.h"

namespace tamber {
namespace {

/// What the manual says of one function.
struct ManualEntry {
  std::vector<std::string> prototypes;
  bool hasExample = false;
};

/// A page and the modules that it is about.
struct Manual {
  const char* page;
  std::vector<const FUNCMOD_REGISTRATION* (*)()> modules;
};

const std::vector<Manual> kManuals{{"core.md", {&::GetCoreModule, &::GetSystemModule}},
                                   {"strings.md", {&GetStringModule}},
                                   {"directories.md", {&GetDirectoryModule}},
                                   {"files.md", {&GetFileModule}}};

class ManualTest : public testing::TestWithParam<Manual> {};

/// The name that a prototype declares: the word before its parameters.
std::string NameIn(const std::string& prototype) {
  const size_t end = prototype.find(" (");
  return prototype.substr(prototype.rfind(' ', end - 1) + 1,
                          end - prototype.rfind(' ', end - 1) - 1);
}

/// Entries by heading. A prototype is a line that is one code span, alone or in a list.
std::map<std::string, ManualEntry> ReadManual(const std::string& page) {
  std::map<std::string, ManualEntry> entries;
  std::ifstream file(TAMBER_SOURCE_DIR "/docs/builtins/" + page);
  EXPECT_TRUE(file.is_open());
  std::string heading;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("##")) heading = line.substr(line.find(' ') + 1);
    if (line == "```tamber") entries[heading].hasExample = true;
    if (line.rfind("- ", 0) == 0) line.erase(0, 2);
    const bool isSpan = line.size() > 2 && line.front() == '`' && line.back() == '`' &&
                        line.find('`', 1) == line.size() - 1;
    if (isSpan) entries[heading].prototypes.push_back(line.substr(1, line.size() - 2));
  }
  return entries;
}

const FUNCMOD_FUNCTION* FunctionsOf(const FUNCMOD_REGISTRATION* (*module)()) {
  return static_cast<const FUNCMOD_FUNCTION*>(
      TamberContext::FindRegistrationList(module(), FUNCMOD_FUNCTIONS));
}

/// Links of a section of the index in their order, the rest of the row behind them.
std::vector<std::string> ReadIndex(const std::string& section) {
  std::vector<std::string> links;
  std::ifstream file(TAMBER_SOURCE_DIR "/docs/builtins/README.md");
  bool inside = false;
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("## ")) inside = line == "## " + section;
    for (size_t at = line.find(".md#"); inside && at != std::string::npos;) {
      const size_t begin = line.rfind('[', at);
      at = line.find(".md#", at + 1);
      links.push_back(line.substr(
          begin, (section == "By task" ? line.find(')', begin) + 1 : line.npos) - begin));
    }
  }
  return links;
}

TEST(ManualIndexTest, HasEveryFunctionOnceByTaskAndOnceByName) {
  std::map<std::string, std::string> rows;
  std::vector<std::string> links;
  for (const Manual& manual : kManuals) {
    for (const auto module : manual.modules) {
      for (const auto* row = FunctionsOf(module); !row->prototype.IsEmpty(); ++row) {
        const std::string name = NameIn(row->prototype.Str());
        const std::string lower = KelString(name).ToLower().Str();
        const std::string link = "[" + name + "](" + manual.page + "#" + lower + ")";
        const bool isNew = rows.emplace(lower, link + " | " + std::string(row->help) + " |").second;
        if (isNew) links.push_back(link);
      }
    }
  }
  std::vector<std::string> byName;
  for (const auto& row : rows) byName.push_back(row.second);
  EXPECT_THAT(ReadIndex("By task"), testing::UnorderedElementsAreArray(links));
  EXPECT_EQ(ReadIndex("By name"), byName);
}

TEST_P(ManualTest, SaysWhatIsRegistered) {
  std::map<std::string, std::vector<std::string>> registered;
  TamberContext context;
  for (const auto module : GetParam().modules) {
    for (const auto* row = FunctionsOf(module); !row->prototype.IsEmpty(); ++row) {
      const std::string name = NameIn(row->prototype.Str());
      registered[name].push_back(row->prototype.Str());
      EXPECT_FALSE(row->help.empty()) << row->prototype.Str();
      EXPECT_EQ(row->help.find('\n'), std::string_view::npos) << row->prototype.Str();
      EXPECT_NE(context.FindFunction(name), 0U) << row->prototype.Str() << " is not understood";
    }
  }
  const std::map<std::string, ManualEntry> manual = ReadManual(GetParam().page);
  for (const auto& [name, prototypes] : registered) {
    const auto entry = manual.find(name);
    ASSERT_NE(entry, manual.end()) << name << " is not in the manual";
    EXPECT_EQ(entry->second.prototypes, prototypes) << name;
    EXPECT_TRUE(entry->second.hasExample) << name;
  }
  for (const auto& [heading, entry] : manual) {
    EXPECT_TRUE(registered.count(heading) == 1 || entry.prototypes.empty())
        << heading << " is not registered";
  }
}

INSTANTIATE_TEST_SUITE_P(Pages, ManualTest, testing::ValuesIn(kManuals));

}  // namespace
}  // namespace tamber
