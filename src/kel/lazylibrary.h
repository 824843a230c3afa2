#pragma once

#include <atomic>
#include <new>

/// Libraries that are opened when one of their functions is first called.
///
/// Few scripts use more than one or two of them, and loading them all takes longer than a short
/// script takes to start and end. A source file that uses such a library declares it and its
/// functions in a namespace of its own, where they stand before the functions of the same names:
///
///     LazyLibrary sqlite(KEL_SONAME_SQLITE3);
///     KEL_LAZY(sqlite, sqlite3_step);
///     ...
///     sqlite3_step(statement);
namespace kel {

/// Thrown when a library or its function is not on this machine, after a notice has said which one.
/// Whoever copes with a lack of memory copes with this.
struct MissingLibrary : std::bad_alloc {
  const char* what() const noexcept override { return "a library is missing"; }
};

class LazyLibrary {
 public:
  /// `file` as the system's loader looks for it; on loan for good.
  constexpr explicit LazyLibrary(const char* file) : file_(file) {}
  LazyLibrary(const LazyLibrary&) = delete;
  LazyLibrary& operator=(const LazyLibrary&) = delete;

  /// The address of a function. Throws MissingLibrary.
  void* Find(const char* function);

 private:
  const char* file_;
  std::atomic<void*> handle_ = nullptr;  ///< never closed: code of the library may run to the end
};

/// What a function of a library is before its type is known.
class LazySymbol {
 public:
  constexpr LazySymbol(LazyLibrary& library, const char* name) : library_(library), name_(name) {}
  LazySymbol(const LazySymbol&) = delete;
  LazySymbol& operator=(const LazySymbol&) = delete;

 protected:
  void* Find() const {
    void* address = address_.load(std::memory_order_acquire);
    if (address == nullptr) {
      address = library_.Find(name_);
      address_.store(address, std::memory_order_release);
    }
    return address;
  }

 private:
  LazyLibrary& library_;
  const char* name_;
  mutable std::atomic<void*> address_ = nullptr;
};

/// A function of such a library, called as the function itself is. Throws MissingLibrary.
template <class Signature>
class LazyFunction;

template <class Result, class... Args>
class LazyFunction<Result(Args...)> : public LazySymbol {
 public:
  using LazySymbol::LazySymbol;
  Result operator()(Args... args) const { return Address()(args...); }
  /// For a library that calls it back.
  auto Address() const { return reinterpret_cast<Result (*)(Args...)>(Find()); }
};

template <class Result, class... Args>
class LazyFunction<Result(Args..., ...)> : public LazySymbol {
 public:
  using LazySymbol::LazySymbol;
  template <class... More>
  Result operator()(Args... args, More... more) const {
    return reinterpret_cast<Result (*)(Args..., ...)>(Find())(args..., more...);
  }
};

/// Never called: by way of a call the compiler forgets the attributes of a function's type, which
/// are no part of a template's argument.
template <class Signature>
LazyFunction<Signature> LazyTypeOf(Signature*);

}  // namespace kel

/// Declares a function of a library. Headers rename many of theirs by macros: the name is that of
/// the symbol.
#define KEL_LAZY(library, function) \
  constinit decltype(LazyTypeOf(::function)) function(library, KEL_LAZY_NAME(function))
#define KEL_LAZY_NAME(function) #function
