// The sweep window of one MI: varies one or two of its values over a range, runs the program
// (the MI alone, or a program file) at every point and draws the chosen qubit's final
// <sigma_x>, <sigma_y>, <sigma_z> against the value (a line chart), or one component over
// both values (a heat map). The window only asks and draws: `orvex-cli sweep` beside the
// executable runs the points in scratch copies of the set, on every core, and its CSV is what
// the window reads and exports. The MI files are only read, so the MI editor's unsaved edits
// are not part of a sweep; Run offers to save them first.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QPointer>
#include <QProcess>
#include <QWidget>

#include "run/sweep.h"
#include "run/sweep_result.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTableWidget;
class QTemporaryDir;

QT_BEGIN_NAMESPACE
class QChart;
class QChartView;
class QLineSeries;
class QValueAxis;
QT_END_NAMESPACE

namespace orvex {

class DefaultMI;
class HeatMap;
class Workspace;

// Adds "Sweep…" to the context menus of the editor's grid cells and of its time step and
// step count fields; it opens a sweep window for the value under the menu.
void AddSweepCommands(DefaultMI& editor);

// The value the editor shows for `parameter` (a time step in units of 2 pi converted to
// radians); nullopt when the cell does not hold a number.
std::optional<double> ShownSweepValue(const DefaultMI& editor, const SweepParameter& parameter);

// Opens a sweep window for `parameter` of the editor's MI (a window of the editor's main
// window, kept after the editor closes).
class SweepWindow;
SweepWindow* OpenSweepWindow(DefaultMI& editor, const SweepParameter& parameter);

class SweepWindow : public QWidget {
  Q_OBJECT
public:
  SweepWindow(Workspace& ws, DefaultMI& editor, const SweepParameter& parameter, QWidget* parent = nullptr);
  ~SweepWindow() override;

  // Starts the sweep (after the checks of the entries and, when the editor has unsaved
  // changes, the offer to save them). False when nothing was started.
  bool run();
  void cancel();
  bool running() const;
  void exportCsv();
  void exportPng();

  // The command line of the sweep the entries describe, without the program's path; nullopt
  // after a message when an entry is refused.
  std::optional<QStringList> sweepArguments();
  // The last finished sweep: its output as the command printed it, and as read.
  const std::string& csv() const { return csv_; }
  const SweepResult& result() const { return result_; }

  QComboBox* Parameter1 = nullptr;
  QLineEdit* Start1 = nullptr;
  QLineEdit* Stop1 = nullptr;
  QLineEdit* Count1 = nullptr;
  QComboBox* Parameter2 = nullptr;  // first item "(none)"
  QLineEdit* Start2 = nullptr;
  QLineEdit* Stop2 = nullptr;
  QLineEdit* Count2 = nullptr;
  QComboBox* ProgramChoice = nullptr;  // the MI alone, then program files (data: the path)
  QComboBox* QubitChoice = nullptr;
  QComboBox* OrderChoice = nullptr;
  QComboBox* ComponentChoice = nullptr;  // the heat map's x, y or z
  QPushButton* RunButton = nullptr;
  QPushButton* CancelButton = nullptr;
  QPushButton* ExportCsvButton = nullptr;
  QPushButton* ExportPngButton = nullptr;
  QProgressBar* Progress = nullptr;
  QLabel* Status = nullptr;
  QStackedWidget* Results = nullptr;  // page 0 the line chart, page 1 the heat map
  QChartView* ChartView = nullptr;
  HeatMap* Map = nullptr;
  // The line chart's series of component c (0 x, 1 y, 2 z).
  QLineSeries* series(int c) const { return series_[c]; }

signals:
  // A sweep ended (finished, failed or cancelled); `ok` when its result is shown.
  void sweepFinished(bool ok);

private:
  // The MI's file name in the set, now (the editor may have renamed it).
  std::string miName() const;
  void fillPrograms();
  void parameterChosen(QComboBox* combo, QLineEdit* start, QLineEdit* stop);
  void readProgress();
  void processFinished(int exitCode, QProcess::ExitStatus status);
  void showResult();
  void setRunning(bool running);

  Workspace& ws_;
  QPointer<DefaultMI> editor_;
  std::string miName_;
  int qubits_;
  std::vector<SweepParameter> parameters_;
  QProcess* process_ = nullptr;
  std::unique_ptr<QTemporaryDir> scratch_;  // TMPDIR of the running command
  bool cancelled_ = false;
  int points_ = 0;
  QByteArray out_, err_;
  std::string csv_;
  SweepResult result_;
  QString names_[2];  // the parameters of the shown result
  QChart* chart_ = nullptr;
  QValueAxis* axisX_ = nullptr;
  QValueAxis* axisY_ = nullptr;
  QLineSeries* series_[3] = {};
};

} // namespace orvex
