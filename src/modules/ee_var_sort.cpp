#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "kel/cipher.h"
#include "kel/kelascii.h"
#include "modules/ee_var_array.h"
#include "modules/stepsort.h"

/// Sorting is stable in both directions: elements that compare equal keep the order they had.
namespace tamber {
namespace {

constexpr uint64_t kTextsPerLook = 16384;
constexpr uint64_t kBytesPerText = 256;

struct Order {
  bool ascending;
  bool caseSensitive;

  int Compare(std::string_view a, std::string_view b) const {
    return caseSensitive ? a.compare(b) : kel::CompareNoCase(a, b);
  }
};

/// Moves not-a-number to the end, whatever the direction, so that "<" orders all that is left.
template <class It, class KeyOf>
It PartOff(It first, It last, KeyOf keyOf) {
  using Key = std::decay_t<decltype(keyOf(*first))>;
  if constexpr (std::is_floating_point_v<Key>) {
    kel::StopPoll poll(kSortedRun);
    return std::stable_partition(first, last, [&](const auto& e) {
      poll.Step();
      return !std::isnan(keyOf(e));
    });
  } else {
    return last;
  }
}

/// Sorts a range by keys that "<" compares.
template <class It, class KeyOf>
void SortNumbers(It first, It last, KeyOf keyOf, Order order) {
  last = PartOff(first, last, keyOf);
  if (order.ascending) {
    SortInSteps(first, last, [&](const auto& a, const auto& b) { return keyOf(a) < keyOf(b); });
  } else {
    SortInSteps(first, last, [&](const auto& a, const auto& b) { return keyOf(b) < keyOf(a); });
  }
}

template <class It, class KeyOf>
void SortTexts(It first, It last, KeyOf keyOf, Order order) {
  kel::StopPoll poll(kTextsPerLook);
  SortInSteps(first, last, [&](const auto& a, const auto& b) {
    poll.Step(1 + keyOf(a).size() / kBytesPerText);
    const int difference = order.Compare(keyOf(a), keyOf(b));
    return order.ascending ? difference < 0 : difference > 0;
  });
}

/// An element on its way to its new place.
struct Keyed {
  Cell key;
  uint32_t at;
};

/// Plain texts of enciphered strings, for as long as a sort needs them.
class PlainTexts {
 public:
  explicit PlainTexts(const std::vector<Keyed>& elements) {
    texts_.reserve(elements.size());
    kel::StopPoll poll(kTextsPerLook);
    try {
      for (const Keyed& e : elements) {
        poll.Step();
        texts_.emplace_back(Operand{Kind::EString, e.key}.AsText());
      }
    } catch (...) {
      WipeAll();
      throw;
    }
  }
  PlainTexts(const PlainTexts&) = delete;
  PlainTexts& operator=(const PlainTexts&) = delete;
  ~PlainTexts() { WipeAll(); }
  std::string_view Of(const Keyed& element) const { return texts_[element.at]; }

 private:
  void WipeAll() {
    for (std::string& text : texts_) kel::Wipe(text.data(), text.size());
  }

  std::vector<std::string> texts_;
};

/// False when elements of this kind have no order.
bool SortKeyed(std::vector<Keyed>& elements, Kind kind, Order order) {
  const auto first = elements.begin();
  const auto last = elements.end();
  switch (kind) {
    case Kind::Bool:
    case Kind::Char:
    case Kind::Int:
      SortNumbers(
          first, last, [](const Keyed& e) { return e.key.i; }, order);
      return true;
    case Kind::Float:
      SortNumbers(
          first, last, [](const Keyed& e) { return e.key.f; }, order);
      return true;
    case Kind::Double:
      SortNumbers(
          first, last, [](const Keyed& e) { return e.key.d; }, order);
      return true;
    case Kind::Handle:
      SortNumbers(
          first, last, [](const Keyed& e) { return CellToInt(Kind::Handle, e.key); }, order);
      return true;
    case Kind::String:
      SortTexts(
          first, last, [](const Keyed& e) { return TextOf(e.key.s); }, order);
      return true;
    case Kind::EString: {
      const PlainTexts texts(elements);
      SortTexts(
          first, last, [&](const Keyed& e) { return texts.Of(e); }, order);
      return true;
    }
    case Kind::None:
    case Kind::Struct:
    case Kind::Array:
    case Kind::Any:
      break;
  }
  return false;
}

/// Brings the cells of an array, which has no boxes, into the order of `elements`.
void Arrange(ArrayData& array, const std::vector<Keyed>& elements) {
  Cell* cells = array.Data<Cell>();
  // Elements have one place at a time: from here on nothing is left.
  const kel::Interruptible whole(false);
  const std::vector<Cell> before(cells, cells + array.Count());
  for (size_t i = 0; i < elements.size(); ++i) cells[i] = before[elements[i].at];
}

template <class Stored>
void SortStored(ArrayData& array, Order order) {
  Stored* elements = array.Data<Stored>();
  SortNumbers(
      elements, elements + array.Count(), [](Stored e) { return e; }, order);
}

/// Sorts an unshared array without boxes; false when its elements have no order.
bool SortElements(ArrayData& array, Order order) {
  switch (array.StorageKind()) {
    case Kind::Bool:
    case Kind::Char:
      SortStored<int8_t>(array, order);
      return true;
    case Kind::Int:
      SortStored<int32_t>(array, order);
      return true;
    case Kind::Float:
      SortStored<float>(array, order);
      return true;
    case Kind::Double:
      SortStored<double>(array, order);
      return true;
    default:
      break;
  }
  std::vector<Keyed> elements(array.Count());
  kel::StopPoll poll(kTextsPerLook);
  for (uint32_t i = 0; i < array.Count(); ++i) {
    poll.Step();
    elements[i] = {array.Data<Cell>()[i], i};
  }
  if (!SortKeyed(elements, array.StorageKind(), order)) return false;
  Arrange(array, elements);
  return true;
}

ArrayResult Sorted(Call& call, const ArrayOperand& array, Order order) {
  if (!array.isArray) return RefusedArray(call, array, {});
  if (array.data == nullptr || array.data->Count() == 0) return SameArray(array);
  ArrayResult result(array.type, array.data->Copy());
  if (!SortElements(*result.operator->(), order)) return RefusedArray(call, array, {});
  return result;
}

ArrayResult SortedByMember(Call& call, const ArrayOperand& array, std::string_view member,
                           Order order) {
  if (!array.isArray) return RefusedArray(call, array, member);
  if (array.data == nullptr || array.data->Count() == 0) return SameArray(array);
  const MemberReader reader(array, member);
  std::vector<Keyed> elements;
  elements.reserve(array.data->Count());
  kel::StopPoll poll(kTextsPerLook);
  for (uint32_t i = 0; reader.IsFound() && i < array.data->Count(); ++i) {
    poll.Step();
    const std::optional<Cell> key = reader.Read(i);
    if (!key) break;
    elements.push_back({*key, i});
  }
  if (elements.size() != array.data->Count() || !SortKeyed(elements, reader.GetKind(), order)) {
    return RefusedArray(call, array, member);
  }
  ArrayResult result(array.type, array.data->Copy());
  Arrange(*result.operator->(), elements);
  return result;
}

}  // namespace

ArrayResult ArraySort(Call& call, ArrayOperand array, bool ascending) {
  return Sorted(call, array, {ascending, CaseMatters(call)});
}

ArrayResult ArraySortCase(Call& call, ArrayOperand array, bool ascending, bool caseSensitive) {
  return Sorted(call, array, {ascending, caseSensitive});
}

ArrayResult ArraySortMember(Call& call, ArrayOperand array, std::string_view member,
                            bool ascending) {
  return SortedByMember(call, array, member, {ascending, CaseMatters(call)});
}

ArrayResult ArraySortMemberCase(Call& call, ArrayOperand array, std::string_view member,
                                bool ascending, bool caseSensitive) {
  return SortedByMember(call, array, member, {ascending, caseSensitive});
}

}  // namespace tamber
