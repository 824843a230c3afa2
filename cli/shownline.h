#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text of a script or a file for a terminal: what would control it is written as an escape
/// ("\x1b"). Tabs too, unless they are kept.
std::string Printable(std::string_view text, bool keepsTabs = false);

/// A source line to be shown, and what stands below it up to a place in it.
struct ShownLine {
  std::string text;
  std::string indent;
};

/// Shows a line with the place at `column`, from 1, or 0 for none. A line of more than `width`
/// columns is cut around the place, with "..." where something is missing.
ShownLine ShowLine(std::string_view line, size_t column, size_t width);
