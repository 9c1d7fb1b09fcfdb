// The workbench's main window with its program editors, offscreen: a fresh application
// directory with an MI set, the stand-in engine (or the real one) and helpers to reach
// editors, rows and pixels. Restores the current directory and the engine
// environment afterwards.
#pragma once

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>

#include <QAction>
#include <QApplication>
#include <QListWidget>
#include <QMdiArea>
#include <QMdiSubWindow>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QTreeWidget>

#include "app/main_window.h"
#include "miset/gui/set_dialogs.h"
#include "program/gui/default_pg.h"
#include "program/program_table.h"
#include "support/test_support.h"

namespace orvex::test {

inline std::string EnvOrEmpty(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

// Runs `f` on the modal window of type D once it is shown.
template <class D>
void WhenModalShown(std::function<void(D*)> f, int attempts = 200) {
  QTimer::singleShot(10, [f, attempts] {
    if (auto* d = qobject_cast<D*>(QApplication::activeModalWidget())) {
      f(d);
      return;
    }
    if (attempts > 0) WhenModalShown<D>(f, attempts - 1);
    else ADD_FAILURE() << "no modal window appeared";
  });
}

inline std::string SimpleMI(const std::string& about) {
  return "!Micro instruction \r\nHEISENBERG INTERACTION\r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n!" + about +
         "\r\n!END\r\n";
}

class MainWindowTest : public ::testing::Test {
protected:
  // `engineVariable`: the environment variable naming the engine to load.
  explicit MainWindowTest(const char* engineVariable = "ORVEX_FAKE_ENGINE") {
    char cwd[PATH_MAX];
    if (getcwd(cwd, sizeof cwd)) savedCwd_ = cwd;
    savedEngine_ = EnvOrEmpty("ORVEX_ENGINE");
    engine_ = EnvOrEmpty(engineVariable);
    setenv("ORVEX_ENGINE", engine_.c_str(), 1);
    setenv("ORVEX_FAKE_LOG", (dir.path() + "calls.log").c_str(), 1);
    setenv("ORVEX_FAKE_SCRIPT", (dir.path() + "script.txt").c_str(), 1);
    app = dir.path() + "app/";
    ws.AppDir = app;
  }
  ~MainWindowTest() override {
    main.reset();
    if (!savedCwd_.empty()) (void)chdir(savedCwd_.c_str());
    if (savedEngine_.empty()) unsetenv("ORVEX_ENGINE");
    else setenv("ORVEX_ENGINE", savedEngine_.c_str(), 1);
  }

  // The set "demo" of two qubits with INITIALIZE, A and B.
  void writeDemoSet() {
    dir.write("app/MI/demo/qubits.dat", " 2 \r\n");
    dir.write("app/MI/demo/INITIALIZE.MI", SimpleMI("init"));
    dir.write("app/MI/demo/A.MI", SimpleMI("a"));
    dir.write("app/MI/demo/B.MI", SimpleMI("b"));
  }

  // Creates the windows and starts up choosing set `set`.
  void start(const std::string& set, std::vector<std::string> programArguments = {}) {
    ASSERT_FALSE(engine_.empty()) << "the engine's path is not known";
    main = std::make_unique<MainWindow>(ws);
    main->setProgramArguments(std::move(programArguments));
    main->resize(1400, 900);
    main->show();
    WhenModalShown<SelectMI>([set](SelectMI* d) {
      for (int r = 0; r < d->ListView1->count(); ++r)
        if (d->ListView1->item(r)->text().toStdString() == set) d->ListView1->setCurrentRow(r);
      QTest::mouseClick(d->OK, Qt::LeftButton);
    });
    main->startUp();
    ASSERT_EQ(ws.MISetPath.empty(), false);
  }

  // Writes a program file (header + lines) under the application directory.
  std::string writeProgram(const std::string& relative, const std::vector<std::string>& lines) {
    std::string text = "!Quantum program " + relative + "\r\n";
    for (const std::string& l : lines) text += l + "\r\n";
    return dir.write("app/" + relative, text);
  }

  // Opens a program through File > Open program, answering the file dialog.
  int openThroughMenu(ScriptedDialogs& dialogs, const std::string& absolutePath) {
    dialogs.file(absolutePath);
    main->action(QStringLiteral("MenuOpen"))->trigger();
    return main->activeSlot();
  }

  void script(const std::string& lines) { dir.write("script.txt", lines); }

  DefaultPG& editor(int slot) {
    DefaultPG* e = main->editor(slot);
    if (!e) throw std::runtime_error("no editor in slot " + std::to_string(slot));
    return *e;
  }
  static QStringList rowTexts(const DefaultPG& e) {
    QStringList texts;
    for (int r = 0; r < e.PG->topLevelItemCount(); ++r) texts << e.PG->topLevelItem(r)->text(0);
    return texts;
  }
  static QString header(const DefaultPG& e) { return e.PG->headerItem()->text(0); }
  static void select(DefaultPG& e, int row) { e.PG->setCurrentItem(e.PG->topLevelItem(row)); }
  bool enabled(const char* action) { return main->action(QString::fromLatin1(action))->isEnabled(); }

  TempDir dir;
  std::string app;
  Workspace ws;
  std::unique_ptr<MainWindow> main;

private:
  std::string savedCwd_;
  std::string savedEngine_;
  std::string engine_;
};

} // namespace orvex::test
