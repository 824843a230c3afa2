#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kel {

/// The blocks of a version resource: names in a tree, each with a value. Names are found without
/// regard to case.
class VersionInfo {
 public:
  /// Reads as much of the resource's bytes as makes sense.
  explicit VersionInfo(std::string_view resource);

  /// Whether the root block has a value.
  bool HasFixedInfo() const;
  /// The bytes that a key such as "\VarFileInfo\Translation" names; false when there is no entry.
  bool Query(std::string_view key, std::string_view& value) const;
  /// The text that a key such as "\StringFileInfo\040904e4\ProductVersion" names, in UTF-8.
  bool QueryText(std::string_view key, std::string& text) const;

  /// "%04x%04x" of each listed translation: language, code page. Where none is listed, the names of
  /// the tables of strings.
  std::vector<std::string> Languages() const;
  /// The version of the product: by the first listed translation, or of the usual one; "" when it
  /// has none. "," is given as ".".
  std::string VersionString() const;
  /// Where the strings of the first listed translation are.
  std::string StringPrefix() const;

 private:
  struct Block {
    std::string name;
    std::string_view value;
    bool isText = false;
    int32_t parent = -1;
  };
  void Parse(std::string_view bytes, int32_t parent, int depth);
  int32_t Find(std::string_view key) const;

  std::string resource_;
  std::vector<Block> blocks_;
};

/// Field `index` of a version such as "7.1", counted from 0; what is not there counts as 0.
int32_t VersionField(std::string_view version, uint32_t index);
/// Two neighbouring fields in one number, the first in the high 16 bits.
int32_t VersionPair(std::string_view version, uint32_t index);

}  // namespace kel
