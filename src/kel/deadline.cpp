#include "kel/deadline.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>

#include "kel/clock.h"

namespace kel {

/// All deadlines of a process, and the thread that waits for the first of them. It begins with the
/// first deadline and ends with the library.
class DeadlineWatch {
 public:
  DeadlineWatch() : process_(::getpid()) {}

  bool IsOfThisProcess() const { return process_ == ::getpid(); }

  void Add(Deadline& deadline) {
    const std::lock_guard lock(mutex_);
    pending_.insert(&deadline);
    if (!runs_) {
      Start();
    } else if (*pending_.begin() == &deadline && deadline.end_ < wakesAt_) {
      changed_.notify_one();
    }
  }

  void Remove(Deadline& deadline) {
    std::unique_lock lock(mutex_);
    if (pending_.erase(&deadline) > 0) return;
    called_.wait(lock, [&] { return calling_ != &deadline; });
  }

  void End() {
    {
      const std::lock_guard lock(mutex_);
      ends_ = true;
      changed_.notify_one();
    }
    if (runs_) ::pthread_join(thread_, nullptr);
  }

 private:
  struct Earlier {
    bool operator()(const Deadline* a, const Deadline* b) const {
      return a->end_ != b->end_ ? a->end_ < b->end_ : std::less<const Deadline*>()(a, b);
    }
  };

  /// Signals of the process are for threads of the host. Without the thread nothing ends early.
  void Start() {
    sigset_t all, before;
    sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    runs_ = ::pthread_create(&thread_, nullptr, Run, this) == 0;
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }

  static void* Run(void* self) {
    static_cast<DeadlineWatch*>(self)->Wait();
    return nullptr;
  }

  void Wait() {
    std::unique_lock lock(mutex_);
    while (!ends_) {
      const uint64_t now = MonotonicNanoseconds();
      if (!pending_.empty() && (*pending_.begin())->end_ <= now) {
        Call(lock);
        continue;
      }
      // Not before the end that was waited for last: one that comes and goes wakes nobody.
      wakesAt_ = pending_.empty() ? UINT64_MAX : (*pending_.begin())->end_;
      const uint64_t rest = std::min<uint64_t>(wakesAt_ - now, kLongest);
      changed_.wait_for(lock, std::chrono::nanoseconds(rest));
    }
  }

  void Call(std::unique_lock<std::mutex>& lock) {
    calling_ = *pending_.begin();
    pending_.erase(pending_.begin());
    const auto expire = calling_->expire_;
    void* const user = calling_->user_;
    lock.unlock();
    expire(user);
    lock.lock();
    calling_ = nullptr;
    called_.notify_all();
  }

  static constexpr uint64_t kLongest = 3600ull * 1000 * 1000 * 1000;

  const pid_t process_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::condition_variable called_;
  std::set<Deadline*, Earlier> pending_;
  const Deadline* calling_ = nullptr;
  uint64_t wakesAt_ = 0;
  bool ends_ = false;
  pthread_t thread_{};
  bool runs_ = false;
};

namespace {

/// Never destroyed: threads may run scripts while the process ends.
std::atomic<DeadlineWatch*> current{nullptr};

/// The thread must not run code of a library that is unloaded.
struct WatchEnd {
  WatchEnd() = default;
  WatchEnd(const WatchEnd&) = delete;
  WatchEnd& operator=(const WatchEnd&) = delete;
  ~WatchEnd() {
    DeadlineWatch* const watch = current.load();
    if (watch != nullptr && watch->IsOfThisProcess()) watch->End();
  }
} watch_end;

/// That of a parent process is left alone: nobody knows in what state it was when this one began.
DeadlineWatch* Watch() {
  DeadlineWatch* known = current.load(std::memory_order_acquire);
  if (known != nullptr && known->IsOfThisProcess()) return known;
  auto* const made = new DeadlineWatch;
  if (current.compare_exchange_strong(known, made)) return made;
  delete made;
  return known;
}

}  // namespace

Deadline::Deadline(uint64_t nanoseconds, void (*expire)(void*), void* user)
    : watch_(Watch()), expire_(expire), user_(user) {
  const uint64_t now = MonotonicNanoseconds();
  end_ = nanoseconds < UINT64_MAX - now ? now + nanoseconds : UINT64_MAX;
  watch_->Add(*this);
}

Deadline::~Deadline() {
  if (watch_->IsOfThisProcess()) watch_->Remove(*this);
}

}  // namespace kel
