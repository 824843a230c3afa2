#pragma once

#include <array>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "context/tambctxt.h"
#include "host/value.h"

/// \file
/// Plain C++ functions as built-ins of a context:
///
///     double Area(int32_t w, double h);
///     RegisterFunction(context, "double Area (int W, double H)", Area);

namespace tamber {

namespace host {

/// What becomes of a function that is registered already, and of a table that is not made yet.
enum class Adding : uint8_t { Keep, Replace, Later };

/// Registers what `Wrapped` made of a C++ function, after comparing the prototype with its kinds.
/// The index, 1 for one that is added later, or 0 with the context error set.
TAMBER_API uint32_t RegisterWrapped(TamberContext& context, std::string_view prototype, Kind result,
                                    std::span<const Kind> parameters,
                                    const Implementation& implementation,
                                    std::shared_ptr<void> target, const FunctionTraits& traits,
                                    Adding adding);

/// Result and parameters of whatever can be called; one overload only.
template <class F>
struct Signature : Signature<decltype(&F::operator())> {};
template <class R, class... A>
struct Signature<R (*)(A...)> {
  template <template <class...> class Use>
  using Apply = Use<R, A...>;
};
template <class R, class... A>
struct Signature<R (*)(A...) noexcept> : Signature<R (*)(A...)> {};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...)> : Signature<R (*)(A...)> {};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) const> : Signature<R (*)(A...)> {};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) noexcept> : Signature<R (*)(A...)> {};
template <class C, class R, class... A>
struct Signature<R (C::*)(A...) const noexcept> : Signature<R (*)(A...)> {};

template <class R>
concept Returned = std::is_void_v<R> || std::is_same_v<R, VariablePtr> || Composed<R> ||
    (KindFor<R>() != Kind::Any && !std::is_reference_v<R>);

/// The built-in around functions of one type. `HasContext`: they take the context first.
template <class F, bool HasContext, class R, class... A>
struct Wrapped {
  static_assert((Received<A> && ...),
                "a script hands over bool, char, int32_t, float, double, std::string_view, "
                "std::string, KelString or Variable*, by value or by reference to const");
  static_assert(Returned<R>,
                "a script takes bool, char, int32_t, float, double, a string, VariablePtr or void");

  static constexpr Kind kResult = KindFor<R>();
  static constexpr uint32_t kCount = sizeof...(A);
  static constexpr std::array<Kind, kCount> kParameters{KindFor<A>()...};
  /// What has no state needs no object: it is made where it is called.
  static constexpr bool kStateless = std::is_empty_v<F> && std::is_default_constructible_v<F>;

  static int32_t Run(FunctionCallInfo* info) {
    const uint32_t base = info->stack->GetSize() - kCount;
    const bool ended = Guarded(*info, [&] { RunOn(*info, base); });
    if (!ended && info->stack->GetSize() > base) info->stack->CutTo(base);
    return 1;
  }

  static Cell RunDirectly(TamberContext& context, void* target, const Cell* arguments,
                          const Passed&, CallError& error) {
    Cell result = ZeroCell();
    const bool ended = Guarded(error, [&] {
      const auto read = [&]<class T>(std::type_identity<T>, size_t at) {
        return Read<T>(arguments[at]);
      };
      if constexpr (std::is_void_v<R>) {
        Invoke(context, target, read, std::index_sequence_for<A...>());
      } else {
        result = ToCell(Invoke(context, target, read, std::index_sequence_for<A...>()));
      }
    });
    if (!ended) error.hasNoResult = true;
    return result;
  }

  static constexpr DirectFunction kDirect{&RunDirectly, kParameters.data(),
                                          std::is_void_v<R> ? Kind::Int : kResult};

 private:
  /// False when the function raised an error of the language, which is in the record then.
  template <class Record, class Work>
  static bool Guarded(Record& record, Work&& work) {
    try {
      work();
      return true;
    } catch (const ScriptError& error) {
      if (error.Code() <= 0) throw;  // no error of the language: one like any other
      record.errorCode = error.Code();
      record.errorText = KelString(error.what());
      return false;
    }
  }

  /// Calls the function with what `read` makes of each argument.
  template <class Reader, size_t... At>
  static R Invoke(TamberContext& context, void* target, const Reader& read,
                  std::index_sequence<At...>) {
    const auto with = [&](auto&& function) -> R {
      if constexpr (HasContext) {
        return function(context, read(std::type_identity<A>(), At)...);
      } else {
        return function(read(std::type_identity<A>(), At)...);
      }
    };
    if constexpr (kStateless) {
      return with(F());
    } else {
      return with(*static_cast<F*>(target));
    }
  }

  static void RunOn(FunctionCallInfo& info, uint32_t base) {
    Stack& stack = *info.stack;
    const auto read = [&]<class T>(std::type_identity<T>, size_t at) {
      return Read<T>(stack, base + static_cast<uint32_t>(at));
    };
    const auto call = [&]() -> R {
      return Invoke(*info.context, info.target, read, std::index_sequence_for<A...>());
    };
    if constexpr (std::is_void_v<R>) {
      call();
      stack.CutTo(base);
      Push(stack, int32_t{0});
    } else {
      R result = call();
      // A string may be borrowed from an argument: it is copied before that goes.
      if constexpr (std::is_same_v<R, std::string_view> || std::is_same_v<R, const char*>) {
        const KelString own(result);
        stack.CutTo(base);
        Push(stack, own);
      } else {
        stack.CutTo(base);
        Push(stack, std::move(result));
      }
    }
  }
};

template <class F>
struct WrapOf {
  template <class R, class... A>
  struct Plain : Wrapped<F, false, R, A...> {};
  template <class R, class... A>
  struct Choose : Plain<R, A...> {};
  template <class R, class... A>
  struct Choose<R, TamberContext&, A...> : Wrapped<F, true, R, A...> {};
  using Type = typename Signature<F>::template Apply<Choose>;
};

}  // namespace host
}  // namespace tamber

namespace tamber::host {

template <class F>
uint32_t Register(TamberContext& context, std::string_view prototype, F function,
                  FunctionTraits traits, Adding adding) {
  using Wrap = typename WrapOf<F>::Type;
  Implementation run{&Wrap::Run, Wrap::kDirect};
  if constexpr (std::is_pointer_v<F>) {
    if (function == nullptr) run.onStack = nullptr;
  }
  std::shared_ptr<void> target;
  if constexpr (!Wrap::kStateless) target = std::make_shared<F>(std::move(function));
  traits.exactResult = Wrap::kResult != tamber::Kind::Any;
  return RegisterWrapped(context, prototype, Wrap::kResult, Wrap::kParameters, run,
                         std::move(target), traits, adding);
}

}  // namespace tamber::host

/// Registers a C++ function (or a lambda, or an object with one call operator) under a prototype
/// in the language's own syntax. Its types must be those of the prototype, as host/value.h lists
/// them; "void" functions are registered with the result type `int` and return 0. A first parameter
/// of type `TamberContext&` receives the running context and is no parameter of the prototype.
///
/// An exception becomes an error of the script: `tamber::ScriptError` the one that it says,
/// std::bad_alloc error 20113, any other error 20101 with the function's name and the exception's
/// text.
///
/// Returns the index in the function table. 0 and the context error when the prototype cannot be
/// read (20208) or says other types than the function has (20504), when its name is none or means
/// something else to scripts (20201 to 20207), or when the function is a null pointer (101). What
/// is registered already with these parameters stays, unless `replace` is set; scripts that are
/// compiled go on calling what they were compiled with.
template <class F>
uint32_t RegisterFunction(TamberContext& context, std::string_view prototype, F function,
                          FunctionTraits traits = {}, bool replace = false) {
  using tamber::host::Adding;
  return tamber::host::Register(context, prototype, std::move(function), traits,
                                replace ? Adding::Replace : Adding::Keep);
}

/// The same for a function whose index nobody wants to know: the table of all built-ins, which
/// contexts share until one registers something, is not made before a script uses one of them.
/// Returns false where RegisterFunction returns 0.
template <class F>
bool RegisterFunctionLater(TamberContext& context, std::string_view prototype, F function,
                           FunctionTraits traits = {}) {
  return tamber::host::Register(context, prototype, std::move(function), traits,
                                tamber::host::Adding::Later) != 0;
}
