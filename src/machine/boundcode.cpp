#include "machine/boundcode.h"

#include <algorithm>
#include <utility>

#include "values/cellops.h"
#include "values/strbuf.h"

namespace tamber {
namespace {

template <class Entry>
std::unique_ptr<Entry[]> MakeIfAny(size_t count) {
  return count != 0 ? std::make_unique<Entry[]>(count) : nullptr;
}

}  // namespace

BoundCode::BoundCode(const Code* code)
    : code_(code),
      begin_(code->instrs.data()),
      constants_(code->constants.data()),
      types_(code->types.data()),
      globals_(MakeIfAny<GlobalSlot>(code->globals.size())),
      callees_(MakeIfAny<Callee>(code->procedures.size())),
      ownedLocals_(code->ownedLocals),
      registers_(code->registers),
      parameters_(code->parameters) {
  const auto isArgument = [code](const OwnedRegister& o) { return o.reg < code->parameters; };
  const auto arguments = std::count_if(ownedLocals_.begin(), ownedLocals_.end(), isArgument);
  ownedBesideParameters_ = ownedLocals_.subspan(static_cast<size_t>(arguments));
  for (size_t i = 0; i < code->globals.size(); ++i) globals_[i].use = &code->globals[i];
  for (size_t i = 0; i < code->procedures.size(); ++i) callees_[i].procedure = code->procedures[i];
}

BoundCode::BoundCode(std::unique_ptr<const Code> own) : BoundCode(own.get()) {
  own_ = std::move(own);
}

BoundCode::BoundCode(const Code& shared) : BoundCode(&shared) {
  const std::vector<Kind>& kinds = shared.constantKinds;
  if (std::find(kinds.begin(), kinds.end(), Kind::String) != kinds.end()) CopyConstants();
}

BoundCode::~BoundCode() {
  for (size_t i = 0; copies_ != nullptr && i < code_->constants.size(); ++i)
    ReleaseCell(code_->constantKinds[i], copies_[i]);
}

/// References to strings are counted without regard to other threads.
void BoundCode::CopyConstants() {
  const size_t count = code_->constants.size();
  copies_.reset(new Cell[count]());
  for (size_t i = 0; i < count; ++i) {
    const Cell& constant = code_->constants[i];
    if (code_->constantKinds[i] != Kind::String) {
      copies_[i] = constant;
    } else if (constant.s != nullptr) {
      copies_[i].s = StrBuf::New(constant.s->View());
    }
  }
  constants_ = copies_.get();
}

}  // namespace tamber
