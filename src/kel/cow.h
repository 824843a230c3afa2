#pragma once

#include <atomic>
#include <memory>

namespace kel {

/// A value that copies share until one of them writes. It may be one that is made when somebody
/// first looks at it.
///
/// Copies may live in different threads. Ownership is a flag, not the pointer's use count: a count
/// that another thread has just lowered says nothing about whether that thread's reads are over.
template <class T>
class Cow {
 public:
  /// Returns what a deferred value starts from; there for good, and never changed.
  using Source = const Cow& (*)();

  Cow() : value_(std::make_shared<T>()) {}
  explicit Cow(Source source) : source_(source), owned_(false) {}
  Cow(const Cow& other) : value_(other.value_), source_(other.source_), owned_(false) {
    other.Disown();
  }
  Cow& operator=(const Cow& other) {
    if (this == &other || SharesWith(other)) return *this;
    value_ = other.value_;
    source_ = other.source_;
    owned_.store(false, std::memory_order_relaxed);
    other.Disown();
    return *this;
  }
  ~Cow() = default;

  const T& Read() const {
    if (value_ == nullptr) [[unlikely]] {
      // Nobody owns it, so that threads which all look at it count nothing.
      const T& lasting = source_().Read();
      value_ = std::shared_ptr<T>(std::shared_ptr<void>(), const_cast<T*>(&lasting));
    }
    return *value_;
  }
  /// The value, made this object's own first. References from Read() are stale afterwards.
  T& Write() {
    if (!owned_.load(std::memory_order_relaxed)) {
      value_ = std::make_shared<T>(Read());
      owned_.store(true, std::memory_order_relaxed);
    }
    return *value_;
  }
  /// Whether a deferred value has been looked at; true for others.
  bool IsMade() const { return value_ != nullptr; }
  bool SharesWith(const Cow& other) const {
    return value_ == other.value_ && (value_ != nullptr || source_ == other.source_);
  }

 private:
  /// Writes nothing where there is nothing to write: threads copy from one value at the same time.
  void Disown() const {
    if (owned_.load(std::memory_order_relaxed)) owned_.store(false, std::memory_order_relaxed);
  }

  mutable std::shared_ptr<T> value_;  ///< null as long as the source has not been asked
  Source source_ = nullptr;
  mutable std::atomic<bool> owned_{true};
};

}  // namespace kel
