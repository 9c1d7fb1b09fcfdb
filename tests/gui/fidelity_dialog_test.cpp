// The gate-fidelity window with the real orvex-cli beside the test binary, on the ideal2 demo
// set in a fresh application directory.
#include <filesystem>

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>

#include "mi/mi_file.h"
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
  EXPECT_EQ(d.qubits()->text(), QStringLiteral("1,2"));  // the qubits the MI acts on
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("CZ")));
  d.zPhases()->setChecked(true);
  computeIn(d);
  EXPECT_EQ(d.message()->text(), QString());
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
  EXPECT_EQ(d.phases()->text(), QString());
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
  EXPECT_EQ(d.message()->text(), QString());
  EXPECT_NEAR(shownFidelity(d), 1.0, 1e-6);
  EXPECT_FALSE(std::filesystem::exists(ws.AppDir + "progs/two.kvp"));
}

TEST_F(FidelityDialogTest, FailuresAreShownInTheWindow) {
  FidelityDialog bad(ws, FidelitySubjectForMI(ws, "Nope"));
  bad.show();
  computeIn(bad);
  EXPECT_EQ(bad.message()->text(),
            QStringLiteral("orvex-cli fidelity: Nope.MI is neither an MI of the set nor a program file"));
  EXPECT_EQ(bad.result()->text(), QString());

  // A two-qubit gate on one qubit is refused before anything runs.
  FidelityDialog d(ws, FidelitySubjectForMI(ws, "CZ"));
  d.qubits()->setText(QStringLiteral("2"));
  d.target()->setCurrentIndex(d.target()->findData(QStringLiteral("CNOT")));
  computeIn(d);
  EXPECT_EQ(d.message()->text(), QStringLiteral("CNOT compares exactly two qubits."));
  d.qubits()->setText(QStringLiteral("1,3"));
  computeIn(d);
  EXPECT_EQ(d.message()->text(), QStringLiteral("Qubit 3 is not in the register (qubits 1 to 2)."));
}

} // namespace
} // namespace orvex::test
