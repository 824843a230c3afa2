// Any bytes as what a session store holds: values of every type are loaded from it, stored, and
// loaded again, which must change nothing any more.
#include <fuzzer/FuzzedDataProvider.h>

#include <map>
#include <variant>

#include "declarations.h"
#include "harness.h"
#include "values/valuesession.h"

namespace {

class MemoryStore : public SessionStore {
 public:
  using Value = std::variant<int64_t, std::string>;
  bool SetInteger(std::string_view key, int64_t value) override { return Put(key, value); }
  bool SetText(std::string_view key, std::string_view value) override {
    return Put(key, std::string(value));
  }
  bool GetInteger(std::string_view key, int64_t& value) override { return Find(key, value); }
  bool GetText(std::string_view key, std::string& value) override { return Find(key, value); }
  bool Exists(std::string_view key) override { return values.find(key) != values.end(); }
  std::vector<std::string> SubKeys(std::string_view prefix) override {
    std::vector<std::string> keys;
    for (auto at = values.lower_bound(prefix); at != values.end() && at->first.starts_with(prefix);
         ++at)
      keys.push_back(at->first);
    return keys;
  }
  bool DeleteTree(std::string_view prefix) override {
    for (const std::string& key : SubKeys(prefix)) values.erase(key);
    return true;
  }

  std::map<std::string, Value, std::less<>> values;

 private:
  bool Put(std::string_view key, Value value) {
    values.insert_or_assign(std::string(key), std::move(value));
    return true;
  }
  template <class T>
  bool Find(std::string_view key, T& value) {
    const auto at = values.find(key);
    const T* found = at == values.end() ? nullptr : std::get_if<T>(&at->second);
    if (found != nullptr) value = *found;
    return found != nullptr;
  }
};

MemoryStore ReadStore(FuzzedDataProvider& input) {
  MemoryStore store;
  while (input.remaining_bytes() > 0) {
    const std::string key = "v" + input.ConsumeRandomLengthString(20);
    if (input.ConsumeBool()) {
      store.SetInteger(key, input.ConsumeIntegral<int32_t>());
    } else {
      store.SetText(key, input.ConsumeRandomLengthString(1000));
    }
  }
  return store;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const std::unique_ptr<TamberContext> context = [] {
    std::unique_ptr<TamberContext> made = fuzz::MakeContext(false);
    if (!made->CompileScriptBuffer("declarations", fuzz::kDeclarations, 1)) __builtin_trap();
    return made;
  }();
  FuzzedDataProvider input(data, size);
  constexpr std::string_view kNames = "ibcfdseatpqg";
  const size_t chosen = input.ConsumeIntegralInRange<size_t>(0, kNames.size() - 1);
  const Variable* prototype = context->GetVariable(std::string(1, kNames[chosen]), VARLIST_GLOBAL);
  MemoryStore store = ReadStore(input);
  fuzz::WithoutLeak([&] {
    const tamber::VariablePtr first(prototype->Clone());
    const tamber::VariablePtr second(prototype->Clone());
    tamber::LoadValue(*first, "v", store);
    MemoryStore stored, again;
    tamber::StoreValue(*first, "v", stored);
    tamber::LoadValue(*second, "v", stored);
    tamber::StoreValue(*second, "v", again);
    if (stored.values != again.values) __builtin_trap();
  });
  return 0;
}
