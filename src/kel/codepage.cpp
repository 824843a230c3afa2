#include "kel/codepage.h"

#include <iconv.h>

#include <array>
#include <cerrno>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "kel/stop.h"

namespace kel {
namespace {

/// A converter that is closed when it leaves scope.
class Converter {
 public:
  Converter(const char* to, const char* from) : handle_(::iconv_open(to, from)) {}
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  ~Converter() {
    if (IsOpen()) ::iconv_close(handle_);
  }
  bool IsOpen() const { return handle_ != reinterpret_cast<iconv_t>(-1); }
  iconv_t Get() const { return handle_; }

 private:
  iconv_t handle_;
};

struct NumberedPage {
  int64_t number;
  const char* name;
};

/// Numbers whose pages the converter does not know as "CP" and the number.
constexpr std::array kNumberedPages = {
    NumberedPage{37, "CP037"},          NumberedPage{1200, "UTF-16LE"},
    NumberedPage{1201, "UTF-16BE"},     NumberedPage{10000, "MACINTOSH"},
    NumberedPage{12000, "UTF-32LE"},    NumberedPage{12001, "UTF-32BE"},
    NumberedPage{20127, "ASCII"},       NumberedPage{20866, "KOI8-R"},
    NumberedPage{20932, "EUC-JP"},      NumberedPage{21866, "KOI8-U"},
    NumberedPage{50220, "ISO-2022-JP"}, NumberedPage{51932, "EUC-JP"},
    NumberedPage{51949, "EUC-KR"},      NumberedPage{54936, "GB18030"},
    NumberedPage{65000, "UTF-7"},       NumberedPage{65001, "UTF-8"},
};

std::string NameOfNumber(int64_t number) {
  for (const NumberedPage& page : kNumberedPages) {
    if (page.number == number) return page.name;
  }
  if (number > 28590 && number <= 28606) return "ISO-8859-" + std::to_string(number - 28590);
  return "CP" + std::to_string(number);
}

bool IsNumber(std::string_view text) {
  for (const char c : text) {
    if (!IsDigit(c)) return false;
  }
  return !text.empty() && text.size() <= 6;
}

/// The converter takes more than names: "//" begins options that would let text be lost.
bool IsName(std::string_view text) {
  for (const char c : text) {
    if (!IsAlnum(c) && c != '-' && c != '_' && c != '.' && c != ':') return false;
  }
  return !text.empty() && text.size() <= 64;
}

}  // namespace

std::string CodePageName(std::string_view page) {
  const std::string_view text = Trimmed(page);
  constexpr size_t kLongestName = 256;
  if (text.size() > kLongestName || !IsName(text)) return {};
  int64_t number = 0;
  std::string name(text);
  if (IsNumber(text) && ParseInt64Prefix(text, number)) name = NameOfNumber(number);
  return Converter(name.c_str(), "UTF-8").IsOpen() ? name : std::string();
}

bool ConvertCodePage(std::string_view text, const std::string& from, const std::string& to,
                     std::string& out) {
  out.clear();
  const Converter converter(to.c_str(), from.c_str());
  if (!converter.IsOpen()) return false;
  char* in = const_cast<char*>(text.data());  // the interface's, it does not write there
  size_t left = text.size();
  std::array<char, 16384> buffer;
  bool flushing = false;
  while (true) {
    CheckStop();
    char* next = buffer.data();
    size_t room = buffer.size();
    const size_t result = flushing ? ::iconv(converter.Get(), nullptr, nullptr, &next, &room)
                                   : ::iconv(converter.Get(), &in, &left, &next, &room);
    const int error = errno;
    out.append(buffer.data(), buffer.size() - room);
    if (result == static_cast<size_t>(-1)) {
      if (error == E2BIG) continue;
      break;
    }
    // A result above 0 counts characters that were replaced by something similar.
    if (result != 0) break;
    if (flushing) return true;
    flushing = true;
  }
  out.clear();
  return false;
}

}  // namespace kel
