#include "app/workbench_ui.h"

#include "app/main_window.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/set_dialogs.h"
#include "platform/gui/qt_text.h"
#include "workspace/workspace.h"

namespace orvex {

// ---- WorkbenchUi ----------------------------------------------------------------------------

bool WorkbenchUi::closeMIEditor(int editorSlot, bool save) {
  DefaultMI* editor = main_.miEditor(editorSlot);
  if (!editor) {
    // The slot's window is gone already; only the flag was left.
    main_.workspace().MIEditorOpen(editorSlot) = false;
    return true;
  }
  return editor->storeAndClose(save);
}

bool WorkbenchUi::openMIEditor(int miSlot, int editorSlot) {
  return main_.openMIEditor(miSlot, editorSlot) != nullptr;
}

void WorkbenchUi::unloadQubitWindow() { main_.unloadQubitWindow(); }

std::optional<int> WorkbenchUi::chooseSet(const std::vector<std::string>& names, int& selected) {
  return SelectMI::Choose(names, selected, &main_);
}

std::string WorkbenchUi::askSetName(const std::string& caption) { return GetDirName::Ask(caption, &main_); }

std::optional<int> WorkbenchUi::chooseQubitCount(int current) { return SetQubits::Choose(current, &main_); }

void WorkbenchUi::arrangeWindows() { main_.arrangeWindows(); }

void WorkbenchUi::openCallableProgram(const std::string& relativePath) { main_.openCallableProgram(relativePath); }

void WorkbenchUi::miSlotsMoved(const std::vector<int>& newIndexOf) {
  for (int s = 1; s <= kMaxMIEditors; ++s) {
    DefaultMI* editor = main_.miEditor(s);
    if (!editor) continue;
    const int old = editor->miSlot();
    if (old <= 0 || old >= static_cast<int>(newIndexOf.size())) continue;
    if (newIndexOf[old] == 0) editor->abandon();  // its MI was deleted
    else editor->setMISlot(newIndexOf[old]);
  }
}

// ---- WorkbenchRunUi -------------------------------------------------------------------------

void WorkbenchRunUi::updateQubitDisplay(int slot) { main_.updateQubitDisplay(slot); }

void WorkbenchRunUi::processEvents() { main_.processEvents(); }

void WorkbenchRunUi::enableRunCommands(int slot, bool enabled) { main_.enableRunCommands(slot, enabled); }

void WorkbenchRunUi::programChanged(int slot) { main_.programChanged(slot); }

void WorkbenchRunUi::qubitWindowFrame() { main_.qubitWindowFrame(); }

void WorkbenchRunUi::refreshQubitWindow() { main_.refreshQubitWindow(); }

void WorkbenchRunUi::showRunStatus(const std::string& text) { main_.setRunStatus(platform::FromBytes(text)); }

void WorkbenchRunUi::showEditor(int slot) { main_.showEditor(slot); }

void WorkbenchRunUi::arrangeWindows() { main_.arrangeWindows(); }

} // namespace orvex
