#include "kel/pathparser.h"

#include <algorithm>
#include <vector>

#include "kel/dirs.h"
#include "kel/filepolicy.h"
#include "kel/filestat.h"
#include "kel/kelascii.h"
#include "kel/longstring.h"
#include "kel/stop.h"

namespace {

constexpr std::string_view kSeparators = "/\\";

/// Length of the drive in front: 2 or 0.
size_t DriveLength(std::string_view path) {
  return path.size() >= 2 && kel::IsAlpha(path[0]) && path[1] == ':' ? 2 : 0;
}

KelString WithSeparator(std::string_view dir) {
  KelString result(dir);
  if (dir.empty() || kel::IsSeparator(dir.back())) return result;
  const bool onlyBackslashes =
      dir.find('\\') != std::string_view::npos && dir.find('/') == std::string_view::npos;
  result += onlyBackslashes ? '\\' : '/';
  return result;
}

}  // namespace

void PathParser::SetPath(const KelString& path) {
  const std::string text = path.Str();  // a copy: the path may be one of our own parts
  std::string_view rest = text;
  const size_t drive = DriveLength(rest);
  drive_ = rest.substr(0, drive);
  rest.remove_prefix(drive);
  const size_t separator = rest.find_last_of(kSeparators);
  const size_t dir = separator == std::string_view::npos ? 0 : separator + 1;
  dir_ = rest.substr(0, dir);
  SetFileName(rest.substr(dir));
}

void PathParser::SetDrive(const KelString& drive) {
  drive_ = drive;
  if (drive_.GetLength() == 1) drive_ += ':';
}

void PathParser::SetDir(const KelString& dir) { dir_ = WithSeparator(dir); }

void PathParser::SetDriveDir(const KelString& dir) {
  const KelString text = dir;
  const size_t drive = DriveLength(text);
  drive_ = text.Left(drive);
  SetDir(text.Mid(drive));
}

void PathParser::SetFileName(const KelString& name) {
  const KelString text = name;
  const size_t dot = text.View().rfind('.');
  // The names of the directory itself and of the one above are no extensions.
  const bool hasExt = dot != std::string_view::npos && text != "." && text != "..";
  root_ = hasExt ? text.Left(dot) : text;
  ext_ = hasExt ? text.Mid(dot) : KelString();
}

void PathParser::SetFileExt(const KelString& ext) {
  ext_ = ext.IsEmpty() || ext[0] == '.' ? ext : "." + ext;
}

namespace kel {
namespace {

/// Where a completed path starts: behind the drive, if any.
bool IsRooted(std::string_view path) { return !path.empty() && IsSeparator(path.front()); }

/// The parts of a path that are left when "." and ".." are gone.
std::vector<std::string_view> RemainingParts(std::string_view path, bool rooted) {
  std::vector<std::string_view> parts;
  const ByteSet separators(kSeparators);
  StopPoll poll(4096);
  size_t at = 0;
  while (at < path.size()) {
    poll.Step();
    const size_t end = separators.FindIn(path, at);
    const std::string_view part = path.substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    if (part != "..") {
      parts.push_back(part);
    } else if (!parts.empty() && parts.back() != "..") {
      parts.pop_back();
    } else if (!rooted) {
      parts.push_back(part);
    }
  }
  return parts;
}

}  // namespace

std::string SystemPath(std::string_view path) {
  std::string result(path);
  for (char& c : result) {
    if (c == '\\') c = '/';
  }
  return result;
}

bool PathIsRelative(std::string_view path) { return DriveLength(path) == 0 && !IsRooted(path); }

std::string ResolvePath(std::string_view path) {
  const size_t drive = DriveLength(path);
  const std::string_view rest = path.substr(drive);
  const bool rooted = IsRooted(rest);
  const auto parts = RemainingParts(rest, rooted);
  std::string result(path.substr(0, drive));
  if (rooted) result += '/';
  // "./c:x" names a file in the current directory and must not come out as one on a drive.
  if (result.empty() && !parts.empty() && DriveLength(parts.front()) != 0) result = "./";
  StopPoll poll(4096);
  for (size_t i = 0; i < parts.size(); ++i) {
    poll.Step();
    if (i > 0) result += '/';
    Append(result, parts[i]);
  }
  if (parts.empty()) return result.empty() && !path.empty() ? "." : result;
  if (IsSeparator(rest.back())) result += '/';
  return result;
}

std::string CompletePath(std::string_view path) {
  if (!PathIsRelative(path)) return ResolvePath(path);
  return ResolvePath(path.empty() ? CurrentDirectory() : JoinPath(CurrentDirectory(), path));
}

std::string JoinPath(std::string_view dir, std::string_view name) {
  std::string result(dir);
  if (!dir.empty() && !IsSeparator(dir.back())) result += '/';
  Append(result, name);
  return result;
}

std::string PathSearch(std::string_view name, std::string_view directories,
                       const FilePolicy& policy, bool& refused) {
  refused = false;
  if (name.empty()) return {};
  bool anyMissing = false;
  const auto isFile = [&](std::string_view path) {
    const Place place = policy.Find(path, Access::Read);
    refused = refused || place.IsRefused();
    const bool found = GetFileStat(place).IsFile();
    anyMissing = anyMissing || !(found || place.IsRefused());
    return found;
  };
  if (!PathIsRelative(name)) return isFile(name) ? ResolvePath(name) : std::string();
  while (!directories.empty()) {
    const size_t end = directories.find(';');
    const std::string_view dir = Trimmed(directories.substr(0, end));
    directories.remove_prefix(end == std::string_view::npos ? directories.size() : end + 1);
    if (dir.empty()) continue;
    const std::string candidate = JoinPath(dir, name);
    if (isFile(candidate)) {
      refused = false;
      return CompletePath(candidate);
    }
  }
  refused = refused && !anyMissing;
  return {};
}

}  // namespace kel
