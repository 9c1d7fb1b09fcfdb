// Text between the workspace (8-bit bytes, CR between message lines) and Qt (QString).
#pragma once

#include <string>

#include <QString>

namespace orvex::platform {

// Bytes as the user sees them: UTF-8, or Latin-1 when the bytes are not valid UTF-8.
QString FromBytes(const std::string& bytes);
// What the user typed, as the bytes we store (UTF-8).
std::string ToBytes(const QString& text);
// A message for display: CR LF and lone CR become line breaks.
QString DisplayText(const std::string& message);

} // namespace orvex::platform
