#include "host/valuepath.h"

#include <charconv>
#include <optional>

#include "values/arraydata.h"
#include "values/cellops.h"
#include "values/structdata.h"

namespace tamber::host {
namespace {

constexpr std::string_view kSteps = ".[";

struct Step {
  bool isElement = false;
  int32_t index = 0;
  std::string_view member;
};

/// Takes the first step off a path that has one.
std::optional<Step> TakeStep(std::string_view& path) {
  Step step;
  if (path.front() == '[') {
    step.isElement = true;
    const size_t end = path.find(']');
    if (end == std::string_view::npos) return {};
    const char* const last = path.data() + end;
    const auto read = std::from_chars(path.data() + 1, last, step.index);
    if (read.ec != std::errc() || read.ptr != last) return {};
    path.remove_prefix(end + 1);
    return step;
  }
  if (path.front() != '.') return {};
  path.remove_prefix(1);
  step.member = path.substr(0, path.find_first_of(kSteps));
  path.remove_prefix(step.member.size());
  return step.member.empty() ? std::nullopt : std::optional(step);
}

PathEnd EndOf(Stored stored) {
  switch (stored) {
    case Stored::Done:
      return PathEnd::Found;
    case Stored::Bounds:
      return PathEnd::NoPart;
    case Stored::NoMemory:
      return PathEnd::NoMemory;
    default:
      return PathEnd::Mismatch;
  }
}

/// Values of any type are variables.
PartView LookInto(PartView part) {
  while (part.type->GetKind() == Kind::Any && part.cell.v != nullptr)
    part = {TypeOf(*part.cell.v).Get(), *CellOf(*part.cell.v)};
  return part;
}

PathEnd FindStep(PartView& part, const Step& step) {
  const Kind kind = part.type->GetKind();
  if (kind != (step.isElement ? Kind::Array : Kind::Struct)) return PathEnd::NoWhole;
  if (step.isElement) {
    const ArrayData* const array = part.cell.a;
    Cell element = ZeroCell();
    if (ReadElement(array, step.index, element) != Stored::Done) return PathEnd::NoPart;
    const bool isAny = array->StorageKind() == Kind::Any;
    part = {isAny ? TypeDesc::Of(Kind::Any).Get() : array->ElementType().Get(), element};
  } else {
    const StructLayout& layout = *part.cell.st->Layout();
    const int32_t member = layout.Find(step.member);
    if (member < 0) return PathEnd::NoPart;
    const auto at = static_cast<uint32_t>(member);
    part = {layout.Members()[at].type.Get(), part.cell.st->Peek(at)};
  }
  part = LookInto(part);
  return PathEnd::Found;
}

/// The place of a value that is stored into.
Place LookInto(Place place) {
  while (place.declared->GetKind() == Kind::Any && place.cell->v != nullptr)
    place = PlaceOf(*place.cell->v);
  return place;
}

PathEnd EnterStep(Place& place, const Step& step) {
  const Kind kind = place.declared->GetKind();
  if (kind != (step.isElement ? Kind::Array : Kind::Struct)) return PathEnd::NoWhole;
  Stored stored = Stored::Bounds;
  if (step.isElement) {
    stored = EnterElement(place, step.index);
  } else {
    const int32_t member = place.cell->st->Layout()->Find(step.member);
    if (member >= 0) stored = EnterMember(place, static_cast<uint32_t>(member));
  }
  if (stored == Stored::Done) place = LookInto(place);
  return EndOf(stored);
}

}  // namespace

std::string_view NameIn(std::string_view path) {
  return path.substr(0, path.find_first_of(kSteps));
}

PathEnd FindPart(Variable& whole, std::string_view path, PartView& part) {
  part = LookInto({TypeOf(whole).Get(), *CellOf(whole)});
  while (!path.empty()) {
    const std::optional<Step> step = TakeStep(path);
    if (!step) return PathEnd::Malformed;
    if (const PathEnd end = FindStep(part, *step); end != PathEnd::Found) return end;
  }
  return PathEnd::Found;
}

PathEnd HoldPart(Variable& whole, std::string_view path, Variable*& part) {
  PartView found;
  if (const PathEnd end = FindPart(whole, path, found); end != PathEnd::Found) return end;
  part = &whole;
  while (part != nullptr && !path.empty()) {
    const std::optional<Step> step = TakeStep(path);
    part = step->isElement ? part->GetArrayElement(static_cast<uint32_t>(step->index))
                           : part->GetStructElement(KelString(step->member));
  }
  return part != nullptr ? PathEnd::Found : PathEnd::NoMemory;
}

PathEnd StorePart(Variable& whole, std::string_view path, const TypeDesc& from, Cell in) {
  // A path that leads nowhere must not unshare anything on its way.
  PartView part;
  if (const PathEnd end = FindPart(whole, path, part); end != PathEnd::Found) return end;
  Place place = LookInto(PlaceOf(whole));
  while (!path.empty()) {
    const std::optional<Step> step = TakeStep(path);
    // Elements that are numbers have no place of their own.
    if (path.empty() && step->isElement) return EndOf(StoreElement(place, step->index, from, in));
    if (const PathEnd end = EnterStep(place, *step); end != PathEnd::Found) return end;
  }
  return EndOf(Assign(place, from, in));
}

PathEnd ResizePart(Variable& whole, std::string_view path, uint32_t count) {
  PartView part;
  if (const PathEnd end = FindPart(whole, path, part); end != PathEnd::Found) return end;
  if (!part.type->IsArray()) return PathEnd::NoWhole;
  const int64_t old = part.cell.a != nullptr ? part.cell.a->Count() : 0;
  Place place = LookInto(PlaceOf(whole));
  while (!path.empty())
    if (const PathEnd end = EnterStep(place, *TakeStep(path)); end != PathEnd::Found) return end;
  return EndOf(Resize(place, int64_t{count} - old));
}

}  // namespace tamber::host
