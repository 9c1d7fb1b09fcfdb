// The sweep window: entries, the orvex-cli process, the line chart and the heat map.
#include "run/gui/sweep_window.h"

#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>

#include <QAction>
#include <QCheckBox>
#include <QChart>
#include <QChartView>
#include <QComboBox>
#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLineSeries>
#include <QMenu>
#include <QProgressBar>
#include <QProcessEnvironment>
#include <QPushButton>
#include <QRegularExpression>
#include <QStackedWidget>
#include <QTemporaryDir>
#include <QTableWidget>
#include <QThread>
#include <QValueAxis>
#include <QVBoxLayout>

#include "mi/gui/default_mi.h"
#include "miset/mi_editing.h"
#include "miset/open_miset.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "run/gui/orvex_cli.h"
#include "view/gui/export_file.h"
#include "view/gui/heat_map.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex {

namespace {

constexpr double kTwoPi = 6.28318530717958;
const char* kComponentNames[3] = {"x", "y", "z"};

QString Num(double v) { return QString::fromStdString(NumText(v)); }

bool IsCount(const SweepParameter& p) {
  return p.kind == SweepParameter::FieldSteps || p.kind == SweepParameter::IntermediateSteps;
}

// Every value of an MI of `qubits` qubits a sweep can vary, in the order the choices list them.
std::vector<SweepParameter> ParametersOf(int qubits) {
  std::vector<SweepParameter> list;
  for (int q = 1; q <= qubits; ++q)
    for (int k = 0; k < 12; ++k) list.push_back({SweepParameter::Field, k, q, 0});
  for (auto [i, j] : QubitPairs(qubits))
    for (int k = 0; k < 3; ++k) list.push_back({SweepParameter::Coupling, k, i, j});
  list.push_back({SweepParameter::TimeStep});
  list.push_back({SweepParameter::FieldSteps});
  list.push_back({SweepParameter::IntermediateSteps});
  return list;
}

bool Same(const SweepParameter& a, const SweepParameter& b) {
  return a.kind == b.kind && a.index == b.index && a.qubit == b.qubit && a.other == b.other;
}

QLineEdit* Entry(QWidget* parent, const char* name) {
  auto* e = new QLineEdit(parent);
  e->setObjectName(QString::fromLatin1(name));
  return e;
}

} // namespace

std::optional<double> ShownSweepValue(const DefaultMI& editor, const SweepParameter& p) {
  const int qubits = editor.Grid1->rowCount();
  auto cell = [](const QTableWidget* grid, int row, int col) -> std::optional<double> {
    const QTableWidgetItem* item = grid->item(row, col);
    if (!item) return std::nullopt;
    return ParseNumberCell(platform::ToBytes(item->text()));
  };
  switch (p.kind) {
  case SweepParameter::Field:
    if (p.qubit < 1 || p.qubit > qubits) return std::nullopt;
    for (int c = 0; c < 12; ++c)
      if (Workspace::FieldColumnMap[static_cast<std::size_t>(c)] == p.index) return cell(editor.Grid1, p.qubit - 1, c);
    return std::nullopt;
  case SweepParameter::Coupling: {
    const auto pairs = QubitPairs(qubits);
    for (std::size_t row = 0; row < pairs.size(); ++row)
      if (pairs[row] == std::make_pair(p.qubit, p.other)) return cell(editor.GridJ, static_cast<int>(row), p.index);
    return std::nullopt;
  }
  case SweepParameter::TimeStep: {
    const auto v = ParseNumberCell(platform::ToBytes(editor.TimeStepText->text()));
    if (!v) return std::nullopt;
    return editor.TimeInPi->isChecked() ? *v * kTwoPi : *v;
  }
  case SweepParameter::FieldSteps:
  case SweepParameter::IntermediateSteps: {
    const QLineEdit* e = p.kind == SweepParameter::FieldSteps ? editor.MainStepsText : editor.IntermediateStepsText;
    const auto v = ParseCountCell(platform::ToBytes(e->text()));
    if (!v) return std::nullopt;
    return static_cast<double>(*v);
  }
  }
  return std::nullopt;
}

SweepWindow* OpenSweepWindow(DefaultMI& editor, const SweepParameter& parameter) {
  auto* w = new SweepWindow(editor.workspace(), editor, parameter, editor.window());
  w->setWindowFlag(Qt::Window, true);
  w->setAttribute(Qt::WA_DeleteOnClose, true);
  w->show();
  w->raise();
  return w;
}

void AddSweepCommands(DefaultMI& editor) {
  const QString text = QObject::tr("Sweep\u2026");
  for (QTableWidget* grid : {editor.Grid1, editor.GridJ}) {
    auto* sep = new QAction(grid);
    sep->setSeparator(true);
    grid->addAction(sep);
    auto* a = new QAction(text, grid);
    a->setObjectName(QStringLiteral("SweepAction"));
    QObject::connect(a, &QAction::triggered, &editor, [&editor, grid] {
      const int row = grid->currentRow(), col = grid->currentColumn();
      if (row < 0 || col < 0) return;
      SweepParameter p;
      if (grid == editor.Grid1) {
        p.kind = SweepParameter::Field;
        p.qubit = row + 1;
        p.index = Workspace::FieldColumnMap[static_cast<std::size_t>(col)];
      } else {
        const auto pairs = QubitPairs(editor.Grid1->rowCount());
        if (row >= static_cast<int>(pairs.size())) return;
        p.kind = SweepParameter::Coupling;
        p.qubit = pairs[static_cast<std::size_t>(row)].first;
        p.other = pairs[static_cast<std::size_t>(row)].second;
        p.index = col;
      }
      OpenSweepWindow(editor, p);
    });
    grid->addAction(a);
  }
  // The time step and step count fields keep their usual text menu, with "Sweep…" below.
  const std::pair<QLineEdit*, SweepParameter::Kind> fields[] = {
      {editor.TimeStepText, SweepParameter::TimeStep},
      {editor.MainStepsText, SweepParameter::FieldSteps},
      {editor.IntermediateStepsText, SweepParameter::IntermediateSteps}};
  for (auto [edit, kind] : fields) {
    edit->setContextMenuPolicy(Qt::CustomContextMenu);
    QObject::connect(edit, &QLineEdit::customContextMenuRequested, &editor,
                     [&editor, edit = edit, kind = kind, text](const QPoint& at) {
                       QMenu* menu = edit->createStandardContextMenu();
                       menu->addSeparator();
                       menu->addAction(text, &editor, [&editor, kind] {
                         SweepParameter p;
                         p.kind = kind;
                         OpenSweepWindow(editor, p);
                       });
                       menu->exec(edit->mapToGlobal(at));
                       delete menu;
                     });
  }
}

SweepWindow::SweepWindow(Workspace& ws, DefaultMI& editor, const SweepParameter& parameter, QWidget* parent)
    : QWidget(parent), ws_(ws), editor_(&editor), qubits_(editor.Grid1->rowCount()) {
  setObjectName(QStringLiteral("SweepWindow"));
  miName_ = ws_.MITable(editor.miSlot()).Name;
  setWindowTitle(QStringLiteral("Sweep - %1").arg(platform::FromBytes(NameWithoutExtension(miName_))));
  parameters_ = ParametersOf(qubits_);

  auto* layout = new QVBoxLayout(this);
  auto* form = new QFormLayout;
  auto rangeRow = [&](QComboBox*& combo, QLineEdit*& start, QLineEdit*& stop, QLineEdit*& count, int n) {
    combo = new QComboBox(this);
    combo->setObjectName(QStringLiteral("Parameter%1").arg(n));
    if (n == 2) combo->addItem(tr("(none)"));
    for (const SweepParameter& p : parameters_) combo->addItem(QString::fromStdString(SweepParameterName(p)));
    start = Entry(this, n == 1 ? "Start1" : "Start2");
    stop = Entry(this, n == 1 ? "Stop1" : "Stop2");
    count = Entry(this, n == 1 ? "Count1" : "Count2");
    auto* row = new QHBoxLayout;
    row->addWidget(combo, 2);
    row->addWidget(new QLabel(tr("from"), this));
    row->addWidget(start, 1);
    row->addWidget(new QLabel(tr("to"), this));
    row->addWidget(stop, 1);
    row->addWidget(new QLabel(tr("points"), this));
    row->addWidget(count, 1);
    form->addRow(n == 1 ? tr("Vary:") : tr("and (map):"), row);
  };
  rangeRow(Parameter1, Start1, Stop1, Count1, 1);
  rangeRow(Parameter2, Start2, Stop2, Count2, 2);

  ProgramChoice = new QComboBox(this);
  ProgramChoice->setObjectName(QStringLiteral("ProgramChoice"));
  form->addRow(tr("Program:"), ProgramChoice);
  auto* row = new QHBoxLayout;
  QubitChoice = new QComboBox(this);
  QubitChoice->setObjectName(QStringLiteral("QubitChoice"));
  for (int q = 1; q <= qubits_; ++q) QubitChoice->addItem(tr("qubit %1").arg(q));
  OrderChoice = new QComboBox(this);
  OrderChoice->setObjectName(QStringLiteral("OrderChoice"));
  OrderChoice->addItem(tr("2nd order"), 2);
  OrderChoice->addItem(tr("4th order"), 4);
  row->addWidget(QubitChoice);
  row->addWidget(new QLabel(tr("Integrator:"), this));
  row->addWidget(OrderChoice);
  row->addStretch(1);
  form->addRow(tr("Plot:"), row);
  layout->addLayout(form);
  auto* note = new QLabel(tr("Sweeps use the saved MI file (and the saved program file): edits not yet "
                             "saved are not part of a sweep."),
                          this);
  note->setObjectName(QStringLiteral("SavedFileNote"));
  note->setWordWrap(true);
  layout->addWidget(note);

  auto* controls = new QHBoxLayout;
  RunButton = new QPushButton(tr("&Run"), this);
  RunButton->setObjectName(QStringLiteral("RunButton"));
  CancelButton = new QPushButton(tr("Cancel"), this);
  CancelButton->setObjectName(QStringLiteral("CancelButton"));
  CancelButton->setEnabled(false);
  Progress = new QProgressBar(this);
  Progress->setObjectName(QStringLiteral("Progress"));
  Progress->setRange(0, 1);
  Progress->setValue(0);
  controls->addWidget(RunButton);
  controls->addWidget(CancelButton);
  controls->addWidget(Progress, 1);
  layout->addLayout(controls);
  Status = new QLabel(this);
  Status->setObjectName(QStringLiteral("Status"));
  layout->addWidget(Status);

  Results = new QStackedWidget(this);
  chart_ = new QChart;
  chart_->legend()->setAlignment(Qt::AlignBottom);
  axisX_ = new QValueAxis;
  axisY_ = new QValueAxis;
  axisY_->setRange(-1.05, 1.05);
  axisY_->setTitleText(QStringLiteral("\u27E8\u03C3\u27E9"));
  chart_->addAxis(axisX_, Qt::AlignBottom);
  chart_->addAxis(axisY_, Qt::AlignLeft);
  static const QColor colours[3] = {QColor(220, 40, 40), QColor(30, 160, 60), QColor(40, 80, 230)};
  for (int c = 0; c < 3; ++c) {
    series_[c] = new QLineSeries;
    series_[c]->setName(QStringLiteral("\u03C3%1").arg(QLatin1String(kComponentNames[c])));
    series_[c]->setPen(QPen(colours[c], 2));
    series_[c]->setPointsVisible(true);
    chart_->addSeries(series_[c]);
    series_[c]->attachAxis(axisX_);
    series_[c]->attachAxis(axisY_);
  }
  ChartView = new QChartView(chart_, this);
  ChartView->setObjectName(QStringLiteral("SweepChart"));
  ChartView->setRenderHint(QPainter::Antialiasing, true);
  ChartView->setMinimumSize(360, 240);
  Results->addWidget(ChartView);
  auto* mapPage = new QWidget(this);
  auto* mapLayout = new QVBoxLayout(mapPage);
  mapLayout->setContentsMargins(0, 0, 0, 0);
  auto* componentRow = new QHBoxLayout;
  ComponentChoice = new QComboBox(mapPage);
  ComponentChoice->setObjectName(QStringLiteral("ComponentChoice"));
  for (const char* c : kComponentNames) ComponentChoice->addItem(QStringLiteral("\u27E8\u03C3%1\u27E9").arg(QLatin1String(c)));
  ComponentChoice->setCurrentIndex(2);
  componentRow->addWidget(new QLabel(tr("Show:"), mapPage));
  componentRow->addWidget(ComponentChoice);
  componentRow->addStretch(1);
  mapLayout->addLayout(componentRow);
  Map = new HeatMap(mapPage);
  mapLayout->addWidget(Map, 1);
  Results->addWidget(mapPage);
  layout->addWidget(Results, 1);

  auto* exports = new QHBoxLayout;
  exports->addStretch(1);
  ExportCsvButton = new QPushButton(tr("Export CSV"), this);
  ExportPngButton = new QPushButton(tr("Export PNG"), this);
  for (QPushButton* b : {ExportCsvButton, ExportPngButton}) {
    b->setEnabled(false);
    exports->addWidget(b);
  }
  layout->addLayout(exports);

  fillPrograms();
  {
    const auto at = std::find_if(parameters_.begin(), parameters_.end(),
                                 [&](const SweepParameter& p) { return Same(p, parameter); });
    Parameter1->setCurrentIndex(at == parameters_.end() ? 0 : static_cast<int>(at - parameters_.begin()));
  }
  parameterChosen(Parameter1, Start1, Stop1);
  Count1->setText(QStringLiteral("21"));
  Count2->setText(QStringLiteral("21"));
  connect(Parameter1, &QComboBox::currentIndexChanged, this, [this] { parameterChosen(Parameter1, Start1, Stop1); });
  connect(Parameter2, &QComboBox::currentIndexChanged, this, [this] { parameterChosen(Parameter2, Start2, Stop2); });
  parameterChosen(Parameter2, Start2, Stop2);
  connect(RunButton, &QPushButton::clicked, this, [this] { run(); });
  connect(CancelButton, &QPushButton::clicked, this, [this] { cancel(); });
  connect(ExportCsvButton, &QPushButton::clicked, this, [this] { exportCsv(); });
  connect(ExportPngButton, &QPushButton::clicked, this, [this] { exportPng(); });
  connect(QubitChoice, &QComboBox::currentIndexChanged, this, [this] { showResult(); });
  connect(ComponentChoice, &QComboBox::currentIndexChanged, this, [this] { showResult(); });
  resize(720, 620);
}

SweepWindow::~SweepWindow() {
  if (process_) {
    process_->disconnect(this);
    cancelled_ = true;
    if (process_->state() != QProcess::NotRunning) {
      if (process_->processId() > 0) ::kill(-static_cast<pid_t>(process_->processId()), SIGTERM);
      process_->waitForFinished(3000);
    }
  }
  scratch_.reset();
}

std::string SweepWindow::miName() const {
  if (editor_ && editor_->miSlot() > 0) return ws_.MITable(editor_->miSlot()).Name;
  return miName_;
}

void SweepWindow::fillPrograms() {
  ProgramChoice->addItem(tr("The MI alone"), QString());
  QStringList seen;
  auto add = [&](const QString& path) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    if (seen.contains(absolute) || !QFileInfo(absolute).isFile()) return;
    seen << absolute;
    QString shown = QDir(platform::FromBytes(ws_.AppDir)).relativeFilePath(absolute);
    ProgramChoice->addItem(shown, absolute);
  };
  // The open programs' files first, then the program files of the application directory.
  for (int s = 1; s <= kMaxPrograms; ++s) {
    const std::string& name = ws_.Program(s).Name;
    if (!name.empty() && name != "New") add(platform::FromBytes(ws_.AppDir + name));
  }
  QDirIterator it(platform::FromBytes(ws_.AppDir), {QStringLiteral("*.kvp"), QStringLiteral("*.KVP")},
                  QDir::Files, QDirIterator::Subdirectories);
  for (int n = 0; it.hasNext() && n < 200; ++n) add(it.next());
}

void SweepWindow::parameterChosen(QComboBox* combo, QLineEdit* start, QLineEdit* stop) {
  int index = combo->currentIndex();
  if (combo == Parameter2) --index;  // "(none)"
  const bool on = index >= 0;
  if (combo == Parameter2)
    for (QLineEdit* e : {Start2, Stop2, Count2}) e->setEnabled(on);
  if (!on) return;
  const SweepParameter& p = parameters_[static_cast<std::size_t>(index)];
  const double from = editor_ ? ShownSweepValue(*editor_, p).value_or(0) : 0;
  start->setText(Num(from));
  // A first range: up to twice the value (counts: twenty steps on), which the user adjusts.
  if (IsCount(p)) stop->setText(Num(from + 20));
  else stop->setText(Num(from == 0 ? 1 : 2 * from));
}

std::optional<QStringList> SweepWindow::sweepArguments() {
  const std::string mi = miName();
  if (mi.empty()) {
    platform::MsgBox("The MI of this sweep no longer exists.", platform::Icon::Exclamation);
    return std::nullopt;
  }
  auto fail = [](QLineEdit* e, const std::string& message) {
    e->setFocus();
    platform::MsgBox(message, platform::Icon::Exclamation);
    return std::nullopt;
  };
  QStringList args{QStringLiteral("sweep")};
  const QString program = ProgramChoice->currentData().toString();
  args << (program.isEmpty() ? platform::FromBytes(mi) : program);
  args << QStringLiteral("--set") << platform::FromBytes(SetNameOf(ws_.MISetPath)) << QStringLiteral("--home")
       << platform::FromBytes(ws_.AppDir);
  const SweepParameter* chosen[2] = {&parameters_[static_cast<std::size_t>(Parameter1->currentIndex())], nullptr};
  if (Parameter2->currentIndex() > 0) chosen[1] = &parameters_[static_cast<std::size_t>(Parameter2->currentIndex() - 1)];
  if (chosen[1] && Same(*chosen[0], *chosen[1]))
    return fail(Count2, "The two parameters of a map must differ.");
  QLineEdit* starts[2] = {Start1, Start2};
  QLineEdit* stops[2] = {Stop1, Stop2};
  QLineEdit* counts[2] = {Count1, Count2};
  long long total = 1;
  for (int a = 0; a < 2 && chosen[a]; ++a) {
    const std::string name = SweepParameterName(*chosen[a]);
    const auto from = ParseNumberCell(platform::ToBytes(starts[a]->text()));
    if (!from) return fail(starts[a], "The start of " + name + " is not a number: " + platform::ToBytes(starts[a]->text()));
    const auto to = ParseNumberCell(platform::ToBytes(stops[a]->text()));
    if (!to) return fail(stops[a], "The end of " + name + " is not a number: " + platform::ToBytes(stops[a]->text()));
    const auto count = ParseCountCell(platform::ToBytes(counts[a]->text()));
    if (!count || *count < 1 || *count > 10000)
      return fail(counts[a], "The number of points of " + name + " must be a whole number from 1 to 10000.");
    total *= *count;
    args << QStringLiteral("--vary")
         << QStringLiteral("%1:%2=%3:%4:%5")
                .arg(platform::FromBytes(mi), QString::fromStdString(name), QString::number(*from, 'g', 17),
                     QString::number(*to, 'g', 17))
                .arg(*count);
    names_[a] = QString::fromStdString(name);
  }
  if (total > 100000) return fail(Count2, "A sweep runs at most 100000 points.");
  points_ = static_cast<int>(total);
  const int jobs = std::clamp(QThread::idealThreadCount(), 1, 256);
  args << QStringLiteral("--order") << QString::number(OrderChoice->currentData().toInt()) << QStringLiteral("--jobs")
       << QString::number(jobs) << QStringLiteral("--progress");
  return args;
}

bool SweepWindow::run() {
  if (running()) return false;
  if (editor_ && editor_->changed()) {
    const std::string name = platform::ToBytes(editor_->NameText->text());
    const platform::Answer a = platform::MsgBox(
        "The micro instruction " + name + " has been changed. Sweeps use the saved MI file." + platform::CR +
            "Save the changes first?",
        platform::Icon::Question, platform::Buttons::YesNoCancel);
    if (a == platform::Answer::Cancel || (a == platform::Answer::Yes && !editor_->save())) return false;
  }
  const auto args = sweepArguments();
  if (!args) return false;
  const QString cli = OrvexCliPath();
  if (cli.isEmpty()) {
    platform::MsgBox("Sweeps are run by orvex-cli, which is neither beside the workbench nor on "
                     "the search path.",
                     platform::Icon::Critical);
    return false;
  }
  process_ = new QProcess(this);
  // The command's scratch copies go to a directory of this run, removed when it ends: a
  // cancelled command leaves its copies behind.
  scratch_ = std::make_unique<QTemporaryDir>(QDir::tempPath() + QStringLiteral("/orvex-sweep-window-XXXXXX"));
  if (scratch_->isValid()) {
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("TMPDIR"), scratch_->path());
    process_->setProcessEnvironment(env);
  }
  // The command and the processes it starts for the points form a group of their own, so
  // Cancel stops all of them.
  process_->setChildProcessModifier([] { ::setpgid(0, 0); });
  connect(process_, &QProcess::readyReadStandardOutput, this, [this] { out_ += process_->readAllStandardOutput(); });
  connect(process_, &QProcess::readyReadStandardError, this, &SweepWindow::readProgress);
  connect(process_, &QProcess::finished, this, &SweepWindow::processFinished);
  connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError e) {
    if (e == QProcess::FailedToStart) processFinished(-1, QProcess::CrashExit);
  });
  out_.clear();
  err_.clear();
  cancelled_ = false;
  Progress->setRange(0, 0);  // busy until the first point is reported
  Status->setText(tr("Running %n point(s)\u2026", nullptr, points_));
  setRunning(true);
  process_->start(cli, *args);
  return true;
}

void SweepWindow::cancel() {
  if (!running()) return;
  cancelled_ = true;
  if (process_->processId() > 0) ::kill(-static_cast<pid_t>(process_->processId()), SIGTERM);
  else process_->kill();
}

bool SweepWindow::running() const { return process_ != nullptr; }

void SweepWindow::readProgress() {
  if (!process_) return;
  err_ += process_->readAllStandardError();
  // Progress lines ("point K of N") move the bar; every other line is kept for a failure.
  static const QRegularExpression progress(QStringLiteral("^point (\\d+) of (\\d+)$"));
  QByteArray rest;
  for (const QByteArray& line : err_.split('\n')) {
    const auto m = progress.match(QString::fromUtf8(line).trimmed());
    if (m.hasMatch()) {
      Progress->setRange(0, m.captured(2).toInt());
      Progress->setValue(m.captured(1).toInt());
    } else {
      rest += line + '\n';
    }
  }
  rest.chop(1);
  // An unfinished last line stays for the next read.
  err_ = rest;
}

void SweepWindow::processFinished(int exitCode, QProcess::ExitStatus status) {
  if (!process_) return;
  const bool failedToStart = process_->error() == QProcess::FailedToStart && exitCode == -1;
  if (!failedToStart) {
    out_ += process_->readAllStandardOutput();
    readProgress();
  }
  process_->disconnect(this);
  process_->deleteLater();
  process_ = nullptr;
  scratch_.reset();
  setRunning(false);
  Progress->setRange(0, 1);
  Progress->setValue(0);
  bool ok = false;
  if (cancelled_) {
    Status->setText(tr("Cancelled."));
  } else if (failedToStart) {
    Status->setText(tr("Failed."));
    platform::MsgBox("orvex-cli could not be started for the sweep.", platform::Icon::Critical);
  } else if (status != QProcess::NormalExit || exitCode != 0) {
    Status->setText(tr("Failed."));
    QString why = QString::fromUtf8(err_).trimmed();
    if (why.isEmpty()) why = tr("orvex-cli ended abnormally");
    platform::MsgBox("The sweep failed: " + platform::ToBytes(why), platform::Icon::Critical);
  } else {
    std::string error;
    const std::string text(out_.constData(), static_cast<std::size_t>(out_.size()));
    if (auto read = ParseSweepCsv(text, error)) {
      csv_ = text;
      result_ = std::move(*read);
      ok = true;
      Progress->setValue(1);
      Status->setText(tr("%n point(s) done.", nullptr, points_));
      showResult();
    } else {
      Status->setText(tr("Failed."));
      platform::MsgBox(error, platform::Icon::Critical);
    }
  }
  ExportCsvButton->setEnabled(!csv_.empty());
  ExportPngButton->setEnabled(!csv_.empty());
  emit sweepFinished(ok);
}

void SweepWindow::showResult() {
  if (result_.axes == 0) return;
  const int qubit = QubitChoice->currentIndex() + 1;
  if (result_.axes == 1) {
    double lo = 0, hi = 0;
    bool first = true;
    for (int c = 0; c < 3; ++c) {
      QList<QPointF> points;
      for (auto [v, s] : SweepCurve(result_, qubit, c)) {
        points.append(QPointF(v, s));
        lo = first ? v : std::min(lo, v);
        hi = first ? v : std::max(hi, v);
        first = false;
      }
      series_[c]->replace(points);
    }
    if (hi <= lo) {
      lo -= 0.5;
      hi += 0.5;
    }
    axisX_->setRange(lo, hi);
    axisX_->setTitleText(names_[0]);
    chart_->setTitle(tr("Qubit %1 at the end of the program").arg(qubit));
    Results->setCurrentIndex(0);
  } else {
    const SweepGrid grid = SweepGridOf(result_, qubit, ComponentChoice->currentIndex());
    Map->setData(names_[0], grid.x, names_[1], grid.y, grid.sigma);
    Results->setCurrentIndex(1);
  }
}

void SweepWindow::setRunning(bool on) {
  RunButton->setEnabled(!on);
  CancelButton->setEnabled(on);
  for (QWidget* w : std::initializer_list<QWidget*>{Parameter1, Start1, Stop1, Count1, Parameter2, ProgramChoice,
                                                    OrderChoice})
    w->setEnabled(!on);
  for (QLineEdit* e : {Start2, Stop2, Count2}) e->setEnabled(!on && Parameter2->currentIndex() > 0);
}

void SweepWindow::exportCsv() {
  if (csv_.empty()) return;
  platform::FileRequest request;
  request.title = "Export sweep";
  request.filter = "CSV file (*.csv)|*.csv|All files (*.*)|*.*";
  request.directory = ws_.FileDialogDir;
  request.fileName = NameWithoutExtension(miName()) + "-sweep.csv";
  ExportBytes(request, csv_, "The sweep");
}

void SweepWindow::exportPng() {
  if (csv_.empty()) return;
  platform::FileRequest request;
  request.title = "Export sweep picture";
  request.filter = "PNG picture (*.png)|*.png|All files (*.*)|*.*";
  request.directory = ws_.FileDialogDir;
  request.fileName = NameWithoutExtension(miName()) + "-sweep.png";
  ExportPicture(request, Results->currentWidget());
}

} // namespace orvex
