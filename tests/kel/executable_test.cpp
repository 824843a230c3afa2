#include <elf.h>
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
  std::string text;
  const VersionInfo accented(pe::Version("040904b0", {{"CompanyName", "Acm\xE9"}}, {}));
  EXPECT_TRUE(accented.QueryText("\\stringfileinfo\\040904B0\\companyname", text));
  EXPECT_EQ(text, "Acm\xC3\xA9");
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

/// The bytes of a structure.
template <class T>
std::string_view BytesOf(const T& object) {
  return {reinterpret_cast<const char*>(&object), sizeof(T)};
}

TEST_F(ExecutableTest, AFileThatClaimsToBeHugeIsNotBelieved) {
  constexpr uint32_t kSections = 100000;
  Elf64_Ehdr header{};
  std::copy_n(ELFMAG, SELFMAG, header.e_ident);
  header.e_ident[EI_CLASS] = ELFCLASS64;
  header.e_ident[EI_DATA] = ELFDATA2LSB;
  header.e_ident[EI_VERSION] = EV_CURRENT;
  header.e_type = ET_DYN;
  header.e_machine = EM_X86_64;
  header.e_version = EV_CURRENT;
  header.e_shoff = sizeof header;
  header.e_ehsize = sizeof header;
  header.e_shentsize = sizeof(Elf64_Shdr);
  // The number of sections where it is when it does not fit the header, the rest a hole.
  Elf64_Shdr first{};
  first.sh_size = kSections;
  Put("many", std::string(BytesOf(header)) + std::string(BytesOf(first)));
  fs::resize_file("many", sizeof header + kSections * sizeof first);
  // A section of needed libraries that is a hole but for its first entry.
  header.e_shnum = 3;
  Elf64_Shdr dynamic{};
  dynamic.sh_type = SHT_DYNAMIC;
  dynamic.sh_offset = 512;
  dynamic.sh_size = uint64_t{1} << 30;
  dynamic.sh_link = 2;
  dynamic.sh_entsize = sizeof(Elf64_Dyn);
  Elf64_Shdr texts{};
  texts.sh_type = SHT_STRTAB;
  texts.sh_offset = 400;
  texts.sh_size = 100;
  const Elf64_Dyn needed{DT_NEEDED, {1}};
  std::string image(BytesOf(header));
  image.append(BytesOf(Elf64_Shdr{})).append(BytesOf(dynamic)).append(BytesOf(texts));
  image.resize(400);
  image.append(std::string_view("\0liba.so", 9)).resize(512);
  Put("wide", image + std::string(BytesOf(needed)));
  fs::resize_file("wide", 512 + dynamic.sh_size);
  Names modules;
  const FilePolicy all;
  EXPECT_EQ(ListImports(all, "many", {}, modules), FileStatus::NotValid);
  EXPECT_EQ(ListImports(all, "wide", {}, modules), FileStatus::Ok);
  EXPECT_EQ(modules, Names());
  fs::resize_file("wide", 512 + 4096);  // the section is cut short, and the claim with it
  EXPECT_EQ(ListImports(all, "wide", {}, modules), FileStatus::Ok);
}

}  // namespace
}  // namespace kel
