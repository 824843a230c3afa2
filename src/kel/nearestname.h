#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kel {

/// Looks among names for the one that somebody may have meant who wrote another: few letters
/// wrong, missing, too many or swapped. Letters match without regard to case. Of names that are
/// equally near the first one wins.
class NearestName {
 public:
  explicit NearestName(std::string_view written);
  void Offer(std::string_view name);
  /// "" when no name is near enough.
  const std::string& Found() const { return found_; }

 private:
  static constexpr size_t kLongest = 40;
  /// So many are looked at: a script may declare any number.
  static constexpr uint32_t kMostOffers = 20000;

  uint32_t Distance(std::string_view name) const;

  std::string written_;
  std::string found_;
  uint32_t nearest_;  ///< what a name must stay below
  uint32_t offers_ = 0;
};

}  // namespace kel
