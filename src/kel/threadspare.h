#pragma once

#include <memory>
#include <utility>

namespace kel {

/// A block of memory that a thread keeps for whoever needs one next; `Use` tells the blocks of
/// different uses apart. Freed when the thread ends.
///
/// Every call of a procedure by a host looks here, so that takes no call of the loader's: what is
/// looked at is a plain pointer in the room that the loader keeps for libraries opened late, too.
template <class T, class Use>
class ThreadSpare {
 public:
  static bool IsThere() { return kept_ != nullptr; }
  /// Null when there is none.
  static std::unique_ptr<T[]> Take() { return std::unique_ptr<T[]>(std::exchange(kept_, nullptr)); }
  /// Keeps the block unless there is one already.
  static void Keep(std::unique_ptr<T[]> block) {
    if (state_ == State::Unowned) BecomeOwned();
    if (kept_ == nullptr && state_ == State::Owned) kept_ = block.release();
  }
  static void Free() { Take(); }

 private:
  enum class State : unsigned char { Unowned, Owned, Ended };
  struct Owner {
    ~Owner() {
      Free();
      state_ = State::Ended;
    }
    void Begin() { state_ = State::Owned; }
  };

  [[gnu::noinline]] static void BecomeOwned() {
    thread_local Owner owner;
    owner.Begin();
  }

  [[gnu::tls_model("initial-exec")]] static inline constinit thread_local T* kept_ = nullptr;
  [[gnu::tls_model("initial-exec")]] static inline constinit thread_local State state_ =
      State::Unowned;
};

}  // namespace kel
