#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "kel/export.h"

namespace tamber {

class SharedCredits;

/// The count of references to something that never changes and that threads share.
class SharedCount {
 public:
  TAMBER_API SharedCount();
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;

 protected:
  using Destroy = void (*)(const SharedCount*);

  ~SharedCount() = default;
  /// From now on the object lives as long as the process and is not counted. Only before it is
  /// shared.
  void KeepForever() { slot_ = kForever; }
#ifdef TAMBER_INSIDE
  inline void Retain(Destroy destroy) const;
  inline void Release(Destroy destroy) const;
#else
  void Retain(Destroy destroy) const { RetainForHost(destroy); }
  void Release(Destroy destroy) const { ReleaseForHost(destroy); }
#endif

 private:
  friend class SharedCredits;
  static constexpr uint16_t kForever = UINT16_MAX;

  /// What a thread has in hand is not seen from outside of the library.
  TAMBER_API void RetainForHost(Destroy destroy) const;
  TAMBER_API void ReleaseForHost(Destroy destroy) const;
  void RetainSlowly(Destroy destroy) const;
  void ReleaseSlowly(Destroy destroy) const;
  void Count(int32_t more) const { refs_.fetch_add(more, std::memory_order_relaxed); }
  void Discount(int32_t fewer, Destroy destroy) const;

  mutable std::atomic<int32_t> refs_{1};
  uint16_t slot_;  ///< where a thread keeps its references
};

/// References that a thread has in hand for objects that it uses often. They were counted at once,
/// so that taking one and giving it back writes memory of the thread alone: threads that run the
/// same program would otherwise all write to the counts of its types and names.
class SharedCredits {
 public:
  /// Gives all references of this thread back when it made objects since it last did so: what an
  /// earlier script declared goes before the next one is compiled.
  static void GiveBackAfterMaking();

 private:
  friend class SharedCount;
  friend struct SharedCreditsOwner;

  static constexpr uint32_t kSlots = 1024;
  /// So many are counted at once, and so many are given back when there are too many.
  static constexpr int32_t kBatch = 1 << 13;
  static constexpr int32_t kMost = 2 * kBatch;
  /// After so many uses of others that share its slot, an object gives way.
  static constexpr uint32_t kPatience = 16;

  struct Credit {
    const SharedCount* object = nullptr;  ///< null when the slot is free
    SharedCount::Destroy destroy = nullptr;
    /// References in hand. While there is one, the object lives; without one, another object may
    /// have come to be in its place.
    int32_t count = 0;
    uint32_t missed = 0;
  };

  static SharedCredits* Begin();
  /// An object is in its slot or, where the long way looks, in another one.
  static std::array<uint32_t, 2> SlotsOf(const SharedCount& object) {
    return {object.slot_, object.slot_ ^ (kSlots / 2)};
  }
  /// Null when there is none for the object.
  Credit* Find(const SharedCount& object);
  Credit* Claim(const SharedCount& object);
  void GiveBack();
  static void GiveBack(Credit& credit);

  Credit credits_[kSlots];
  uint16_t used_[kSlots];  ///< the slots that are not free
  uint32_t usedCount_ = 0;
  uint16_t nextSlot_ = 0;
  bool hasMade_ = false;
};

/// Those of this thread; null before the first use, after the thread's own objects are gone, and
/// without memory. The room that the loader keeps for libraries opened late has place for a
/// pointer.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local SharedCredits* thread_credits;

#ifdef TAMBER_INSIDE
void SharedCount::Retain(Destroy destroy) const {
  if (slot_ == kForever) return;
  if (SharedCredits* const mine = thread_credits) [[likely]] {
    SharedCredits::Credit& credit = mine->credits_[slot_];
    if (credit.object == this && credit.count > 0) [[likely]] {
      --credit.count;
      return;
    }
  }
  RetainSlowly(destroy);
}

void SharedCount::Release(Destroy destroy) const {
  if (slot_ == kForever) return;
  if (SharedCredits* const mine = thread_credits) [[likely]] {
    SharedCredits::Credit& credit = mine->credits_[slot_];
    if (credit.object == this && credit.count > 0 && credit.count < SharedCredits::kMost)
        [[likely]] {
      ++credit.count;
      return;
    }
  }
  ReleaseSlowly(destroy);
}
#endif

/// Base of what never changes and is shared between values and, read-only, between threads. T has a
/// static Destroy(const SharedCount*).
template <class T>
class Shared : public SharedCount {
 public:
  void Retain() const { SharedCount::Retain(&T::Destroy); }
  void Release() const { SharedCount::Release(&T::Destroy); }
};

/// Counted pointer to a Shared object.
template <class T>
class Ref {
 public:
  Ref() = default;
  /// Takes ownership of the reference that `new` created.
  static Ref Adopt(const T* object) {
    Ref ref;
    ref.object_ = object;
    return ref;
  }
  /// Adds a reference of its own.
  explicit Ref(const T* object) : object_(object) {
    if (object_) object_->Retain();
  }
  Ref(const Ref& other) : Ref(other.object_) {}
  Ref(Ref&& other) noexcept : object_(other.object_) { other.object_ = nullptr; }
  Ref& operator=(Ref other) noexcept {
    const T* mine = object_;
    object_ = other.object_;
    other.object_ = mine;
    return *this;
  }
  ~Ref() {
    if (object_) object_->Release();
  }
  const T* Get() const { return object_; }
  const T* operator->() const { return object_; }
  const T& operator*() const { return *object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  const T* object_ = nullptr;
};

}  // namespace tamber
