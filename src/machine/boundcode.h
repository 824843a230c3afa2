#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <span>

#include "machine/code.h"
#include "values/account.h"

namespace tamber {

class BoundCode;

/// Where a name of the global or external scope was last found. Good while the context's epoch is
/// the one it was found under.
struct GlobalSlot {
  static constexpr uint64_t kWithoutCell = uint64_t{1} << 63;

  const GlobalUse* use = nullptr;
  uint64_t found = 0;    ///< the epoch; with kWithoutCell, which none has, when `cell` is null
  Cell* cell = nullptr;  ///< of the variable (through a reference), when its type is the use's
  Variable* variable = nullptr;  ///< on loan from its scope

  bool IsFound(uint64_t epoch) const { return (found & ~kWithoutCell) == epoch; }
  bool HasCell(uint64_t epoch) const { return found == epoch; }
};

/// A procedure that code calls, and its code, once it has been called.
struct Callee {
  Callable* procedure = nullptr;
  const BoundCode* code = nullptr;
};

/// Code as one context runs it. What a run finds out and the strings that it refers to stand here:
/// the code itself does not change once it is made, and contexts of any thread may run it.
class BoundCode {
 public:
  /// Of code that nobody else runs.
  static std::unique_ptr<const BoundCode> Make(std::unique_ptr<const Code> own);
  /// Of code that others run as well, and that stays as long as this runs.
  static std::unique_ptr<const BoundCode> Make(const Code& shared);
  BoundCode(const BoundCode&) = delete;
  BoundCode& operator=(const BoundCode&) = delete;
  ~BoundCode();
  static void operator delete(void* memory) { ::operator delete(memory); }

  const Code& Tables() const { return *code_; }

  // What the run loop needs all the time.
  const Instr* Begin() const { return begin_; }
  const Cell& Constant(uint32_t index) const { return constants_[index]; }
  const TypeDesc& Type(uint32_t index) const { return *types_[index]; }
  GlobalSlot& Global(uint32_t index) const { return globals_[index]; }
  Callee& CalleeAt(uint32_t index) const { return callees_[index]; }
  uint32_t Registers() const { return registers_; }
  uint32_t Parameters() const { return parameters_; }
  /// Ascending.
  std::span<const OwnedRegister> OwnedLocals() const { return ownedLocals_; }
  /// Those that begin empty: arguments are there when the frame begins.
  std::span<const OwnedRegister> OwnedBesideParameters() const { return ownedBesideParameters_; }

 private:
  /// The arrays lie behind the object, in one block with it: a request makes a BoundCode of every
  /// procedure that it runs.
  struct Room {
    size_t bytes;
  };
  static Room RoomFor(const Code& code, bool copiesConstants);
  static void* operator new(size_t size, Room room) { return ::operator new(size + room.bytes); }
  static void operator delete(void* memory, Room) { ::operator delete(memory); }

  explicit BoundCode(const Code* code);
  BoundCode(const Code* shared, bool copiesConstants);
  void CopyConstants();

  const Code* code_;
  const Instr* begin_;
  const Cell* constants_;
  const TypeRef* types_;
  GlobalSlot* globals_;
  Callee* callees_;
  std::span<Cell> copies_;  ///< of the constants, when there are strings among them
  Kind* copiedKinds_ = nullptr;
  std::span<const OwnedRegister> ownedLocals_;
  std::span<const OwnedRegister> ownedBesideParameters_;
  uint32_t registers_;
  uint32_t parameters_;
  std::unique_ptr<const Code> own_;
  CountedBytes counted_;
};

}  // namespace tamber
