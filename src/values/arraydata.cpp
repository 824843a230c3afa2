#include "values/arraydata.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <new>
#include <utility>

#include "kel/memory.h"
#include "kel/stop.h"
#include "values/account.h"
#include "values/cellops.h"
#include "values/leftbehind.h"
#include "values/nesting.h"
#include "values/store.h"
#include "values/structdata.h"
#include "values/variable.h"
#include "values/varstring.h"

namespace tamber {
namespace {

constexpr uint64_t kMaxCount = 0xFFFFFFFEu;
/// Default structures are shared between this many elements, so that a large array of empty ones is
/// cheap and no count of references can overflow.
constexpr uint32_t kSharedDefaults = 65536;
/// What an element that is an object costs at least.
constexpr uint64_t kObjectSize = 64;

/// Room for arrays that grow: repeated appends must cost linear time altogether.
uint64_t GrownCount(uint32_t count) { return std::min(uint64_t{count} + count / 2 + 8, kMaxCount); }

/// The capacity to grow to for so many elements: none that could hold more than there may be.
uint64_t Allowed(uint64_t count, uint64_t capacity) {
  CheckArrayLength(count);
  return std::max(count, std::min<uint64_t>(capacity, memory_account.longestArray));
}

/// Zeroed memory. Fresh pages cost nothing until they are touched, so that a huge empty array is
/// cheap.
class CountedZeros {
 public:
  explicit CountedZeros(size_t size) : size_(size) {
    CountAllocated(size);
    memory_ = std::calloc(size, 1);
    if (memory_ != nullptr) return;
    CountFreed(size);
    throw std::bad_alloc();
  }
  CountedZeros(const CountedZeros&) = delete;
  CountedZeros& operator=(const CountedZeros&) = delete;
  ~CountedZeros() { FreeCounted(memory_, size_); }
  void* Get() { return memory_; }
  void* Take() { return std::exchange(memory_, nullptr); }

 private:
  size_t size_;
  void* memory_;
};

}  // namespace

Kind ArrayData::StorageOf(const TypeRef& element) {
  if (!element) return Kind::Any;
  switch (element->GetKind()) {
    case Kind::None:
    case Kind::Array:
      return Kind::Any;
    default:
      return element->GetKind();
  }
}

ArrayData::ArrayData(const TypeRef& element)
    : RefObject(Type::Array), kind_(StorageOf(element)), element_(element) {}

ArrayData::~ArrayData() { DropFrom(0); }

ArrayData* ArrayData::New(const TypeRef& element) { return new ArrayData(element); }

void ArrayData::Destroy(ArrayData* array) { delete array; }

void* ArrayData::operator new(size_t size) { return AllocateCounted(size); }
void ArrayData::operator delete(void* memory, size_t size) { FreeCounted(memory, size); }

void ArrayData::FreeData() {
  FreeCounted(data_, size_t{capacity_} * CellSize());
  data_ = nullptr;
  capacity_ = 0;
}

void ArrayData::SetElementType(const TypeRef& element) {
  FreeData();
  element_ = element;
  kind_ = StorageOf(element);
}

size_t ArrayData::CellSize() const {
  switch (kind_) {
    case Kind::Bool:
    case Kind::Char:
      return sizeof(int8_t);
    case Kind::Int:
      return sizeof(int32_t);
    case Kind::Float:
      return sizeof(float);
    default:
      return sizeof(Cell);
  }
}

Cell ArrayData::LoadRaw(uint32_t at) const {
  Cell cell = ZeroCell();
  switch (kind_) {
    case Kind::Bool:
    case Kind::Char:
      cell.i = Data<int8_t>()[at];
      break;
    case Kind::Int:
      cell.i = Data<int32_t>()[at];
      break;
    case Kind::Float:
      cell.f = Data<float>()[at];
      break;
    default:
      cell = Data<Cell>()[at];
      break;
  }
  return cell;
}

void ArrayData::StoreRaw(uint32_t at, Cell value) {
  switch (kind_) {
    case Kind::Bool:
    case Kind::Char:
      Data<int8_t>()[at] = static_cast<int8_t>(value.i);
      break;
    case Kind::Int:
      Data<int32_t>()[at] = value.i;
      break;
    case Kind::Float:
      Data<float>()[at] = value.f;
      break;
    default:
      Data<Cell>()[at] = value;
      break;
  }
}

Variable* ArrayData::FindBox(uint32_t at) const {
  return boxes_ == nullptr || HoldsObjects(kind_) ? nullptr : boxes_->Find(at);
}

bool ArrayData::HasBox(uint32_t at) const { return FindBox(at) != nullptr; }

Cell ArrayData::Peek(uint32_t at) const {
  const Variable* box = FindBox(at);
  return box != nullptr ? VariableAccess::CellOf(*box) : LoadRaw(at);
}

void ArrayData::Put(uint32_t at, Cell value) {
  if (Variable* box = FindBox(at)) {
    StoreInto(*box, *element_, value);
    return;
  }
  if (!IsManaged(kind_)) {
    StoreRaw(at, value);
    return;
  }
  written_ = std::max(written_, at + 1);
  StoreCell(kind_, Data<Cell>()[at], WithoutBoxes(kind_, value));
}

Place ArrayData::Enter(uint32_t at) {
  if (Variable* box = FindBox(at)) return PlaceOf(*box);
  written_ = std::max(written_, at + 1);
  Cell& cell = Data<Cell>()[at];
  return kind_ == Kind::Any ? PlaceOf(*cell.v) : Place{&cell, element_.Get()};
}

void ArrayData::Grow(uint64_t count) {
  if (count > kMaxCount) throw std::bad_alloc();
  const auto wanted = static_cast<size_t>(count);
  if (!kel::CanAllocate(wanted * CellSize())) throw std::bad_alloc();
  if (wanted > size_t{capacity_} * 2) {
    CountedZeros larger(wanted * CellSize());
    kel::CopyInSteps(larger.Get(), data_, size_t{count_} * CellSize());
    FreeData();
    data_ = larger.Take();
  } else {
    const size_t before = size_t{capacity_} * CellSize();
    data_ = ReallocateCounted(data_, before, wanted * CellSize());
    try {
      kel::ClearInSteps(static_cast<char*>(data_) + before, wanted * CellSize() - before);
    } catch (...) {
      CountFreed(wanted * CellSize() - before);  // as the capacity says
      throw;
    }
  }
  capacity_ = static_cast<uint32_t>(wanted);
}

void ArrayData::Reserve(uint64_t count) {
  if (count > capacity_) Grow(count);
}

void ArrayData::Append(Cell value) {
  if (count_ == capacity_) {
    if (count_ == kMaxCount) throw std::bad_alloc();
    Grow(Allowed(count_ + uint64_t{1}, GrownCount(count_)));
  }
  StoreRaw(count_, WithoutBoxes(kind_, value));
  written_ = ++count_;
}

void ArrayData::AppendOwned(Cell value) {
  try {
    Append(value);
  } catch (...) {
    ReleaseCell(kind_, value);
    throw;
  }
}

void ArrayData::Resize(uint64_t count) {
  if (count <= count_) {
    DropFrom(static_cast<uint32_t>(count));
    return;
  }
  if (!element_) return;  // nothing says what the elements would be
  if (kind_ == Kind::EString || kind_ == Kind::Any) CheckRoomForObjects(count - count_);
  // An array that grows again will go on growing.
  if (count > capacity_) {
    Grow(count_ == 0 ? Allowed(count, count) : Allowed(count, std::max(count, GrownCount(count_))));
  }
  if (kind_ == Kind::Struct || kind_ == Kind::EString || kind_ == Kind::Any) {
    AppendDefaults(static_cast<uint32_t>(count));
    return;
  }
  count_ = static_cast<uint32_t>(count);
  if (!IsManaged(kind_)) written_ = count_;
}

void ArrayData::CheckRoomForObjects(uint64_t count) {
  if (!kel::CanAllocate(static_cast<size_t>(count * kObjectSize))) throw std::bad_alloc();
}

void ArrayData::AppendDefaults(uint32_t count) {
  const uint32_t before = count_;
  OwnedCell sample(kind_, ZeroCell());
  kel::StopPoll poll(kel::kElementsPerLook);
  try {
    while (count_ < count) {
      poll.Step();
      if (kind_ != Kind::Struct) {
        AppendOwned(DefaultElement());
        continue;
      }
      if ((count_ - before) % kSharedDefaults == 0) {
        ReleaseCell(kind_, sample.Take());
        sample.cell = DefaultElement();
      }
      Retain(sample.cell.st);
      AppendOwned(sample.cell);
    }
  } catch (...) {
    DropFrom(before);
    throw;
  }
}

Cell ArrayData::DefaultElement() const {
  if (kind_ != Kind::Any) return DefaultCell(*element_);
  Cell cell = ZeroCell();
  cell.v = MakeVariable(element_, Name());
  return cell;
}

/// Brings the cells behind the first `count` back to zero. Many are given back instead, which takes
/// no time.
void ArrayData::ClearFrom(uint32_t count) {
  const size_t kept = size_t{count} * CellSize();
  const size_t cleared = size_t{count_ - count} * CellSize();
  void* const shorter = cleared > kel::kBytesPerStep ? std::realloc(data_, kept) : nullptr;
  if (shorter != nullptr) {
    data_ = shorter;
    CountFreed(size_t{capacity_ - count} * CellSize());
    capacity_ = count;
  } else {
    std::memset(static_cast<char*>(data_) + kept, 0, cleared);
  }
}

/// Lets elements that own something go one by one, until a stop leaves them behind.
void ArrayData::ReleaseFrom(uint32_t count) {
  constexpr uint32_t kPerLook = 1024;
  constexpr uint32_t kFew = 16;
  for (uint32_t at = count; at < written_;) {
    if (written_ - at > kFew && IsLeavingBehind() && LeaveFrom(at, count)) return;
    const uint32_t end = at + std::min(written_ - at, kPerLook);
    for (; at < end; ++at) {
      const Cell old = LoadRaw(at);
      StoreRaw(at, ZeroCell());
      ReleaseCell(kind_, old);
    }
  }
}

/// Moves the elements from `at` on to an array that is left behind, where the first `kept` stay and
/// those between are empty: by the shorter copy. False when that would take long as well, or for
/// want of memory.
bool ArrayData::LeaveFrom(uint32_t at, uint32_t kept) {
  constexpr uint32_t kMostCopied = 4'000'000;
  const bool takesMemory = kept <= written_ - at;
  const uint32_t copied = takesMemory ? kept : written_ - at;
  if (copied > kMostCopied) return false;
  const size_t size = size_t{copied} * CellSize();
  void* memory = nullptr;
  ArrayData* rest = nullptr;
  const bool isLeft = Attempt([&] {
    if (copied > 0) memory = AllocateCounted(size);
    rest = New(element_);
    if (!LeaveBehind(rest)) throw std::bad_alloc();
  });
  if (!isLeft) {
    FreeCounted(memory, size);
    if (rest != nullptr) Destroy(rest);
    return false;
  }
  char* const from = static_cast<char*>(data_) + (takesMemory ? 0 : size_t{at} * CellSize());
  if (copied > 0) {
    std::memcpy(memory, from, size);
    std::memset(from, 0, size);
  }
  rest->data_ = memory;
  rest->count_ = rest->capacity_ = rest->written_ = copied;
  if (takesMemory) {
    std::swap(data_, rest->data_);
    std::swap(capacity_, rest->capacity_);
    rest->count_ = rest->written_ = written_;
  }
  written_ = kept;
  return true;
}

void ArrayData::FreeMemory() {
  if (IsLeavingBehind(data_, size_t{capacity_} * CellSize()) && LeaveFrom(written_, 0)) return;
  FreeData();
}

/// Elements that are objects or texts are let go one by one. The rest need only be cleared when
/// their memory stays.
void ArrayData::DropFrom(uint32_t count) {
  const bool stays = count > 0;
  if (IsManaged(kind_)) {
    ReleaseFrom(count);
  } else if (stays && count < count_) {
    ClearFrom(count);
  }
  if (boxes_ != nullptr) {
    boxes_->EraseIf([count](uint32_t at, Variable* box) {
      if (at >= count) Variable::Delete(box);
      return at >= count;
    });
  }
  count_ = count;
  written_ = std::min(written_, count);
  if (stays) return;
  boxes_.reset();
  FreeMemory();
}

void ArrayData::Swap(uint32_t a, uint32_t b) {
  if (a == b) return;
  if (boxes_ != nullptr && HoldsObjects(kind_)) {
    boxes_->Slot(a);
    boxes_->Slot(b);
  }
  written_ = std::max({written_, a + 1, b + 1});
  const Cell first = LoadRaw(a);
  StoreRaw(a, LoadRaw(b));
  StoreRaw(b, first);
  Variable* left = FindBox(a);
  Variable* right = FindBox(b);
  if (left == nullptr && right == nullptr) return;
  // Insert before erasing, so that a failure for want of memory loses nothing.
  if (left != nullptr) boxes_->Slot(b) = left;
  if (right != nullptr) boxes_->Slot(a) = right;
  if (left == nullptr) boxes_->Erase(b);
  if (right == nullptr) boxes_->Erase(a);
}

void ArrayData::CloseGap(uint32_t at) {
  const size_t size = CellSize();
  char* gap = static_cast<char*>(data_) + size_t{at} * size;
  std::memmove(gap, gap + size, static_cast<size_t>(count_ - at - 1) * size);
  --count_;
  written_ = std::min(written_, count_);
  StoreRaw(count_, ZeroCell());
  if (boxes_ == nullptr) return;
  boxes_->Erase(at);
  boxes_->CloseGap(at);
}

Cell ArrayData::Remove(uint32_t at) {
  Variable* box = FindBox(at);
  const Cell value = box != nullptr ? CopyCell(kind_, Peek(at)) : LoadRaw(at);
  if (box != nullptr) {
    boxes_->Erase(at);
    Variable::Delete(box);
  }
  CloseGap(at);
  return value;
}

ArrayData* ArrayData::Copy() const {
  const Nesting nesting;
  if (nesting.IsTooDeep()) throw std::bad_alloc();
  OwnedCell copy(Kind::Array, ZeroCell());
  ArrayData* array = copy.cell.a = New(element_);
  array->Reserve(count_);
  if (!IsManaged(kind_) && boxes_ == nullptr) {
    kel::CopyInSteps(array->data_, data_, size_t{count_} * CellSize());
    array->written_ = array->count_ = count_;
  } else {
    kel::StopPoll poll(kel::kElementsPerLook);
    for (uint32_t at = 0; at < count_; ++at) {
      poll.Step();
      array->AppendOwned(CopyCell(kind_, Peek(at)));
    }
  }
  return copy.Take().a;
}

void ArrayData::NeedBoxes() {
  if (boxes_ == nullptr) boxes_.reset(new BoxMap);
}

Variable* ArrayData::Box(uint32_t at) {
  NeedBoxes();
  Variable*& box = boxes_->Slot(at);
  if (HoldsObjects(kind_)) return Data<Cell>()[at].v;
  if (box == nullptr) {
    try {
      box = MakeVariable(element_, Name(), LoadRaw(at));
    } catch (...) {
      boxes_->Erase(at);
      throw;
    }
    StoreRaw(at, ZeroCell());
  }
  return box;
}

void ArrayData::SetBox(uint32_t at, Variable* element) {
  NeedBoxes();
  Variable*& box = boxes_->Slot(at);
  if (HoldsObjects(kind_)) {
    ReleaseCell(kind_, Data<Cell>()[at]);
    Data<Cell>()[at].v = element;
    return;
  }
  if (IsManaged(kind_)) ReleaseCell(kind_, LoadRaw(at));
  StoreRaw(at, ZeroCell());
  Variable::Delete(box);
  box = element;
}

void ArrayData::AppendBox(Variable* element) {
  NeedBoxes();
  Cell cell = ZeroCell();
  if (HoldsObjects(kind_)) {
    Reserve(uint64_t{count_} + 1);
    boxes_->Slot(count_);
    cell.v = element;
    Append(cell);
    return;
  }
  Append(cell);
  try {
    boxes_->Slot(count_ - 1) = element;
  } catch (...) {
    written_ = --count_;
    throw;
  }
}

Variable* ArrayData::RemoveBox(uint32_t at) {
  Variable* element = Box(at);
  CloseGap(at);
  return element;
}

/// Makes an element with an object one without, if nobody holds it. The caller forgets the box.
inline bool ArrayData::TakeIn(uint32_t at, Variable* box) {
  if (HoldsObjects(kind_)) {
    Variable& object = *Data<Cell>()[at].v;
    return VariableAccess::Holders(object) == 0 && SweepInside(object);
  }
  const bool isPlain = !IsManaged(kind_);
  if (isPlain ? VariableAccess::Holders(*box) > 0 : !CanUnbox(*box, *element_)) return false;
  written_ = std::max(written_, at + 1);
  StoreRaw(at, Unbox(box));
  return true;
}

void ArrayData::SweepBoxes() {
  if (boxes_ == nullptr) return;
  boxes_->EraseIf([this](uint32_t at, Variable* box) { return TakeIn(at, box); });
  if (boxes_->IsEmpty()) boxes_.reset();
}

void ArrayData::SweepWhenDue() {
  SweepForAnother();
  if (boxes_ != nullptr && boxes_->IsEmpty()) boxes_.reset();
}

void ArrayData::SweepForAnother() {
  if (boxes_ == nullptr || !boxes_->IsDue()) return;
  boxes_->EraseIf([this](uint32_t at, Variable* box) { return TakeIn(at, box); });
  boxes_->Wait();
}

void ArrayData::SweepBox(uint32_t at) {
  Variable* const box = FindBox(at);
  if (box == nullptr || !TakeIn(at, box)) return;
  boxes_->Erase(at);
  if (boxes_->IsEmpty()) boxes_.reset();
}

ArrayData* Unshare(ArrayData*& slot, const TypeRef& element) {
  if (slot == nullptr) {
    slot = ArrayData::New(element);
  } else if (slot->IsShared()) {
    ArrayData* copy = slot->Copy();
    Release(slot);
    slot = copy;
  }
  return slot;
}

ArrayData* ShareArray(ArrayData* array) {
  if (array == nullptr) return nullptr;
  if (array->HasBoxes()) return array->Copy();
  assert(!HasBoxesInside(Kind::Array, Cell{.a = array}));
  Retain(array);
  return array;
}

}  // namespace tamber
