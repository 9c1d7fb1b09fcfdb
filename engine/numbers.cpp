// A hand-written scanner over std::from_chars, so the C library's locale never matters.
#include "engine/numbers.h"

#include <cctype>
#include <charconv>
#include <limits>

namespace orvex::engine {

std::string_view Trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t' || s.front() == '\r' ||
                        s.front() == '\n'))
    s.remove_prefix(1);
  while (!s.empty() &&
         (s.back() == ' ' || s.back() == '\t' || s.back() == '\r' || s.back() == '\n'))
    s.remove_suffix(1);
  return s;
}

std::string Upper(std::string_view s) {
  std::string u(s);
  for (char& c : u) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return u;
}

std::vector<std::string> SplitLines(std::string_view text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\r' && text[i] != '\n') continue;
    lines.emplace_back(text.substr(start, i - start));
    if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
    start = i + 1;
  }
  if (start < text.size()) lines.emplace_back(text.substr(start));
  return lines;
}

bool ScanNumber(std::string_view text, std::size_t& pos, double& value) {
  std::size_t i = pos;
  while (i < text.size() && (text[i] == ' ' || text[i] == '\t')) ++i;
  std::string lexeme;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    negative = text[i] == '-';
    ++i;
  }
  int digits = 0;
  while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
    lexeme += text[i++];
    ++digits;
  }
  if (i < text.size() && text[i] == '.') {
    lexeme += text[i++];
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i]))) {
      lexeme += text[i++];
      ++digits;
    }
  }
  if (digits == 0) return false;
  bool negativeExponent = false;
  if (i < text.size() && (text[i] == 'E' || text[i] == 'e' || text[i] == 'D' || text[i] == 'd')) {
    std::size_t j = i + 1;
    std::string exponent = "e";
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) {
      negativeExponent = text[j] == '-';
      if (negativeExponent) exponent += '-';
      ++j;
    }
    std::size_t expDigits = 0;
    while (j < text.size() && std::isdigit(static_cast<unsigned char>(text[j]))) {
      exponent += text[j++];
      ++expDigits;
    }
    if (expDigits > 0) {
      lexeme += exponent;
      i = j;
    }
  }
  if (lexeme.front() == '.') lexeme.insert(lexeme.begin(), '0');
  double v = 0;
  auto res = std::from_chars(lexeme.data(), lexeme.data() + lexeme.size(), v);
  if (res.ec == std::errc::result_out_of_range) {
    bool zeroMantissa = true;
    for (char c : lexeme) {
      if (c == 'e') break;
      if (c >= '1' && c <= '9') zeroMantissa = false;
    }
    v = (negativeExponent || zeroMantissa) ? 0.0 : std::numeric_limits<double>::infinity();
  } else if (res.ec != std::errc()) {
    return false;
  }
  value = negative ? -v : v;
  pos = i;
  return true;
}

bool ParseWholeNumber(std::string_view text, double& value) {
  std::size_t pos = 0;
  if (!ScanNumber(text, pos, value)) return false;
  return Trim(text.substr(pos)).empty();
}

} // namespace orvex::engine
