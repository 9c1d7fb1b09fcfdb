// What the user is told about an engine status code, and the reason the engine logged for it.
#pragma once

#include <cstdint>
#include <string>

namespace orvex {

// The message for a non-zero engine status (lines joined by CR). The ranges are tested in a
// fixed order; a code outside all of them (and 0) gives an empty text, the message box then
// shows no text of its own.
std::string EngineMessage(std::int32_t code);

// The reason of the last "error CODE: FILE:LINE: reason" line of "kv1dll.log" in `directory`
// (the file name matched without regard to case); "" when there is no log or no error line.
// A line without the FILE:LINE part gives the text after "error CODE:". Never throws.
std::string EngineLogReason(const std::string& directory);

} // namespace orvex
