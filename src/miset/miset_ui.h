// What the MI-set operations need from the windows around them: the MI editors, the qubit
// window and the frame. Questions to the user go through the user port (platform/dialogs.h).
// The operations stay Qt-free; the workbench implements these with real windows and tests
// script them. The defaults describe a workbench without windows: nothing open.
#pragma once

#include <string>
#include <vector>

#include "platform/dialogs.h"  // RunCommand and ReportRuntimeError, used with these hooks

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
