#include "frontend/namememo.h"

#include <cstring>

#include "frontend/compilehost.h"
#include "functions/funclist.h"
#include "machine/locals.h"
#include "values/varlist.h"

namespace tamber {
namespace {

constexpr size_t kFirstSize = 256;

template <class Number>
uint64_t Load(const char* from) {
  Number number;
  std::memcpy(&number, from, sizeof number);
  return number;
}

}  // namespace

NameMemo::Ends NameMemo::EndsOf(std::string_view word) {
  const char* const begin = word.data();
  const char* const end = begin + word.size();
  if (word.size() >= 8) return {Load<uint64_t>(begin), Load<uint64_t>(end - 8)};
  if (word.size() >= 4) return {Load<uint32_t>(begin), Load<uint32_t>(end - 4)};
  if (word.size() >= 2) return {Load<uint16_t>(begin), Load<uint16_t>(end - 2)};
  return {word.empty() ? 0 : Load<uint8_t>(begin), 0};
}

uint64_t NameMemo::HashOf(std::string_view word, const Ends& ends) {
  const uint64_t hash =
      (ends.first * 0x9E3779B97F4A7C15U + ends.last + word.size()) * 0xC2B2AE3D27D4EB4FU;
  return hash ^ (hash >> 32);
}

void NameMemo::Clear() {
  words_.clear();
  texts_.clear();
  meanings_.clear();
  count_ = 0;
}

void NameMemo::BeginBody(const LocalTable& locals) {
  ++body_;
  for (uint32_t slot = 0; slot < locals.Count(); ++slot)
    AddLocal(locals.At(slot).name.View(), static_cast<int32_t>(slot));
}

void NameMemo::AddLocal(std::string_view name, int32_t slot) { Entry(name).known.slot = slot; }

/// What has the name of a type may be free in one spelling and not in another.
void NameMemo::NoteFree(std::string_view name) {
  KnownName& known = Entry(name).known;
  known.isFree = known.type == nullptr;
}

NameMemo::Meaning& NameMemo::Entry(std::string_view word) {
  if (words_.size() < count_ * 2 + 1) Grow();
  const Ends ends = EndsOf(word);
  const size_t mask = words_.size() - 1;
  size_t at = HashOf(word, ends) & mask;
  const auto isIt = [&](const Word& known) {
    return known.ends == ends && known.text.size() == word.size() &&
           (word.size() <= 16 || known.text == word);
  };
  while (words_[at].meaning != nullptr && !isIt(words_[at])) at = (at + 1) & mask;
  if (words_[at].meaning == nullptr) words_[at] = {texts_.emplace_back(word), ends, &Add(word)};
  Meaning& meaning = *words_[at].meaning;
  if (meaning.body != body_) {
    meaning.body = body_;
    meaning.known.slot = -1;
  }
  return meaning;
}

/// The meaning of a word that is met in this spelling for the first time.
NameMemo::Meaning& NameMemo::Add(std::string_view word) {
  ++count_;
  const auto [entry, isNew] = meanings_.try_emplace(texts_.back());
  if (isNew) entry->second.known = LookUp(word);
  return entry->second;
}

void NameMemo::Grow() {
  std::vector<Word> before = std::move(words_);
  words_.assign(before.empty() ? kFirstSize : before.size() * 2, Word());
  const size_t mask = words_.size() - 1;
  for (const Word& word : before) {
    if (word.meaning == nullptr) continue;
    size_t at = HashOf(word.text, word.ends) & mask;
    while (words_[at].meaning != nullptr) at = (at + 1) & mask;
    words_[at] = word;
  }
}

KnownName NameMemo::LookUp(std::string_view word) const {
  const KelString name(word);
  KnownName known;
  known.global = host_.FindVariable(name, VARLIST_GLOBAL);
  known.constant = host_.FindConstant(word);
  known.external = host_.FindVariable(name, VARLIST_EXTERNAL);
  known.type = host_.Types().Lookup(word);
  if (known.IsVariable()) return known;  // a variable hides the rest
  known.procedure = host_.FindCallable(word);
  known.function = host_.Functions().FindFirstOverload(word);
  return known;
}

Variable* NameMemo::FindVariable(const KelString& name, uint32_t scopes) {
  return host_.FindVariable(name, scopes);
}
const Variable* NameMemo::FindConstant(std::string_view name) { return host_.FindConstant(name); }
Callable* NameMemo::FindCallable(std::string_view name) { return host_.FindCallable(name); }
FunctionList& NameMemo::Functions() { return host_.Functions(); }
void NameMemo::OfferNames(kel::NearestName& nearest, bool callable) {
  host_.OfferNames(nearest, callable);
}
Machine& NameMemo::Evaluator() { return host_.Evaluator(); }

}  // namespace tamber
