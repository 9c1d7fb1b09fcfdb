// Str, Val, Int and the rounding conversions, written so that no locale can change them.
#include "workspace/numbers.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>

#include "workspace/errors.h"

namespace orvex {

std::string Str(double value) {
  if (std::isnan(value)) return " NaN";
  if (std::isinf(value)) return value > 0 ? " Inf" : "-Inf";
  if (value == 0) return " 0";  // also -0
  // %.15G with the "C" rules; snprintf's decimal point follows LC_NUMERIC, so to_chars is
  // used instead (it never looks at the locale).
  char buf[64];
  auto res = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 15);
  std::string s(buf, res.ptr);
  // to_chars writes "e-05"; the run-time writes "E-05".
  for (char& c : s)
    if (c == 'e') c = 'E';
  bool negative = s[0] == '-';
  std::string digits = negative ? s.substr(1) : s;
  if (digits.size() >= 2 && digits[0] == '0' && digits[1] == '.') digits.erase(0, 1);
  return (negative ? "-" : " ") + digits;
}

std::string Str(std::int64_t value) {
  return value < 0 ? std::to_string(value) : " " + std::to_string(value);
}

std::string NumText(double value) { return Trim(Str(value)); }

double Val(std::string_view text) {
  std::size_t consumed = 0;
  return Val(text, consumed);
}

double Val(std::string_view text, std::size_t& consumed) {
  consumed = 0;
  std::size_t i = 0;
  const std::size_t n = text.size();
  while (i < n && (text[i] == ' ' || text[i] == '\t')) ++i;
  bool negative = false;
  if (i < n && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  // Mantissa: digits, optionally a point and more digits.
  std::string number;
  int intDigits = 0;  // significant digits before the point, for the overflow estimate
  bool anyDigit = false;
  bool seenNonZero = false;
  int leadingFractionZeros = 0;
  while (i < n && text[i] >= '0' && text[i] <= '9') {
    if (text[i] != '0') seenNonZero = true;
    if (seenNonZero) ++intDigits;
    number += text[i++];
    anyDigit = true;
  }
  if (i < n && text[i] == '.') {
    number += '.';
    ++i;
    while (i < n && text[i] >= '0' && text[i] <= '9') {
      if (text[i] != '0') seenNonZero = true;
      else if (!seenNonZero) ++leadingFractionZeros;
      number += text[i++];
      anyDigit = true;
    }
  }
  if (!anyDigit) return 0;
  // Exponent: "E" or "D", optional sign, at least one digit; otherwise it is not part of it.
  long exponent = 0;
  if (i < n && (text[i] == 'E' || text[i] == 'e' || text[i] == 'D' || text[i] == 'd')) {
    std::size_t j = i + 1;
    bool expNegative = false;
    if (j < n && (text[j] == '+' || text[j] == '-')) {
      expNegative = text[j] == '-';
      ++j;
    }
    if (j < n && text[j] >= '0' && text[j] <= '9') {
      while (j < n && text[j] >= '0' && text[j] <= '9') {
        if (exponent < 100000) exponent = exponent * 10 + (text[j] - '0');
        ++j;
      }
      if (expNegative) exponent = -exponent;
      i = j;
    }
  }
  consumed = i;
  if (!seenNonZero) return 0;
  std::string full = number + "e" + std::to_string(exponent);
  double value = 0;
  auto res = std::from_chars(full.data(), full.data() + full.size(), value,
                             std::chars_format::general);
  if (res.ec == std::errc::result_out_of_range) {
    // Decimal magnitude of the number decides between overflow and underflow.
    long magnitude = intDigits > 0 ? intDigits + exponent : exponent - leadingFractionZeros;
    if (magnitude > 0) ThrowOverflow();
    value = 0;
  } else if (std::isinf(value)) {
    ThrowOverflow();
  }
  return negative ? -value : value;
}

double Int(double value) { return std::floor(value); }

namespace {

// Rounds to the nearest integer, ties to even, without depending on the rounding mode.
double RoundHalfEven(double value) {
  double lower = std::floor(value);
  double diff = value - lower;
  if (diff > 0.5) return lower + 1;
  if (diff < 0.5) return lower;
  return std::fmod(lower, 2.0) == 0 ? lower : lower + 1;
}

} // namespace

std::int32_t CLng(double value) {
  if (std::isnan(value)) ThrowOverflow();
  double r = RoundHalfEven(value);
  if (r < -2147483648.0 || r > 2147483647.0) ThrowOverflow();
  return static_cast<std::int32_t>(r);
}

std::int16_t CInt(double value) {
  if (std::isnan(value)) ThrowOverflow();
  double r = RoundHalfEven(value);
  if (r < -32768.0 || r > 32767.0) ThrowOverflow();
  return static_cast<std::int16_t>(r);
}

int ScanVector(std::string_view line, double* values, int count) {
  auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == ';' || c == '\r' || c == '\n'; };
  int found = 0;
  std::size_t i = 0;
  const std::size_t n = line.size();
  // Items are separated by a comma (with blanks around it) or by blanks alone. An empty item
  // between two commas counts and reads as 0; a trailing separator adds no item.
  while (found < count) {
    while (i < n && isBlank(line[i])) ++i;
    if (i >= n) break;
    std::size_t begin = i;
    while (i < n && line[i] != ',' && !isBlank(line[i])) ++i;
    std::string_view item = line.substr(begin, i - begin);
    values[found++] = Val(item);
    while (i < n && isBlank(line[i])) ++i;
    if (i < n && line[i] == ',') {
      ++i;
      // A comma right after another comma (blanks between allowed) delimits an empty item.
      std::size_t k = i;
      while (k < n && isBlank(line[k])) ++k;
      while (k < n && line[k] == ',' && found < count) {
        values[found++] = 0;
        ++k;
        i = k;
        while (k < n && isBlank(line[k])) ++k;
      }
    }
  }
  return found;
}

std::string Trim(std::string_view text) {
  std::size_t b = text.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  std::size_t e = text.find_last_not_of(' ');
  return std::string(text.substr(b, e - b + 1));
}

std::string Upper(std::string_view text) {
  std::string s(text);
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

std::string Lower(std::string_view text) {
  std::string s(text);
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

} // namespace orvex
