#include "modules/fileaccess.h"

#include "kel/dirs.h"
#include "kel/fileio.h"
#include "kel/movedlinks.h"

namespace tamber {
namespace {

/// A path with what the system said about it. When there is no such file, the error says the rest.
std::string WithReason(int32_t code, std::string_view path) {
  const std::string reason = kel::TakeReason();
  return std::string(Call::Shown(path)) + (code == ERR_FILENOTFOUND ? std::string() : reason);
}

int32_t CodeOf(kel::FileStatus status) {
  switch (status) {
    case kel::FileStatus::Ok:
      return ERR_SUCCESS;
    case kel::FileStatus::Missing:
      return ERR_FILENOTFOUND;
    case kel::FileStatus::NotValid:
    case kel::FileStatus::Damaged:
      return ERR_FILENOTVALID;
    case kel::FileStatus::TooLarge:
      return ERR_STRINGTOOBIG;
    case kel::FileStatus::Exists:
      return ERR_FILECREATEFAIL;
    case kel::FileStatus::Unreadable:
      return ERR_FILEREADFAIL;
    case kel::FileStatus::Unwritable:
      return ERR_FILEWRITEFAIL;
    case kel::FileStatus::Same:
    case kel::FileStatus::Failed:
      break;
  }
  return ERR_FUNCFAILED;
}

}  // namespace

const kel::FilePolicy& PolicyOf(Call& call) { return call.Context().GetFilePolicy(); }

void FailRefused(Call& call, std::string_view what) {
  call.Fail(ERR_FUNCFAILED, "Refused by the host's file policy: " + std::string(Call::Shown(what)));
}

kel::Place PlaceOf(Call& call, std::string_view path, kel::Access access, kel::Links links) {
  kel::TakeReason();  // what an operation before this one has left
  kel::Place place = PolicyOf(call).Find(path, access, links);
  if (place.IsRefused()) FailRefused(call, path);
  return place;
}

bool HasFailed(const Call& call) { return call.HasFailed(); }

bool SucceededOr(Call& call, kel::FileStatus status, int32_t code, std::string_view path) {
  if (status == kel::FileStatus::Ok) return true;
  if (!HasFailed(call)) call.Fail(code, WithReason(code, path));
  return false;
}

bool Succeeded(Call& call, kel::FileStatus status, std::string_view path) {
  return SucceededOr(call, status, CodeOf(status), path);
}

bool MovePath(Call& call, std::string_view source, std::string_view target) {
  const kel::Place from = PlaceOf(call, source, kel::Access::Write, kel::Links::Keep);
  const kel::Place to = PlaceOf(call, target, kel::Access::Write, kel::Links::Keep);
  if (HasFailed(call)) return false;
  if (!kel::Exists(from)) {
    call.Fail(ERR_FILENOTFOUND, source);
    return false;
  }
  if (!kel::LinksStayAllowed(PolicyOf(call), from, to)) {
    FailRefused(call, std::string(source) + " is or holds a link that would lead outside");
    return false;
  }
  const kel::FileStatus status = kel::Move(from, to);
  const bool denied = status == kel::FileStatus::Exists || status == kel::FileStatus::Unwritable;
  return SucceededOr(call, status, denied ? ERR_FILECREATEFAIL : ERR_FUNCFAILED, target);
}

int32_t SizeResult(Call& call, uint64_t size, std::string_view path) {
  if (size <= INT32_MAX) return static_cast<int32_t>(size);
  call.Fail(ERR_VALUEOVERFLOW, path);
  return INT32_MAX;
}

ArrayResult TextArray(const std::vector<std::string>& texts) {
  ArrayResult result(TypeDesc::ArrayOf(TypeDesc::Of(Kind::String)));
  for (const std::string& text : texts) result.AppendText(text);
  return result;
}

}  // namespace tamber
