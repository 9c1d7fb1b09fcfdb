// The gate-fidelity window with the real orvex-cli beside the test binary, on the ideal2 demo
// set in a fresh application directory.
#include <filesystem>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "gui/main_window_fixture.h"
#include "mi/mi_file.h"
#include "miset/gui/mi_list_window.h"
#include "run/gui/fidelity_dialog.h"
#include "support/test_support.h"

namespace orvex::test {
namespace {

class FidelityDialogTest : public ::testing::Test {
protected:
  FidelityDialogTest() {
    ws.AppDir = dir.path() + "app/";
    ws.MISetPath = ws.AppDir + "MI/ideal2/";
    ws.NumberOfQubits = 2;
    std::filesystem::create_directories(ws.MISetPath);
    std::filesystem::copy(std::string(ORVEX_SOURCE_DIR) + "/data/MI/ideal2", ws.MISetPath);
    // The set as the workbench holds it after opening: CZ in the MI table.
    ws.MICount = 1;
    ws.MITable(1).InUse = true;
    ReadMI(ws.MISetPath + "CZ.MI", ws.MITable(1));
    ws.MITable(1).Name = "CZ.MI";
  }

  // Clicks Compute and waits for the outcome.
  static void computeIn(FidelityDialog& d) {
    QSignalSpy done(&d, &FidelityDialog::computed);
    QTest::mouseClick(d.computeButton(), Qt::LeftButton);
    ASSERT_TRUE(done.count() == 1 || done.wait(60000)) << "no outcome";
    EXPECT_FALSE(d.running());
  }

  static double shownFidelity(const FidelityDialog& d) {
    const QString text = d.result()->text();
    EXPECT_TRUE(text.startsWith(QStringLiteral("F = "))) << text.toStdString();
    return text.mid(4).section(QLatin1Char(' '), 0, 0).toDouble();
  }

  TempDir dir;
  Workspace ws;
};

TEST_F(FidelityDialogTest, CZPulseIsExactUpToZPhasesAndDrawnAsCZ) {
  FidelityDialog d(ws, FidelitySubjectForMI(ws, "CZ"));
  d.show();
  EXPECT_EQ(d.qubits()->text().toStdString(), "1,2");  // the qubits the MI acts on
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("CZ")));
  d.zPhases()->setChecked(true);
  computeIn(d);
  EXPECT_EQ(d.message()->text().toStdString(), "");
  EXPECT_NEAR(shownFidelity(d), 1.0, 1e-6);
  EXPECT_TRUE(d.phases()->text().contains(QStringLiteral("qubit 2"))) << d.phases()->text().toStdString();

  // |M| of |11> to |11> is 1 (dark), |11> to |00> is 0 (white).
  QTest::qWait(20);
  FidelityMatrixView* view = d.mapModulus();
  ASSERT_EQ(view->matrix().dim, 4);
  const QImage image = view->grab().toImage();
  const QPoint inset(3, 3);
  EXPECT_LT(qGray(image.pixel(view->cellRect(3, 3).topLeft() + inset)), 80);
  EXPECT_GT(qGray(image.pixel(view->cellRect(0, 3).topLeft() + inset)), 240);

  // Against SWAP the diagonal traces cancel: F = Tr(M+M)/(d(d+1)) = 4/20.
  d.zPhases()->setChecked(false);
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("SWAP")));
  computeIn(d);
  EXPECT_NEAR(shownFidelity(d), 0.2, 1e-6);
  EXPECT_EQ(d.phases()->text().toStdString(), "");
}

TEST_F(FidelityDialogTest, UnsavedProgramIsMeasuredAsTheEditorHoldsIt) {
  ProgramSlot& p = ws.Program(1);
  p.Name = "progs/two.kvp";
  p.Caption = "two";
  p.Changed = true;
  p.Rows = {{"Start", kIconStart}, {"Not1", kIconMI}};
  FidelityDialog d(ws, FidelitySubjectForProgram(ws, 1));
  d.show();
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("X")));
  computeIn(d);
  EXPECT_EQ(d.message()->text().toStdString(), "");
  EXPECT_NEAR(shownFidelity(d), 1.0, 1e-6);
  EXPECT_FALSE(std::filesystem::exists(ws.AppDir + "progs/two.kvp"));
}

TEST_F(FidelityDialogTest, FailuresAreShownInTheWindow) {
  FidelityDialog bad(ws, FidelitySubjectForMI(ws, "Nope"));
  bad.show();
  computeIn(bad);
  EXPECT_EQ(bad.message()->text().toStdString(),
            "orvex-cli fidelity: Nope.MI is neither an MI of the set nor a program file");
  EXPECT_EQ(bad.result()->text().toStdString(), "");

  // A two-qubit gate on one qubit is refused before anything runs.
  FidelityDialog d(ws, FidelitySubjectForMI(ws, "CZ"));
  d.qubits()->setText(QStringLiteral("2"));
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("CNOT")));
  computeIn(d);
  EXPECT_EQ(d.message()->text().toStdString(), "CNOT compares exactly two qubits.");
  d.qubits()->setText(QStringLiteral("1,3"));
  computeIn(d);
  EXPECT_EQ(d.message()->text().toStdString(), "Qubit 3 is not in the register (qubits 1 to 2).");
}

// The context menus open the window on what was clicked. `view` gets a context menu request
// at `pos`; the entry `entry` is chosen from it; `check` sees the window that opens.
void ChooseFromContextMenu(QAbstractScrollArea* view, QPoint pos, const QString& entry,
                           std::function<void(FidelityDialog*)> check) {
  bool opened = false;
  QTimer::singleShot(10, [&] {
    auto* menu = qobject_cast<QMenu*>(QApplication::activePopupWidget());
    ASSERT_NE(menu, nullptr) << "no context menu";
    QAction* a = menu->findChild<QAction*>(entry);
    ASSERT_NE(a, nullptr) << "no entry " << entry.toStdString();
    WhenModalShown<FidelityDialog>([&](FidelityDialog* d) {
      opened = true;
      check(d);
      d->reject();
    });
    menu->setActiveAction(a);
    QTest::keyClick(menu, Qt::Key_Return);
  });
  emit view->customContextMenuRequested(pos);
  EXPECT_TRUE(opened) << entry.toStdString();
}

class FidelityMenuTest : public MainWindowTest {};

TEST_F(FidelityMenuTest, ContextMenusOpenTheWindowOnTheRowClicked) {
  std::filesystem::create_directories(app + "MI");
  std::filesystem::copy(std::string(ORVEX_SOURCE_DIR) + "/data/MI/ideal2", app + "MI/ideal2");
  start("ideal2");
  QListWidget* list = main->miList()->Micro;
  const QList<QListWidgetItem*> cz = list->findItems(QStringLiteral("CZ"), Qt::MatchExactly);
  ASSERT_EQ(cz.size(), 1);
  ChooseFromContextMenu(list, list->visualItemRect(cz.first()).center(), QStringLiteral("MIListFidelity"),
                        [](FidelityDialog* d) {
                          EXPECT_EQ(d->qubits()->text().toStdString(), "1,2");
                          EXPECT_EQ(d->findChild<QLabel*>(QStringLiteral("FidelitySubject"))->text().toStdString(),
                                    "Fidelity of MI CZ in the set ideal2");
                        });

  ScriptedDialogs dialogs;
  const int slot = openThroughMenu(dialogs, writeProgram("progs/p.kvp", {"@Not2.MI", "@CZ.MI"}));
  ASSERT_GT(slot, 0);
  DefaultPG& e = editor(slot);
  const QPoint notRow = e.PG->visualItemRect(e.PG->topLevelItem(1)).center();
  ChooseFromContextMenu(e.PG, notRow, QStringLiteral("PGFidelityMI"), [](FidelityDialog* d) {
    EXPECT_EQ(d->qubits()->text().toStdString(), "2");
  });
  ChooseFromContextMenu(e.PG, notRow, QStringLiteral("PGFidelityProgram"), [](FidelityDialog* d) {
    EXPECT_EQ(d->findChild<QLabel*>(QStringLiteral("FidelitySubject"))->text().toStdString(),
              "Fidelity of program p in the set ideal2");
  });
}

} // namespace
} // namespace orvex::test
