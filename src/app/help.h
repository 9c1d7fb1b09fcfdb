// The Help menu's command: open help.htm from the application directory in the user's
// browser, and the document opener behind it.
#pragma once

#include <functional>
#include <string>

namespace orvex {

// Opens a document with the desktop's handler; false when nothing could open it.
using DocumentOpener = std::function<bool(const std::string& path)>;
// The default opener: QDesktopServices::openUrl of the local file.
DocumentOpener DesktopDocumentOpener();

// `appDir` ends in "/". Missing help file: "Cannot locate file: " + path (information);
// otherwise OpenDocument(path, "", "").
void ShowHelp(const std::string& appDir, const DocumentOpener& open = DesktopDocumentOpener());

// Opens `file` with its associated program. A missing file: "File not found"; an opener that
// fails: "No program is set up to open " + file. Both critical, title "Orvex". `parameters`
// and `directory` are accepted for callers that have them; a desktop handler takes neither.
void OpenDocument(const std::string& file, const std::string& parameters,
                  const std::string& directory,
                  const DocumentOpener& open = DesktopDocumentOpener());

} // namespace orvex
