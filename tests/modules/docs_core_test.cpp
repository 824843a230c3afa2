#include <gmock/gmock.h>

#include <fstream>
#include <string>
#include <vector>

#include "context/tambctxt.h"
#include "modules/ee_var.h"
#include "modules/tambutil.h"

namespace {

void AppendPrototypes(const FUNCMOD_REGISTRATION* module, std::vector<std::string>& prototypes) {
  const auto* function = static_cast<const FUNCMOD_FUNCTION*>(
      TamberContext::FindRegistrationList(module, FUNCMOD_FUNCTIONS));
  for (; !function->prototype.IsEmpty(); ++function) {
    prototypes.push_back(function->prototype.Str());
    EXPECT_FALSE(function->help.empty()) << function->prototype.Str();
  }
}

/// The page names every prototype as it is registered, in that order, and every entry has an
/// example; that the examples are true is tested where scripts are run.
TEST(CorePage, AgreesWithTheRegistration) {
  std::vector<std::string> registered;
  AppendPrototypes(GetCoreModule(), registered);
  AppendPrototypes(GetSystemModule(), registered);
  std::vector<std::string> documented;
  int entries = 0;
  int examples = 0;
  std::ifstream page(TAMBER_DOCS_DIR "/builtins/core.md");
  ASSERT_TRUE(page) << "the page is missing";
  for (std::string line; std::getline(page, line);) {
    if (line.starts_with("### ")) ++entries;
    if (line == "```tamber") ++examples;
    if (line.size() > 2 && line.front() == '`' && line.back() == '`' && line[1] != '`') {
      documented.push_back(line.substr(1, line.size() - 2));
    }
  }
  EXPECT_THAT(documented, testing::ElementsAreArray(registered));
  EXPECT_EQ(examples, entries);
}

}  // namespace
