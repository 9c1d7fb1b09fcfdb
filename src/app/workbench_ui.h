// The workbench's side of the operations' ports: what the MI-set operations (MISetUi) and the
// program and run operations (RunUi) ask of the windows. Both only pass the request on to the
// main window, which owns every window they name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "miset/miset_ui.h"
#include "run/run_ui.h"

namespace orvex {

class MainWindow;

// MI editors, the modal set chooser, name prompt and qubit-count window, the qubit window.
class WorkbenchUi : public MISetUi {
public:
  explicit WorkbenchUi(MainWindow& main) : main_(main) {}
  bool closeMIEditor(int editorSlot, bool save) override;
  bool openMIEditor(int miSlot, int editorSlot) override;
  void unloadQubitWindow() override;
  std::optional<int> chooseSet(const std::vector<std::string>& names, int& selected);
  std::string askSetName(const std::string& caption);
  std::optional<int> chooseQubitCount(int current);
  void arrangeWindows() override;
  void openCallableProgram(const std::string& relativePath) override;
  void miSlotsMoved(const std::vector<int>& newIndexOf) override;

private:
  MainWindow& main_;
};

// Program editors, the qubit displays and window, the enabling of commands during a run.
class WorkbenchRunUi : public RunUi {
public:
  explicit WorkbenchRunUi(MainWindow& main) : main_(main) {}
  void updateQubitDisplay(int slot) override;
  void processEvents();
  void enableRunCommands(int slot, bool enabled) override;
  void programChanged(int slot) override;
  void qubitWindowFrame() override;
  void refreshQubitWindow() override;
  void showRunStatus(const std::string& text);
  void showEditor(int slot) override;
  void arrangeWindows() override;

private:
  MainWindow& main_;
};

} // namespace orvex
