// The accuracy check in the workbench.
#include "app/accuracy_dialog.h"

#include <cmath>
#include <memory>

#include <QDialogButtonBox>
#include <QEventLoop>
#include <QFutureWatcher>
#include <QHeaderView>
#include <QLabel>
#include <QProgressDialog>
#include <QTableWidget>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>

#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "program/program_table.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

QString Number(double v) { return QString::number(v, 'g', 6); }
QString Factor(double f) { return f > 0 ? QString::number(f, 'g', 4) : QStringLiteral("-"); }

} // namespace

AccuracyDialog::AccuracyDialog(const AccuracyReport& report, const std::string& programName, QWidget* parent)
    : QDialog(parent) {
  setObjectName(QStringLiteral("AccuracyDialog"));
  setWindowTitle(QStringLiteral("Accuracy of %1").arg(platform::FromBytes(programName)));
  auto* layout = new QVBoxLayout(this);
  summary_ = new QLabel;
  summary_->setWordWrap(true);
  summary_->setText(
      QStringLiteral("Run as written (n intermediate steps) and with 2n, integrator of order %1. "
                     "Deviation: largest |Q(n) - Q(2n)| over x, y, z; error: the estimated error "
                     "of the run as written. Largest deviation %2, estimated error %3.")
          .arg(report.order)
          .arg(Number(report.maxDeviation))
          .arg(Number(report.estimatedError)));
  layout->addWidget(summary_);
  table_ = new QTableWidget(static_cast<int>(report.qubits.size()), 5);
  table_->setHorizontalHeaderLabels({QStringLiteral("qubit"), QStringLiteral("deviation"),
                                     QStringLiteral("error"), QStringLiteral("n \u00D7 for 1e-3"),
                                     QStringLiteral("n \u00D7 for 1e-6")});
  table_->verticalHeader()->hide();
  table_->setEditTriggers(QAbstractItemView::NoEditTriggers);
  for (int r = 0; r < static_cast<int>(report.qubits.size()); ++r) {
    const QubitAccuracy& q = report.qubits[static_cast<std::size_t>(r)];
    const QString cells[5] = {QString::number(q.qubit), Number(q.deviation), Number(q.estimatedError),
                              Factor(q.factorFor1e3), Factor(q.factorFor1e6)};
    for (int c = 0; c < 5; ++c) table_->setItem(r, c, new QTableWidgetItem(cells[c]));
  }
  table_->resizeColumnsToContents();
  layout->addWidget(table_, 1);
  if (!report.steps.empty()) {
    // What to write into each MI: its intermediate steps grown by the factor the worst qubit needs.
    layout->addWidget(new QLabel(QStringLiteral(
        "Intermediate steps n of each MI called, and the n that would reach an error of 1e-3 and 1e-6:")));
    steps_ = new QTableWidget(static_cast<int>(report.steps.size()), 4);
    steps_->setObjectName(QStringLiteral("AccuracySteps"));
    steps_->setHorizontalHeaderLabels({QStringLiteral("MI"), QStringLiteral("n"),
                                       QStringLiteral("n for 1e-3"), QStringLiteral("n for 1e-6")});
    steps_->verticalHeader()->hide();
    steps_->setEditTriggers(QAbstractItemView::NoEditTriggers);
    auto count = [](std::int64_t n) { return n > 0 ? QString::number(n) : QStringLiteral("-"); };
    for (int r = 0; r < static_cast<int>(report.steps.size()); ++r) {
      const MIStepAdvice& mi = report.steps[static_cast<std::size_t>(r)];
      const QString cells[4] = {platform::FromBytes(mi.name), count(mi.n), count(mi.nFor1e3),
                                count(mi.nFor1e6)};
      for (int c = 0; c < 4; ++c) steps_->setItem(r, c, new QTableWidgetItem(cells[c]));
    }
    steps_->resizeColumnsToContents();
    layout->addWidget(steps_, 1);
  }
  if (!report.notes.empty()) {
    QString notes;
    for (const std::string& n : report.notes) notes += platform::FromBytes(n) + QLatin1Char('\n');
    auto* label = new QLabel(notes.trimmed());
    label->setWordWrap(true);
    layout->addWidget(label);
  }
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok);
  connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
  layout->addWidget(buttons);
  resize(560, 360);
}

void CheckProgramAccuracy(QWidget* parent, Workspace& ws, RunUi& ui, int slot) {
  if (slot < 1 || slot > kMaxPrograms) return;
  ProgramSlot& program = ws.Program(slot);
  if (program.Name.empty()) return;
  if (ws.RunningProgram != -1 || ws.EngineBusy) {
    platform::MsgBox("The accuracy check cannot be made while a program runs or is halted.",
                     platform::Icon::Critical);
    return;
  }
  if (Lower(program.Name) == "new" || program.Changed) {
    if (!SaveProgram(ws, ui, slot, false)) return;
  }
  const std::string full = ws.AppDir + NormalizeSeparators(program.Name);
  const std::string path = ResolvePath(full).value_or(full);
  const int order = ws.Integrator == 4 ? 4 : 2;

  // The worker reads its own copy: nothing the workbench does meanwhile can touch it. The
  // engine is busy for the check's duration, so no start can reach it.
  auto copy = std::make_shared<const Workspace>(ws);
  QFutureWatcher<AccuracyReport> watcher;
  QProgressDialog progress(QStringLiteral("Checking accuracy of %1\u2026").arg(platform::FromBytes(FileNameOf(program.Name))),
                           QString(), 0, 0, parent);
  progress.setObjectName(QStringLiteral("AccuracyProgress"));
  progress.setWindowModality(Qt::ApplicationModal);
  progress.setMinimumDuration(0);
  progress.setCancelButton(nullptr);
  // Busy until the check reports the part done (from its thread, so through the event loop;
  // a report still queued when the window goes is dropped with it).
  QProgressDialog* bar = &progress;
  auto onFraction = [bar](double fraction) {
    QMetaObject::invokeMethod(bar, [bar, fraction] {
      bar->setMaximum(1000);
      bar->setValue(static_cast<int>(std::lround(1000 * fraction)));
    }, Qt::QueuedConnection);
  };
  QEventLoop loop;
  QObject::connect(&watcher, &QFutureWatcher<AccuracyReport>::finished, &loop, &QEventLoop::quit);
  ws.EngineBusy = true;
  watcher.setFuture(QtConcurrent::run(
      [copy, path, order, onFraction] { return CheckAccuracy(*copy, path, order, onFraction); }));
  progress.show();
  if (!watcher.isFinished()) loop.exec();
  ws.EngineBusy = false;
  progress.hide();
  const AccuracyReport report = watcher.result();
  if (!report.ok) {
    platform::MsgBox("The accuracy check could not be made: " + report.error, platform::Icon::Critical);
    return;
  }
  AccuracyDialog dialog(report, FileNameOf(program.Name), parent);
  dialog.exec();
}

} // namespace orvex
