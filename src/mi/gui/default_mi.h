// DefaultMI: the editor of one MI. It shows every field of the record for the set's number
// of qubits: name, description, time step (optionally in units of 2 pi), main and intermediate
// steps, norm check, the initial state (initialisation MI only), the twelve field parameters
// per qubit (Grid1) and the couplings Jx, Jy, Jz per qubit pair (GridJ). Numbers are read by
// the Val rule; a field or cell that is not entirely a number is marked and refused.
#pragma once

#include <QWidget>

#include <vector>

#include "miset/mi_editing.h"
#include "workspace/workspace.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;
class QUndoStack;

namespace orvex {

class DefaultMI : public QWidget {
  Q_OBJECT
public:
  DefaultMI(Workspace& ws, int miSlot, int editorSlot, QWidget* parent = nullptr);
  ~DefaultMI() override;

  Workspace& workspace() const { return ws_; }
  int miSlot() const { return miSlot_; }
  int editorSlot() const { return editorSlot_; }
  // The record moved to another slot (the table was compacted).
  void setMISlot(int slot) { miSlot_ = slot; }
  bool changed() const { return changed_; }

  // Store-and-close: with save, the values are checked, stored into the record and saved; a
  // refusal (a bad number, an unusable name, a duplicate) keeps the editor open and returns
  // false. Without save the edits are dropped. Either way a successful close frees the
  // editor slot and the record's open flag.
  bool storeAndClose(bool save);
  // Stores and saves without closing. True when saved.
  bool save();
  // The record is gone (deleted): close without storing anything.
  void abandon();

  // Grid edits, each one undo step (nothing is pushed when no cell changes). They act on the
  // grid that has the focus (Grid1 when neither has it), as the context menus do.
  // Fill down: every selected cell takes the text of the first selected cell (top row first,
  // then leftmost).
  void fillDown(QTableWidget* grid);
  // Pastes the clipboard's tab-separated block (rows by line) with its top-left cell at the
  // current cell; what lies beyond the grid is left out (with a beep).
  void paste(QTableWidget* grid);
  // Copies the current qubit's twelve field cells to every qubit.
  void sameForAllQubits();
  // The chain: the pairs (q, q+1) take the current pair's Jx, Jy, Jz, every other pair 0.
  void chainCouplings();
  QUndoStack* undoStack() const { return undo_; }

  QLineEdit* NameText = nullptr;
  QLineEdit* DescriptionText = nullptr;
  QLineEdit* TimeStepText = nullptr;
  QCheckBox* TimeInPi = nullptr;
  QLineEdit* MainStepsText = nullptr;
  QLineEdit* IntermediateStepsText = nullptr;
  QCheckBox* CheckNorm = nullptr;
  QLabel* InitialStateLabel = nullptr;
  QLabel* DurationLabel = nullptr;  // m·τ, updated as the steps and the time step change
  QComboBox* Combo1 = nullptr;  // the initial state
  QTableWidget* Grid1 = nullptr;  // field parameters: row = qubit, column = FieldColumnMap order
  QTableWidget* GridJ = nullptr;  // couplings: row = pair i < j, columns Jx, Jy, Jz
  QPushButton* SaveButton = nullptr;
  QPushButton* OKButton = nullptr;
  QPushButton* CancelButton = nullptr;

signals:
  // The editor has closed and released its slot.
  void closed(int editorSlot);

protected:
  void closeEvent(QCloseEvent* event) override;

private:
  void load();
  // The shown values, checked; false (after marking the field and a message) when one is
  // not a number.
  bool collect(MIEdit& edit);
  void markChanged();
  void updateCaption();
  void updateDuration();
  // A cell was edited by hand: one undo step from the text it had.
  void cellEdited(QTableWidget* grid, int row, int col);
  struct CellChange {
    QTableWidget* Grid;
    int Row, Col;
    QString Before, After;
  };
  friend class CellEditCommand;
  // Sets the cells to their Before (undo) or After texts, as no new undo step.
  void applyCells(const std::vector<CellChange>& changes, bool after);
  // Pushes the changes as one step (named `what`) and applies them.
  void pushCells(std::vector<CellChange> changes, const QString& what);
  QString& shownText(QTableWidget* grid, int row, int col);
  void updateChangedState();
  void finish();

  Workspace& ws_;
  int miSlot_;
  int editorSlot_;
  int qubits_;  // the number of qubits the grids show
  bool changed_ = false;
  bool formChanged_ = false;  // a field outside the grids changed since the last save
  bool loading_ = false;
  bool applying_ = false;  // an undo step sets cells
  QUndoStack* undo_ = nullptr;
  // The grids' texts as last seen, the "before" of the next hand edit.
  std::vector<QString> shown1_, shownJ_;
  bool closing_ = false;  // a store-and-close in progress: the close event asks nothing
  bool released_ = false;
};

} // namespace orvex
