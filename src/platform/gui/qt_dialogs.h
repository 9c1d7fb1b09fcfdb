// The Qt message boxes titled "Orvex", file dialogs and the beep of the workbench's user port,
// shown with Qt. Installed by the application at start-up.
#pragma once

#include <QString>

#include "platform/dialogs.h"

class QWidget;

namespace orvex::platform {

class QtDialogHandler : public UserPort {
public:
  explicit QtDialogHandler(QWidget* parent = nullptr) : parent_(parent) {}
  void setParent(QWidget* parent) { parent_ = parent; }

  Answer message(const std::string& text, Icon icon, Buttons buttons,
                 const std::string& detail) override;
  std::optional<std::string> chooseFile(const FileRequest& request) override;
  void beep() override;

private:
  QWidget* parent_;
};

// "Desc (*.KVP)|*.KVP|All files (*.*)|*.*" as a Qt filter list whose patterns match without
// regard to case: "Desc (*.KVP *.kvp);;All files (*)".
QString QtFileFilter(const std::string& filter);

} // namespace orvex::platform
