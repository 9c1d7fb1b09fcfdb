// Every message box, file dialog, modal chooser and beep of the workbench goes through here.
// The application installs a handler that shows real Qt dialogs; tests install a recorder
// that answers from a script. Qt-free, so the operations that ask questions stay testable.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace orvex::platform {

enum class Icon { None, Critical, Exclamation, Information, Question };
enum class Buttons { OK, OKCancel, YesNo, YesNoCancel };
enum class Answer { OK, Cancel, Yes, No };

// The title of every message box.
inline constexpr const char* kTitle = "Orvex";

struct FileRequest {
  std::string title;
  std::string filter;     // "Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*"
  std::string directory;  // start directory ("" = the handler's choice)
  std::string fileName;   // proposed file name
  bool save = false;      // a save dialog rather than an open dialog
};

class DialogHandler {
public:
  virtual ~DialogHandler() = default;
  // `text` keeps CR (character 13) between lines; only the display turns it into breaks.
  // `detail` is optional further text the user can unfold (the engine log's reason).
  virtual Answer message(const std::string& text, Icon icon, Buttons buttons,
                         const std::string& detail) = 0;
  // The chosen full path; nullopt when cancelled.
  virtual std::optional<std::string> chooseFile(const FileRequest& request) = 0;
  virtual void beep() {}
};

// Installs the handler (not owned); nullptr restores the default, which answers every
// question with its first button and every file dialog with cancel (headless use).
void SetDialogHandler(DialogHandler* handler);
DialogHandler* CurrentDialogHandler();

// The single entry points.
Answer MsgBox(const std::string& text, Icon icon = Icon::None, Buttons buttons = Buttons::OK,
              const std::string& detail = {});
std::optional<std::string> ChooseFile(const FileRequest& request);
void Beep();

// Character 13, the separator of message lines.
inline constexpr char CR = '\r';

} // namespace orvex::platform
