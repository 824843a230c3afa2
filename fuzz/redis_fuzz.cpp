// Any bytes as what a server of sessions answers. The linker puts this file's connection in the
// place of the library's.
#include <fuzzer/FuzzedDataProvider.h>

#include <array>

#include "kel/rediswire.h"
#include "kel/storebackend.h"

namespace {

/// Answers with the bytes of the input until there are none.
class ScriptedWire : public kel::RedisWire {
 public:
  explicit ScriptedWire(FuzzedDataProvider& input) : input_(input) {}
  bool Send(std::string_view) override { return true; }
  size_t Receive(char* buffer, size_t size) override {
    const size_t wanted = input_.ConsumeIntegralInRange<size_t>(1, 256);
    const size_t count = input_.ConsumeData(buffer, std::min(wanted, size));
    if (count == 0) fault = "the connection has ended";
    return count;
  }

 private:
  FuzzedDataProvider& input_;
};

FuzzedDataProvider* bytes = nullptr;

}  // namespace

std::unique_ptr<kel::RedisWire> Connect(const kel::ServerAddress&, int, std::string&) __asm__(
    "__wrap__ZN3kel12ConnectPlainERKNS_13ServerAddressEiRNSt7__cxx1112basic_stringIcSt11"
    "char_traitsIcESaIcEEE");

std::unique_ptr<kel::RedisWire> Connect(const kel::ServerAddress&, int, std::string&) {
  return std::make_unique<ScriptedWire>(*bytes);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  bytes = &input;
  const std::shared_ptr<kel::StoreBackend> store = kel::MakeRedisBackend("redis://host", {});
  constexpr std::array kKeys{"session/7/a", "session/7/", "session/", "s", ""};
  for (int step = 0; step < 8; ++step) {
    const std::string key = kKeys[input.ConsumeIntegralInRange<size_t>(0, kKeys.size() - 1)];
    kel::StoreValue value;
    kel::StoreTree tree;
    using Kind = kel::StoreChange::Kind;
    const kel::StoreChange set{Kind::Set, key, int64_t{step}};
    const kel::StoreChange removal{Kind::DeleteTree, key, {}};
    switch (input.ConsumeIntegralInRange(0, 5)) {
      case 0:
        store->Get(key, value);
        break;
      case 1:
        store->Tree(key, tree);
        break;
      case 2:
        store->Apply(std::array{set, removal});
        break;
      case 3:
        store->Apply(std::array{removal});
        break;
      case 4:
        store->Keys(key);
        break;
      default:
        store->Children(key);
    }
  }
  return 0;
}
