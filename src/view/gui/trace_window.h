// The trace window of one program: <sigma_x>, <sigma_y>, <sigma_z> (or Q) and the purity |r| of
// the chosen qubits against program time, one point per trace point of Workspace::Traces
// (run/run_trace.h), and, on its second page, the populations of the basis states.
//
// The window only renders: refresh() redraws when the trace changed (cheap otherwise), so it
// can be called after every engine call. The current position of a halted run is a vertical
// line. Rubber band and wheel zoom, drag with the right button to pan, "Reset zoom" fits the
// data again. "Export CSV" and "Export PNG" go through the platform file dialogs.
//
// Populations: for registers of up to 12 qubits a bar chart of the 32 most probable basis
// states (labels read qubit 1 first) from the engine's amplitudes; refreshPopulations() reads
// them (the workbench calls it when a run halts or ends). Without the engine's state entry the
// page says so and stays empty.
#pragma once

#include <functional>
#include <vector>

#include <QPointer>
#include <QWidget>

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;
class QTabWidget;

QT_BEGIN_NAMESPACE
class QChart;
class QChartView;
class QLineSeries;
class QBarSeries;
class QBarSet;
class QBarCategoryAxis;
class QValueAxis;
QT_END_NAMESPACE

namespace orvex {

class Workspace;
class TraceChartView;

class TraceWindow : public QWidget {
  Q_OBJECT
public:
  TraceWindow(Workspace& ws, int slot, QWidget* parent = nullptr);

  int slot() const { return slot_; }
  // Redraws the curves and the marker when the trace changed since the last refresh (or when
  // `force`).
  void refresh(bool force = false);
  // Reads the amplitudes from the engine and redraws the bars (no engine: nothing).
  void refreshPopulations();

  // The controls, for the tests and the help.
  QChartView* chartView() const;
  QChart* chart() const;
  QListWidget* qubitList() const { return qubits_; }
  QCheckBox* showQ() const { return showQ_; }
  QCheckBox* component(int c) const { return components_[c]; }  // x, y, z, |r|
  QPushButton* resetZoomButton() const { return resetZoom_; }
  QTabWidget* pages() const { return pages_; }
  QChartView* populationsView() const { return popView_; }
  QLabel* populationsNote() const { return popNote_; }
  // The series of qubit q and component c (0..3), nullptr when not shown.
  QLineSeries* series(int qubit, int c) const;
  QLineSeries* marker() const { return marker_; }
  QBarSet* populationBars() const { return popBars_; }
  QBarCategoryAxis* populationLabels() const { return popAxis_; }

  void exportCsv();
  void exportPng();
  void resetZoom();

private:
  void rebuild();
  void fitAxes();

  Workspace& ws_;
  int slot_;
  int shownRevision_ = -1;
  int shownQubits_ = -1;
  QTabWidget* pages_ = nullptr;
  TraceChartView* view_ = nullptr;
  QChart* chart_ = nullptr;
  QValueAxis* axisT_ = nullptr;
  QValueAxis* axisV_ = nullptr;
  QListWidget* qubits_ = nullptr;
  QCheckBox* showQ_ = nullptr;
  QCheckBox* components_[4] = {};
  QPushButton* resetZoom_ = nullptr;
  QLineSeries* marker_ = nullptr;
  struct Curve {
    int qubit, c;
    QLineSeries* series;
  };
  std::vector<Curve> curves_;
  bool zoomed_ = false;

  QChartView* popView_ = nullptr;
  QChart* popChart_ = nullptr;
  QBarSeries* popSeries_ = nullptr;
  QBarSet* popBars_ = nullptr;
  QBarCategoryAxis* popAxis_ = nullptr;
  QValueAxis* popValues_ = nullptr;
  QLabel* popNote_ = nullptr;
  QLabel* coarseNote_ = nullptr;  // shown for a run that records one point per engine call

  friend class TraceChartView;
};

} // namespace orvex
