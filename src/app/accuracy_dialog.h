// Tools -> "Check accuracy": the active program run as written and with doubled intermediate
// steps (run/accuracy_check.h) on a worker thread, then a table per qubit of the deviation,
// the estimated error and the factor on the intermediate steps for errors of 1e-3 and 1e-6.
#pragma once

#include <QDialog>

#include "run/accuracy_check.h"
#include "run/run_ui.h"
#include "workspace/workspace.h"

class QTableWidget;
class QLabel;

namespace orvex {

class AccuracyDialog : public QDialog {
  Q_OBJECT
public:
  AccuracyDialog(const AccuracyReport& report, const std::string& programName, QWidget* parent = nullptr);
  QTableWidget* table() const { return table_; }
  QTableWidget* steps() const { return steps_; }  // per MI: n and the n for 1e-3, 1e-6
  QLabel* summary() const { return summary_; }

private:
  QTableWidget* table_ = nullptr;
  QTableWidget* steps_ = nullptr;
  QLabel* summary_ = nullptr;
};

// Checks the program of `slot` (saved first when new or changed, through `ui`; nothing is
// checked when that save does not complete). Refused with a message while a program runs or
// is halted. The check runs on a worker thread behind a modal "Checking accuracy" window, so
// the workbench repaints but takes no command meanwhile; the result (or the reason it could
// not be made) is then shown.
void CheckProgramAccuracy(QWidget* parent, Workspace& ws, RunUi& ui, int slot);

} // namespace orvex
