#include "values/varstring.h"

#include <cstring>

#include "values/cellops.h"

Variable* VarString::Clone() const { return new VarString(*this); }

std::string_view tamber::GivenText(const char* text, uint32_t len) {
  if (text == nullptr) return {};
  return {text, len != 0 ? len : std::strlen(text)};
}

void VarString::SetStringValue(const char* text, uint32_t len) {
  tamber::Attempt([&] { SetText(tamber::GivenText(text, len)); });
}

void VarString::SetStringValue(const KelString& text) {
  tamber::Attempt([&] { SetText(text.View()); });
}

void VarString::SetText(std::string_view text) {
  // The new text may be a part of the old one, so that comes first.
  tamber::StrBuf* buffer = text.empty() ? nullptr : tamber::StrBuf::New(text);
  tamber::ReleaseCell(tamber::Kind::String, cell_);
  cell_.s = buffer;
}

const char* VarString::GetStringValue() const { return tamber::TextOf(cell_.s).data(); }
int32_t VarString::GetBoolValue() const { return tamber::CellToBool(kind_, cell_); }
char VarString::GetCharValue() const { return static_cast<char>(tamber::CellToChar(kind_, cell_)); }
uint32_t VarString::GetLength() { return cell_.s != nullptr ? cell_.s->length : 0; }
bool VarString::IsEString() const { return false; }
