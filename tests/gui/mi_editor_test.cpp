// The MI editor's arithmetic cells, its duration line, undo of cell edits and the grid edits
// (fill down, paste, same for all qubits, chain couplings), driven offscreen on a real editor.
#include <cmath>

#include <QAction>
#include <QApplication>
#include <QClipboard>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QTableWidget>
#include <QTest>
#include <QTimer>
#include <QUndoStack>

#include "app/main_window.h"
#include "mi/gui/default_mi.h"
#include "mi/mi_file.h"
#include "miset/gui/mi_list_window.h"
#include "miset/gui/set_dialogs.h"
#include "support/test_support.h"

namespace orvex::test {
namespace {

using platform::Answer;

struct MIEditorTest : ::testing::Test {
  MIEditorTest() {
    dir.write("MI/chain/qubits.dat", " 4 \r\n");
    dir.write("MI/chain/Pulse.MI",
              "!Micro instruction \r\nHEISENBERG INTERACTION\r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n!p\r\n!END\r\n");
    ws.AppDir = dir.path();
    main = std::make_unique<MainWindow>(ws);
    main->show();
    QTimer::singleShot(10, [] {
      if (auto* d = qobject_cast<SelectMI*>(QApplication::activeModalWidget())) {
        d->ListView1->setCurrentRow(0);
        QTest::mouseClick(d->OK, Qt::LeftButton);
      }
    });
    main->startUp();
    QListWidget* list = main->miList()->Micro;
    for (int r = 0; r < list->count(); ++r)
      if (list->item(r)->text() == "Pulse") {
        const QPoint at = list->visualItemRect(list->item(r)).center();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
      }
    ed = main->miEditor(1);
  }
  QStringList texts(QTableWidget* grid, int row) {
    QStringList t;
    for (int c = 0; c < grid->columnCount(); ++c) t << grid->item(row, c)->text();
    return t;
  }
  MicroInstruction saved() {
    MicroInstruction back;
    ReadMI(ws.MISetPath + "Pulse.MI", back);
    return back;
  }

  TempDir dir;
  Workspace ws;
  std::unique_ptr<MainWindow> main;
  DefaultMI* ed = nullptr;
};

TEST_F(MIEditorTest, ExpressionsAreStoredAsValuesAndBadOnesRefusedWithTheNumberMessage) {
  ScriptedDialogs dialogs;
  ASSERT_NE(ed, nullptr);
  const char* cells[] = {"pi/2", "2*pi*0.25", "sqrt(2)", "1e-3*5", "-(1+2)/3", " 2^3 "};
  const double values[] = {M_PI / 2, M_PI / 2, std::sqrt(2.0), 0.005, -1, 8};
  for (int c = 0; c < 6; ++c) ed->Grid1->item(1, c)->setText(cells[c]);
  ed->GridJ->item(0, 2)->setText("-pi/4");
  ed->TimeStepText->setText("1e-3*5");
  ed->MainStepsText->setText("2*50");
  EXPECT_EQ(ed->DurationLabel->text(), QString::fromUtf8("100 \u00D7 .005 = .5"));
  EXPECT_EQ(ed->Grid1->horizontalHeaderItem(2)->text(), QString::fromUtf8("\u03A9_x"));

  // One bad cell among them: refused with the message a non-number gets, nothing written.
  const std::string before = dir.read("MI/chain/Pulse.MI");
  ed->Grid1->item(2, 0)->setText("pi/");
  dialogs.answer(Answer::OK);
  QTest::mouseClick(ed->SaveButton, Qt::LeftButton);
  ASSERT_EQ(dialogs.shown.size(), 1u);
  EXPECT_EQ(dialogs.shown[0].text, "The value \"pi/\" of Hx_0 of qubit 3 is not a number.\rCorrect it and try again.");
  EXPECT_EQ(dir.read("MI/chain/Pulse.MI"), before);
  for (const char* bad : {"1,5", "x+1", "1/0", "a=3"}) EXPECT_FALSE(ParseNumberCell(bad)) << bad;

  ed->Grid1->item(2, 0)->setText("0");
  ASSERT_TRUE(ed->save());
  const MicroInstruction back = saved();
  for (int c = 0; c < 6; ++c)
    EXPECT_NEAR(back.Field(2, Workspace::FieldColumnMap[c]), values[c], 1e-13) << cells[c];
  EXPECT_NEAR(back.J(1, 2, 2), -M_PI / 4, 1e-13);
  EXPECT_NEAR(back.TimeStep, 0.005, 1e-15);
  EXPECT_EQ(back.FieldSteps, 100);
}

TEST_F(MIEditorTest, CellEditsUndoAndRedoAndTheSavedStateIsUnchanged) {
  ScriptedDialogs dialogs;
  ASSERT_NE(ed, nullptr);
  ed->Grid1->item(0, 0)->setText("1");
  ed->Grid1->item(0, 0)->setText("2");
  ed->GridJ->item(5, 1)->setText("3");
  EXPECT_TRUE(ed->changed());
  // Ctrl+Z in the grid: the last edit goes, then the one before.
  main->activateWindow();
  ASSERT_TRUE(QTest::qWaitForWindowActive(main.get()));
  ed->GridJ->setFocus();
  QTest::keyClick(ed->GridJ, Qt::Key_Z, Qt::ControlModifier);
  EXPECT_EQ(ed->GridJ->item(5, 1)->text(), "0");
  ed->undoStack()->undo();
  EXPECT_EQ(ed->Grid1->item(0, 0)->text(), "1");
  ed->undoStack()->undo();
  EXPECT_EQ(ed->Grid1->item(0, 0)->text(), "0");
  EXPECT_FALSE(ed->changed());
  EXPECT_EQ(ed->windowTitle(), "Pulse");
  QTest::keyClick(ed->GridJ, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
  EXPECT_EQ(ed->Grid1->item(0, 0)->text(), "1");
  EXPECT_TRUE(ed->changed());

  // Saved, then undone: changed again, and the undone value is what the next save writes.
  ASSERT_TRUE(ed->save());
  EXPECT_FALSE(ed->changed());
  ed->undoStack()->undo();
  EXPECT_TRUE(ed->changed());
  ASSERT_TRUE(ed->save());
  EXPECT_EQ(saved().Field(1, 0), 0.0);
}

TEST_F(MIEditorTest, FillPasteSameForAllAndChainAreOneUndoStepEach) {
  ScriptedDialogs dialogs;
  ASSERT_NE(ed, nullptr);
  QTableWidget* g = ed->Grid1;
  // Fill down from the first selected cell over a block.
  g->item(0, 1)->setText("pi");
  g->setRangeSelected(QTableWidgetSelectionRange(0, 1, 2, 2), true);
  const int steps = ed->undoStack()->count();
  ed->fillDown(g);
  EXPECT_EQ(ed->undoStack()->count(), steps + 1);
  for (int r = 0; r <= 2; ++r)
    for (int c = 1; c <= 2; ++c) EXPECT_EQ(g->item(r, c)->text(), "pi") << r << "," << c;
  EXPECT_EQ(g->item(3, 1)->text(), "0");
  ed->undoStack()->undo();
  EXPECT_EQ(texts(g, 0).mid(1, 2), (QStringList{"pi", "0"}));
  EXPECT_EQ(texts(g, 2).mid(1, 2), (QStringList{"0", "0"}));

  // A 2 x 3 block pasted at the current cell; what falls off the grid is left out.
  QApplication::clipboard()->setText("1\t2\t3\r\n4\t5\tpi/2\r\n");
  g->setCurrentCell(2, 4);
  ed->paste(g);
  EXPECT_EQ(texts(g, 2).mid(3, 5), (QStringList{"0", "1", "2", "3", "0"}));
  EXPECT_EQ(texts(g, 3).mid(3, 5), (QStringList{"0", "4", "5", "pi/2", "0"}));
  g->setCurrentCell(3, 10);
  ed->paste(g);  // two columns and a row fall off
  EXPECT_EQ(texts(g, 3).mid(10), (QStringList{"1", "2"}));
  ed->undoStack()->undo();
  ed->undoStack()->undo();
  EXPECT_EQ(texts(g, 2), QStringList(12, "0"));
  EXPECT_EQ(texts(g, 3), QStringList(12, "0"));

  // The current qubit's row to every qubit.
  for (int c = 0; c < 12; ++c) g->item(1, c)->setText(QString::number(c + 1));
  g->setCurrentCell(1, 5);
  ed->sameForAllQubits();
  for (int r = 0; r < 4; ++r) EXPECT_EQ(texts(g, r), texts(g, 1)) << r;

  // Chain: pairs 1-2, 2-3, 3-4 take the current pair's couplings, the others 0.
  QTableWidget* j = ed->GridJ;  // rows 1-2, 1-3, 1-4, 2-3, 2-4, 3-4
  for (int p = 0; p < 6; ++p) j->item(p, 0)->setText("9");
  j->item(1, 0)->setText("0.5");
  j->item(1, 2)->setText("-1");
  j->setCurrentCell(1, 0);
  ed->chainCouplings();
  const QStringList chain{"0.5", "0", "-1"}, none{"0", "0", "0"};
  EXPECT_EQ(texts(j, 0), chain);
  EXPECT_EQ(texts(j, 1), none);
  EXPECT_EQ(texts(j, 2), none);
  EXPECT_EQ(texts(j, 3), chain);
  EXPECT_EQ(texts(j, 4), none);
  EXPECT_EQ(texts(j, 5), chain);
  ASSERT_TRUE(ed->save());
  const MicroInstruction back = saved();
  EXPECT_EQ(back.J(2, 3, 0), 0.5);
  EXPECT_EQ(back.J(3, 4, 2), -1.0);
  EXPECT_EQ(back.J(1, 4, 0), 0.0);
  EXPECT_EQ(back.Field(4, Workspace::FieldColumnMap[11]), 12.0);
  ed->undoStack()->undo();
  EXPECT_EQ(texts(j, 2), (QStringList{"9", "0", "0"}));
  EXPECT_EQ(texts(j, 1), (QStringList{"0.5", "0", "-1"}));
}

} // namespace
} // namespace orvex::test
