#include "kel/kelstring.h"

#include <algorithm>

#include "kel/kelascii.h"
#include "kel/longstring.h"

std::string KelString::CopyOfLong(std::string_view text) { return kel::CopyOf(text); }

int KelString::Compare(std::string_view other, bool caseSensitive) const {
  return caseSensitive ? View().compare(other) : kel::CompareNoCase(View(), other);
}

KelString KelString::ToLower() const { return kel::Lowered(text_); }

KelString KelString::ToUpper() const { return kel::Uppered(text_); }

KelString KelString::Right(size_t count) const {
  return View().substr(text_.size() - std::min(count, text_.size()));
}

KelString KelString::Mid(size_t from, size_t count) const {
  return View().substr(std::min(from, text_.size()), count);
}

void KelString::Replace(std::string_view from, std::string_view to) {
  if (from.empty()) return;
  size_t hit = text_.find(from);
  if (hit == kNotFound) return;
  std::string result;
  size_t done = 0;
  for (; hit != kNotFound; hit = text_.find(from, done)) {
    result.append(text_, done, hit - done).append(to);
    done = hit + from.size();
  }
  result.append(text_, done);
  text_ = std::move(result);
}

KelString KelString::Trim() const { return kel::Trimmed(text_); }
