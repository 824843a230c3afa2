#pragma once

#include <cstdint>
#include <string>
#include <string_view>

/// Numbers to text and back without the locale: the decimal point is always ".".
namespace kel {

/// Plain notation with `precision` digits after the point (at most 99), for any magnitude; "inf",
/// "-inf" and "nan", never "-nan".
std::string FormatFixed(double value, int precision);
/// "%f": six digits after the point.
std::string FormatFixed6(double value);
/// "%.9g" and "%.17g", which read back as the same value.
std::string FormatGeneral(float value);
std::string FormatGeneral(double value);

/// The shortest decimal text that reads back as the same value: "2", "0.5", "1e+300".
///
/// Plain notation for zero and for magnitudes from 1e-5 up to below 1e15, else with an exponent of
/// at least two digits; "inf", "-inf" and "nan".
std::string ShortestText(float value);
std::string ShortestText(double value);

/// Reads a sign and decimal digits at the start of the text, whatever follows. False when no digit
/// stands there (`out` is then untouched). Beyond 64 bits the nearest value is given.
bool ParseInt64Prefix(std::string_view text, int64_t& out);

/// Reads a number that is the whole text: an optional sign, decimal digits with "." and an
/// exponent, or "inf" or "nan" in any case. Too large a magnitude reads as infinity, too small a
/// one as zero. False for anything else, white space included (`out` is then untouched).
bool ParseDouble(std::string_view text, double& out);
bool ParseFloat(std::string_view text, float& out);

/// Truncates toward zero; NaN and whatever lies outside 32 bits give INT32_MIN.
int32_t DoubleToInt32(double value);
/// The low byte of `DoubleToInt32`.
int8_t DoubleToChar(double value);

}  // namespace kel
