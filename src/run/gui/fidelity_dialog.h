// "Gate fidelity": the map an MI or a program performs on a few chosen qubits, compared with an
// ideal gate. The window only collects the choices and shows the outcome; the measurement is
// `orvex-cli fidelity`, run as a process of its own (the engine keeps one run context and one
// current directory per process), so the workbench stays responsive and Cancel can stop it.
#pragma once

#include <memory>

#include <QDialog>
#include <QProcess>
#include <QString>

#include "run/fidelity_job.h"
#include "workspace/workspace.h"

class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QTemporaryFile;

namespace orvex {

// A small square matrix drawn as coloured cells: moduli on a white-to-dark scale, or phases on
// a cyclic hue scale (cells too small to have a phase stay grey). Rows and columns carry the
// basis states as bit strings, the first chosen qubit leftmost; a cell's tool tip gives the
// complex value.
class FidelityMatrixView : public QWidget {
  Q_OBJECT
public:
  enum class Kind { Modulus, Phase };
  FidelityMatrixView(Kind kind, QWidget* parent = nullptr);
  void setMatrix(const GateMatrix& m);  // a matrix of dimension 0 clears the view
  void clear() { setMatrix(GateMatrix()); }
  const GateMatrix& matrix() const { return m_; }
  // Where cell (row, column) is drawn; empty when there is no such cell.
  QRect cellRect(int row, int column) const;
  QSize sizeHint() const override;

protected:
  void paintEvent(QPaintEvent* event) override;
  bool event(QEvent* event) override;

private:
  int cellSize() const;
  QPoint origin() const;
  Kind kind_;
  GateMatrix m_;
};

class FidelityDialog : public QDialog {
  Q_OBJECT
public:
  FidelityDialog(const Workspace& ws, FidelitySubject subject, QWidget* parent = nullptr);
  ~FidelityDialog() override;

  bool running() const;

  // The controls, for the tests.
  QLineEdit* qubits() const { return qubits_; }
  QComboBox* target() const { return target_; }
  QDoubleSpinBox* angle() const { return angle_; }
  QCheckBox* zPhases() const { return zPhases_; }
  QComboBox* order() const { return order_; }
  QPushButton* computeButton() const { return compute_; }
  QPushButton* cancelButton() const { return cancel_; }
  QLabel* message() const { return message_; }
  QLabel* result() const { return result_; }
  QLabel* phases() const { return phases_; }
  FidelityMatrixView* mapModulus() const { return views_[0]; }
  FidelityMatrixView* mapPhase() const { return views_[1]; }
  FidelityMatrixView* targetModulus() const { return views_[2]; }
  FidelityMatrixView* targetPhase() const { return views_[3]; }

public slots:
  void compute();
  void cancel();
  void reject() override;

signals:
  // A computation ended: with a result, a message, or cancelled.
  void computed();

private:
  void targetChanged();
  void finished(int exitCode, QProcess::ExitStatus status);
  void failed(const QString& text);
  void setBusy(bool busy);
  void stopProcess();

  const Workspace& ws_;
  FidelitySubject subject_;
  QLineEdit* qubits_ = nullptr;
  QComboBox* target_ = nullptr;
  QDoubleSpinBox* angle_ = nullptr;
  QCheckBox* zPhases_ = nullptr;
  QComboBox* order_ = nullptr;
  QPushButton* compute_ = nullptr;
  QPushButton* cancel_ = nullptr;
  QProgressBar* busy_ = nullptr;
  QLabel* message_ = nullptr;
  QLabel* result_ = nullptr;
  QLabel* phases_ = nullptr;
  FidelityMatrixView* views_[4] = {};
  QProcess* process_ = nullptr;
  std::unique_ptr<QTemporaryFile> programFile_;
  std::vector<int> chosen_;  // the qubits of the computation under way
  bool cancelled_ = false;
};

// Shows the dialog for `subject` as a modal window.
void ShowFidelityDialog(QWidget* parent, const Workspace& ws, const FidelitySubject& subject);

} // namespace orvex
