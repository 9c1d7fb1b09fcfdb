// MIList: the child window that shows the open MI set. It renders ws.MIList and runs the MI
// and set commands of its tool bar and keys; rows are dragged from it into program editors.
#pragma once

#include <functional>

#include <QListWidget>
#include <QWidget>

#include "miset/miset_ui.h"
#include "workspace/workspace.h"

class QAction;
class QStatusBar;
class QToolBar;

namespace orvex {

// The list `Micro`: keys go to the window's commands, drags carry the row (mirow_mime.h).
class MIListView : public QListWidget {
  Q_OBJECT
public:
  explicit MIListView(QWidget* parent = nullptr);

signals:
  void deleteRequested();
  void copyRequested();
  void saveRequested();
  void newRequested();

protected:
  void keyPressEvent(QKeyEvent* event) override;
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QList<QListWidgetItem*>& items) const override;
};

class MIList : public QWidget {
  Q_OBJECT
public:
  MIList(Workspace& ws, MISetUi& ui, QWidget* parent = nullptr);
  ~MIList() override;

  MIListView* Micro = nullptr;
  QToolBar* Toolbar1 = nullptr;
  QStatusBar* StatusBar1 = nullptr;
  // The nine tool bar buttons in order (0 "Open MI set" ... 8 "Add Quantum Program (QP)").
  QAction* button(int index) const;

  // Redraws the rows, caption, selection and status from ws.MIList.
  void render();

  // The commands (each reports a run-time error in a critical box rather than passing it on).
  void openSet();
  void saveSet();
  void copySet();
  void setNumberOfQubits();
  void newMI();
  void copyMI();
  void sortMI();
  void deleteMI();
  void addProgram();

private:
  void run(const std::function<void()>& command);
  void rowClicked(QListWidgetItem* item);
  void rowDoubleClicked(QListWidgetItem* item);

  Workspace& ws_;
  MISetUi& ui_;
  QList<QAction*> buttons_;
  bool rendering_ = false;
};

} // namespace orvex
