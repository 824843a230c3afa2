#include <algorithm>
#include <new>

#include "kel/bytesource.h"
#include "kel/fileio.h"
#include "kel/importlist.h"
#include "kel/pefile.h"
#include "kel/versioninfo.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

/// The version resource of a file, without blocks when it has none; a file that cannot be read sets
/// the error. One for which there is no memory counts as none, with `tooLarge` set.
kel::VersionInfo VersionOf(Call& call, std::string_view path, bool* tooLarge = nullptr) {
  kel::Descriptor file;
  uint64_t size = 0;
  const kel::Place place = PlaceOf(call, path, kel::Access::Read);
  if (!Succeeded(call, kel::OpenRegular(place, file, size), path)) return kel::VersionInfo("");
  const kel::FileSource source(file.Get(), size);
  kel::PeFile executable;
  try {
    return kel::VersionInfo(executable.Open(source) ? executable.VersionResource() : "");
  } catch (const std::bad_alloc&) {
    if (tooLarge != nullptr) *tooLarge = true;
  }
  return kel::VersionInfo("");
}

}  // namespace

ArrayResult Modules(Call& call, std::string_view path, bool resolve, bool recurse) {
  std::vector<std::string> names;
  // Asked first, so that a path that the host forbids is told from one that leads nowhere.
  PlaceOf(call, path, kel::Access::Read);
  Succeeded(call, kel::ListImports(PolicyOf(call), path, {resolve, recurse}, names), path);
  return TextArray(names);
}

bool HasVersionInfo(Call& call, std::string_view path) {
  bool tooLarge = false;
  const bool has = VersionOf(call, path, &tooLarge).HasFixedInfo();
  if (tooLarge) call.Fail(ERR_FUNCFAILED, path);
  return has;
}

std::string VersionValue(Call& call, std::string_view path, std::string_view language,
                         std::string_view name) {
  const kel::VersionInfo version = VersionOf(call, path);
  // The names in a resource have less than 65536 characters.
  constexpr size_t kMost = 65536;
  if (std::max(language.size(), name.size()) > kMost) return {};
  const std::string prefix = language.empty() ? version.StringPrefix()
                                              : "\\StringFileInfo\\" + std::string(language) + "\\";
  std::string text;
  version.QueryText(prefix + std::string(name), text);
  return text;
}

ArrayResult VersionLanguages(Call& call, std::string_view path) {
  return TextArray(VersionOf(call, path).Languages());
}

int32_t VersionHigh(Call& call, std::string_view path) {
  return kel::VersionPair(VersionOf(call, path).VersionString(), 0);
}

int32_t VersionLow(Call& call, std::string_view path) {
  return kel::VersionPair(VersionOf(call, path).VersionString(), 2);
}

}  // namespace tamber::files
