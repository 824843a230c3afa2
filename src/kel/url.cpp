#include "kel/url.h"

#include <algorithm>
#include <array>

#include "kel/curllib.h"
#include "kel/kelascii.h"
#include "kel/transfer.h"

namespace kel {
namespace {

struct CurlFree {
  void operator()(char* text) const { Curl()->free(text); }
};
using CurlText = std::unique_ptr<char, CurlFree>;

CURLUPart PartOf(Url::Part part) {
  switch (part) {
    case Url::Part::Scheme:
      return CURLUPART_SCHEME;
    case Url::Part::User:
      return CURLUPART_USER;
    case Url::Part::Password:
      return CURLUPART_PASSWORD;
    case Url::Part::Host:
      return CURLUPART_HOST;
    case Url::Part::Port:
      return CURLUPART_PORT;
    case Url::Part::Path:
      return CURLUPART_PATH;
    case Url::Part::Query:
      return CURLUPART_QUERY;
  }
  return CURLUPART_URL;
}

bool HoldsControl(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

/// The scheme in front of ":", in lower case; "" when there is none. One letter is a drive.
std::string SchemeOf(std::string_view text) {
  const size_t colon = text.find(':');
  if (colon == std::string_view::npos || colon < 2 || !IsAlpha(text[0])) return {};
  for (const char c : text.substr(0, colon)) {
    if (!IsAlnum(c) && c != '+' && c != '-' && c != '.') return {};
  }
  return Lowered(text.substr(0, colon));
}

constexpr std::array<std::string_view, 7> kServed = {"http", "https", "ftp", "ftps",
                                                     "sftp", "smb",   "smbs"};

/// Whether the system's library was built with this protocol.
bool IsServed(std::string_view scheme) {
  if (std::find(kServed.begin(), kServed.end(), scheme) == kServed.end()) return false;
  if (Curl() == nullptr) return false;
  const curl_version_info_data* info = Curl()->versionInfo(CURLVERSION_NOW);
  for (const char* const* name = info->protocols; *name != nullptr; ++name) {
    if (EqualsNoCase(*name, scheme)) return true;
  }
  return false;
}

bool DecodePercent(std::string_view text, std::string& out) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '%') {
      out += text[i];
      continue;
    }
    if (i + 2 >= text.size() || !IsHexDigit(text[i + 1]) || !IsHexDigit(text[i + 2])) return false;
    const int value = HexValue(text[i + 1]) * 16 + HexValue(text[i + 2]);
    if (value == 0) return false;
    out += static_cast<char>(value);
    i += 2;
  }
  return true;
}

/// The path behind "file:", which is of this machine or none of ours.
UrlKind ClassifyFileUrl(std::string_view rest, std::string& path) {
  if (rest.starts_with("//")) {
    rest.remove_prefix(2);
    const size_t slash = rest.find('/');
    if (slash == std::string_view::npos) return UrlKind::Malformed;
    const std::string_view host = rest.substr(0, slash);
    if (!host.empty() && !EqualsNoCase(host, "localhost")) return UrlKind::Malformed;
    rest.remove_prefix(slash);
  }
  path.clear();
  return rest.starts_with('/') && DecodePercent(rest, path) ? UrlKind::Path : UrlKind::Malformed;
}

}  // namespace

struct Url::Handle {
  CURLU* value = Curl() != nullptr ? Curl()->url() : nullptr;
  Handle() = default;
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() {
    if (value != nullptr) Curl()->urlCleanup(value);
  }
};

Url::Url(std::unique_ptr<Handle> handle) : handle_(std::move(handle)) {}
Url::Url(Url&& other) noexcept = default;
Url::~Url() = default;

std::optional<Url> Url::Parse(std::string_view text) {
  if (text.size() > kMaxUrlBytes || HoldsControl(text)) return std::nullopt;
  // The library would take what follows a third slash for the host.
  if (text.substr(std::min(text.find("://"), text.size())).starts_with(":///")) return std::nullopt;
  auto handle = std::make_unique<Handle>();
  const std::string copy(text);
  if (handle->value == nullptr || Curl()->urlSet(handle->value, CURLUPART_URL, copy.c_str(),
                                                 CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
    return std::nullopt;
  }
  Url url(std::move(handle));
  // A host is needed to go anywhere, and the path must not smuggle commands to the server.
  if (url.Get(Part::Host).empty()) return std::nullopt;
  std::string path;
  if (!DecodePercent(url.Get(Part::Path), path) || HoldsControl(path)) return std::nullopt;
  return url;
}

std::string Url::Get(Part part, bool decoded) const {
  char* text = nullptr;
  if (Curl()->urlGet(handle_->value, PartOf(part), &text, decoded ? CURLU_URLDECODE : 0) !=
      CURLUE_OK) {
    return {};
  }
  const CurlText owner(text);
  return text;
}

std::string Url::WithoutSecrets() const {
  const std::string port = Get(Part::Port);
  return Get(Part::Scheme) + "://" + Get(Part::Host) + (port.empty() ? "" : ":" + port) +
         Get(Part::Path);
}

std::string Url::WithPath(const std::string& path) const {
  CURLU* copy = Curl()->urlDup(handle_->value);
  Curl()->urlSet(copy, CURLUPART_PATH, path.c_str(), 0);
  Curl()->urlSet(copy, CURLUPART_QUERY, nullptr, 0);
  Curl()->urlSet(copy, CURLUPART_FRAGMENT, nullptr, 0);
  char* text = nullptr;
  const bool good = Curl()->urlGet(copy, CURLUPART_URL, &text, 0) == CURLUE_OK;
  const CurlText owner(text);
  Curl()->urlCleanup(copy);
  return good ? std::string(text) : std::string();
}

UrlKind ClassifyUrl(std::string_view text, std::string& path) {
  path = text;
  const std::string scheme = SchemeOf(text);
  if (scheme.empty()) return UrlKind::Path;
  if (scheme == "file") return ClassifyFileUrl(text.substr(5), path);
  const bool slashes = text.substr(scheme.size() + 1).starts_with("//");
  if (std::find(kServed.begin(), kServed.end(), scheme) == kServed.end()) {
    return slashes ? UrlKind::Unknown : UrlKind::Path;  // a colon may stand in a file's name
  }
  if (!IsServed(scheme)) return UrlKind::Unknown;
  return slashes && Url::Parse(text) ? UrlKind::Remote : UrlKind::Malformed;
}

std::string UrlWithoutSecrets(std::string_view url) {
  if (const auto parsed = Url::Parse(url)) return parsed->WithoutSecrets();
  // Not a URL, so nobody knows where a password would end: cut as much as could be one, which may
  // hold "?", "#" and "//", too.
  std::string text(url);
  const size_t at = text.rfind('@');
  if (at != std::string::npos) {
    const size_t scheme = SchemeOf(url).size();
    const size_t start = url.substr(scheme).starts_with("://") ? scheme + 3 : 0;
    text.erase(start, at + 1 - start);
  }
  return text.substr(0, text.find_first_of("?#"));
}

}  // namespace kel
