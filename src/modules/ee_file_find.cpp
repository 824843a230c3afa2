#include "kel/codepage.h"
#include "kel/dirs.h"
#include "kel/pathparser.h"
#include "kel/regex_pcre.h"
#include "kel/utf8.h"
#include "kel/wildcard.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

/// What a FileFindInfo stands for: names as they were when the search was opened.
struct FileSearch {
  static constexpr const char* kTypeName = "FileFindInfo";
  std::vector<std::string> names;
  size_t next = 0;
};

/// The names of the files in the directory in front of a pattern; "" is the current one.
bool NamesIn(Call& call, std::string_view dir, std::vector<std::string>& names) {
  const kel::Place place = PlaceOf(call, dir.empty() ? "." : dir, kel::Access::Read);
  return Succeeded(call, kel::ListFileNames(place, names), dir);
}

std::unique_ptr<kel::Regex> CompileWhole(Call& call, std::string_view pattern, bool caseSensitive) {
  kel::RegexFault fault;
  kel::PcreOptions options;
  options.caseSensitive = caseSensitive;
  options.whole = true;
  auto regex = kel::CompilePcre(pattern, options, fault);
  if (regex == nullptr) call.Fail(ERR_INVALIDPARAM, fault.message);
  return regex;
}

}  // namespace

Handle OpenSearch(Call& call, std::string_view pattern) {
  const size_t separator = pattern.find_last_of("/\\");
  const size_t start = separator == std::string_view::npos ? 0 : separator + 1;
  const std::string_view dir = pattern.substr(0, start);
  // "*.*" has meant every file since before files could do without an extension.
  const std::string_view wanted = pattern.substr(start) == "*.*" ? "*" : pattern.substr(start);
  auto search = std::make_unique<FileSearch>();
  if (!NamesIn(call, dir, search->names)) return {0, FileSearch::kTypeName};
  std::erase_if(search->names,
                [&](const std::string& name) { return !kel::WildcardMatch(name, wanted, true); });
  return OpenHandle(call, std::move(search));
}

std::string NextFound(Call& call, Handle handle) {
  FileSearch* search = ObjectOf<FileSearch>(call, handle);
  if (search == nullptr || search->next == search->names.size()) return {};
  return search->names[search->next++];
}

bool CloseSearch(Call& call, Handle handle) {
  if (ObjectOf<FileSearch>(call, handle) == nullptr) return false;
  return call.Context().Handles().Release(handle.id, &FileSearch::kTypeName);
}

ArrayResult FindPcre(Call& call, std::string_view pattern, std::string_view page,
                     bool caseSensitive) {
  std::vector<std::string> found;
  const std::string codePage = page.empty() ? "UTF-8" : kel::CodePageName(page);
  if (codePage.empty()) call.Fail(ERR_INVALIDPARAM, page);
  // "\" belongs to the pattern, so that only "/" parts it from the directory.
  const size_t slash = pattern.rfind('/');
  const std::string_view dir = pattern.substr(0, slash == std::string_view::npos ? 0 : slash + 1);
  std::vector<std::string> names;
  std::unique_ptr<kel::Regex> regex;
  if (!HasFailed(call)) regex = CompileWhole(call, pattern.substr(dir.size()), caseSensitive);
  if (regex != nullptr && NamesIn(call, dir, names)) {
    const kel::RegexBudget budget;
    for (const std::string& name : names) {
      const kel::RegexStatus status = regex->Find(name, 0, kel::IsUtf8(name), budget);
      if (status == kel::RegexStatus::kLimit) {
        call.Fail(ERR_FUNCFAILED, pattern);
        return TextArray({});
      }
      if (status == kel::RegexStatus::kMatch) found.push_back(std::string(dir) + name);
    }
  }
  if (page.empty()) return TextArray(found);
  // One name that another program has made in its own way must not hide all the others.
  std::erase_if(found, [&](std::string& path) {
    std::string converted;
    const bool converts = kel::ConvertCodePage(path, "UTF-8", codePage, converted);
    path = std::move(converted);
    return !converts;
  });
  return TextArray(found);
}

}  // namespace tamber::files
