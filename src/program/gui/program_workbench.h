// ProgramWorkbench: the program editors, the runs and the qubit window inside Main0. It is the
// RunUi of the program and run operations (editors in the MDI area, the enabling of commands,
// the qubit displays) and wires Main0's program, run, window and help commands to them.
#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

#include <QElapsedTimer>
#include <QObject>
#include <QPointer>

#include "program/gui/default_pg.h"
#include "run/run_ui.h"
#include "view/gui/squbit.h"
#include "view/gui/trace_window.h"
#include "workspace/workspace.h"

class QMdiSubWindow;

namespace orvex {

class Main0;

class ProgramWorkbench : public QObject, public RunUi {
  Q_OBJECT
public:
  // Connects Main0's actions and hooks. Program files named on the command line (relative to
  // the current directory) are made absolute here, before any run changes the directory.
  explicit ProgramWorkbench(Main0& main, QObject* parent = nullptr);
  ~ProgramWorkbench() override;

  // Opens the program files Main0 was given on the command line (after the set is open).
  void openProgramArguments();

  // The editor of slot 1..10, nullptr when it has none.
  DefaultPG* editor(int slot) const;
  // The slot whose editor is the MDI area's current child window; 0 when none is.
  int activeSlot() const;
  // The qubit window while it exists.
  sQubit* qubitWindow() const { return qubitWindow_.data(); }
  // The trace window of slot 1..10, nullptr when it has none; showTrace creates it.
  TraceWindow* traceWindow(int slot) const;
  TraceWindow* showTrace(int slot);

  // RunUi.
  void updateQubitDisplay(int slot) override;
  void processEvents() override;
  void enableRunCommands(int slot, bool enabled) override;
  void programChanged(int slot) override;
  void qubitWindowFrame() override;
  void refreshQubitWindow() override;
  void showRunStatus(const std::string& text) override;
  void showEditor(int slot) override;
  void arrangeWindows() override;

private:
  void connectActions();
  void connectAction(const char* name, std::function<void()> command);
  // Runs a command; run-time errors (and any other failure) end in a critical box.
  void command(const std::function<void()>& f);
  void withActiveSlot(const std::function<void(int)>& f);
  void clearRunDirectory();
  void showQubitWindow();
  void unloadQubitWindow();

  Main0& main_;
  Workspace& ws_;
  // Redraws the trace window and the spheres' trails of `slot` from its trace.
  void refreshTrace(int slot, bool populations);
  std::array<QPointer<DefaultPG>, kMaxPrograms> editors_{};
  std::array<QPointer<TraceWindow>, kMaxPrograms> traces_{};
  std::array<QPointer<QMdiSubWindow>, kMaxPrograms> traceFrames_{};
  QElapsedTimer traceDrawn_;  // when the running program's trace was last drawn
  std::array<QPointer<QMdiSubWindow>, kMaxPrograms> frames_{};
  QPointer<sQubit> qubitWindow_;
  std::vector<std::string> programFiles_;
};

} // namespace orvex
