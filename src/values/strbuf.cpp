#include "values/strbuf.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>

#include "kel/cipher.h"
#include "kel/memory.h"
#include "kel/stop.h"
#include "values/account.h"
#include "values/leftbehind.h"

namespace tamber {
namespace {

constexpr uint64_t kMaxCapacity = StrBuf::kMaxLength + StrBuf::kSpare - 1;
constexpr uint8_t kNoFlags = 0;

uint64_t AllocationSize(uint64_t capacity) { return sizeof(StrBuf) + capacity + 1; }

/// Room for texts that grow: repeated appends must cost linear time altogether.
uint64_t GrownCapacity(uint64_t length) {
  const uint64_t wanted = length + std::max<uint64_t>(StrBuf::kSpare, length / 2);
  return std::min(wanted, kMaxCapacity);
}

void CheckLength(uint64_t length) {
  CheckStringLength(length);
  if (length > StrBuf::kMaxLength) throw std::bad_alloc();
}

/// Looks at the system for a large text, which takes its time: only when a buffer is made or grows.
uint64_t Affordable(uint64_t capacity) {
  const uint64_t size = AllocationSize(capacity);
  if (!kel::CanAllocate(size)) throw std::bad_alloc();
  return size;
}

void Terminate(StrBuf* text, uint64_t length) {
  text->length = static_cast<uint32_t>(length);
  text->Data()[length] = '\0';
}

/// Copies into a buffer that nobody else knows yet, which goes when the copying is left.
void Fill(StrBuf* fresh, size_t at, std::string_view text) {
  if (text.size() <= kel::kBytesPerStep) {
    if (!text.empty()) std::memcpy(fresh->Data() + at, text.data(), text.size());
    return;
  }
  try {
    kel::CopyLarge(fresh->Data() + at, text.data(), text.size());
  } catch (const kel::Interrupted&) {
    StrBuf::Destroy(fresh);
    throw;
  }
}

/// Copies behind a text, which stays as it was when the copying is left.
void CopyBehind(StrBuf* text, std::string_view tail) {
  if (tail.size() <= kel::kBytesPerStep) {
    std::memcpy(text->Data() + text->length, tail.data(), tail.size());
    return;
  }
  try {
    kel::CopyLarge(text->Data() + text->length, tail.data(), tail.size());
  } catch (const kel::Interrupted&) {
    Terminate(text, text->length);
    throw;
  }
}

}  // namespace

StrBuf* StrBuf::WithCapacity(uint64_t length, uint64_t capacity) {
  void* memory = AllocateCounted(Affordable(capacity));
  StrBuf* text =
      new (memory) StrBuf(static_cast<uint32_t>(length), static_cast<uint32_t>(capacity));
  text->flags = kNoFlags;
  text->Data()[length] = '\0';
  return text;
}

StrBuf* StrBuf::NewRaw(uint64_t length) {
  CheckLength(length);
  return WithCapacity(length, std::min(length + kSpare, kMaxCapacity));
}

StrBuf* StrBuf::New(std::string_view text) {
  StrBuf* buffer = NewRaw(text.size());
  Fill(buffer, 0, text);
  return buffer;
}

StrBuf* StrBuf::Join(std::string_view left, std::string_view right) {
  if (left.empty() && right.empty()) return nullptr;
  StrBuf* buffer = NewRaw(uint64_t{left.size()} + right.size());
  Fill(buffer, 0, left);
  Fill(buffer, left.size(), right);
  return buffer;
}

StrBuf* StrBuf::Extended(StrBuf* text, std::string_view tail, uint64_t length) {
  StrBuf* longer = WithCapacity(text->length, GrownCapacity(length));
  Fill(longer, 0, text->View());
  Fill(longer, text->length, tail);
  Terminate(longer, length);
  return longer;
}

StrBuf* StrBuf::Enlarged(StrBuf* text, uint64_t capacity) {
  const uint64_t size = Affordable(capacity);
  auto* const moved = static_cast<StrBuf*>(
      ReallocateCounted(static_cast<void*>(text), AllocationSize(text->capacity), size));
  moved->capacity = static_cast<uint32_t>(capacity);
  return moved;
}

void StrBuf::Destroy(StrBuf* text) {
  if ((text->flags & kSecret) != 0) kel::Wipe(text->Data(), text->length);
  if (text->capacity >= kLargeBlock && IsLeavingBehind(text->Data(), text->capacity) &&
      LeaveBehind(text))
    return;
  FreeCounted(static_cast<void*>(text), AllocationSize(text->capacity));
}

void AppendText(StrBuf*& slot, std::string_view tail) {
  if (tail.empty()) return;
  StrBuf* text = slot;
  if (text == nullptr) {
    slot = StrBuf::New(tail);
    return;
  }
  const uint64_t length = uint64_t{text->length} + tail.size();
  CheckLength(length);
  if (text->IsShared() || (text->flags & StrBuf::kSecret) != 0) {
    StrBuf* longer = StrBuf::Extended(text, tail, length);
    longer->flags = text->flags;
    Release(text);
    slot = longer;
    return;
  }
  if (length + StrBuf::kSpare > text->capacity && text->capacity < kMaxCapacity) {
    const std::less<const char*> before;
    const bool inside =
        !before(tail.data(), text->Data()) && before(tail.data(), text->Data() + text->length);
    const size_t offset = inside ? static_cast<size_t>(tail.data() - text->Data()) : 0;
    text = StrBuf::Enlarged(text, GrownCapacity(length));
    slot = text;
    if (inside) tail = {text->Data() + offset, tail.size()};
  }
  CopyBehind(text, tail);
  Terminate(text, length);
}

}  // namespace tamber
