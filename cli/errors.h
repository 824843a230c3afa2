#pragma once

#include "tamber.h"

/// Shows errors on standard error: FILE:LINE: error NAME (CODE): message: detail, then the source
/// line with a mark under the place, notes and hints, then the calls that led there. An error that
/// is about no line has no LINE.
class ErrorDisplay {
 public:
  explicit ErrorDisplay(bool colored) : colored_(colored) {}
  /// As a context's diagnostic handler; `user` is the display.
  static void Show(const TamberDiagnostic& error, void* user);

 private:
  enum class Style { kPlain, kError, kMark };
  std::string Styled(Style style, const std::string& text) const;
  std::string Report(const TamberDiagnostic& error) const;

  bool colored_;
};
