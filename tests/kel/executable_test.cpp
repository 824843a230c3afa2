#include <gtest/gtest.h>

#include <algorithm>

#include "kel/elffile.h"
#include "kel/fileio.h"
#include "kel/importlist.h"
#include "kel/pefile.h"
#include "kel/versioninfo.h"
#include "pebuilder.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

VersionInfo InfoOf(const std::string& image) {
  const MemorySource source(image);
  PeFile file;
  return VersionInfo(file.Open(source) ? file.VersionResource() : "");
}

Names ImportsOf(const std::string& image) {
  const MemorySource source(image);
  PeFile file;
  return file.Open(source) ? file.Imports() : Names();
}

TEST(PeFile, VersionsOfBothWidths) {
  for (const bool is64 : {false, true}) {
    const std::string image = pe::Image(
        pe::Version("040904b0", {{"ProductVersion", "1, 2, 3, 4"}, {"CompanyName", "Acme \xE9"}},
                    {{0x409, 0x4B0}}),
        {"KERNEL32.dll", "user32.dll"}, is64);
    const VersionInfo info = InfoOf(image);
    EXPECT_TRUE(info.HasFixedInfo());
    EXPECT_EQ(info.VersionString(), "1. 2. 3. 4");
    EXPECT_EQ(VersionPair(info.VersionString(), 0), 65538);
    EXPECT_EQ(VersionPair(info.VersionString(), 2), 196612);
    EXPECT_EQ(info.Languages(), Names{"040904b0"});
    std::string text;
    EXPECT_TRUE(info.QueryText("\\stringfileinfo\\040904B0\\companyname", text));
    EXPECT_EQ(text, "Acme \xC3\xA9");
    EXPECT_FALSE(info.QueryText("\\StringFileInfo\\040904b0\\Missing", text));
    EXPECT_EQ(ImportsOf(image), (Names{"KERNEL32.dll", "user32.dll"}));
  }
  EXPECT_FALSE(InfoOf(pe::Image("", {"a.dll"}, true)).HasFixedInfo());
}

TEST(PeFile, WhereTheVersionIsLookedFor) {
  const pe::Strings product = {{"ProductVersion", "7.1"}, {"FileVersion", "9.9"}};
  // No translation, one of zeros, and one that has no strings all end at the usual table.
  EXPECT_EQ(VersionInfo(pe::Version("040904E4", product, {})).VersionString(), "7.1");
  EXPECT_EQ(VersionInfo(pe::Version("040904e4", product, {{0, 0}})).VersionString(), "7.1");
  EXPECT_EQ(VersionInfo(pe::Version("040904e4", product, {{0x407, 1252}})).VersionString(), "7.1");
  EXPECT_EQ(VersionInfo(pe::Version("040704e4", product, {{0x407, 1252}})).VersionString(), "7.1");
  EXPECT_EQ(VersionInfo(pe::Version("040704e4", product, {})).VersionString(), "");
  // The version of the file is not asked for.
  EXPECT_EQ(VersionInfo(pe::Version("040904E4", {{"FileVersion", "9.9"}}, {})).VersionString(), "");
  EXPECT_EQ(VersionInfo(pe::Version("040704e4", product, {})).Languages(), Names{"040704e4"});
}

TEST(PeFile, VersionFields) {
  EXPECT_EQ(VersionPair("7.1", 0), 458753);
  EXPECT_EQ(VersionPair("7.1", 2), 0);
  EXPECT_EQ(VersionPair("", 0), 0);
  EXPECT_EQ(VersionField("1.-2.x.+4", 1), -2);
  EXPECT_EQ(VersionField("1.-2.x.+4", 2), 0);
  EXPECT_EQ(VersionField("1.-2.x.+4", 3), 4);
  EXPECT_EQ(VersionPair(std::string(10000, '9'), 0), -65536);
  EXPECT_EQ(VersionField("4294967297", 0), 1);
}

TEST(PeFile, CutOrTwistedFilesAreSurvived) {
  const std::string image =
      pe::Image(pe::Version("040904b0", {{"ProductVersion", "1.2.3.4"}}, {{0x409, 0x4B0}}),
                {"a.dll", "b.dll"}, false);
  for (size_t size = 0; size < image.size(); ++size) {
    const std::string cut = image.substr(0, size);
    InfoOf(cut).VersionString();
    EXPECT_LE(ImportsOf(cut).size(), 2U);
  }
  for (size_t at = 0; at < image.size(); ++at) {
    for (const int value : {0, 1, 0x7F, 0x80, 0xFF}) {
      std::string twisted = image;
      twisted[at] = static_cast<char>(value);
      InfoOf(twisted).Languages();
      ImportsOf(twisted);
    }
  }
}

class ExecutableTest : public TempDirTest {};

TEST_F(ExecutableTest, ImportsOfImports) {
  Put("main.exe", pe::Image("", {"A.dll", "missing.dll"}, true));
  Put("a.dll", pe::Image("", {"b.dll", "MAIN.exe"}, true));
  Put("b.dll", pe::Image("", {"a.dll", "../outside.dll"}, true));
  Names modules;
  const FilePolicy all;
  EXPECT_EQ(ListImports(all, "main.exe", {}, modules), FileStatus::Ok);
  EXPECT_EQ(modules, (Names{"A.dll", "missing.dll"}));
  EXPECT_EQ(ListImports(all, "main.exe", {false, true}, modules), FileStatus::Ok);
  EXPECT_EQ(modules, (Names{"A.dll", "missing.dll", "b.dll", "MAIN.exe", "../outside.dll"}));
  EXPECT_EQ(ListImports(all, dir_ + "/main.exe", {true, true}, modules), FileStatus::Ok);
  EXPECT_EQ(modules, (Names{dir_ + "/a.dll", "missing.dll", dir_ + "/b.dll", dir_ + "/main.exe",
                            "../outside.dll"}));
  Put("text", "no executable");
  EXPECT_EQ(ListImports(all, "text", {}, modules), FileStatus::NotValid);
  EXPECT_EQ(ListImports(all, "none", {}, modules), FileStatus::Missing);
}

TEST_F(ExecutableTest, NeededLibrariesOfThisProgram) {
  Names modules;
  const FilePolicy all;
  ASSERT_EQ(ListImports(all, "/proc/self/exe", {true, false}, modules), FileStatus::Ok);
  const auto libc = std::find_if(modules.begin(), modules.end(), [](const std::string& name) {
    return name.ends_with("/libc.so.6") && fs::exists(name);
  });
  EXPECT_NE(libc, modules.end());
  // Of a small library, every cut; a large one would only repeat itself.
  std::string bytes = Get(*libc).substr(0, 4096);
  for (size_t size = 0; size <= bytes.size(); size += 3) {
    Put("cut", bytes.substr(0, size));
    ListImports(all, "cut", {}, modules);
    EXPECT_LE(modules.size(), 100U);
  }
}

}  // namespace
}  // namespace kel
