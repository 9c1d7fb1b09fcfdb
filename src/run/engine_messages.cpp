// Engine status codes to messages, and the engine log's reason for the last error.
#include "run/engine_messages.h"

#include <algorithm>
#include <cctype>
#include <exception>

#include "platform/dialogs.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

std::string Lines(std::initializer_list<const char*> lines) {
  std::string text;
  for (const char* line : lines) {
    if (!text.empty()) text += platform::CR;
    text += line;
  }
  return text;
}

// "error CODE: FILE:LINE: reason" -> "reason"; "error CODE: reason" -> "reason".
std::string ReasonOf(const std::string& line) {
  std::size_t pos = 5;  // after "error"
  while (pos < line.size() && line[pos] == ' ') ++pos;
  if (pos < line.size() && (line[pos] == '-' || line[pos] == '+')) ++pos;
  while (pos < line.size() && std::isdigit(static_cast<unsigned char>(line[pos]))) ++pos;
  if (pos >= line.size() || line[pos] != ':') return Trim(line.substr(std::min(pos, line.size())));
  std::string rest = Trim(line.substr(pos + 1));
  // FILE:LINE: — the file ends at the last ":digits:" before the reason.
  for (std::size_t colon = rest.find(':'); colon != std::string::npos;
       colon = rest.find(':', colon + 1)) {
    std::size_t digits = colon + 1;
    while (digits < rest.size() && std::isdigit(static_cast<unsigned char>(rest[digits])))
      ++digits;
    if (digits > colon + 1 && digits < rest.size() && rest[digits] == ':')
      return Trim(rest.substr(digits + 1));
  }
  return rest;
}

} // namespace

std::string EngineMessage(std::int32_t code) {
  if (code == -1000)
    return Lines({"Fatal error, cannot open kv1dll.log!",
                  "Make sure the disk is not full or write-protected.",
                  "If the problem persist contact the authors."});
  if (code == -1001 || code == -1002)
    return "Micro instruction or program file cannot be found.";
  if (code == -1003) return "Too many nested (or recusive) quantum programs.";
  if (code >= -24 && code <= -20)
    return Lines({"Check on norm failed", "Please contact the authors."});
  if (code == -30)
    return Lines({"Error accessing qubit%%.out!",
                  "Make sure the disk is not full or write-protected.",
                  "If the problem persist contact the authors."});
  if (code >= -19 && code <= -1) return "Syntax error in micro instructions";
  return "";
}

std::string EngineLogReason(const std::string& directory) {
  try {
    auto path = FindPath(directory, "kv1dll.log");
    if (!path) return "";
    std::string reason;
    for (const std::string& raw : SplitLines(ReadWholeFile(*path))) {
      std::string line = Trim(raw);
      if (line.size() >= 6 && Lower(line.substr(0, 6)) == "error ") reason = ReasonOf(line);
    }
    return reason;
  } catch (const std::exception&) {
    return "";
  }
}

} // namespace orvex
