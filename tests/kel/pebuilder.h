#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Puts small Windows executables together, byte by byte.
namespace pe {

inline void Put16(std::string& out, uint32_t value) {
  out += static_cast<char>(value);
  out += static_cast<char>(value >> 8);
}
inline void Put32(std::string& out, uint32_t value) {
  Put16(out, value);
  Put16(out, value >> 16);
}
inline void PadTo(std::string& out, size_t size) { out.resize(std::max(out.size(), size)); }
inline std::string Wide(std::string_view ascii) {
  std::string out;
  for (const char c : ascii) Put16(out, static_cast<unsigned char>(c));
  return out;
}

/// One block of a version resource: header, name, value and the blocks inside.
inline std::string Block(std::string_view name, std::string_view value, bool isText,
                         const std::vector<std::string>& inside = {}) {
  std::string body = Wide(name) + std::string(2, '\0');
  while ((body.size() + 6) % 4 != 0) body += '\0';
  body += value;
  for (const std::string& block : inside) {
    while ((body.size() + 6) % 4 != 0) body += '\0';
    body += block;
  }
  std::string out;
  Put16(out, static_cast<uint32_t>(body.size() + 6));
  Put16(out, static_cast<uint32_t>(isText ? value.size() / 2 : value.size()));
  Put16(out, isText ? 1 : 0);
  return out + body;
}
inline std::string String(std::string_view name, std::string_view text) {
  return Block(name, Wide(text) + std::string(2, '\0'), true);
}

using Strings = std::vector<std::pair<std::string, std::string>>;

/// A version resource with one table of strings; `translations` of language and code page.
inline std::string Version(std::string_view table, const Strings& strings,
                           const std::vector<std::pair<uint16_t, uint16_t>>& translations) {
  std::vector<std::string> blocks;
  for (const auto& [name, text] : strings) blocks.push_back(String(name, text));
  std::vector<std::string> parts = {
      Block("StringFileInfo", "", true, {Block(table, "", true, blocks)})};
  std::string list;
  for (const auto& [language, page] : translations) {
    Put16(list, language);
    Put16(list, page);
  }
  if (!list.empty()) {
    parts.push_back(Block("VarFileInfo", "", true, {Block("Translation", list, false)}));
  }
  std::string fixed;
  Put32(fixed, 0xFEEF04BD);
  PadTo(fixed, 52);
  return Block("VS_VERSION_INFO", fixed, false, parts);
}

/// An executable of one section at address 0x1000 that holds resources and imports.
inline std::string Image(std::string_view version, const std::vector<std::string>& imports,
                         bool is64) {
  constexpr uint32_t kBase = 0x1000;
  std::string section;
  if (!version.empty()) {
    for (const uint32_t level : {0U, 1U, 2U}) {  // type 16, name 1, language 1033
      PadTo(section, level * 24 + 14);
      Put16(section, 1);
      Put32(section, level == 0 ? 16 : level == 1 ? 1 : 1033);
      Put32(section, level == 2 ? 72 : 0x80000000U | (level + 1) * 24);
    }
    Put32(section, kBase + 88);
    Put32(section, static_cast<uint32_t>(version.size()));
    PadTo(section, 88);
    section += version;
  }
  while (section.size() % 4 != 0) section += '\0';
  const auto importsAt = static_cast<uint32_t>(section.size());
  std::string names;
  const auto namesAt = static_cast<uint32_t>(importsAt + (imports.size() + 1) * 20);
  for (const std::string& name : imports) {
    PadTo(section, section.size() + 12);
    Put32(section, kBase + namesAt + static_cast<uint32_t>(names.size()));
    Put32(section, 0);
    names += name + '\0';
  }
  PadTo(section, namesAt);
  section += names;

  std::string image = "MZ";
  PadTo(image, 60);
  Put32(image, 64);
  image += std::string("PE\0\0", 4);
  Put16(image, is64 ? 0x8664 : 0x14C);
  Put16(image, 1);
  PadTo(image, 64 + 20);
  const uint32_t optional = (is64 ? 112 : 96) + 16 * 8;
  Put16(image, optional);
  Put16(image, 2);
  std::string header;
  Put16(header, is64 ? 0x20B : 0x10B);
  PadTo(header, is64 ? 108 : 92);
  Put32(header, 16);
  Put32(header, 0);
  Put32(header, 0);
  Put32(header, imports.empty() ? 0 : kBase + importsAt);
  Put32(header, static_cast<uint32_t>(imports.size() * 20));
  Put32(header, version.empty() ? 0 : kBase);
  Put32(header, static_cast<uint32_t>(section.size()));
  PadTo(header, optional);
  image += header;
  image += std::string(".rsrc\0\0\0", 8);
  Put32(image, static_cast<uint32_t>(section.size()));
  Put32(image, kBase);
  Put32(image, static_cast<uint32_t>(section.size()));
  Put32(image, static_cast<uint32_t>(image.size() + 20));
  PadTo(image, image.size() + 16);
  return image + section;
}

}  // namespace pe
