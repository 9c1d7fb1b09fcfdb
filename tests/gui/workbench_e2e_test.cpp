// The whole workbench with the real engine: a demo program opened through the File menu and
// run to its end shows the expected colours in its qubit boxes (read back from the pixels) and
// the exact values in their tool tips; program files named on the command line open at start.
#include <filesystem>
#include <sstream>

#include <QImage>

#include "main_window_fixture.h"
#include "view/gui/qubit_stripes.h"
#include "view/qubit_color.h"
#include "view/qubit_display.h"

namespace orvex::test {
namespace {

namespace fs = std::filesystem;
using platform::Answer;

class WorkbenchE2ETest : public MainWindowTest {
protected:
  WorkbenchE2ETest() : MainWindowTest("ORVEX_REAL_ENGINE") {}
  void SetUp() override {
    const fs::path bin = ORVEX_BIN_DIR;
    ASSERT_TRUE(fs::exists(bin / "MI" / "ideal2")) << "the demo sets are not built";
    fs::create_directories(app);
    fs::copy(bin / "MI", fs::path(app) / "MI", fs::copy_options::recursive);
    fs::copy(bin / "progs", fs::path(app) / "progs", fs::copy_options::recursive);
  }

  // The colour at the centre of stripe `band` (0 x, 1 y, 2 z) of the box's own pixels.
  static QColor stripeCentre(QubitBox* box, int band) {
    const QImage image = box->grab().toImage();
    const StripeBands b = StripeBandsFor(image.height());
    const int rows[3] = {(b.xFirst + b.xLast) / 2, (b.yFirst + b.yLast) / 2, (b.zFirst + b.zLast) / 2};
    return image.pixelColor(image.width() / 2, rows[band]);
  }
  static void expectColour(QubitBox* box, int band, double value) {
    const QColor seen = stripeCentre(box, band);
    const RGBColor want = QubitColor(value);
    EXPECT_NEAR(seen.red(), RedOf(want), 2) << "band " << band << " of " << box->objectName().toStdString();
    EXPECT_NEAR(seen.green(), GreenOf(want), 2) << "band " << band;
    EXPECT_NEAR(seen.blue(), BlueOf(want), 2) << "band " << band;
  }
  static bool bold(DefaultPG& e, int row) { return e.PG->topLevelItem(row)->font(0).bold(); }
};

TEST_F(WorkbenchE2ETest, DeutschRunShowsTheExpectedColoursAndValues) {
  ScriptedDialogs dialogs;
  start("ideal2");
  ASSERT_EQ(ws.NumberOfQubits, 2);
  const int slot = openThroughMenu(dialogs, app + "progs/deutsch.kvp");
  ASSERT_EQ(slot, 1);
  DefaultPG& e = editor(slot);
  EXPECT_EQ(e.windowTitle(), "deutsch");
  EXPECT_EQ(rowTexts(e).size(), 9);

  e.button(kButtonRun)->trigger();
  QApplication::processEvents();
  EXPECT_TRUE(dialogs.shown.size() == 1u) << (dialogs.messages().empty() ? "" : dialogs.messages().back());
  EXPECT_EQ(header(e), "Program has finished");
  ASSERT_TRUE(e.Qubit[0]->isVisible());
  ASSERT_TRUE(e.Qubit[1]->isVisible());
  EXPECT_FALSE(e.Qubit[2]->isVisible());
  // The expected values of the demo: qubit 1 = (0.5, 0.5, 1), qubit 2 = (1, 0.5, 0.5).
  EXPECT_EQ(e.Qubit[0]->toolTip().section('\n', 0, 0), "x = 0.500 ,y = 0.500 ,z = 1.000");
  EXPECT_EQ(e.Qubit[1]->toolTip().section('\n', 0, 0), "x = 1.000 ,y = 0.500 ,z = 0.500");
  ASSERT_GE(e.Qubit[0]->height(), 9);
  expectColour(e.Qubit[0], 0, 0.5);
  expectColour(e.Qubit[0], 1, 0.5);
  expectColour(e.Qubit[0], 2, 1.0);
  expectColour(e.Qubit[1], 0, 1.0);
  expectColour(e.Qubit[1], 1, 0.5);
  expectColour(e.Qubit[1], 2, 0.5);
  // The engine worked in the program's directory.
  EXPECT_TRUE(dir.exists("app/progs/kv1dll.log"));

  // Step from idle halts after the first instruction; Back returns to the start; Reset ends it.
  e.button(kButtonStep)->trigger();
  EXPECT_EQ(header(e), "Program halted");
  EXPECT_EQ(ws.RunningProgram, slot);
  e.button(kButtonBack)->trigger();
  EXPECT_EQ(ws.Program(slot).CurrentRow, 0);
  main->action("MenuBack")->trigger();  // nothing older: a beep
  EXPECT_EQ(dialogs.beeps, 1);
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(header(e), "Program reset");
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

TEST_F(WorkbenchE2ETest, EveryFineStepIsPlacedWhereTheEngineStands) {
  // The engine reports no position; the workbench's derivation must keep in step with it to
  // the end. Its clock is in the output files: one line per completed main step.
  ScriptedDialogs dialogs;
  start("ideal2");
  const int slot = openThroughMenu(dialogs, app + "progs/deutsch.kvp");
  ASSERT_EQ(slot, 1);
  main->action("MenuSteps2")->trigger();  // all steps
  main->action("MenuFiles")->trigger();   // create output files
  DefaultPG& e = editor(slot);
  int halts = 0;
  QString last;
  while (halts < 200) {
    e.button(kButtonStep)->trigger();
    if (ws.RunningProgram != slot) break;
    ++halts;
    const int row = ws.Program(slot).CurrentRow;
    ASSERT_GE(row, 1) << "step " << halts;
    ASSERT_TRUE(bold(e, row)) << "step " << halts;
    last = main->runStatus();
    ASSERT_TRUE(last.startsWith(rowTexts(e)[row] + QStringLiteral(", main step "))) << last.toStdString();
    if (last.contains(QStringLiteral("intermediate"))) continue;
    std::istringstream out(dir.read("app/progs/qubit01.out"));
    std::string line, lastLine;
    while (std::getline(out, line))
      if (!line.empty() && line[0] != '#') lastLine = line;
    ASSERT_FALSE(lastLine.empty()) << "step " << halts;
    const double engineTime = std::stod(lastLine);
    EXPECT_NEAR(last.section(QStringLiteral("t = "), 1).toDouble(), engineTime, 1e-5 * (1 + engineTime))
        << last.toStdString();
  }
  // INITIALIZE is one step, each of the seven gates ten: the last halt is one step before
  // the end, inside the last gate.
  EXPECT_EQ(halts, 70);
  EXPECT_TRUE(last.startsWith(QStringLiteral("Hadamard1, main step 1 of 1, intermediate step 9 of 10, t = ")))
      << last.toStdString();
  EXPECT_EQ(header(e), "Program has finished");
  EXPECT_EQ(e.Qubit[0]->toolTip().section('\n', 0, 0), "x = 0.500 ,y = 0.500 ,z = 1.000");
  EXPECT_TRUE(dialogs.shown.size() == 1u) << (dialogs.messages().empty() ? "" : dialogs.messages().back());
}

TEST_F(WorkbenchE2ETest, ProgramFilesOnTheCommandLineOpenAfterTheSetIsChosen) {
  ScriptedDialogs dialogs;
  ASSERT_EQ(chdir(dir.path().c_str()), 0);
  dialogs.answer(Answer::OK);  // the missing file
  start("ideal2", {"app/progs/bell.kvp", "app/progs/none.kvp", (fs::path(app) / "progs/grover.kvp").string()});
  main->openProgramArguments();
  ASSERT_NE(main->editor(1), nullptr);
  ASSERT_NE(main->editor(2), nullptr);
  EXPECT_EQ(main->editor(3), nullptr);
  EXPECT_EQ(ws.Program(1).Name, "progs/bell.kvp");
  EXPECT_EQ(editor(1).windowTitle(), "bell");
  EXPECT_EQ(ws.Program(2).Name, "progs/grover.kvp");
  EXPECT_EQ(header(editor(2)), "Program ready");
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_NE(dialogs.shown[0].text.find("none.kvp"), std::string::npos) << dialogs.shown[0].text;
  EXPECT_EQ(dialogs.shown[0].icon, platform::Icon::Critical);
}

} // namespace
} // namespace orvex::test
