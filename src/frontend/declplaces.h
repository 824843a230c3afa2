#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kel/kelstring.h"
#include "values/name.h"

namespace tamber {

/// Where the globals, constants and structures of a context's scripts are declared. Only errors ask
/// for it, so it is kept as it comes and searched from the end.
class DeclaredPlaces {
 public:
  void Add(const Name& name, const KelString& file, uint32_t line) {
    if (files_.empty() || files_.back() != file) files_.push_back(file);
    places_.push_back({name, static_cast<uint32_t>(files_.size() - 1), line});
  }
  /// "FILE, line N"; "" for what no script declares.
  std::string Find(std::string_view name) const {
    for (size_t i = places_.size(); i-- > 0;) {
      const Place& place = places_[i];
      if (place.name.Equals(name))
        return files_[place.file].Str() + ", line " + std::to_string(place.line);
    }
    return before_ != nullptr ? before_->Find(name) : std::string();
  }
  void Clear() { *this = {}; }
  /// Those of a program stand before the ones that are added from now on, and stay where they are.
  void BeginBehind(const DeclaredPlaces& program) {
    Clear();
    before_ = &program;
  }
  /// All of them, which refer to none of another.
  DeclaredPlaces Whole() const {
    DeclaredPlaces all = before_ != nullptr ? before_->Whole() : DeclaredPlaces();
    for (const Place& place : places_) all.Add(place.name, files_[place.file], place.line);
    return all;
  }

 private:
  struct Place {
    Name name;
    uint32_t file;
    uint32_t line;
  };
  const DeclaredPlaces* before_ = nullptr;
  std::vector<Place> places_;
  std::vector<KelString> files_;
};

}  // namespace tamber
