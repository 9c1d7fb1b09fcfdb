#include "app/workbench_ui.h"

#include <QThread>

#include "app/main_window.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/set_dialogs.h"
#include "platform/gui/qt_text.h"
#include "workspace/workspace.h"

namespace orvex {

// ---- WorkbenchPort --------------------------------------------------------------------------

WorkbenchPort::WorkbenchPort(MainWindow& main) : main_(main) { platform::InstallUserPort(this); }

WorkbenchPort::~WorkbenchPort() { platform::RemoveUserPort(this); }

platform::Answer WorkbenchPort::message(const std::string& text, platform::Icon icon,
                                       platform::Buttons buttons, const std::string& detail) {
  return platform::PortBelow(this).message(text, icon, buttons, detail);
}

std::optional<std::string> WorkbenchPort::chooseFile(const platform::FileRequest& request) {
  return platform::PortBelow(this).chooseFile(request);
}

void WorkbenchPort::beep() { platform::PortBelow(this).beep(); }

std::optional<int> WorkbenchPort::chooseOne(const std::vector<std::string>& items, int& selected) {
  return SelectMI::Choose(items, selected, &main_);
}

std::string WorkbenchPort::askText(const std::string& caption) { return GetDirName::Ask(caption, &main_); }

// The qubit-count window is the workbench's one number window; it offers 2..32.
std::optional<int> WorkbenchPort::chooseNumber(int current, int, int) { return SetQubits::Choose(current, &main_); }

void WorkbenchPort::progress(const std::string& text, std::optional<double>) {
  const QString line = platform::FromBytes(text);
  if (QThread::currentThread() == main_.thread()) {
    main_.setRunStatus(line);
    return;
  }
  MainWindow* main = &main_;
  QMetaObject::invokeMethod(main, [main, line] { main->setRunStatus(line); }, Qt::QueuedConnection);
}

void WorkbenchPort::keepResponsive() {
  if (QThread::currentThread() == main_.thread()) main_.processEvents();
}

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

void WorkbenchRunUi::enableRunCommands(int slot, bool enabled) { main_.enableRunCommands(slot, enabled); }

void WorkbenchRunUi::programChanged(int slot) { main_.programChanged(slot); }

void WorkbenchRunUi::qubitWindowFrame() { main_.qubitWindowFrame(); }

void WorkbenchRunUi::refreshQubitWindow() { main_.refreshQubitWindow(); }

void WorkbenchRunUi::showEditor(int slot) { main_.showEditor(slot); }

void WorkbenchRunUi::arrangeWindows() { main_.arrangeWindows(); }

} // namespace orvex
