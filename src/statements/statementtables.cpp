#include "statements/statementtables.h"

#include "functions/function.h"

namespace tamber {
namespace {

constexpr size_t kFirstSize = 16;

size_t HashPointer(const void* pointer) {
  const auto bits = reinterpret_cast<uintptr_t>(pointer);
  return static_cast<size_t>((bits >> 4) ^ (bits >> 12));
}

}  // namespace

template <class T>
template <class Matches, class Make, class HashOf>
uint32_t StatementTables::Table<T>::Find(size_t hash, const Matches& matches, const Make& make,
                                         const HashOf& hashOf) {
  if (slots.size() < items.size() * 2 + 1) Grow(hashOf);
  const size_t mask = slots.size() - 1;
  size_t at = hash & mask;
  for (; slots[at] != kFree; at = (at + 1) & mask)
    if (matches(items[slots[at]])) return slots[at];
  items.push_back(make());
  return slots[at] = static_cast<uint32_t>(items.size() - 1);
}

template <class T>
template <class HashOf>
void StatementTables::Table<T>::Grow(const HashOf& hashOf) {
  slots.assign(slots.empty() ? kFirstSize : slots.size() * 2, kFree);
  const size_t mask = slots.size() - 1;
  for (uint32_t i = 0; i < items.size(); ++i) {
    size_t at = hashOf(items[i]) & mask;
    while (slots[at] != kFree) at = (at + 1) & mask;
    slots[at] = i;
  }
}

template <class T>
void StatementTables::Table<T>::Settle() {
  items.shrink_to_fit();
  slots = std::vector<uint32_t>();
}

uint32_t StatementTables::NumberOfName(std::string_view text, const Name* name) {
  return names_.Find(
      name != nullptr ? name->Hash() : Name::HashOf(text),
      [&](const Name& known) { return known.View() == text; },
      [&] { return name != nullptr ? *name : Name(text); },
      [](const Name& known) -> size_t { return known.Hash(); });
}

uint32_t StatementTables::NumberOf(const Name& name) { return NumberOfName(name.View(), &name); }

const Name& StatementTables::Intern(std::string_view text) {
  return names_.items[NumberOfName(text, nullptr)];
}

uint32_t StatementTables::NumberOf(const TypeRef& type) {
  return types_.Find(
      HashPointer(type.Get()), [&](const TypeRef& known) { return known.Get() == type.Get(); },
      [&] { return type; }, [](const TypeRef& known) { return HashPointer(known.Get()); });
}

uint32_t StatementTables::NumberOf(const std::shared_ptr<const TamberFunction>& function) {
  return functions_.Find(
      HashPointer(function.get()), [&](const auto& known) { return known == function; },
      [&] { return function; }, [](const auto& known) { return HashPointer(known.get()); });
}

uint32_t StatementTables::NumberOf(Callable* procedure) {
  return procedures_.Find(
      HashPointer(procedure), [&](const Callable* known) { return known == procedure; },
      [&] { return procedure; }, [](const Callable* known) { return HashPointer(known); });
}

void StatementTables::Settle() {
  names_.Settle();
  types_.Settle();
  functions_.Settle();
  procedures_.Settle();
}

}  // namespace tamber
