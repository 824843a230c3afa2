#include "kel/nearestname.h"

#include <algorithm>
#include <array>

#include "kel/kelascii.h"

namespace kel {

NearestName::NearestName(std::string_view written)
    : written_(written.substr(0, kLongest + 1)),
      // One letter in three may be wrong, and none of one or two.
      nearest_(written.size() > kLongest
                   ? 0
                   : static_cast<uint32_t>(std::min<size_t>(written.size() / 3, 3)) + 1) {}

void NearestName::Offer(std::string_view name) {
  const size_t longer = std::max(name.size(), written_.size());
  const size_t shorter = std::min(name.size(), written_.size());
  if (longer - shorter >= nearest_ || ++offers_ > kMostOffers) return;
  const uint32_t distance = Distance(name);
  if (distance == 0 || distance >= nearest_) return;
  nearest_ = distance;
  found_ = name;
}

/// Row by row, with the two rows before: a swap of neighbours counts once.
uint32_t NearestName::Distance(std::string_view name) const {
  using Row = std::array<uint32_t, kLongest + 1>;
  Row rows[3];
  for (size_t j = 0; j <= written_.size(); ++j) rows[0][j] = static_cast<uint32_t>(j);
  const auto same = [&](size_t i, size_t j) {
    return ToLower(name[i - 1]) == ToLower(written_[j - 1]);
  };
  for (size_t i = 1; i <= name.size(); ++i) {
    Row& row = rows[i % 3];
    const Row& above = rows[(i + 2) % 3];
    row[0] = static_cast<uint32_t>(i);
    for (size_t j = 1; j <= written_.size(); ++j) {
      row[j] = std::min({above[j] + 1, row[j - 1] + 1, above[j - 1] + (same(i, j) ? 0U : 1U)});
      const bool swapped = i > 1 && j > 1 && same(i, j - 1) && same(i - 1, j);
      if (swapped) row[j] = std::min(row[j], rows[(i + 1) % 3][j - 2] + 1);
    }
  }
  return rows[name.size() % 3][written_.size()];
}

}  // namespace kel
