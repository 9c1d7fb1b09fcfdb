#include "program/gui/default_pg.h"

#include <algorithm>

#include <QAction>
#include <QCloseEvent>
#include <QDrag>
#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QLabel>
#include <QMenu>
#include <QMimeData>
#include <QStyle>
#include <QToolBar>
#include <QUndoCommand>
#include <QUndoStack>

#include "platform/gui/icons.h"
#include "mi/mi_file.h"
#include "miset/gui/mirow_mime.h"
#include "miset/mi_commands.h"
#include "miset/mi_list.h"
#include "miset/miset_ui.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "program/program_table.h"
#include "run/gui/fidelity_dialog.h"
#include "run/run_controller.h"
#include "view/gui/colors.h"
#include "view/gui/qubit_stripes.h"
#include "view/qubit_display.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

// Layout in twips (converted at the edge).
constexpr int kMinWidth = 2400;
constexpr int kMinHeight = 3600;
constexpr int kListMargin = 130;
constexpr int kColumnAllowance = 375;
constexpr int kColumnAllowanceScrolled = 625;
constexpr int kRowHeight = 275;
constexpr int kListReserveNoQubits = 825;
constexpr int kListReserveOneRow = 1845;
// The x, y and z labels of the lowest row of boxes lie this far above the bottom; each row
// above lies 1000 twips higher. The labels stand 100 twips from the left edge.
constexpr int kLabelOffsets[3] = {1140, 900, 660};
constexpr int kRowPitch = 1000;
constexpr int kLabelLeft = 100;
constexpr int kBoxesLeft = 400;
constexpr int kBoxHeight = 720;  // three label lines
constexpr int kBoxGap = 30;
constexpr int kBoxesPerRow = 8;

// The allowance the list gives up for an older platform's window frames; none on ours.
constexpr int LayoutAllowance() { return 0; }

QMimeData* EncodeProgramRow(int slot, int row) {
  auto* data = new QMimeData;
  data->setData(QString::fromLatin1(kProgramRowMimeType),
                QByteArray::number(slot) + '\n' + QByteArray::number(row));
  return data;
}

// The (slot, row) a drag within a program editor carries.
std::optional<std::pair<int, int>> DecodeProgramRow(const QMimeData* data) {
  if (!data || !data->hasFormat(QString::fromLatin1(kProgramRowMimeType))) return std::nullopt;
  const QList<QByteArray> parts = data->data(QString::fromLatin1(kProgramRowMimeType)).split('\n');
  if (parts.size() != 2) return std::nullopt;
  bool ok1 = false, ok2 = false;
  const int slot = parts[0].toInt(&ok1), row = parts[1].toInt(&ok2);
  if (!ok1 || !ok2) return std::nullopt;
  return std::make_pair(slot, row);
}

bool SameRows(const std::vector<ProgramRow>& a, const std::vector<ProgramRow>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const ProgramRow& x, const ProgramRow& y) { return x.Text == y.Text && x.Icon == y.Icon; });
}

} // namespace

// One undo step of the program editor: the rows before and after an edit.
class ProgramRowsCommand : public QUndoCommand {
public:
  ProgramRowsCommand(DefaultPG& editor, std::vector<ProgramRow> before, std::vector<ProgramRow> after,
                     const QString& what)
      : QUndoCommand(what), editor_(editor), before_(std::move(before)), after_(std::move(after)) {}
  void redo() override {
    if (done_) done_ = false;  // the edit itself made the rows
    else editor_.restoreRows(after_);
  }
  void undo() override { editor_.restoreRows(before_); }

private:
  DefaultPG& editor_;
  std::vector<ProgramRow> before_, after_;
  bool done_ = true;
};

// ---- ProgramListView ------------------------------------------------------------------------

ProgramListView::ProgramListView(DefaultPG& editor, QWidget* parent) : QTreeWidget(parent), editor_(editor) {
  setObjectName(QStringLiteral("PG"));
  setColumnCount(1);
  setHeaderLabels({QStringLiteral("Program instructions")});
  header()->setStretchLastSection(false);
  header()->setSectionsClickable(false);
  setRootIsDecorated(false);
  setUniformRowHeights(true);
  setSelectionMode(QAbstractItemView::SingleSelection);
  setDragEnabled(true);
  setAcceptDrops(true);
  viewport()->setAcceptDrops(true);
  setDragDropMode(QAbstractItemView::DragDrop);
  setDropIndicatorShown(false);  // the row under the cursor is highlighted instead
}

void ProgramListView::keyPressEvent(QKeyEvent* event) {
  // A modifier on its own is part of the key that follows; the editor ignores it.
  const int k = event->key();
  if (k == Qt::Key_Control || k == Qt::Key_Shift || k == Qt::Key_Alt || k == Qt::Key_Meta) {
    QTreeWidget::keyPressEvent(event);
    return;
  }
  // The editor's keys (and the beep while a program runs) are the program table's rule.
  const bool ctrl = (event->modifiers() & Qt::ControlModifier) != 0;
  if (editor_.key(k, ctrl)) {
    event->accept();
    return;
  }
  QTreeWidget::keyPressEvent(event);
}

void ProgramListView::startDrag(Qt::DropActions) {
  const int row = editor_.selectedRow();
  if (row < 1 || editor_.running()) return;  // the "Start" row stays where it is
  auto* drag = new QDrag(this);
  drag->setMimeData(EncodeProgramRow(editor_.slot(), row));
  if (QTreeWidgetItem* item = topLevelItem(row)) drag->setPixmap(item->icon(0).pixmap(16, 16));
  drag->exec(Qt::MoveAction);
}

// A row of this program (moved) or of the MI list (inserted), while the program is not running.
bool ProgramListView::acceptsDrop(const QMimeData* mime) const {
  if (editor_.running()) return false;
  if (auto own = DecodeProgramRow(mime)) return own->first == editor_.slot();
  return DecodeMIRow(mime).has_value();
}

void ProgramListView::dragEnterEvent(QDragEnterEvent* event) {
  if (acceptsDrop(event->mimeData())) event->acceptProposedAction();
  else event->ignore();
}

void ProgramListView::dragMoveEvent(QDragMoveEvent* event) {
  if (!acceptsDrop(event->mimeData())) {
    setDropTarget(-1);
    event->ignore();
    return;
  }
  QTreeWidgetItem* item = itemAt(event->position().toPoint());
  setDropTarget(item ? indexOfTopLevelItem(item) : -1);
  event->acceptProposedAction();
}

void ProgramListView::dragLeaveEvent(QDragLeaveEvent* event) {
  setDropTarget(-1);
  QTreeWidget::dragLeaveEvent(event);
}

void ProgramListView::dropEvent(QDropEvent* event) {
  setDropTarget(-1);
  if (editor_.running()) {
    event->ignore();
    return;
  }
  QTreeWidgetItem* item = itemAt(event->position().toPoint());
  const int target = item ? indexOfTopLevelItem(item) : -1;
  const QMimeData* mime = event->mimeData();
  if (auto own = DecodeProgramRow(mime)) {
    // A row from another program's list is refused: rows move only within their program.
    if (own->first != editor_.slot()) {
      event->ignore();
      return;
    }
    if (!editor_.moveRow(own->second, target)) {
      event->ignore();
      return;
    }
  } else if (auto row = DecodeMIRow(mime)) {
    if (!editor_.dropMIRow(target, *row)) {
      event->ignore();
      return;
    }
  } else {
    event->ignore();
    return;
  }
  event->setDropAction(Qt::CopyAction);  // the source keeps its row; the move is done here
  event->accept();
}

void ProgramListView::setDropTarget(int row) {
  if (row == dropTarget_) return;
  if (QTreeWidgetItem* old = topLevelItem(dropTarget_)) old->setBackground(0, QBrush());
  dropTarget_ = row;
  if (QTreeWidgetItem* now = topLevelItem(dropTarget_)) now->setBackground(0, palette().brush(QPalette::Highlight).color().lighter(160));
}

// ---- DefaultPG --------------------------------------------------------------------------------

DefaultPG::DefaultPG(Workspace& ws, RunUi& runUi, MISetUi& miSetUi, int slot, QWidget* parent)
    : QWidget(parent), ws_(ws), runUi_(runUi), miSetUi_(miSetUi), slot_(slot) {
  setObjectName(QStringLiteral("DefaultPG"));
  setProperty("Tag", QString::number(slot));

  Toolbar1 = new QToolBar(this);
  Toolbar1->setObjectName(QStringLiteral("Toolbar1"));
  Toolbar1->setIconSize(QSize(16, 16));
  Toolbar1->setToolButtonStyle(Qt::ToolButtonIconOnly);
  const QIcon icons[8] = {QIcon(),
                          OrvexToolIcon(ToolIcon::ClearProgram),
                          OrvexToolIcon(ToolIcon::Save),
                          OrvexIcon(kIconMI),
                          OrvexToolIcon(ToolIcon::Start),
                          OrvexToolIcon(ToolIcon::Step),
                          OrvexToolIcon(ToolIcon::Back),
                          OrvexToolIcon(ToolIcon::RemoveRow)};
  for (int i = 1; i <= 7; ++i) {
    QAction* a = Toolbar1->addAction(icons[i], QString::fromLatin1(kEditorButtonTips[i]));
    a->setObjectName(QStringLiteral("PGButton%1").arg(i));
    a->setToolTip(QString::fromLatin1(kEditorButtonTips[i]));
    buttons_[i] = a;
  }
  undo_ = new QUndoStack(this);
  undoFor_ = ws_.Program(slot_).Name;
  if (ws_.Program(slot_).Changed) undo_->resetClean();  // unsaved already: no step is "saved"
  auto* undoAction = new QAction(tr("Undo"), this);
  undoAction->setObjectName(QStringLiteral("PGUndo"));
  undoAction->setShortcut(QKeySequence::Undo);
  auto* redoAction = new QAction(tr("Redo"), this);
  redoAction->setObjectName(QStringLiteral("PGRedo"));
  redoAction->setShortcuts({QKeySequence(QStringLiteral("Ctrl+Shift+Z")), QKeySequence(QStringLiteral("Ctrl+Y"))});
  for (QAction* a : {undoAction, redoAction}) {
    a->setShortcutContext(Qt::WidgetWithChildrenShortcut);
    addAction(a);
  }
  connect(undoAction, &QAction::triggered, this, &DefaultPG::undo);
  connect(redoAction, &QAction::triggered, this, &DefaultPG::redo);
  // Back at the step last saved the program is unchanged again.
  connect(undo_, &QUndoStack::indexChanged, this, [this] { ws_.Program(slot_).Changed = !undo_->isClean(); });

  connect(buttons_[kButtonClear], &QAction::triggered, this, [this] {
    recorded(tr("Clear program"), [this] { ClearProgram(ws_, slot_); });
    render();
  });
  connect(buttons_[kButtonSave], &QAction::triggered, this, [this] { save(); });
  // "Update MI" has no action of its own in the editor (the Tools menu's item clears the copies).
  connect(buttons_[kButtonRun], &QAction::triggered, this, [this] { runButton(); });
  connect(buttons_[kButtonStep], &QAction::triggered, this,
          [this] { run([this] { RunProgram(ws_, runUi_, slot_, kModeStep); }); });
  connect(buttons_[kButtonBack], &QAction::triggered, this,
          [this] { run([this] { StepBack(ws_, runUi_, slot_); }); });
  connect(buttons_[kButtonRemove], &QAction::triggered, this, [this] {
    recorded(tr("Remove row"), [this] { RemoveMIButton(ws_, runUi_, slot_, selectedRow()); });
    render();
  });
  Toolbar1->addSeparator();
  PauseButton = Toolbar1->addAction(style()->standardIcon(QStyle::SP_MediaPause), QStringLiteral("Pause"));
  PauseButton->setObjectName(QStringLiteral("PGPause"));
  PauseButton->setToolTip(QStringLiteral("Pause"));
  PauseButton->setEnabled(false);
  connect(PauseButton, &QAction::triggered, this, [this] {
    if (!PauseProgram(ws_, slot_)) platform::Beep();
  });
  TraceButton = Toolbar1->addAction(style()->standardIcon(QStyle::SP_FileDialogContentsView),
                                    QStringLiteral("Trace"));
  TraceButton->setObjectName(QStringLiteral("PGTrace"));
  TraceButton->setToolTip(QStringLiteral("Trace"));
  connect(TraceButton, &QAction::triggered, this, &DefaultPG::traceRequested);

  PG = new ProgramListView(*this, this);
  connect(PG, &QTreeWidget::itemDoubleClicked, this,
          [this](QTreeWidgetItem* item, int) { openRowInMIEditor(PG->indexOfTopLevelItem(item)); });
  // The context menu measures the MI of the row, or the whole program, against an ideal gate.
  PG->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(PG, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
    const int row = PG->indexOfTopLevelItem(PG->itemAt(pos));
    const ProgramSlot& p = ws_.Program(slot_);
    QMenu menu(this);
    QAction* ofMI = nullptr;
    if (row >= 0 && row < static_cast<int>(p.Rows.size()) && p.Rows[row].Icon == kIconMI) {
      ofMI = menu.addAction(QStringLiteral("Gate fidelity of %1\u2026").arg(platform::FromBytes(p.Rows[row].Text)));
      ofMI->setObjectName(QStringLiteral("PGFidelityMI"));
    }
    QAction* ofProgram = menu.addAction(QStringLiteral("Gate fidelity of the program\u2026"));
    ofProgram->setObjectName(QStringLiteral("PGFidelityProgram"));
    QAction* chosen = menu.exec(PG->viewport()->mapToGlobal(pos));
    if (chosen && chosen == ofMI)
      ShowFidelityDialog(this, ws_, FidelitySubjectForMI(ws_, ws_.Program(slot_).Rows[row].Text));
    else if (chosen && chosen == ofProgram)
      ShowFidelityDialog(this, ws_, FidelitySubjectForProgram(ws_, slot_));
  });

  for (int q = 1; q <= kMaxQubits; ++q) {
    auto* box = new QubitBox(this);
    box->setObjectName(QStringLiteral("Qubit%1").arg(q));
    box->hide();
    connect(box, &QubitBox::clicked, this, [this] {
      if (qubitClicked) qubitClicked();
      else ShowColorTable(window());
    });
    Qubit[q - 1] = box;
  }
  for (int r = 0; r < kMaxQubits / kBoxesPerRow; ++r) {
    for (const char* axis : {"x", "y", "z"}) {
      auto* label = new QLabel(QString::fromLatin1(axis), this);
      label->setObjectName(QStringLiteral("Label1"));
      label->hide();
      Label1.push_back(label);
    }
  }

  setMinimumSize(platform::TwipsToPixels(kMinWidth, this), platform::TwipsToPixels(kMinHeight, this));
  resize(platform::TwipsToPixels(kMinWidth, this), platform::TwipsToPixels(kMinHeight + 2400, this));
  render();
  updateQubitDisplay();
}

QAction* DefaultPG::button(int index) const {
  if (index < 1 || index > 7) return nullptr;
  return buttons_[index];
}

int DefaultPG::selectedRow() const {
  const QList<QTreeWidgetItem*> items = PG->selectedItems();
  if (items.isEmpty()) return -1;
  return PG->indexOfTopLevelItem(items.first());
}

void DefaultPG::render() {
  const ProgramSlot& p = ws_.Program(slot_);
  // Another program in the slot: the steps were the old one's. A saved program is the clean
  // state the steps are counted from.
  if (p.Name != undoFor_) {
    const bool changed = p.Changed;
    undo_->clear();  // its index signal would count the program as saved
    ws_.Program(slot_).Changed = changed;
    undoFor_ = p.Name;
    if (changed) undo_->resetClean();
  }
  if (!p.Changed) undo_->setClean();
  setWindowTitle(platform::FromBytes(p.Caption));
  PG->headerItem()->setText(0, platform::FromBytes(p.Status));

  // A run that ends (reset, finish, failure) takes the selection with it: the row its mark
  // selected must not be what the next "Remove MI" (the reset button a moment ago) removes.
  const bool inRun = ws_.RunningProgram == slot_;
  if (inRun_ && !inRun) {
    PG->clearSelection();
    PG->setCurrentItem(nullptr);
  }
  inRun_ = inRun;
  const int selected = selectedRow();
  const bool halted = inRun && !ws_.EngineBusy;
  const int current = halted ? p.CurrentRow : -1;
  const int rows = static_cast<int>(p.Rows.size());
  PG->setUpdatesEnabled(false);
  // Rows are rebuilt only where they differ, so a long list keeps its scroll position.
  while (PG->topLevelItemCount() > rows) delete PG->takeTopLevelItem(PG->topLevelItemCount() - 1);
  for (int r = 0; r < rows; ++r) {
    QTreeWidgetItem* item = PG->topLevelItem(r);
    if (!item) {
      item = new QTreeWidgetItem(PG);
      item->setFlags(item->flags() | Qt::ItemIsDragEnabled);
    }
    const QString text = platform::FromBytes(p.Rows[r].Text);
    if (item->text(0) != text) item->setText(0, text);
    const bool isCurrent = r == current;
    // The current instruction while halted: bold, on a marked background, with the step icon.
    QFont font = PG->font();
    font.setBold(isCurrent);
    item->setFont(0, font);
    item->setIcon(0, isCurrent ? OrvexToolIcon(ToolIcon::Step) : OrvexIcon(p.Rows[r].Icon));
    item->setData(0, Qt::UserRole, p.Rows[r].Icon);
    item->setBackground(0, isCurrent ? QBrush(QColor(255, 240, 150)) : QBrush());
  }
  PG->setUpdatesEnabled(true);
  if (current >= 0 && current < rows) {
    PG->setCurrentItem(PG->topLevelItem(current));
    PG->scrollToItem(PG->topLevelItem(current));
  } else if (selected >= 0 && selected < rows) {
    PG->setCurrentItem(PG->topLevelItem(selected));
  }

  // The run control reads "Stop" while this program's engine call loop runs.
  QAction* runControl = buttons_[kButtonRun];
  const bool busy = ws_.EngineBusy && ws_.RunningProgram == slot_;
  PauseButton->setEnabled(busy && ws_.RunMode == kModeRun);
  const QString caption = busy ? QStringLiteral("Stop") : QString::fromLatin1(kEditorButtonTips[kButtonRun]);
  if (runControl->text() != caption) {
    runControl->setText(caption);
    runControl->setToolTip(caption);
    runControl->setIcon(busy ? OrvexToolIcon(ToolIcon::Reset) : OrvexToolIcon(ToolIcon::Start));
  }
  updateColumnWidth();
}

void DefaultPG::updateQubitDisplay() {
  const int n = std::clamp<int>(ws_.ProgramQubits(slot_), 0, kMaxQubits);
  std::vector<QubitBox*> boxes(Qubit.begin(), Qubit.end());
  UpdateQubitBoxes(ws_, slot_, boxes);
  for (int q = 1; q <= kMaxQubits; ++q) Qubit[q - 1]->setVisible(q <= n);
  if (n != shownQubits_) {
    shownQubits_ = n;
    layoutChildren();
  }
}

void DefaultPG::applyRunCommandStates(const RunCommandStates& states) {
  for (int i = 1; i <= 7; ++i) buttons_[i]->setEnabled(states.EditorButtons[i]);
}

void DefaultPG::layoutChildren() {
  auto px = [this](int twips) { return platform::TwipsToPixels(twips, this); };
  const int W = platform::PixelsToTwips(width(), this);
  const int H = platform::PixelsToTwips(height(), this);
  const int toolbarHeight = Toolbar1->sizeHint().height();
  Toolbar1->setGeometry(0, 0, width(), toolbarHeight);

  const int n = shownQubits_;
  int listHeight = H - kListReserveNoQubits;
  if (n > 0 && n <= kBoxesPerRow) listHeight = H - kListReserveOneRow - LayoutAllowance();
  else if (auto h = InstructionListHeight(H, n)) listHeight = *h;
  PG->setGeometry(px(kListMargin / 2), toolbarHeight, px(W - kListMargin), std::max(px(listHeight), 40));

  // Rows of eight boxes under the list, the last row lowest, each with its x, y, z labels.
  const int rowsOfBoxes = (n + kBoxesPerRow - 1) / kBoxesPerRow;
  const int pitch = std::max((W - kListMargin / 2 - kBoxesLeft) / kBoxesPerRow, 2 * kBoxGap);
  for (std::size_t i = 0; i < Label1.size(); ++i) {
    const int r = static_cast<int>(i) / 3, axis = static_cast<int>(i) % 3;
    QLabel* label = Label1[i];
    if (r >= rowsOfBoxes) {
      label->hide();
      continue;
    }
    const int above = (rowsOfBoxes - 1 - r) * kRowPitch;
    label->setGeometry(px(kLabelLeft), px(H - kLabelOffsets[axis] - above), px(kBoxesLeft - kLabelLeft), px(240));
    label->show();
  }
  for (int q = 1; q <= n; ++q) {
    const int r = (q - 1) / kBoxesPerRow, c = (q - 1) % kBoxesPerRow;
    const int above = (rowsOfBoxes - 1 - r) * kRowPitch;
    Qubit[q - 1]->setGeometry(px(kBoxesLeft + c * pitch), px(H - kLabelOffsets[0] - above), px(pitch - kBoxGap),
                              px(kBoxHeight));
  }
  updateColumnWidth();
}

void DefaultPG::updateColumnWidth() {
  const int width = platform::PixelsToTwips(PG->width(), this);
  const int height = platform::PixelsToTwips(PG->height(), this);
  const bool allFit = height / kRowHeight >= PG->topLevelItemCount();
  const int column = width - (allFit ? kColumnAllowance : kColumnAllowanceScrolled);
  PG->setColumnWidth(0, std::max(platform::TwipsToPixels(column, this), 20));
}

void DefaultPG::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  layoutChildren();
}

void DefaultPG::closeEvent(QCloseEvent* event) {
  bool closed = false;
  run([&] { closed = CloseProgram(ws_, runUi_, slot_); });
  if (closed) {
    event->accept();
    emit this->closed(slot_);
  } else {
    event->ignore();
  }
}

void DefaultPG::run(const std::function<void()>& operation) { RunCommand(operation); }

bool DefaultPG::key(int keyCode, bool ctrl) {
  // Qt's codes of Delete, D and S are not the classic key codes the rule takes.
  int code = 0;
  if (keyCode == Qt::Key_Delete) code = kKeyDelete;
  else if (keyCode == Qt::Key_D) code = kKeyD;
  else if (keyCode == Qt::Key_S) code = kKeyS;
  if (code == 0 && !running()) return false;
  const int row = selectedRow();
  bool handled = false;
  recorded(tr("Remove row"), [&] { handled = EditorKey(ws_, runUi_, slot_, code, ctrl, row); });
  if (handled && !running()) {
    render();
    const int rows = PG->topLevelItemCount();
    if (rows > 0 && row >= 0) PG->setCurrentItem(PG->topLevelItem(std::min(row, rows - 1)));
  }
  return handled;
}

void DefaultPG::save() {
  run([this] { SaveProgram(ws_, runUi_, slot_); });
  render();
}

void DefaultPG::runButton() {
  run([this] {
    // While the call loop runs the control reads "Stop": it abandons the run.
    if (ws_.EngineBusy && ws_.RunningProgram == slot_) ResetProgram(ws_, runUi_, slot_);
    else RunProgram(ws_, runUi_, slot_, kModeRun);
  });
}

bool DefaultPG::dropMIRow(int targetRow, const MIListRow& row) {
  bool inserted = false;
  recorded(tr("Drop MI"), [&] { inserted = DropMIListEntry(ws_, slot_, targetRow, row); });
  if (!inserted) return false;
  render();
  const int rows = PG->topLevelItemCount();
  const int at = (targetRow < 0 || targetRow >= rows - 1) ? rows - 1 : targetRow + 1;
  PG->setCurrentItem(PG->topLevelItem(at));
  return true;
}

bool DefaultPG::moveRow(int row, int targetRow) {
  bool moved = false;
  const int rows = static_cast<int>(ws_.Program(slot_).Rows.size());
  recorded(tr("Move row"), [&] { moved = MoveRow(ws_, slot_, row, targetRow); });
  if (!moved) return false;
  render();
  // Where the row landed: directly below the target (at the end when there was none).
  int at = (targetRow < 0 || targetRow >= rows) ? rows - 1 : (targetRow < row ? targetRow + 1 : targetRow);
  PG->setCurrentItem(PG->topLevelItem(at));
  return true;
}

void DefaultPG::recorded(const QString& what, const std::function<void()>& edit) {
  const std::vector<ProgramRow> before = ws_.Program(slot_).Rows;
  run(edit);
  const std::vector<ProgramRow>& after = ws_.Program(slot_).Rows;
  if (!SameRows(before, after)) undo_->push(new ProgramRowsCommand(*this, before, after, what));
}

void DefaultPG::restoreRows(const std::vector<ProgramRow>& rows) {
  ws_.Program(slot_).Rows = rows;
  render();
}

void DefaultPG::undo() {
  if (running() || !undo_->canUndo()) {
    platform::Beep();
    return;
  }
  undo_->undo();
  render();
}

void DefaultPG::redo() {
  if (running() || !undo_->canRedo()) {
    platform::Beep();
    return;
  }
  undo_->redo();
  render();
}

void DefaultPG::openRowInMIEditor(int row) {
  const ProgramSlot& p = ws_.Program(slot_);
  if (row < 0 || row >= static_cast<int>(p.Rows.size()) || p.Rows[row].Icon != kIconMI) return;
  const std::string wanted = Upper(p.Rows[row].Text);
  int n = 0;
  for (int i = 1; i <= ws_.MICount; ++i) {
    const MicroInstruction& mi = ws_.MITable(i);
    if (mi.InUse && IsMIName(mi.Name) && Upper(NameWithoutExtension(mi.Name)) == wanted) {
      n = i;
      break;
    }
  }
  if (n == 0) return;
  const auto file = FindPath(ws_.MISetPath, ws_.MITable(n).Name);
  if (!file || !FileExists(*file)) return;
  int listRow = -1;
  for (std::size_t r = 0; r < ws_.MIList.Rows.size(); ++r)
    if (ws_.MIList.Rows[r].Key == RowKeyFor(n)) listRow = static_cast<int>(r);
  if (listRow < 0) return;
  run([&] {
    // The editor shows the MI as its file holds it; an MI open in an editor already keeps
    // that editor's values (opening it again only beeps).
    if (!ws_.MITable(n).IsOpen) ReadMI(*file, ws_.MITable(n));
    OpenMIListEntry(ws_, miSetUi_, listRow);
  });
}

// The undo stack goes first: clearing it as a child of the base widget would signal this
// editor after its own part is gone.
DefaultPG::~DefaultPG() {
  QObject::disconnect(undo_, nullptr, this, nullptr);
  delete undo_;
}

} // namespace orvex
