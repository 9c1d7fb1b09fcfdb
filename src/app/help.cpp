// Opening the help page and other documents with the desktop's handler.
#include "app/help.h"

#include <QDesktopServices>
#include <QString>
#include <QUrl>

#include "platform/dialogs.h"
#include "workspace/paths.h"

namespace orvex {

DocumentOpener DesktopDocumentOpener() {
  return [](const std::string& path) {
    return QDesktopServices::openUrl(QUrl::fromLocalFile(QString::fromStdString(path)));
  };
}

void ShowHelp(const std::string& appDir, const DocumentOpener& open) {
  const std::string path = appDir + "help.htm";
  if (!FileExists(path)) {
    platform::MsgBox("Cannot locate file: " + path, platform::Icon::Information);
    return;
  }
  OpenDocument(path, "", "", open);
}

void OpenDocument(const std::string& file, const std::string& /*parameters*/,
                  const std::string& /*directory*/, const DocumentOpener& open) {
  std::string error;
  // The lookup ignores letter case; the opener gets the name as it is on disk.
  const auto onDisk = FileExists(file) ? ResolvePath(file) : std::nullopt;
  if (!onDisk)
    error = "File not found";
  else if (!open || !open(*onDisk))
    error = "No program is set up to open " + file;
  if (!error.empty()) platform::MsgBox(error, platform::Icon::Critical);
}

} // namespace orvex
