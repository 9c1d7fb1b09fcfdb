// The workbench windows driven offscreen: start-up with the set chooser, the menu tree and
// settings, the MI list's keys, buttons and drags, the MI editor, the small set windows, the
// Qt dialog handler and the close sequence. Message boxes are answered by ScriptedDialogs;
// modal windows are answered by a timer that finds them once they are shown.
#include <filesystem>
#include <functional>

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QListWidget>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QStatusBar>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QToolBar>

#include "app/main_window.h"
#include "mi/gui/default_mi.h"
#include "mi/mi_file.h"
#include "miset/gui/mi_list_window.h"
#include "miset/gui/mirow_mime.h"
#include "miset/gui/set_dialogs.h"
#include "miset/mi_list.h"
#include "miset/set_qubits.h"
#include "platform/gui/qt_dialogs.h"
#include "platform/gui/qt_text.h"
#include "platform/gui/twips.h"
#include "support/test_support.h"
#include "workspace/paths.h"

namespace orvex::test {
namespace {

using platform::Answer;
using platform::Icon;
// The window; the operation of the same name is orvex::SetQubits(ws, ui, n).
using SetQubitsWindow = class orvex::SetQubits;

// Runs `f` on the modal window of type D once it is shown (polling, so it works whatever the
// order of events); fails the test when none appears.
template <class D>
void WhenModal(std::function<void(D*)> f, int attempts = 200) {
  QTimer::singleShot(10, [f, attempts] {
    if (auto* d = qobject_cast<D*>(QApplication::activeModalWidget())) {
      f(d);
      return;
    }
    if (attempts > 0) WhenModal<D>(f, attempts - 1);
    else ADD_FAILURE() << "no modal window appeared";
  });
}

std::string MIFile(const std::string& about) {
  return "!Micro instruction \r\nHEISENBERG INTERACTION\r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n!" + about +
         "\r\n!END\r\n";
}

struct WorkbenchTest : ::testing::Test {
  WorkbenchTest() {
    dir.write("MI/alpha/qubits.dat", " 3 \r\n");
    dir.write("MI/alpha/Pulse.MI", MIFile("a pulse"));
    dir.write("MI/alpha/INITIALIZE.MI", MIFile("init"));
    dir.write("MI/beta/qubits.dat", " 2 \r\n");
    dir.write("MI/stray.txt", "not a set");
    ws.AppDir = dir.path();
    main = std::make_unique<MainWindow>(ws);
    main->show();
  }
  // Answers the next set chooser with set `name`.
  static void choose(const std::string& name) {
    WhenModal<SelectMI>([name](SelectMI* d) {
      for (int r = 0; r < d->ListView1->count(); ++r)
        if (d->ListView1->item(r)->text().toStdString() == name) d->ListView1->setCurrentRow(r);
      QTest::mouseClick(d->OK, Qt::LeftButton);
    });
  }
  // Starts the workbench choosing set `name` in the chooser.
  void startWith(const std::string& name) {
    choose(name);
    main->startUp();
  }
  MIList& list() { return *main->miList(); }
  int rowOf(const std::string& text) {
    for (int r = 0; r < list().Micro->count(); ++r)
      if (list().Micro->item(r)->text().toStdString() == text) return r;
    return -1;
  }
  void doubleClickRow(int row) {
    QListWidgetItem* item = list().Micro->item(row);
    const QRect rect = list().Micro->visualItemRect(item);
    QTest::mouseClick(list().Micro->viewport(), Qt::LeftButton, {}, rect.center());
    QTest::mouseDClick(list().Micro->viewport(), Qt::LeftButton, {}, rect.center());
  }

  TempDir dir;
  Workspace ws;
  std::unique_ptr<MainWindow> main;
};

TEST_F(WorkbenchTest, StartUpShowsTheChooserAndOpensTheChosenSet) {
  ScriptedDialogs dialogs;
  std::vector<std::string> offered;
  QString title;
  WhenModal<SelectMI>([&](SelectMI* d) {
    title = d->windowTitle();
    for (int r = 0; r < d->ListView1->count(); ++r) offered.push_back(d->ListView1->item(r)->text().toStdString());
    for (int r = 0; r < d->ListView1->count(); ++r)
      if (offered[r] == "alpha") d->ListView1->setCurrentRow(r);
    QTest::mouseClick(d->OK, Qt::LeftButton);
  });
  ws.RunningProgram = 4;
  main->startUp();
  EXPECT_EQ(title, "Select micro instruction set");
  std::sort(offered.begin(), offered.end());
  EXPECT_EQ(offered, (std::vector<std::string>{"alpha", "beta"}));
  EXPECT_EQ(ws.RunningProgram, -1);
  EXPECT_EQ(ws.NoOutputFiles, 1);
  EXPECT_EQ(list().windowTitle(), "Set: alpha");
  EXPECT_EQ(main->miListWindow()->windowTitle(), "Set: alpha");
  ASSERT_EQ(list().Micro->count(), 3);
  EXPECT_EQ(list().Micro->item(0)->text(), "Breakpoint");
  EXPECT_EQ(list().Micro->item(1)->text(), "INITIALIZE");
  EXPECT_EQ(list().Micro->item(2)->text(), "Pulse");
  EXPECT_EQ(ws.NumberOfQubits, 3);
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(WorkbenchTest, CancellingTheChooserAtStartUpStillOpensTheSelectedSet) {
  ScriptedDialogs dialogs;
  QString selected;
  WhenModal<SelectMI>([&](SelectMI* d) {
    d->ListView1->setCurrentRow(1);
    selected = d->ListView1->item(1)->text();
    QTest::mouseClick(d->Cancel, Qt::LeftButton);
  });
  main->startUp();
  EXPECT_EQ(list().windowTitle(), "Set: " + selected);
  EXPECT_GE(list().Micro->count(), 2);
}

TEST_F(WorkbenchTest, MenusCarryTheirCaptionsAndSettingsReachTheWorkspace) {
  const std::pair<const char*, const char*> items[] = {
      {"MenuFile", "&File"}, {"MenuNew", "&New program"}, {"MenuOpen", "&Open program"},
      {"MenuSave", "&Save all"}, {"MenuExit", "Exit"}, {"MenuSettings", "&Settings"},
      {"MenuProp", "&Orvex properties"}, {"MenuFiles", "&Create output files"},
      {"MenuShowQubits", "Animate &qubits"}, {"MenuSize0", "Sm&all size qubits"},
      {"MenuSize1", "&Normal size qubits"}, {"MenuSize2", "&Large size qubits"},
      {"MenuSize3", "&Very large size qubits"}, {"MenuSteps0", "&Program steps Only"},
      {"MenuSteps1", "&Main steps only"}, {"MenuSteps2", "All &steps"}, {"MenuProject", "&Tools"},
      {"MenuRun", "&Start"}, {"MenuStep", "&Step"}, {"MenuBack", "&Back"}, {"MenuReset", "&Reset"},
      {"MenuSaveP", "&Save program"}, {"MenuClearMI", "&Update MI"}, {"MenuRename", "Save &program as"},
      {"MenuWindow", "&Window"}, {"MenuArrange", "&Arrange windows"},
      {"MenuShow", "&Show micro instructions"}, {"MenuHelp", "&Help"}, {"MenuHelp2", "&Help"},
      {"MenuAbout", "&About Orvex"}};
  for (auto [name, caption] : items) {
    QAction* a = main->action(QString::fromLatin1(name));
    ASSERT_NE(a, nullptr) << name;
    EXPECT_EQ(a->text(), QString::fromLatin1(caption)) << name;
  }
  // The menu bar's order.
  QStringList bar;
  for (QAction* a : main->menuBar()->actions()) bar << a->text();
  EXPECT_EQ(bar, (QStringList{"&File", "&Settings", "&Tools", "&Window", "&Help"}));

  QStringList tools;
  for (QAction* a : main->toolbar()->actions()) tools << a->text();
  EXPECT_EQ(tools, (QStringList{"New", "Open", "Save all", "New MI set"}));

  EXPECT_TRUE(main->action("MenuSize1")->isChecked());
  EXPECT_TRUE(main->action("MenuSteps0")->isChecked());
  EXPECT_FALSE(main->action("MenuFiles")->isChecked());
  main->action("MenuFiles")->trigger();
  EXPECT_EQ(ws.NoOutputFiles, 0);
  main->action("MenuFiles")->trigger();
  EXPECT_EQ(ws.NoOutputFiles, 1);
  main->action("MenuShowQubits")->trigger();
  EXPECT_EQ(ws.AnimateQubits, 1);
  main->action("MenuSize3")->trigger();
  EXPECT_EQ(ws.QubitSize, 3);
  EXPECT_FALSE(main->action("MenuSize1")->isChecked());
  main->action("MenuSteps2")->trigger();
  EXPECT_EQ(ws.StepGranularity, 2);
  EXPECT_FALSE(main->action("MenuSteps0")->isChecked());
  EXPECT_TRUE(main->action("MenuSteps2")->isChecked());

  // "Show micro instructions" brings the closed MI list back.
  main->miListWindow()->close();
  EXPECT_FALSE(main->miListWindow()->isVisible());
  main->action("MenuShow")->trigger();
  EXPECT_TRUE(main->miListWindow()->isVisible());
}

TEST_F(WorkbenchTest, ListButtonsKeysClicksAndDrags) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  const QStringList tips = {"Open MI set", "Save MI set", "Copy MI Set", "Set number of qubits", "New MI",
                            "Copy MI", "Sort MI", "Delete MI", "Add Quantum Program (QP)"};
  for (int i = 0; i < tips.size(); ++i) {
    ASSERT_NE(list().button(i), nullptr);
    EXPECT_EQ(list().button(i)->toolTip(), tips[i]);
    EXPECT_FALSE(list().button(i)->icon().isNull());
  }

  // A click shows the description, the breakpoint row its name.
  QTest::mouseClick(list().Micro->viewport(), Qt::LeftButton, {},
                    list().Micro->visualItemRect(list().Micro->item(rowOf("Pulse"))).center());
  EXPECT_EQ(list().StatusBar1->currentMessage(), "a pulse");
  QTest::mouseClick(list().Micro->viewport(), Qt::LeftButton, {},
                    list().Micro->visualItemRect(list().Micro->item(0)).center());
  EXPECT_EQ(list().StatusBar1->currentMessage(), "Breakpoint");

  // Delete on the breakpoint row does nothing.
  QTest::keyClick(list().Micro, Qt::Key_Delete);
  EXPECT_EQ(list().Micro->count(), 3);

  // A drag carries key, text and icon.
  const QModelIndex index = list().Micro->model()->index(rowOf("Pulse"), 0);
  std::unique_ptr<QMimeData> data(list().Micro->model()->mimeData({index}));
  ASSERT_TRUE(data);
  const auto row = DecodeMIRow(data.get());
  ASSERT_TRUE(row);
  EXPECT_EQ(row->Text, "Pulse");
  EXPECT_EQ(row->Icon, kIconMI);
  EXPECT_EQ(row->Key, ws.MIList.Rows[rowOf("Pulse")].Key);
  std::unique_ptr<QMimeData> bp(list().Micro->model()->mimeData({list().Micro->model()->index(0, 0)}));
  EXPECT_EQ(DecodeMIRow(bp.get())->Icon, kIconBreakpoint);
  QMimeData plain;
  plain.setText("Pulse");
  EXPECT_FALSE(DecodeMIRow(&plain));

  // Ctrl+N twice: two rows "New", each in its own editor.
  QTest::keyClick(list().Micro, Qt::Key_N, Qt::ControlModifier);
  QTest::keyClick(list().Micro, Qt::Key_N, Qt::ControlModifier);
  ASSERT_EQ(list().Micro->count(), 5);
  EXPECT_EQ(list().Micro->item(3)->text(), "New");
  EXPECT_EQ(list().Micro->item(4)->text(), "New");
  ASSERT_NE(main->miEditor(1), nullptr);
  ASSERT_NE(main->miEditor(2), nullptr);
  EXPECT_NE(main->miEditor(1)->miSlot(), main->miEditor(2)->miSlot());
  EXPECT_EQ(main->mdi()->subWindowList().size(), 3);

  // Opening an MI that is open already beeps.
  doubleClickRow(4);
  EXPECT_EQ(dialogs.beeps, 1);
  EXPECT_EQ(main->mdi()->subWindowList().size(), 3);

  // Ctrl+C on a selected MI copies it; Ctrl+D asks before deleting.
  list().Micro->setCurrentRow(rowOf("Pulse"));
  QTest::keyClick(list().Micro, Qt::Key_C, Qt::ControlModifier);
  EXPECT_NE(rowOf("Copy_of_Pulse"), -1);
  list().Micro->setCurrentRow(rowOf("Pulse"));
  dialogs.answer(Answer::No);
  QTest::keyClick(list().Micro, Qt::Key_D, Qt::ControlModifier);
  EXPECT_EQ(dialogs.messages().back(), "This will delete the current MI.\rAre you sure ?");
  EXPECT_NE(rowOf("Pulse"), -1);
}

TEST_F(WorkbenchTest, AFullTableIsReportedNotFatal) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  for (int k = ws.MICount + 1; k <= kMaxMIs; ++k) {
    ws.MITable(k).InUse = true;
    ws.MITable(k).Name = "m" + std::to_string(k) + ".MI";
  }
  ws.MICount = kMaxMIs;
  dialogs.answer(Answer::OK);
  QTest::keyClick(list().Micro, Qt::Key_N, Qt::ControlModifier);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text,
            "Subscript out of range: the MI set already holds 500 micro instructions and "
            "programs, errorcode: 9");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(ws.MICount, kMaxMIs);
}

TEST_F(WorkbenchTest, EditedMIIsSavedWithEveryField) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("Pulse"));
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  EXPECT_EQ(ed->windowTitle(), "Pulse");
  EXPECT_EQ(ed->Grid1->rowCount(), 3);
  EXPECT_EQ(ed->GridJ->rowCount(), 3);
  QStringList headers;
  for (int c = 0; c < ed->Grid1->columnCount(); ++c) headers << ed->Grid1->horizontalHeaderItem(c)->text();
  EXPECT_EQ(headers, (QStringList{"Hx_0", "Hx_1", "\u03A9_x", "phi_x", "Hy_0", "Hy_1", "\u03A9_y", "phi_y", "Hz_0",
                                  "Hz_1", "\u03A9_z", "phi_z"}));
  EXPECT_FALSE(ed->Combo1->isVisibleTo(ed));  // only the initialisation MI has an initial state

  ed->NameText->selectAll();
  QTest::keyClicks(ed->NameText, "Kick");
  ed->DescriptionText->setText("kick both");
  ed->TimeStepText->setText(".25");
  QTest::mouseClick(ed->TimeInPi, Qt::LeftButton, {}, QPoint(5, ed->TimeInPi->height() / 2));
  ed->MainStepsText->setText("4");
  ed->IntermediateStepsText->setText("100");
  for (int q = 0; q < 3; ++q)
    for (int c = 0; c < 12; ++c) ed->Grid1->item(q, c)->setText(QString::number(q * 12 + c + 1) + ".5");
  for (int p = 0; p < 3; ++p)
    for (int c = 0; c < 3; ++c) ed->GridJ->item(p, c)->setText("-" + QString::number(p * 3 + c) + "E-03");
  EXPECT_TRUE(ed->changed());
  EXPECT_TRUE(ed->TimeInPi->isChecked());
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  EXPECT_EQ(main->miEditor(1), nullptr);
  EXPECT_FALSE(ws.MIEditorOpen(1));
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_NE(rowOf("Kick"), -1);

  MicroInstruction back;
  ReadMI(ws.MISetPath + "Kick.MI", back);
  EXPECT_EQ(back.Description, "kick both");
  EXPECT_NEAR(back.TimeStep, 0.25, 1e-14);
  EXPECT_EQ(back.TimeStepInPi, 1);
  EXPECT_EQ(back.FieldSteps, 4);
  EXPECT_EQ(back.IntermediateSteps, 100);
  for (int q = 1; q <= 3; ++q)
    for (int c = 0; c < 12; ++c)
      EXPECT_EQ(back.Field(q, Workspace::FieldColumnMap[c]), (q - 1) * 12 + c + 1.5) << q << "," << c;
  EXPECT_EQ(back.J(1, 2, 0), 0.0);
  EXPECT_EQ(back.J(1, 2, 2), -2E-03);
  EXPECT_EQ(back.J(1, 3, 1), -4E-03);
  EXPECT_EQ(back.J(2, 3, 2), -8E-03);

  // Reopened, the editor shows what was saved.
  doubleClickRow(rowOf("Kick"));
  ASSERT_NE(main->miEditor(1), nullptr);
  EXPECT_EQ(main->miEditor(1)->Grid1->item(2, 3)->text(), "28.5");
  EXPECT_EQ(main->miEditor(1)->TimeStepText->text(), ".25");
}

TEST_F(WorkbenchTest, NonNumberCellIsMarkedAndRefused) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("Pulse"));
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  const std::string before = dir.read("MI/alpha/Pulse.MI");
  ed->Grid1->item(1, 4)->setText("1.5x");
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "The value \"1.5x\" of Hy_0 of qubit 2 is not a number.\rCorrect it and try again.");
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(main->miEditor(1), ed);  // still open
  EXPECT_NE(ed->Grid1->item(1, 4)->background(), QBrush());
  EXPECT_EQ(dir.read("MI/alpha/Pulse.MI"), before);

  ed->TimeStepText->setText("fast");
  ed->Grid1->item(1, 4)->setText("2");
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->SaveButton, Qt::LeftButton);
  EXPECT_EQ(dialogs.shown.back().text, "The value \"fast\" of the time step is not a number.\rCorrect it and try again.");
  EXPECT_EQ(ed->Grid1->item(1, 4)->background(), QBrush());

  // An unusable name is refused and the editor stays.
  ed->TimeStepText->setText("1");
  ed->NameText->setText("a/b");
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  EXPECT_EQ(main->miEditor(1), ed);
  EXPECT_EQ(dialogs.shown.size(), 3u);
}

TEST_F(WorkbenchTest, AFileErrorOnSavingIsReportedAndTheEditorStays) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("Pulse"));
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  ed->DescriptionText->setText("nowhere to go");
  std::filesystem::remove_all(dir.path() + "MI/alpha");  // the set's directory is gone
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].icon, Icon::Critical);
  EXPECT_EQ(dialogs.shown[0].text.rfind("Path not found", 0), 0u);
  EXPECT_NE(dialogs.shown[0].text.find(", errorcode: 76"), std::string::npos);
  EXPECT_EQ(main->miEditor(1), ed);  // still open, the edits still shown
  EXPECT_TRUE(ed->changed());
  EXPECT_TRUE(ws.MIEditorOpen(1));
}

TEST_F(WorkbenchTest, Latin1NamesKeepTheirBytesThroughTheEditorAndADrag) {
  ScriptedDialogs dialogs;
  dir.write("MI/alpha/caf\xE9.MI", MIFile("d\xE9j\xE0 vu"));
  startWith("alpha");
  const int row = rowOf("caf\xC3\xA9");  // shown decoded from Latin-1
  ASSERT_NE(row, -1);

  // A drag carries the name as the file spells it, for the program to name the file.
  std::unique_ptr<QMimeData> data(list().Micro->model()->mimeData({list().Micro->model()->index(row, 0)}));
  const auto dragged = DecodeMIRow(data.get());
  ASSERT_TRUE(dragged);
  EXPECT_EQ(dragged->Text, "caf\xE9");

  // Saved after a change elsewhere: the same file, the description's bytes unchanged.
  doubleClickRow(row);
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  ed->MainStepsText->setText("7");
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  EXPECT_TRUE(dialogs.shown.empty());
  EXPECT_EQ(ListFiles(dir.path() + "MI/alpha", ".MI").size(), 3u);
  MicroInstruction back;
  ReadMI(dir.path() + "MI/alpha/caf\xE9.MI", back);
  EXPECT_EQ(back.FieldSteps, 7);
  EXPECT_EQ(back.Description, "d\xE9j\xE0 vu");
}

TEST_F(WorkbenchTest, ClosingAChangedEditorAsksAndCancelKeepsIt) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("Pulse"));
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  ed->DescriptionText->setText("changed");
  QMdiSubWindow* frame = qobject_cast<QMdiSubWindow*>(ed->parentWidget());
  ASSERT_NE(frame, nullptr);

  dialogs.answer(Answer::Cancel);
  frame->close();
  EXPECT_EQ(dialogs.messages().back(), "The micro instruction Pulse has been changed.\rSave the changes?");
  EXPECT_EQ(main->miEditor(1), ed);

  dialogs.answer(Answer::No);
  frame->close();
  QApplication::processEvents();
  EXPECT_EQ(main->miEditor(1), nullptr);
  EXPECT_FALSE(ws.MIEditorOpen(1));
  EXPECT_EQ(ws.MITable(SlotOfRow(ws, rowOf("Pulse"))).Description, "a pulse");
  EXPECT_FALSE(ws.MITable(SlotOfRow(ws, rowOf("Pulse"))).IsOpen);
}

TEST_F(WorkbenchTest, InitialisationMIOffersTheFourStatesAndRefusesGroundStatePastEight) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("INITIALIZE"));
  DefaultMI* ed = main->miEditor(1);
  ASSERT_NE(ed, nullptr);
  EXPECT_TRUE(ed->Combo1->isVisibleTo(ed));
  QStringList choices;
  for (int i = 0; i < ed->Combo1->count(); ++i) choices << ed->Combo1->itemText(i);
  EXPECT_EQ(choices, (QStringList{"Ground state", "All qubits |0>", "All qubits |1>", "Random state"}));
  ws.NumberOfQubits = 9;
  ed->Combo1->setCurrentIndex(0);
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->OKButton, Qt::LeftButton);
  EXPECT_EQ(main->miEditor(1), ed);
  EXPECT_EQ(dialogs.messages().back(),
            "The ground state can be computed for 8 qubits or fewer only.\rChoose another initial state.");
}

TEST_F(WorkbenchTest, OpeningAnotherSetClosesEditorsThroughTheirStoreAndClose) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  doubleClickRow(rowOf("Pulse"));
  main->miEditor(1)->DescriptionText->setText("stored on the way out");
  dialogs.answer(Answer::Yes);  // There is still 1 MI open ... save it?
  choose("beta");
  list().button(0)->trigger();
  EXPECT_EQ(dialogs.messages().front(),
            "There is still 1 MI open.\r\nDo you want to save it before opening another MI-set?");
  EXPECT_EQ(list().windowTitle(), "Set: beta");
  EXPECT_EQ(main->miEditor(1), nullptr);
  MicroInstruction back;
  ReadMI(dir.path() + "MI/alpha/Pulse.MI", back);
  EXPECT_EQ(back.Description, "stored on the way out");
}

TEST_F(WorkbenchTest, SetWindowsNewSetAndQubitCount) {
  ScriptedDialogs dialogs;
  startWith("beta");

  // New MI set: an illegal name keeps the prompt open, a good one creates the set.
  for (int i = 0; i < 4; ++i) dialogs.answer(Answer::OK);  // Illegal directory name
  dialogs.answer(Answer::Yes);  // Create (sub)directory?
  QString caption;
  WhenModal<GetDirName>([&](GetDirName* d) {
    caption = d->windowTitle();
    // The non-ASCII characters of the list are caught as typed, whatever their encoding.
    for (const char* typed : {"a.b", "pound \xC2\xA3", "not \xC2\xAC", "bar \xC2\xA6"}) {
      d->Text1->setText(QString::fromUtf8(typed));
      QTest::mouseClick(d->OK, Qt::LeftButton);
      EXPECT_TRUE(d->isVisible()) << typed;
    }
    d->Text1->setText("my set");
    QTest::mouseClick(d->OK, Qt::LeftButton);
  });
  main->action("ToolNewMISet")->trigger();
  EXPECT_EQ(caption, "New MI set");
  EXPECT_EQ(dialogs.messages(), (std::vector<std::string>{"Illegal directory name", "Illegal directory name",
                                                          "Illegal directory name", "Illegal directory name",
                                                          "Create (sub)directory?"}));
  EXPECT_EQ(list().windowTitle(), "Set: my set");
  EXPECT_TRUE(dir.exists("MI/my set/qubits.dat"));

  // The qubit-count window offers 2..32 with the current number selected.
  QStringList offered;
  int selected = -1;
  WhenModal<SetQubitsWindow>([&](SetQubitsWindow* d) {
    for (int i = 0; i < d->Combo1->count(); ++i) offered << d->Combo1->itemText(i);
    selected = d->Combo1->currentIndex();
    d->Combo1->setCurrentIndex(4);  // 6 qubits
    QTest::mouseClick(d->OK, Qt::LeftButton);
  });
  list().button(3)->trigger();
  ASSERT_EQ(offered.size(), 31);
  EXPECT_EQ(offered.front(), "2");
  EXPECT_EQ(offered.back(), "32");
  EXPECT_EQ(selected, 0);
  EXPECT_EQ(ws.NumberOfQubits, 6);
  EXPECT_EQ(dir.read("MI/my set/qubits.dat"), " 6 \r\n");
}

TEST_F(WorkbenchTest, TheQubitCountChangesOnlyWhenOKIsPressed) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  const std::string pulse = dir.read("MI/alpha/Pulse.MI");
  QString typedThree, typedTwelve;
  bool openAfterEnter = false;
  WhenModal<SetQubitsWindow>([&](SetQubitsWindow* d) {
    d->Combo1->setFocus();
    QTest::keyClick(d->Combo1, Qt::Key_3);  // on 3 already: 3 stays, the list does not move on
    typedThree = d->Combo1->currentText();
    QTest::keyClick(d->Combo1, Qt::Key_Return);  // Enter is no OK
    QTest::keyClick(d->Combo1, Qt::Key_Enter);
    openAfterEnter = d->isVisible();
    QTest::keyClicks(d->Combo1, "12");
    typedTwelve = d->Combo1->currentText();
    QTest::mouseClick(d->Cancel, Qt::LeftButton);
  });
  list().button(3)->trigger();
  EXPECT_EQ(typedThree, "3");
  EXPECT_TRUE(openAfterEnter);
  EXPECT_EQ(typedTwelve, "12");
  EXPECT_EQ(ws.NumberOfQubits, 3);
  EXPECT_EQ(dir.read("MI/alpha/qubits.dat"), " 3 \r\n");
  EXPECT_EQ(dir.read("MI/alpha/Pulse.MI"), pulse);

  WhenModal<SetQubitsWindow>([&](SetQubitsWindow* d) {
    QTest::keyClick(d->Combo1, Qt::Key_5);
    QTest::mouseClick(d->OK, Qt::LeftButton);
  });
  list().button(3)->trigger();
  EXPECT_EQ(ws.NumberOfQubits, 5);
  EXPECT_EQ(dir.read("MI/alpha/qubits.dat"), " 5 \r\n");
  EXPECT_TRUE(dialogs.shown.empty());
}

TEST_F(WorkbenchTest, RunStatesSwitchTheFrameCommands) {
  ScriptedDialogs dialogs;
  startWith("alpha");
  main->applyRunCommandStates(RunCommandStatesFor(false));
  for (const char* name : {"MenuFile", "MenuSettings", "MenuWindow", "MenuProject", "MenuHelp", "MenuSize2",
                           "MenuSteps1", "ToolNewMISet"})
    EXPECT_FALSE(main->action(name)->isEnabled()) << name;
  EXPECT_TRUE(main->action("MenuBack")->isEnabled());
  EXPECT_FALSE(main->miListWindow()->isEnabled());
  EXPECT_FALSE(list().button(8)->isEnabled());

  main->applyRunCommandStates(RunCommandStatesFor(true));
  for (const char* name : {"MenuFile", "MenuProject", "MenuSize2", "ToolNew"})
    EXPECT_TRUE(main->action(name)->isEnabled()) << name;
  EXPECT_FALSE(main->action("MenuBack")->isEnabled());
  EXPECT_TRUE(main->miListWindow()->isEnabled());
  EXPECT_TRUE(list().button(0)->isEnabled());
}

TEST(QtDialogs, MessageBoxTitleIconTextAndAnswer) {
  platform::QtDialogHandler handler;
  QString title, text, detail;
  QMessageBox::Icon icon = QMessageBox::NoIcon;
  int buttons = 0;
  WhenModal<QMessageBox>([&](QMessageBox* box) {
    title = box->windowTitle();
    text = box->text();
    detail = box->detailedText();
    icon = box->icon();
    buttons = box->standardButtons();
    QTest::mouseClick(box->button(QMessageBox::No), Qt::LeftButton);
  });
  const Answer a = handler.message("first\rsecond", Icon::Exclamation, platform::Buttons::YesNoCancel, "why");
  EXPECT_EQ(a, Answer::No);
  EXPECT_EQ(title, "Orvex");
  EXPECT_EQ(text, "first\nsecond");
  EXPECT_EQ(detail, "why");
  EXPECT_EQ(icon, QMessageBox::Warning);
  EXPECT_EQ(buttons, int(QMessageBox::Yes | QMessageBox::No | QMessageBox::Cancel));
}

TEST(QtDialogs, ASaveDialogGivesANameWithoutExtensionTheFiltersExtension) {
  TempDir dir;
  platform::QtDialogHandler handler;
  platform::FileRequest request;
  request.title = "Save program as";
  request.filter = "Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*";
  request.directory = dir.path();
  request.save = true;
  auto typeName = [](const QString& name) {
    WhenModal<QFileDialog>([name](QFileDialog* d) {
      // Typed into the name field, as the user does.
      d->findChild<QLineEdit*>(QStringLiteral("fileNameEdit"))->setText(name);
      static_cast<QDialog*>(d)->accept();  // the dialog's own accept, as its button does
      if (d->isVisible()) d->reject();       // refused: fail on the result, do not hang
    });
  };
  typeName(QStringLiteral("mine"));
  EXPECT_EQ(handler.chooseFile(request), std::optional<std::string>(dir.path() + "mine.kvp"));
  typeName(QStringLiteral("notes.txt"));  // a name with an extension keeps it
  EXPECT_EQ(handler.chooseFile(request), std::optional<std::string>(dir.path() + "notes.txt"));

  request.save = false;  // opening takes the name as it is
  dir.write("plain", "");
  typeName(QStringLiteral("plain"));
  EXPECT_EQ(handler.chooseFile(request), std::optional<std::string>(dir.path() + "plain"));
}

TEST(QtDialogs, FiltersTextAndTwips) {
  EXPECT_EQ(platform::QtFileFilter("Quantum Program (*.KVP)|*.KVP|All files (*.*)|*.*"),
            "Quantum Program (*.KVP *.kvp);;All files (*)");
  EXPECT_EQ(platform::DisplayText("a\r\nb\rc"), "a\nb\nc");
  EXPECT_EQ(platform::FromBytes("caf\xC3\xA9"), QString::fromUtf8("caf\xC3\xA9"));
  EXPECT_EQ(platform::FromBytes("caf\xE9"), QString::fromLatin1("caf\xE9"));
  EXPECT_EQ(platform::TwipsToPixelsAt(15, 96), 1);
  EXPECT_EQ(platform::TwipsToPixelsAt(1440, 96), 96);
  EXPECT_EQ(platform::PixelsToTwipsAt(100, 96), 1500);
  EXPECT_EQ(platform::TwipsToPixelsAt(1440, 144), 144);
}

} // namespace
} // namespace orvex::test
