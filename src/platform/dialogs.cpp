#include "platform/dialogs.h"

namespace orvex::platform {
namespace {

// Without a window system: take the first button, cancel file dialogs.
class HeadlessHandler : public DialogHandler {
public:
  Answer message(const std::string&, Icon, Buttons buttons, const std::string&) override {
    switch (buttons) {
    case Buttons::YesNo:
    case Buttons::YesNoCancel: return Answer::Yes;
    default: return Answer::OK;
    }
  }
  std::optional<std::string> chooseFile(const FileRequest&) override { return std::nullopt; }
};

HeadlessHandler headless;
DialogHandler* current = &headless;

} // namespace

void SetDialogHandler(DialogHandler* handler) { current = handler ? handler : &headless; }
DialogHandler* CurrentDialogHandler() { return current; }

Answer MsgBox(const std::string& text, Icon icon, Buttons buttons, const std::string& detail) {
  return current->message(text, icon, buttons, detail);
}

std::optional<std::string> ChooseFile(const FileRequest& request) {
  return current->chooseFile(request);
}

void Beep() { current->beep(); }

} // namespace orvex::platform
