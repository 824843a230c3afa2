#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace kel {

/// Where a path ends.
struct PathEnd {
  /// Without links, "." and "..". When the end is not reached, the directory that the walk got to;
  /// "" when even the current directory is gone.
  std::string path;
  /// The path names something that is there, or a free name in a directory.
  bool isReached = false;
};

/// Told the directory that a ".." of the path itself leaves, unless nothing but ".." came before
/// it; false ends the walk there.
using ClimbTest = std::function<bool(std::string_view dir)>;

/// Told each directory in which a name is looked up, those that links lead through included.
using LookUpNote = std::function<void(std::string_view dir)>;

/// Follows a path as the system does, one name after the other, in time that grows with its length.
/// The last name may be missing; whether it is followed when it is a link is the caller's choice.
PathEnd WalkPath(const std::string& path, bool followLast, const ClimbTest& mayClimb,
                 const LookUpNote& lookUp = nullptr);

}  // namespace kel
