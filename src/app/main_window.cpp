#include "app/main_window.h"

#include <algorithm>
#include <filesystem>

#include <QAction>
#include <QActionGroup>
#include <QCloseEvent>
#include <QCoreApplication>
#include <QLabel>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMenuBar>
#include <QStatusBar>
#include <QStyle>
#include <QToolBar>

#include "app/about_dialog.h"
#include "app/accuracy_dialog.h"
#include "app/help.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/mi_list_window.h"
#include "miset/mi_list.h"
#include "miset/open_miset.h"
#include "miset/set_commands.h"
#include "platform/dialogs.h"
#include "platform/gui/icons.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "program/gui/default_pg.h"
#include "program/program_table.h"
#include "run/gui/fidelity_dialog.h"
#include "run/run_controller.h"
#include "run/run_directory.h"
#include "run/run_trace.h"
#include "view/gui/squbit.h"
#include "view/gui/trace_window.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"

namespace orvex {

namespace {
// The widest an arranged program editor gets, in twips.
constexpr int kArrangedWidth = 5400;
// The most recent trace points a sphere's trail shows.
constexpr std::size_t kTrailPoints = 240;
// While the call loop runs, the trace window is redrawn at most this often (ms).
constexpr qint64 kLiveTraceInterval = 100;
} // namespace

MainWindow::MainWindow(Workspace& ws, QWidget* parent)
    : QMainWindow(parent), ws_(ws), ui_(*this), runUi_(*this) {
  setObjectName(QStringLiteral("Main0"));
  setWindowTitle(QStringLiteral("Orvex"));
  mdi_ = new QMdiArea(this);
  mdi_->setObjectName(QStringLiteral("MDIArea"));
  mdi_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  mdi_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  setCentralWidget(mdi_);
  // Program file dialogs start in the application directory, where the demo programs are.
  if (ws_.FileDialogDir.empty()) ws_.FileDialogDir = ws_.AppDir;

  createActions();
  createMenus();
  createToolBars();
  createStatusBar();

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

  connect(mdi_, &QMdiArea::subWindowActivated, this, &MainWindow::updateMenus);
  updateMenus();
}

MainWindow::~MainWindow() {
  // The child windows go first, while the ports they call are still here; no activation
  // they cause on the way reaches updateMenus.
  disconnect(mdi_, nullptr, this, nullptr);
  delete qubitWindow_.data();
  for (auto& frame : traceFrames_) delete frame.data();
  // Without questions: the close sequence has run already when the workbench ends.
  for (auto& frame : frames_) delete frame.data();
  for (auto& editor : miEditors_)
    if (editor) delete (editor->parentWidget() ? editor->parentWidget() : editor.data());
  ws_.MIListChanged = nullptr;
}

// ---- actions, menus, tool bar --------------------------------------------------------------

QAction* MainWindow::newAction(const char* objectName, const QString& caption) {
  auto* a = new QAction(caption, this);
  a->setObjectName(QString::fromLatin1(objectName));
  return a;
}

void MainWindow::createActions() {
  newAct_ = newAction("MenuNew", QStringLiteral("&New program"));
  connect(newAct_, &QAction::triggered, this, &MainWindow::newProgram);
  openAct_ = newAction("MenuOpen", QStringLiteral("&Open program"));
  connect(openAct_, &QAction::triggered, this, &MainWindow::openProgram);
  saveAllAct_ = newAction("MenuSave", QStringLiteral("&Save all"));
  connect(saveAllAct_, &QAction::triggered, this, &MainWindow::saveAllPrograms);
  exitAct_ = newAction("MenuExit", QStringLiteral("Exit"));
  connect(exitAct_, &QAction::triggered, this, &QWidget::close);

  // A caption item without an action of its own.
  propertiesAct_ = newAction("MenuProp", QStringLiteral("&Orvex properties"));
  outputFilesAct_ = newAction("MenuFiles", QStringLiteral("&Create output files"));
  outputFilesAct_->setCheckable(true);
  outputFilesAct_->setChecked(ws_.NoOutputFiles == 0);
  connect(outputFilesAct_, &QAction::toggled, this, [this](bool on) { ws_.NoOutputFiles = on ? 0 : 1; });
  animateAct_ = newAction("MenuShowQubits", QStringLiteral("Animate &qubits"));
  animateAct_->setCheckable(true);
  animateAct_->setChecked(ws_.AnimateQubits == 1);
  connect(animateAct_, &QAction::toggled, this, &MainWindow::animateQubits);

  auto* sizes = new QActionGroup(this);
  sizes->setExclusive(true);
  const QString sizeCaptions[] = {QStringLiteral("Sm&all size qubits"), QStringLiteral("&Normal size qubits"),
                                  QStringLiteral("&Large size qubits"), QStringLiteral("&Very large size qubits")};
  for (int i = 0; i < 4; ++i) {
    QAction* a = newAction(("MenuSize" + std::to_string(i)).c_str(), sizeCaptions[i]);
    a->setCheckable(true);
    a->setChecked(ws_.QubitSize == i);
    sizes->addAction(a);
    connect(a, &QAction::triggered, this, [this, i] {
      ws_.QubitSize = i;
      qubitSizeChosen();
    });
    sizeActs_[i] = a;
  }

  auto* steps = new QActionGroup(this);
  steps->setExclusive(true);
  const QString stepCaptions[] = {QStringLiteral("&Program steps Only"), QStringLiteral("&Main steps only"),
                                  QStringLiteral("All &steps")};
  for (int i = 0; i < 3; ++i) {
    QAction* a = newAction(("MenuSteps" + std::to_string(i)).c_str(), stepCaptions[i]);
    a->setCheckable(true);
    a->setChecked(ws_.StepGranularity == i);
    steps->addAction(a);
    connect(a, &QAction::triggered, this, [this, i] { ws_.StepGranularity = i; });
    stepActs_[i] = a;
  }

  // The integrator the engine is asked for at every start (EngineFlags word 1).
  auto* orders = new QActionGroup(this);
  orders->setExclusive(true);
  const struct {
    const char* name;
    const char* caption;
    std::int32_t word;
  } integrators[] = {{"MenuIntegrator0", "Second order", kIntegratorSecondOrder},
                     {"MenuIntegrator1", "Fourth order", kIntegratorFourthOrder}};
  for (std::size_t i = 0; i < integratorActs_.size(); ++i) {
    QAction* a = newAction(integrators[i].name, QString::fromLatin1(integrators[i].caption));
    a->setCheckable(true);
    a->setChecked(ws_.Integrator == integrators[i].word);
    orders->addAction(a);
    connect(a, &QAction::triggered, this, [this, word = integrators[i].word] { ws_.Integrator = word; });
    integratorActs_[i] = a;
  }

  startAct_ = newAction("MenuRun", QStringLiteral("&Start"));
  connect(startAct_, &QAction::triggered, this, [this] { startProgram(kModeRun); });
  stepAct_ = newAction("MenuStep", QStringLiteral("&Step"));
  connect(stepAct_, &QAction::triggered, this, [this] { startProgram(kModeStep); });
  backAct_ = newAction("MenuBack", QStringLiteral("&Back"));
  connect(backAct_, &QAction::triggered, this, &MainWindow::stepBack);
  resetAct_ = newAction("MenuReset", QStringLiteral("&Reset"));
  connect(resetAct_, &QAction::triggered, this, &MainWindow::resetProgram);
  pauseAct_ = newAction("MenuPause", QStringLiteral("Pa&use"));
  connect(pauseAct_, &QAction::triggered, this, &MainWindow::pauseProgram);
  accuracyAct_ = newAction("MenuCheckAccuracy", QStringLiteral("Check &accuracy"));
  connect(accuracyAct_, &QAction::triggered, this, &MainWindow::checkAccuracy);
  fidelityAct_ = newAction("MenuFidelity", QStringLiteral("&Gate fidelity\u2026"));
  connect(fidelityAct_, &QAction::triggered, this, &MainWindow::gateFidelity);
  saveProgramAct_ = newAction("MenuSaveP", QStringLiteral("&Save program"));
  connect(saveProgramAct_, &QAction::triggered, this, &MainWindow::saveProgram);
  clearMIAct_ = newAction("MenuClearMI", QStringLiteral("&Update MI"));
  connect(clearMIAct_, &QAction::triggered, this, &MainWindow::clearRunDirectory);
  saveAsAct_ = newAction("MenuRename", QStringLiteral("Save &program as"));
  connect(saveAsAct_, &QAction::triggered, this, &MainWindow::saveProgramAs);

  arrangeAct_ = newAction("MenuArrange", QStringLiteral("&Arrange windows"));
  connect(arrangeAct_, &QAction::triggered, this, &MainWindow::arrangeWindows);
  traceAct_ = newAction("MenuTrace", QStringLiteral("&Trace"));
  connect(traceAct_, &QAction::triggered, this, &MainWindow::showActiveTrace);
  showMIAct_ = newAction("MenuShow", QStringLiteral("&Show micro instructions"));
  connect(showMIAct_, &QAction::triggered, this, &MainWindow::showMIList);

  helpAct_ = newAction("MenuHelp2", QStringLiteral("&Help"));
  connect(helpAct_, &QAction::triggered, this, &MainWindow::showHelp);
  aboutAct_ = newAction("MenuAbout", QStringLiteral("&About Orvex"));
  connect(aboutAct_, &QAction::triggered, this, &MainWindow::about);

  // The tool bar's buttons; the first three do what the File menu items of the same name do.
  struct Button {
    const char* name;
    const char* caption;
    ToolIcon icon;
    void (MainWindow::*command)();
  };
  const Button buttons[] = {{"ToolNew", "New", ToolIcon::NewProgram, &MainWindow::newProgram},
                            {"ToolOpen", "Open", ToolIcon::OpenProgram, &MainWindow::openProgram},
                            {"ToolSaveAll", "Save all", ToolIcon::SaveAll, &MainWindow::saveAllPrograms},
                            {"ToolNewMISet", "New MI set", ToolIcon::NewMISet, &MainWindow::newMISet}};
  for (std::size_t i = 0; i < toolActs_.size(); ++i) {
    QAction* a = newAction(buttons[i].name, QString::fromLatin1(buttons[i].caption));
    a->setIcon(OrvexToolIcon(buttons[i].icon));
    a->setToolTip(QString::fromLatin1(buttons[i].caption));
    connect(a, &QAction::triggered, this, buttons[i].command);
    toolActs_[i] = a;
  }
}

void MainWindow::createMenus() {
  auto menu = [this](QMenu* parentMenu, const char* name, const QString& caption) {
    QMenu* m = parentMenu ? parentMenu->addMenu(caption) : menuBar()->addMenu(caption);
    m->setObjectName(QString::fromLatin1(name));
    m->menuAction()->setObjectName(QString::fromLatin1(name));
    return m;
  };

  fileMenu_ = menu(nullptr, "MenuFile", QStringLiteral("&File"));
  fileMenu_->addActions({newAct_, openAct_, saveAllAct_});
  fileMenu_->addSeparator()->setObjectName(QStringLiteral("MenuNiks"));
  fileMenu_->addAction(exitAct_);

  settingsMenu_ = menu(nullptr, "MenuSettings", QStringLiteral("&Settings"));
  settingsMenu_->addActions({propertiesAct_, outputFilesAct_, animateAct_});
  settingsMenu_->addSeparator()->setObjectName(QStringLiteral("MenuNiks1"));
  for (QAction* a : sizeActs_) settingsMenu_->addAction(a);
  settingsMenu_->addSeparator()->setObjectName(QStringLiteral("MenuNiks3"));
  for (QAction* a : stepActs_) settingsMenu_->addAction(a);
  settingsMenu_->addSeparator()->setObjectName(QStringLiteral("MenuNiks4"));
  integratorMenu_ = menu(settingsMenu_, "MenuIntegrator", QStringLiteral("Integrator"));
  for (QAction* a : integratorActs_) integratorMenu_->addAction(a);

  toolsMenu_ = menu(nullptr, "MenuProject", QStringLiteral("&Tools"));
  toolsMenu_->addActions({startAct_, stepAct_, backAct_, resetAct_, pauseAct_, accuracyAct_, fidelityAct_});
  toolsMenu_->addSeparator()->setObjectName(QStringLiteral("MenuNiks0"));
  toolsMenu_->addActions({saveProgramAct_, clearMIAct_, saveAsAct_});

  windowMenu_ = menu(nullptr, "MenuWindow", QStringLiteral("&Window"));
  windowMenu_->addActions({arrangeAct_, traceAct_, showMIAct_});

  helpMenu_ = menu(nullptr, "MenuHelp", QStringLiteral("&Help"));
  helpMenu_->addActions({helpAct_, aboutAct_});
}

void MainWindow::createToolBars() {
  toolbar_ = addToolBar(QStringLiteral("Toolbar1"));
  toolbar_->setObjectName(QStringLiteral("Toolbar1"));
  toolbar_->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
  toolbar_->setIconSize(QSize(24, 24));
  for (QAction* a : toolActs_) toolbar_->addAction(a);
}

void MainWindow::createStatusBar() {
  statusBar()->setObjectName(QStringLiteral("StatusBar"));
  runStatus_ = new QLabel(statusBar());
  runStatus_->setObjectName(QStringLiteral("RunStatus"));
  statusBar()->addWidget(runStatus_, 1);
}

QAction* MainWindow::action(const QString& objectName) const {
  for (QAction* a : findChildren<QAction*>())
    if (a->objectName() == objectName) return a;
  return nullptr;
}

void MainWindow::applyRunCommandStates(const RunCommandStates& states) {
  runStates_ = states;
  updateMenus();
}

void MainWindow::updateMenus() {
  const RunCommandStates& s = runStates_;
  // While a program runs or is halted the commands that would change the workspace under the
  // engine are off: the menus as a whole, the size and step items, both tool bars and the MI
  // list; "&Back" is on exactly then.
  fileMenu_->menuAction()->setEnabled(s.FileMenu);
  settingsMenu_->menuAction()->setEnabled(s.SettingsMenu);
  windowMenu_->menuAction()->setEnabled(s.WindowMenu);
  toolsMenu_->menuAction()->setEnabled(s.ToolsMenu);
  helpMenu_->menuAction()->setEnabled(s.HelpMenu);
  for (QAction* a : sizeActs_) a->setEnabled(s.SizeItems);
  for (QAction* a : stepActs_) a->setEnabled(s.StepItems);
  integratorMenu_->menuAction()->setEnabled(s.StepItems);  // like the granularity, fixed for a run
  for (QAction* a : toolActs_) a->setEnabled(s.MainToolbar);
  backAct_->setEnabled(s.BackItem);
  pauseAct_->setEnabled(s.BackItem);
  if (miListWindow_) miListWindow_->setEnabled(s.MIListWindow);
  if (miList_)
    for (int i = 0; QAction* a = miList_->button(i); ++i) a->setEnabled(s.MIListToolbar);

  // The program commands act on the active program editor; "&Update MI" clears the run
  // directory, which a program never saved does not have yet.
  const int slot = activeSlot();
  const bool program = slot > 0;
  for (QAction* a : {startAct_, stepAct_, resetAct_, accuracyAct_, saveProgramAct_, saveAsAct_, traceAct_})
    a->setEnabled(program);
  clearMIAct_->setEnabled(program && hasRunDirectory(slot));
  // Gate fidelity: of the active program, or of the MI selected in the MI list.
  QMdiSubWindow* current = mdi_->currentSubWindow();
  fidelityAct_->setEnabled(program || (current && current == miListWindow_));
}

// ---- start-up and closing ------------------------------------------------------------------

void MainWindow::startUp() {
  for (int s = 1; s <= kMaxPrograms; ++s) ws_.Program(s) = ProgramSlot{};
  ws_.RunningProgram = -1;
  ws_.NoOutputFiles = 1;
  outputFilesAct_->setChecked(false);
  setCommand([this] { OpenMISet(ws_, ui_); });
}

void MainWindow::setProgramArguments(const std::vector<std::string>& files) {
  programFiles_.clear();
  for (const std::string& file : files) {
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(file, ec);
    programFiles_.push_back(ec ? file : absolute.lexically_normal().string());
  }
}

void MainWindow::openProgramArguments() {
  for (const std::string& file : programFiles_) command([&] { OpenProgram(ws_, runUi_, file); });
}

bool MainWindow::queryClose() {
  ws_.Closing = true;
  bool mayClose = false;
  command([&] { mayClose = QueryClosePrograms(ws_, runUi_); });
  if (!mayClose) {
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

void MainWindow::closeEvent(QCloseEvent* event) {
  if (queryClose()) event->accept();
  else event->ignore();
}

// ---- child windows ----------------------------------------------------------------------------

DefaultMI* MainWindow::miEditor(int slot) const {
  if (slot < 1 || slot > kMaxMIEditors) return nullptr;
  return miEditors_[slot - 1].data();
}

DefaultPG* MainWindow::editor(int slot) const {
  if (slot < 1 || slot > kMaxPrograms) return nullptr;
  return editors_[slot - 1].data();
}

sQubit* MainWindow::qubitWindow() const { return qubitWindow_.data(); }

int MainWindow::activeSlot() const {
  QMdiSubWindow* current = mdi_->currentSubWindow();
  if (!current) return 0;
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (frames_[s - 1] && frames_[s - 1].data() == current) return s;
  return 0;
}

void MainWindow::setRunStatus(const QString& text) { runStatus_->setText(text); }

QString MainWindow::runStatus() const { return runStatus_->text(); }

void MainWindow::showMIList() {
  miListWindow_->show();
  miList_->show();
  mdi_->setActiveSubWindow(miListWindow_);
  miListWindow_->raise();
}

DefaultMI* MainWindow::openMIEditor(int miSlot, int editorSlot) {
  if (editorSlot < 1 || editorSlot > kMaxMIEditors) return nullptr;
  auto* editor = new DefaultMI(ws_, miSlot, editorSlot);
  miEditors_[editorSlot - 1] = editor;
  QMdiSubWindow* frame = mdi_->addSubWindow(editor);
  frame->setAttribute(Qt::WA_DeleteOnClose, true);
  frame->setWindowIcon(OrvexIcon(kIconMI));
  frame->resize(platform::TwipsToPixels(11000, this), platform::TwipsToPixels(7500, this));
  connect(editor, &DefaultMI::closed, this, [this](int slot) {
    if (slot >= 1 && slot <= kMaxMIEditors) miEditors_[slot - 1] = nullptr;
    if (miList_) miList_->render();
  });
  frame->show();
  mdi_->setActiveSubWindow(frame);
  return editor;
}

void MainWindow::openCallableProgram(const std::string& relativePath) {
  command([&] { OpenCallableProgram(ws_, runUi_, relativePath); });
}

void MainWindow::showEditor(int slot) {
  if (slot < 1 || slot > kMaxPrograms) return;
  DefaultPG* e = editor(slot);
  if (!e) {
    e = new DefaultPG(ws_, runUi_, ui_, slot);
    QMdiSubWindow* frame = mdi_->addSubWindow(e);
    frame->setAttribute(Qt::WA_DeleteOnClose, true);
    frame->setWindowIcon(OrvexIcon(kIconStart));
    frame->resize(frame->sizeHint().expandedTo(frame->minimumSizeHint()));
    editors_[slot - 1] = e;
    frames_[slot - 1] = frame;
    connect(e, &DefaultPG::traceRequested, this, [this, slot] { command([this, slot] { showTrace(slot); }); });
    connect(e, &DefaultPG::closed, this, &MainWindow::editorClosed);
  }
  e->render();
  e->updateQubitDisplay();
  QMdiSubWindow* frame = frames_[slot - 1].data();
  frame->show();
  mdi_->setActiveSubWindow(frame);
  // The editor may have been the active window already, its program now another one.
  updateMenus();
}

void MainWindow::editorClosed(int slot) {
  if (slot < 1 || slot > kMaxPrograms) return;
  editors_[slot - 1] = nullptr;
  frames_[slot - 1] = nullptr;
  // The slot's trace and its window go with the program.
  ClearTrace(ws_.Traces[static_cast<std::size_t>(slot - 1)]);
  if (traceFrames_[slot - 1]) traceFrames_[slot - 1]->deleteLater();
  updateMenus();
}

void MainWindow::arrangeWindows() {
  std::vector<QMdiSubWindow*> frames;
  for (auto& f : frames_)
    if (f && f->isVisible()) frames.push_back(f.data());
  if (frames.empty()) return;
  const QRect area = mdi_->viewport()->rect();
  // The editors stand side by side to the right of the MI list, overlapping when they must.
  int left = 0;
  if (miListWindow_ && miListWindow_->isVisible()) left = miListWindow_->geometry().right() + 1;
  if (area.width() - left < frames.front()->minimumSizeHint().width()) left = 0;
  const int count = static_cast<int>(frames.size());
  const int available = std::max(area.width() - left, 1);
  const int minimum = frames.front()->minimumSizeHint().width();
  // A lone editor need not fill the frame: a program reads well in a column.
  int width = std::min(available / count, std::max(minimum, platform::TwipsToPixels(kArrangedWidth, mdi_)));
  int step = width;
  if (width < minimum) {
    width = std::min(minimum, available);
    step = count > 1 ? std::max((available - width) / (count - 1), 8) : 0;
  }
  const int height = std::max(area.height(), frames.front()->minimumSizeHint().height());
  for (int i = 0; i < count; ++i) {
    frames[i]->setGeometry(left + i * step, 0, width, height);
    frames[i]->raise();
  }
}

TraceWindow* MainWindow::traceWindow(int slot) const {
  if (slot < 1 || slot > kMaxPrograms) return nullptr;
  return traces_[slot - 1].data();
}

TraceWindow* MainWindow::showTrace(int slot) {
  if (slot < 1 || slot > kMaxPrograms || ws_.Program(slot).Name.empty()) return nullptr;
  TraceWindow* w = traceWindow(slot);
  if (!w) {
    w = new TraceWindow(ws_, slot);
    QMdiSubWindow* frame = mdi_->addSubWindow(w);
    frame->setAttribute(Qt::WA_DeleteOnClose, true);
    frame->setWindowIcon(w->style()->standardIcon(QStyle::SP_FileDialogContentsView));
    // Never beyond the frame's area: at its right edge, beside the program editors.
    const QSize area = mdi_->viewport()->size();
    frame->resize(w->size().boundedTo(area));
    frame->move(std::max(0, area.width() - frame->width()), 0);
    traces_[slot - 1] = w;
    traceFrames_[slot - 1] = frame;
    // While the window is open, runs keep a record of every main step for it.
    connect(frame, &QObject::destroyed, this, [this, slot] {
      ws_.Traces[static_cast<std::size_t>(slot - 1)].Wanted = false;
    });
  }
  ws_.Traces[static_cast<std::size_t>(slot - 1)].Wanted = true;
  w->refresh(true);
  traceFrames_[slot - 1]->show();
  mdi_->setActiveSubWindow(traceFrames_[slot - 1].data());
  return w;
}

void MainWindow::refreshTrace(int slot, bool populations) {
  if (slot < 1 || slot > kMaxPrograms) return;
  if (TraceWindow* w = traceWindow(slot)) {
    w->refresh();
    if (populations && !ws_.EngineBusy) w->refreshPopulations();
  }
  // The spheres show the trail of the program whose run is on (or just ended).
  if (!qubitWindow_ || (ws_.RunningProgram != -1 && ws_.RunningProgram != slot)) return;
  const ProgramTrace& trace = ws_.Traces[static_cast<std::size_t>(slot - 1)];
  const std::size_t first = trace.Points.size() > kTrailPoints ? trace.Points.size() - kTrailPoints : 0;
  for (int q = 1; q <= qubitWindow_->qubits(); ++q) {
    std::vector<std::array<double, 3>> trail;
    if (q <= trace.Qubits) {
      trail.reserve(trace.Points.size() - first);
      for (std::size_t k = first; k < trace.Points.size(); ++k) {
        const auto& Q = trace.Points[k].Q;
        trail.push_back({Q[3 * (q - 1)], Q[3 * (q - 1) + 1], Q[3 * (q - 1) + 2]});
      }
    }
    qubitWindow_->box(q)->setTrail(std::move(trail));
  }
}

void MainWindow::showQubitWindow() {
  const int n = std::clamp<int>(ws_.NumberOfQubits, 1, kMaxQubits);
  if (qubitWindow_ && qubitWindow_->qubits() != n) unloadQubitWindow();
  if (!qubitWindow_) {
    qubitWindow_ = new sQubit(ws_, n, this);
    // First placed at the frame's top right, clear of the menus and the MI list.
    const QPoint topRight = mapToGlobal(QPoint(width(), mdi_->y()));
    qubitWindow_->move(std::max(0, topRight.x() - qubitWindow_->width() - 16), topRight.y() + 16);
  }
  qubitWindow_->show();
  qubitWindow_->raise();
}

void MainWindow::unloadQubitWindow() {
  if (qubitWindow_) {
    qubitWindow_->hide();
    qubitWindow_->deleteLater();
    qubitWindow_ = nullptr;
  }
}

// ---- the run's view of the windows ----------------------------------------------------------

void MainWindow::updateQubitDisplay(int slot) {
  if (DefaultPG* e = editor(slot)) e->updateQubitDisplay();
  refreshTrace(slot, true);
  // The qubit window shows the program whose run is on (or the one just ended) the way its
  // boxes do: after a halt, a Back, a reset, a failed start. A program without values (none
  // yet, or reset) leaves every sphere at its centre.
  if (!qubitWindow_ || (ws_.RunningProgram != -1 && ws_.RunningProgram != slot)) return;
  const int shown = ws_.ProgramQubits(slot);
  for (int q = 1; q <= qubitWindow_->qubits(); ++q) {
    if (q <= shown) qubitWindow_->ShowValues(q, ws_.QubitX(slot, q), ws_.QubitY(slot, q), ws_.QubitZ(slot, q));
    else qubitWindow_->ShowValues(q, 0.5, 0.5, 0.5);
  }
}

void MainWindow::processEvents() {
  // The trace of the running program grows while the call loop runs.
  if (ws_.RunningProgram > 0 && (!traceDrawn_.isValid() || traceDrawn_.elapsed() >= kLiveTraceInterval)) {
    refreshTrace(ws_.RunningProgram, false);
    traceDrawn_.restart();
  }
  QCoreApplication::processEvents();
}

void MainWindow::enableRunCommands(int slot, bool enabled) {
  const RunCommandStates states = RunCommandStatesFor(enabled);
  if (!editor(slot) && slot >= 1 && slot <= kMaxPrograms && !ws_.Program(slot).Name.empty()) showEditor(slot);
  if (DefaultPG* e = editor(slot)) e->applyRunCommandStates(states);
  applyRunCommandStates(states);
  // The animated qubit window is shown for the run.
  if (!enabled && ws_.AnimateQubits > 0) showQubitWindow();
  QCoreApplication::processEvents();
}

void MainWindow::programChanged(int slot) {
  if (DefaultPG* e = editor(slot)) e->render();
  // A first save gives the program the directory "&Update MI" needs.
  if (slot == activeSlot()) updateMenus();
}

void MainWindow::qubitWindowFrame() {
  if (!qubitWindow_) return;
  if (ws_.RunningProgram > 0) refreshTrace(ws_.RunningProgram, false);
  qubitWindow_->Frame();
}

void MainWindow::refreshQubitWindow() {
  if (!qubitWindow_) return;
  // The run was abandoned: every sphere back to its centre, without an arrow or a trail.
  for (int q = 1; q <= qubitWindow_->qubits(); ++q) {
    qubitWindow_->box(q)->setTrail({});
    qubitWindow_->ShowValues(q, 0.5, 0.5, 0.5);
  }
}

// ---- commands ---------------------------------------------------------------------------------

void MainWindow::command(const std::function<void()>& f) { RunCommand(f); }

void MainWindow::setCommand(const std::function<void()>& f) {
  RunCommand(f);
  if (miList_) miList_->render();
}

bool MainWindow::hasRunDirectory(int slot) const {
  // A program never saved ("New") has no directory of its own yet.
  const std::string name = Lower(ws_.Program(slot).Name);
  return !name.empty() && name != "new";
}

void MainWindow::withActiveSlot(const std::function<void(int)>& f) {
  const int slot = activeSlot();
  if (slot == 0) return;  // no program editor is the active window
  command([&] { f(slot); });
}

void MainWindow::newProgram() {
  command([this] { NewProgram(ws_, runUi_); });
}

void MainWindow::openProgram() {
  command([this] { OpenProgram(ws_, runUi_); });
}

void MainWindow::saveAllPrograms() {
  command([this] { SaveAllPrograms(ws_, runUi_); });
  for (int s = 1; s <= kMaxPrograms; ++s) programChanged(s);
}

void MainWindow::newMISet() {
  setCommand([this] { NewMISet(ws_, ui_); });
}

void MainWindow::startProgram(int mode) {
  withActiveSlot([this, mode](int s) { RunProgram(ws_, runUi_, s, mode); });
}

void MainWindow::stepBack() {
  command([this] { StepBack(ws_, runUi_, ws_.RunningProgram); });
}

void MainWindow::resetProgram() {
  withActiveSlot([this](int s) { ResetProgram(ws_, runUi_, s); });
}

void MainWindow::pauseProgram() {
  if (!PauseProgram(ws_, ws_.RunningProgram)) platform::Beep();
}

void MainWindow::checkAccuracy() {
  withActiveSlot([this](int s) { CheckProgramAccuracy(this, ws_, runUi_, s); });
}

void MainWindow::gateFidelity() {
  // The active program editor's program, else the MI selected in the MI list.
  QMdiSubWindow* current = mdi_->currentSubWindow();
  const int row = ws_.MIList.Selected;
  if (const int slot = activeSlot(); slot > 0)
    ShowFidelityDialog(this, ws_, FidelitySubjectForProgram(ws_, slot));
  else if (const int mi = SlotOfRow(ws_, row); current == miListWindow_ && mi > 0 && IsMIName(ws_.MITable(mi).Name))
    ShowFidelityDialog(this, ws_, FidelitySubjectForMI(ws_, ws_.MITable(mi).Name));
}

void MainWindow::saveProgram() {
  withActiveSlot([this](int s) {
    SaveProgram(ws_, runUi_, s);
    programChanged(s);
  });
}

void MainWindow::clearRunDirectory() {
  withActiveSlot([this](int s) {
    if (hasRunDirectory(s)) ClearRunDirectory(ws_, s);
  });
}

void MainWindow::saveProgramAs() {
  withActiveSlot([this](int s) {
    SaveProgramAs(ws_, runUi_, s);
    programChanged(s);
  });
}

void MainWindow::showActiveTrace() {
  withActiveSlot([this](int s) { showTrace(s); });
}

void MainWindow::showHelp() {
  command([this] { ShowHelp(ws_.AppDir); });
}

void MainWindow::about() {
  frmAbout box(this);
  box.exec();
}

void MainWindow::animateQubits(bool on) {
  ws_.AnimateQubits = on ? 1 : 0;
  if (on) showQubitWindow();
  else unloadQubitWindow();
}

void MainWindow::qubitSizeChosen() {
  if (qubitWindow_) qubitWindow_->Relayout();
}

} // namespace orvex
