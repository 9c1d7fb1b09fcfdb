// The trace window: Qt Charts over the program's trace and the engine's amplitudes.
#include "view/gui/trace_window.h"

#include <algorithm>
#include <cmath>

#include <QBarCategoryAxis>
#include <QBarSeries>
#include <QBarSet>
#include <QChart>
#include <QChartView>
#include <QCheckBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineSeries>
#include <QListWidget>
#include <QMouseEvent>
#include <QPushButton>
#include <QTabWidget>
#include <QValueAxis>
#include <QVBoxLayout>
#include <QWheelEvent>

#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "run/engine_library.h"
#include "run/run_trace.h"
#include "view/gui/export_file.h"
#include "workspace/errors.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex {

// The chart view: rubber-band zoom (left button), wheel zoom about the view's centre, pan
// with the right button held.
class TraceChartView : public QChartView {
public:
  TraceChartView(QChart* chart, TraceWindow& window) : QChartView(chart), window_(window) {
    setRubberBand(QChartView::RectangleRubberBand);
    setRenderHint(QPainter::Antialiasing, true);
  }

protected:
  void wheelEvent(QWheelEvent* event) override {
    const double steps = event->angleDelta().y() / 120.0;
    if (steps == 0) return;
    chart()->zoom(std::pow(1.25, steps));
    window_.zoomed_ = true;
    event->accept();
  }
  void mousePressEvent(QMouseEvent* event) override {
    if (event->button() == Qt::RightButton) {
      panning_ = true;
      last_ = event->position();
      event->accept();
      return;
    }
    QChartView::mousePressEvent(event);
  }
  void mouseMoveEvent(QMouseEvent* event) override {
    if (panning_) {
      const QPointF d = event->position() - last_;
      chart()->scroll(-d.x(), d.y());
      last_ = event->position();
      window_.zoomed_ = true;
      event->accept();
      return;
    }
    QChartView::mouseMoveEvent(event);
  }
  void mouseReleaseEvent(QMouseEvent* event) override {
    if (event->button() == Qt::RightButton && panning_) {
      panning_ = false;
      event->accept();
      return;
    }
    // A right click without a drag would zoom out in the plain view: the reset button does.
    if (event->button() == Qt::LeftButton) window_.zoomed_ = true;
    QChartView::mouseReleaseEvent(event);
  }

private:
  TraceWindow& window_;
  bool panning_ = false;
  QPointF last_;
};

namespace {

// Component colours: x red, y green, z blue, |r| grey; later qubits darker.
QColor CurveColor(int qubit, int c) {
  static const QColor base[4] = {QColor(220, 40, 40), QColor(30, 160, 60), QColor(40, 80, 230),
                                 QColor(90, 90, 90)};
  const int shade = (qubit - 1) % 4;
  return base[c].darker(100 + 35 * shade);
}

const char* kComponentNames[4] = {"x", "y", "z", "|r|"};

} // namespace

TraceWindow::TraceWindow(Workspace& ws, int slot, QWidget* parent)
    : QWidget(parent), ws_(ws), slot_(slot) {
  setObjectName(QStringLiteral("TraceWindow"));
  setWindowTitle(QStringLiteral("Trace - %1").arg(platform::FromBytes(ws.Program(slot).Caption)));
  auto* layout = new QVBoxLayout(this);
  pages_ = new QTabWidget(this);
  layout->addWidget(pages_);

  // Trace page: chart on the left, choices on the right.
  auto* tracePage = new QWidget;
  auto* traceColumn = new QVBoxLayout(tracePage);
  auto* row = new QHBoxLayout;
  traceColumn->addLayout(row, 1);
  chart_ = new QChart;
  chart_->legend()->setAlignment(Qt::AlignBottom);
  axisT_ = new QValueAxis;
  axisT_->setTitleText(QStringLiteral("t"));
  axisV_ = new QValueAxis;
  chart_->addAxis(axisT_, Qt::AlignBottom);
  chart_->addAxis(axisV_, Qt::AlignLeft);
  view_ = new TraceChartView(chart_, *this);
  view_->setObjectName(QStringLiteral("TraceChart"));
  view_->setMinimumSize(360, 240);
  row->addWidget(view_, 1);

  auto* side = new QVBoxLayout;
  qubits_ = new QListWidget;
  qubits_->setObjectName(QStringLiteral("TraceQubits"));
  qubits_->setMaximumWidth(110);
  side->addWidget(new QLabel(QStringLiteral("Qubits")));
  side->addWidget(qubits_, 1);
  for (int c = 0; c < 4; ++c) {
    components_[c] = new QCheckBox(c < 3 ? QStringLiteral("\u03C3%1").arg(QLatin1String(kComponentNames[c]))
                                         : QStringLiteral("Purity |r|"));
    components_[c]->setChecked(c < 3);
    side->addWidget(components_[c]);
    connect(components_[c], &QCheckBox::toggled, this, [this] { rebuild(); });
  }
  showQ_ = new QCheckBox(QStringLiteral("Show Q"));
  side->addWidget(showQ_);
  connect(showQ_, &QCheckBox::toggled, this, [this] { rebuild(); });
  resetZoom_ = new QPushButton(QStringLiteral("Reset zoom"));
  side->addWidget(resetZoom_);
  connect(resetZoom_, &QPushButton::clicked, this, [this] { resetZoom(); });
  auto* csv = new QPushButton(QStringLiteral("Export CSV"));
  side->addWidget(csv);
  connect(csv, &QPushButton::clicked, this, [this] { exportCsv(); });
  auto* png = new QPushButton(QStringLiteral("Export PNG"));
  side->addWidget(png);
  connect(png, &QPushButton::clicked, this, [this] { exportPng(); });
  row->addLayout(side);
  connect(qubits_, &QListWidget::itemChanged, this, [this] { rebuild(); });
  coarseNote_ = new QLabel(QStringLiteral(
      "One point per engine call: this run started while the trace window was closed, or the "
      "engine keeps no step records. Keep this window open when you press Start to see every "
      "main step."));
  coarseNote_->setObjectName(QStringLiteral("CoarseTraceNote"));
  coarseNote_->setWordWrap(true);
  coarseNote_->hide();
  traceColumn->addWidget(coarseNote_);
  pages_->addTab(tracePage, QStringLiteral("Trace"));

  // Populations page.
  auto* popPage = new QWidget;
  auto* popLayout = new QVBoxLayout(popPage);
  popNote_ = new QLabel;
  popNote_->setObjectName(QStringLiteral("PopulationsNote"));
  popLayout->addWidget(popNote_);
  popChart_ = new QChart;
  popChart_->legend()->hide();
  popSeries_ = new QBarSeries;
  popBars_ = new QBarSet(QStringLiteral("probability"));
  popBars_->setColor(QColor(40, 80, 230));
  popSeries_->append(popBars_);
  popChart_->addSeries(popSeries_);
  popAxis_ = new QBarCategoryAxis;
  popAxis_->setLabelsAngle(-90);
  popValues_ = new QValueAxis;
  popValues_->setRange(0, 1);
  popChart_->addAxis(popAxis_, Qt::AlignBottom);
  popChart_->addAxis(popValues_, Qt::AlignLeft);
  popSeries_->attachAxis(popAxis_);
  popSeries_->attachAxis(popValues_);
  popView_ = new QChartView(popChart_);
  popView_->setObjectName(QStringLiteral("PopulationsChart"));
  popLayout->addWidget(popView_, 1);
  auto* popRefresh = new QPushButton(QStringLiteral("Refresh"));
  popLayout->addWidget(popRefresh);
  connect(popRefresh, &QPushButton::clicked, this, [this] { refreshPopulations(); });
  pages_->addTab(popPage, QStringLiteral("Populations"));

  resize(760, 440);
  refresh(true);
  refreshPopulations();
}

QChartView* TraceWindow::chartView() const { return view_; }
QChart* TraceWindow::chart() const { return chart_; }

QLineSeries* TraceWindow::series(int qubit, int c) const {
  for (const Curve& curve : curves_)
    if (curve.qubit == qubit && curve.c == c) return curve.series;
  return nullptr;
}

void TraceWindow::refresh(bool force) {
  const ProgramTrace& trace = ws_.Traces[static_cast<std::size_t>(slot_ - 1)];
  if (!force && trace.Revision == shownRevision_ && trace.Qubits == shownQubits_) return;
  if (trace.Qubits != shownQubits_) {
    // The qubit choices follow the register: the first four are shown at first.
    QSignalBlocker block(qubits_);
    const int before = qubits_->count();
    for (int q = before + 1; q <= trace.Qubits; ++q) {
      auto* item = new QListWidgetItem(QStringLiteral("qubit %1").arg(q), qubits_);
      item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
      item->setCheckState(q <= 4 ? Qt::Checked : Qt::Unchecked);
    }
    while (qubits_->count() > std::max(trace.Qubits, 0) && trace.Qubits > 0) delete qubits_->takeItem(qubits_->count() - 1);
    shownQubits_ = trace.Qubits;
  }
  shownRevision_ = trace.Revision;
  coarseNote_->setVisible(!trace.FromEngine && trace.Points.size() > 1);
  rebuild();
}

void TraceWindow::rebuild() {
  const ProgramTrace& trace = ws_.Traces[static_cast<std::size_t>(slot_ - 1)];
  const bool sigma = !showQ_->isChecked();
  std::vector<std::pair<int, int>> wanted;
  for (int q = 1; q <= qubits_->count(); ++q)
    if (qubits_->item(q - 1)->checkState() == Qt::Checked)
      for (int c = 0; c < 4; ++c)
        if (components_[c]->isChecked()) wanted.emplace_back(q, c);

  // Series that are no longer wanted go; new ones are made; all take their points anew.
  std::vector<Curve> kept;
  for (const Curve& curve : curves_) {
    if (std::find(wanted.begin(), wanted.end(), std::make_pair(curve.qubit, curve.c)) != wanted.end()) {
      kept.push_back(curve);
    } else {
      chart_->removeSeries(curve.series);
      delete curve.series;
    }
  }
  curves_ = kept;
  for (auto [q, c] : wanted) {
    if (series(q, c)) continue;
    auto* s = new QLineSeries;
    QPen pen(CurveColor(q, c), 2);
    if (c == 3) pen.setStyle(Qt::DashLine);
    s->setPen(pen);
    chart_->addSeries(s);
    s->attachAxis(axisT_);
    s->attachAxis(axisV_);
    curves_.push_back({q, c, s});
  }
  for (const Curve& curve : curves_) {
    QList<QPointF> points;
    for (auto [t, v] : TraceCurve(trace, curve.qubit, curve.c, sigma)) points.append(QPointF(t, v));
    curve.series->replace(points);
    QString name = curve.c == 3 ? QStringLiteral("|r| q%1").arg(curve.qubit)
                                : QStringLiteral("%1%2 q%3")
                                      .arg(sigma ? QStringLiteral("\u03C3") : QStringLiteral("Q"))
                                      .arg(QLatin1String(kComponentNames[curve.c]))
                                      .arg(curve.qubit);
    // The legend carries each qubit's purity at its newest point.
    if (curve.c == 3 && !points.isEmpty()) name += QStringLiteral(" = %1").arg(points.back().y(), 0, 'f', 3);
    curve.series->setName(name);
  }

  const double lo = sigma ? -1.05 : -0.05, hi = sigma ? 1.05 : 1.05;
  if (!marker_) {
    marker_ = new QLineSeries;
    marker_->setName(QStringLiteral("position"));
    marker_->setPen(QPen(QColor(255, 140, 0), 1.5, Qt::DashDotLine));
    chart_->addSeries(marker_);
    marker_->attachAxis(axisT_);
    marker_->attachAxis(axisV_);
  }
  if (trace.Marker >= 0) marker_->replace(QList<QPointF>{{trace.Marker, lo}, {trace.Marker, hi}});
  else marker_->clear();
  marker_->setVisible(trace.Marker >= 0);
  if (!zoomed_) fitAxes();
  axisV_->setTitleText(sigma ? QStringLiteral("\u27E8\u03C3\u27E9") : QStringLiteral("Q"));
}

void TraceWindow::fitAxes() {
  const ProgramTrace& trace = ws_.Traces[static_cast<std::size_t>(slot_ - 1)];
  double t0 = 0, t1 = 1;
  if (!trace.Points.empty()) {
    t0 = trace.Points.front().Time;
    t1 = trace.Points.back().Time;
    for (const TracePoint& p : trace.Points) {
      t0 = std::min(t0, p.Time);
      t1 = std::max(t1, p.Time);
    }
    if (trace.Marker >= 0) t1 = std::max(t1, trace.Marker);
    if (t1 <= t0) t1 = t0 + 1;
  }
  axisT_->setRange(t0, t1);
  const bool sigma = !showQ_->isChecked();
  axisV_->setRange(sigma ? -1.05 : -0.05, 1.05);
}

void TraceWindow::resetZoom() {
  chart_->zoomReset();
  zoomed_ = false;
  fitAxes();
}

void TraceWindow::exportCsv() {
  platform::FileRequest request;
  request.title = "Export trace";
  request.filter = "CSV file (*.csv)|*.csv|All files (*.*)|*.*";
  request.directory = ws_.FileDialogDir;
  request.fileName = NameWithoutExtension(FileNameOf(ws_.Program(slot_).Name)) + "-trace.csv";
  ExportBytes(request, TraceCsv(ws_.Traces[static_cast<std::size_t>(slot_ - 1)]), "The trace");
}

void TraceWindow::exportPng() {
  platform::FileRequest request;
  request.title = "Export trace picture";
  request.filter = "PNG picture (*.png)|*.png|All files (*.*)|*.*";
  request.directory = ws_.FileDialogDir;
  request.fileName = NameWithoutExtension(FileNameOf(ws_.Program(slot_).Name)) + "-trace.png";
  ExportPicture(request, view_);
}

void TraceWindow::refreshPopulations() {
  popBars_->remove(0, popBars_->count());
  popAxis_->clear();
  EngineExtras extras;
  try {
    extras = EngineLibrary::Extras();
  } catch (const RuntimeError&) {
  }
  if (!extras.state) {
    popNote_->setText(QStringLiteral("The engine offers no amplitudes: populations cannot be shown."));
    popView_->setEnabled(false);
    return;
  }
  popView_->setEnabled(true);
  // The engine holds one run: another program's amplitudes are not this program's.
  if (ws_.RunningProgram != -1 && ws_.RunningProgram != slot_) {
    popNote_->setText(QStringLiteral("Another program's run is on."));
    return;
  }
  int n = 0;
  const std::vector<double> amplitudes = EngineAmplitudes(extras, n);
  if (amplitudes.empty()) {
    popNote_->setText(n > kMaxPopulationQubits
                          ? QStringLiteral("Populations are shown for registers of up to %1 qubits.")
                                .arg(kMaxPopulationQubits)
                          : QStringLiteral("No run: start or step the program."));
    return;
  }
  QStringList labels;
  for (const Population& p : LargestPopulations(amplitudes, n)) {
    popBars_->append(p.probability);
    labels << QString::fromStdString(p.label);
  }
  popAxis_->append(labels);
  popNote_->setText(QStringLiteral("The most probable basis states of %1 qubits (qubit 1 first).").arg(n));
}

} // namespace orvex
