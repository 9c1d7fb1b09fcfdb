// Number text as the MI and program files hold it: the classic BASIC `Str`, `Val`, `Int` and
// the 32-bit conversion with half-to-even rounding, plus the vector scanner for field lines.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace orvex {

// Str of a Double: up to 15 significant digits, trailing zeros dropped, exponent form
// "E+dd"/"E-dd" when the decimal exponent is below -4 or at least 15 (as %.15G chooses),
// the zero before the point dropped (.5, -.25) and a blank in front of non-negative numbers.
std::string Str(double value);
// Str of an integer: " 2", "-3".
std::string Str(std::int64_t value);
// Trim(Str(value)): the form written into MI files ("0", ".5", "-.25", "1E-05").
std::string NumText(double value);

// Val: leading blanks (and tabs) skipped, optional sign, digits with "." as decimal point,
// optional exponent "E" or "D" with optional sign; stops at the first character that cannot
// continue the number; no number gives 0.
double Val(std::string_view text);
// Val that also reports how many characters formed the number (0 when none did).
double Val(std::string_view text, std::size_t& consumed);

// Int: truncation toward minus infinity.
double Int(double value);

// The 32-bit and 16-bit conversions: rounding to nearest, ties to even; values outside the
// range throw the run-time's Overflow error (number 6).
std::int32_t CLng(double value);
std::int16_t CInt(double value);

// Fills up to `count` values from a comma-and-blank separated line (tabs and semicolons are
// taken as blanks too). Each item is read with the Val rule; an item that holds no number
// reads as 0. Values the line does not hold are left untouched. Returns how many items were
// found.
int ScanVector(std::string_view line, double* values, int count);

// Trim: leading and trailing blanks (spaces only, as the classic Trim).
std::string Trim(std::string_view text);
std::string Upper(std::string_view text);
std::string Lower(std::string_view text);

} // namespace orvex
