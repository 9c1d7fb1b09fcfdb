// DefaultPG: the program editor of one program slot. It renders ws.Program(slot) (rows, status
// in the column header, caption, the current row while halted) and the slot's qubit boxes, and
// turns the user's gestures (tool bar, keys, drags, double clicks) into the program and run
// operations. Every message and beep goes through platform/dialogs.h.
#pragma once

#include <array>
#include <functional>
#include <vector>

#include <QTreeWidget>
#include <QWidget>

#include "run/run_commands.h"
#include "run/run_ui.h"
#include "workspace/workspace.h"

class QAction;
class QLabel;
class QToolBar;
class QUndoStack;

namespace orvex {

class MISetUi;
class QubitBox;

// The drag format of rows moved within one program editor: "<slot>\n<row>" as UTF-8.
inline constexpr const char* kProgramRowMimeType = "application/x-orvex-pgrow";

class DefaultPG;

// The instruction list `PG`: one column whose header is the program's status line. Drops and
// keys are handed to the editor, which decides with the workspace's run state.
class ProgramListView : public QTreeWidget {
  Q_OBJECT
public:
  explicit ProgramListView(DefaultPG& editor, QWidget* parent = nullptr);
  // The row the drop highlight marks while a drag hovers, -1 when none.
  int dropTarget() const { return dropTarget_; }

protected:
  void keyPressEvent(QKeyEvent* event) override;
  void startDrag(Qt::DropActions supportedActions) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dragMoveEvent(QDragMoveEvent* event) override;
  void dragLeaveEvent(QDragLeaveEvent* event) override;
  void dropEvent(QDropEvent* event) override;

private:
  bool acceptsDrop(const QMimeData* mime) const;
  void setDropTarget(int row);
  DefaultPG& editor_;
  int dropTarget_ = -1;
};

class DefaultPG : public QWidget {
  Q_OBJECT
public:
  // `runUi` receives the hooks of the operations started here; `miSetUi` opens MI editors.
  DefaultPG(Workspace& ws, RunUi& runUi, MISetUi& miSetUi, int slot, QWidget* parent = nullptr);
  ~DefaultPG() override;

  int slot() const { return slot_; }

  // Redraws rows, status header, caption, current-row mark and the run control from the slot.
  void render();
  // Repaints the qubit boxes from QubitX/Y/Z(slot, q), q = 1..ProgramQubits(slot); shows the
  // first ProgramQubits boxes and hides the rest, and sizes the list for them.
  void updateQubitDisplay();
  // The editor's share of the run-state enabling.
  void applyRunCommandStates(const RunCommandStates& states);

  // The tool bar buttons 1..7 ("Clear program" ... "Remove MI").
  QAction* button(int index) const;
  // The selected row (0-based), -1 when none.
  int selectedRow() const;

  // The gestures, also reachable from tests.
  // A key on the list (Qt key code): Delete, Ctrl+D, Ctrl+S, and a beep for every key while a
  // program runs. True when the key was the editor's.
  bool key(int keyCode, bool ctrl);
  void save();                    // Ctrl+S, "Save program"
  void runButton();               // "Run" ("Stop" while the call loop runs: resets)
  bool dropMIRow(int targetRow, const MIListRow& row);
  bool moveRow(int row, int targetRow);
  void openRowInMIEditor(int row);
  // Undo and redo (Ctrl+Z, Ctrl+Shift+Z) of the row edits made here: a drop, a move, a
  // removal, a clear. They give the rows back exactly; the program counts as changed unless
  // it is back where it was last saved. Refused with a beep while a program runs.
  void undo();
  void redo();
  QUndoStack* undoStack() const { return undo_; }

  // Called when a qubit box is clicked (shows the "Color table").
  std::function<void()> qubitClicked;

  // "Pause": enabled while this program's call loop runs in run mode; halts it at the
  // engine's next early return. "Trace": the trace window of this program.
  QAction* PauseButton = nullptr;
  QAction* TraceButton = nullptr;

  QToolBar* Toolbar1 = nullptr;
  ProgramListView* PG = nullptr;
  std::array<QubitBox*, kMaxQubits> Qubit{};  // Qubit[q - 1] is qubit q
  std::vector<QLabel*> Label1;                 // x, y, z labels of each row of boxes

signals:
  // The editor was closed and its slot freed.
  void closed(int slot);
  // The "Trace" button: the program's trace window is wanted.
  void traceRequested();

protected:
  void resizeEvent(QResizeEvent* event) override;
  void closeEvent(QCloseEvent* event) override;

private:
  friend class ProgramListView;
  friend class ProgramRowsCommand;
  // Runs an edit of the rows; when they changed, it becomes one undo step named `what`.
  void recorded(const QString& what, const std::function<void()>& edit);
  void restoreRows(const std::vector<ProgramRow>& rows);
  void layoutChildren();
  void updateColumnWidth();
  // Runs an operation; a run-time error is shown in a critical box, never passed on.
  void run(const std::function<void()>& operation);
  bool running() const { return ws_.RunningProgram != -1; }

  Workspace& ws_;
  RunUi& runUi_;
  MISetUi& miSetUi_;
  int slot_;
  std::array<QAction*, 8> buttons_{};
  int shownQubits_ = 0;
  bool inRun_ = false;  // this program ran or was halted at the last render
  QUndoStack* undo_ = nullptr;
  std::string undoFor_;  // the program (Name) the undo steps belong to
};

} // namespace orvex
