#include "values/packedarray.h"

#include <bit>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "kel/kelascii.h"
#include "kel/number.h"
#include "kel/stop.h"
#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/strbuf.h"
#include "values/structdata.h"
#include "values/varestring.h"

namespace tamber {
namespace {

static_assert(std::endian::native == std::endian::little, "numbers are packed as they lie here");

/// What packed arrays begin with, and strings that happen to begin so, each with a letter behind.
constexpr std::string_view kMark("\0Tamber", 7);
constexpr char kArrayMark = 'A';
constexpr char kStringMark = 'S';

/// What a packed value is. The letters are in the stores of hosts and never change.
enum class Form : char {
  Nothing = '-',  ///< no bytes
  Bool = 'b',     ///< one byte
  Char = 'c',     ///< one byte
  Int = 'i',      ///< four bytes
  Float = 'f',    ///< four bytes
  Double = 'd',   ///< eight bytes
  String = 's',   ///< a length and the bytes
  EString = 'e',  ///< the same of the encrypted string
  Struct = '{',   ///< its members; the form goes on with their number, names and forms
  Array = '[',    ///< a count, the form of the elements and the elements
  Any = '?',      ///< a form and its value
};

Form FormOf(const TypeDesc& type, int depth) {
  switch (depth == 0 ? Kind::None : type.GetKind()) {
    case Kind::Bool:
      return Form::Bool;
    case Kind::Char:
      return Form::Char;
    case Kind::Int:
      return Form::Int;
    case Kind::Float:
      return Form::Float;
    case Kind::Double:
      return Form::Double;
    case Kind::String:
      return Form::String;
    case Kind::EString:
      return Form::EString;
    case Kind::Array:
      return Form::Array;
    case Kind::Struct:
      return type.Layout() ? Form::Struct : Form::Nothing;
    default:
      return Form::Nothing;
  }
}

/// Of an element or member of such a form in an array in memory, 0 when its bytes are not those.
constexpr size_t RawSize(Form form) {
  switch (form) {
    case Form::Bool:
    case Form::Char:
      return 1;
    case Form::Int:
    case Form::Float:
      return 4;
    case Form::Double:
      return 8;
    default:
      return 0;
  }
}

class Packer {
 public:
  void Mark() { out_.append(kMark).push_back(kArrayMark); }
  std::string Take() { return std::move(out_); }

  void PutArray(const ArrayData* array, int depth) {
    const uint32_t count = array != nullptr ? array->Count() : 0;
    PutCount(count);
    if (count == 0) {
      PutEmpty(array);
      return;
    }
    if (array->StorageKind() == Kind::Any) {
      PutObjects(*array, depth);
      return;
    }
    const TypeDesc& type = *array->ElementType();
    PutForm(type, depth);
    const size_t size = RawSize(FormOf(type, depth));
    if (size > 0 && !array->HasBoxes()) {
      out_.append(array->Data<char>(), size * count);
      return;
    }
    for (uint32_t i = 0; i < count; ++i) {
      poll_.Step();
      PutValue(type, array->Peek(i), depth);
    }
  }

 private:
  /// What an empty array could grow by, if that needs no declaration.
  void PutEmpty(const ArrayData* array) {
    const bool isKnown = array != nullptr && array->ElementType();
    const Form form = isKnown ? FormOf(*array->ElementType(), 1) : Form::Nothing;
    out_.push_back(static_cast<char>(form == Form::Struct ? Form::Nothing : form));
  }

  void PutObjects(const ArrayData& array, int depth) {
    out_.push_back(static_cast<char>(Form::Any));
    for (uint32_t i = 0; i < array.Count(); ++i) {
      poll_.Step();
      Variable& object = *array.Peek(i).v;
      PutForm(*TypeOf(object), depth);
      PutValue(*TypeOf(object), *CellOf(object), depth);
    }
  }

  void PutForm(const TypeDesc& type, int depth) {
    const Form form = FormOf(type, depth);
    out_.push_back(static_cast<char>(form));
    if (form != Form::Struct) return;
    PutCount(type.Layout()->Members().size());
    for (const StructLayout::Member& member : type.Layout()->Members()) {
      PutString(kel::Lowered(member.name.View()));
      PutForm(*member.type, depth - 1);
    }
  }

  void PutValue(const TypeDesc& type, Cell cell, int depth) {
    switch (FormOf(type, depth)) {
      case Form::Bool:
      case Form::Char:
        out_.push_back(static_cast<char>(cell.i));
        break;
      case Form::Int:
        PutRaw(cell.i);
        break;
      case Form::Float:
        PutRaw(cell.f);
        break;
      case Form::Double:
        PutRaw(cell.d);
        break;
      case Form::String:
        PutString(TextOf(cell.s));
        break;
      case Form::EString:
        PutString(static_cast<const VarEString&>(*cell.v).Sealed());
        break;
      case Form::Array:
        PutArray(cell.a, depth - 1);
        break;
      case Form::Struct:
        PutStruct(type, cell, depth - 1);
        break;
      default:
        break;
    }
  }

  /// The members in the order of the type, which the form has promised. An object that hosts have
  /// given members of its own is converted.
  void PutStruct(const TypeDesc& type, Cell cell, int depth) {
    const auto& members = type.Layout()->Members();
    OwnedCell own(Kind::Struct, ZeroCell());
    if (cell.st->Layout().Get() != type.Layout().Get()) {
      const TypeRef other = TypeDesc::StructOf(cell.st->Layout());
      if (!ConvertCell(type, *other, cell, own.cell)) own.cell = DefaultCell(type);
      cell = own.cell;
    }
    for (uint32_t i = 0; i < members.size(); ++i)
      PutValue(*members[i].type, cell.st->Peek(i), depth);
  }

  /// Seven bits a byte, the lowest first; the last byte has no eighth.
  void PutCount(uint64_t count) {
    for (; count > 0x7F; count >>= 7) out_.push_back(static_cast<char>(count | 0x80));
    out_.push_back(static_cast<char>(count));
  }

  template <class T>
  void PutRaw(T value) {
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    out_.append(bytes, sizeof value);
  }

  void PutString(std::string_view text) {
    PutCount(text.size());
    out_.append(text);
  }

  std::string out_;
  kel::StopPoll poll_{kel::kElementsPerLook};
};

/// A form as it was read, with the member of the target that takes each member.
struct Shape {
  Form form = Form::Nothing;
  int32_t member = -1;
  uint64_t least = 0;  ///< bytes that a value has at least
  std::vector<Shape> members;
};

/// Reads bytes that anybody may have written: whatever does not fit makes it fail, and every count
/// is backed by bytes before memory is taken for it.
class Unpacker {
 public:
  explicit Unpacker(std::string_view bytes) : rest_(bytes) {}
  bool IsDone() const { return !failed_ && rest_.empty(); }

  /// Null: the elements are skipped.
  void TakeArray(const Place* target, int depth) {
    const uint64_t count = TakeCount();
    const Shape shape =
        TakeShape(target != nullptr ? target->declared->Element().Get() : nullptr, depth);
    if (shape.least > 0 && count > rest_.size() / shape.least) failed_ = true;
    // Elements of which nothing was kept are no elements to come back.
    if (failed_ || (count > 0 && shape.least == 0)) return;
    ArrayData* const array = target != nullptr ? Prepare(*target, count, shape.form) : nullptr;
    if (array != nullptr && TakeRaw(*array, shape.form)) return;
    for (uint64_t i = 0; i < count && !failed_; ++i) {
      poll_.Step();
      const bool isThere = array != nullptr && i < array->Count();
      isThere ? TakeElement(*array, static_cast<uint32_t>(i), shape, depth)
              : TakeValue(shape, nullptr, nullptr, depth);
    }
  }

 private:
  /// The array with so many elements, unshared; null when it is empty.
  ArrayData* Prepare(const Place& target, uint64_t count, Form form) {
    if (!target.declared->Element()) SetElementType(target, form);
    ArrayData*& slot = target.cell->a;
    const int64_t present = slot != nullptr ? slot->Count() : 0;
    if (Resize(target, static_cast<int64_t>(count) - present) != Stored::Done) failed_ = true;
    if (failed_ || slot == nullptr || slot->Count() == 0) return nullptr;
    return Unshare(slot, target.declared->Element());
  }

  /// Gives an array that is declared without a type of its elements the one that it was packed
  /// with, if that needs no declaration.
  static void SetElementType(const Place& target, Form form) {
    for (const Kind kind : {Kind::Bool, Kind::Char, Kind::Int, Kind::Float, Kind::Double,
                            Kind::String, Kind::EString}) {
      const TypeRef& type = TypeDesc::Of(kind);
      if (FormOf(*type, 1) != form) continue;
      const ArrayData* present = target.cell->a;
      if (present != nullptr && present->ElementType().Get() == type.Get()) return;
      Cell cell = ZeroCell();
      cell.a = ArrayData::New(type);
      StoreCell(Kind::Array, *target.cell, cell);
    }
  }

  /// All elements at once, where they lie in memory as they are packed.
  bool TakeRaw(ArrayData& array, Form form) {
    const size_t size = RawSize(form);
    const bool isRaw = size > 0 && form != Form::Bool && !array.HasBoxes() &&
                       array.StorageKind() != Kind::Any && FormOf(*array.ElementType(), 1) == form;
    if (!isRaw) return false;
    const std::string_view bytes = TakeBytes(uint64_t{array.Count()} * size);
    if (!failed_) kel::CopyInSteps(array.Data<char>(), bytes.data(), bytes.size());
    return true;
  }

  void TakeElement(ArrayData& array, uint32_t at, const Shape& shape, int depth) {
    if (IsManaged(array.StorageKind())) {
      const Place place = array.Enter(at);
      TakeValue(shape, place.declared, place.cell, depth);
    } else {
      Cell value = array.Peek(at);
      TakeValue(shape, array.ElementType().Get(), &value, depth);
      array.Put(at, value);
    }
  }

  Shape TakeShape(const TypeDesc* type, int depth) {
    Shape shape;
    shape.form = static_cast<Form>(TakeByte());
    switch (shape.form) {
      case Form::Nothing:
        break;
      case Form::String:
      case Form::EString:
      case Form::Array:
      case Form::Any:
        shape.least = 1;
        break;
      case Form::Struct:
        if (depth == 0) failed_ = true;
        TakeMembers(type, depth - 1, shape);
        break;
      default:
        shape.least = RawSize(shape.form);
        failed_ = failed_ || shape.least == 0;
        break;
    }
    return shape;
  }

  void TakeMembers(const TypeDesc* type, int depth, Shape& shape) {
    const StructLayout* layout =
        type != nullptr && type->GetKind() == Kind::Struct ? type->Layout().Get() : nullptr;
    const uint64_t count = TakeCount();
    if (count > rest_.size()) failed_ = true;
    for (uint64_t i = 0; i < count && !failed_; ++i) {
      const std::string_view name = TakeString();
      const int32_t member = layout != nullptr ? layout->Find(name) : -1;
      const TypeDesc* own =
          member < 0 ? nullptr : layout->Members()[static_cast<uint32_t>(member)].type.Get();
      Shape taken = TakeShape(own, depth);
      if (taken.least == 0) continue;
      taken.member = member;
      shape.least += taken.least;
      shape.members.push_back(std::move(taken));
    }
  }

  /// Null: the value is skipped.
  void TakeValue(const Shape& shape, const TypeDesc* type, Cell* slot, int depth) {
    switch (shape.form) {
      case Form::Bool:
      case Form::Char:
        return Number(TakeRaw<int8_t>(), type, slot);
      case Form::Int:
        return Number(TakeRaw<int32_t>(), type, slot);
      case Form::Float:
        return Real(Kind::Float, TakeRaw<float>(), type, slot);
      case Form::Double:
        return Real(Kind::Double, TakeRaw<double>(), type, slot);
      case Form::String:
      case Form::EString:
        return String(shape.form, TakeString(), type, slot);
      case Form::Any: {
        const Shape own = TakeShape(type, depth);
        if (own.form == Form::Any) failed_ = true;
        if (!failed_) TakeValue(own, type, slot, depth);
        return;
      }
      case Form::Array: {
        if (depth == 0) failed_ = true;
        if (failed_) return;
        const Place place{slot, type};
        return TakeArray(Is(Kind::Array, type) ? &place : nullptr, depth - 1);
      }
      case Form::Struct:
        return TakeStruct(shape, type, slot, depth - 1);
      default:
        return;
    }
  }

  void TakeStruct(const Shape& shape, const TypeDesc* type, Cell* slot, int depth) {
    const bool isKept = Is(Kind::Struct, type) && slot->st->Layout().Get() == type->Layout().Get();
    if (isKept) Unshare(slot->st);
    for (const Shape& member : shape.members) {
      if (failed_) return;
      if (isKept && member.member >= 0) {
        const auto at = static_cast<uint32_t>(member.member);
        TakeValue(member, type->Layout()->Members()[at].type.Get(), slot->st->Slot(at), depth);
      } else {
        TakeValue(member, nullptr, nullptr, depth);
      }
    }
  }

  static bool Is(Kind kind, const TypeDesc* type) {
    return type != nullptr && type->GetKind() == kind;
  }

  void Number(int32_t value, const TypeDesc* type, Cell* slot) {
    if (!failed_ && type != nullptr) TakeStoredNumber(type->GetKind(), value, *slot);
  }

  template <class T>
  void Real(Kind kind, T value, const TypeDesc* type, Cell* slot) {
    if (failed_ || type == nullptr) return;
    if (type->GetKind() != kind) {
      TakeStoredString(type->GetKind(), kel::FormatGeneral(value), *slot);
    } else if constexpr (std::is_same_v<T, float>) {
      slot->f = value;
    } else {
      slot->d = value;
    }
  }

  void String(Form form, std::string_view text, const TypeDesc* type, Cell* slot) {
    if (failed_ || type == nullptr) return;
    if (form == Form::String) {
      TakeStoredString(type->GetKind(), text, *slot);
    } else if (type->GetKind() == Kind::EString) {
      static_cast<VarEString&>(*slot->v).SetSealed(text);
    }
  }

  std::string_view TakeBytes(uint64_t count) {
    if (failed_ || count > rest_.size()) {
      failed_ = true;
      return {};
    }
    const std::string_view bytes = rest_.substr(0, static_cast<size_t>(count));
    rest_.remove_prefix(static_cast<size_t>(count));
    return bytes;
  }

  char TakeByte() {
    const std::string_view byte = TakeBytes(1);
    return failed_ ? '\0' : byte[0];
  }

  template <class T>
  T TakeRaw() {
    T value{};
    const std::string_view bytes = TakeBytes(sizeof value);
    if (!failed_) std::memcpy(&value, bytes.data(), sizeof value);
    return value;
  }

  uint64_t TakeCount() {
    uint64_t count = 0;
    for (unsigned shift = 0; shift < 35; shift += 7) {
      const auto byte = static_cast<unsigned char>(TakeByte());
      count |= uint64_t{byte & 0x7FU} << shift;
      if (byte < 0x80) return count;
    }
    failed_ = true;
    return 0;
  }

  std::string_view TakeString() { return TakeBytes(TakeCount()); }

  std::string_view rest_;
  bool failed_ = false;
  kel::StopPoll poll_{kel::kElementsPerLook};
};

bool IsMarked(std::string_view stored, char mark) {
  return stored.size() > kMark.size() && stored.starts_with(kMark) && stored[kMark.size()] == mark;
}

}  // namespace

std::string PackArray(const ArrayData* array, int depth) {
  Packer packer;
  packer.Mark();
  packer.PutArray(array, depth);
  return packer.Take();
}

bool UnpackArray(const Place& array, std::string_view bytes, int depth) {
  if (!IsMarked(bytes, kArrayMark)) return false;
  bytes.remove_prefix(kMark.size() + 1);
  // A copy, so that half of a value does not take the place of the whole one.
  OwnedCell copy(Kind::Array, CopyCell(Kind::Array, *array.cell));
  const Place target{&copy.cell, array.declared};
  Unpacker unpacker(bytes);
  unpacker.TakeArray(&target, depth);
  if (!unpacker.IsDone()) return false;
  if (array.cell->a != nullptr && array.cell->a->HasBoxes()) {
    // Somebody holds elements, which are to be the new ones.
    Unpacker(bytes).TakeArray(&array, depth);
  } else {
    StoreCell(Kind::Array, *array.cell, copy.Take());
  }
  return true;
}

std::string EscapeString(std::string_view text) {
  std::string stored;
  if (text.starts_with(kMark)) stored.append(kMark).push_back(kStringMark);
  return stored.append(text);
}

bool UnescapeString(std::string_view& stored) {
  if (IsMarked(stored, kArrayMark)) return false;
  if (IsMarked(stored, kStringMark)) stored.remove_prefix(kMark.size() + 1);
  return true;
}

void TakeStoredNumber(Kind kind, int64_t value, Cell& slot) {
  const auto number = static_cast<int32_t>(static_cast<uint64_t>(value) & 0xFFFFFFFFU);
  if (kind == Kind::Bool) slot = IntCell(number != 0);
  if (kind == Kind::Char) slot = IntCell(CellToChar(Kind::Int, IntCell(number)));
  if (kind == Kind::Int) slot = IntCell(number);
}

void TakeStoredString(Kind kind, std::string_view text, Cell& slot) {
  Cell made = ZeroCell();
  if (kind == Kind::Float && kel::ParseFloat(text, made.f)) slot = made;
  if (kind == Kind::Double && kel::ParseDouble(text, made.d)) slot = made;
  if (kind != Kind::String) return;
  made.s = text.empty() ? nullptr : StrBuf::New(text);
  StoreCell(kind, slot, made);
}

}  // namespace tamber
