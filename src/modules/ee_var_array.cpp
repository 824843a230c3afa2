#include "modules/ee_var_array.h"

#include <cmath>
#include <functional>
#include <new>
#include <vector>

#include "context/tambctxt.h"
#include "kel/kelascii.h"
#include "kel/stop.h"
#include "values/structdata.h"

namespace tamber {
namespace {

constexpr uint64_t kNumbersPerLook = uint64_t{1} << 20;

uint32_t CountOf(const ArrayOperand& array) {
  return array.data != nullptr ? array.data->Count() : 0;
}

bool EqualTexts(std::string_view a, std::string_view b, bool caseSensitive) {
  return caseSensitive ? a == b : kel::EqualsNoCase(a, b);
}

// --- equality and hashes of whole values, for ArrayRemoveDup ---

/// Hash and equality under one case rule. Not-a-number repeats not-a-number here, unlike in "==":
/// nobody wants to keep a column of them.
class ValueIdentity {
 public:
  explicit ValueIdentity(bool caseSensitive) : caseSensitive_(caseSensitive) {}

  uint64_t Hash(Kind kind, Cell cell) const {
    switch (kind) {
      case Kind::Bool:
      case Kind::Char:
      case Kind::Int:
        return Mix(static_cast<uint32_t>(cell.i));
      case Kind::Float:
        return HashNumber(static_cast<double>(cell.f));
      case Kind::Double:
        return HashNumber(cell.d);
      case Kind::String:
      case Kind::EString:
        return HashText(Operand{kind, cell}.AsText());
      case Kind::Handle:
        return Mix(cell.bits);
      case Kind::Struct:
        return HashStruct(*cell.st);
      case Kind::Array:
        return cell.a != nullptr ? HashArray(*cell.a) : 0;
      case Kind::Any:
        return Hash(KindOf(*cell.v), *CellOf(*cell.v));
      case Kind::None:
        break;
    }
    return 0;
  }

  bool Equal(Kind kind, Cell a, Cell b) const {
    switch (kind) {
      case Kind::Bool:
      case Kind::Char:
      case Kind::Int:
        return a.i == b.i;
      case Kind::Float:
        return EqualNumbers(static_cast<double>(a.f), static_cast<double>(b.f));
      case Kind::Double:
        return EqualNumbers(a.d, b.d);
      case Kind::String:
      case Kind::EString:
        return EqualTexts(Operand{kind, a}.AsText(), Operand{kind, b}.AsText(), caseSensitive_);
      case Kind::Handle:
        return a.p == b.p;
      case Kind::Struct:
        return EqualStructs(*a.st, *b.st);
      case Kind::Array:
        return EqualArrays(a.a, b.a);
      case Kind::Any:
        return KindOf(*a.v) == KindOf(*b.v) && Equal(KindOf(*a.v), *CellOf(*a.v), *CellOf(*b.v));
      case Kind::None:
        break;
    }
    return true;
  }

 private:
  static uint64_t Mix(uint64_t value) {
    value ^= value >> 32;
    value *= 0x9E3779B97F4A7C15U;
    return value ^ (value >> 29);
  }

  static uint64_t HashNumber(double value) {
    if (value == 0 || std::isnan(value)) return value == 0 ? 1 : 2;  // both zeros are equal
    return Mix(ToCell(value).bits);
  }

  static bool EqualNumbers(double a, double b) {
    return a == b || (std::isnan(a) && std::isnan(b));
  }

  uint64_t HashText(std::string_view text) const {
    return caseSensitive_ ? std::hash<std::string_view>()(text) : kel::NoCaseHash()(text);
  }

  uint64_t HashStruct(const StructData& data) const {
    uint64_t hash = 0;
    for (uint32_t i = 0; i < data.Count(); ++i) {
      hash = Mix(hash + Hash(data.Layout()->Members()[i].type->GetKind(), data.Peek(i)));
    }
    return hash;
  }

  bool EqualStructs(const StructData& a, const StructData& b) const {
    if (a.Layout().Get() != b.Layout().Get()) return false;
    for (uint32_t i = 0; i < a.Count(); ++i) {
      if (!Equal(a.Layout()->Members()[i].type->GetKind(), a.Peek(i), b.Peek(i))) return false;
    }
    return true;
  }

  uint64_t HashArray(const ArrayData& array) const {
    uint64_t hash = array.Count();
    for (uint32_t i = 0; i < array.Count(); ++i) {
      hash = Mix(hash + Hash(array.StorageKind(), array.Peek(i)));
    }
    return hash;
  }

  bool EqualArrays(const ArrayData* a, const ArrayData* b) const {
    const uint32_t count = a != nullptr ? a->Count() : 0;
    if (count != (b != nullptr ? b->Count() : 0)) return false;
    if (count == 0) return true;
    if (a->StorageKind() != b->StorageKind()) return false;
    for (uint32_t i = 0; i < count; ++i) {
      if (!Equal(a->StorageKind(), a->Peek(i), b->Peek(i))) return false;
    }
    return true;
  }

  bool caseSensitive_;
};

/// Positions of the elements that equal none before them, in order.
std::vector<uint32_t> FirstOfEquals(const ArrayData& array, const ValueIdentity& identity) {
  constexpr uint32_t kFree = UINT32_MAX;
  size_t size = 16;
  while (size < size_t{array.Count()} * 2) size *= 2;
  std::vector<uint32_t> table(size, kFree);
  std::vector<uint32_t> firsts;
  const Kind kind = array.StorageKind();
  kel::StopPoll poll(kel::kElementsPerLook);
  for (uint32_t i = 0; i < array.Count(); ++i) {
    poll.Step();
    const Cell cell = array.Peek(i);
    size_t slot = identity.Hash(kind, cell) & (size - 1);
    while (table[slot] != kFree && !identity.Equal(kind, array.Peek(table[slot]), cell)) {
      slot = (slot + 1) & (size - 1);
    }
    if (table[slot] != kFree) continue;
    table[slot] = i;
    firsts.push_back(i);
  }
  return firsts;
}

// --- ArrayFind ---

/// A character among elements; a plain int8_t there is a boolean.
struct Char {
  int8_t value;
};

/// Equality with a number that is looked for: in the wider of the two types.
template <class Value>
struct EqualsNumber {
  Value value;

  template <class Element>
  bool operator()(Element element) const {
    using Wider = std::common_type_t<Element, Value>;
    return static_cast<Wider>(element) == static_cast<Wider>(value);
  }
  bool operator()(Char element) const { return (*this)(element.value); }
  bool operator()(std::string_view) const { return false; }
};

struct EqualsText {
  std::string_view value;
  bool caseSensitive;

  bool operator()(std::string_view element) const {
    return EqualTexts(element, value, caseSensitive);
  }
  bool operator()(Char element) const {
    const char text = static_cast<char>(element.value);
    return (*this)(std::string_view(&text, 1));
  }
  template <class Element>
  requires std::is_arithmetic_v<Element>
  bool operator()(Element) const { return false; }
};

template <class Value>
auto MakeEqual(Call& call, Value value) {
  if constexpr (std::is_same_v<Value, std::string_view>) {
    return EqualsText{value, CaseMatters(call)};
  } else {
    return EqualsNumber<Value>{value};
  }
}

template <class Equal>
bool MatchesCell(Kind kind, Cell cell, const Equal& equal) {
  switch (kind) {
    case Kind::Bool:
      return equal(static_cast<int8_t>(cell.i));
    case Kind::Char:
      return equal(Char{static_cast<int8_t>(cell.i)});
    case Kind::Int:
      return equal(cell.i);
    case Kind::Float:
      return equal(cell.f);
    case Kind::Double:
      return equal(cell.d);
    case Kind::String:
    case Kind::EString:
      return equal(Operand{kind, cell}.AsText());
    case Kind::Any:
      return MatchesCell(KindOf(*cell.v), *CellOf(*cell.v), equal);
    case Kind::None:
    case Kind::Handle:
    case Kind::Struct:
    case Kind::Array:
      break;
  }
  return false;
}

template <class Stored, class Equal>
uint32_t ScanStored(const ArrayData& array, uint32_t from, const Equal& equal) {
  const Stored* elements = array.Data<Stored>();
  uint64_t at = from;
  kel::ForSteps(from, array.Count(), kNumbersPerLook, [&](uint64_t begin, uint64_t end) {
    at = begin;
    while (at < end && !equal(elements[at])) ++at;
    return at == end;
  });
  return static_cast<uint32_t>(at);
}

/// 0-based position of the first match at or after `from`, the count when there is none.
template <class Equal>
uint32_t Scan(const ArrayData& array, uint32_t from, const Equal& equal) {
  const Kind kind = array.StorageKind();
  if (!array.HasBoxes()) {
    if (kind == Kind::Int) return ScanStored<int32_t>(array, from, equal);
    if (kind == Kind::Float) return ScanStored<float>(array, from, equal);
    if (kind == Kind::Double) return ScanStored<double>(array, from, equal);
  }
  kel::StopPoll poll(kel::kElementsPerLook);
  while (from < array.Count() && !MatchesCell(kind, array.Peek(from), equal)) {
    poll.Step();
    ++from;
  }
  return from;
}

uint32_t FirstPosition(int32_t start) { return start > 1 ? static_cast<uint32_t>(start) - 1 : 0; }

int32_t ScriptPosition(const ArrayData& array, uint32_t at) {
  return at < array.Count() ? static_cast<int32_t>(at + 1) : 0;
}

}  // namespace

bool CaseMatters(Call& call) { return call.Context().GetSwitch("StrCase") != 0; }

ArrayResult SameArray(const ArrayOperand& array) {
  return ArrayResult(array.type, array.data != nullptr ? ShareArray(array.data) : nullptr);
}

ArrayResult RefusedArray(Call& call, const ArrayOperand& array, std::string_view text) {
  call.Fail(ERR_FUNCFAILED, text);
  return SameArray(array);
}

MemberReader::MemberReader(const ArrayOperand& array, std::string_view member)
    : array_(*array.data), name_(member) {
  if (array_.StorageKind() != Kind::Struct) return;
  layout_ = array_.Peek(0).st->Layout().Get();
  const int32_t position = layout_->Find(member);
  if (position < 0) return;
  position_ = static_cast<uint32_t>(position);
  kind_ = layout_->Members()[position_].type->GetKind();
}

std::optional<Cell> MemberReader::Read(uint32_t at) const {
  const StructData& data = *array_.Peek(at).st;
  if (data.Layout().Get() == layout_) return data.Peek(position_);
  const int32_t position = data.Layout()->Find(name_);
  if (position < 0) return std::nullopt;
  const auto there = static_cast<uint32_t>(position);
  if (data.Layout()->Members()[there].type->GetKind() != kind_) return std::nullopt;
  return data.Peek(there);
}

int32_t ArrayGetSize(ArrayOperand array) { return static_cast<int32_t>(CountOf(array)); }

ArrayResult ArraySetSize(Call& call, ArrayOperand array, int32_t size) {
  if (!array.isArray) return RefusedArray(call, array, {});
  const uint32_t wanted = size > 0 ? static_cast<uint32_t>(size) : 0;
  const uint32_t count = CountOf(array);
  // Without an element type there is nothing that an array could be filled with.
  const bool canGrow = count > 0 ? static_cast<bool>(array.data->ElementType())
                                 : static_cast<bool>(array.type->Element());
  if (wanted == count || (wanted > count && !canGrow)) return SameArray(array);
  try {
    ArrayResult result(array.type, array.data != nullptr ? array.data->Copy()
                                                         : ArrayData::New(array.type->Element()));
    result->Resize(wanted);
    return result;
  } catch (const std::bad_alloc&) {
    call.Fail(ERR_NOMEMORY, {});
    return SameArray(array);
  }
}

ArrayResult ArrayRemoveDup(Call& call, ArrayOperand array) {
  return ArrayRemoveDupCase(call, array, CaseMatters(call));
}

ArrayResult ArrayRemoveDupCase(Call& call, ArrayOperand array, bool caseSensitive) {
  if (!array.isArray) return RefusedArray(call, array, {});
  if (array.data == nullptr) return SameArray(array);
  const std::vector<uint32_t> firsts = FirstOfEquals(*array.data, ValueIdentity(caseSensitive));
  if (firsts.size() == array.data->Count()) return SameArray(array);
  ArrayResult result(array.type, ArrayData::New(array.data->ElementType()));
  result->Reserve(firsts.size());
  kel::StopPoll poll(kel::kElementsPerLook);
  for (const uint32_t at : firsts) {
    poll.Step();
    result->AppendOwned(CopyCell(array.data->StorageKind(), array.data->Peek(at)));
  }
  return result;
}

template <class Value>
int32_t ArrayFind(Call& call, ArrayOperand array, Value value, int32_t start) {
  if (array.data == nullptr) return 0;
  const ArrayData& data = *array.data;
  return ScriptPosition(data, Scan(data, FirstPosition(start), MakeEqual(call, value)));
}

template <class Value>
int32_t ArrayFindMember(Call& call, ArrayOperand array, std::string_view member, Value value,
                        int32_t start) {
  if (CountOf(array) == 0) return 0;
  const MemberReader reader(array, member);
  if (!reader.IsFound()) {
    call.Fail(ERR_FUNCFAILED, member);
    return 0;
  }
  const auto equal = MakeEqual(call, value);
  uint32_t at = FirstPosition(start);
  kel::StopPoll poll(kel::kElementsPerLook);
  for (; at < array.data->Count(); ++at) {
    poll.Step();
    const std::optional<Cell> cell = reader.Read(at);
    if (cell && MatchesCell(reader.GetKind(), *cell, equal)) break;
  }
  return ScriptPosition(*array.data, at);
}

template int32_t ArrayFind(Call&, ArrayOperand, std::string_view, int32_t);
template int32_t ArrayFind(Call&, ArrayOperand, double, int32_t);
template int32_t ArrayFind(Call&, ArrayOperand, float, int32_t);
template int32_t ArrayFind(Call&, ArrayOperand, int32_t, int32_t);
template int32_t ArrayFindMember(Call&, ArrayOperand, std::string_view, std::string_view, int32_t);
template int32_t ArrayFindMember(Call&, ArrayOperand, std::string_view, double, int32_t);
template int32_t ArrayFindMember(Call&, ArrayOperand, std::string_view, float, int32_t);
template int32_t ArrayFindMember(Call&, ArrayOperand, std::string_view, int32_t, int32_t);

}  // namespace tamber
