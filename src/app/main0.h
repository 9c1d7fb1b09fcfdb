// Main0: the workbench's frame. A QMdiArea holds the MI list, the MI editors (and, later, the
// program editors and the qubit window); the menu bar and the tool bar Toolbar1 carry the
// commands, and the Settings menu edits the run settings of the workspace. Commands that
// other parts of the workbench provide are reached through action(name) and the hooks below.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include <QMainWindow>
#include <QPointer>

#include "miset/miset_ui.h"
#include "run/run_commands.h"
#include "workspace/workspace.h"

class QAction;
class QLabel;
class QActionGroup;
class QMdiArea;
class QMdiSubWindow;
class QToolBar;

namespace orvex {

class DefaultMI;
class Main0;
class MIList;

// The MI-set operations' view of the workbench: real MI editors and the modal windows.
class WorkbenchUi : public MISetUi {
public:
  explicit WorkbenchUi(Main0& main) : main_(main) {}
  bool closeMIEditor(int editorSlot, bool save) override;
  bool openMIEditor(int miSlot, int editorSlot) override;
  void unloadQubitWindow() override;
  std::optional<int> chooseSet(const std::vector<std::string>& names, int& selected) override;
  std::string askSetName(const std::string& caption) override;
  std::optional<int> chooseQubitCount(int current) override;
  void arrangeWindows() override;
  void openCallableProgram(const std::string& relativePath) override;
  void miSlotsMoved(const std::vector<int>& newIndexOf) override;

private:
  Main0& main_;
};

class Main0 : public QMainWindow {
  Q_OBJECT
public:
  explicit Main0(Workspace& ws, QWidget* parent = nullptr);
  ~Main0() override;

  Workspace& workspace() { return ws_; }
  QMdiArea* mdi() { return mdi_; }
  MISetUi& miSetUi() { return ui_; }
  MIList* miList() { return miList_; }
  QMdiSubWindow* miListWindow() { return miListWindow_; }
  // A menu item, menu (its menu action) or tool bar button by object name ("MenuRun",
  // "MenuSize2", "ToolNewMISet"); nullptr when there is none.
  QAction* action(const QString& objectName) const;
  QToolBar* toolbar() { return toolbar_; }
  // The MI editor of open-editor slot 1..10, nullptr when none.
  DefaultMI* miEditor(int slot) const;

  // Start-up: the run state is cleared and an MI set is opened (the chooser is modal).
  void startUp();
  // Program files named on the command line, kept for the program editors.
  void setProgramArguments(std::vector<std::string> files) { programArguments_ = std::move(files); }
  const std::vector<std::string>& programArguments() const { return programArguments_; }

  // The close sequence: a running program is reset, then every changed program is asked
  // about ("Changes have been made in ..."); Cancel keeps the workbench open. Open MI editors
  // with changes ask too. True when the workbench may close.
  bool queryClose();

  // Hooks for the parts that own programs and the qubit window; empty hooks do nothing.
  // The programs' share of closing (reset a run, ask about changed programs); false keeps
  // the workbench open.
  std::function<bool()> queryClosePrograms;
  std::function<void(const std::string& relativePath)> openCallableProgram;
  std::function<void()> unloadQubitWindow;
  std::function<void()> arrangeWindows;

  // The frame's share of the run-state enabling: menus, size and step items, "&Back", the
  // tool bar, the MI list window and its tool bar. (The program editor applies its buttons.)
  void applyRunCommandStates(const RunCommandStates& states);

  // The run's line in the status bar: its progress while the engine works, where a halted run
  // stands. A label of its own, so that menu status tips passing over it do not wipe it out.
  void setRunStatus(const QString& text);
  QString runStatus() const;

  void showMIList();
  // Opens MI slot `miSlot` in a new editor window occupying editor slot `editorSlot`.
  DefaultMI* openMIEditor(int miSlot, int editorSlot);

protected:
  void closeEvent(QCloseEvent* event) override;

private:
  void buildMenus();
  void buildToolbar();
  QAction* addItem(QMenu* menu, const char* objectName, const QString& caption);
  void runCommand(const std::function<void()>& command);

  Workspace& ws_;
  WorkbenchUi ui_;
  QMdiArea* mdi_ = nullptr;
  QToolBar* toolbar_ = nullptr;
  MIList* miList_ = nullptr;
  QLabel* runStatus_ = nullptr;
  QMdiSubWindow* miListWindow_ = nullptr;
  std::array<QPointer<DefaultMI>, kMaxMIEditors> editors_{};
  std::vector<std::string> programArguments_;
  friend class WorkbenchUi;
};

} // namespace orvex
