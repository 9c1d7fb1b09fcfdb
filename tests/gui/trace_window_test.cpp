// The trace window, the populations, the spheres' trails and Pause in the workbench, drawn
// offscreen: curves and bars are looked for in the pixels where their data are.
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>

#include <QBarCategoryAxis>
#include <QBarSet>
#include <QChart>
#include <QChartView>
#include <QCheckBox>
#include <QImage>
#include <QLabel>
#include <QLineSeries>
#include <QProgressBar>
#include <QProgressDialog>
#include <QTableWidget>
#include <QTabWidget>
#include <QValueAxis>

#include "app/accuracy_dialog.h"
#include "main_window_fixture.h"
#include "run/run_controller.h"
#include "workspace/file_bytes.h"
#include "view/gui/sphere_renderer.h"
#include "view/gui/squbit.h"
#include "view/gui/trace_window.h"

namespace orvex::test {
namespace {

namespace fs = std::filesystem;

// True when a pixel within `radius` of `at` is within 40 of `colour` in every channel.
bool ColourNear(const QImage& image, QPoint at, const QColor& colour, int radius = 3) {
  for (int dy = -radius; dy <= radius; ++dy)
    for (int dx = -radius; dx <= radius; ++dx) {
      const QPoint p = at + QPoint(dx, dy);
      if (!image.rect().contains(p)) continue;
      const QColor c = image.pixelColor(p);
      if (std::abs(c.red() - colour.red()) < 40 && std::abs(c.green() - colour.green()) < 40 &&
          std::abs(c.blue() - colour.blue()) < 40)
        return true;
    }
  return false;
}

// Where the data point `value` of `series` lands in the view's own pixels.
QPoint ViewPixel(QChartView* view, const QPointF& value, QAbstractSeries* series) {
  QChart* chart = view->chart();
  return view->mapFromScene(chart->mapToScene(chart->mapToPosition(value, series)));
}

class TraceWindowTest : public MainWindowTest {
protected:
  explicit TraceWindowTest(const char* engine = "ORVEX_FAKE_EXTRAS_ENGINE") : MainWindowTest(engine) {}

  // The demo set with A lasting two main steps of 1, and the program INITIALIZE, A,
  // Breakpoint, B opened in an editor.
  int openProgram(ScriptedDialogs& dialogs) {
    writeDemoSet();
    dir.write("app/MI/demo/A.MI", "NUMBER OF FIELD STEPS\r\n2\r\nEND\r\nTIME STEP\r\n1\r\nEND\r\n");
    start("demo");
    return openThroughMenu(dialogs, writeProgram("progs/p.kvp", {"@INITIALIZE.MI", "@A.MI", "!BREAKPOINT", "@B.MI"}));
  }

  ProgramTrace& trace(int slot) { return ws.Traces[static_cast<std::size_t>(slot - 1)]; }
};

TEST_F(TraceWindowTest, CurvesFollowTheRunBackAndResetAndExport) {
  ScriptedDialogs dialogs;
  const int slot = openProgram(dialogs);
  ASSERT_EQ(slot, 1);
  // Qubit 1's z goes 0 -> 0.5 -> 1 (sigma_z 1, 0, -1) at t = 0, 1, 2; the run halts at t = 2.
  script("0 1 1 0\nT 0 .5 .5 0 .5 .5 0\nT 1 .5 .5 .5 .5 .5 0\n"
         "0 1 0 0 .5 .5 1 .5 .5 0\nT 2 .5 .5 1 .5 .5 0\n"
         "0 0 0 0\nT 3 .5 .5 1 .5 .5 1\n");
  editor(slot).TraceButton->trigger();
  TraceWindow* w = main->traceWindow(slot);
  ASSERT_NE(w, nullptr);
  w->component(0)->setChecked(false);
  w->component(1)->setChecked(false);

  editor(slot).button(kButtonRun)->trigger();
  ASSERT_EQ(ws.Program(slot).Status, "Program halted");
  QLineSeries* z1 = w->series(1, 2);
  ASSERT_NE(z1, nullptr);
  ASSERT_EQ(z1->count(), 3);
  EXPECT_DOUBLE_EQ(z1->at(1).y(), 0);  // <sigma_z> = 1 - 2Q
  EXPECT_FALSE(w->findChild<QLabel*>(QStringLiteral("CoarseTraceNote"))->isVisibleTo(w));
  EXPECT_EQ(w->series(1, 0), nullptr);
  ASSERT_EQ(w->marker()->count(), 2);
  EXPECT_DOUBLE_EQ(w->marker()->at(0).x(), 2);  // halted after A: t = 2

  // The curve is drawn where its points are, and not where they are not.
  w->resize(900, 520);
  QApplication::processEvents();
  QImage image = w->chartView()->grab().toImage();
  const QColor colour = z1->pen().color();
  EXPECT_TRUE(ColourNear(image, ViewPixel(w->chartView(), {0.5, 0.5}, z1), colour));
  EXPECT_TRUE(ColourNear(image, ViewPixel(w->chartView(), {1.5, -0.5}, z1), colour));
  EXPECT_FALSE(ColourNear(image, ViewPixel(w->chartView(), {0.5, -0.5}, z1), colour));

  // Q instead of <sigma>; the purity line.
  w->showQ()->setChecked(true);
  EXPECT_DOUBLE_EQ(w->series(1, 2)->at(2).y(), 1);
  w->component(3)->setChecked(true);
  ASSERT_NE(w->series(2, 3), nullptr);
  EXPECT_NEAR(w->series(2, 3)->at(0).y(), 1, 1e-12);   // qubit 2 at |0>: pure
  EXPECT_NEAR(w->series(1, 3)->at(1).y(), 0, 1e-12);   // qubit 1 at the centre

  // Back moves the marker; a step grows the curve; the zoom resets to the data.
  editor(slot).button(kButtonBack)->trigger();
  EXPECT_DOUBLE_EQ(w->marker()->at(0).x(), 0);
  w->chart()->zoom(4);
  w->resetZoomButton()->click();
  auto* axisT = qobject_cast<QValueAxis*>(w->chart()->axes(Qt::Horizontal).value(0));
  ASSERT_NE(axisT, nullptr);
  EXPECT_DOUBLE_EQ(axisT->min(), 0);
  EXPECT_DOUBLE_EQ(axisT->max(), 2);

  // Export: the CSV of every point and qubit, and a PNG picture.
  const std::string csv = dir.path() + "trace.csv", png = dir.path() + "trace.png";
  dialogs.file(csv);
  w->exportCsv();
  const std::string text = dir.read("trace.csv");
  EXPECT_EQ(text.rfind("t,qubit,Qx,Qy,Qz\n0,1,0.5,0.5,0\n0,2,0.5,0.5,0\n1,1,0.5,0.5,0.5\n", 0), 0u) << text;
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 7);
  dialogs.file(png);
  w->exportPng();
  EXPECT_EQ(dir.read("trace.png").substr(0, 4), "\x89PNG");
  dialogs.file(std::nullopt);  // cancelled: nothing written
  w->exportCsv();

  main->action(QStringLiteral("MenuReset"))->trigger();
  editor(slot).button(kButtonRun)->trigger();  // fresh start: the old points are gone
  editor(slot).PG->setFocus();
  ResetProgram(ws, main->runUi(), slot);
  EXPECT_EQ(w->series(1, 2)->count(), 0);
  EXPECT_FALSE(w->marker()->isVisible());
}

TEST_F(TraceWindowTest, PopulationsShowTheLargestBasisStatesAsBars) {
  ScriptedDialogs dialogs;
  const int slot = openProgram(dialogs);
  // A Bell pair: (|00> + |11>)/sqrt 2 after the halt.
  const double h = std::sqrt(0.5);
  script("0 1 0 0\nA 2 " + std::to_string(h) + " 0 0 0 0 0 " + std::to_string(h) + " 0\n");
  TraceWindow* w = main->showTrace(slot);
  ASSERT_NE(w, nullptr);
  editor(slot).button(kButtonRun)->trigger();
  ASSERT_EQ(ws.Program(slot).Status, "Program halted");
  ASSERT_EQ(w->populationBars()->count(), 4);
  EXPECT_EQ(w->populationLabels()->categories(), (QStringList{"00", "11", "10", "01"}));
  EXPECT_NEAR(w->populationBars()->at(0), 0.5, 1e-6);
  EXPECT_NEAR(w->populationBars()->at(2), 0, 1e-12);

  w->pages()->setCurrentIndex(1);
  w->resize(700, 500);
  QApplication::processEvents();
  QChartView* view = w->populationsView();
  const QImage image = view->grab().toImage();
  QAbstractSeries* bars = view->chart()->series().value(0);
  const QColor blue = w->populationBars()->color();
  EXPECT_TRUE(ColourNear(image, ViewPixel(view, {0, 0.25}, bars), blue, 1));
  EXPECT_TRUE(ColourNear(image, ViewPixel(view, {1, 0.25}, bars), blue, 1));
  EXPECT_FALSE(ColourNear(image, ViewPixel(view, {2, 0.25}, bars), blue, 1));
}

class PlainEngineTraceTest : public TraceWindowTest {
protected:
  PlainEngineTraceTest() : TraceWindowTest("ORVEX_FAKE_ENGINE") {}
};

TEST_F(PlainEngineTraceTest, WithoutEngineEntriesOnePointPerCallAndNoPopulations) {
  ScriptedDialogs dialogs;
  const int slot = openProgram(dialogs);
  script("0 1 1 0 .1 .1 .1 .5 .5 0\n0 1 0 0 .2 .2 .2 .5 .5 0\n");
  main->action(QStringLiteral("MenuTrace"))->trigger();
  TraceWindow* w = main->traceWindow(slot);
  ASSERT_NE(w, nullptr);
  // What the window shows while the call loop runs: the curve grows before the run halts.
  int drawnWhileBusy = 0;
  QTimer sample;
  sample.setInterval(0);
  QObject::connect(&sample, &QTimer::timeout, [&] {
    if (ws.EngineBusy && w->series(1, 0)) drawnWhileBusy = std::max<int>(drawnWhileBusy, w->series(1, 0)->count());
  });
  sample.start();
  editor(slot).button(kButtonRun)->trigger();
  sample.stop();
  EXPECT_EQ(drawnWhileBusy, 2);  // the start and the first call, drawn inside the loop
  ASSERT_NE(w->series(1, 0), nullptr);
  EXPECT_EQ(w->series(1, 0)->count(), 3);  // the start and two calls
  EXPECT_TRUE(w->findChild<QLabel*>(QStringLiteral("CoarseTraceNote"))->isVisibleTo(w));
  EXPECT_DOUBLE_EQ(w->series(1, 0)->at(2).y(), 1 - 2 * 0.2);
  EXPECT_FALSE(w->populationsView()->isEnabled());
  EXPECT_TRUE(w->populationsNote()->text().contains(QStringLiteral("no amplitudes")));

  // Closing the program takes its trace and trace window with it.
  ResetProgram(ws, main->runUi(), slot);
  script("0 0 0 0 .3 .3 .3 .3 .3 .3\n");
  editor(slot).button(kButtonRun)->trigger();
  ASSERT_FALSE(ws.Traces[static_cast<std::size_t>(slot - 1)].Points.empty());
  main->editor(slot)->parentWidget()->close();
  QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  EXPECT_EQ(main->traceWindow(slot), nullptr);
  EXPECT_TRUE(ws.Traces[static_cast<std::size_t>(slot - 1)].Points.empty());
}

TEST_F(PlainEngineTraceTest, PauseHaltsTheRunningProgramAndStartContinues) {
  ScriptedDialogs dialogs;
  const int slot = openProgram(dialogs);
  std::string lines;
  for (int k = 0; k < 6; ++k) lines += "0 1 1 0 .1 .1 .1 .1 .1 .1\n";
  script(lines + "0 0 0 0 .9 .8 .7 .6 .5 .4\n");
  DefaultPG& e = editor(slot);
  bool enabledDuringRun = false;
  // Clicked from inside the call loop once it is enabled, as the user would.
  QTimer poll;
  poll.setInterval(0);
  QObject::connect(&poll, &QTimer::timeout, [&] {
    if (!e.PauseButton->isEnabled()) return;
    enabledDuringRun = true;
    poll.stop();
    e.PauseButton->trigger();
  });
  poll.start();
  e.button(kButtonRun)->trigger();
  EXPECT_TRUE(enabledDuringRun);
  EXPECT_EQ(ws.Program(slot).Status, "Program halted");
  EXPECT_EQ(header(e), "Program halted");
  EXPECT_LT(SplitLines(dir.read("calls.log")).size(), 7u);
  EXPECT_FALSE(e.PauseButton->isEnabled());
  EXPECT_TRUE(enabled("MenuBack"));

  e.button(kButtonRun)->trigger();
  EXPECT_EQ(ws.Program(slot).Status, "Program has finished");
  EXPECT_EQ(SplitLines(dir.read("calls.log")).size(), 7u);
  EXPECT_DOUBLE_EQ(ws.QubitX(slot, 1), .9);
  EXPECT_DOUBLE_EQ(ws.QubitZ(slot, 2), .4);
}

TEST_F(TraceWindowTest, SpheresShowTheirTrailFadingAndResetClearsIt) {
  // The renderer: a trail along the equator leaves its colour in the picture, none without.
  SphereTrail trail;
  for (int k = 0; k <= 20; ++k) {
    const double a = k * 0.15;
    trail.push_back({0.5 - 0.5 * std::cos(a), 0.5 - 0.5 * std::sin(a), 0.5});
  }
  auto trailPixels = [](const QImage& img) {
    int n = 0;
    for (int y = 0; y < img.height(); ++y)
      for (int x = 0; x < img.width(); ++x) {
        const QColor c = img.pixelColor(x, y);
        n += c.green() > 200 && c.red() < 150 && c.blue() > 100 && c.blue() < 200;
      }
    return n;
  };
  QImage plain(160, 160, QImage::Format_ARGB32_Premultiplied), withTrail = plain;
  {
    QPainter p(&plain);
    PaintQubitSphere(p, 160, 0.5, 0.5, 0, {});
  }
  {
    QPainter p(&withTrail);
    PaintQubitSphere(p, 160, 0.5, 0.5, 0, trail);
  }
  EXPECT_EQ(trailPixels(plain), 0);
  EXPECT_GT(trailPixels(withTrail), 20);

  // The qubit window takes the running program's trace as trails.
  ScriptedDialogs dialogs;
  const int slot = openProgram(dialogs);
  script("0 1 1 0\nT 0 .5 .5 0 .5 .5 0\nT 1 .2 .5 .5 .5 .5 0\n0 1 0 0 .1 .5 .9 .5 .5 0\nT 2 .1 .5 .9 .5 .5 0\n");
  main->action(QStringLiteral("MenuShowQubits"))->setChecked(true);
  main->showTrace(slot);  // an open trace window: the engine's records, not one per call
  editor(slot).button(kButtonRun)->trigger();
  ASSERT_NE(main->qubitWindow(), nullptr);
  ASSERT_EQ(main->qubitWindow()->box(1)->trail().size(), 3u);
  EXPECT_DOUBLE_EQ(main->qubitWindow()->box(1)->trail()[1][0], 0.2);
  ResetProgram(ws, main->runUi(), slot);
  EXPECT_TRUE(main->qubitWindow()->box(1)->trail().empty());
}

// The real engine: its records and amplitudes.
class RealEngineTraceTest : public MainWindowTest {
protected:
  RealEngineTraceTest() : MainWindowTest("ORVEX_REAL_ENGINE") {}
  void SetUp() override {
    const fs::path bin = ORVEX_BIN_DIR;
    ASSERT_TRUE(fs::exists(bin / "MI" / "ideal2")) << "the demo sets are not built";
    fs::create_directories(app);
    fs::copy(bin / "MI", fs::path(app) / "MI", fs::copy_options::recursive);
    fs::copy(bin / "progs", fs::path(app) / "progs", fs::copy_options::recursive);
  }
  // Steps `slot` to its last step and returns the labels of the nonzero bars.
  std::map<QString, double> populationsAtTheEnd(int slot) {
    TraceWindow* w = main->showTrace(slot);
    for (int k = 0; k < 50 && ws.Program(slot).Status != "Program has finished"; ++k) {
      editor(slot).button(kButtonStep)->trigger();
      w->refreshPopulations();
      last.clear();
      for (int b = 0; b < w->populationBars()->count(); ++b)
        if (w->populationBars()->at(b) > 1e-6)
          last[w->populationLabels()->categories().value(b)] = w->populationBars()->at(b);
    }
    return last;
  }
  std::map<QString, double> last;
};

TEST_F(RealEngineTraceTest, BellPairPopulations) {
  ScriptedDialogs dialogs;
  start("ideal2");
  const int slot = openThroughMenu(dialogs, app + "progs/bell.kvp");
  ASSERT_GT(slot, 0);
  auto pops = populationsAtTheEnd(slot);
  ASSERT_EQ(pops.size(), 2u);
  EXPECT_NEAR(pops[QStringLiteral("00")], 0.5, 1e-6);
  EXPECT_NEAR(pops[QStringLiteral("11")], 0.5, 1e-6);
}

TEST_F(RealEngineTraceTest, GhzPopulationsAndTheTraceOfItsSteps) {
  ScriptedDialogs dialogs;
  start("ideal3");
  const std::string ghz = writeProgram("progs/ghz.kvp", {"@INITIALIZE.MI", "@Hadamard1.MI", "@Hadamard2.MI",
                                                         "@CZ12.MI", "@Hadamard2.MI", "@Hadamard3.MI",
                                                         "@CPhase23.MI", "@CPhase23.MI", "@Hadamard3.MI"});  // CPhase pi/2 twice: CZ
  const int slot = openThroughMenu(dialogs, ghz);
  ASSERT_GT(slot, 0);
  auto pops = populationsAtTheEnd(slot);
  std::string seen;
  for (auto& [label, p] : pops) seen += label.toStdString() + "=" + std::to_string(p) + " ";
  ASSERT_EQ(pops.size(), 2u) << seen;
  EXPECT_NEAR(pops[QStringLiteral("000")], 0.5, 1e-6);
  EXPECT_NEAR(pops[QStringLiteral("111")], 0.5, 1e-6);
  EXPECT_GE(ws.Traces[static_cast<std::size_t>(slot - 1)].Points.size(), 8u);
}

TEST_F(RealEngineTraceTest, PauseThenStartEndsWhereAnUninterruptedRunEnds) {
  ScriptedDialogs dialogs;
  // Hadamard1 with enough intermediate steps that the engine returns early several times.
  std::string mi = dir.read("app/MI/ideal2/Hadamard1.MI");
  const auto at = mi.find("NUMBER OF INTERMEDIATE TIME STEPS");
  ASSERT_NE(at, std::string::npos);
  const auto valueStart = mi.find('\n', at) + 1;
  mi.replace(valueStart, mi.find('\n', valueStart) - valueStart, "3000000\r");
  dir.write("app/MI/ideal2/Slow1.MI", mi);
  start("ideal2");
  const int slot = openThroughMenu(
      dialogs, writeProgram("progs/slow.kvp", {"@INITIALIZE.MI", "@Slow1.MI", "@Hadamard2.MI", "@CZ.MI"}));
  ASSERT_GT(slot, 0);
  DefaultPG& e = editor(slot);
  e.button(kButtonRun)->trigger();
  ASSERT_EQ(ws.Program(slot).Status, "Program has finished");
  std::vector<double> end;
  for (int q = 1; q <= 2; ++q) end.insert(end.end(), {ws.QubitX(slot, q), ws.QubitY(slot, q), ws.QubitZ(slot, q)});

  QTimer poll;
  poll.setInterval(0);
  QObject::connect(&poll, &QTimer::timeout, [&] {
    if (!e.PauseButton->isEnabled()) return;
    poll.stop();
    e.PauseButton->trigger();
  });
  poll.start();
  e.button(kButtonRun)->trigger();
  ASSERT_EQ(ws.Program(slot).Status, "Program halted");
  e.button(kButtonRun)->trigger();
  ASSERT_EQ(ws.Program(slot).Status, "Program has finished");
  std::vector<double> again;
  for (int q = 1; q <= 2; ++q) again.insert(again.end(), {ws.QubitX(slot, q), ws.QubitY(slot, q), ws.QubitZ(slot, q)});
  for (std::size_t k = 0; k < end.size(); ++k) EXPECT_NEAR(again[k], end[k], 1e-12) << k;
}

TEST_F(RealEngineTraceTest, CheckAccuracyRunsInTheBackgroundAndShowsEveryQubit) {
  ScriptedDialogs dialogs;
  start("ideal2");
  const int slot = openThroughMenu(dialogs, app + "progs/bell.kvp");
  ASSERT_GT(slot, 0);
  bool sawProgress = false;
  QStringList deviations;
  int rows = 0;
  // The progress window is up while the check works on its thread, and its bar shows the
  // part done (of 1000) as the check reports it; then the table.
  int highest = -1;
  WhenModalShown<QProgressDialog>([&](QProgressDialog* d) {
    sawProgress = true;
    if (auto* bar = d->findChild<QProgressBar*>())
      QObject::connect(bar, &QProgressBar::valueChanged, [&](int v) { highest = std::max(highest, v); });
  });
  WhenModalShown<AccuracyDialog>([&](AccuracyDialog* d) {
    rows = d->table()->rowCount();
    for (int r = 0; r < rows; ++r) deviations << d->table()->item(r, 1)->text();
    d->accept();
  }, 3000);
  main->action(QStringLiteral("MenuCheckAccuracy"))->trigger();
  EXPECT_TRUE(sawProgress);
  EXPECT_GT(highest, 500);  // into the second run
  ASSERT_EQ(rows, 2);
  for (const QString& d : deviations) {
    bool ok = false;
    const double v = d.toDouble(&ok);
    EXPECT_TRUE(ok && v >= 0 && v < 1e-2) << d.toStdString();
  }
  EXPECT_FALSE(ws.EngineBusy);
  EXPECT_EQ(ws.RunningProgram, -1);
  // The engine is free again: the program runs.
  editor(slot).button(kButtonRun)->trigger();
  EXPECT_EQ(ws.Program(slot).Status, "Program has finished");
}

} // namespace
} // namespace orvex::test
