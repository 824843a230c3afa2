#include "values/typelist.h"

#include <algorithm>
#include <iterator>
#include <string>
#include <unordered_map>
#include <utility>

#include "kel/kelascii.h"
#include "values/cellops.h"
#include "values/epoch.h"
#include "values/vararray.h"
#include "values/varholder.h"
#include "values/varnone.h"

using tamber::Kind;
using tamber::Name;
using tamber::TypeDesc;
using tamber::TypeRef;
using tamber::TypeTable;

namespace {

constexpr uint32_t kSurvivesReset = 1;

struct DefaultType {
  std::string_view word;
  Kind kind;
  bool array;
};

constexpr DefaultType kDefaultTypes[] = {
    {"boolean", Kind::Bool, false},    {"bool", Kind::Bool, false},
    {"char", Kind::Char, false},       {"int", Kind::Int, false},
    {"long", Kind::Int, false},        {"integer", Kind::Int, false},
    {"float", Kind::Float, false},     {"double", Kind::Double, false},
    {"estring", Kind::EString, false}, {"estring[]", Kind::EString, true},
    {"string", Kind::String, false},   {"string[]", Kind::String, true},
    {"array", Kind::Array, false},     {"bool[]", Kind::Bool, true},
    {"boolean[]", Kind::Bool, true},   {"char[]", Kind::Char, true},
    {"int[]", Kind::Int, true},        {"integer[]", Kind::Int, true},
    {"long[]", Kind::Int, true},       {"float[]", Kind::Float, true},
    {"double[]", Kind::Double, true},  {"varhandle", Kind::Handle, false},
};

TypeRef TypeOfDefault(const DefaultType& row) {
  const TypeRef& plain = TypeDesc::Of(row.kind);
  return row.array ? TypeDesc::ArrayOf(plain) : plain;
}

/// The blank-separated words of a list in which ",", ";" and ":" separate as well.
std::vector<std::string_view> WordsOf(std::string_view text) {
  std::vector<std::string_view> words;
  while (!text.empty()) {
    const size_t start = text.find_first_not_of(" ,;:");
    if (start == std::string_view::npos) break;
    text.remove_prefix(start);
    const size_t end = std::min(text.find_first_of(" ,;:"), text.size());
    words.push_back(text.substr(0, end));
    text.remove_prefix(end);
  }
  return words;
}

}  // namespace

TamberType::TamberType(const KelString& name, Variable* prototype, uint32_t flags)
    : name_(name.View()),
      prototype_(prototype != nullptr ? prototype : new VarNone(Name(), 0)),
      flags_(flags) {}

TamberType::TamberType(const TamberType& other)
    : name_(other.name_),
      prototype_(other.NewVariable(other.prototype_->OwnName())),
      flags_(other.flags_) {}

TamberType::~TamberType() { Variable::Delete(prototype_); }

int32_t TamberType::IsSameType(const TamberType* other) const {
  return other != nullptr ? prototype_->IsSameType(other->prototype_) : 0;
}

int32_t TamberType::IsCompatibleType(const TamberType* other) const {
  return other != nullptr ? prototype_->IsCompatible(other->prototype_) : 0;
}

Variable* TamberType::CreateVariable(const KelString& name) const {
  return NewVariable(Name(name.View()));
}

Variable* TamberType::NewVariable(const Name& name) const {
  if (separates_) return tamber::SeparateVariable(*prototype_, name);
  Variable* variable = prototype_->Clone();
  variable->SetOwnName(name);
  return variable;
}

void TamberType::DumpType(KelString& out) const {
  out += name_.View();
  out += ": type=";
  prototype_->DumpType(out, KelString(), 0);
  out += "\r\n";
}

const TypeRef& TamberType::Type() const { return tamber::TypeOf(*prototype_); }

namespace tamber {

/// Types in the order of their names, and an index of them.
struct TypeTable {
  struct Entry {
    Name name;  // as it was added: the key below looks at its text
    std::unique_ptr<TamberType> type;
  };
  std::vector<Entry> sorted;
  std::unordered_map<std::string_view, TamberType*, kel::NoCaseHash, kel::NoCaseEqual> byName;
  uint64_t version = NextEpoch();

  TypeTable() = default;
  TypeTable(const TypeTable& other) {
    sorted.reserve(other.sorted.size());
    byName.reserve(other.sorted.size());
    for (const Entry& entry : other.sorted) {
      Insert(GetCount(), entry.name, std::make_unique<TamberType>(*entry.type));
    }
  }
  TypeTable& operator=(const TypeTable&) = delete;

  uint32_t GetCount() const { return static_cast<uint32_t>(sorted.size()); }

  const TamberType* Find(std::string_view name) const {
    const auto found = byName.find(name);
    return found == byName.end() ? nullptr : found->second;
  }

  /// Where a type of this name stands or would stand.
  uint32_t PlaceOf(std::string_view name) const {
    const auto place = std::lower_bound(sorted.begin(), sorted.end(), name,
                                        [](const Entry& entry, std::string_view wanted) {
                                          return SortCompare(entry.name.View(), wanted) < 0;
                                        });
    return static_cast<uint32_t>(place - sorted.begin());
  }

  void Insert(uint32_t place, const Name& name, std::unique_ptr<TamberType> type) {
    TamberType* added = type.get();
    sorted.insert(sorted.begin() + place, Entry{name, std::move(type)});
    byName[name.View()] = added;
  }

  void AddOrReplace(std::unique_ptr<TamberType> type) {
    const Name name = type->OwnName();
    const uint32_t place = PlaceOf(name.View());
    if (Find(name.View()) != nullptr) Take(place);
    Insert(place, name, std::move(type));
  }

  std::unique_ptr<TamberType> Take(uint32_t place) {
    std::unique_ptr<TamberType> type = std::move(sorted[place].type);
    byName.erase(sorted[place].name.View());
    sorted.erase(sorted.begin() + place);
    return type;
  }

  static int SortCompare(std::string_view left, std::string_view right) {
    return kel::CompareNoCase(left, right);
  }

  void AddDefaults() {
    for (const DefaultType& row : kDefaultTypes) {
      AddOrReplace(std::make_unique<TamberType>(
          KelString(row.word), MakeVariable(TypeOfDefault(row), Name()), kSurvivesReset));
    }
  }
};

namespace {

const std::shared_ptr<const TypeTable>& DefaultTable() {
  // Never destroyed: contexts in static objects of a host may outlive any order of destruction.
  static const auto& table = *new std::shared_ptr<const TypeTable>([] {
    auto defaults = std::make_shared<TypeTable>();
    defaults->AddDefaults();
    return defaults;
  }());
  return table;
}

const std::shared_ptr<const TypeTable>& EmptyTable() {
  static const auto& table =
      *new std::shared_ptr<const TypeTable>(std::make_shared<const TypeTable>());
  return table;
}

}  // namespace
}  // namespace tamber

TypeList::TypeList() : shared_(tamber::EmptyTable()) {}

TypeList::TypeList(const TypeList& other) { *this = other; }

TypeList& TypeList::operator=(const TypeList& other) {
  if (this == &other) return *this;
  if (other.shared_) {
    shared_ = other.shared_;
    own_.reset();
  } else {
    own_ = std::make_unique<TypeTable>(*other.own_);
    shared_.reset();
  }
  return *this;
}

TypeList::~TypeList() = default;

const TypeTable& TypeList::Table() const { return shared_ ? *shared_ : *own_; }

TypeTable& TypeList::Own() {
  if (shared_) {
    own_ = std::make_unique<TypeTable>(*shared_);
    shared_.reset();
  } else {
    own_->version = tamber::NextEpoch();
  }
  return *own_;
}

uint64_t TypeList::Version() const { return Table().version; }

uint32_t TypeList::AddType(const KelString& name, Variable* prototype, uint32_t flags) {
  tamber::VarHolder owned(prototype);
  auto type = std::make_unique<TamberType>(name, prototype, flags);
  static_cast<void>(owned.release());
  return AddType(type.release(), 1);
}

uint32_t TypeList::AddType(TamberType* type, int32_t replace) {
  if (type == nullptr) return kNotFound;
  const Name name = type->OwnName();
  const TamberType* const present = Lookup(name.View());
  if (present != type && (replace != 0 || present == nullptr)) {
    std::unique_ptr<TamberType> owned(type);
    Own().AddOrReplace(std::move(owned));
  }
  return Table().PlaceOf(name.View());
}

uint32_t TypeList::GetTypeCount() const { return Table().GetCount(); }

uint32_t TypeList::FindType(const KelString& name) const {
  return Lookup(name.View()) != nullptr ? FindNearestType(name) : kNotFound;
}

uint32_t TypeList::FindNearestType(const KelString& name) const {
  return Table().PlaceOf(name.View());
}

TamberType* TypeList::GetType(uint32_t position) {
  return position < GetTypeCount() ? Own().sorted[position].type.get() : nullptr;
}

TamberType* TypeList::GetType(const KelString& name) { return GetType(FindType(name)); }

const TamberType* TypeList::GetType(uint32_t position) const {
  return position < GetTypeCount() ? Table().sorted[position].type.get() : nullptr;
}

const TamberType* TypeList::GetType(const KelString& name) const { return Lookup(name.View()); }

KelString TypeList::GetTypeName(uint32_t position) const {
  const TamberType* type = GetType(position);
  return type != nullptr ? type->GetTypeName() : KelString();
}

TamberType* TypeList::RemoveType(uint32_t position) {
  return position < GetTypeCount() ? Own().Take(position).release() : nullptr;
}

void TypeList::DeleteType(uint32_t position) { delete RemoveType(position); }

void TypeList::CreateDefaultTypes() {
  if (GetTypeCount() == 0) {
    UseTypes(tamber::DefaultTable());
  } else {
    Own().AddDefaults();
  }
}

void TypeList::DumpTypes(KelString& out, const KelString& names, const KelString& indent) const {
  const std::vector<std::string_view> words = WordsOf(names.View());
  const bool limited = !names.IsEmpty() && names.Find("*") == KelString::kNotFound;
  out += "\r\nData types dump:";
  if (limited) out += " (limited by INI file settings) ";
  out += "\r\n";
  const auto dump = [&](const TamberType* type) {
    if (type == nullptr) return;
    out += indent.View();
    type->DumpType(out);
  };
  if (limited) {
    for (const std::string_view word : words) dump(Lookup(word));
  } else {
    for (const TypeTable::Entry& entry : Table().sorted) dump(entry.type.get());
  }
}

const TamberType* TypeList::Lookup(std::string_view word) const { return Table().Find(word); }

TypeRef TypeList::FindTypeRef(std::string_view word) const {
  const TamberType* type = Lookup(word);
  return type != nullptr ? type->Type() : TypeRef();
}

void TypeList::ShareWithPrograms() {
  if (shared_) return;
  for (const TypeTable::Entry& entry : own_->sorted) {
    tamber::SweepInside(*entry.type->GetVariable());
    entry.type->Separate();
  }
  shared_ = std::move(own_);
}

std::shared_ptr<const TypeTable> TypeList::ShareTypes() {
  if (!shared_) {
    for (const TypeTable::Entry& entry : own_->sorted) {
      Variable& prototype = *entry.type->GetVariable();
      tamber::SweepInside(prototype);
      tamber::KeepForever(tamber::KindOf(prototype), *tamber::CellOf(prototype));
    }
    shared_ = std::move(own_);
  }
  return shared_;
}

void TypeList::UseTypes(std::shared_ptr<const TypeTable> types) {
  shared_ = types ? std::move(types) : tamber::EmptyTable();
  own_.reset();
}
