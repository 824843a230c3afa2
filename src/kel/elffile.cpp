#include "kel/elffile.h"

#include <gelf.h>
#include <libelf.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <string_view>

#include "kel/fileio.h"
#include "kel/lazylibrary.h"

namespace kel {
namespace {

LazyLibrary libelf(KEL_SONAME_LIBELF);
KEL_LAZY(libelf, elf_version);
KEL_LAZY(libelf, elf_begin);
KEL_LAZY(libelf, elf_end);
KEL_LAZY(libelf, elf_kind);
KEL_LAZY(libelf, elf_nextscn);
KEL_LAZY(libelf, elf_getscn);
KEL_LAZY(libelf, elf_getdata);
KEL_LAZY(libelf, elf_strptr);
KEL_LAZY(libelf, gelf_getshdr);
KEL_LAZY(libelf, gelf_getdyn);

constexpr size_t kMaxNames = 65536;
/// Of a section that is read; no program has half as many names.
constexpr uint64_t kMaxSectionBytes = uint64_t{64} << 20;

/// Whether a file has so many sections that their number does not fit its header: only what a
/// compiler leaves to be linked has. The library would take memory by that number, and by nothing
/// but the file's word.
bool HasHugeTable(int descriptor) {
  std::array<char, 64> header{};
  const int64_t size = ReadFullAt(descriptor, 0, header.data(), header.size());
  const bool is64 = header[EI_CLASS] == ELFCLASS64;
  const size_t offsetAt = is64 ? offsetof(Elf64_Ehdr, e_shoff) : offsetof(Elf32_Ehdr, e_shoff);
  const size_t countAt = is64 ? offsetof(Elf64_Ehdr, e_shnum) : offsetof(Elf32_Ehdr, e_shnum);
  const std::string_view bytes(header.data(), static_cast<size_t>(std::max<int64_t>(size, 0)));
  const std::string_view zeros("\0\0\0\0\0\0\0", 8);
  return bytes.size() > countAt + 1 && bytes.substr(countAt, 2) == zeros.substr(0, 2) &&
         bytes.substr(offsetAt, is64 ? 8 : 4) != zeros.substr(0, is64 ? 8 : 4);
}

bool IsSmall(Elf_Scn* section) {
  GElf_Shdr header;
  return gelf_getshdr(section, &header) != nullptr && header.sh_size <= kMaxSectionBytes;
}

void AddNeeded(Elf* elf, Elf_Scn* section, const GElf_Shdr& header,
               std::vector<std::string>& names) {
  if (!IsSmall(section) || !IsSmall(elf_getscn(elf, header.sh_link))) return;
  Elf_Data* data = elf_getdata(section, nullptr);
  if (data == nullptr || header.sh_entsize == 0) return;
  const uint64_t count = header.sh_size / header.sh_entsize;
  for (uint64_t i = 0; i < count && i < kMaxNames; ++i) {
    GElf_Dyn entry;
    if (gelf_getdyn(data, static_cast<int>(i), &entry) == nullptr || entry.d_tag == DT_NULL) {
      return;
    }
    if (entry.d_tag != DT_NEEDED) continue;
    const char* name = elf_strptr(elf, header.sh_link, entry.d_un.d_val);
    if (name != nullptr && *name != '\0') names.emplace_back(name);
  }
}

}  // namespace

bool NeededLibraries(int descriptor, std::vector<std::string>& names) {
  names.clear();
  if (elf_version(EV_CURRENT) == EV_NONE || HasHugeTable(descriptor)) return false;
  // Read, not mapped: a file that shrinks meanwhile must not take the process with it.
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(elf_begin(descriptor, ELF_C_READ, nullptr),
                                                elf_end.Address());
  if (elf == nullptr || elf_kind(elf.get()) != ELF_K_ELF) return false;
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(elf.get(), section)) != nullptr) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_DYNAMIC) continue;
    AddNeeded(elf.get(), section, header, names);
  }
  return true;
}

}  // namespace kel
