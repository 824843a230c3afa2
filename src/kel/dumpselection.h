#pragma once

#include <string_view>
#include <vector>

#include "kel/kelstring.h"

namespace kel {

/// Which entries a diagnostic dump shows, as an INI value says: nothing for an empty value, all of
/// them for one with a "*", else the entries that it names, separated by ",", ";", ":" or blanks.
class DumpSelection {
 public:
  explicit DumpSelection(KelString value);

  bool IsEmpty() const { return value_.IsEmpty(); }
  bool All() const { return value_.Find("*") != KelString::kNotFound; }
  /// The names, in the order of the value. They view this object.
  std::vector<std::string_view> Names() const;
  /// Appends the line that heads the dump; it says when the dump shows only some entries.
  void AppendTitle(KelString& out, std::string_view title) const;

 private:
  KelString value_;
};

}  // namespace kel
