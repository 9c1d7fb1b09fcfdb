// Export of a window's data and pictures: the file is chosen through the platform dialogs and
// written through a temporary file beside it, so a failed export leaves what was there.
#pragma once

#include <optional>
#include <string>

#include "platform/dialogs.h"

class QWidget;

namespace orvex {

// Writes `bytes` to `path` through a temporary file beside it, so a failure leaves what was
// there before; the reason on failure.
std::optional<std::string> WriteReplacing(const std::string& path, const std::string& bytes);

// Asks where (a save dialog by `request`) and writes `bytes` there. A failure is shown as
// `subject` " could not be saved to " PATH ": " reason. False when cancelled or failed.
bool ExportBytes(platform::FileRequest request, const std::string& bytes, const std::string& subject);

// The same for a PNG picture of `widget` as it is drawn now (subject "The picture").
bool ExportPicture(platform::FileRequest request, QWidget* widget);

} // namespace orvex
