#include "kel/pathwalk.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "kel/descriptor.h"
#include "kel/dirs.h"

namespace kel {
namespace {

constexpr int kOpenAny = O_PATH | O_NOFOLLOW | O_CLOEXEC;
constexpr int kMaxLinks = 40;  // as the system has it

class PathWalk {
 public:
  PathWalk(const std::string& path, bool followLast, const ClimbTest& mayClimb,
           const LookUpNote& lookUp)
      : rest_(path),
        own_(path.size()),
        followLast_(followLast),
        mayClimb_(mayClimb),
        lookUp_(lookUp) {}

  PathEnd Run() {
    if (!rest_.starts_with('/')) here_ = CurrentDirectory();
    // A directory that is gone, or out of this process's sight, has no name.
    if (!rest_.starts_with('/') && !here_.starts_with('/')) return {};
    EnterRoot(!rest_.starts_with('/'));
    while (dir_.IsOpen()) {
      at_ = std::min(rest_.find_first_not_of('/', at_), rest_.size());
      if (at_ == rest_.size()) return {Here(), true};
      const bool isOwn = rest_.size() - at_ <= own_;
      const size_t end = std::min(rest_.find('/', at_), rest_.size());
      const std::string part = rest_.substr(at_, end - at_);
      at_ = end;
      if (part == ".") continue;
      if (part == "..") {
        if (isOwn && hasDescended_ && !mayClimb_(Here())) break;
        Climb();
        continue;
      }
      hasDescended_ = hasDescended_ || isOwn;
      if (lookUp_) lookUp_(Here());
      const bool isLast = rest_.find_first_not_of('/', at_) == std::string::npos;
      if (isLast && !followLast_) return {here_ + "/" + part, true};
      const Step step = Descend(part);
      if (step == Step::Failed) break;
      if (step == Step::Entered) continue;
      if (isLast && (step == Step::Nothing || at_ == rest_.size())) {
        return {here_ + "/" + part, true};
      }
      break;
    }
    return {Here(), false};
  }

 private:
  enum class Step { Entered, File, Nothing, Failed };

  std::string Here() const { return here_.empty() ? "/" : here_; }

  /// "/", or the current directory, whose name is known already.
  void EnterRoot(bool current) {
    dir_ = Descriptor(::open(current ? "." : "/", kOpenAny | O_DIRECTORY));
    if (!current || here_ == "/") here_.clear();
  }

  void Climb() {
    dir_ = Descriptor(::openat(dir_.Get(), "..", kOpenAny | O_DIRECTORY));
    here_.erase(std::min(here_.rfind('/'), here_.size()));
  }

  Step Descend(const std::string& part) {
    Descriptor child(::openat(dir_.Get(), part.c_str(), kOpenAny));
    struct stat info;
    if (!child.IsOpen() || ::fstat(child.Get(), &info) != 0) return Step::Nothing;
    if (S_ISLNK(info.st_mode)) return FollowLink(child.Get());
    if (!S_ISDIR(info.st_mode)) return Step::File;
    dir_ = std::move(child);
    here_ += "/" + part;
    return Step::Entered;
  }

  /// Puts what the link says in front of what is left of the path.
  Step FollowLink(int link) {
    std::array<char, PATH_MAX> target;
    const ssize_t length = ::readlinkat(link, "", target.data(), target.size());
    if (length <= 0 || ++links_ > kMaxLinks) return Step::Failed;
    own_ = std::min(own_, rest_.size() - at_);
    rest_ = std::string(target.data(), static_cast<size_t>(length)) + rest_.substr(at_);
    at_ = 0;
    if (rest_.front() == '/') EnterRoot(false);
    return Step::Entered;
  }

  std::string rest_;  // links are put in front of what is left
  size_t at_ = 0;     // what comes next in it
  size_t own_;        // bytes at its end that stood in the path itself
  const bool followLast_;
  const ClimbTest& mayClimb_;
  const LookUpNote& lookUp_;
  Descriptor dir_;
  std::string here_;  // "" for "/"
  bool hasDescended_ = false;
  int links_ = 0;
};

}  // namespace

PathEnd WalkPath(const std::string& path, bool followLast, const ClimbTest& mayClimb,
                 const LookUpNote& lookUp) {
  return PathWalk(path, followLast, mayClimb, lookUp).Run();
}

}  // namespace kel
