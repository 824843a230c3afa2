#include "kel/versioninfo.h"

#include <algorithm>

#include "kel/bytes.h"
#include "kel/kelascii.h"
#include "kel/kelformat.h"
#include "kel/number.h"

namespace kel {
namespace {

constexpr size_t kMaxBlocks = 65536;
constexpr int kMaxDepth = 3;  // of blocks below the root
constexpr size_t kHeaderBytes = 6;

constexpr std::string_view kTranslationKey = "\\VarFileInfo\\Translation";
constexpr std::string_view kUsualPrefix = "\\StringFileInfo\\040904E4\\";
constexpr std::string_view kStringTables = "StringFileInfo";

uint16_t Get16(std::string_view bytes, size_t at) {
  return static_cast<uint16_t>(static_cast<unsigned char>(bytes[at]) |
                               static_cast<unsigned char>(bytes[at + 1]) << 8);
}

size_t Aligned(size_t at) { return (at + 3) & ~size_t{3}; }

/// UTF-16 bytes up to a NUL character, or all of them.
std::string_view UpToNul(std::string_view bytes) {
  for (size_t at = 0; at + 1 < bytes.size(); at += 2) {
    if (bytes[at] == 0 && bytes[at + 1] == 0) return bytes.substr(0, at);
  }
  return bytes.substr(0, bytes.size() & ~size_t{1});
}

std::string TranslationText(std::string_view value, size_t at) {
  return Format("%04x%04x", uint32_t{Get16(value, at)}, uint32_t{Get16(value, at + 2)});
}

}  // namespace

VersionInfo::VersionInfo(std::string_view resource) : resource_(resource) {
  Parse(resource_, -1, 0);
}

/// Reads a row of neighbouring blocks, and those inside each.
void VersionInfo::Parse(std::string_view bytes, int32_t parent, int depth) {
  size_t at = 0;
  while (at + kHeaderBytes <= bytes.size() && blocks_.size() < kMaxBlocks) {
    const size_t length = std::min<size_t>(Get16(bytes, at), bytes.size() - at);
    if (length < kHeaderBytes) return;  // would be read for ever
    const std::string_view block = bytes.substr(at, length);
    const bool isText = Get16(block, 4) == 1;
    const std::string_view name = UpToNul(block.substr(kHeaderBytes));
    const size_t valueAt = std::min(Aligned(kHeaderBytes + name.size() + 2), length);
    const size_t wanted = size_t{Get16(block, 2)} * (isText ? 2 : 1);  // texts count characters
    const size_t valueBytes = std::min(wanted, length - valueAt);
    const auto self = static_cast<int32_t>(blocks_.size());
    blocks_.push_back(
        {Utf16ToUtf8(name, false), block.substr(valueAt, valueBytes), isText, parent});
    const size_t inside = std::min(Aligned(valueAt + valueBytes), length);
    if (depth < kMaxDepth) Parse(block.substr(inside), self, depth + 1);
    if (parent < 0) return;  // there is one root
    at += Aligned(length);
  }
}

int32_t VersionInfo::Find(std::string_view key) const {
  if (blocks_.empty()) return -1;
  int32_t at = 0;
  while (!key.empty()) {
    const size_t end = std::min(key.find('\\'), key.size());
    const std::string_view part = key.substr(0, end);
    key.remove_prefix(std::min(end + 1, key.size()));
    if (part.empty()) continue;
    int32_t next = -1;
    for (size_t i = 0; i < blocks_.size() && next < 0; ++i) {
      if (blocks_[i].parent == at && EqualsNoCase(blocks_[i].name, part)) {
        next = static_cast<int32_t>(i);
      }
    }
    if (next < 0) return -1;
    at = next;
  }
  return at;
}

bool VersionInfo::HasFixedInfo() const { return !blocks_.empty() && !blocks_[0].value.empty(); }

bool VersionInfo::Query(std::string_view key, std::string_view& value) const {
  const int32_t at = Find(key);
  if (at < 0) return false;
  value = blocks_[static_cast<size_t>(at)].value;
  return true;
}

bool VersionInfo::QueryText(std::string_view key, std::string& text) const {
  const int32_t at = Find(key);
  if (at < 0 || !blocks_[static_cast<size_t>(at)].isText) return false;
  text = Utf16ToUtf8(UpToNul(blocks_[static_cast<size_t>(at)].value), false);
  return true;
}

std::vector<std::string> VersionInfo::Languages() const {
  std::vector<std::string> languages;
  std::string_view value;
  if (Query(kTranslationKey, value)) {
    for (size_t at = 0; at + 4 <= value.size(); at += 4) {
      languages.push_back(TranslationText(value, at));
    }
  }
  const int32_t tables = languages.empty() ? Find(kStringTables) : -1;
  for (const Block& block : blocks_) {
    if (tables > 0 && block.parent == tables) languages.push_back(block.name);
  }
  return languages;
}

std::string VersionInfo::StringPrefix() const {
  std::string_view value;
  if (!Query(kTranslationKey, value) || value.size() < 4) return std::string(kUsualPrefix);
  const std::string prefix = "\\StringFileInfo\\" + TranslationText(value, 0) + "\\";
  return prefix == "\\StringFileInfo\\00000000\\" ? std::string(kUsualPrefix) : prefix;
}

std::string VersionInfo::VersionString() const {
  std::string version;
  // The second key is what the format for it has always made of its prefix: it names no entry.
  if (!QueryText(StringPrefix() + "ProductVersion", version) &&
      !QueryText("%FileVersion", version) &&
      !QueryText(std::string(kUsualPrefix) + "ProductVersion", version)) {
    return {};
  }
  std::replace(version.begin(), version.end(), ',', '.');
  return version;
}

int32_t VersionField(std::string_view version, uint32_t index) {
  for (; index > 0; --index) {
    const size_t dot = version.find('.');
    if (dot == std::string_view::npos) return 0;
    version.remove_prefix(dot + 1);
  }
  version = version.substr(0, version.find('.'));
  while (!version.empty() && IsSpace(version.front())) version.remove_prefix(1);
  int64_t value = 0;
  ParseInt64Prefix(version, value);
  return static_cast<int32_t>(value);
}

int32_t VersionPair(std::string_view version, uint32_t index) {
  const auto high = static_cast<uint32_t>(VersionField(version, index));
  const auto low = static_cast<uint32_t>(VersionField(version, index + 1));
  return static_cast<int32_t>((high << 16) + low);
}

}  // namespace kel
