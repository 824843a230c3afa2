#include "kel/storeaddress.h"

#include <algorithm>

#include "kel/kelascii.h"
#include "kel/number.h"

namespace kel {
namespace {

constexpr std::string_view kMark = "://";

/// The length of "kind" in "kind:..."; 0 when the text is no address. One letter is a drive.
size_t KindLength(std::string_view text) {
  const size_t end = text.find(':');
  if (end == std::string_view::npos || end < 2) return 0;
  const auto belongs = [](char c) { return IsAlnum(c) || c == '+' || c == '-' || c == '.'; };
  return std::all_of(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), belongs) ? end
                                                                                             : 0;
}

/// Everything before it are user and password: neither hosts nor databases have an "@".
size_t HostBegin(std::string_view text) {
  const size_t at = text.rfind('@');
  return at == std::string_view::npos ? 0 : at + 1;
}

std::string Decoded(std::string_view text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool isCode =
        text[i] == '%' && i + 2 < text.size() && IsHexDigit(text[i + 1]) && IsHexDigit(text[i + 2]);
    if (isCode) {
      out += static_cast<char>(HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

void ReadCredentials(std::string_view text, ServerAddress& address) {
  const size_t colon = text.find(':');
  address.user = Decoded(text.substr(0, colon));
  if (colon != std::string_view::npos) address.password = Decoded(text.substr(colon + 1));
}

bool ReadPort(std::string_view text, int& port) {
  int64_t number = 0;
  const bool isNumber = !text.empty() && text.size() <= 5 &&
                        std::all_of(text.begin(), text.end(), [](char c) { return IsDigit(c); });
  if (!isNumber || !ParseInt64Prefix(text, number) || number < 1 || number > 65535) return false;
  port = static_cast<int>(number);
  return true;
}

bool IsHostName(std::string_view host) {
  return std::all_of(host.begin(), host.end(), [](char c) {
    return IsAlnum(c) || std::string_view(".-_:%").find(c) != std::string_view::npos;
  });
}

}  // namespace

bool IsStoreAddress(std::string_view text) { return KindLength(text) != 0; }

std::string ShownStoreAddress(std::string_view text) {
  const size_t kind = KindLength(text);
  if (kind == 0) return std::string(text);
  const std::string shown(text.substr(0, kind));
  if (!text.substr(kind).starts_with(kMark)) return shown + ":...";
  std::string_view host = text.substr(kind + kMark.size());
  host.remove_prefix(HostBegin(host));
  host = host.substr(0, host.find_first_of("?#"));
  // Behind a user whose host was forgotten stands a password where the port should be.
  const std::string_view server = host.substr(0, host.find('/'));
  const size_t colon = server.find(':');
  int port = 0;
  const bool isOdd = colon != std::string_view::npos && !server.starts_with('[') &&
                     !ReadPort(server.substr(colon + 1), port);
  return shown + std::string(kMark) + std::string(isOdd ? host.substr(0, colon) : host);
}

std::string ParseServerAddress(std::string_view text, ServerAddress& address) {
  const size_t length = KindLength(text);
  const std::string kind = Lowered(text.substr(0, length));
  if ((kind != "redis" && kind != "rediss") || !text.substr(length).starts_with(kMark)) {
    return "unknown kind of session store; an address begins with redis:// or rediss://";
  }
  address.isSecure = kind == "rediss";
  text.remove_prefix(length + kMark.size());
  const size_t begin = HostBegin(text);
  if (begin != 0) ReadCredentials(text.substr(0, begin - 1), address);
  text.remove_prefix(begin);
  const size_t slash = text.find('/');
  if (slash != std::string_view::npos && slash + 1 < text.size()) {
    address.database = text.substr(slash + 1);
  }
  std::string_view host = text.substr(0, slash);
  const size_t colon = host.rfind(':');
  if (colon != std::string_view::npos && host.find(']', colon) == std::string_view::npos) {
    if (!ReadPort(host.substr(colon + 1), address.port)) return "bad port in the address";
    host = host.substr(0, colon);
  }
  if (host.size() > 1 && host.front() == '[' && host.back() == ']') {
    host = host.substr(1, host.size() - 2);
  }
  if (!IsHostName(host)) return "bad host in the address";
  if (!host.empty()) address.host = host;
  return {};
}

}  // namespace kel
