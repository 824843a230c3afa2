#include "host/c_context.h"

#include <mutex>
#include <unordered_map>

#include "values/cellops.h"

namespace tamber::host {
namespace {

/// The contexts that are there. Numbers are never used twice, so that a stale one stays refused.
class Contexts {
 public:
  tamber_context* Add(std::shared_ptr<CContext> context) {
    const std::lock_guard lock(mutex_);
    // Odd, as no pointer to an object is: the two cannot be taken for each other.
    const uintptr_t id = next_;
    next_ += 2;
    contexts_.emplace(id, std::move(context));
    return reinterpret_cast<tamber_context*>(id);
  }
  std::shared_ptr<CContext> Find(const tamber_context* handle) {
    const std::lock_guard lock(mutex_);
    const auto found = contexts_.find(reinterpret_cast<uintptr_t>(handle));
    return found != contexts_.end() ? found->second : nullptr;
  }
  /// Null when there is none. What is handed back is destroyed outside the lock.
  std::shared_ptr<CContext> Remove(const tamber_context* handle) {
    const std::lock_guard lock(mutex_);
    auto node = contexts_.extract(reinterpret_cast<uintptr_t>(handle));
    return node ? std::move(node.mapped()) : nullptr;
  }

 private:
  std::mutex mutex_;
  uintptr_t next_ = 1;
  std::unordered_map<uintptr_t, std::shared_ptr<CContext>> contexts_;
};

Contexts& AllContexts() {
  // Never destroyed: hosts free contexts from destructors of their own.
  static auto* const contexts = new Contexts;
  return *contexts;
}

VariablePtr NumberOf(Kind kind, Cell cell) {
  return VariablePtr(MakeVariable(TypeDesc::Of(kind), Name(), cell));
}

bool IsNumber(const PartView& part) {
  const int type = TypeCode(part);
  return type >= TAMBER_BOOL && type <= TAMBER_DOUBLE;
}

}  // namespace

std::shared_ptr<CContext> FindContext(const tamber_context* handle) {
  return AllContexts().Find(handle);
}

int StatusOf(PathEnd end) {
  switch (end) {
    case PathEnd::Found:
      return TAMBER_OK;
    case PathEnd::Malformed:
      return TAMBER_BAD_ARGUMENT;
    case PathEnd::NoPart:
      return TAMBER_NOT_FOUND;
    case PathEnd::NoMemory:
      return TAMBER_NO_MEMORY;
    default:
      return TAMBER_WRONG_TYPE;
  }
}

int TypeCode(const PartView& part) {
  switch (part.type->GetKind()) {
    case Kind::Bool:
      return TAMBER_BOOL;
    case Kind::Char:
      return TAMBER_CHAR;
    case Kind::Int:
      return TAMBER_INT;
    case Kind::Float:
      return TAMBER_FLOAT;
    case Kind::Double:
      return TAMBER_DOUBLE;
    case Kind::String:
    case Kind::EString:
      return TAMBER_TEXT;
    case Kind::Struct:
      return TAMBER_STRUCT;
    case Kind::Array:
      return TAMBER_ARRAY;
    default:
      return TAMBER_OTHER;
  }
}

int ReadInt(const PartView& part, int32_t* value) {
  if (value == nullptr) return TAMBER_BAD_ARGUMENT;
  if (!IsNumber(part)) return TAMBER_WRONG_TYPE;
  *value = CellToInt(part.type->GetKind(), part.cell);
  return TAMBER_OK;
}

int ReadDouble(const PartView& part, double* value) {
  if (value == nullptr) return TAMBER_BAD_ARGUMENT;
  if (!IsNumber(part)) return TAMBER_WRONG_TYPE;
  *value = CellToDouble(part.type->GetKind(), part.cell);
  return TAMBER_OK;
}

int ReadText(const PartView& part, const char** text, size_t* length) {
  if (text == nullptr) return TAMBER_BAD_ARGUMENT;
  if (TypeCode(part) != TAMBER_TEXT) return TAMBER_WRONG_TYPE;
  if (part.type->GetKind() == Kind::EString) {
    *text = part.cell.v->GetStringValue();
    if (length != nullptr) *length = part.cell.v->GetLength();
    return TAMBER_OK;
  }
  const std::string_view view = tamber::TextOf(part.cell.s);
  *text = view.empty() ? "" : view.data();
  if (length != nullptr) *length = view.size();
  return TAMBER_OK;
}

VariablePtr IntOf(int32_t value) { return NumberOf(Kind::Int, IntCell(value)); }

VariablePtr DoubleOf(double value) {
  Cell cell = ZeroCell();
  cell.d = value;
  return NumberOf(Kind::Double, cell);
}

VariablePtr StringOf(const char* text, size_t length) {
  VariablePtr value(MakeVariable(TypeDesc::Of(Kind::String), Name()));
  value->SetStringValue(TextOf(text, length));
  return value;
}

}  // namespace tamber::host

const char* tamber_version(void) { return TAMBER_LIBRARY_VERSION; }

tamber_context* tamber_new(void) {
  try {
    return tamber::host::AllContexts().Add(std::make_shared<tamber::host::CContext>());
  } catch (...) {
    return nullptr;
  }
}

int tamber_free(tamber_context* context) {
  return tamber::host::Guarded([&] {
    return tamber::host::AllContexts().Remove(context) != nullptr ? TAMBER_OK : TAMBER_BAD_HANDLE;
  });
}
