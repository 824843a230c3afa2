#include "kel/movedlinks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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
      : policy_(policy), here_(target.substr(0, target.rfind('/'))), top_(target) {}

  FileStatus Entry(int dir, const char* name, const struct stat& info) override {
    return !S_ISLNK(info.st_mode) || MayStand(dir, name) ? FileStatus::Ok : FileStatus::Failed;
  }
  FileStatus Enter(int, const char* name, const struct stat&, bool&) override {
    here_ = top_.empty() ? here_ + "/" + name : std::move(top_);
    top_.clear();
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
    const std::string_view target(link.data(), static_cast<size_t>(length));
    return policy_.Allows(
        target.front() == '/' ? std::string(target) : ResolvePath(JoinPath(here_ + "/", target)),
        Access::Read);
  }

  const FilePolicy& policy_;
  std::string here_;  // the directory, canonical, that the entry will be in
  std::string top_;   // until the top of the tree is entered
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
