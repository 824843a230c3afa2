#include "kel/elffile.h"

#include <gelf.h>
#include <libelf.h>

#include <memory>

namespace kel {
namespace {

constexpr size_t kMaxNames = 65536;

void AddNeeded(Elf* elf, Elf_Scn* section, const GElf_Shdr& header,
               std::vector<std::string>& names) {
  Elf_Data* data = ::elf_getdata(section, nullptr);
  if (data == nullptr || header.sh_entsize == 0) return;
  const uint64_t count = header.sh_size / header.sh_entsize;
  for (uint64_t i = 0; i < count && i < kMaxNames; ++i) {
    GElf_Dyn entry;
    if (::gelf_getdyn(data, static_cast<int>(i), &entry) == nullptr || entry.d_tag == DT_NULL) {
      return;
    }
    if (entry.d_tag != DT_NEEDED) continue;
    const char* name = ::elf_strptr(elf, header.sh_link, entry.d_un.d_val);
    if (name != nullptr && *name != '\0') names.emplace_back(name);
  }
}

}  // namespace

bool NeededLibraries(int descriptor, std::vector<std::string>& names) {
  names.clear();
  if (::elf_version(EV_CURRENT) == EV_NONE) return false;
  // Read, not mapped: a file that shrinks meanwhile must not take the process with it.
  const std::unique_ptr<Elf, int (*)(Elf*)> elf(::elf_begin(descriptor, ELF_C_READ, nullptr),
                                                &::elf_end);
  if (elf == nullptr || ::elf_kind(elf.get()) != ELF_K_ELF) return false;
  Elf_Scn* section = nullptr;
  while ((section = ::elf_nextscn(elf.get(), section)) != nullptr) {
    GElf_Shdr header;
    if (::gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_DYNAMIC) continue;
    AddNeeded(elf.get(), section, header, names);
  }
  return true;
}

}  // namespace kel
