#include "machine/code.h"

#include <algorithm>

#include "values/cellops.h"

namespace tamber {

Code::~Code() {
  for (size_t i = 0; i < constants.size(); ++i) ReleaseCell(constantKinds[i], constants[i]);
}

void Code::SeparateConstants() {
  for (size_t i = 0; i < constants.size(); ++i) {
    if (!IsManaged(constantKinds[i])) continue;
    const Cell shared = constants[i];
    constants[i] = SeparateCell(constantKinds[i], shared);
    ReleaseCell(constantKinds[i], shared);
  }
}

const StatementEntry* Code::FindStatement(uint32_t pc) const {
  auto after = std::upper_bound(statements.begin(), statements.end(), pc,
                                [](uint32_t at, const StatementEntry& s) { return at < s.begin; });
  return after == statements.begin() ? nullptr : &*(after - 1);
}

const Detour& Code::FindDetour(const StatementEntry& entry) const {
  static constexpr Detour kStraightOn;
  const auto wanted = static_cast<uint32_t>(&entry - statements.data());
  const auto found = std::lower_bound(detours.begin(), detours.end(), wanted,
                                      [](const Detour& d, uint32_t at) { return d.entry < at; });
  return found != detours.end() && found->entry == wanted ? *found : kStraightOn;
}

size_t Code::Bytes() const {
  const auto all = [](const auto&... tables) {
    return (0 + ... + (tables.capacity() * sizeof(tables[0])));
  };
  return sizeof(Code) + all(instrs, constants, constantKinds, texts, failNotes, names, types,
                            globals, procedures, sites, appends, statements, detours, live,
                            liveTemps, ownedLocals, declaredAt);
}

void Code::ShrinkToFit() {
  const auto shrink = [](auto&... tables) { (tables.shrink_to_fit(), ...); };
  shrink(instrs, constants, constantKinds, texts, failNotes, names, types, globals, procedures,
         sites, appends, statements, detours, live, liveTemps, ownedLocals);
  sources.ShrinkToFit();
}

void SourceTable::PutNumber(uint32_t value) {
  for (; value >= 0x80; value >>= 7) bytes_.push_back(static_cast<uint8_t>(value | 0x80));
  bytes_.push_back(static_cast<uint8_t>(value));
}

void SourceTable::Add(uint32_t pc, uint32_t offset) {
  constexpr uint32_t kPerMark = 64;
  if (marks_.empty() || sinceMark_ == kPerMark) {
    marks_.push_back({pc, offset, static_cast<uint32_t>(bytes_.size())});
    sinceMark_ = 0;
  } else {
    if (offset == lastOffset_) return;
    // The lowest bit says which way the offset goes.
    const bool back = offset < lastOffset_;
    PutNumber(pc - lastPc_);
    PutNumber((back ? lastOffset_ - offset : offset - lastOffset_) << 1 | (back ? 1 : 0));
  }
  ++sinceMark_;
  lastPc_ = pc;
  lastOffset_ = offset;
}

uint32_t SourceTable::Find(uint32_t pc) const {
  const auto after = std::upper_bound(marks_.begin(), marks_.end(), pc,
                                      [](uint32_t at, const Mark& mark) { return at < mark.pc; });
  if (after == marks_.begin()) return 0;
  const Mark& mark = *(after - 1);
  const uint8_t* at = bytes_.data() + mark.at;
  const uint8_t* const end = bytes_.data() + (after == marks_.end() ? bytes_.size() : after->at);
  const auto number = [&at] {
    uint32_t value = 0;
    for (uint32_t shift = 0;; shift += 7) {
      const uint32_t byte = *at++;
      value |= (byte & 0x7F) << shift;
      if (byte < 0x80) return value;
    }
  };
  uint32_t here = mark.pc;
  uint32_t offset = mark.offset;
  while (at != end) {
    here += number();
    if (here > pc) break;
    const uint32_t step = number();
    offset = (step & 1) != 0 ? offset - (step >> 1) : offset + (step >> 1);
  }
  return offset;
}

void SourceTable::ShrinkToFit() {
  marks_.shrink_to_fit();
  bytes_.shrink_to_fit();
}

const LiveTemps* Code::FindLive(uint32_t pc) const {
  auto found = std::lower_bound(live.begin(), live.end(), pc,
                                [](const LiveTemps& l, uint32_t at) { return l.pc < at; });
  return found != live.end() && found->pc == pc ? &*found : nullptr;
}

}  // namespace tamber
