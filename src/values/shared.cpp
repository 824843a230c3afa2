#include "values/shared.h"

#include <new>
#include <utility>

namespace tamber {

constinit thread_local SharedCredits* thread_credits = nullptr;

namespace {

/// The thread has no table any more, or none for now.
constinit thread_local bool counts_at_once = false;

/// While one of these lives, the thread counts at once: what is destroyed meanwhile must not find a
/// table in the middle of a change.
class CountingAtOnce {
 public:
  CountingAtOnce() : credits_(std::exchange(thread_credits, nullptr)) { counts_at_once = true; }
  CountingAtOnce(const CountingAtOnce&) = delete;
  CountingAtOnce& operator=(const CountingAtOnce&) = delete;
  ~CountingAtOnce() {
    thread_credits = credits_;
    counts_at_once = false;
  }

 private:
  SharedCredits* const credits_;
};

}  // namespace

/// Gives back what the thread has in hand when it ends.
struct SharedCreditsOwner {
  SharedCreditsOwner() = default;
  SharedCreditsOwner(const SharedCreditsOwner&) = delete;
  SharedCreditsOwner& operator=(const SharedCreditsOwner&) = delete;
  ~SharedCreditsOwner() {
    if (thread_credits != nullptr) thread_credits->GiveBack();
    counts_at_once = true;
    delete std::exchange(thread_credits, nullptr);
  }
};

SharedCredits* SharedCredits::Begin() {
  if (thread_credits != nullptr || counts_at_once) return thread_credits;
  thread_local SharedCreditsOwner owner;
  return thread_credits = new (std::nothrow) SharedCredits;
}

void SharedCredits::GiveBack(Credit& credit) {
  const Credit given = std::exchange(credit, Credit());
  if (given.count > 0) given.object->Discount(given.count, given.destroy);
}

void SharedCredits::GiveBack() {
  const CountingAtOnce meanwhile;
  while (usedCount_ > 0) GiveBack(credits_[used_[--usedCount_]]);
  hasMade_ = false;
}

void SharedCredits::GiveBackAfterMaking() {
  SharedCredits* const mine = thread_credits;
  if (mine != nullptr && mine->hasMade_) mine->GiveBack();
}

SharedCredits::Credit* SharedCredits::Find(const SharedCount& object) {
  for (const uint32_t slot : SlotsOf(object))
    if (credits_[slot].object == &object) return &credits_[slot];
  return nullptr;
}

/// The object's slot from now on; null when others have both, and keep them.
SharedCredits::Credit* SharedCredits::Claim(const SharedCount& object) {
  for (const uint32_t slot : SlotsOf(object)) {
    if (credits_[slot].object != nullptr) continue;
    used_[usedCount_++] = static_cast<uint16_t>(slot);
    return &credits_[slot];
  }
  Credit& credit = credits_[object.slot_];
  if (++credit.missed < kPatience) return nullptr;
  const CountingAtOnce meanwhile;
  GiveBack(credit);
  return &credit;
}

SharedCount::SharedCount() {
  SharedCredits* const mine = SharedCredits::Begin();
  slot_ = mine != nullptr ? mine->nextSlot_++ % SharedCredits::kSlots : 0;
  if (mine != nullptr) mine->hasMade_ = true;
}

void SharedCount::RetainForHost(Destroy destroy) const { Retain(destroy); }
void SharedCount::ReleaseForHost(Destroy destroy) const { Release(destroy); }

void SharedCount::RetainSlowly(Destroy destroy) const {
  SharedCredits* const mine = SharedCredits::Begin();
  if (mine == nullptr) return Count(1);
  SharedCredits::Credit* credit = mine->Find(*this);
  if (credit == nullptr) credit = mine->Claim(*this);
  if (credit == nullptr) return Count(1);
  if (credit->count == 0) {
    Count(SharedCredits::kBatch);
    *credit = {this, destroy, SharedCredits::kBatch, 0};
  }
  --credit->count;
}

void SharedCount::ReleaseSlowly(Destroy destroy) const {
  SharedCredits* const mine = SharedCredits::Begin();
  SharedCredits::Credit* const credit = mine != nullptr ? mine->Find(*this) : nullptr;
  if (credit == nullptr) return Discount(1, destroy);
  if (credit->count == 0) *credit = {this, destroy, 0, 0};
  if (++credit->count <= SharedCredits::kMost) return;
  credit->count -= SharedCredits::kBatch;
  Discount(SharedCredits::kBatch, destroy);
}

void SharedCount::Discount(int32_t fewer, Destroy destroy) const {
  if (refs_.fetch_sub(fewer, std::memory_order_acq_rel) == fewer) destroy(this);
}

}  // namespace tamber
