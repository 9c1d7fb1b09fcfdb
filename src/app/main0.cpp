#include "app/main0.h"

#include <exception>

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QLabel>
#include <QMenuBar>
#include <QStatusBar>
#include <QToolBar>

#include "platform/gui/icons.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/mi_list_window.h"
#include "miset/gui/set_dialogs.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/set_commands.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "program/gui/default_pg.h"
#include "run/gui/fidelity_dialog.h"
#include "workspace/errors.h"
#include "workspace/paths.h"

namespace orvex {

// ---- WorkbenchUi ------------------------------------------------------------------------

bool WorkbenchUi::closeMIEditor(int editorSlot, bool save) {
  DefaultMI* editor = main_.miEditor(editorSlot);
  if (!editor) {
    // The slot's window is gone already; only the flag was left.
    main_.ws_.MIEditorOpen(editorSlot) = false;
    return true;
  }
  return editor->storeAndClose(save);
}

bool WorkbenchUi::openMIEditor(int miSlot, int editorSlot) {
  return main_.openMIEditor(miSlot, editorSlot) != nullptr;
}

void WorkbenchUi::unloadQubitWindow() {
  if (main_.unloadQubitWindow) main_.unloadQubitWindow();
}

std::optional<int> WorkbenchUi::chooseSet(const std::vector<std::string>& names, int& selected) {
  return SelectMI::Choose(names, selected, &main_);
}

std::string WorkbenchUi::askSetName(const std::string& caption) {
  return GetDirName::Ask(caption, &main_);
}

std::optional<int> WorkbenchUi::chooseQubitCount(int current) {
  return SetQubits::Choose(current, &main_);
}

void WorkbenchUi::arrangeWindows() {
  if (main_.arrangeWindows) main_.arrangeWindows();
}

void WorkbenchUi::openCallableProgram(const std::string& relativePath) {
  if (main_.openCallableProgram) main_.openCallableProgram(relativePath);
}

void WorkbenchUi::miSlotsMoved(const std::vector<int>& newIndexOf) {
  for (int s = 1; s <= kMaxMIEditors; ++s) {
    DefaultMI* editor = main_.miEditor(s);
    if (!editor) continue;
    const int old = editor->miSlot();
    if (old <= 0 || old >= static_cast<int>(newIndexOf.size())) continue;
    if (newIndexOf[old] == 0) editor->abandon();  // its MI was deleted
    else editor->setMISlot(newIndexOf[old]);
  }
}

// ---- Main0 --------------------------------------------------------------------------------

Main0::Main0(Workspace& ws, QWidget* parent) : QMainWindow(parent), ws_(ws), ui_(*this) {
  setObjectName(QStringLiteral("Main0"));
  setWindowTitle(QStringLiteral("Orvex"));
  mdi_ = new QMdiArea(this);
  mdi_->setObjectName(QStringLiteral("MDIArea"));
  mdi_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  mdi_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  setCentralWidget(mdi_);
  statusBar()->setObjectName(QStringLiteral("StatusBar"));
  runStatus_ = new QLabel(statusBar());
  runStatus_->setObjectName(QStringLiteral("RunStatus"));
  statusBar()->addWidget(runStatus_, 1);
  buildMenus();
  buildToolbar();

  // The MI list lives as long as the frame; closing it only hides it.
  miList_ = new MIList(ws_, ui_);
  miListWindow_ = new QMdiSubWindow;
  miListWindow_->setWidget(miList_);
  miListWindow_->setAttribute(Qt::WA_DeleteOnClose, false);
  miListWindow_->setWindowIcon(OrvexIcon(kIconMI));
  mdi_->addSubWindow(miListWindow_);
  miListWindow_->resize(platform::TwipsToPixels(4200, this), platform::TwipsToPixels(7200, this));
  miListWindow_->move(0, 0);
  miListWindow_->show();
  resize(platform::TwipsToPixels(18000, this), platform::TwipsToPixels(12000, this));
}

Main0::~Main0() {
  // The editors release their slots when they go; the MI list stops listening.
  ws_.MIListChanged = nullptr;
}

QAction* Main0::addItem(QMenu* menu, const char* objectName, const QString& caption) {
  QAction* a = menu->addAction(caption);
  a->setObjectName(QString::fromLatin1(objectName));
  return a;
}

void Main0::buildMenus() {
  auto menu = [this](const char* name, const QString& caption) {
    QMenu* m = menuBar()->addMenu(caption);
    m->setObjectName(QString::fromLatin1(name));
    m->menuAction()->setObjectName(QString::fromLatin1(name));
    return m;
  };

  QMenu* file = menu("MenuFile", QStringLiteral("&File"));
  addItem(file, "MenuNew", QStringLiteral("&New program"));
  addItem(file, "MenuOpen", QStringLiteral("&Open program"));
  addItem(file, "MenuSave", QStringLiteral("&Save all"));
  file->addSeparator()->setObjectName(QStringLiteral("MenuNiks"));
  connect(addItem(file, "MenuExit", QStringLiteral("Exit")), &QAction::triggered, this, &QWidget::close);

  QMenu* settings = menu("MenuSettings", QStringLiteral("&Settings"));
  addItem(settings, "MenuProp", QStringLiteral("&Orvex properties"));
  QAction* files = addItem(settings, "MenuFiles", QStringLiteral("&Create output files"));
  files->setCheckable(true);
  files->setChecked(ws_.NoOutputFiles == 0);
  connect(files, &QAction::toggled, this, [this](bool on) { ws_.NoOutputFiles = on ? 0 : 1; });
  QAction* animate = addItem(settings, "MenuShowQubits", QStringLiteral("Animate &qubits"));
  animate->setCheckable(true);
  animate->setChecked(ws_.AnimateQubits == 1);
  connect(animate, &QAction::toggled, this, [this](bool on) { ws_.AnimateQubits = on ? 1 : 0; });
  settings->addSeparator()->setObjectName(QStringLiteral("MenuNiks1"));

  auto* sizes = new QActionGroup(this);
  sizes->setExclusive(true);
  const QString sizeCaptions[] = {QStringLiteral("Sm&all size qubits"), QStringLiteral("&Normal size qubits"),
                                  QStringLiteral("&Large size qubits"), QStringLiteral("&Very large size qubits")};
  for (int i = 0; i < 4; ++i) {
    const std::string name = "MenuSize" + std::to_string(i);
    QAction* a = addItem(settings, name.c_str(), sizeCaptions[i]);
    a->setCheckable(true);
    a->setChecked(ws_.QubitSize == i);
    sizes->addAction(a);
    connect(a, &QAction::triggered, this, [this, i] { ws_.QubitSize = i; });
  }
  settings->addSeparator()->setObjectName(QStringLiteral("MenuNiks3"));

  auto* steps = new QActionGroup(this);
  steps->setExclusive(true);
  const QString stepCaptions[] = {QStringLiteral("&Program steps Only"), QStringLiteral("&Main steps only"),
                                  QStringLiteral("All &steps")};
  for (int i = 0; i < 3; ++i) {
    const std::string name = "MenuSteps" + std::to_string(i);
    QAction* a = addItem(settings, name.c_str(), stepCaptions[i]);
    a->setCheckable(true);
    a->setChecked(ws_.StepGranularity == i);
    steps->addAction(a);
    connect(a, &QAction::triggered, this, [this, i] { ws_.StepGranularity = i; });
  }
  settings->addSeparator()->setObjectName(QStringLiteral("MenuNiks4"));

  // The integrator the engine is asked for at every start (EngineFlags word 1).
  QMenu* integrator = settings->addMenu(QStringLiteral("Integrator"));
  integrator->setObjectName(QStringLiteral("MenuIntegrator"));
  integrator->menuAction()->setObjectName(QStringLiteral("MenuIntegrator"));
  auto* orders = new QActionGroup(this);
  orders->setExclusive(true);
  const struct {
    const char* name;
    const char* caption;
    std::int32_t word;
  } integrators[] = {{"MenuIntegrator0", "Second order", kIntegratorSecondOrder},
                     {"MenuIntegrator1", "Fourth order", kIntegratorFourthOrder}};
  for (const auto& item : integrators) {
    QAction* a = addItem(integrator, item.name, QString::fromLatin1(item.caption));
    a->setCheckable(true);
    a->setChecked(ws_.Integrator == item.word);
    orders->addAction(a);
    connect(a, &QAction::triggered, this, [this, word = item.word] { ws_.Integrator = word; });
  }

  QMenu* tools = menu("MenuProject", QStringLiteral("&Tools"));
  addItem(tools, "MenuRun", QStringLiteral("&Start"));
  addItem(tools, "MenuStep", QStringLiteral("&Step"));
  addItem(tools, "MenuBack", QStringLiteral("&Back"))->setEnabled(false);  // only while a program runs
  addItem(tools, "MenuReset", QStringLiteral("&Reset"));
  addItem(tools, "MenuPause", QStringLiteral("Pa&use"));
  addItem(tools, "MenuCheckAccuracy", QStringLiteral("Check &accuracy"));
  // The active program editor's program, else the MI selected in the MI list.
  connect(addItem(tools, "MenuFidelity", QStringLiteral("&Gate fidelity\u2026")), &QAction::triggered, this, [this] {
    QMdiSubWindow* current = mdi_->currentSubWindow();
    const int row = ws_.MIList.Selected;
    if (auto* editor = qobject_cast<DefaultPG*>(current ? current->widget() : nullptr))
      ShowFidelityDialog(this, ws_, FidelitySubjectForProgram(ws_, editor->slot()));
    else if (const int slot = SlotOfRow(ws_, row); current == miListWindow_ && slot > 0 && IsMIName(ws_.MITable(slot).Name))
      ShowFidelityDialog(this, ws_, FidelitySubjectForMI(ws_, ws_.MITable(slot).Name));
  });
  tools->addSeparator()->setObjectName(QStringLiteral("MenuNiks0"));
  addItem(tools, "MenuSaveP", QStringLiteral("&Save program"));
  addItem(tools, "MenuClearMI", QStringLiteral("&Update MI"));
  addItem(tools, "MenuRename", QStringLiteral("Save &program as"));

  QMenu* window = menu("MenuWindow", QStringLiteral("&Window"));
  addItem(window, "MenuArrange", QStringLiteral("&Arrange windows"));
  addItem(window, "MenuTrace", QStringLiteral("&Trace"));
  connect(addItem(window, "MenuShow", QStringLiteral("&Show micro instructions")), &QAction::triggered,
          this, &Main0::showMIList);

  QMenu* help = menu("MenuHelp", QStringLiteral("&Help"));
  addItem(help, "MenuHelp2", QStringLiteral("&Help"));
  addItem(help, "MenuAbout", QStringLiteral("&About Orvex"));
}

void Main0::buildToolbar() {
  toolbar_ = addToolBar(QStringLiteral("Toolbar1"));
  toolbar_->setObjectName(QStringLiteral("Toolbar1"));
  toolbar_->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
  toolbar_->setIconSize(QSize(24, 24));
  struct Button {
    const char* name;
    const char* caption;
    ToolIcon icon;
  };
  const Button buttons[] = {{"ToolNew", "New", ToolIcon::NewProgram},
                            {"ToolOpen", "Open", ToolIcon::OpenProgram},
                            {"ToolSaveAll", "Save all", ToolIcon::SaveAll},
                            {"ToolNewMISet", "New MI set", ToolIcon::NewMISet}};
  for (const Button& b : buttons) {
    QAction* a = toolbar_->addAction(OrvexToolIcon(b.icon), QString::fromLatin1(b.caption));
    a->setObjectName(QString::fromLatin1(b.name));
    a->setToolTip(QString::fromLatin1(b.caption));
  }
  // The first three do what the File menu items of the same name do.
  connect(action(QStringLiteral("ToolNew")), &QAction::triggered, action(QStringLiteral("MenuNew")), &QAction::trigger);
  connect(action(QStringLiteral("ToolOpen")), &QAction::triggered, action(QStringLiteral("MenuOpen")), &QAction::trigger);
  connect(action(QStringLiteral("ToolSaveAll")), &QAction::triggered, action(QStringLiteral("MenuSave")), &QAction::trigger);
  connect(action(QStringLiteral("ToolNewMISet")), &QAction::triggered, this,
          [this] { runCommand([this] { NewMISet(ws_, ui_); }); });
}

QAction* Main0::action(const QString& objectName) const {
  for (QAction* a : findChildren<QAction*>())
    if (a->objectName() == objectName) return a;
  return nullptr;
}

DefaultMI* Main0::miEditor(int slot) const {
  if (slot < 1 || slot > kMaxMIEditors) return nullptr;
  return editors_[slot - 1].data();
}

void Main0::runCommand(const std::function<void()>& command) {
  RunCommand(command);
  if (miList_) miList_->render();
}

void Main0::startUp() {
  for (int s = 1; s <= kMaxPrograms; ++s) ws_.Program(s) = ProgramSlot{};
  ws_.RunningProgram = -1;
  ws_.NoOutputFiles = 1;
  if (QAction* files = action(QStringLiteral("MenuFiles"))) files->setChecked(false);
  runCommand([this] { OpenMISet(ws_, ui_); });
}

void Main0::applyRunCommandStates(const RunCommandStates& states) {
  auto enable = [this](const char* name, bool on) {
    if (QAction* a = action(QString::fromLatin1(name))) a->setEnabled(on);
  };
  if (miListWindow_) miListWindow_->setEnabled(states.MIListWindow);
  for (QAction* a : toolbar_->actions()) a->setEnabled(states.MainToolbar);
  if (miList_)
    for (int i = 0; QAction* a = miList_->button(i); ++i) a->setEnabled(states.MIListToolbar);
  enable("MenuFile", states.FileMenu);
  enable("MenuSettings", states.SettingsMenu);
  enable("MenuWindow", states.WindowMenu);
  for (const char* name : {"MenuSize0", "MenuSize1", "MenuSize2", "MenuSize3"}) enable(name, states.SizeItems);
  for (const char* name : {"MenuSteps0", "MenuSteps1", "MenuSteps2"}) enable(name, states.StepItems);
  enable("MenuIntegrator", states.StepItems);  // like the granularity, fixed for a run
  enable("MenuBack", states.BackItem);
  enable("MenuProject", states.ToolsMenu);
  enable("MenuHelp", states.HelpMenu);
}

void Main0::setRunStatus(const QString& text) { runStatus_->setText(text); }

QString Main0::runStatus() const { return runStatus_->text(); }

void Main0::showMIList() {
  miListWindow_->show();
  miList_->show();
  mdi_->setActiveSubWindow(miListWindow_);
  miListWindow_->raise();
}

DefaultMI* Main0::openMIEditor(int miSlot, int editorSlot) {
  if (editorSlot < 1 || editorSlot > kMaxMIEditors) return nullptr;
  auto* editor = new DefaultMI(ws_, miSlot, editorSlot);
  editors_[editorSlot - 1] = editor;
  QMdiSubWindow* frame = mdi_->addSubWindow(editor);
  frame->setAttribute(Qt::WA_DeleteOnClose, true);
  frame->setWindowIcon(OrvexIcon(kIconMI));
  frame->resize(platform::TwipsToPixels(11000, this), platform::TwipsToPixels(7500, this));
  connect(editor, &DefaultMI::closed, this, [this](int slot) {
    if (slot >= 1 && slot <= kMaxMIEditors) editors_[slot - 1] = nullptr;
    if (miList_) miList_->render();
  });
  frame->show();
  mdi_->setActiveSubWindow(frame);
  return editor;
}

bool Main0::queryClose() {
  ws_.Closing = true;
  if (queryClosePrograms && !queryClosePrograms()) {
    ws_.Closing = false;
    return false;
  }
  // MI editors with unsaved edits ask for themselves; Cancel there keeps the workbench open.
  for (int s = 1; s <= kMaxMIEditors; ++s) {
    if (DefaultMI* editor = miEditor(s)) {
      QWidget* frame = editor->parentWidget() ? editor->parentWidget() : editor;
      if (!frame->close()) {
        ws_.Closing = false;
        return false;
      }
    }
  }
  return true;
}

void Main0::closeEvent(QCloseEvent* event) {
  if (queryClose()) event->accept();
  else event->ignore();
}

} // namespace orvex
