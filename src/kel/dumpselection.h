#pragma once

#include <string_view>
#include <vector>

#include "kel/kelstring.h"

namespace kel {

/// Which entries a diagnostic dump shows: those that a text names, separated by ",", ";", ":" or
/// blanks, or all of them when it holds a "*" or nothing.
class DumpSelection {
 public:
  explicit DumpSelection(KelString value);

  bool All() const { return value_.IsEmpty() || value_.Find("*") != KelString::kNotFound; }
  /// The names, in the order of the value. They view this object.
  std::vector<std::string_view> Names() const;
  /// Appends the line that heads the dump; it says when the dump shows only some entries.
  void AppendTitle(KelString& out, std::string_view title) const;

 private:
  KelString value_;
};

}  // namespace kel
