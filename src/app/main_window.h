// MainWindow: the workbench's frame. A QMdiArea holds the MI list, the MI editors, the program
// editors and their trace windows; the frame owns every menu item and tool bar button, connects
// each to its command here and keeps their enabled state in one place, updateMenus(), which
// follows the active child window and the run state. The documents it holds know only their
// own content and report through signals and the operations' ports (app/workbench_ui.h).
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include <QElapsedTimer>
#include <QMainWindow>
#include <QPointer>

#include "app/workbench_ui.h"
#include "run/run_commands.h"
#include "workspace/workspace.h"

class QAction;
class QLabel;
class QMdiArea;
class QMdiSubWindow;
class QMenu;
class QToolBar;

namespace orvex {

class DefaultMI;
class DefaultPG;
class MIList;
class sQubit;
class TraceWindow;

class MainWindow : public QMainWindow {
  Q_OBJECT
public:
  explicit MainWindow(Workspace& ws, QWidget* parent = nullptr);
  ~MainWindow() override;

  Workspace& workspace() { return ws_; }
  QMdiArea* mdi() { return mdi_; }
  MISetUi& miSetUi() { return ui_; }
  RunUi& runUi() { return runUi_; }
  MIList* miList() { return miList_; }
  QMdiSubWindow* miListWindow() { return miListWindow_; }
  QToolBar* toolbar() { return toolbar_; }
  // A menu item, menu (its menu action) or tool bar button by object name ("MenuRun",
  // "MenuSize2", "ToolNewMISet"), for scripts and tests; nullptr when there is none.
  QAction* action(const QString& objectName) const;

  // The MI editor of open-editor slot 1..10, nullptr when none.
  DefaultMI* miEditor(int slot) const;
  // The program editor of slot 1..10, nullptr when it has none.
  DefaultPG* editor(int slot) const;
  // The slot whose editor is the MDI area's current child window; 0 when none is.
  int activeSlot() const;
  // The qubit window while it exists.
  sQubit* qubitWindow() const;
  // The trace window of slot 1..10, nullptr when it has none; showTrace creates it.
  TraceWindow* traceWindow(int slot) const;
  TraceWindow* showTrace(int slot);

  // Start-up: the run state is cleared and an MI set is opened (the chooser is modal).
  void startUp();
  // Program files named on the command line, made absolute now (relative to the current
  // directory), before any run changes the directory; opened by openProgramArguments once
  // the set is open.
  void setProgramArguments(const std::vector<std::string>& files);
  void openProgramArguments();

  // The close sequence: a running program is reset, then every changed program is asked
  // about ("Changes have been made in ..."), then the MI editors with changes; Cancel keeps
  // the workbench open. True when the workbench may close.
  bool queryClose();

  // The run's line in the status bar: its progress while the engine works, where a halted run
  // stands. A label of its own, so that menu status tips passing over it do not wipe it out.
  void setRunStatus(const QString& text);
  QString runStatus() const;

  void showMIList();
  // Opens MI slot `miSlot` in a new editor window occupying editor slot `editorSlot`.
  DefaultMI* openMIEditor(int miSlot, int editorSlot);
  // Opens the program a callable-program row names (its path relative to the app directory).
  void openCallableProgram(const std::string& relativePath);

  // The windows behind the operations' ports (see run/run_ui.h and miset/miset_ui.h).
  void showEditor(int slot);
  void arrangeWindows();
  void showQubitWindow();
  void unloadQubitWindow();
  void updateQubitDisplay(int slot);
  void processEvents();
  void enableRunCommands(int slot, bool enabled);
  void programChanged(int slot);
  void qubitWindowFrame();
  void refreshQubitWindow();
  // The frame's share of the run-state enabling (menus, size and step items, "&Back", the
  // tool bar, the MI list window and its tool bar): kept and applied by updateMenus.
  void applyRunCommandStates(const RunCommandStates& states);

public slots:
  // Enables every menu item and tool bar button for the run state and the active child
  // window: the program commands need an active program editor, "&Update MI" a saved one.
  void updateMenus();

protected:
  void closeEvent(QCloseEvent* event) override;

private:
  void createActions();
  void createMenus();
  void createToolBars();
  void createStatusBar();
  QAction* newAction(const char* objectName, const QString& caption);

  // The commands behind the actions.
  void newProgram();
  void openProgram();
  void saveAllPrograms();
  void newMISet();
  void startProgram(int mode);
  void stepBack();
  void resetProgram();
  void pauseProgram();
  void checkAccuracy();
  void gateFidelity();
  void saveProgram();
  void clearRunDirectory();
  void saveProgramAs();
  void showActiveTrace();
  void showHelp();
  void about();
  void animateQubits(bool on);
  void qubitSizeChosen();

  // Runs a command; run-time errors (and any other failure) end in a critical box.
  void command(const std::function<void()>& f);
  // The same for the MI-set commands, after which the MI list is redrawn.
  void setCommand(const std::function<void()>& f);
  // Whether the program of `slot` was ever saved, so that it has a run directory.
  bool hasRunDirectory(int slot) const;
  // Runs `f` on the active program's slot; nothing when no program editor is active.
  void withActiveSlot(const std::function<void(int)>& f);
  // Redraws the trace window and the spheres' trails of `slot` from its trace.
  void refreshTrace(int slot, bool populations);
  void editorClosed(int slot);

  Workspace& ws_;
  WorkbenchUi ui_;
  WorkbenchRunUi runUi_;
  RunCommandStates runStates_;
  QMdiArea* mdi_ = nullptr;
  QToolBar* toolbar_ = nullptr;
  QLabel* runStatus_ = nullptr;
  MIList* miList_ = nullptr;
  QMdiSubWindow* miListWindow_ = nullptr;

  // The menus and their items, in menu order.
  QMenu* fileMenu_ = nullptr;
  QMenu* settingsMenu_ = nullptr;
  QMenu* integratorMenu_ = nullptr;
  QMenu* toolsMenu_ = nullptr;
  QMenu* windowMenu_ = nullptr;
  QMenu* helpMenu_ = nullptr;
  QAction* newAct_ = nullptr;
  QAction* openAct_ = nullptr;
  QAction* saveAllAct_ = nullptr;
  QAction* exitAct_ = nullptr;
  QAction* propertiesAct_ = nullptr;
  QAction* outputFilesAct_ = nullptr;
  QAction* animateAct_ = nullptr;
  std::array<QAction*, 4> sizeActs_{};
  std::array<QAction*, 3> stepActs_{};
  std::array<QAction*, 2> integratorActs_{};
  QAction* startAct_ = nullptr;
  QAction* stepAct_ = nullptr;
  QAction* backAct_ = nullptr;
  QAction* resetAct_ = nullptr;
  QAction* pauseAct_ = nullptr;
  QAction* accuracyAct_ = nullptr;
  QAction* fidelityAct_ = nullptr;
  QAction* saveProgramAct_ = nullptr;
  QAction* clearMIAct_ = nullptr;
  QAction* saveAsAct_ = nullptr;
  QAction* arrangeAct_ = nullptr;
  QAction* traceAct_ = nullptr;
  QAction* showMIAct_ = nullptr;
  QAction* helpAct_ = nullptr;
  QAction* aboutAct_ = nullptr;
  // The tool bar's buttons: "New", "Open", "Save all", "New MI set".
  std::array<QAction*, 4> toolActs_{};

  std::array<QPointer<DefaultMI>, kMaxMIEditors> miEditors_{};
  std::array<QPointer<DefaultPG>, kMaxPrograms> editors_{};
  std::array<QPointer<QMdiSubWindow>, kMaxPrograms> frames_{};
  std::array<QPointer<TraceWindow>, kMaxPrograms> traces_{};
  std::array<QPointer<QMdiSubWindow>, kMaxPrograms> traceFrames_{};
  QElapsedTimer traceDrawn_;  // when the running program's trace was last drawn
  QPointer<sQubit> qubitWindow_;
  std::vector<std::string> programFiles_;
};

} // namespace orvex
