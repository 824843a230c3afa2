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

uint32_t Code::FindSource(uint32_t pc) const {
  auto after = std::upper_bound(sources.begin(), sources.end(), pc,
                                [](uint32_t at, const SourceEntry& s) { return at < s.pc; });
  return after == sources.begin() ? 0 : (after - 1)->offset;
}

const LiveTemps* Code::FindLive(uint32_t pc) const {
  auto found = std::lower_bound(live.begin(), live.end(), pc,
                                [](const LiveTemps& l, uint32_t at) { return l.pc < at; });
  return found != live.end() && found->pc == pc ? &*found : nullptr;
}

}  // namespace tamber
