#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "context/handletable.h"
#include "context/tambctxt.h"
#include "kel/filepolicy.h"
#include "kel/filestat.h"
#include "kel/filestatus.h"
#include "modules/builtin.h"

/// What the directory and the file module share: paths through the host's policy, statuses as error
/// codes, handles by kind.
namespace tamber {

/// The policy that the context's host has set.
const kel::FilePolicy& PolicyOf(Call& call);

/// Where a path leads; a path that the policy refuses sets the error, and the place is not found.
kel::Place PlaceOf(Call& call, std::string_view path, kel::Access access,
                   kel::Links links = kel::Links::Follow);
/// Whether the call has failed already: what was refused is not reported as missing, too.
bool HasFailed(const Call& call);
void FailRefused(Call& call, std::string_view what);

/// Reports what a status other than Ok means, with the path as text; true for Ok.
bool Succeeded(Call& call, kel::FileStatus status, std::string_view path);
/// The same with one error code for every failure.
bool SucceededOr(Call& call, kel::FileStatus status, int32_t code, std::string_view path);

/// Renames or moves a file or a directory: `DirMove` and `FileMove` are one.
bool MovePath(Call& call, std::string_view source, std::string_view target);

/// What a script holds of a text: an integer, or the largest with error 113 when it does not fit.
int32_t SizeResult(Call& call, uint64_t size, std::string_view path);

/// An array of strings as a result.
ArrayResult TextArray(const std::vector<std::string>& texts);

/// A number that stands for an object of the context, as the argument and the result of a built-in.
template <class T>
Handle OpenHandle(Call& call, std::unique_ptr<T> object) {
  return {call.Context().Handles().Add(std::move(object), &T::kTypeName), T::kTypeName};
}
/// The object, or null with error 107.
template <class T>
T* ObjectOf(Call& call, Handle handle) {
  T* object = call.Context().Handles().Find<T>(handle.id, &T::kTypeName);
  if (object == nullptr) call.Fail(ERR_BADHANDLE, {});
  return object;
}

}  // namespace tamber
