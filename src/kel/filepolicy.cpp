#include "kel/filepolicy.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <climits>
#include <cstdlib>

#include "kel/hostpath.h"
#include "kel/pathparser.h"
#include "kel/pathwalk.h"

namespace kel {
namespace {

constexpr int kOpenDirectory = O_PATH | O_DIRECTORY | O_CLOEXEC;
constexpr std::string_view kProcesses = "/proc";

/// The path without links, "." and ".."; "" when it does not exist.
std::string RealPath(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real != nullptr ? std::string(real.get()) : std::string();
}

}  // namespace

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

namespace {

/// Whether a canonical path is the directory or leads below it.
bool IsWithin(std::string_view path, std::string_view dir) {
  if (dir == "/") return true;
  return path.starts_with(dir) && (path.size() == dir.size() || path[dir.size()] == '/');
}

}  // namespace

struct FilePolicy::Root {
  std::string path;
  Access access;
  Descriptor dir;
  uint64_t device = 0;
  uint64_t inode = 0;

  bool Holds(std::string_view canonical) const { return IsWithin(canonical, path); }
  std::string_view Relative(std::string_view canonical) const {
    canonical.remove_prefix(path == "/" ? 1 : path.size());
    while (!canonical.empty() && canonical.front() == '/') canonical.remove_prefix(1);
    return canonical;
  }
};

Place::Place(std::string_view path) : path_(path.substr(0, PATH_MAX)), name_(SystemPath(path_)) {
  // A path that is too long for the system is not looked at further: what begins it is too long
  // as well, as long as no separators are taken off its end.
  if (path.size() > path_.size()) name_.back() = 'x';
  state_ = path_.empty() || path_.find('\0') != std::string::npos ? State::Missing : State::Found;
}

FilePolicy::FilePolicy() = default;
FilePolicy::FilePolicy(const FilePolicy& other) = default;
FilePolicy& FilePolicy::operator=(const FilePolicy& other) = default;
FilePolicy::~FilePolicy() = default;

bool FilePolicy::AddDirectory(std::string_view path, Access access) {
  const Place place(HostPath(path));
  if (!place.IsFound()) return false;
  Root root{RealPath(place.Name()), access, Descriptor(::open(place.Name(), kOpenDirectory))};
  struct stat info;
  if (root.path.empty() || !root.dir.IsOpen() || ::fstat(root.dir.Get(), &info) != 0) return false;
  root.device = info.st_dev;
  root.inode = info.st_ino;
  roots_.push_back(std::make_shared<const Root>(std::move(root)));
  return true;
}

bool FilePolicy::Allows(std::string_view path, Access wanted) const {
  return !Find(path, wanted).IsRefused();
}

bool FilePolicy::Hides(uint64_t device, uint64_t inode) const {
  return std::any_of(roots_.begin(), roots_.end(), [&](const auto& root) {
    return root->access == Access::None && root->device == device && root->inode == inode;
  });
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

bool FilePolicy::HidesProcesses(std::string_view canonical) const {
  if (ShowsProcesses() || !IsWithin(canonical, kProcesses)) return false;
  const Root* root = RootOf(canonical);
  return root == nullptr || !IsWithin(root->path, kProcesses);
}

bool FilePolicy::Permits(std::string_view canonical, Access wanted) const {
  const Root* root = RootOf(canonical);
  return !HidesProcesses(canonical) && (root != nullptr ? root->access : elsewhere_) >= wanted;
}

bool FilePolicy::IsAboveRoot(std::string_view canonical) const {
  return std::any_of(roots_.begin(), roots_.end(),
                     [&](const auto& root) { return IsWithin(root->path, canonical); });
}

Place FilePolicy::Find(std::string_view path, Access wanted, Links links) const {
  Place place(path);
  // With a separator behind it, a link would be followed after all.
  while (links == Links::Keep && place.name_.size() > 1 && place.name_.back() == '/') {
    place.name_.pop_back();
  }
  if (!place.IsFound() || AllowsEveryFile(wanted)) return place;
  place.state_ = Place::State::Missing;
  if (place.name_.size() >= PATH_MAX) return place;
  // Out of a directory that scripts may not look into there is no way up but for those on the way
  // to one that they may: else they could try out which names there are.
  const auto mayClimb = [this](std::string_view dir) {
    return Permits(dir, Access::Read) || IsAboveRoot(dir);
  };
  // What is hidden is no way to anywhere else either: its links tell of processes, too.
  bool isHidden = false;
  const auto note = [&](std::string_view dir) { isHidden = isHidden || HidesProcesses(dir); };
  const PathEnd end = WalkPath(place.name_, links == Links::Follow, mayClimb, note);
  // Whoever removes or renames a directory does it to all that is below, where the host may have
  // allowed less; and what is elsewhere afterwards would be known by another name.
  const bool takesRoots = links == Links::Keep && wanted == Access::Write && IsAboveRoot(end.path);
  const Root* root = RootOf(end.path);
  const bool permitted = end.path.empty() ? elsewhere_ >= wanted : Permits(end.path, wanted);
  if (!permitted || isHidden || (takesRoots && end.isReached)) {
    place.state_ = Place::State::Refused;
    return place;
  }
  if (!end.isReached) return place;
  const Descriptor top(root == nullptr ? ::open("/", kOpenDirectory) : -1);
  place.dir_ = root == nullptr
                   ? OpenParent(top.Get(), std::string_view(end.path).substr(1), place.name_)
                   : OpenParent(root->dir.Get(), root->Relative(end.path), place.name_);
  if (place.dir_.IsOpen()) place.state_ = Place::State::Found;
  place.realPath_ = end.path;
  return place;
}

bool FilePolicy::CanReplace(std::string_view path) const {
  if (AllowsEveryFile(Access::Write)) return true;
  const Place place(path);
  if (!place.IsFound()) return false;
  bool can = false;
  const auto note = [&](std::string_view dir) { can = can || Permits(dir, Access::Write); };
  const PathEnd end = WalkPath(
      place.name_, true, [](std::string_view) { return true; }, note);
  return can || (end.isReached && Permits(end.path, Access::Write));
}

Place FilePolicy::FindForHost(std::string_view path, Access wanted) const {
  return CanReplace(path) ? Find(path, wanted) : Place(path);
}

}  // namespace kel
