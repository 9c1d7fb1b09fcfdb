// DefaultMI: the editor of one MI. It shows every field of the record for the set's number
// of qubits: name, description, time step (optionally in units of 2 pi), main and intermediate
// steps, norm check, the initial state (initialisation MI only), the twelve field parameters
// per qubit (Grid1) and the couplings Jx, Jy, Jz per qubit pair (GridJ). Numbers are read by
// the Val rule; a field or cell that is not entirely a number is marked and refused.
#pragma once

#include <QWidget>

#include "miset/mi_editing.h"
#include "workspace/workspace.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QTableWidget;

namespace orvex {

class DefaultMI : public QWidget {
  Q_OBJECT
public:
  DefaultMI(Workspace& ws, int miSlot, int editorSlot, QWidget* parent = nullptr);

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

  QLineEdit* NameText = nullptr;
  QLineEdit* DescriptionText = nullptr;
  QLineEdit* TimeStepText = nullptr;
  QCheckBox* TimeInPi = nullptr;
  QLineEdit* MainStepsText = nullptr;
  QLineEdit* IntermediateStepsText = nullptr;
  QCheckBox* CheckNorm = nullptr;
  QLabel* InitialStateLabel = nullptr;
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
  void finish();

  Workspace& ws_;
  int miSlot_;
  int editorSlot_;
  int qubits_;  // the number of qubits the grids show
  bool changed_ = false;
  bool loading_ = false;
  bool closing_ = false;  // a store-and-close in progress: the close event asks nothing
  bool released_ = false;
};

} // namespace orvex
