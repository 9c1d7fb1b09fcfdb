// The sweep window opened from an MI editor cell: a line chart and a heat map that show what
// orvex-cli sweep prints when run by hand, and an export that is exactly its output.
#include <cmath>
#include <filesystem>
#include <sstream>

#include <QAction>
#include <QPushButton>
#include <QApplication>
#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QLineSeries>
#include <QListWidget>
#include <QProcess>
#include <QProgressBar>
#include <QLabel>
#include <QSignalSpy>
#include <QTableWidget>
#include <QTest>
#include <QTimer>

#include "app/main_window.h"
#include "mi/gui/default_mi.h"
#include "miset/gui/mi_list_window.h"
#include "miset/gui/set_dialogs.h"
#include "run/gui/sweep_window.h"
#include "support/test_support.h"
#include "view/gui/heat_map.h"

namespace orvex::test {
namespace {

// One qubit in a static field along z, driven along y (Hy1 = 2 at the frequency Omega_y = 2).
const char* kRabi =
    "!Micro instruction \r\nHEISENBERG INTERACTION\r\nEND\r\n"
    "SPIN : 1 (Hx0, Hx1, Omega_x, Hy0, Hy1, Omega_y, Hz0, Hz1, Omega_z, phi_x, phi_y, phi_z)\r\n"
    "0, 0, 0, 0, 2, 2, 2, 0, 0, 0, 0, 0, \r\nEND\r\n"
    "NUMBER OF FIELD STEPS\r\n20\r\nEND\r\nTIME STEP\r\n.1\r\nEND\r\n"
    "NUMBER OF INTERMEDIATE TIME STEPS\r\n10\r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n!Rabi\r\n!END\r\n";

// The rows of the CLI's CSV as numbers (header dropped).
std::vector<std::vector<double>> Rows(const std::string& csv) {
  std::vector<std::vector<double>> rows;
  std::istringstream in(csv);
  std::string line;
  std::getline(in, line);
  while (std::getline(in, line)) {
    std::vector<double> row;
    std::istringstream fields(line);
    std::string f;
    while (std::getline(fields, f, ',')) row.push_back(std::stod(f));
    rows.push_back(row);
  }
  return rows;
}

struct SweepWindowTest : ::testing::Test {
  SweepWindowTest() {
    dir.write("MI/rabi/qubits.dat", " 1 \r\n");
    dir.write("MI/rabi/Rabi.MI", kRabi);
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
      if (list->item(r)->text() == "Rabi") {
        const QPoint at = list->visualItemRect(list->item(r)).center();
        QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, at);
        QTest::mouseDClick(list->viewport(), Qt::LeftButton, {}, at);
      }
    ed = main->miEditor(1);
  }

  // orvex-cli sweep run by hand on the set, one point at a time.
  std::string cli(const QStringList& vary) {
    QStringList args{"sweep", "Rabi", "--set", "rabi", "--home", QString::fromStdString(dir.path()), "--jobs", "1"};
    for (const QString& v : vary) args << "--vary" << v;
    QProcess p;
    p.start(QStringLiteral(ORVEX_BIN_DIR "/orvex-cli"), args);
    EXPECT_TRUE(p.waitForFinished(120000));
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().toStdString();
    return p.readAllStandardOutput().toStdString();
  }
  static bool finish(SweepWindow* w) {
    QSignalSpy done(w, &SweepWindow::sweepFinished);
    if (!w->run()) return false;
    if (!done.wait(120000)) return false;
    return done.takeFirst().at(0).toBool();
  }

  TempDir dir;
  Workspace ws;
  std::unique_ptr<MainWindow> main;
  DefaultMI* ed = nullptr;
};

TEST_F(SweepWindowTest, OneAndTwoParameterSweepsShowAndExportTheCommandsValues) {
  ScriptedDialogs dialogs;
  ASSERT_NE(ed, nullptr);
  const std::string before = dir.read("MI/rabi/Rabi.MI");

  // "Sweep…" on the frequency cell of the y drive names that parameter and starts at its value.
  ed->Grid1->setCurrentCell(0, 6);
  QAction* sweep = nullptr;
  for (QAction* a : ed->Grid1->actions())
    if (a->text() == QString::fromUtf8("Sweep\u2026")) sweep = a;
  ASSERT_NE(sweep, nullptr);
  sweep->trigger();
  auto* w = main->findChild<SweepWindow*>();
  ASSERT_NE(w, nullptr);
  EXPECT_EQ(w->Parameter1->currentText(), "Omega_y@1");
  EXPECT_EQ(w->Start1->text(), "2");

  // One parameter: the chart's curves are <sigma> = 1 - 2Q of the command's rows.
  w->Start1->setText("1");
  w->Stop1->setText("3");
  w->Count1->setText("5");
  QSignalSpy progress(w->Progress, &QProgressBar::valueChanged);
  ASSERT_TRUE(finish(w)) << (dialogs.messages().empty() ? "" : dialogs.messages().back());
  EXPECT_TRUE(progress.contains(QVariantList{5})) << "the bar follows the finished points";
  const std::string line = cli({"Rabi.MI:Omega_y@1=1:3:5"});
  const auto rows = Rows(line);
  ASSERT_EQ(rows.size(), 5u);
  for (int c = 0; c < 3; ++c) {
    ASSERT_EQ(w->series(c)->count(), 5) << c;
    for (int i = 0; i < 5; ++i) {
      EXPECT_DOUBLE_EQ(w->series(c)->at(i).x(), rows[i][0]);
      EXPECT_DOUBLE_EQ(w->series(c)->at(i).y(), 1 - 2 * rows[i][2 + c]) << "component " << c << " point " << i;
    }
  }
  dialogs.file(dir.path() + "rabi.csv");
  w->exportCsv();
  EXPECT_EQ(dir.read("rabi.csv"), line);

  // Two parameters: a map whose largest and smallest <sigma_z> sit in their own cells of a
  // 3 x 4 grid (x the frequency, y the steps).
  w->Count1->setText("3");
  w->Parameter2->setCurrentIndex(w->Parameter2->findText("FieldSteps"));
  EXPECT_EQ(w->Start2->text(), "20");
  w->Start2->setText("5");
  w->Stop2->setText("35");
  w->Count2->setText("4");
  ASSERT_TRUE(finish(w)) << (dialogs.messages().empty() ? "" : dialogs.messages().back());
  const std::string map = cli({"Rabi.MI:Omega_y@1=1:3:3", "Rabi.MI:FieldSteps=5:35:4"});
  const auto cells = Rows(map);
  ASSERT_EQ(cells.size(), 12u);
  int hi = 0, lo = 0;
  for (int k = 0; k < 12; ++k) {
    if (cells[k][5] < cells[hi][5]) hi = k;  // the largest sigma_z has the smallest Qz
    if (cells[k][5] > cells[lo][5]) lo = k;
  }
  ASSERT_GT(cells[lo][5] - cells[hi][5], 0.2) << "the map should not be flat";
  EXPECT_TRUE(w->Map->xLabel().startsWith("Omega_y@1 from 1 to 3")) << w->Map->xLabel().toStdString();
  EXPECT_TRUE(w->Map->yLabel().startsWith("FieldSteps from 5 to 35")) << w->Map->yLabel().toStdString();
  const QImage image = w->Map->grab().toImage();
  for (int k : {hi, lo}) {
    const QColor want = HeatMap::colorOf(1 - 2 * cells[k][5]);
    const QColor seen = image.pixelColor(w->Map->cellRect(k / 4, k % 4).center());
    EXPECT_EQ(seen.rgb(), want.rgb()) << "point " << k;
  }
  dialogs.file(dir.path() + "map.csv");
  w->exportCsv();
  EXPECT_EQ(dir.read("map.csv"), map);

  // Cancel stops a long sweep at once, without a message, keeps the shown result and leaves
  // no scratch copies in the temporary directory.
  const QByteArray tmpBefore = qgetenv("TMPDIR");
  const std::string tmp = dir.path() + "tmp";
  std::filesystem::create_directories(tmp);
  qputenv("TMPDIR", QByteArray::fromStdString(tmp));
  QSignalSpy done(w, &SweepWindow::sweepFinished);
  w->Parameter2->setCurrentIndex(0);
  w->Count1->setText("5000");
  ASSERT_TRUE(w->run());
  QTest::qWait(200);
  w->CancelButton->click();
  ASSERT_TRUE(done.wait(10000));
  EXPECT_FALSE(done.takeFirst().at(0).toBool());
  EXPECT_EQ(w->Status->text(), "Cancelled.");
  EXPECT_EQ(w->csv(), map);
  EXPECT_TRUE(std::filesystem::is_empty(tmp));
  if (tmpBefore.isNull()) qunsetenv("TMPDIR");
  else qputenv("TMPDIR", tmpBefore);

  EXPECT_EQ(dir.read("MI/rabi/Rabi.MI"), before);
  EXPECT_TRUE(dialogs.messages().empty()) << dialogs.messages().front();
}

} // namespace
} // namespace orvex::test
