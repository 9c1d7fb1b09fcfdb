#include "mi/gui/default_mi.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QVBoxLayout>

#include "miset/miset_ui.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"

namespace orvex {
namespace {

const QColor kBadCell(255, 170, 170);

QLineEdit* Field(QWidget* parent, const char* name) {
  auto* e = new QLineEdit(parent);
  e->setObjectName(QString::fromLatin1(name));
  return e;
}

// Marks (or unmarks) a line edit whose text is refused.
void MarkEdit(QLineEdit* e, bool bad) {
  e->setStyleSheet(bad ? QStringLiteral("QLineEdit { background: #ffaaaa; }") : QString());
}

QString Num(double v) { return QString::fromStdString(NumText(v)); }

} // namespace

DefaultMI::DefaultMI(Workspace& ws, int miSlot, int editorSlot, QWidget* parent)
    : QWidget(parent), ws_(ws), miSlot_(miSlot), editorSlot_(editorSlot), qubits_(ws.NumberOfQubits) {
  setObjectName(QStringLiteral("DefaultMI"));
  auto* layout = new QVBoxLayout(this);

  auto* form = new QFormLayout;
  NameText = Field(this, "NameText");
  DescriptionText = Field(this, "DescriptionText");
  form->addRow(tr("Name:"), NameText);
  form->addRow(tr("Description:"), DescriptionText);

  auto* timeRow = new QHBoxLayout;
  TimeStepText = Field(this, "TimeStepText");
  TimeInPi = new QCheckBox(QStringLiteral("units of 2\u03C0"), this);
  TimeInPi->setObjectName(QStringLiteral("TimeInPi"));
  timeRow->addWidget(TimeStepText, 1);
  timeRow->addWidget(TimeInPi);
  form->addRow(tr("Time step:"), timeRow);

  auto* stepsRow = new QHBoxLayout;
  MainStepsText = Field(this, "MainStepsText");
  IntermediateStepsText = Field(this, "IntermediateStepsText");
  stepsRow->addWidget(MainStepsText, 1);
  stepsRow->addWidget(new QLabel(tr("Intermediate steps:"), this));
  stepsRow->addWidget(IntermediateStepsText, 1);
  form->addRow(tr("Main steps:"), stepsRow);

  CheckNorm = new QCheckBox(tr("Check norm"), this);
  CheckNorm->setObjectName(QStringLiteral("CheckNorm"));
  form->addRow(QString(), CheckNorm);

  Combo1 = new QComboBox(this);
  Combo1->setObjectName(QStringLiteral("Combo1"));
  for (const char* choice : kInitialStateChoices) Combo1->addItem(QString::fromUtf8(choice));
  InitialStateLabel = new QLabel(tr("Initial state:"), this);
  form->addRow(InitialStateLabel, Combo1);
  layout->addLayout(form);

  const int qubits = qubits_;
  Grid1 = new QTableWidget(qubits, kFieldParameters, this);
  Grid1->setObjectName(QStringLiteral("Grid1"));
  QStringList headers;
  for (const char* h : kFieldColumnHeaders) headers << QString::fromLatin1(h);
  Grid1->setHorizontalHeaderLabels(headers);
  QStringList qubitLabels;
  for (int q = 1; q <= qubits; ++q) qubitLabels << tr("Qubit %1").arg(q);
  Grid1->setVerticalHeaderLabels(qubitLabels);
  Grid1->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
  layout->addWidget(new QLabel(tr("Fields per qubit:"), this));
  layout->addWidget(Grid1, 2);

  const auto pairs = QubitPairs(qubits);
  GridJ = new QTableWidget(static_cast<int>(pairs.size()), 3, this);
  GridJ->setObjectName(QStringLiteral("GridJ"));
  GridJ->setHorizontalHeaderLabels({QStringLiteral("Jx"), QStringLiteral("Jy"), QStringLiteral("Jz")});
  QStringList pairLabels;
  for (auto [i, j] : pairs) pairLabels << QStringLiteral("%1 - %2").arg(i).arg(j);
  GridJ->setVerticalHeaderLabels(pairLabels);
  GridJ->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
  layout->addWidget(new QLabel(tr("Couplings per qubit pair:"), this));
  layout->addWidget(GridJ, 1);

  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  SaveButton = new QPushButton(tr("&Save"), this);
  SaveButton->setObjectName(QStringLiteral("SaveButton"));
  OKButton = new QPushButton(tr("OK"), this);
  OKButton->setObjectName(QStringLiteral("OKButton"));
  CancelButton = new QPushButton(tr("Cancel"), this);
  CancelButton->setObjectName(QStringLiteral("CancelButton"));
  buttons->addWidget(SaveButton);
  buttons->addWidget(OKButton);
  buttons->addWidget(CancelButton);
  layout->addLayout(buttons);
  connect(SaveButton, &QPushButton::clicked, this, [this] { save(); });
  connect(OKButton, &QPushButton::clicked, this, [this] { storeAndClose(true); });
  connect(CancelButton, &QPushButton::clicked, this, [this] { storeAndClose(false); });

  load();
  for (QLineEdit* e : {NameText, DescriptionText, TimeStepText, MainStepsText, IntermediateStepsText})
    connect(e, &QLineEdit::textChanged, this, &DefaultMI::markChanged);
  connect(TimeInPi, &QCheckBox::toggled, this, &DefaultMI::markChanged);
  connect(CheckNorm, &QCheckBox::toggled, this, &DefaultMI::markChanged);
  connect(Combo1, &QComboBox::currentIndexChanged, this, &DefaultMI::markChanged);
  connect(Grid1, &QTableWidget::cellChanged, this, &DefaultMI::markChanged);
  connect(GridJ, &QTableWidget::cellChanged, this, &DefaultMI::markChanged);
  resize(platform::TwipsToPixels(12000, this), platform::TwipsToPixels(7000, this));
}

void DefaultMI::load() {
  loading_ = true;
  const MIEdit e = LoadMIEdit(ws_, miSlot_, qubits_);
  NameText->setText(platform::FromBytes(e.Name));
  DescriptionText->setText(platform::FromBytes(e.Description));
  TimeStepText->setText(Num(e.TimeStep));
  TimeInPi->setChecked(e.TimeStepInPi);
  MainStepsText->setText(QString::number(e.FieldSteps));
  IntermediateStepsText->setText(QString::number(e.IntermediateSteps));
  CheckNorm->setChecked(e.CheckNorm);
  const bool init = IsInitializeMI(ws_.MITable(miSlot_).Name);
  Combo1->setCurrentIndex(e.InitialState >= 0 && e.InitialState < 4 ? e.InitialState : 1);
  Combo1->setVisible(init);
  InitialStateLabel->setVisible(init);
  for (int q = 0; q < Grid1->rowCount(); ++q)
    for (int c = 0; c < kFieldParameters; ++c)
      Grid1->setItem(q, c, new QTableWidgetItem(Num(e.Field[q][c])));
  for (int p = 0; p < GridJ->rowCount(); ++p)
    for (int c = 0; c < 3; ++c) GridJ->setItem(p, c, new QTableWidgetItem(Num(e.J[p][c])));
  changed_ = false;
  loading_ = false;
  updateCaption();
}

void DefaultMI::markChanged() {
  if (loading_) return;
  changed_ = true;
  updateCaption();
}

void DefaultMI::updateCaption() {
  QString caption = platform::FromBytes(NameWithoutExtension(ws_.MITable(miSlot_).Name));
  if (changed_) caption += QStringLiteral(" *");
  setWindowTitle(caption);
}

bool DefaultMI::collect(MIEdit& e) {
  e = LoadMIEdit(ws_, miSlot_, qubits_);
  // A name or description the user left as shown keeps its bytes (they need not be UTF-8).
  if (NameText->text() != platform::FromBytes(e.Name)) e.Name = platform::ToBytes(NameText->text());
  if (DescriptionText->text() != platform::FromBytes(e.Description))
    e.Description = platform::ToBytes(DescriptionText->text());
  e.TimeStepInPi = TimeInPi->isChecked();
  e.CheckNorm = CheckNorm->isChecked();
  e.InitialState = static_cast<std::int16_t>(Combo1->currentIndex());

  // Every refused cell is marked; the first one is named in the message and gets the focus.
  bool ok = true;
  auto number = [&](QLineEdit* edit, const std::string& where, double& target) {
    const auto v = ParseNumberCell(platform::ToBytes(edit->text()));
    MarkEdit(edit, !v);
    if (v) target = *v;
    else if (ok) {
      ok = false;
      edit->setFocus();
      ReportNotANumber(where, platform::ToBytes(edit->text()));
    }
  };
  auto count = [&](QLineEdit* edit, const std::string& where, std::int32_t& target) {
    const auto v = ParseCountCell(platform::ToBytes(edit->text()));
    MarkEdit(edit, !v);
    if (v) target = *v;
    else if (ok) {
      ok = false;
      edit->setFocus();
      ReportNotAWholeNumber(where, platform::ToBytes(edit->text()));
    }
  };
  auto cell = [&](QTableWidget* grid, int row, int col, const std::string& where, double& target) {
    QTableWidgetItem* item = grid->item(row, col);
    const std::string text = item ? platform::ToBytes(item->text()) : std::string();
    const auto v = ParseNumberCell(text);
    if (item) item->setBackground(v ? QBrush() : QBrush(kBadCell));
    if (v) target = *v;
    else if (ok) {
      ok = false;
      grid->setCurrentCell(row, col);
      ReportNotANumber(where, text);
    }
  };

  number(TimeStepText, "the time step", e.TimeStep);
  count(MainStepsText, "the main steps", e.FieldSteps);
  count(IntermediateStepsText, "the intermediate steps", e.IntermediateSteps);
  const bool wasLoading = loading_;
  loading_ = true;  // colouring cells is no edit
  for (int q = 0; q < Grid1->rowCount() && q < static_cast<int>(e.Field.size()); ++q)
    for (int c = 0; c < kFieldParameters; ++c)
      cell(Grid1, q, c, std::string(kFieldColumnHeaders[c]) + " of qubit " + std::to_string(q + 1),
           e.Field[q][c]);
  const auto pairs = QubitPairs(qubits_);
  for (int p = 0; p < GridJ->rowCount() && p < static_cast<int>(e.J.size()); ++p)
    for (int c = 0; c < 3; ++c)
      cell(GridJ, p, c,
           std::string(kCouplingHeaders[c]) + " of qubits " + std::to_string(pairs[p].first) + " - " +
               std::to_string(pairs[p].second),
           e.J[p][c]);
  loading_ = wasLoading;
  return ok;
}

bool DefaultMI::save() {
  MIEdit e;
  if (!collect(e)) return false;
  // Called from button clicks and the close event: a file error is reported here and keeps
  // the editor open, it must not travel on into the event loop.
  bool stored = false;
  if (!RunCommand([&] { stored = StoreMIEdit(ws_, miSlot_, e); }) || !stored) return false;
  ws_.NotifyMIListChanged();
  changed_ = false;
  updateCaption();
  return true;
}

bool DefaultMI::storeAndClose(bool store) {
  if (store && !save()) return false;
  closing_ = true;
  QWidget* frame = parentWidget() && parentWidget()->inherits("QMdiSubWindow") ? parentWidget() : this;
  frame->close();
  finish();  // in case the frame was not visible and sent no close event
  return true;
}

void DefaultMI::abandon() {
  miSlot_ = 0;
  storeAndClose(false);
}

void DefaultMI::finish() {
  if (released_) return;
  released_ = true;
  ReleaseMIEditor(ws_, editorSlot_, miSlot_);
  emit closed(editorSlot_);
}

void DefaultMI::closeEvent(QCloseEvent* event) {
  if (!closing_ && !released_ && changed_) {
    const std::string name = platform::ToBytes(NameText->text());
    const platform::Answer a = platform::MsgBox(
        "The micro instruction " + name + " has been changed." + platform::CR + "Save the changes?",
        platform::Icon::Question, platform::Buttons::YesNoCancel);
    if (a == platform::Answer::Cancel || (a == platform::Answer::Yes && !save())) {
      event->ignore();
      return;
    }
  }
  event->accept();
  finish();
}

} // namespace orvex
