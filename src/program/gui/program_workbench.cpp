#include "program/gui/program_workbench.h"

#include <algorithm>
#include <filesystem>

#include <QAction>
#include <QCoreApplication>
#include <QElapsedTimer>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QStyle>

#include "app/about_dialog.h"
#include "app/accuracy_dialog.h"
#include "app/help.h"
#include "platform/gui/icons.h"
#include "app/main0.h"
#include "miset/miset_ui.h"
#include "platform/dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "program/gui/default_pg.h"
#include "program/program_table.h"
#include "run/run_commands.h"
#include "run/run_controller.h"
#include "run/run_directory.h"
#include "run/run_trace.h"
#include "view/gui/squbit.h"
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

ProgramWorkbench::ProgramWorkbench(Main0& main, QObject* parent)
    : QObject(parent), main_(main), ws_(main.workspace()) {
  for (const std::string& file : main_.programArguments()) {
    std::error_code ec;
    const std::filesystem::path absolute = std::filesystem::absolute(file, ec);
    programFiles_.push_back(ec ? file : absolute.lexically_normal().string());
  }
  // Program file dialogs start in the application directory, where the demo programs are.
  if (ws_.FileDialogDir.empty()) ws_.FileDialogDir = ws_.AppDir;
  connectActions();
  main_.queryClosePrograms = [this] {
    bool mayClose = false;
    command([&] { mayClose = QueryClosePrograms(ws_, *this); });
    return mayClose;
  };
  main_.openCallableProgram = [this](const std::string& relativePath) {
    command([&] { OpenCallableProgram(ws_, *this, relativePath); });
  };
  main_.arrangeWindows = [this] { arrangeWindows(); };
  main_.unloadQubitWindow = [this] { unloadQubitWindow(); };
}

ProgramWorkbench::~ProgramWorkbench() {
  main_.queryClosePrograms = nullptr;
  main_.openCallableProgram = nullptr;
  main_.arrangeWindows = nullptr;
  main_.unloadQubitWindow = nullptr;
  delete qubitWindow_.data();
  for (auto& frame : traceFrames_) delete frame.data();
  // The editors call back into this object; they go with it (without questions: the close
  // sequence has run already when the workbench ends).
  for (auto& frame : frames_) delete frame.data();
}

void ProgramWorkbench::openProgramArguments() {
  for (const std::string& file : programFiles_) command([&] { OpenProgram(ws_, *this, file); });
}

DefaultPG* ProgramWorkbench::editor(int slot) const {
  if (slot < 1 || slot > kMaxPrograms) return nullptr;
  return editors_[slot - 1].data();
}

int ProgramWorkbench::activeSlot() const {
  QMdiSubWindow* current = main_.mdi()->currentSubWindow();
  if (!current) return 0;
  for (int s = 1; s <= kMaxPrograms; ++s)
    if (frames_[s - 1] && frames_[s - 1].data() == current) return s;
  return 0;
}

// ---- RunUi ------------------------------------------------------------------------------------

void ProgramWorkbench::updateQubitDisplay(int slot) {
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

void ProgramWorkbench::processEvents() {
  // The trace of the running program grows while the call loop runs.
  if (ws_.RunningProgram > 0 && (!traceDrawn_.isValid() || traceDrawn_.elapsed() >= kLiveTraceInterval)) {
    refreshTrace(ws_.RunningProgram, false);
    traceDrawn_.restart();
  }
  QCoreApplication::processEvents();
}

TraceWindow* ProgramWorkbench::traceWindow(int slot) const {
  if (slot < 1 || slot > kMaxPrograms) return nullptr;
  return traces_[slot - 1].data();
}

TraceWindow* ProgramWorkbench::showTrace(int slot) {
  if (slot < 1 || slot > kMaxPrograms || ws_.Program(slot).Name.empty()) return nullptr;
  TraceWindow* w = traceWindow(slot);
  if (!w) {
    w = new TraceWindow(ws_, slot);
    QMdiSubWindow* frame = main_.mdi()->addSubWindow(w);
    frame->setAttribute(Qt::WA_DeleteOnClose, true);
    frame->setWindowIcon(w->style()->standardIcon(QStyle::SP_FileDialogContentsView));
    // Never beyond the frame's area: at its right edge, beside the program editors.
    const QSize area = main_.mdi()->viewport()->size();
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
  main_.mdi()->setActiveSubWindow(traceFrames_[slot - 1].data());
  return w;
}

void ProgramWorkbench::refreshTrace(int slot, bool populations) {
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

void ProgramWorkbench::enableRunCommands(int slot, bool enabled) {
  const RunCommandStates states = RunCommandStatesFor(enabled);
  if (!editor(slot) && slot >= 1 && slot <= kMaxPrograms && !ws_.Program(slot).Name.empty()) showEditor(slot);
  if (DefaultPG* e = editor(slot)) e->applyRunCommandStates(states);
  main_.applyRunCommandStates(states);
  // The animated qubit window is shown for the run.
  if (!enabled && ws_.AnimateQubits > 0) showQubitWindow();
  QCoreApplication::processEvents();
}

void ProgramWorkbench::programChanged(int slot) {
  if (DefaultPG* e = editor(slot)) e->render();
}

void ProgramWorkbench::qubitWindowFrame() {
  if (!qubitWindow_) return;
  if (ws_.RunningProgram > 0) refreshTrace(ws_.RunningProgram, false);
  qubitWindow_->Frame();
}

void ProgramWorkbench::refreshQubitWindow() {
  if (!qubitWindow_) return;
  for (int q = 1; q <= qubitWindow_->qubits(); ++q) qubitWindow_->box(q)->setTrail({});
  // The run was abandoned: every sphere back to its centre, without an arrow.
  for (int q = 1; q <= qubitWindow_->qubits(); ++q) qubitWindow_->ShowValues(q, 0.5, 0.5, 0.5);
}

void ProgramWorkbench::showRunStatus(const std::string& text) {
  main_.setRunStatus(platform::FromBytes(text));
}

void ProgramWorkbench::showEditor(int slot) {
  if (slot < 1 || slot > kMaxPrograms) return;
  DefaultPG* e = editor(slot);
  if (!e) {
    e = new DefaultPG(ws_, *this, main_.miSetUi(), slot);
    QMdiSubWindow* frame = main_.mdi()->addSubWindow(e);
    frame->setAttribute(Qt::WA_DeleteOnClose, true);
    frame->setWindowIcon(OrvexIcon(kIconStart));
    frame->resize(frame->sizeHint().expandedTo(frame->minimumSizeHint()));
    editors_[slot - 1] = e;
    frames_[slot - 1] = frame;
    e->traceRequested = [this, slot] { command([this, slot] { showTrace(slot); }); };
    connect(e, &DefaultPG::closed, this, [this](int s) {
      if (s < 1 || s > kMaxPrograms) return;
      editors_[s - 1] = nullptr;
      frames_[s - 1] = nullptr;
      // The slot's trace and its window go with the program.
      ClearTrace(ws_.Traces[static_cast<std::size_t>(s - 1)]);
      if (traceFrames_[s - 1]) traceFrames_[s - 1]->deleteLater();
    });
  }
  e->render();
  e->updateQubitDisplay();
  QMdiSubWindow* frame = frames_[slot - 1].data();
  frame->show();
  main_.mdi()->setActiveSubWindow(frame);
}

void ProgramWorkbench::arrangeWindows() {
  std::vector<QMdiSubWindow*> frames;
  for (auto& f : frames_)
    if (f && f->isVisible()) frames.push_back(f.data());
  if (frames.empty()) return;
  const QRect area = main_.mdi()->viewport()->rect();
  // The editors stand side by side to the right of the MI list, overlapping when they must.
  int left = 0;
  if (QMdiSubWindow* list = main_.miListWindow(); list && list->isVisible()) left = list->geometry().right() + 1;
  if (area.width() - left < frames.front()->minimumSizeHint().width()) left = 0;
  const int count = static_cast<int>(frames.size());
  const int available = std::max(area.width() - left, 1);
  const int minimum = frames.front()->minimumSizeHint().width();
  // A lone editor need not fill the frame: a program reads well in a column.
  int width = std::min(available / count, std::max(minimum, platform::TwipsToPixels(kArrangedWidth, main_.mdi())));
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

// ---- commands ------------------------------------------------------------------------------

void ProgramWorkbench::command(const std::function<void()>& f) { RunCommand(f); }

void ProgramWorkbench::withActiveSlot(const std::function<void(int)>& f) {
  const int slot = activeSlot();
  if (slot == 0) return;  // no program editor is the active window
  command([&] { f(slot); });
}

void ProgramWorkbench::connectAction(const char* name, std::function<void()> f) {
  QAction* a = main_.action(QString::fromLatin1(name));
  if (!a) return;
  connect(a, &QAction::triggered, this, [f = std::move(f)] { f(); });
}

void ProgramWorkbench::connectActions() {
  connectAction("MenuNew", [this] { command([this] { NewProgram(ws_, *this); }); });
  connectAction("MenuOpen", [this] { command([this] { OpenProgram(ws_, *this); }); });
  connectAction("MenuSave", [this] {
    command([this] { SaveAllPrograms(ws_, *this); });
    for (int s = 1; s <= kMaxPrograms; ++s) programChanged(s);
  });
  connectAction("MenuRun", [this] { withActiveSlot([this](int s) { RunProgram(ws_, *this, s, kModeRun); }); });
  connectAction("MenuStep", [this] { withActiveSlot([this](int s) { RunProgram(ws_, *this, s, kModeStep); }); });
  connectAction("MenuBack", [this] { command([this] { StepBack(ws_, *this, ws_.RunningProgram); }); });
  connectAction("MenuReset", [this] { withActiveSlot([this](int s) { ResetProgram(ws_, *this, s); }); });
  connectAction("MenuSaveP", [this] {
    withActiveSlot([this](int s) {
      SaveProgram(ws_, *this, s);
      programChanged(s);
    });
  });
  connectAction("MenuClearMI", [this] { clearRunDirectory(); });
  connectAction("MenuRename", [this] {
    withActiveSlot([this](int s) {
      SaveProgramAs(ws_, *this, s);
      programChanged(s);
    });
  });
  connectAction("MenuArrange", [this] { arrangeWindows(); });
  connectAction("MenuTrace", [this] { withActiveSlot([this](int s) { showTrace(s); }); });
  connectAction("MenuCheckAccuracy", [this] {
    withActiveSlot([this](int s) { CheckProgramAccuracy(&main_, ws_, *this, s); });
  });
  connectAction("MenuPause", [this] {
    if (!PauseProgram(ws_, ws_.RunningProgram)) platform::Beep();
  });
  connectAction("MenuHelp2", [this] { command([this] { ShowHelp(ws_.AppDir); }); });
  connectAction("MenuAbout", [this] {
    frmAbout about(&main_);
    about.exec();
  });
  if (QAction* animate = main_.action(QStringLiteral("MenuShowQubits"))) {
    connect(animate, &QAction::toggled, this, [this](bool on) {
      if (on) showQubitWindow();
      else unloadQubitWindow();
    });
  }
  for (const char* name : {"MenuSize0", "MenuSize1", "MenuSize2", "MenuSize3"}) {
    connectAction(name, [this] {
      if (qubitWindow_) qubitWindow_->Relayout();
    });
  }
}

void ProgramWorkbench::clearRunDirectory() {
  withActiveSlot([this](int s) {
    // A program never saved has no directory of its own yet.
    const std::string name = Lower(ws_.Program(s).Name);
    if (name.empty() || name == "new") return;
    ClearRunDirectory(ws_, s);
  });
}

void ProgramWorkbench::showQubitWindow() {
  const int n = std::clamp<int>(ws_.NumberOfQubits, 1, kMaxQubits);
  if (qubitWindow_ && qubitWindow_->qubits() != n) unloadQubitWindow();
  if (!qubitWindow_) {
    qubitWindow_ = new sQubit(ws_, n, &main_);
    // First placed at the frame's top right, clear of the menus and the MI list.
    const QPoint topRight = main_.mapToGlobal(QPoint(main_.width(), main_.mdi()->y()));
    qubitWindow_->move(std::max(0, topRight.x() - qubitWindow_->width() - 16), topRight.y() + 16);
  }
  qubitWindow_->show();
  qubitWindow_->raise();
}

void ProgramWorkbench::unloadQubitWindow() {
  if (qubitWindow_) {
    qubitWindow_->hide();
    qubitWindow_->deleteLater();
    qubitWindow_ = nullptr;
  }
}

} // namespace orvex
