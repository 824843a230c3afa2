#include "kel/sessionstore.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <map>
#include <optional>
#include <utility>

#include "kel/longstring.h"
#include "kel/pathparser.h"
#include "kel/storebackend.h"

std::vector<std::string> SessionStore::Children(std::string_view prefix) {
  return kel::ChildrenOf(SubKeys(prefix), prefix);
}

namespace kel {
namespace {

/// The backends of the process by what they stand for. Opening one for every request of a host
/// would cost more than the requests, so they stay open.
class Backends {
 public:
  /// At the end of the process. Whatever another thread is at work on is left to it.
  void CloseAll() {
    const std::unique_lock lock(mutex_, std::try_to_lock);
    if (!lock.owns_lock() || process_ != ::getpid()) return;
    for (auto& [place, backend] : open_) {
      const std::unique_lock work(backend->mutex, std::try_to_lock);
      if (work.owns_lock()) backend->Close();
    }
  }

  std::shared_ptr<StoreBackend> Find(std::string_view spec, const StoreAccess& access) {
    const bool isServer = access.isServer || IsStoreAddress(spec);
    const std::string name = isServer ? std::string(spec) : CompletePath(spec);
    const std::lock_guard lock(mutex_);
    LeaveParentsAlone();
    std::shared_ptr<StoreBackend>& slot = open_[{name, access}];
    if (slot == nullptr || IsStale(*slot)) {
      slot = isServer ? MakeRedisBackend(name, access) : MakeSqliteBackend(name, access);
    }
    return slot;
  }

 private:
  /// A backend that another thread is at work on is in order: that thread may be opening it now.
  static bool IsStale(StoreBackend& backend) {
    const std::unique_lock lock(backend.mutex, std::try_to_lock);
    return lock.owns_lock() && !backend.IsCurrent();
  }

  /// After a fork the parent's connections are not ours to use, nor to close.
  void LeaveParentsAlone() {
    if (process_ == ::getpid()) return;
    process_ = ::getpid();
    for (auto& [place, backend] : open_) parents_.push_back(std::move(backend));
    open_.clear();
  }

  std::mutex mutex_;
  pid_t process_ = ::getpid();
  std::map<std::pair<std::string, StoreAccess>, std::shared_ptr<StoreBackend>> open_;
  std::vector<std::shared_ptr<StoreBackend>> parents_;
};

Backends& SharedBackends() {
  // Never destroyed: threads may still hold stores while the process ends.
  static Backends* const backends = [] {
    std::atexit([] { SharedBackends().CloseAll(); });
    return new Backends;
  }();
  return *backends;
}

/// A context's own store: it gathers what belongs together and passes it on to the shared backend.
class BackedStore final : public SessionStore {
 public:
  BackedStore(std::string_view spec, const StoreAccess& access)
      : spec_(spec), access_(access), backend_(SharedBackends().Find(spec_, access_)) {}

  bool Renew() override {
    std::shared_ptr<StoreBackend> backend = SharedBackends().Find(spec_, access_);
    std::swap(backend, backend_);
    return backend != backend_;
  }

  bool SetInteger(std::string_view key, int64_t value) override { return Set(key, value); }
  bool SetText(std::string_view key, std::string_view value) override {
    return Set(key, CopyOf(value));
  }
  bool GetInteger(std::string_view key, int64_t& value) override { return Get(key, value); }
  bool GetText(std::string_view key, std::string& value) override { return Get(key, value); }

  bool Exists(std::string_view key) override {
    StoreValue value;
    return Find(key, value);
  }

  std::vector<std::string> SubKeys(std::string_view prefix) override {
    std::vector<std::string> keys;
    if (const StoreTree* tree = TreeOf(prefix)) {
      for (auto at = tree->lower_bound(prefix); at != tree->end(); ++at) {
        if (!at->first.starts_with(prefix)) break;
        keys.push_back(at->first);
      }
      return keys;
    }
    Use([&] {
      keys = backend_->Keys(prefix);
      return true;
    });
    return keys;
  }

  std::vector<std::string> Children(std::string_view prefix) override {
    std::vector<std::string> names;
    Use([&] {
      names = backend_->Children(prefix);
      return true;
    });
    return names;
  }

  bool DeleteTree(std::string_view prefix) override {
    return Change({StoreChange::Kind::DeleteTree, std::string(prefix), {}});
  }

  void Begin() override {
    batching_ = true;
    pending_.clear();
  }

  bool Commit() override {
    batching_ = false;
    tree_.reset();
    const std::vector<StoreChange> changes = std::exchange(pending_, {});
    return changes.empty() || Use([&] { return backend_->Apply(changes); });
  }

  void BeginReading(std::string_view prefix) override {
    readPrefix_ = prefix;
    tree_.reset();
  }
  void EndReading() override { BeginReading({}); }

  std::string TakeFault() override { return std::exchange(fault_, {}); }

 private:
  /// The backend may meet anything, memory included; a store only ever answers "no".
  template <class Operation>
  bool Use(Operation operation) {
    const std::lock_guard lock(backend_->mutex);
    bool done = false;
    backend_->fault.clear();
    try {
      done = operation();
    } catch (const std::exception& error) {
      backend_->fault = error.what();
    }
    if (!backend_->fault.empty()) fault_ = backend_->fault;
    return done;
  }

  template <class T>
  bool Get(std::string_view key, T& value) {
    StoreValue stored;
    if (!Find(key, stored)) return false;
    if (!std::holds_alternative<T>(stored)) return false;
    value = std::move(std::get<T>(stored));
    return true;
  }

  bool Find(std::string_view key, StoreValue& value) {
    const StoreTree* tree = TreeOf(key);
    if (tree == nullptr) return Use([&] { return backend_->Get(key, value); });
    const auto at = tree->find(key);
    if (at != tree->end()) value = at->second;
    return at != tree->end();
  }

  /// What is known of everything that begins with `key`; null when the backend is to be asked.
  const StoreTree* TreeOf(std::string_view key) {
    if (readPrefix_.empty() || !key.starts_with(readPrefix_)) return nullptr;
    if (!tree_) {
      StoreTree tree;
      bool isUnknown = false;
      Use([&] {
        const bool isKnown = backend_->Tree(readPrefix_, tree);
        isUnknown = !isKnown && backend_->fault.empty();
        return isKnown;
      });
      // A store that fails is not asked for each value: it would be waited for as often.
      if (isUnknown) return nullptr;
      tree_ = std::move(tree);
    }
    return &*tree_;
  }

  bool Set(std::string_view key, StoreValue value) {
    return Change({StoreChange::Kind::Set, std::string(key), std::move(value)});
  }

  bool Change(StoreChange change) {
    if (batching_) {
      pending_.push_back(std::move(change));
      return true;
    }
    tree_.reset();
    return Use([&] { return backend_->Apply({&change, 1}); });
  }

  std::string spec_;
  StoreAccess access_;
  std::shared_ptr<StoreBackend> backend_;
  std::vector<StoreChange> pending_;
  std::string readPrefix_;  ///< empty: everything is read afresh
  std::optional<StoreTree> tree_;
  std::string fault_;
  bool batching_ = false;
};

}  // namespace

std::vector<std::string> ChildrenOf(std::vector<std::string> keys, std::string_view prefix) {
  for (std::string& key : keys) {
    const size_t end = key.find('/', prefix.size());
    if (end != std::string::npos) key.resize(end + 1);
  }
  std::erase_if(keys, [&](const std::string& key) { return key.size() <= prefix.size(); });
  std::sort(keys.begin(), keys.end());
  keys.erase(std::unique(keys.begin(), keys.end()), keys.end());
  return keys;
}

std::string EndOfPrefix(std::string_view prefix) {
  std::string end(prefix);
  while (!end.empty() && end.back() == '\xFF') end.pop_back();
  if (!end.empty()) end.back() = static_cast<char>(static_cast<unsigned char>(end.back()) + 1);
  return end;
}

std::shared_ptr<SessionStore> OpenSessionStore(std::string_view spec) {
  return OpenSessionStore(spec, {});
}

std::shared_ptr<SessionStore> OpenSessionStore(std::string_view spec, const StoreAccess& access) {
  return std::make_shared<BackedStore>(spec, access);
}

}  // namespace kel
