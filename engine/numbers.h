// Number scanning for MI and program files: "." as decimal point whatever the locale,
// optional sign, digits with an optional point, optional exponent E or D (.5, -.25, 1E-05,
// 1.5E+20, 3).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvex::engine {

// Scans one number starting at `pos` (leading blanks skipped). On success sets `value`
// (an infinity when the magnitude overflows) and moves `pos` behind the number.
bool ScanNumber(std::string_view text, std::size_t& pos, double& value);

// The whole of `text` (blanks around it allowed) is one number.
bool ParseWholeNumber(std::string_view text, double& value);

std::string_view Trim(std::string_view s);
std::string Upper(std::string_view s);

// The lines of a file's text: CR LF, LF and a lone CR each end a line; a last line without
// an end counts when it is not empty.
std::vector<std::string> SplitLines(std::string_view text);

} // namespace orvex::engine
