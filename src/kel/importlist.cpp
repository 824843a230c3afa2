#include "kel/importlist.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <unordered_set>

#include "kel/bytesource.h"
#include "kel/dirs.h"
#include "kel/elffile.h"
#include "kel/fileio.h"
#include "kel/filestat.h"
#include "kel/kelascii.h"
#include "kel/pathparser.h"
#include "kel/pefile.h"

namespace kel {
namespace {

constexpr size_t kMaxModules = 10000;
constexpr uint64_t kMaxConfigBytes = 1 << 20;

enum class Format { Pe, Elf };

/// What one file needs.
FileStatus ReadImports(const Place& place, Format& format, std::vector<std::string>& names) {
  Descriptor file;
  uint64_t size = 0;
  const FileStatus status = OpenRegular(place, file, size);
  if (status != FileStatus::Ok) return status;
  const FileSource source(file.Get(), size);
  PeFile pe;
  if (pe.Open(source)) {
    format = Format::Pe;
    names = pe.Imports();
    return FileStatus::Ok;
  }
  format = Format::Elf;
  return NeededLibraries(file.Get(), names) ? FileStatus::Ok : FileStatus::NotValid;
}

void AddList(const char* variable, std::vector<std::string>& dirs) {
  const char* value = ::getenv(variable);
  std::string_view list = value != nullptr ? value : "";
  while (!list.empty()) {
    const size_t end = std::min(list.find(':'), list.size());
    if (end > 0) dirs.emplace_back(list.substr(0, end));
    list.remove_prefix(std::min(end + 1, list.size()));
  }
}

/// The directories that a configuration file of the system's loader names, one a line.
void AddConfigured(const std::string& file, std::vector<std::string>& dirs) {
  std::string text;
  if (ReadFile(Place(file), text, kMaxConfigBytes) != FileStatus::Ok) return;
  std::string_view rest = text;
  while (!rest.empty()) {
    const size_t end = std::min(rest.find('\n'), rest.size());
    const std::string_view line = Trimmed(rest.substr(0, end));
    if (line.starts_with('/')) dirs.emplace_back(line);
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
}

std::vector<std::string> SearchDirectories(Format format) {
  std::vector<std::string> dirs;
  if (format == Format::Pe) {
    AddList("PATH", dirs);
    return dirs;
  }
  AddList("LD_LIBRARY_PATH", dirs);
  AddConfigured("/etc/ld.so.conf", dirs);
  const std::string configured = "/etc/ld.so.conf.d";
  std::vector<std::string> files;
  ListFileNames(Place(configured), files);
  for (const std::string& file : files) AddConfigured(JoinPath(configured, file), dirs);
  for (const char* dir : {"/lib", "/usr/lib", "/lib64", "/usr/lib64"}) dirs.emplace_back(dir);
  return dirs;
}

/// The walk from module to module.
class ImportWalk {
 public:
  ImportWalk(const FilePolicy& policy, const ImportOptions& options)
      : policy_(policy), options_(options) {}

  FileStatus Run(std::string_view path, std::vector<std::string>& modules) {
    const FileStatus status = Read(std::string(path));
    // What a module imports comes behind everything that was known before, so no cycle is endless.
    for (size_t at = 0; status == FileStatus::Ok && at < found_.size(); ++at) {
      if (options_.recurse && !found_[at].path.empty()) Read(found_[at].path);
    }
    for (Module& module : found_) {
      const bool asPath = options_.resolve && !module.path.empty();
      modules.push_back(std::move(asPath ? module.path : module.name));
    }
    return status;
  }

 private:
  struct Module {
    std::string name;
    std::string path;  // "" while nobody wants it, or when it is not found
  };

  FileStatus Read(const std::string& path) {
    Format format = Format::Elf;
    std::vector<std::string> names;
    const FileStatus status = ReadImports(policy_.Find(path, Access::Read), format, names);
    if (status != FileStatus::Ok) return status;
    const std::string dir(
        std::string_view(path).substr(0, path.find_last_of("/\\") + 1));  // 0 without a separator
    for (std::string& name : names) {
      const bool isNew = seen_.insert(format == Format::Pe ? Lowered(name) : name).second;
      if (!isNew || found_.size() >= kMaxModules) continue;
      std::string where = options_.resolve || options_.recurse ? Locate(format, dir, name) : "";
      found_.push_back({std::move(name), std::move(where)});
    }
    return FileStatus::Ok;
  }

  std::string Locate(Format format, const std::string& dir, const std::string& name) {
    // A name from a file must not choose the directory by itself.
    if (name.find_first_of("/\\") != std::string::npos) return {};
    std::string path = Try(format, dir.empty() ? "." : dir, name);
    const auto which = static_cast<size_t>(format);
    if (path.empty() && dirs_[which].empty()) dirs_[which] = SearchDirectories(format);
    for (size_t i = 0; path.empty() && i < dirs_[which].size(); ++i) {
      path = Try(format, dirs_[which][i], name);
    }
    return path;
  }

  /// The file of a module in a directory. Names of Windows modules are written in any case; here
  /// they are tried as they stand and in lower case.
  std::string Try(Format format, const std::string& dir, const std::string& name) const {
    std::string path = JoinPath(dir, name);
    if (IsModule(path)) return path;
    if (format == Format::Elf) return {};
    path = JoinPath(dir, Lowered(name));
    return IsModule(path) ? path : std::string();
  }

  bool IsModule(const std::string& path) const {
    return GetFileStat(policy_.Find(path, Access::Read)).kind == FileKind::Regular;
  }

  const FilePolicy& policy_;
  const ImportOptions options_;
  std::vector<Module> found_;
  std::unordered_set<std::string> seen_;
  std::vector<std::string> dirs_[2];
};

}  // namespace

FileStatus ListImports(const FilePolicy& policy, std::string_view path,
                       const ImportOptions& options, std::vector<std::string>& modules) {
  modules.clear();
  return ImportWalk(policy, options).Run(path.substr(0, PATH_MAX + 1), modules);
}

}  // namespace kel
