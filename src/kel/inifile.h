#pragma once

#include <cstdint>
#include <memory>

#include "kel/kelstring.h"

namespace kel {
class FilePolicy;
}

/// The contents of an INI file as they were when the object was made. Files are never written.
///
/// Objects are made for one use and not kept, so that an edit counts from the next use on; the text
/// is parsed again only when the file changed. Parsed files are shared by the whole process, safely
/// between threads. Under a policy, a file that scripts can replace is read only where they may
/// read, and never through a link that leads elsewhere.
///
/// Lines are "[section]" or "key = value"; names ignore ASCII case and the first of two equal keys
/// wins, also when a section stands in the file in several pieces. ";" and "#" begin a comment only
/// at the start of a line. White space around names and values is dropped, then one pair of double
/// quotes around the value. Line ends may be CR LF, and the file may begin with a byte-order mark
/// (UTF-16 is turned into UTF-8). Lines of any other shape are passed over; keys before the first
/// section belong to the section "". There is no limit on lengths, but a file above 16 MiB, or
/// anything that is no regular file, reads as if it was not there.
class IniFile {
 public:
  explicit IniFile(const KelString& path, const kel::FilePolicy* policy = nullptr);

  /// Whether there is a file to read.
  bool IsThere() const { return contents_ != nullptr; }
  /// The value, which may be empty, or `defaultValue` when the key is not there.
  KelString ReadString(const KelString& section, const KelString& key,
                       const KelString& defaultValue) const;
  /// The sign and decimal digits that begin the value, held within 32 bits; `defaultValue` when the
  /// key is not there or its value begins otherwise.
  int32_t ReadInteger(const KelString& section, const KelString& key, int32_t defaultValue) const;

 private:
  class Contents;
  class Cache;

  static std::shared_ptr<const Contents> Read(const KelString& path, const kel::FilePolicy* policy);
  const std::string* Find(const KelString& section, const KelString& key) const;

  /// Null when there is no file to read.
  std::shared_ptr<const Contents> contents_;
};
