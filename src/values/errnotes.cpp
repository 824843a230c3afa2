#include "values/errnotes.h"

namespace tamber {

std::vector<TamberNote> ErrorNotes::Texts() const {
  std::vector<TamberNote> texts = notes_;
  if (target_)
    texts.push_back({TamberNote::Kind::Note, KelString(MismatchText(*target_, *value_))});
  if (hasIndex_) {
    const std::string size = size_ == 0   ? "the array is empty"
                             : size_ == 1 ? "the array has 1 element"
                                          : "the array has " + std::to_string(size_) + " elements";
    texts.push_back(
        {TamberNote::Kind::Note, "the index is " + std::to_string(index_) + ", " + size});
  }
  return texts;
}

}  // namespace tamber
