#include "kel/movedlinks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <string>

#include "kel/pathparser.h"
#include "kel/treewalk.h"

namespace kel {
namespace {

/// Follows the tree that is to be moved, with the names that it will have.
class LinkJudge : public TreeVisitor {
 public:
  LinkJudge(const FilePolicy& policy, const std::string& target)
      : policy_(policy), here_(target.substr(0, target.rfind('/'))), target_(target) {}

  FileStatus Entry(int dir, const char* name, const struct stat& info) override {
    return !S_ISLNK(info.st_mode) || MayStand(dir, name) ? FileStatus::Ok : FileStatus::Failed;
  }
  FileStatus Enter(int, const char* name, const struct stat&, bool&) override {
    here_ = isEntered_ ? here_ + "/" + name : target_;
    isEntered_ = true;
    return FileStatus::Ok;
  }
  FileStatus Leave(int, const char*, const struct stat&) override {
    here_.erase(here_.rfind('/'));
    return FileStatus::Ok;
  }

 private:
  bool MayStand(int dir, const char* name) const {
    std::array<char, PATH_MAX> link;
    const ssize_t length = ::readlinkat(dir, name, link.data(), link.size());
    if (length <= 0) return false;
    std::string_view target(link.data(), static_cast<size_t>(length));
    if (target.front() == '/') return policy_.Allows(target, Access::Read);
    std::string from = here_;
    while (target == ".." || target.starts_with("../")) {
      from.erase(std::min(from.rfind('/'), from.size()));
      target.remove_prefix(std::min(target.find_first_not_of('/', 2), target.size()));
    }
    // What is moved along is not there yet to be walked through.
    if (isEntered_ && (from + "/").starts_with(target_ + "/")) return !Climbs(target);
    return policy_.Allows(JoinPath(from + "/", target), Access::Read);
  }

  static bool Climbs(std::string_view path) {
    return ("/" + std::string(path) + "/").find("/../") != std::string::npos;
  }

  const FilePolicy& policy_;
  std::string here_;  // the directory, canonical, that the entry will be in
  const std::string target_;
  bool isEntered_ = false;  // it is a tree
};

}  // namespace

bool LinksStayAllowed(const FilePolicy& policy, const Place& from, const Place& to) {
  if (!to.IsConfined()) return true;
  struct stat info;
  if (::fstatat(from.Dir(), from.Name(), &info, AT_SYMLINK_NOFOLLOW) != 0) return true;
  LinkJudge judge(policy, to.RealPath());
  if (!S_ISDIR(info.st_mode)) return judge.Entry(from.Dir(), from.Name(), info) == FileStatus::Ok;
  // What cannot be looked into cannot be judged.
  return WalkTree(from.Dir(), from.Name(), judge) == FileStatus::Ok;
}

}  // namespace kel
