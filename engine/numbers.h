// Text helpers the engine's program-file reading uses (MI files go through the workbench's
// own reader).
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace orvex::engine {

std::string_view Trim(std::string_view s);
std::string Upper(std::string_view s);

// The lines of a file's text: CR LF, LF and a lone CR each end a line; a last line without
// an end counts when it is not empty.
std::vector<std::string> SplitLines(std::string_view text);

} // namespace orvex::engine
