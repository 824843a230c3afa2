#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kel/kelstring.h"
#include "values/typedesc.h"

/// A line below an error: what its text, which is always the same, cannot tell of this one.
struct TamberNote {
  enum class Kind {
    Note,  ///< what was found: types, prototypes, numbers
    Hint,  ///< what the script may have meant
  };
  Kind kind = Kind::Note;
  KelString text;
};

namespace tamber {

/// What is to be told beside one error. Only errors that a script cannot handle come with finished
/// texts; for the others numbers are kept, since a script may handle them over and over.
class ErrorNotes {
 public:
  void Clear() {
    notes_.clear();
    hasIndex_ = false;
    target_ = value_ = TypeRef();
  }
  void Note(std::string text) { notes_.push_back({TamberNote::Kind::Note, std::move(text)}); }
  void Hint(std::string text) { notes_.push_back({TamberNote::Kind::Hint, std::move(text)}); }
  bool HasHint() const {
    return std::any_of(notes_.begin(), notes_.end(),
                       [](const TamberNote& note) { return note.kind == TamberNote::Kind::Hint; });
  }
  /// An element was asked for that the array does not have.
  void BadIndex(int32_t index, uint32_t size) {
    hasIndex_ = true;
    index_ = index;
    size_ = size;
  }

  /// A value was stored where its type does not fit.
  void BadType(const TypeDesc& target, const TypeDesc& value) {
    target_ = TypeRef(&target);
    value_ = TypeRef(&value);
  }

  std::vector<TamberNote> Texts() const;

 private:
  std::vector<TamberNote> notes_;
  TypeRef target_;
  TypeRef value_;
  bool hasIndex_ = false;
  int32_t index_ = 0;
  uint32_t size_ = 0;
};

}  // namespace tamber
