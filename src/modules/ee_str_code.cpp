#include <algorithm>
#include <vector>

#include "kel/codec.h"
#include "kel/kelascii.h"
#include "kel/longstring.h"
#include "kel/textcipher.h"
#include "modules/ee_str_bodies.h"

namespace tamber::strings {
namespace {

/// The unit that a group of digits stands for; "?" for what is none.
uint16_t UnitOf(std::string_view digits) {
  uint32_t unit = 0;
  for (const char digit : digits) {
    const int value = kel::HexValue(digit);
    if (value < 0) return '?';
    unit = unit * 16 + static_cast<uint32_t>(value);
    if (unit > 0xFFFF) return '?';
  }
  return static_cast<uint16_t>(unit);
}

}  // namespace

Text ToHex(std::string_view value) {
  return MakeText(uint64_t{value.size()} * 2, [&](char* out) { kel::EncodeHex(value, out); });
}

std::string FromHex(Call& call, std::string_view value) {
  std::string bytes;
  if (!kel::DecodeHex(value, bytes)) call.Fail(ERR_INVALIDPARAM, Excerpt(value));
  return bytes;
}

Text ToBase64(std::string_view value) {
  return MakeText(kel::Base64Length(value.size()),
                  [&](char* out) { kel::EncodeBase64(value, out); });
}

std::string FromBase64(Call& call, std::string_view value) {
  std::string bytes;
  if (!kel::DecodeBase64(value, bytes)) call.Fail(ERR_INVALIDPARAM, Excerpt(value));
  return bytes;
}

std::string ToDesBase64(Call&, std::string_view value, std::string_view password) {
  return kel::EncodeBase64(kel::DesSeal(value, password));
}

std::string FromDesBase64(Call& call, std::string_view value, std::string_view password) {
  std::string sealed;
  std::string plain;
  if (!kel::DecodeBase64(value, sealed)) {
    call.Fail(ERR_INVALIDPARAM, Excerpt(value));
  } else if (!kel::DesOpen(sealed, password, plain)) {
    call.Fail(ERR_FUNCFAILED, "wrong password or damaged value");
  }
  return plain;
}

std::string Encrypt(Call& call, std::string_view value, std::string_view cipher) {
  if (kel::EqualsNoCase(cipher, "XCHACHA20")) {
    return kel::EncodeHex(kel::FixedSeal(value, kel::FixedCipher::kXChaCha20));
  }
  if (kel::EqualsNoCase(cipher, "DES")) {
    return kel::EncodeHex(kel::FixedSeal(value, kel::FixedCipher::kDes));
  }
  call.Fail(ERR_INVALIDPARAM, Excerpt(cipher));
  return {};
}

std::string Utf16HexToText(std::string_view value, std::string_view tokens) {
  std::vector<uint16_t> units;
  kel::StopPoll poll(65536);
  if (tokens.empty()) {
    for (size_t at = 0; at < value.size(); at += 4) {
      poll.Step();
      const std::string_view digits = value.substr(at, 4);
      units.push_back(digits.size() == 4 ? UnitOf(digits) : '?');
    }
    return kel::Utf16UnitsToUtf8(units);
  }
  const kel::ByteSet separators(tokens);
  for (size_t at = 0; at < value.size(); ++at) {
    poll.Step();
    const size_t begin = at;
    at = separators.FindIn(value, begin);
    if (at > begin) units.push_back(UnitOf(value.substr(begin, at - begin)));
  }
  return kel::Utf16UnitsToUtf8(units);
}

}  // namespace tamber::strings
