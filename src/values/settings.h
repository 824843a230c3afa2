#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "kel/inifile.h"

namespace tamber {

enum class IniSection : uint8_t { Config, Limits, Debug, RunErrors, Output };

/// The keys of inikeys.def.
enum class IniKey : uint8_t {
#define INI_KEY(key, section, value, meaning) key,
#include "values/inikeys.def"
#undef INI_KEY
};

struct IniKeyInfo {
  std::string_view name;
  IniSection section;
  std::string_view value;  ///< when the file does not say
  std::string_view meaning;
};

/// All keys, in the order of IniKey.
std::span<const IniKeyInfo> IniKeys();

/// What the INI file of a context says at one moment. There is no other way to a key, so that none
/// is missing in the table.
class Settings {
 public:
  /// See IniFile.
  Settings(const KelString& iniPath, const kel::FilePolicy& policy) : file_(iniPath, &policy) {}

  /// Whether there is a file that could say something.
  bool AreThere() const { return file_.IsThere(); }
  /// Output keys need the name of their section.
  KelString Text(IniKey key, const KelString& section = {}) const;
  int32_t Integer(IniKey key, const KelString& section = {}) const;
  /// With another value for when the file does not say.
  KelString TextOr(IniKey key, const KelString& otherwise, const KelString& section = {}) const;
  int32_t IntegerOr(IniKey key, int32_t otherwise, const KelString& section = {}) const;

 private:
  IniFile file_;
};

}  // namespace tamber
