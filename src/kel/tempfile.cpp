#include "kel/tempfile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "kel/cipher.h"
#include "kel/fileio.h"
#include "kel/kelformat.h"
#include "kel/pathparser.h"

namespace kel {

std::string TemporaryDirectory() {
  const char* configured = ::getenv("TMPDIR");
  std::string dir = configured != nullptr && *configured != '\0' ? configured : "/tmp";
  while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
  return dir;
}

FileStatus CreateTemporary(const FilePolicy& policy, const std::string& dir,
                           const std::string& prefix, std::string& path) {
  for (int attempt = 0; attempt < 16; ++attempt) {
    path = JoinPath(dir, Format("%S%lx.tmp", prefix, RandomNonce()));
    const Place place = policy.Find(path, Access::Write, Links::Keep);
    if (!place.IsFound()) return FileStatus::Failed;
    const Descriptor file(
        ::openat(place.Dir(), place.Name(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (file.IsOpen()) return FileStatus::Ok;
    if (errno != EEXIST) return StatusOfErrno(errno, FileStatus::Unwritable);
  }
  return FileStatus::Failed;
}

Descriptor OpenNamelessFile() {
  const std::string dir = TemporaryDirectory();
  Descriptor file(::open(dir.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
  if (file.IsOpen()) return file;
  // A file system without nameless files: one whose name is taken away at once.
  std::string path;
  if (CreateTemporary(FilePolicy(), dir, "tamber", path) != FileStatus::Ok) return {};
  file = Descriptor(::open(path.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW));
  ::unlink(path.c_str());
  return file;
}

uint64_t FileLength(int descriptor) {
  struct stat info;
  return ::fstat(descriptor, &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

}  // namespace kel
