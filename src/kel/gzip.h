#pragma once

#include <cstdint>

#include "kel/filepolicy.h"
#include "kel/filestatus.h"

/// Files compressed as gzip does it.
namespace kel {

/// Where a compressed file stops being believed: it is refused once it has given more than `bytes`
/// and more than `ratio` times what it took to say so.
struct InflateLimits {
  uint64_t bytes = uint64_t{1} << 30;
  uint64_t ratio = 1000;
};

/// Both replace the destination only when the whole of it is written, and give its size. One that
/// is new has the source's permissions.
PairStatus CompressFile(const Place& from, const Place& to, uint64_t& written);
/// Damaged: not a gzip file, cut short, or not what was compressed. TooLarge: beyond the limits.
PairStatus DecompressFile(const Place& from, const Place& to, uint64_t& written,
                          const InflateLimits& limits = {});

}  // namespace kel
