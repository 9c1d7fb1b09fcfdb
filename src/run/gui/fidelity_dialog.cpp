// The gate-fidelity window and its matrix views.
#include "run/gui/fidelity_dialog.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QDoubleSpinBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QHelpEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPainter>
#include <QProgressBar>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTemporaryFile>
#include <QToolTip>
#include <QVBoxLayout>

#include "miset/open_miset.h"
#include "platform/gui/qt_text.h"
#include "run/gui/orvex_cli.h"

namespace orvex {

namespace {

constexpr int kLabelGap = 4;
// Below this modulus a cell has no meaningful phase and is drawn grey.
constexpr double kPhaseFloor = 1e-3;

int QubitCount(int dim) {
  int k = 0;
  while ((1 << k) < dim) ++k;
  return k;
}

QString Bits(int index, int k) {
  QString s;
  for (int t = k - 1; t >= 0; --t) s += QLatin1Char(((index >> t) & 1) ? '1' : '0');
  return s;
}

// White at 0 to a dark blue at 1.
QColor ModulusColor(double v) {
  v = std::clamp(v, 0.0, 1.0);
  const auto mix = [v](int light, int dark) { return static_cast<int>(std::lround(light + (dark - light) * v)); };
  return QColor(mix(255, 16), mix(255, 32), mix(255, 96));
}

// A hue going once round the colour circle for phases from -pi to pi.
QColor PhaseColor(double phase) {
  double turn = (phase + std::numbers::pi) / (2 * std::numbers::pi);
  turn -= std::floor(turn);
  return QColor::fromHsvF(static_cast<float>(turn), 0.55f, 1.0f);
}

QString Amplitude(Complex a) {
  return QStringLiteral("%1 %2 %3i")
      .arg(a.real(), 0, 'f', 6)
      .arg(a.imag() < 0 ? QStringLiteral("\u2212") : QStringLiteral("+"))
      .arg(std::abs(a.imag()), 0, 'f', 6);
}

} // namespace

// ---- FidelityMatrixView ------------------------------------------------------------------

FidelityMatrixView::FidelityMatrixView(Kind kind, QWidget* parent) : QWidget(parent), kind_(kind) {
  setMouseTracking(true);
  setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
}

void FidelityMatrixView::setMatrix(const GateMatrix& m) {
  m_ = m;
  updateGeometry();
  adjustSize();
  update();
}

int FidelityMatrixView::cellSize() const {
  if (m_.dim <= 4) return 52;
  return m_.dim <= 8 ? 42 : 34;
}

QPoint FidelityMatrixView::origin() const {
  const QFontMetrics fm(font());
  const int k = QubitCount(m_.dim);
  return QPoint(fm.horizontalAdvance(QString(std::max(k, 1), QLatin1Char('0'))) + 2 * kLabelGap,
                fm.height() + kLabelGap);
}

QRect FidelityMatrixView::cellRect(int row, int column) const {
  if (row < 0 || column < 0 || row >= m_.dim || column >= m_.dim) return {};
  const int s = cellSize();
  return QRect(origin() + QPoint(column * s, row * s), QSize(s, s));
}

QSize FidelityMatrixView::sizeHint() const {
  if (m_.dim == 0) return QSize(120, 60);
  const int s = cellSize();
  return QSize(origin().x() + m_.dim * s + 1, origin().y() + m_.dim * s + 1);
}

void FidelityMatrixView::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), palette().window());
  if (m_.dim == 0) return;
  const int k = QubitCount(m_.dim);
  const int s = cellSize();
  const QPoint o = origin();
  p.setPen(palette().windowText().color());
  for (int i = 0; i < m_.dim; ++i) {
    p.drawText(QRect(o.x() + i * s, 0, s, o.y() - kLabelGap), Qt::AlignCenter, Bits(i, k));
    p.drawText(QRect(0, o.y() + i * s, o.x() - kLabelGap, s), Qt::AlignRight | Qt::AlignVCenter, Bits(i, k));
  }
  QFont small = font();
  if (m_.dim > 4) small.setPointSizeF(small.pointSizeF() * 0.8);
  p.setFont(small);
  for (int r = 0; r < m_.dim; ++r) {
    for (int c = 0; c < m_.dim; ++c) {
      const Complex a = m_(r, c);
      const double modulus = std::abs(a);
      QColor fill;
      QString text;
      if (kind_ == Kind::Modulus) {
        fill = ModulusColor(modulus);
        text = QString::number(modulus, 'f', 2);
      } else if (modulus < kPhaseFloor) {
        fill = QColor(232, 232, 232);
        text = QStringLiteral("\u2013");
      } else {
        fill = PhaseColor(std::arg(a));
        text = QString::number(std::arg(a) / std::numbers::pi, 'f', 2);
      }
      const QRect cell = cellRect(r, c);
      p.fillRect(cell, fill);
      p.setPen(QColor(160, 160, 160));
      p.drawRect(cell.adjusted(0, 0, -1, -1));
      p.setPen(qGray(fill.rgb()) < 128 ? Qt::white : Qt::black);
      p.drawText(cell, Qt::AlignCenter, text);
    }
  }
}

bool FidelityMatrixView::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    const auto* help = static_cast<QHelpEvent*>(event);
    const int k = QubitCount(m_.dim);
    for (int r = 0; r < m_.dim; ++r)
      for (int c = 0; c < m_.dim; ++c)
        if (cellRect(r, c).contains(help->pos())) {
          const Complex a = m_(r, c);
          QToolTip::showText(help->globalPos(),
                             QStringLiteral("\u27E8%1|M|%2\u27E9 = %3\n|M| = %4, arg M = %5 rad")
                                 .arg(Bits(r, k), Bits(c, k), Amplitude(a))
                                 .arg(std::abs(a), 0, 'f', 6)
                                 .arg(std::arg(a), 0, 'f', 6),
                             this);
          return true;
        }
    QToolTip::hideText();
    event->ignore();
    return true;
  }
  return QWidget::event(event);
}

// ---- FidelityDialog ------------------------------------------------------------------------

FidelityDialog::FidelityDialog(const Workspace& ws, FidelitySubject subject, QWidget* parent)
    : QDialog(parent), ws_(ws), subject_(std::move(subject)) {
  setObjectName(QStringLiteral("FidelityDialog"));
  setWindowTitle(QStringLiteral("Gate fidelity"));
  auto* layout = new QVBoxLayout(this);

  auto* heading = new QLabel(QStringLiteral("Fidelity of %1 in the set %2")
                                 .arg(platform::FromBytes(subject_.title),
                                      platform::FromBytes(SetNameOf(ws_.MISetPath))));
  heading->setObjectName(QStringLiteral("FidelitySubject"));
  layout->addWidget(heading);

  auto* form = new QFormLayout;
  QString proposed;
  for (int q : subject_.qubits) proposed += (proposed.isEmpty() ? QString() : QStringLiteral(",")) + QString::number(q);
  qubits_ = new QLineEdit(proposed);
  qubits_->setObjectName(QStringLiteral("FidelityQubits"));
  qubits_->setToolTip(QStringLiteral("Up to four qubits, for example 1,2; the first is the leftmost bit"));
  form->addRow(QStringLiteral("&Qubits"), qubits_);

  target_ = new QComboBox;
  target_->setObjectName(QStringLiteral("FidelityTarget"));
  for (const FidelityTarget& t : FidelityTargets())
    target_->addItem(QString::fromUtf8(t.label), QString::fromLatin1(t.name));
  form->addRow(QStringLiteral("&Target"), target_);

  angle_ = new QDoubleSpinBox;
  angle_->setObjectName(QStringLiteral("FidelityAngle"));
  angle_->setRange(-1000, 1000);
  angle_->setDecimals(6);
  angle_->setSingleStep(std::numbers::pi / 4);
  angle_->setValue(std::numbers::pi / 2);
  angle_->setSuffix(QStringLiteral(" rad"));
  form->addRow(QStringLiteral("&Angle \u03B8, \u03C6"), angle_);

  zPhases_ = new QCheckBox(QStringLiteral("Up to single-qubit &z phases"));
  zPhases_->setObjectName(QStringLiteral("FidelityZPhases"));
  form->addRow(QString(), zPhases_);

  order_ = new QComboBox;
  order_->setObjectName(QStringLiteral("FidelityOrder"));
  order_->addItem(QStringLiteral("Second order"), 2);
  order_->addItem(QStringLiteral("Fourth order"), 4);
  order_->setCurrentIndex(ws_.Integrator == kIntegratorFourthOrder ? 1 : 0);
  form->addRow(QStringLiteral("&Integrator"), order_);
  layout->addLayout(form);

  auto* run = new QHBoxLayout;
  compute_ = new QPushButton(QStringLiteral("&Compute"));
  compute_->setObjectName(QStringLiteral("FidelityCompute"));
  compute_->setDefault(true);
  cancel_ = new QPushButton(QStringLiteral("C&ancel"));
  cancel_->setObjectName(QStringLiteral("FidelityCancel"));
  busy_ = new QProgressBar;
  busy_->setObjectName(QStringLiteral("FidelityBusy"));
  busy_->setRange(0, 0);
  busy_->setTextVisible(false);
  run->addWidget(compute_);
  run->addWidget(cancel_);
  run->addWidget(busy_, 1);
  layout->addLayout(run);

  message_ = new QLabel;
  message_->setObjectName(QStringLiteral("FidelityMessage"));
  message_->setWordWrap(true);
  message_->setStyleSheet(QStringLiteral("color: #b00000"));
  message_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout->addWidget(message_);
  result_ = new QLabel;
  result_->setObjectName(QStringLiteral("FidelityResult"));
  result_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout->addWidget(result_);
  phases_ = new QLabel;
  phases_->setObjectName(QStringLiteral("FidelityZPhaseList"));
  phases_->setWordWrap(true);
  phases_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  layout->addWidget(phases_);

  auto* grid = new QGridLayout;
  const char* names[4] = {"FidelityMapModulus", "FidelityMapPhase", "FidelityTargetModulus", "FidelityTargetPhase"};
  const QString captions[4] = {QStringLiteral("Pulse |M|"), QStringLiteral("Pulse arg M / \u03C0"),
                               QStringLiteral("Target |U|"), QStringLiteral("Target arg U / \u03C0")};
  for (int i = 0; i < 4; ++i) {
    views_[i] = new FidelityMatrixView(i % 2 ? FidelityMatrixView::Kind::Phase : FidelityMatrixView::Kind::Modulus);
    views_[i]->setObjectName(QString::fromLatin1(names[i]));
    const int column = i / 2, row = (i % 2) * 2;
    grid->addWidget(new QLabel(captions[i]), row, column);
    grid->addWidget(views_[i], row + 1, column, Qt::AlignLeft | Qt::AlignTop);
  }
  grid->setColumnStretch(2, 1);
  grid->setRowStretch(4, 1);  // the matrices stay at the top of their area
  // Four-qubit maps are large: the matrices scroll rather than push the window off the screen.
  auto* matrices = new QWidget;
  matrices->setLayout(grid);
  auto* scroll = new QScrollArea;
  scroll->setWidget(matrices);
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  layout->addWidget(scroll, 1);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close);
  connect(buttons, &QDialogButtonBox::rejected, this, &FidelityDialog::reject);
  layout->addWidget(buttons);

  connect(compute_, &QPushButton::clicked, this, &FidelityDialog::compute);
  connect(cancel_, &QPushButton::clicked, this, &FidelityDialog::cancel);
  connect(target_, &QComboBox::currentIndexChanged, this, [this] { targetChanged(); });
  targetChanged();
  setBusy(false);
}

FidelityDialog::~FidelityDialog() { stopProcess(); }

bool FidelityDialog::running() const { return process_ != nullptr; }

void FidelityDialog::targetChanged() {
  const int i = target_->currentIndex();
  angle_->setEnabled(i >= 0 && FidelityTargets()[static_cast<std::size_t>(i)].takesAngle);
}

void FidelityDialog::setBusy(bool busy) {
  compute_->setEnabled(!busy);
  cancel_->setEnabled(busy);
  busy_->setVisible(busy);
  for (QWidget* w : std::initializer_list<QWidget*>{qubits_, target_, zPhases_, order_}) w->setEnabled(!busy);
  if (busy) angle_->setEnabled(false);
  else targetChanged();
}

void FidelityDialog::failed(const QString& text) {
  message_->setText(text);
  emit computed();
}

void FidelityDialog::compute() {
  if (running()) return;
  message_->clear();
  result_->clear();
  phases_->clear();
  for (FidelityMatrixView* v : views_) v->clear();

  std::string error;
  std::vector<int> chosen;
  if (!ParseQubitList(qubits_->text().toStdString(), ws_.NumberOfQubits, chosen, error))
    return failed(platform::FromBytes(error));
  const FidelityTarget& t = FidelityTargets()[static_cast<std::size_t>(std::max(target_->currentIndex(), 0))];
  const double angle = angle_->value();
  const auto u = TargetGate(t.name, angle, static_cast<int>(chosen.size()), error);
  if (!u) {
    return failed(t.qubits == 2 ? QStringLiteral("%1 compares exactly two qubits.").arg(QString::fromUtf8(t.label))
                                : platform::FromBytes(error));
  }
  const QString command = OrvexCliPath();
  if (command.isEmpty()) return failed(QStringLiteral("orvex-cli was not found beside the workbench."));

  FidelityRequest request;
  request.what = subject_.what;
  if (!subject_.programText.empty()) {
    // The program as the editor holds it, in a file of our own that goes with the dialog.
    programFile_ = std::make_unique<QTemporaryFile>(QDir::tempPath() + QStringLiteral("/orvex-fidelity-XXXXXX.KVP"));
    const QByteArray bytes = QByteArray::fromStdString(subject_.programText);
    if (!programFile_->open() || programFile_->write(bytes) != bytes.size() || !programFile_->flush())
      return failed(QStringLiteral("The program could not be written to a temporary file."));
    programFile_->close();
    request.what = QFileInfo(programFile_->fileName()).absoluteFilePath().toStdString();
  }
  request.set = SetNameOf(ws_.MISetPath);
  request.home = ws_.AppDir;
  request.qubits = chosen;
  request.target = t.name;
  request.angle = angle;
  request.zPhases = zPhases_->isChecked();
  request.order = order_->currentData().toInt();

  targetModulus()->setMatrix(*u);
  targetPhase()->setMatrix(*u);
  chosen_ = chosen;
  cancelled_ = false;
  QStringList args;
  for (const std::string& a : FidelityArguments(request)) args << QString::fromStdString(a);
  process_ = new QProcess(this);
  connect(process_, &QProcess::finished, this, &FidelityDialog::finished);
  connect(process_, &QProcess::errorOccurred, this, [this](QProcess::ProcessError e) {
    if (e != QProcess::FailedToStart || !process_) return;
    const QString why = process_->errorString();
    process_->deleteLater();
    process_ = nullptr;
    setBusy(false);
    failed(QStringLiteral("orvex-cli could not be started: %1").arg(why));
  });
  setBusy(true);
  process_->start(command, args);
}

void FidelityDialog::finished(int exitCode, QProcess::ExitStatus status) {
  QProcess* p = process_;
  process_ = nullptr;
  if (!p) return;
  p->deleteLater();
  setBusy(false);
  programFile_.reset();
  const QString out = QString::fromUtf8(p->readAllStandardOutput());
  const QString err = QString::fromUtf8(p->readAllStandardError()).trimmed();
  if (cancelled_) return failed(QStringLiteral("Cancelled."));
  if (status != QProcess::NormalExit) return failed(QStringLiteral("The fidelity command stopped unexpectedly."));
  if (exitCode != 0) {
    // The command's own one-line reason is the last line it wrote to its error output.
    const QString last = err.section(QLatin1Char('\n'), -1).trimmed();
    return failed(last.isEmpty() ? QStringLiteral("The fidelity command failed (exit code %1).").arg(exitCode) : last);
  }
  std::string error;
  const auto r = ParseFidelityOutput(out.toStdString(), error);
  if (!r) return failed(platform::FromBytes(error));
  if (r->map.dim != (1 << chosen_.size())) return failed(QStringLiteral("The fidelity command printed a map of another size."));

  result_->setText(QStringLiteral("F = %1      leakage 1 \u2212 Tr(M\u2020M)/d = %2")
                       .arg(r->fidelity, 0, 'f', 9)
                       .arg(r->leakage, 0, 'g', 6));
  if (!r->phasesBefore.empty()) {
    QString before, after;
    for (std::size_t t = 0; t < chosen_.size(); ++t) {
      const QString q = QString::number(chosen_[t]);
      if (t < r->phasesBefore.size()) before += QStringLiteral("  qubit %1: %2").arg(q).arg(r->phasesBefore[t], 0, 'f', 6);
      if (t < r->phasesAfter.size()) after += QStringLiteral("  qubit %1: %2").arg(q).arg(r->phasesAfter[t], 0, 'f', 6);
    }
    phases_->setText(QStringLiteral("z phases (rad) before:%1\nafter:%2").arg(before, after));
  }
  mapModulus()->setMatrix(r->map);
  mapPhase()->setMatrix(r->map);
  emit computed();
}

void FidelityDialog::cancel() {
  if (!process_) return;
  cancelled_ = true;
  process_->kill();
}

void FidelityDialog::stopProcess() {
  if (!process_) return;
  QProcess* p = process_;
  process_ = nullptr;
  p->disconnect(this);
  p->kill();
  p->waitForFinished(3000);
  delete p;
}

void FidelityDialog::reject() {
  stopProcess();
  QDialog::reject();
}

void ShowFidelityDialog(QWidget* parent, const Workspace& ws, const FidelitySubject& subject) {
  FidelityDialog dialog(ws, subject, parent);
  // Room for two-qubit matrices without scrolling, never taller than the screen.
  int height = 780;
  if (const QScreen* screen = parent ? parent->screen() : QGuiApplication::primaryScreen())
    height = std::min(height, screen->availableGeometry().height() - 60);
  dialog.resize(720, std::max(height, 400));
  dialog.exec();
}

} // namespace orvex
