#include "machine/boundcode.h"

#include <algorithm>
#include <utility>

#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {

BoundCode::Room BoundCode::RoomFor(const Code& code, bool copiesConstants) {
  return {code.globals.size() * sizeof(GlobalSlot) + code.procedures.size() * sizeof(Callee) +
          (copiesConstants ? code.constants.size() * (sizeof(Cell) + sizeof(Kind)) : 0)};
}

BoundCode::BoundCode(const Code* code)
    : code_(code),
      begin_(code->instrs.data()),
      constants_(code->constants.data()),
      types_(code->types.data()),
      globals_(reinterpret_cast<GlobalSlot*>(this + 1)),
      callees_(reinterpret_cast<Callee*>(globals_ + code->globals.size())),
      ownedLocals_(code->ownedLocals),
      registers_(code->registers),
      parameters_(code->parameters) {
  const auto isArgument = [code](const OwnedRegister& o) { return o.reg < code->parameters; };
  const auto arguments = std::count_if(ownedLocals_.begin(), ownedLocals_.end(), isArgument);
  ownedBesideParameters_ = ownedLocals_.subspan(static_cast<size_t>(arguments));
  for (size_t i = 0; i < code->globals.size(); ++i)
    new (globals_ + i) GlobalSlot{&code->globals[i]};
  for (size_t i = 0; i < code->procedures.size(); ++i)
    new (callees_ + i) Callee{code->procedures[i]};
}

BoundCode::BoundCode(const Code* shared, bool copiesConstants) : BoundCode(shared) {
  if (copiesConstants) CopyConstants();
}

std::unique_ptr<const BoundCode> BoundCode::Make(std::unique_ptr<const Code> own) {
  const Room room = RoomFor(*own, false);
  CountedBytes counted(sizeof(BoundCode) + room.bytes + own->Bytes());
  std::unique_ptr<BoundCode> made(new (room) BoundCode(own.get()));
  made->own_ = std::move(own);
  made->counted_ = std::move(counted);
  return made;
}

std::unique_ptr<const BoundCode> BoundCode::Make(const Code& shared) {
  const std::vector<Kind>& kinds = shared.constantKinds;
  const bool hasStrings = std::find(kinds.begin(), kinds.end(), Kind::String) != kinds.end();
  const Room room = RoomFor(shared, hasStrings);
  CountedBytes counted(sizeof(BoundCode) + room.bytes);
  std::unique_ptr<BoundCode> made(new (room) BoundCode(&shared, hasStrings));
  made->counted_ = std::move(counted);
  return made;
}

BoundCode::~BoundCode() {
  // Shared code may be gone, after a reset of the context for one.
  for (size_t i = 0; i < copies_.size(); ++i) ReleaseCell(copiedKinds_[i], copies_[i]);
}

/// References to strings are counted without regard to other threads.
void BoundCode::CopyConstants() {
  const size_t count = code_->constants.size();
  copies_ = {reinterpret_cast<Cell*>(callees_ + code_->procedures.size()), count};
  std::fill(copies_.begin(), copies_.end(), ZeroCell());
  copiedKinds_ = reinterpret_cast<Kind*>(copies_.data() + count);
  std::copy(code_->constantKinds.begin(), code_->constantKinds.end(), copiedKinds_);
  for (size_t i = 0; i < count; ++i) {
    const Cell& constant = code_->constants[i];
    if (code_->constantKinds[i] != Kind::String) {
      copies_[i] = constant;
    } else if (constant.s != nullptr) {
      copies_[i].s = StrBuf::New(constant.s->View());
    }
  }
  constants_ = copies_.data();
}

}  // namespace tamber
