#pragma once

#include <utility>

#include "kel/export.h"

namespace kel {

/// Owns a file descriptor and closes it when it leaves scope.
class TAMBER_API Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int value) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.Release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() { Close(); }

  int Get() const { return value_; }
  bool IsOpen() const { return value_ >= 0; }
  int Release() { return std::exchange(value_, -1); }
  /// False when the system reports an error that it had kept back until now.
  bool Close();

 private:
  int value_ = -1;
};

}  // namespace kel
