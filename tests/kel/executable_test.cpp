#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>

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

/// The bytes of a structure.
template <class T>
std::string_view BytesOf(const T& object) {
  return {reinterpret_cast<const char*>(&object), sizeof(T)};
}

/// A shared library that needs "liba.so", and says that its table of that has `bytes` bytes.
std::string Library(uint64_t bytes) {
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
  header.e_shnum = 3;
  Elf64_Shdr texts{};
  texts.sh_type = SHT_STRTAB;
  texts.sh_offset = sizeof header + 3 * sizeof texts;
  texts.sh_size = 16;
  Elf64_Shdr dynamic{};
  dynamic.sh_type = SHT_DYNAMIC;
  dynamic.sh_offset = texts.sh_offset + texts.sh_size;
  dynamic.sh_size = bytes;
  dynamic.sh_link = 2;
  dynamic.sh_entsize = sizeof(Elf64_Dyn);
  const std::array<Elf64_Dyn, 2> needed = {{{DT_NEEDED, {1}}, {DT_NULL, {0}}}};
  std::string image(BytesOf(header));
  image.append(BytesOf(Elf64_Shdr{})).append(BytesOf(dynamic)).append(BytesOf(texts));
  return image.append(std::string_view("\0liba.so\0\0\0\0\0\0\0", 16)).append(BytesOf(needed));
}

TEST_F(ExecutableTest, CutOrTwistedLibrariesAreSurvived) {
  const std::string image = Library(2 * sizeof(Elf64_Dyn));
  const auto needed = [&](const std::string& bytes) {
    Put("lib", bytes);
    Names modules;
    ListImports(FilePolicy(), "lib", {}, modules);
    return modules;
  };
  EXPECT_EQ(needed(image), Names{"liba.so"});
  for (size_t size = 0; size < image.size(); ++size) {
    EXPECT_LE(needed(image.substr(0, size)).size(), 1U);
  }
  for (size_t at = 0; at < image.size(); ++at) {
    for (const int value : {0, 1, 0x7F, 0x80, 0xFF}) {
      std::string twisted = image;
      twisted[at] = static_cast<char>(value);
      EXPECT_LE(needed(twisted).size(), 3U) << at;
    }
  }
}

TEST_F(ExecutableTest, AFileThatClaimsToBeHugeIsNotBelieved) {
  // More sections than a header can count, and a table of a gigabyte: holes, both of them.
  constexpr uint32_t kSections = 100000;
  std::string image = Library(0);
  image[offsetof(Elf64_Ehdr, e_shnum)] = 0;
  Elf64_Shdr first{};
  first.sh_size = kSections;
  image.replace(sizeof(Elf64_Ehdr), sizeof first, BytesOf(first));
  Put("many", image);
  fs::resize_file("many", sizeof(Elf64_Ehdr) + kSections * sizeof first);
  constexpr uint64_t kWide = uint64_t{1} << 30;
  Put("wide", Library(kWide));
  fs::resize_file("wide", kWide + 1000);
  Names modules;
  const FilePolicy all;
  EXPECT_EQ(ListImports(all, "many", {}, modules), FileStatus::NotValid);
  EXPECT_EQ(ListImports(all, "wide", {}, modules), FileStatus::Ok);
  EXPECT_EQ(modules, Names());
}

}  // namespace
}  // namespace kel
