#include "kel/gzip.h"

#include <zlib.h>

#include <new>
#include <string_view>
#include <vector>

#include "kel/fileio.h"
#include "kel/lazylibrary.h"
#include "kel/stop.h"

namespace kel {
namespace {

LazyLibrary zlib(KEL_SONAME_ZLIB);
KEL_LAZY(zlib, deflateInit2_);
KEL_LAZY(zlib, deflate);
KEL_LAZY(zlib, deflateEnd);
KEL_LAZY(zlib, inflateInit2_);
KEL_LAZY(zlib, inflate);
KEL_LAZY(zlib, inflateReset);
KEL_LAZY(zlib, inflateEnd);

constexpr size_t kBlock = size_t{128} * 1024;
constexpr int kGzipForm = 15 + 16;  // the largest window, gzip's header

/// One side of zlib's stream with the buffers on both ends.
class Stream {
 public:
  Stream(bool compress, const FileReader& source)
      : compress_(compress), source_(source), in_(kBlock), out_(kBlock) {
    const int result = compress ? deflateInit2(&z_, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzipForm, 8,
                                               Z_DEFAULT_STRATEGY)
                                : inflateInit2(&z_, kGzipForm);
    if (result != Z_OK) throw std::bad_alloc();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { compress_ ? deflateEnd(&z_) : inflateEnd(&z_); }

  /// Reads the next block when nothing is left of the last one.
  bool Fill() {
    if (z_.avail_in > 0 || ended_) return true;
    const int64_t count = source_.Read(in_.data(), in_.size());
    if (count < 0) return false;
    ended_ = static_cast<size_t>(count) < in_.size();
    z_.next_in = reinterpret_cast<Bytef*>(in_.data());
    z_.avail_in = static_cast<uInt>(count);
    return true;
  }
  /// One step; `produced` is good until the next one.
  int Step(std::string_view& produced) {
    CheckStop();
    z_.next_out = reinterpret_cast<Bytef*>(out_.data());
    z_.avail_out = static_cast<uInt>(out_.size());
    const uInt before = z_.avail_in;
    const int result =
        compress_ ? deflate(&z_, AtEnd() ? Z_FINISH : Z_NO_FLUSH) : inflate(&z_, Z_NO_FLUSH);
    taken_ += before - z_.avail_in;
    produced = {out_.data(), out_.size() - z_.avail_out};
    return result;
  }
  /// The whole source has been read, if not all of it used.
  bool AtEnd() const { return ended_; }
  bool IsDrained() const { return ended_ && z_.avail_in == 0; }
  uint64_t Taken() const { return taken_; }
  /// Begins the next member of a file that has several.
  bool NextMember() {
    taken_ = 0;
    return inflateReset(&z_) == Z_OK;
  }

 private:
  bool compress_;
  FileReader source_;
  bool ended_ = false;
  uint64_t taken_ = 0;
  std::vector<char> in_;
  std::vector<char> out_;
  z_stream z_{};
};

FileStatus Deflate(const FileReader& from, ReplacedFile& to, uint64_t& written) {
  Stream stream(true, from);
  int result = Z_OK;
  while (result != Z_STREAM_END) {
    if (!stream.Fill()) return FailedBySystem(FileStatus::Unreadable);
    std::string_view produced;
    result = stream.Step(produced);
    if (result == Z_STREAM_ERROR) return FileStatus::Failed;
    if (!to.Write(produced)) return FailedBySystem(FileStatus::Unwritable);
    written += produced.size();
  }
  return FileStatus::Ok;
}

FileStatus Inflate(const FileReader& from, ReplacedFile& to, uint64_t& written,
                   const InflateLimits& limits) {
  Stream stream(false, from);
  uint64_t member = 0;  // bytes that the present member has given
  while (true) {
    if (!stream.Fill()) return FailedBySystem(FileStatus::Unreadable);
    std::string_view produced;
    const int result = stream.Step(produced);
    member += produced.size();
    written += produced.size();
    if (member > limits.bytes && member / limits.ratio > stream.Taken()) {
      return FileStatus::TooLarge;
    }
    if (!to.Write(produced)) return FailedBySystem(FileStatus::Unwritable);
    if (result == Z_STREAM_END) {
      if (!stream.Fill()) return FailedBySystem(FileStatus::Unreadable);
      if (stream.IsDrained()) return FileStatus::Ok;
      member = 0;
      if (!stream.NextMember()) return FileStatus::Failed;
    } else if (result != Z_OK || (produced.empty() && stream.IsDrained())) {
      return FileStatus::Damaged;
    }
  }
}

/// What both directions have in common; `work` fills the file that takes the destination's name.
template <class Work>
PairStatus Repack(const Place& from, const Place& to, uint64_t& written, Work work) {
  written = 0;
  Descriptor source;
  uint64_t size = 0;
  FileStatus status = OpenRegular(from, source, size);
  if (status != FileStatus::Ok) return {status};
  ReplacedFile target;
  status = target.Open(to, ReplacedFile::Mode::Replace, CopiedPermissions(source.Get()));
  if (status != FileStatus::Ok) return {status, true};
  status = work(FileReader(source.Get(), size), target);
  if (status == FileStatus::Ok) return {target.Commit(), true};
  return {status, status == FileStatus::Unwritable};
}

}  // namespace

PairStatus CompressFile(const Place& from, const Place& to, uint64_t& written) {
  return Repack(from, to, written, [&](const FileReader& source, ReplacedFile& target) {
    return Deflate(source, target, written);
  });
}

PairStatus DecompressFile(const Place& from, const Place& to, uint64_t& written,
                          const InflateLimits& limits) {
  return Repack(from, to, written, [&](const FileReader& source, ReplacedFile& target) {
    return Inflate(source, target, written, limits);
  });
}

}  // namespace kel
