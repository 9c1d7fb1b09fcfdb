// Whole-file reading with the size limit every reader of our text files shares, and the line
// splitter they all use. No dialogs and no workspace: the engine reads MI files through this
// too, so both refuse the same files with the same error.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace orvex {

// The files read whole are small texts (an MI file for 32 qubits is some 50 KB); a file
// larger than this is refused before it fills the memory.
inline constexpr std::size_t kMaxWholeFileBytes = std::size_t{64} << 20;

// The bytes of the file at `path` (taken as it is, no lookup without regard to case).
// Throws the run-time's file error when it cannot be read, and "Out of memory" (7) when it
// holds more than kMaxWholeFileBytes; `shownName` (default: `path`) is what the error names.
std::string ReadFileBytes(const std::string& path, const std::string& shownName = {});

// Splits text into lines, accepting CR LF, LF and lone CR; no empty last line for a final end.
std::vector<std::string> SplitLines(const std::string& text);

} // namespace orvex
