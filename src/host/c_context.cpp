#include "host/c_context.h"

#include <atomic>
#include <mutex>
#include <unordered_map>

#include "values/cellops.h"
#include "values/errcodes.h"

namespace tamber::host {
namespace {

/// Numbers are never used twice, so that a stale one stays refused; nor for things of two kinds.
/// They are odd, as no pointer to an object is: the two cannot be taken for each other.
uintptr_t NextHandle() {
  static std::atomic<uintptr_t> next{1};
  return next.fetch_add(2, std::memory_order_relaxed);
}

/// The contexts or programs that are there, by what C calls them.
template <class Handle, class Object>
class Table {
 public:
  Handle* Add(std::shared_ptr<Object> object) {
    const uintptr_t id = NextHandle();
    const std::lock_guard lock(mutex_);
    objects_.emplace(id, std::move(object));
    return reinterpret_cast<Handle*>(id);
  }
  std::shared_ptr<Object> Find(const Handle* handle) {
    const std::lock_guard lock(mutex_);
    const auto found = objects_.find(reinterpret_cast<uintptr_t>(handle));
    return found != objects_.end() ? found->second : nullptr;
  }
  /// Null when there is none. What is handed back is destroyed outside the lock.
  std::shared_ptr<Object> Remove(const Handle* handle) {
    const std::lock_guard lock(mutex_);
    auto node = objects_.extract(reinterpret_cast<uintptr_t>(handle));
    return node ? std::move(node.mapped()) : nullptr;
  }

 private:
  std::mutex mutex_;
  std::unordered_map<uintptr_t, std::shared_ptr<Object>> objects_;
};

// Never destroyed: hosts free contexts and programs from destructors of their own.
auto& AllContexts() {
  static auto* const contexts = new Table<tamber_context, CContext>;
  return *contexts;
}

auto& AllPrograms() {
  static auto* const programs = new Table<tamber_program, CProgram>;
  return *programs;
}

/// How often a context was freed; what was found before may be gone.
std::atomic<uint64_t> freedContexts{0};

struct LastUsed {
  const tamber_context* handle;
  CContext* context;
  uint64_t freed;  ///< contexts, when it was found
};
[[gnu::tls_model("initial-exec")]] constinit thread_local LastUsed lastUsed{};

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

std::shared_ptr<CContext> FindOwnContext(const tamber_context* handle) {
  const uint64_t freed = freedContexts.load(std::memory_order_acquire);
  if (lastUsed.handle == handle && lastUsed.context != nullptr && lastUsed.freed == freed)
    return lastUsed.context->shared_from_this();
  std::shared_ptr<CContext> found = FindContext(handle);
  lastUsed = {handle, found.get(), freed};
  return found;
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

VariablePtr DoubleOf(double value) { return NumberOf(Kind::Double, ToCell(value)); }

VariablePtr StringOf(const char* text, size_t length) {
  VariablePtr value(MakeVariable(TypeDesc::Of(Kind::String), Name()));
  value->SetStringValue(TextOf(text, length));
  return value;
}

}  // namespace tamber::host

using namespace tamber::host;

const char* tamber_version(void) { return TAMBER_LIBRARY_VERSION; }

tamber_context* tamber_new(void) {
  try {
    return AllContexts().Add(std::make_shared<CContext>());
  } catch (...) {
    return nullptr;
  }
}

int tamber_free(tamber_context* context) {
  return Guarded([&] {
    const std::shared_ptr<CContext> freed = AllContexts().Remove(context);
    freedContexts.fetch_add(1, std::memory_order_release);
    return freed != nullptr ? TAMBER_OK : TAMBER_BAD_HANDLE;
  });
}

int tamber_freeze(tamber_context* context, tamber_program** program) {
  if (program == nullptr) return TAMBER_BAD_ARGUMENT;
  *program = nullptr;
  return WithContext(context, [&](CContext& own) -> int {
    auto made = std::make_shared<CProgram>(CProgram{own.context.Freeze(), own.listeners});
    if (made->program == nullptr) {
      const int32_t code = own.context.GetContextError();
      return code == ERR_NOMEMORY ? TAMBER_NO_MEMORY : FailureOf(code);
    }
    *program = AllPrograms().Add(std::move(made));
    return TAMBER_OK;
  });
}

int tamber_new_from(tamber_program* program, tamber_context** context) {
  if (context == nullptr) return TAMBER_BAD_ARGUMENT;
  *context = nullptr;
  return Guarded([&]() -> int {
    const std::shared_ptr<const CProgram> own = AllPrograms().Find(program);
    if (own == nullptr) return TAMBER_BAD_HANDLE;
    *context = AllContexts().Add(std::make_shared<CContext>(*own));
    return TAMBER_OK;
  });
}

int tamber_free_program(tamber_program* program) {
  return Guarded(
      [&] { return AllPrograms().Remove(program) != nullptr ? TAMBER_OK : TAMBER_BAD_HANDLE; });
}
