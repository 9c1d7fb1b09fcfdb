// The user port: everything an operation needs from the user goes through here — questions
// (message boxes, file dialogs, choosing from a list, a text, a number), refusals (boxes with
// icons, the beep, the report of a run-time error) and the progress of long operations.
// The workbench installs a port with real windows, the command line and the Python module the
// headless one below, tests a recorder that answers from a script. Qt-free, so the operations
// that ask questions stay testable.
#pragma once

#include <functional>
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
  std::string directory;  // start directory ("" = the port's choice)
  std::string fileName;   // proposed file name
  bool save = false;      // a save dialog rather than an open dialog
};

class UserPort {
public:
  virtual ~UserPort() = default;

  // --- questions -------------------------------------------------------------------------
  // `text` keeps CR (character 13) between lines; only the display turns it into breaks.
  // `detail` is optional further text the user can unfold (the engine log's reason).
  virtual Answer message(const std::string& text, Icon icon, Buttons buttons,
                         const std::string& detail) = 0;
  // The chosen full path; nullopt when cancelled.
  virtual std::optional<std::string> chooseFile(const FileRequest& request) = 0;
  // One of `items` (the set chooser): its index, nullopt for Cancel or a closed window.
  // `selected` is the row selected when the chooser opens (-1 none) and, afterwards, the row
  // that was selected when it closed.
  virtual std::optional<int> chooseOne(const std::vector<std::string>& items, int& selected);
  // A text asked for under `caption` (the set name prompt); "" when cancelled.
  virtual std::string askText(const std::string& caption);
  // A number from minimum to maximum, offered on `current` (the qubit-count window); nullopt
  // for Cancel.
  virtual std::optional<int> chooseNumber(int current, int minimum, int maximum);

  // --- refusals --------------------------------------------------------------------------
  virtual void beep() {}

  // --- progress --------------------------------------------------------------------------
  // Where a long operation stands: a status line ("" clears it) and, when known, the part
  // done (0..1). A run's line also tells where a halted run stands.
  virtual void progress(const std::string& /*text*/, std::optional<double> /*fraction*/) {}
  // Called between the steps of a long operation (every engine call): the user interface
  // handles what is pending. Ports may run other operations from here; the run controller
  // copes with a Reset arriving this way.
  virtual void keepResponsive() {}
  // True when the user asked to stop the long operation under way (a run is then reset).
  virtual bool cancelRequested() { return false; }
};

// Without a window system (the command line, the Python module, the accuracy check): a
// question takes its first button, a file dialog or chooser is cancelled. Every message is
// kept, and handed to `onMessage` as it comes; progress goes to `onProgress` when set.
class HeadlessPort : public UserPort {
public:
  struct Message {
    std::string text;
    Icon icon = Icon::None;
    std::string detail;
  };

  Answer message(const std::string& text, Icon icon, Buttons buttons,
                 const std::string& detail) override;
  std::optional<std::string> chooseFile(const FileRequest& request) override;
  void progress(const std::string& text, std::optional<double> fraction) override;

  // A critical message came: what was asked has failed.
  bool failed() const;
  // The texts of the critical messages, and of the others, in order; lines joined by "\n" and
  // the detail after "\nreason: ".
  std::vector<std::string> errors() const;
  std::vector<std::string> warnings() const;

  std::vector<Message> messages;
  std::function<void(const Message&)> onMessage;
  std::function<void(const std::string&, std::optional<double>)> onProgress;
};

// The ports in use, one above the other: the last installed answers, and may pass on what it
// does not handle itself to the port below it. The headless port (keeping nothing) lies at
// the bottom. A port can be removed in any order; it must be removed before it goes.
void InstallUserPort(UserPort* port);
void RemoveUserPort(UserPort* port);
UserPort& CurrentUserPort();
UserPort& PortBelow(const UserPort* port);

// Installs a port for the lifetime of the guard.
class ScopedUserPort {
public:
  explicit ScopedUserPort(UserPort& port) : port_(port) { InstallUserPort(&port_); }
  ~ScopedUserPort() { RemoveUserPort(&port_); }
  ScopedUserPort(const ScopedUserPort&) = delete;
  ScopedUserPort& operator=(const ScopedUserPort&) = delete;

private:
  UserPort& port_;
};

// The single entry points; each asks the current port.
Answer MsgBox(const std::string& text, Icon icon = Icon::None, Buttons buttons = Buttons::OK,
              const std::string& detail = {});
std::optional<std::string> ChooseFile(const FileRequest& request);
std::optional<int> ChooseOne(const std::vector<std::string>& items, int& selected);
std::string AskText(const std::string& caption);
std::optional<int> ChooseNumber(int current, int minimum, int maximum);
void Beep();
void ShowProgress(const std::string& text, std::optional<double> fraction = std::nullopt);
void KeepResponsive();
bool CancelRequested();

// The answer of a question's first button (Yes, else OK), which headless ports give.
Answer FirstButton(Buttons buttons);

// Character 13, the separator of message lines.
inline constexpr char CR = '\r';

} // namespace orvex::platform

namespace orvex {
class RuntimeError;
// The top-level report of a run-time error (a full table, a file error) outside a run: a
// critical box with the description, ", errorcode: " and the number.
void ReportRuntimeError(const RuntimeError& error);
// Runs a command of a window: a run-time error, or any other failure, ends in a critical box
// and never travels on into the event loop. False when a failure was reported.
bool RunCommand(const std::function<void()>& command);
} // namespace orvex
