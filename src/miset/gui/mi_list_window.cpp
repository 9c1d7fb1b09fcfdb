#include "miset/gui/mi_list_window.h"

#include <QAction>
#include <QKeyEvent>
#include <QMenu>
#include <QStatusBar>
#include <QToolBar>
#include <QVBoxLayout>

#include "platform/gui/icons.h"
#include "miset/add_program.h"
#include "miset/gui/mirow_mime.h"
#include "miset/mi_commands.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/set_commands.h"
#include "miset/set_qubits.h"
#include "platform/gui/qt_text.h"
#include "run/gui/fidelity_dialog.h"
#include "workspace/errors.h"

namespace orvex {

namespace {
// Item data: the row's text as bytes (the shown text may have been decoded from Latin-1).
constexpr int kRowBytesRole = Qt::UserRole + 2;
} // namespace

MIListView::MIListView(QWidget* parent) : QListWidget(parent) {
  setObjectName(QStringLiteral("Micro"));
  setSelectionMode(QAbstractItemView::SingleSelection);
  setDragEnabled(true);
  setDragDropMode(QAbstractItemView::DragOnly);
  setDefaultDropAction(Qt::CopyAction);
  setIconSize(QSize(20, 20));
}

void MIListView::keyPressEvent(QKeyEvent* event) {
  // Ctrl means the Ctrl shift state alone.
  const Qt::KeyboardModifiers mods = event->modifiers() & ~Qt::KeypadModifier;
  if (event->key() == Qt::Key_Delete && mods == Qt::NoModifier) {
    emit deleteRequested();
    return;
  }
  if (mods == Qt::ControlModifier) {
    switch (event->key()) {
    case Qt::Key_D: emit deleteRequested(); return;
    case Qt::Key_C: emit copyRequested(); return;
    case Qt::Key_S: emit saveRequested(); return;
    case Qt::Key_N: emit newRequested(); return;
    default: break;
    }
  }
  QListWidget::keyPressEvent(event);
}

QStringList MIListView::mimeTypes() const { return {QString::fromLatin1(kMIRowMimeType)}; }

QMimeData* MIListView::mimeData(const QList<QListWidgetItem*>& items) const {
  if (items.isEmpty()) return nullptr;
  const QListWidgetItem* item = items.first();
  // The row's text as the workspace holds it, not as shown: the program names the MI file.
  MIListRow row{item->data(Qt::UserRole).toString().toStdString(),
                item->data(kRowBytesRole).toByteArray().toStdString(),
                item->data(Qt::UserRole + 1).toInt()};
  return EncodeMIRow(row);
}

MIList::MIList(Workspace& ws, MISetUi& ui, QWidget* parent) : QWidget(parent), ws_(ws), ui_(ui) {
  setObjectName(QStringLiteral("MIList"));
  setAttribute(Qt::WA_DeleteOnClose, false);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);

  Toolbar1 = new QToolBar(this);
  Toolbar1->setObjectName(QStringLiteral("Toolbar1"));
  Toolbar1->setIconSize(QSize(20, 20));
  struct Button {
    const char* tip;
    ToolIcon icon;
    void (MIList::*command)();
  };
  const Button buttons[] = {
      {"Open MI set", ToolIcon::OpenMISet, &MIList::openSet},
      {"Save MI set", ToolIcon::SaveMISet, &MIList::saveSet},
      {"Copy MI Set", ToolIcon::CopyMISet, &MIList::copySet},
      {"Set number of qubits", ToolIcon::SetQubits, &MIList::setNumberOfQubits},
      {"New MI", ToolIcon::NewMI, &MIList::newMI},
      {"Copy MI", ToolIcon::CopyMI, &MIList::copyMI},
      {"Sort MI", ToolIcon::SortMI, &MIList::sortMI},
      {"Delete MI", ToolIcon::DeleteMI, &MIList::deleteMI},
      {"Add Quantum Program (QP)", ToolIcon::AddProgram, &MIList::addProgram},
  };
  for (const Button& b : buttons) {
    QAction* a = Toolbar1->addAction(OrvexToolIcon(b.icon), QString::fromLatin1(b.tip));
    a->setToolTip(QString::fromLatin1(b.tip));
    connect(a, &QAction::triggered, this, b.command);
    buttons_ << a;
  }
  layout->addWidget(Toolbar1);

  Micro = new MIListView(this);
  layout->addWidget(Micro, 1);
  connect(Micro, &QListWidget::itemClicked, this, &MIList::rowClicked);
  connect(Micro, &QListWidget::itemDoubleClicked, this, &MIList::rowDoubleClicked);
  connect(Micro, &QListWidget::currentRowChanged, this, [this](int row) {
    if (!rendering_) ws_.MIList.Selected = row;
  });
  connect(Micro, &MIListView::deleteRequested, this, &MIList::deleteMI);
  connect(Micro, &MIListView::copyRequested, this, &MIList::copyMI);
  connect(Micro, &MIListView::saveRequested, this, &MIList::saveSet);
  connect(Micro, &MIListView::newRequested, this, &MIList::newMI);
  // The context menu of an MI row (or a callable program's) measures it against an ideal gate.
  Micro->setContextMenuPolicy(Qt::CustomContextMenu);
  connect(Micro, &QWidget::customContextMenuRequested, this, [this](const QPoint& pos) {
    const int slot = SlotOfRow(ws_, Micro->row(Micro->itemAt(pos)));
    if (slot <= 0) return;  // an MI or a callable program of the set
    QMenu menu(this);
    QAction* fidelity = menu.addAction(QStringLiteral("Gate fidelity\u2026"));
    fidelity->setObjectName(QStringLiteral("MIListFidelity"));
    if (menu.exec(Micro->viewport()->mapToGlobal(pos)) == fidelity)
      ShowFidelityDialog(this, ws_, FidelitySubjectForMI(ws_, ws_.MITable(slot).Name));
  });

  StatusBar1 = new QStatusBar(this);
  StatusBar1->setObjectName(QStringLiteral("StatusBar1"));
  StatusBar1->setSizeGripEnabled(false);
  layout->addWidget(StatusBar1);

  ws_.MIListChanged = [this] { render(); };
  render();
}

MIList::~MIList() { ws_.MIListChanged = nullptr; }

QAction* MIList::button(int index) const {
  return index >= 0 && index < buttons_.size() ? buttons_[index] : nullptr;
}

void MIList::render() {
  rendering_ = true;
  const MIListModel& m = ws_.MIList;
  setWindowTitle(platform::FromBytes(m.Caption));
  // Rebuild only what differs, so the view keeps its scroll position for small changes.
  const int rows = static_cast<int>(m.Rows.size());
  while (Micro->count() > rows) delete Micro->takeItem(Micro->count() - 1);
  for (int r = 0; r < rows; ++r) {
    const MIListRow& row = m.Rows[r];
    QListWidgetItem* item = Micro->item(r);
    if (!item) {
      item = new QListWidgetItem(Micro);
    }
    const QString text = platform::FromBytes(row.Text);
    if (item->text() != text) item->setText(text);
    const QByteArray bytes(row.Text.data(), static_cast<qsizetype>(row.Text.size()));
    if (item->data(kRowBytesRole).toByteArray() != bytes) item->setData(kRowBytesRole, bytes);
    if (item->data(Qt::UserRole).toString().toStdString() != row.Key || item->data(Qt::UserRole + 1).toInt() != row.Icon) {
      item->setData(Qt::UserRole, QString::fromStdString(row.Key));
      item->setData(Qt::UserRole + 1, row.Icon);
      item->setIcon(OrvexIcon(row.Icon));
    }
  }
  if (m.Selected >= 0 && m.Selected < rows) {
    Micro->setCurrentRow(m.Selected);
    Micro->scrollToItem(Micro->item(m.Selected));
  } else {
    Micro->clearSelection();
    Micro->setCurrentRow(-1);
  }
  StatusBar1->showMessage(platform::FromBytes(m.Status));
  rendering_ = false;
}

void MIList::run(const std::function<void()>& command) {
  // The list is redrawn before a failure's box too, so the box stands over the table as it is.
  RunCommand([&] {
    try {
      command();
    } catch (...) {
      render();
      throw;
    }
  });
  render();
}

void MIList::openSet() { run([this] { OpenMISet(ws_, ui_); }); }
void MIList::saveSet() { run([this] { SaveMISet(ws_); }); }
void MIList::copySet() { run([this] { CopyMISet(ws_); }); }
void MIList::setNumberOfQubits() { run([this] { ChangeQubitCount(ws_, ui_); }); }
void MIList::newMI() { run([this] { NewMI(ws_, ui_); }); }
void MIList::copyMI() { run([this] { CopyMI(ws_, ui_); }); }
void MIList::sortMI() { run([this] { ui_.miSlotsMoved(RefreshMIList(ws_)); }); }
void MIList::deleteMI() { run([this] { DeleteMI(ws_, ui_); }); }
void MIList::addProgram() { run([this] { AddQuantumProgram(ws_, ui_); }); }

void MIList::rowClicked(QListWidgetItem* item) {
  ClickMIListRow(ws_, Micro->row(item));
  render();
}

void MIList::rowDoubleClicked(QListWidgetItem* item) {
  const int row = Micro->row(item);
  run([this, row] {
    ws_.MIList.Selected = row;
    OpenMIListEntry(ws_, ui_, row);
  });
}

} // namespace orvex
