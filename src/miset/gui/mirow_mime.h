// The drag format of MI list rows, read by the program editors when a row is dropped.
//
// MIME type "application/x-orvex-mirow"; the payload is three fields separated by a line
// feed: the row's key ("MI" + slot, "" for the breakpoint row), its text (the name without
// extension, as the bytes the workspace holds) and its icon number (1 MI, 2 breakpoint, 19
// callable program) in decimal. Example: "MI3\nPulse\n1". A key or text never holds a line
// feed.
#pragma once

#include <optional>

#include "workspace/workspace.h"

class QMimeData;

namespace orvex {

inline constexpr const char* kMIRowMimeType = "application/x-orvex-mirow";

// A new QMimeData (the caller owns it) carrying `row`.
QMimeData* EncodeMIRow(const MIListRow& row);
// The row a drop carries; nullopt when the data holds no MI row.
std::optional<MIListRow> DecodeMIRow(const QMimeData* data);

} // namespace orvex
