// The program editor offscreen: its tool bar and rows, drops from the MI list and moves within
// the list through real drag events on PG's viewport, the 1000-row limit, keys, double clicks
// into the MI editor, the colour table, closing with changes and the program limit.
#include <QDragEnterEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QToolBar>

#include <algorithm>

#include "app/about_dialog.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/mirow_mime.h"
#include "platform/gui/twips.h"
#include "main_window_fixture.h"
#include "view/gui/qubit_stripes.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Icon;

class ProgramEditorTest : public MainWindowTest {
protected:
  void SetUp() override {
    writeDemoSet();
    programPath = writeProgram("progs/p.kvp", {"@A.MI", "!BREAKPOINT", "@B.MI", "@loop.MP"});
    start("demo");
    slot = OpenProgram(ws, main->runUi(), programPath);
    ASSERT_EQ(slot, 1);
    QApplication::processEvents();
  }

  // A drag entering, moving over and dropping on PG's viewport at `pos`; true when the drop
  // was accepted. `moveAccepted` reports the drag-move answer.
  bool dragAndDrop(DefaultPG& e, QMimeData* data, QPoint pos, bool* moveAccepted = nullptr) {
    QWidget* viewport = e.PG->viewport();
    const Qt::DropActions actions = Qt::CopyAction | Qt::MoveAction;
    QDragEnterEvent enter(pos, actions, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &enter);
    QDragMoveEvent move(pos, actions, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &move);
    if (moveAccepted) *moveAccepted = move.isAccepted();
    QDropEvent drop(pos, actions, data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(viewport, &drop);
    delete data;
    return drop.isAccepted();
  }
  static QPoint rowCentre(DefaultPG& e, int row) {
    return e.PG->visualItemRect(e.PG->topLevelItem(row)).center();
  }
  static QPoint belowLastRow(DefaultPG& e) { return {10, e.PG->viewport()->height() - 3}; }
  static QMimeData* ownRow(int slot, int row) {
    auto* data = new QMimeData;
    data->setData(QString::fromLatin1(kProgramRowMimeType),
                  QByteArray::number(slot) + '\n' + QByteArray::number(row));
    return data;
  }
  static void key(DefaultPG& e, int k, Qt::KeyboardModifiers mods = Qt::NoModifier) {
    QTest::keyClick(e.PG, static_cast<Qt::Key>(k), mods);
  }

  std::string programPath;
  int slot = 0;
};

TEST_F(ProgramEditorTest, ShowsRowsStatusCaptionAndToolBar) {
  DefaultPG& e = editor(slot);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "Breakpoint", "B", "loop"}));
  const int icons[] = {kIconStart, kIconMI, kIconBreakpoint, kIconMI, kIconProgramRow};
  for (int r = 0; r < 5; ++r) EXPECT_EQ(e.PG->topLevelItem(r)->data(0, Qt::UserRole).toInt(), icons[r]) << r;
  EXPECT_EQ(header(e), "Program ready");
  EXPECT_EQ(e.windowTitle(), "p");
  EXPECT_EQ(e.PG->columnCount(), 1);

  QStringList tips;
  for (QAction* a : e.Toolbar1->actions())
    if (!a->isSeparator()) tips << a->toolTip();
  EXPECT_EQ(tips, (QStringList{"Clear program", "Save program", "Update MI", "Run", "Step", "Back",
                               "Remove MI", "Pause", "Trace"}));
  EXPECT_FALSE(e.PauseButton->isEnabled());  // only while a run's call loop is on
  for (int i = 1; i <= 7; ++i) EXPECT_FALSE(e.button(i)->icon().isNull()) << i;

  // No qubit boxes before the program has run.
  for (QubitBox* box : e.Qubit) EXPECT_FALSE(box->isVisible());
  // The window does not go below 2400 x 3600 twips.
  EXPECT_EQ(e.minimumWidth(), platform::TwipsToPixels(2400, &e));
  EXPECT_EQ(e.minimumHeight(), platform::TwipsToPixels(3600, &e));
  QMdiSubWindow* frame = main->mdi()->currentSubWindow();
  ASSERT_NE(frame, nullptr);
  frame->resize(20, 20);
  EXPECT_GE(e.width(), platform::TwipsToPixels(2400, &e));
  EXPECT_GE(e.height(), platform::TwipsToPixels(3600, &e));
  EXPECT_EQ(main->activeSlot(), slot);
}

TEST_F(ProgramEditorTest, MIListRowsDroppedGoBelowTheRowUnderTheCursor) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  bool moveAccepted = false;
  // Onto "A" (row 1): the new row becomes row 2.
  EXPECT_TRUE(dragAndDrop(e, EncodeMIRow({"MI3", "B", kIconMI}), rowCentre(e, 1), &moveAccepted));
  EXPECT_TRUE(moveAccepted);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "B", "Breakpoint", "B", "loop"}));
  EXPECT_EQ(e.PG->topLevelItem(2)->data(0, Qt::UserRole).toInt(), kIconMI);
  EXPECT_TRUE(ws.Program(slot).Changed);
  EXPECT_EQ(header(e), "Program ready");
  EXPECT_EQ(e.selectedRow(), 2);

  // The breakpoint entry onto "Start"; a callable program below the last row.
  EXPECT_TRUE(dragAndDrop(e, EncodeMIRow({"", "Breakpoint", kIconBreakpoint}), rowCentre(e, 0)));
  EXPECT_TRUE(dragAndDrop(e, EncodeMIRow({"MI9", "sub", kIconCallableProgram}), belowLastRow(e)));
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "Breakpoint", "A", "B", "Breakpoint", "B", "loop", "sub"}));
  EXPECT_EQ(e.PG->topLevelItem(1)->data(0, Qt::UserRole).toInt(), kIconBreakpoint);
  EXPECT_EQ(e.PG->topLevelItem(7)->data(0, Qt::UserRole).toInt(), kIconProgramRow);

  // Data that is no MI row is not taken.
  auto* text = new QMimeData;
  text->setText("A");
  EXPECT_FALSE(dragAndDrop(e, text, rowCentre(e, 1)));
  EXPECT_EQ(e.PG->topLevelItemCount(), 8);
  EXPECT_TRUE(dialogs.shown.empty());

  // Saving writes the rows in their new order.
  e.save();
  const std::string saved = dir.read("app/progs/p.kvp");
  EXPECT_NE(saved.find("!BREAKPOINT\r\n@A.MI\r\n@B.MI\r\n!BREAKPOINT\r\n@B.MI\r\n@loop.MP\r\n@sub.MP"), std::string::npos)
      << saved;
}

TEST_F(ProgramEditorTest, RowsMoveWithinTheirListOnlyAndTheStartRowStays) {
  ScriptedDialogs dialogs;
  ASSERT_EQ(OpenProgram(ws, main->runUi(), writeProgram("progs/q.kvp", {"@B.MI"})), 2);
  DefaultPG& e = editor(slot);
  // "A" (row 1) dropped on "B" (row 3): it goes below B.
  EXPECT_TRUE(dragAndDrop(e, ownRow(slot, 1), rowCentre(e, 3)));
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "Breakpoint", "B", "A", "loop"}));
  // "loop" (row 4) dropped on "Start": it becomes the first instruction.
  EXPECT_TRUE(dragAndDrop(e, ownRow(slot, 4), rowCentre(e, 0)));
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "loop", "Breakpoint", "B", "A"}));
  EXPECT_TRUE(ws.Program(slot).Changed);
  // The "Start" row does not move.
  EXPECT_FALSE(dragAndDrop(e, ownRow(slot, 0), rowCentre(e, 3)));
  EXPECT_EQ(rowTexts(e).first(), "Start");

  // A row dragged out of program 2 is refused by program 1, at the drag and at the drop.
  bool moveAccepted = true;
  EXPECT_FALSE(dragAndDrop(e, ownRow(2, 1), rowCentre(e, 1), &moveAccepted));
  EXPECT_FALSE(moveAccepted);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "loop", "Breakpoint", "B", "A"}));
  EXPECT_EQ(rowTexts(editor(2)), (QStringList{"Start", "B"}));
}

TEST_F(ProgramEditorTest, AThousandRowsRefuseAnotherDropAndNineHundredNinetyNineTakeOne) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  ProgramSlot& p = ws.Program(slot);
  p.Rows.resize(kMaxRows, ProgramRow{"A", kIconMI});
  p.Changed = false;
  e.render();
  ASSERT_EQ(e.PG->topLevelItemCount(), 1000);
  dialogs.answer(Answer::OK);
  EXPECT_FALSE(dragAndDrop(e, EncodeMIRow({"MI3", "B", kIconMI}), rowCentre(e, 0)));
  EXPECT_EQ(e.PG->topLevelItemCount(), 1000);
  EXPECT_FALSE(p.Changed);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Too many Micro Instructions.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Information);

  p.Rows.resize(kMaxRows - 1);
  e.render();
  EXPECT_TRUE(dragAndDrop(e, EncodeMIRow({"MI3", "B", kIconMI}), rowCentre(e, 0)));
  EXPECT_EQ(e.PG->topLevelItemCount(), 1000);
  EXPECT_EQ(e.PG->topLevelItem(1)->text(0), "B");
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

TEST_F(ProgramEditorTest, NoDropsOrKeysWhileAProgramRuns) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  ws.RunningProgram = 5;  // another program's run is halted
  bool moveAccepted = true;
  EXPECT_FALSE(dragAndDrop(e, EncodeMIRow({"MI3", "B", kIconMI}), rowCentre(e, 1), &moveAccepted));
  EXPECT_FALSE(moveAccepted);
  EXPECT_FALSE(dragAndDrop(e, ownRow(slot, 1), rowCentre(e, 3)));
  select(e, 1);
  key(e, Qt::Key_Delete);
  key(e, Qt::Key_D, Qt::ControlModifier);
  key(e, Qt::Key_S, Qt::ControlModifier);
  key(e, Qt::Key_Down);
  EXPECT_EQ(dialogs.beeps, 4);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "Breakpoint", "B", "loop"}));
  EXPECT_FALSE(ws.Program(slot).Changed);
  ws.RunningProgram = -1;
}

TEST_F(ProgramEditorTest, DeleteAndCtrlDRemoveRowsButNeverTheFirstAndCtrlSSaves) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  select(e, 0);
  key(e, Qt::Key_Delete);
  key(e, Qt::Key_D, Qt::ControlModifier);
  EXPECT_EQ(e.PG->topLevelItemCount(), 5);
  EXPECT_FALSE(ws.Program(slot).Changed);

  select(e, 2);
  key(e, Qt::Key_Delete);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "B", "loop"}));
  EXPECT_EQ(e.selectedRow(), 2);  // the next row is selected
  key(e, Qt::Key_D, Qt::ControlModifier);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "loop"}));
  EXPECT_TRUE(ws.Program(slot).Changed);

  // "Remove MI" removes the selected row when the program is not running.
  select(e, 1);
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "loop"}));

  key(e, Qt::Key_S, Qt::ControlModifier);
  EXPECT_FALSE(ws.Program(slot).Changed);
  const std::string saved = dir.read("app/progs/p.kvp");
  EXPECT_NE(saved.find("@loop.MP"), std::string::npos);
  EXPECT_EQ(saved.find("@A.MI"), std::string::npos);
  EXPECT_EQ(dialogs.beeps, 0);
  EXPECT_TRUE(dialogs.shown.empty());

  // "Clear program" empties the list down to "Start" without asking; the first row dropped
  // afterwards lies below "Start", so it can be moved and removed like any other.
  e.button(kButtonClear)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start"}));
  e.button(kButtonClear)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start"}));
  ASSERT_TRUE(e.dropMIRow(-1, {"MI2", "A", kIconMI}));
  ASSERT_TRUE(e.dropMIRow(-1, {"MI3", "B", kIconMI}));
  EXPECT_TRUE(e.moveRow(1, 2));
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "B", "A"}));
  select(e, 2);
  e.button(kButtonRemove)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "B"}));
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ProgramEditorTest, DropMoveRemoveAndClearUndoToTheExactRowsAndRedo) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  const QStringList original{"Start", "A", "Breakpoint", "B", "loop"};
  const int icons[] = {kIconStart, kIconMI, kIconBreakpoint, kIconMI, kIconProgramRow};
  EXPECT_TRUE(dragAndDrop(e, EncodeMIRow({"MI9", "sub", kIconCallableProgram}), rowCentre(e, 1)));
  EXPECT_TRUE(dragAndDrop(e, ownRow(slot, 1), rowCentre(e, 4)));
  select(e, 3);
  e.button(kButtonRemove)->trigger();
  e.button(kButtonClear)->trigger();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start"}));

  // Ctrl+Z on the list: the clear, then the removal, the move and the drop go back.
  main->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(main.get()));
  e.PG->setFocus();
  key(e, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "sub", "Breakpoint", "A", "loop"}));
  e.undo();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "sub", "Breakpoint", "B", "A", "loop"}));
  e.undo();
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "sub", "Breakpoint", "B", "loop"}));
  EXPECT_TRUE(ws.Program(slot).Changed);
  e.undo();
  EXPECT_EQ(rowTexts(e), original);
  for (int r = 0; r < 5; ++r) EXPECT_EQ(ws.Program(slot).Rows[r].Icon, icons[r]) << r;
  EXPECT_FALSE(ws.Program(slot).Changed);  // back where the file is
  EXPECT_EQ(dialogs.beeps, 0);
  e.undo();  // nothing left
  EXPECT_EQ(dialogs.beeps, 1);

  key(e, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(rowTexts(e), (QStringList{"Start", "A", "sub", "Breakpoint", "B", "loop"}));
  EXPECT_EQ(ws.Program(slot).Rows[2].Icon, kIconProgramRow);
  EXPECT_TRUE(ws.Program(slot).Changed);
  // Saved there, an undo makes it changed again.
  e.save();
  EXPECT_FALSE(ws.Program(slot).Changed);
  e.undo();
  EXPECT_EQ(rowTexts(e), original);
  EXPECT_TRUE(ws.Program(slot).Changed);
}

TEST_F(ProgramEditorTest, DoubleClickOnAnMIRowOpensItsEditor) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  auto doubleClick = [&](int row) {
    const QPoint p = rowCentre(e, row);
    QTest::mouseClick(e.PG->viewport(), Qt::LeftButton, {}, p);
    QTest::mouseDClick(e.PG->viewport(), Qt::LeftButton, {}, p);
  };
  doubleClick(2);  // the breakpoint
  doubleClick(4);  // the program row
  doubleClick(0);  // "Start"
  EXPECT_EQ(main->miEditor(1), nullptr);

  doubleClick(3);  // B
  DefaultMI* mi = main->miEditor(1);
  ASSERT_NE(mi, nullptr);
  EXPECT_EQ(ws.MITable(mi->miSlot()).Name, "B.MI");
  EXPECT_TRUE(ws.MITable(mi->miSlot()).IsOpen);
  // Again: the MI is open already, so nothing more than a beep.
  doubleClick(3);
  EXPECT_EQ(main->miEditor(2), nullptr);
  EXPECT_EQ(dialogs.beeps, 1);

  // An MI whose file has gone from the set does not open.
  ASSERT_TRUE(std::remove((app + "MI/demo/A.MI").c_str()) == 0);
  doubleClick(1);
  EXPECT_EQ(main->miEditor(2), nullptr);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(ProgramEditorTest, ClickingAQubitBoxShowsTheColorTable) {
  DefaultPG& e = editor(slot);
  ws.ProgramQubits(slot) = 2;
  e.updateQubitDisplay();
  ASSERT_TRUE(e.Qubit[1]->isVisible());
  QTest::mouseClick(e.Qubit[1], Qt::LeftButton);
  QWidget* table = nullptr;
  for (QWidget* w : QApplication::topLevelWidgets())
    if (w->windowTitle() == "Color table" && w->isVisible()) table = w;
  ASSERT_NE(table, nullptr);
  table->close();
}

TEST_F(ProgramEditorTest, ClosingAChangedProgramAsksAndCancelKeepsItOpen) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  select(e, 1);
  key(e, Qt::Key_Delete);
  QMdiSubWindow* frame = main->mdi()->currentSubWindow();
  ASSERT_NE(frame, nullptr);

  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(frame->close());
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, std::string("Changes have been made in p.kvp.") + '\r' + "Save before closing?");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Exclamation);
  EXPECT_EQ(main->editor(slot), &e);
  EXPECT_EQ(ws.Program(slot).Name, "progs/p.kvp");

  dialogs.answer(Answer::Yes);
  EXPECT_TRUE(frame->close());
  EXPECT_EQ(main->editor(slot), nullptr);
  EXPECT_TRUE(ws.Program(slot).Name.empty());
  EXPECT_EQ(dir.read("app/progs/p.kvp").find("@A.MI"), std::string::npos);
  EXPECT_TRUE(dialogs.scriptUsedUp());
}

TEST_F(ProgramEditorTest, TheEleventhProgramIsRefusedAndFreedSlotsAreReused) {
  ScriptedDialogs dialogs;
  for (int i = 2; i <= 10; ++i) main->action("MenuNew")->trigger();
  for (int s = 1; s <= 10; ++s) ASSERT_NE(main->editor(s), nullptr) << s;
  EXPECT_EQ(header(editor(10)), "New program");
  EXPECT_TRUE(dialogs.shown.empty());
  dialogs.answer(Answer::OK);
  main->action("ToolNew")->trigger();
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "No more programs can be loaded");

  // An unchanged new program closes without a question; its slot takes the next one.
  ASSERT_TRUE(main->mdi()->currentSubWindow() != nullptr);
  QMdiSubWindow* frame = nullptr;
  for (QMdiSubWindow* w : main->mdi()->subWindowList())
    if (w->widget() == main->editor(4)) frame = w;
  ASSERT_NE(frame, nullptr);
  EXPECT_TRUE(frame->close());
  QApplication::processEvents();
  EXPECT_EQ(main->editor(4), nullptr);
  main->action("MenuNew")->trigger();
  EXPECT_NE(main->editor(4), nullptr);
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

TEST_F(ProgramEditorTest, ClosingTheWorkbenchAsksAboutChangedPrograms) {
  ScriptedDialogs dialogs;
  DefaultPG& e = editor(slot);
  select(e, 1);
  key(e, Qt::Key_Delete);

  dialogs.answer(Answer::Cancel);
  EXPECT_FALSE(main->close());
  EXPECT_TRUE(main->isVisible());
  EXPECT_FALSE(ws.Closing);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, std::string("Changes have been made in p.kvp.") + '\r' + "Save before closing?");

  // A new program whose save dialog is cancelled keeps the workbench open too.
  main->action("MenuNew")->trigger();
  ASSERT_EQ(main->activeSlot(), 2);
  editor(2).dropMIRow(0, {"MI2", "A", kIconMI});
  dialogs.answer(Answer::Yes);
  dialogs.answer(Answer::Yes);
  dialogs.file(std::nullopt);
  EXPECT_FALSE(main->close());
  EXPECT_EQ(ws.Program(2).Name, "New");

  // Program 1 was saved on the way; only the new program is asked about now.
  dialogs.answer(Answer::No);
  EXPECT_TRUE(main->close());
  EXPECT_EQ(dialogs.shown.size(), 5u);
  EXPECT_TRUE(dialogs.scriptUsedUp());
  EXPECT_EQ(dir.read("app/progs/p.kvp").find("@A.MI"), std::string::npos);
}

} // namespace
} // namespace orvex::test

namespace orvex::test {
namespace {

TEST_F(ProgramEditorTest, SaveProgramAsRefusesAnOpenProgramsFile) {
  ScriptedDialogs dialogs;
  main->action("MenuNew")->trigger();
  ASSERT_EQ(main->activeSlot(), 2);
  // The file dialogs start in the application directory.
  dialogs.file(programPath);
  dialogs.answer(Answer::OK);
  main->action("MenuRename")->trigger();
  ASSERT_EQ(dialogs.shown.size(), 2u);
  EXPECT_TRUE(dialogs.shown[0].isFileDialog);
  EXPECT_EQ(dialogs.shown[0].request.directory, app);
  EXPECT_EQ(dialogs.shown[1].text, "Cannot save to an open program");
  EXPECT_EQ(ws.Program(2).Name, "New");

  dialogs.file(app + "progs/copy.kvp");
  main->action("MenuRename")->trigger();
  EXPECT_EQ(ws.Program(2).Name, "progs/copy.kvp");
  EXPECT_EQ(editor(2).windowTitle(), "copy");
  EXPECT_TRUE(dir.exists("app/progs/copy.kvp"));

  // A save as that fails (the new directory refused) leaves an unnamed program, and the
  // caption says so.
  dialogs.file(app + "elsewhere/moved.kvp");
  dialogs.answer(Answer::No);  // "Create (sub)directory?"
  dialogs.answer(Answer::OK);  // "Failed to create (sub)directory!"
  main->action("MenuRename")->trigger();
  EXPECT_EQ(ws.Program(2).Name, "New");
  EXPECT_EQ(editor(2).windowTitle(), "New");
  EXPECT_FALSE(dir.exists("app/elsewhere"));
  EXPECT_TRUE(dialogs.scriptUsedUp());
}

TEST_F(ProgramEditorTest, ArrangeWindowsSetsTheEditorsSideBySideRightOfTheMIList) {
  ScriptedDialogs dialogs;
  main->action("MenuNew")->trigger();
  main->action("MenuNew")->trigger();
  main->action("MenuArrange")->trigger();
  std::vector<QRect> frames;
  for (QMdiSubWindow* w : main->mdi()->subWindowList())
    if (qobject_cast<DefaultPG*>(w->widget())) frames.push_back(w->geometry());
  ASSERT_EQ(frames.size(), 3u);
  std::sort(frames.begin(), frames.end(), [](const QRect& a, const QRect& b) { return a.x() < b.x(); });
  EXPECT_GT(frames[0].x(), main->miListWindow()->geometry().right());
  for (std::size_t i = 1; i < frames.size(); ++i) EXPECT_FALSE(frames[i].intersects(frames[i - 1])) << i;
  for (const QRect& r : frames) EXPECT_EQ(r.y(), 0);
}

} // namespace
} // namespace orvex::test

namespace orvex::test {
namespace {

// The list gives way to the rows of qubit boxes: 825 twips of the inner height are kept
// without boxes, 1845 with one row, and 2865 + 1000 for each further row of eight.
TEST_F(ProgramEditorTest, TheListGivesWayToEachRowOfQubitBoxes) {
  DefaultPG& e = editor(slot);
  QMdiSubWindow* frame = main->mdi()->currentSubWindow();
  frame->resize(platform::TwipsToPixels(6000, &e), platform::TwipsToPixels(9000, &e));
  QApplication::processEvents();
  const int H = platform::PixelsToTwips(e.height(), &e);
  const struct {
    int qubits, reserve;
  } cases[] = {{0, 825}, {1, 1845}, {8, 1845}, {9, 2865}, {16, 2865}, {17, 3865}, {24, 3865}, {25, 4865}, {32, 4865}};
  for (auto c : cases) {
    ws.ProgramQubits(slot) = static_cast<std::int16_t>(c.qubits);
    for (int q = 1; q <= c.qubits; ++q) ws.QubitX(slot, q) = (q % 2) ? 1.0 : 0.0;
    e.updateQubitDisplay();
    EXPECT_NEAR(e.PG->height(), platform::TwipsToPixels(H - c.reserve, &e), 1) << c.qubits;
    int shown = 0;
    for (QubitBox* box : e.Qubit) shown += box->isVisible();
    EXPECT_EQ(shown, c.qubits);
    for (int q = 1; q <= c.qubits; ++q) {
      const QRect box = e.Qubit[q - 1]->geometry();
      EXPECT_GT(box.top(), e.PG->geometry().bottom()) << c.qubits << " qubits, box " << q;
      EXPECT_LE(box.bottom(), e.height()) << q;
      // Eight to a row, left to right, rows from the top.
      if (q > 1 && (q - 1) % 8 != 0) {
        const QRect before = e.Qubit[q - 2]->geometry();
        EXPECT_EQ(box.top(), before.top()) << q;
        EXPECT_GT(box.left(), before.right()) << q;
      }
      if (q > 8) {
        EXPECT_GT(box.top(), e.Qubit[q - 9]->geometry().bottom()) << q;
      }
    }
    if (c.qubits > 0) {
      EXPECT_EQ(e.Qubit[0]->toolTip().section('\n', 0, 0), "x = 1.000 ,y = 0.000 ,z = 0.000");
    }
  }
}

} // namespace
} // namespace orvex::test

namespace orvex::test {
namespace {

TEST_F(ProgramEditorTest, HelpMenuShowsHelpAndTheAboutBox) {
  ScriptedDialogs dialogs;
  // No help.htm in this application directory.
  dialogs.answer(Answer::OK);
  main->action("MenuHelp2")->trigger();
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "Cannot locate file: " + app + "help.htm");

  QString title;
  WhenModalShown<frmAbout>([&](frmAbout* about) {
    title = about->lblTitle->text();
    QTest::mouseClick(about->cmdOK, Qt::LeftButton);
  });
  main->action("MenuAbout")->trigger();
  EXPECT_EQ(title, "Orvex");
  EXPECT_EQ(dialogs.shown.size(), 1u);
}

} // namespace
} // namespace orvex::test

namespace orvex::test {
namespace {

TEST_F(ProgramEditorTest, ACallableProgramOpensInAnEditorFromTheMIList) {
  ScriptedDialogs dialogs;
  writeProgram("progs/sub.kvp", {"@B.MI"});
  main->openCallableProgram("progs/sub.kvp");
  ASSERT_NE(main->editor(2), nullptr);
  EXPECT_EQ(editor(2).windowTitle(), "sub");
  EXPECT_EQ(header(editor(2)), "Program ready");
  EXPECT_EQ(main->activeSlot(), 2);

  dialogs.answer(Answer::OK);
  main->openCallableProgram("progs/sub.kvp");
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "This program has already been opened.");
  EXPECT_EQ(main->editor(3), nullptr);
}

TEST_F(ProgramEditorTest, AFailureInsideTheNewMISetButtonEndsInABoxNotInTheEventLoop) {
  ScriptedDialogs dialogs;
  // The new set's list is drawn through this hook; it fails inside the command.
  ws.MIListChanged = [] { throw std::runtime_error("the MI list is stuck"); };
  WhenModalShown<GetDirName>([](GetDirName* d) {
    d->Text1->setText("fresh");
    QTest::mouseClick(d->OK, Qt::LeftButton);
  });
  dialogs.answer(Answer::Yes);  // "Create (sub)directory?"
  dialogs.answer(Answer::OK);
  main->action("ToolNewMISet")->trigger();
  ASSERT_EQ(dialogs.messages().size(), 2u);
  EXPECT_EQ(dialogs.messages()[1], "the MI list is stuck");
  EXPECT_EQ(dialogs.shown[1].icon, Icon::Critical);
}

} // namespace
} // namespace orvex::test
