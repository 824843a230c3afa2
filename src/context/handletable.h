#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <utility>

namespace tamber {

struct RunState;

/// What the handles that scripts hold stand for, in one context.
///
/// A script never sees a pointer: its handle is a number, looked up here together with what it
/// should be the number of. One that was closed, belongs to another context, was made up or is of
/// another kind finds nothing. Numbers are never used twice in a process until all are used up.
class HandleTable {
 public:
  explicit HandleTable(const RunState& run) : run_(run) {}
  HandleTable(const HandleTable&) = delete;
  HandleTable& operator=(const HandleTable&) = delete;

  /// Takes the object over and gives its number, from 1 up. `kind` is an address that stands for
  /// the kind of object.
  template <class T>
  int32_t Add(std::unique_ptr<T> object, const void* kind) {
    return Insert({std::shared_ptr<void>(std::move(object)), kind});
  }
  /// The object, on loan until it is released; null when there is none of this kind.
  template <class T>
  T* Find(int32_t id, const void* kind) const {
    return static_cast<T*>(FindObject(id, kind));
  }
  /// Destroys the object; false when there is none of this kind.
  bool Release(int32_t id, const void* kind);
  /// Destroys all objects.
  void Clear() { static_cast<void>(std::exchange(entries_, {})); }

  /// A number as the value of a handle variable, and back; 0 for what cannot be one.
  static void* ToPointer(int32_t id);
  static int32_t FromPointer(const void* value);

 private:
  struct Entry {
    std::shared_ptr<void> object;
    const void* kind;
  };
  int32_t Insert(Entry entry);
  void* FindObject(int32_t id, const void* kind) const;

  const RunState& run_;
  std::unordered_map<int32_t, Entry> entries_;
};

}  // namespace tamber
