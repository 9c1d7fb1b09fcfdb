// The workbench's side of the operations' ports: what the MI-set operations (MISetUi) and the
// program and run operations (RunUi) ask of the windows, and the user port's questions and
// progress that the main window's own windows answer (WorkbenchPort). They only pass the
// request on to the main window, which owns every window they name.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "miset/miset_ui.h"
#include "platform/dialogs.h"
#include "run/run_ui.h"

namespace orvex {

class MainWindow;

// The user port of the main window, installed while the window lives: the modal set chooser,
// name prompt and qubit-count window, the run's status line in the status bar (a report from
// another thread, the accuracy check's, arrives there queued) and the events handled between
// engine calls. Message boxes, file dialogs and the beep go on to the port below it: the Qt
// dialogs main() installs (in tests, a script).
class WorkbenchPort : public platform::UserPort {
public:
  explicit WorkbenchPort(MainWindow& main);
  ~WorkbenchPort() override;
  WorkbenchPort(const WorkbenchPort&) = delete;
  WorkbenchPort& operator=(const WorkbenchPort&) = delete;

  platform::Answer message(const std::string& text, platform::Icon icon, platform::Buttons buttons,
                           const std::string& detail) override;
  std::optional<std::string> chooseFile(const platform::FileRequest& request) override;
  std::optional<int> chooseOne(const std::vector<std::string>& items, int& selected) override;
  std::string askText(const std::string& caption) override;
  std::optional<int> chooseNumber(int current, int minimum, int maximum) override;
  void beep() override;
  void progress(const std::string& text, std::optional<double> fraction) override;
  void keepResponsive() override;

private:
  MainWindow& main_;
};

// MI editors, the qubit window, the frame; and the main window's user port.
class WorkbenchUi : public MISetUi {
public:
  explicit WorkbenchUi(MainWindow& main) : main_(main), port_(main) {}
  bool closeMIEditor(int editorSlot, bool save) override;
  bool openMIEditor(int miSlot, int editorSlot) override;
  void unloadQubitWindow() override;
  void arrangeWindows() override;
  void openCallableProgram(const std::string& relativePath) override;
  void miSlotsMoved(const std::vector<int>& newIndexOf) override;

private:
  MainWindow& main_;
  WorkbenchPort port_;
};

// Program editors, the qubit displays and window, the enabling of commands during a run.
class WorkbenchRunUi : public RunUi {
public:
  explicit WorkbenchRunUi(MainWindow& main) : main_(main) {}
  void updateQubitDisplay(int slot) override;
  void enableRunCommands(int slot, bool enabled) override;
  void programChanged(int slot) override;
  void qubitWindowFrame() override;
  void refreshQubitWindow() override;
  void showEditor(int slot) override;
  void arrangeWindows() override;

private:
  MainWindow& main_;
};

} // namespace orvex
