#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "kel/sessionstore.h"

/// What the kinds of session stores differ in. A backend is shared by all stores of the process
/// that name the same place; its operations are called one at a time, with its mutex held.
namespace kel {

using StoreValue = std::variant<int64_t, std::string>;
using StoreTree = std::map<std::string, StoreValue, std::less<>>;

/// A key and its new value, or the removal of a whole tree.
struct StoreChange {
  enum class Kind { Set, DeleteTree };
  Kind kind;
  std::string key;
  StoreValue value;
};

class StoreBackend {
 public:
  virtual ~StoreBackend() = default;
  /// False when the key is absent, with an empty fault, or when the store failed.
  virtual bool Get(std::string_view key, StoreValue& value) = 0;
  /// Everything below `prefix` at once, if that is cheaper than one by one; else false.
  virtual bool Tree(std::string_view /*prefix*/, StoreTree& /*tree*/) { return false; }
  /// All changes or none.
  virtual bool Apply(std::span<const StoreChange> changes) = 0;
  virtual std::vector<std::string> Keys(std::string_view prefix) = 0;
  virtual std::vector<std::string> Children(std::string_view prefix) = 0;
  /// Whether it still stands for what it was opened as; the next store opens it anew if not.
  virtual bool IsCurrent() const = 0;

  /// Gives up what it has open; the next use opens it again.
  virtual void Close() {}

  std::string fault;  ///< why the last operation failed
  std::mutex mutex;
};

/// The children among keys that all begin with `prefix`, sorted, each once.
std::vector<std::string> ChildrenOf(std::vector<std::string> keys, std::string_view prefix);

/// The first text behind all those that begin with `prefix`; "" when there is none.
std::string EndOfPrefix(std::string_view prefix);

std::shared_ptr<StoreBackend> MakeSqliteBackend(const std::string& path, const StoreAccess& access);
/// An address that is wrong makes one that always fails and says so.
std::shared_ptr<StoreBackend> MakeRedisBackend(std::string_view address, const StoreAccess& access);

}  // namespace kel
