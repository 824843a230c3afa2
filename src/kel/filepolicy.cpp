#include "kel/filepolicy.h"

#include <fcntl.h>

#include <cerrno>
#include <cstdlib>

#include "kel/pathparser.h"

namespace kel {
namespace {

constexpr int kOpenDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;

/// The path without links, "." and ".."; "" with errno when it does not exist.
std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real != nullptr ? std::string(real.get()) : std::string();
}

struct Split {
  std::string parent;
  std::string name;
};

/// Cuts the last name off; separators at the end do not count.
Split SplitLast(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const size_t at = path.rfind('/');
  if (at == std::string_view::npos) return {".", std::string(path)};
  return {at == 0 ? "/" : std::string(path.substr(0, at)), std::string(path.substr(at + 1))};
}

bool IsPlainName(std::string_view name) { return !name.empty() && name != "." && name != ".."; }

struct Canonical {
  std::string path;     ///< of the thing itself, or of the deepest directory above that exists
  bool exists = false;  ///< the path names the thing, or a name that can be made in `path`
};

/// Where a path leads. The last name may be missing, and then is kept as it is.
Canonical Canonicalize(const std::string& path, Links links) {
  const Split split = SplitLast(path);
  if (links == Links::Follow || !IsPlainName(split.name)) {
    std::string real = RealPath(path);
    if (!real.empty()) return {std::move(real), true};
    if (!IsPlainName(split.name)) return {RealPath(split.parent), false};
  }
  std::string parent = RealPath(split.parent);
  if (!parent.empty()) return {JoinPath(parent, split.name), true};
  Split above = SplitLast(split.parent);
  while (true) {
    std::string real = RealPath(above.parent);
    if (!real.empty() || above.parent == "/" || above.parent == ".")
      return {std::move(real), false};
    above = SplitLast(above.parent);
  }
}

/// Opens the directory that holds the last name of a relative path, one level at a time and through
/// no link.
Descriptor OpenParent(int root, std::string_view relative, std::string& name) {
  Descriptor dir(::openat(root, ".", kOpenDirectory));
  while (dir.IsOpen()) {
    const size_t end = relative.find('/');
    if (end == std::string_view::npos) break;
    const std::string part(relative.substr(0, end));
    dir = Descriptor(::openat(dir.Get(), part.c_str(), kOpenDirectory | O_NOFOLLOW));
    relative.remove_prefix(end + 1);
  }
  name = relative.empty() ? "." : std::string(relative);
  return dir;
}

}  // namespace

struct FilePolicy::Root {
  std::string path;
  Access access;
  Descriptor dir;

  bool Holds(std::string_view canonical) const {
    if (path == "/") return true;
    return canonical.starts_with(path) &&
           (canonical.size() == path.size() || canonical[path.size()] == '/');
  }
  std::string_view Relative(std::string_view canonical) const {
    canonical.remove_prefix(path == "/" ? 1 : path.size());
    while (!canonical.empty() && canonical.front() == '/') canonical.remove_prefix(1);
    return canonical;
  }
};

Place::Place(std::string_view path) : name_(SystemPath(path)), path_(path) {
  state_ =
      path.empty() || path.find('\0') != std::string_view::npos ? State::Missing : State::Found;
}

FilePolicy::FilePolicy() = default;
FilePolicy::FilePolicy(const FilePolicy& other) = default;
FilePolicy& FilePolicy::operator=(const FilePolicy& other) = default;
FilePolicy::~FilePolicy() = default;

bool FilePolicy::AddDirectory(std::string_view path, Access access) {
  const Place place(path);
  if (!place.IsFound()) return false;
  Root root{RealPath(place.Name()), access, Descriptor(::open(place.Name(), kOpenDirectory))};
  if (root.path.empty() || !root.dir.IsOpen()) return false;
  roots_.push_back(std::make_shared<const Root>(std::move(root)));
  return true;
}

bool FilePolicy::Allows(std::string_view path, Access wanted) const {
  return !Find(path, wanted).IsRefused();
}

const FilePolicy::Root* FilePolicy::RootOf(std::string_view canonical) const {
  const Root* best = nullptr;
  for (const auto& root : roots_) {
    if (root->Holds(canonical) && (best == nullptr || root->path.size() >= best->path.size())) {
      best = root.get();
    }
  }
  return best;
}

bool FilePolicy::Permits(std::string_view canonical, Access wanted) const {
  const Root* root = RootOf(canonical);
  return (root != nullptr ? root->access : elsewhere_) >= wanted;
}

Place FilePolicy::Find(std::string_view path, Access wanted, Links links) const {
  Place place(path);
  // With a separator behind it, a link would be followed after all.
  while (links == Links::Keep && place.name_.size() > 1 && place.name_.back() == '/') {
    place.name_.pop_back();
  }
  if (!place.IsFound() || (roots_.empty() && elsewhere_ >= wanted)) return place;
  const Canonical real = Canonicalize(place.name_, links);
  place.state_ = Place::State::Refused;
  if (real.path.empty() ? elsewhere_ < wanted : !Permits(real.path, wanted)) return place;
  if (!real.exists) {
    place.state_ = Place::State::Missing;
    return place;
  }
  const Root* root = RootOf(real.path);
  const Descriptor top(root == nullptr ? ::open("/", kOpenDirectory) : -1);
  place.dir_ = root == nullptr
                   ? OpenParent(top.Get(), std::string_view(real.path).substr(1), place.name_)
                   : OpenParent(root->dir.Get(), root->Relative(real.path), place.name_);
  place.state_ = place.dir_.IsOpen() ? Place::State::Found : Place::State::Missing;
  return place;
}

}  // namespace kel
