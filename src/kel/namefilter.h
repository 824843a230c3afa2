#pragma once

#include <bitset>
#include <string_view>

#include "kel/kelascii.h"

namespace kel {

/// Says of most names at once that a set does not hold them, without having the set. Case is
/// ignored.
class NameFilter {
 public:
  void Add(std::string_view name) { bits_.set(Place(name)); }
  /// False: certainly not added.
  bool MayHold(std::string_view name) const { return bits_.test(Place(name)); }

 private:
  /// A set of 300 names lets one of fifty others through.
  static constexpr size_t kBits = 16384;

  static size_t Place(std::string_view name) { return NoCaseHash()(name) % kBits; }

  std::bitset<kBits> bits_;
};

}  // namespace kel
