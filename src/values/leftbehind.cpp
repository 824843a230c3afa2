#include "values/leftbehind.h"

#include <new>

#include "kel/memory.h"
#include "kel/stop.h"

namespace tamber {
namespace {

[[gnu::tls_model("initial-exec")]] constinit thread_local LeftBehind* list_of_run = nullptr;

}  // namespace

LeavingBehind::LeavingBehind(LeftBehind* list) : before_(std::exchange(list_of_run, list)) {}

LeavingBehind::~LeavingBehind() { list_of_run = before_; }

bool IsLeavingBehind() { return list_of_run != nullptr && kel::IsEnding(); }

bool LeaveBehind(RefObject* object) {
  if (list_of_run == nullptr) return false;
  try {
    list_of_run->objects_.push_back(object);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool LeaveBehind(std::shared_ptr<void> other) {
  if (list_of_run == nullptr) return false;
  try {
    list_of_run->others_.push_back(std::move(other));
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

void LeftBehind::Release() {
  const LeavingBehind nowhere(nullptr);
  std::exchange(others_, {}).clear();
  for (RefObject* object : std::exchange(objects_, {})) DestroyObject(object);
}

bool IsLeavingBehind(void* block, size_t size) {
  if (list_of_run == nullptr || size < kLargeBlock) return false;
  return kel::IsEnding() || !kel::DropPages(block, size);
}

}  // namespace tamber
