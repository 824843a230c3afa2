// Any bytes as the file of a session store.
#include <fstream>

#include "harness.h"
#include "kel/storebackend.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fuzz::Playground& playground = fuzz::Playground::Get();
  playground.Enter();
  std::ofstream(playground.SessionPath(), std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  {
    kel::StoreAccess access;
    access.milliseconds = 1;
    const auto store = kel::MakeSqliteBackend(playground.SessionPath(), access);
    kel::StoreValue value;
    kel::StoreTree tree;
    store->Get("session/7/a", value);
    store->Tree("session/7/", tree);
    store->Keys("session/");
    store->Children("session/");
    const kel::StoreChange set{kel::StoreChange::Kind::Set, "session/7/b", "text"};
    if (store->Apply(std::span(&set, 1)) &&
        (!store->Get(set.key, value) || value != kel::StoreValue("text")))
      __builtin_trap();
  }
  playground.Leave();
  return 0;
}
