#pragma once

#include <atomic>
#include <memory>

namespace kel {

/// A value that copies share until one of them writes.
///
/// Copies may live in different threads. Ownership is a flag, not the pointer's use count: a count
/// that another thread has just lowered says nothing about whether that thread's reads are over.
template <class T>
class Cow {
 public:
  Cow() : value_(std::make_shared<T>()) {}
  Cow(const Cow& other) : value_(other.value_), owned_(false) {
    other.owned_.store(false, std::memory_order_relaxed);
  }
  Cow& operator=(const Cow& other) {
    if (this == &other || value_ == other.value_) return *this;
    value_ = other.value_;
    owned_.store(false, std::memory_order_relaxed);
    other.owned_.store(false, std::memory_order_relaxed);
    return *this;
  }
  ~Cow() = default;

  const T& Read() const { return *value_; }
  /// The value, made this object's own first. References from Read() are stale afterwards.
  T& Write() {
    if (!owned_.load(std::memory_order_relaxed)) {
      value_ = std::make_shared<T>(*value_);
      owned_.store(true, std::memory_order_relaxed);
    }
    return *value_;
  }
  bool SharesWith(const Cow& other) const { return value_ == other.value_; }

 private:
  std::shared_ptr<T> value_;
  mutable std::atomic<bool> owned_{true};
};

}  // namespace kel
