#include "kel/dumpselection.h"

#include <algorithm>
#include <utility>

namespace kel {

DumpSelection::DumpSelection(KelString value) : value_(std::move(value)) {
  std::string& text = value_.Str();
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c == ',' || c == ';' || c == ':'; }, ' ');
}

std::vector<std::string_view> DumpSelection::Names() const {
  std::vector<std::string_view> names;
  const std::string_view text = value_.View();
  size_t begin = 0;
  while ((begin = text.find_first_not_of(' ', begin)) != std::string_view::npos) {
    const size_t end = std::min(text.find(' ', begin), text.size());
    names.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  return names;
}

void DumpSelection::AppendTitle(KelString& out, std::string_view title) const {
  out += "\r\n";
  out += title;
  if (!All()) out += " (limited by INI file settings) ";
  out += "\r\n";
}

}  // namespace kel
