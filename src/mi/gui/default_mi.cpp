#include "mi/gui/default_mi.h"

#include <algorithm>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QCloseEvent>
#include <QComboBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTableWidget>
#include <QUndoCommand>
#include <QUndoStack>
#include <QVBoxLayout>

#include "miset/miset_ui.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "run/gui/sweep_window.h"
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

QString CellText(const QTableWidget* grid, int row, int col) {
  const QTableWidgetItem* item = grid->item(row, col);
  return item ? item->text() : QString();
}

} // namespace

// One undo step of the grids: a hand edit of one cell, or one fill, paste or pattern.
class CellEditCommand : public QUndoCommand {
public:
  CellEditCommand(DefaultMI& editor, std::vector<DefaultMI::CellChange> changes, const QString& what,
                  bool applied)
      : QUndoCommand(what), editor_(editor), changes_(std::move(changes)), skipRedo_(applied) {}
  void redo() override {
    if (skipRedo_) skipRedo_ = false;  // a hand edit is in the cell already
    else editor_.applyCells(changes_, true);
  }
  void undo() override { editor_.applyCells(changes_, false); }

private:
  DefaultMI& editor_;
  std::vector<DefaultMI::CellChange> changes_;
  bool skipRedo_;
};

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

  DurationLabel = new QLabel(this);
  DurationLabel->setObjectName(QStringLiteral("DurationLabel"));
  DurationLabel->setToolTip(tr("The MI's duration: main steps m times the time step \u03C4"));
  form->addRow(tr("Duration m\u00B7\u03C4:"), DurationLabel);

  Combo1 = new QComboBox(this);
  Combo1->setObjectName(QStringLiteral("Combo1"));
  for (const char* choice : kInitialStateChoices) Combo1->addItem(QString::fromUtf8(choice));
  InitialStateLabel = new QLabel(tr("Initial state:"), this);
  form->addRow(InitialStateLabel, Combo1);
  layout->addLayout(form);

  const int qubits = qubits_;
  Grid1 = new QTableWidget(qubits, kFieldParameters, this);
  Grid1->setObjectName(QStringLiteral("Grid1"));
  for (int c = 0; c < kFieldParameters; ++c) {
    // The frequency columns hold the angular frequency \u03A9 of the oscillating field.
    QString h = QString::fromLatin1(kFieldColumnHeaders[c]);
    auto* header = new QTableWidgetItem;
    if (h.startsWith(QLatin1String("f_"))) {
      header->setText(QStringLiteral("\u03A9_") + h.mid(2));
      header->setToolTip(tr("Angular frequency \u03A9 of the oscillating field along %1").arg(h.mid(2)));
    } else {
      header->setText(h);
    }
    Grid1->setHorizontalHeaderItem(c, header);
  }
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

  undo_ = new QUndoStack(this);
  QAction* undoAction = undo_->createUndoAction(this, tr("Undo"));
  undoAction->setShortcut(QKeySequence::Undo);
  QAction* redoAction = undo_->createRedoAction(this, tr("Redo"));
  redoAction->setShortcuts({QKeySequence(QStringLiteral("Ctrl+Shift+Z")), QKeySequence(QStringLiteral("Ctrl+Y"))});
  for (QAction* a : {undoAction, redoAction}) {
    a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(a);
  }
  connect(undo_, &QUndoStack::indexChanged, this, &DefaultMI::updateChangedState);

  // The grids' context menus; the shortcuts act in the grid that has the focus.
  auto gridAction = [this](QTableWidget* grid, const QString& text, const QKeySequence& key, auto slot) {
    auto* a = new QAction(text, grid);
    a->setShortcut(key);
    a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    connect(a, &QAction::triggered, this, slot);
    grid->addAction(a);
    return a;
  };
  for (QTableWidget* grid : {Grid1, GridJ}) {
    grid->setContextMenuPolicy(Qt::ActionsContextMenu);
    grid->addAction(undoAction);
    grid->addAction(redoAction);
    auto* sep = new QAction(grid);
    sep->setSeparator(true);
    grid->addAction(sep);
    gridAction(grid, tr("Fill down"), QKeySequence(QStringLiteral("Ctrl+D")), [this, grid] { fillDown(grid); });
    gridAction(grid, tr("Paste"), QKeySequence::Paste, [this, grid] { paste(grid); });
  }
  gridAction(Grid1, tr("Same for all qubits"), QKeySequence(QStringLiteral("Ctrl+Shift+A")),
             [this] { sameForAllQubits(); });
  gridAction(GridJ, tr("Chain: nearest neighbours only"), QKeySequence(QStringLiteral("Ctrl+Shift+N")),
             [this] { chainCouplings(); });
  AddSweepCommands(*this);

  load();
  for (QLineEdit* e : {NameText, DescriptionText, TimeStepText, MainStepsText, IntermediateStepsText})
    connect(e, &QLineEdit::textChanged, this, &DefaultMI::markChanged);
  connect(TimeInPi, &QCheckBox::toggled, this, &DefaultMI::markChanged);
  connect(CheckNorm, &QCheckBox::toggled, this, &DefaultMI::markChanged);
  connect(Combo1, &QComboBox::currentIndexChanged, this, &DefaultMI::markChanged);
  connect(Grid1, &QTableWidget::cellChanged, this, [this](int r, int c) { cellEdited(Grid1, r, c); });
  connect(GridJ, &QTableWidget::cellChanged, this, [this](int r, int c) { cellEdited(GridJ, r, c); });
  for (QLineEdit* e : {TimeStepText, MainStepsText})
    connect(e, &QLineEdit::textChanged, this, &DefaultMI::updateDuration);
  connect(TimeInPi, &QCheckBox::toggled, this, &DefaultMI::updateDuration);
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
  shown1_.assign(static_cast<std::size_t>(Grid1->rowCount() * Grid1->columnCount()), QString());
  shownJ_.assign(static_cast<std::size_t>(GridJ->rowCount() * GridJ->columnCount()), QString());
  for (QTableWidget* grid : {Grid1, GridJ})
    for (int r = 0; r < grid->rowCount(); ++r)
      for (int c = 0; c < grid->columnCount(); ++c) shownText(grid, r, c) = CellText(grid, r, c);
  undo_->clear();
  changed_ = false;
  formChanged_ = false;
  loading_ = false;
  updateCaption();
  updateDuration();
}

void DefaultMI::markChanged() {
  if (loading_) return;
  formChanged_ = true;
  updateChangedState();
}

void DefaultMI::updateChangedState() {
  changed_ = formChanged_ || !undo_->isClean();
  updateCaption();
}

void DefaultMI::updateDuration() {
  const auto tau = ParseNumberCell(platform::ToBytes(TimeStepText->text()));
  const auto m = ParseCountCell(platform::ToBytes(MainStepsText->text()));
  if (!tau || !m) {
    DurationLabel->setText(QStringLiteral("\u2013"));
    return;
  }
  QString text = QStringLiteral("%1 \u00D7 %2 = %3").arg(*m).arg(Num(*tau)).arg(Num(*m * *tau));
  if (TimeInPi->isChecked()) text += QStringLiteral(" (units of 2\u03C0)");
  DurationLabel->setText(text);
}

QString& DefaultMI::shownText(QTableWidget* grid, int row, int col) {
  std::vector<QString>& shown = grid == Grid1 ? shown1_ : shownJ_;
  return shown[static_cast<std::size_t>(row * grid->columnCount() + col)];
}

void DefaultMI::cellEdited(QTableWidget* grid, int row, int col) {
  if (loading_ || applying_) return;
  const QString now = CellText(grid, row, col);
  QString& before = shownText(grid, row, col);
  if (now == before) return;  // a colour or other non-text change
  std::vector<CellChange> change{{grid, row, col, before, now}};
  before = now;
  undo_->push(new CellEditCommand(*this, std::move(change), tr("Edit cell"), true));
}

void DefaultMI::applyCells(const std::vector<CellChange>& changes, bool after) {
  applying_ = true;
  for (const CellChange& ch : changes) {
    const QString& text = after ? ch.After : ch.Before;
    if (QTableWidgetItem* item = ch.Grid->item(ch.Row, ch.Col)) item->setText(text);
    else ch.Grid->setItem(ch.Row, ch.Col, new QTableWidgetItem(text));
    shownText(ch.Grid, ch.Row, ch.Col) = text;
  }
  applying_ = false;
}

void DefaultMI::pushCells(std::vector<CellChange> changes, const QString& what) {
  std::erase_if(changes, [](const CellChange& ch) { return ch.Before == ch.After; });
  if (changes.empty()) return;
  undo_->push(new CellEditCommand(*this, std::move(changes), what, false));
}

void DefaultMI::fillDown(QTableWidget* grid) {
  QModelIndexList selected = grid->selectionModel()->selectedIndexes();
  if (selected.size() < 2) return;
  std::sort(selected.begin(), selected.end(), [](const QModelIndex& a, const QModelIndex& b) {
    return a.row() != b.row() ? a.row() < b.row() : a.column() < b.column();
  });
  const QString value = CellText(grid, selected.front().row(), selected.front().column());
  std::vector<CellChange> changes;
  for (const QModelIndex& i : selected)
    changes.push_back({grid, i.row(), i.column(), CellText(grid, i.row(), i.column()), value});
  pushCells(std::move(changes), tr("Fill down"));
}

void DefaultMI::paste(QTableWidget* grid) {
  QString text = QApplication::clipboard()->text();
  text.remove(QLatin1Char('\r'));
  QStringList lines = text.split(QLatin1Char('\n'));
  while (!lines.isEmpty() && lines.back().isEmpty()) lines.removeLast();  // the block's last line break
  if (lines.isEmpty()) return;
  const int top = std::max(grid->currentRow(), 0), left = std::max(grid->currentColumn(), 0);
  bool clipped = false;
  std::vector<CellChange> changes;
  for (int r = 0; r < lines.size(); ++r) {
    const QStringList cells = lines[r].split(QLatin1Char('\t'));
    for (int c = 0; c < cells.size(); ++c) {
      const int row = top + r, col = left + c;
      if (row >= grid->rowCount() || col >= grid->columnCount()) {
        clipped = true;
        continue;
      }
      changes.push_back({grid, row, col, CellText(grid, row, col), cells[c].trimmed()});
    }
  }
  if (clipped) platform::Beep();
  pushCells(std::move(changes), tr("Paste"));
}

void DefaultMI::sameForAllQubits() {
  const int from = Grid1->currentRow();
  if (from < 0) return;
  std::vector<CellChange> changes;
  for (int q = 0; q < Grid1->rowCount(); ++q)
    for (int c = 0; c < Grid1->columnCount(); ++c)
      changes.push_back({Grid1, q, c, CellText(Grid1, q, c), CellText(Grid1, from, c)});
  pushCells(std::move(changes), tr("Same for all qubits"));
}

void DefaultMI::chainCouplings() {
  const int from = std::max(GridJ->currentRow(), 0);
  if (GridJ->rowCount() == 0) return;
  const auto pairs = QubitPairs(qubits_);
  std::vector<CellChange> changes;
  for (int p = 0; p < GridJ->rowCount() && p < static_cast<int>(pairs.size()); ++p) {
    const bool neighbours = pairs[p].second == pairs[p].first + 1;
    for (int c = 0; c < 3; ++c)
      changes.push_back({GridJ, p, c, CellText(GridJ, p, c), neighbours ? CellText(GridJ, from, c) : QStringLiteral("0")});
  }
  pushCells(std::move(changes), tr("Chain couplings"));
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
  formChanged_ = false;
  undo_->setClean();
  updateChangedState();
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

// The undo stack goes first: clearing it as a child of the base widget would signal this
// editor after its own part is gone.
DefaultMI::~DefaultMI() {
  QObject::disconnect(undo_, nullptr, this, nullptr);
  delete undo_;
}

} // namespace orvex
