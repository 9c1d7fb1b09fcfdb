// What the MI-set operations need from the windows around them: the MI editors, the modal
// set chooser and name prompt, the qubit window and the frame. The operations stay Qt-free;
// the workbench implements these with real windows and tests script them. The defaults
// describe a workbench without windows: nothing open, every prompt cancelled.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace orvex {

class MISetUi {
public:
  virtual ~MISetUi() = default;

  // The MI editor of open-editor slot `editorSlot` (1..10) stores its values (save) or drops
  // them (discard) and closes. False when it could not close (an invalid name the user must
  // correct); the editor then stays open.
  virtual bool closeMIEditor(int editorSlot, bool save);
  // Opens MI slot `miSlot` in a new editor that occupies open-editor slot `editorSlot`.
  // False when no editor could be shown.
  virtual bool openMIEditor(int miSlot, int editorSlot);
  // The qubit window shows the register of the open set; it goes when the set changes.
  virtual void unloadQubitWindow() {}
  // The modal set chooser: the index of the chosen name, nullopt for Cancel or a closed
  // window. `selected` is the row selected when the chooser opens (-1 none) and, afterwards,
  // the row that was selected when it closed.
  virtual std::optional<int> chooseSet(const std::vector<std::string>& names, int& selected);
  // The modal name prompt with the given caption; "" when cancelled.
  virtual std::string askSetName(const std::string& caption);
  // The modal qubit-count window, opened on `current`: the chosen number (2..32), nullopt
  // for Cancel.
  virtual std::optional<int> chooseQubitCount(int current);
  virtual void arrangeWindows() {}
  // Opens the program a callable-program row names (its path relative to the app directory).
  virtual void openCallableProgram(const std::string& relativePath);
  // Something about the MI list besides the model changed (the window may want to refocus).
  virtual void miListChanged() {}
  // The MI table was compacted: newIndexOf[old] is the record's new slot (0 when it was
  // dropped; index 0 unused). Editors that hold a slot follow their record.
  virtual void miSlotsMoved(const std::vector<int>& newIndexOf);
};

} // namespace orvex

namespace orvex {
class RuntimeError;
// The top-level report of a run-time error (a full table, a file error) outside a run: a
// critical box with the description, ", errorcode: " and the number.
void ReportRuntimeError(const RuntimeError& error);
// Runs a command of a window: a run-time error, or any other failure, ends in a critical box
// and never travels on into the event loop. False when a failure was reported.
bool RunCommand(const std::function<void()>& command);
} // namespace orvex
