#include <climits>
#include <optional>

#include "context/contextstate.h"
#include "kel/dirs.h"
#include "kel/filecopy.h"
#include "kel/fileio.h"
#include "kel/tempfile.h"
#include "kel/transfer.h"
#include "kel/url.h"
#include "modules/ee_file_bodies.h"

namespace tamber::files {
namespace {

/// One side of a copy: a path of this machine or a URL.
struct Endpoint {
  std::string text;  // the path, or the URL with its credentials
  bool isRemote = false;
};

void FailNet(Call& call, NetError error, std::string_view url) {
  call.Fail(CodeOf(call, error), kel::UrlWithoutSecrets(url));
}

/// `local` is the file of this machine that takes part, if one does.
bool Transferred(Call& call, kel::TransferStatus status, const std::string& url,
                 const std::string& local = {}) {
  using Status = kel::TransferStatus;
  const std::string shown = kel::UrlWithoutSecrets(url);
  switch (status) {
    case Status::Ok:
      return true;
    case Status::Connect:
      call.Fail(CodeOf(call, NetError::Connect), shown);
      break;
    case Status::Login:
      call.Fail(CodeOf(call, NetError::Login), shown);
      break;
    case Status::Password:
      call.Fail(CodeOf(call, NetError::Password), shown);
      break;
    case Status::ShareName:
      call.Fail(CodeOf(call, NetError::ShareName), shown);
      break;
    case Status::GetFile:
      call.Fail(CodeOf(call, NetError::GetFile), shown);
      break;
    case Status::PutFile:
      call.Fail(CodeOf(call, NetError::PutFile), shown);
      break;
    case Status::GetLimit:
      call.Fail(CodeOf(call, NetError::GetFile), "Beyond the host's limits: " + shown);
      break;
    case Status::PutLimit:
      call.Fail(CodeOf(call, NetError::PutFile), "Beyond the host's limits: " + shown);
      break;
    case Status::DelFile:
      call.Fail(CodeOf(call, NetError::DelFile), shown);
      break;
    case Status::BadFormat:
      call.Fail(CodeOf(call, NetError::BadFormat), shown);
      break;
    case Status::BadProtocol:
      call.Fail(CodeOf(call, NetError::BadProtocol), shown);
      break;
    case Status::BadPath:
      call.Fail(CodeOf(call, NetError::BadPath), shown);
      break;
    case Status::Exists:
      call.Fail(ERR_FILECREATEFAIL, shown);
      break;
    case Status::LocalRead:
      call.Fail(ERR_FILEREADFAIL, local);
      break;
    case Status::LocalWrite:
      call.Fail(ERR_FILEWRITEFAIL, local);
      break;
  }
  return false;
}

const kel::TransferLimits& LimitsOf(Call& call) {
  return call.Context().State().config.transferLimits;
}

/// Finds out what a script means by a text; what it cannot mean, or may not, sets the error.
std::optional<Endpoint> EndpointOf(Call& call, std::string_view text) {
  // Neither a path nor a URL is that long, and what begins it means as little.
  text = text.substr(0, kel::kMaxUrlBytes + 1);
  std::string path;
  switch (kel::ClassifyUrl(text, path)) {
    case kel::UrlKind::Path:
      return Endpoint{std::move(path), false};
    case kel::UrlKind::Malformed:
      FailNet(call, NetError::BadFormat, text);
      return std::nullopt;
    case kel::UrlKind::Unknown:
      FailNet(call, NetError::BadProtocol, text);
      return std::nullopt;
    case kel::UrlKind::Remote:
      break;
  }
  if (PolicyOf(call).AllowsNetwork()) return Endpoint{std::string(text), true};
  FailRefused(call, "no network, " + kel::UrlWithoutSecrets(text));
  return std::nullopt;
}

/// What a status of the file that is to be written means: without it, its directory is missing.
bool CanBeMade(Call& call, kel::FileStatus status, std::string_view target) {
  const bool noDirectory = status == kel::FileStatus::Missing;
  return noDirectory ? SucceededOr(call, status, ERR_FILECREATEFAIL, target)
                     : Succeeded(call, status, target);
}

bool CopyHere(Call& call, const std::string& source, const std::string& target, bool force) {
  const kel::Place from = PlaceOf(call, source, kel::Access::Read);
  const kel::Place to = PlaceOf(call, target, kel::Access::Write);
  if (HasFailed(call)) return false;
  const kel::PairStatus status = kel::CopyFile(from, to, force);
  return status.isSecond ? CanBeMade(call, status, target) : Succeeded(call, status, source);
}

bool Fetch(Call& call, const std::string& url, const std::string& target, bool force) {
  const kel::Place to = PlaceOf(call, target, kel::Access::Write);
  if (HasFailed(call)) return false;
  kel::ReplacedFile file;
  const auto mode = force ? kel::ReplacedFile::Mode::Force : kel::ReplacedFile::Mode::CreateNew;
  return CanBeMade(call, file.Open(to, mode), target) &&
         Transferred(call, kel::Download(url, file.Get(), LimitsOf(call)), url, target) &&
         CanBeMade(call, file.Commit(), target);
}

/// A file for what passes through this machine.
kel::Descriptor OpenStage(Call& call) {
  kel::Descriptor file = kel::OpenNamelessFile();
  if (!file.IsOpen()) call.Fail(ERR_FILECREATEFAIL, kel::TemporaryDirectory());
  return file;
}

/// Puts a copy with a known size in the place of an open file.
bool Stage(Call& call, kel::Descriptor& file, uint64_t& size, const std::string& path) {
  kel::Descriptor stage = OpenStage(call);
  kel::FileStatus status = kel::FileStatus::Ok;
  if (!stage.IsOpen()) return false;
  if (!kel::CopyContents(file.Get(), size, stage.Get(), status)) {
    return Succeeded(call, status, path);
  }
  size = kel::FileLength(stage.Get());
  file = std::move(stage);
  return true;
}

/// Whether nothing stands in the way of a file at the URL.
bool IsFree(Call& call, const std::string& url) {
  return Transferred(call, kel::CheckFree(url, LimitsOf(call)), url);
}

bool Send(Call& call, const std::string& source, const std::string& url, bool force) {
  const kel::Place from = PlaceOf(call, source, kel::Access::Read);
  kel::Descriptor file;
  uint64_t size = 0;
  if (!Succeeded(call, kel::OpenRegular(from, file, size), source)) return false;
  // A server is told the size first, which a file that is made up as it is read does not know.
  if (size == 0 && !Stage(call, file, size, source)) return false;
  return (force || IsFree(call, url)) &&
         Transferred(call, kel::Upload(file.Get(), size, url, force, LimitsOf(call)), url, source);
}

bool Relay(Call& call, const std::string& source, const std::string& target, bool force) {
  const kel::Descriptor file = OpenStage(call);
  if (!file.IsOpen() || !(force || IsFree(call, target))) return false;
  const std::string local = kel::TemporaryDirectory();
  if (!Transferred(call, kel::Download(source, file.Get(), LimitsOf(call)), source, local))
    return false;
  const uint64_t size = kel::FileLength(file.Get());
  return Transferred(call, kel::Upload(file.Get(), size, target, force, LimitsOf(call)), target,
                     local);
}

bool CopyBetween(Call& call, const Endpoint& from, const Endpoint& to, bool force) {
  if (from.isRemote && to.isRemote) return Relay(call, from.text, to.text, force);
  if (from.isRemote) return Fetch(call, from.text, to.text, force);
  if (to.isRemote) return Send(call, from.text, to.text, force);
  return CopyHere(call, from.text, to.text, force);
}

bool DeleteAt(Call& call, const Endpoint& file, bool force) {
  if (file.isRemote) {
    return Transferred(call, kel::DeleteRemote(file.text, LimitsOf(call)), file.text);
  }
  const kel::Place place = PlaceOf(call, file.text, kel::Access::Write, kel::Links::Keep);
  const kel::FileStatus status = kel::DeleteFile(place, force);
  const bool isProtected = status == kel::FileStatus::Unwritable;
  return isProtected ? SucceededOr(call, status, ERR_FUNCFAILED, file.text)
                     : Succeeded(call, status, file.text);
}

/// Deletes the copy that a move has made of a file which then had to stay.
void Withdraw(Call& call, const Endpoint& copy) {
  if (copy.isRemote) {
    kel::DeleteRemote(copy.text, LimitsOf(call));
  } else {
    kel::DeleteFile(PolicyOf(call).Find(copy.text, kel::Access::Write, kel::Links::Keep), true);
  }
}

/// The second half of a move from a server.
bool DeleteMoved(Call& call, const Endpoint& source, const Endpoint& copy) {
  const kel::TransferStatus status = kel::DeleteRemote(source.text, LimitsOf(call));
  const bool isUnsure = status == kel::TransferStatus::Connect;
  // Without an answer, the copy may be all that is left.
  if (status != kel::TransferStatus::Ok && !isUnsure) Withdraw(call, copy);
  return Transferred(call, status, source.text);
}

}  // namespace

bool CopyForced(Call& call, std::string_view source, std::string_view target, bool force) {
  const auto from = EndpointOf(call, source);
  if (!from) return false;
  const auto to = EndpointOf(call, target);
  return to && CopyBetween(call, *from, *to, force);
}

bool Copy(Call& call, std::string_view source, std::string_view target) {
  return CopyForced(call, source, target, false);
}

bool Move(Call& call, std::string_view source, std::string_view target) {
  const auto from = EndpointOf(call, source);
  if (!from) return false;
  const auto to = EndpointOf(call, target);
  if (!to) return false;
  if (!from->isRemote && !to->isRemote) return MovePath(call, from->text, to->text);
  if (from->isRemote && to->isRemote && kel::IsSameServer(from->text, to->text)) {
    return IsFree(call, to->text) &&
           Transferred(call, kel::RenameRemote(from->text, to->text, LimitsOf(call)), from->text);
  }
  // A source that cannot be deleted afterwards is not copied for nothing.
  if (from->isRemote && !kel::CanDeleteRemote(from->text)) {
    return Transferred(call, kel::TransferStatus::DelFile, from->text);
  }
  if (!from->isRemote) PlaceOf(call, from->text, kel::Access::Write, kel::Links::Keep);
  if (HasFailed(call) || !CopyBetween(call, *from, *to, false)) return false;
  return from->isRemote ? DeleteMoved(call, *from, *to) : DeleteAt(call, *from, true);
}

bool DeleteForced(Call& call, std::string_view url, bool force) {
  const auto file = EndpointOf(call, url);
  return file && DeleteAt(call, *file, force);
}

bool Delete(Call& call, std::string_view url) { return DeleteForced(call, url, false); }

bool Create(Call& call, std::string_view path) {
  const kel::Place place = PlaceOf(call, path, kel::Access::Write);
  if (HasFailed(call)) return false;
  const kel::FileStatus status = kel::CreateFile(place);
  // One that is there already is what was wanted, unless it is no file.
  if (status == kel::FileStatus::Exists && kel::GetFileStat(place).IsFile()) return true;
  return SucceededOr(call, status, ERR_FILECREATEFAIL, path);
}

std::string CreateTemp(Call& call, std::string_view prefix) {
  prefix = prefix.substr(0, PATH_MAX);
  if (prefix.find_first_of(std::string_view("/\\\0", 3)) != std::string_view::npos) {
    call.Fail(ERR_INVALIDPARAM, prefix);
    return {};
  }
  const std::string dir = kel::TemporaryDirectory();
  if (!PolicyOf(call).Allows(dir, kel::Access::Write)) FailRefused(call, dir);
  std::string path;
  if (HasFailed(call)) return path;
  const kel::FileStatus status =
      kel::CreateTemporary(PolicyOf(call), dir, std::string(prefix), path);
  return SucceededOr(call, status, ERR_FILECREATEFAIL, dir) ? path : std::string();
}

}  // namespace tamber::files
