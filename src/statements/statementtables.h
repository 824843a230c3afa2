#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "values/typedesc.h"

class TamberFunction;

namespace tamber {

class Callable;

/// What the packed statements of the procedures that were compiled together refer to, each thing
/// once. It only grows while they are compiled, and is read-only from then on.
class StatementTables {
 public:
  uint32_t NumberOf(const Name& name);
  uint32_t NumberOf(const TypeRef& type);
  uint32_t NumberOf(const std::shared_ptr<const TamberFunction>& function);
  uint32_t NumberOf(Callable* procedure);

  /// The name of exactly this spelling.
  const Name& Intern(std::string_view text);

  const Name& NameAt(uint32_t number) const { return names_.items[number]; }
  const TypeRef& TypeAt(uint32_t number) const { return types_.items[number]; }
  const std::shared_ptr<const TamberFunction>& FunctionAt(uint32_t number) const {
    return functions_.items[number];
  }
  Callable* ProcedureAt(uint32_t number) const { return procedures_.items[number]; }

  /// Drops what only adding needs.
  void Settle();

 private:
  template <class T>
  struct Table {
    static constexpr uint32_t kFree = 0xFFFFFFFF;
    std::vector<T> items;
    std::vector<uint32_t> slots;  // open addressing; kFree is free

    /// The number of the item that `matches`, which is made if there is none.
    template <class Matches, class Make, class HashOf>
    uint32_t Find(size_t hash, const Matches& matches, const Make& make, const HashOf& hashOf);
    template <class HashOf>
    void Grow(const HashOf& hashOf);
    void Settle();
  };
  uint32_t NumberOfName(std::string_view text, const Name* name);

  Table<Name> names_;
  Table<TypeRef> types_;
  Table<std::shared_ptr<const TamberFunction>> functions_;
  Table<Callable*> procedures_;
};

}  // namespace tamber
