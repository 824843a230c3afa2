#include <elf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>

#include "kel/fileio.h"
#include "kel/importlist.h"
#include "kel/pefile.h"
#include "kel/versioninfo.h"
#include "tempdir.h"

namespace kel {
namespace {

namespace fs = std::filesystem;
using Names = std::vector<std::string>;

/// A file made of little-endian numbers and bytes.
struct Image {
  std::string bytes;

  Image& Numbers(size_t width, std::initializer_list<uint64_t> values) {
    for (uint64_t value : values)
      for (size_t i = 0; i < width; ++i, value >>= 8) bytes += static_cast<char>(value);
    return *this;
  }
  Image& Bytes(std::string_view text) {
    bytes += text;
    return *this;
  }
  Image& PadTo(size_t size) {
    bytes.resize(std::max(bytes.size(), size));
    return *this;
  }
};

/// One block of a version resource: lengths, name, value and the blocks inside.
std::string Block(std::string_view name, std::string_view value,
                  const std::vector<std::string>& inside = {}, bool isText = false) {
  Image body;
  for (const char c : name) body.Numbers(2, {static_cast<unsigned char>(c)});
  body.Numbers(2, {0});
  // The head of 6 bytes goes before it.
  const auto align = [&] { body.PadTo(body.bytes.size() + 3 - (body.bytes.size() + 1) % 4); };
  align();
  body.Bytes(value);
  for (const std::string& block : inside) {
    align();
    body.Bytes(block);
  }
  return Image()
      .Numbers(2, {body.bytes.size() + 6, isText ? value.size() / 2 : value.size(), isText})
      .Bytes(body.bytes)
      .bytes;
}

/// A Windows executable of one section, at address 0x1000, with a version and these imports.
std::string Executable(std::string_view version, const Names& imports) {
  constexpr uint32_t kBase = 0x1000;
  constexpr uint32_t kVersion = 88, kEntry = 20;
  const auto table = static_cast<uint32_t>(kVersion + (version.size() + 3) / 4 * 4);
  const auto tableSize = static_cast<uint32_t>(imports.size() * kEntry);
  Image section;
  section.PadTo(14).Numbers(2, {1}).Numbers(4, {16, 0x80000000U + 24});  // resources by type,
  section.PadTo(38).Numbers(2, {1}).Numbers(4, {1, 0x80000000U + 48});   // name
  section.PadTo(62).Numbers(2, {1}).Numbers(4, {1033, 72});              // and language
  section.Numbers(4, {kBase + kVersion, version.size()}).PadTo(kVersion).Bytes(version);
  section.PadTo(table);
  std::string names;
  for (const std::string& name : imports) {
    section.PadTo(section.bytes.size() + 12);
    section.Numbers(4, {kBase + table + tableSize + kEntry + names.size(), 0});
    names += name + '\0';
  }
  section.PadTo(table + tableSize + kEntry).Bytes(names);
  Image image;
  image.Bytes("MZ").PadTo(60).Numbers(4, {64}).Bytes(std::string_view("PE\0\0", 4));
  image.Numbers(2, {0x8664, 1}).PadTo(64 + 20).Numbers(2, {240, 2});
  image.Numbers(2, {0x20B}).PadTo(88 + 108).Numbers(4, {16, 0, 0, kBase + table, tableSize});
  const uint64_t size = section.bytes.size();
  image.Numbers(4, {kBase, size}).PadTo(88 + 240).Bytes(".rsrc").PadTo(88 + 240 + 8);
  image.Numbers(4, {size, kBase, size, 88 + 240 + 40}).PadTo(88 + 240 + 40);
  return image.Bytes(section.bytes).bytes;
}

/// Calls `look` with the file cut short everywhere, and with every byte changed.
template <class Look>
void Damage(const std::string& image, const Look& look) {
  for (size_t size = 0; size < image.size(); ++size) look(image.substr(0, size));
  for (size_t at = 0; at < image.size(); ++at) {
    for (const int value : {0, 1, 0x7F, 0x80, 0xFF}) {
      std::string twisted = image;
      twisted[at] = static_cast<char>(value);
      look(twisted);
    }
  }
}

TEST(PeFile, CutOrTwistedFilesAreSurvived) {
  const std::string_view text(
      "1\0.\0"
      "2\0\0\0",
      8);
  const std::string strings = Block(
      "StringFileInfo", "", {Block("040904b0", "", {Block("ProductVersion", text, {}, true)})});
  const std::string translations =
      Block("VarFileInfo", "", {Block("Translation", std::string_view("\x09\x04\xB0\x04", 4))});
  const std::string image = Executable(
      Block("VS_VERSION_INFO", std::string(52, 'x'), {strings, translations}), {"a.dll", "b.dll"});
  std::string version;
  Names languages, imports;
  const auto look = [&](const std::string& bytes) {
    const MemorySource source(bytes);
    PeFile file;
    const bool open = file.Open(source);
    const VersionInfo info(open ? file.VersionResource() : "");
    version = info.VersionString();
    languages = info.Languages();
    imports = open ? file.Imports() : Names();
  };
  look(image);
  EXPECT_EQ(version, "1.2");
  EXPECT_EQ(languages, Names{"040904b0"});
  EXPECT_EQ(imports, (Names{"a.dll", "b.dll"}));
  Damage(image, look);
}

class ExecutableTest : public TempDirTest {};

TEST_F(ExecutableTest, ImportsOfImports) {
  Put("main.exe", Executable("", {"A.dll", "missing.dll"}));
  Put("a.dll", Executable("", {"b.dll", "MAIN.exe"}));
  Put("b.dll", Executable("", {"a.dll", "../outside.dll"}));
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
  Damage(image, [&](const std::string& damaged) { EXPECT_LE(needed(damaged).size(), 3U); });
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
