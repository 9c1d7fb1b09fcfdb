// A workspace with an open MI set and a program, a run directory, and the stand-in engine
// (tests/fake_engine) loaded through ORVEX_ENGINE, with its call log and script in the test's
// temporary directory. Restores the current directory and the environment afterwards.
#pragma once

#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "run/run_ui.h"
#include "support/test_support.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex::test {

inline std::string FakeEnginePath() {
  if (const char* env = std::getenv("ORVEX_FAKE_ENGINE"); env && *env) return env;
#ifdef ORVEX_FAKE_ENGINE_PATH
  return ORVEX_FAKE_ENGINE_PATH;
#else
  return "";
#endif
}

// Records what the run controller told the windows, in order (what it told the user, the
// status line included, the fixture's ScriptedDialogs records).
class RecordingUi : public RunUi {
public:
  void updateQubitDisplay(int slot) override { events.push_back("display " + std::to_string(slot)); }
  void enableRunCommands(int slot, bool enabled) override {
    events.push_back(std::string(enabled ? "enable " : "disable ") + std::to_string(slot));
    if (onEnable) onEnable(enabled);
  }
  void programChanged(int slot) override { events.push_back("changed " + std::to_string(slot)); }
  void qubitWindowFrame() override { ++frames; }
  void refreshQubitWindow() override { events.push_back("refresh qubit window"); }
  void showEditor(int slot) override { events.push_back("show " + std::to_string(slot)); }
  void arrangeWindows() override { events.push_back("arrange"); }

  int count(const std::string& event) const {
    int n = 0;
    for (auto& e : events) n += e == event;
    return n;
  }

  std::vector<std::string> events;
  int frames = 0;
  std::function<void(bool)> onEnable;
};

class RunFixture : public ::testing::Test {
protected:
  void SetUp() override {
    char cwd[PATH_MAX];
    ASSERT_NE(getcwd(cwd, sizeof cwd), nullptr);
    savedCwd_ = cwd;
    ASSERT_FALSE(FakeEnginePath().empty()) << "the stand-in engine's path is not known";
    setenv("ORVEX_ENGINE", FakeEnginePath().c_str(), 1);
    setenv("ORVEX_FAKE_LOG", (dir.path() + "calls.log").c_str(), 1);
    setenv("ORVEX_FAKE_SCRIPT", (dir.path() + "script.txt").c_str(), 1);

    app = dir.path() + "app/";
    ws.AppDir = app;
    ws.MISetPath = app + "MI/demo/";
    ws.NumberOfQubits = 2;
    AddMI("INITIALIZE.MI", "initialize\r\n");
    AddMI("A.MI", "mi a\r\n");
    AddMI("B.MI", "mi b\r\n");
    MicroInstruction& loop = ws.MITable(++ws.MICount);
    loop.InUse = true;
    loop.Name = "loop.MP";
    loop.Description = "Run: progs/loop.kvp";
    dir.write("app/MI/demo/loop.MP", "@progs/loop.kvp\r\n");
    MicroInstruction& gone = ws.MITable(++ws.MICount);  // deleted: never copied
    gone.InUse = false;
    gone.Name = "GONE.MI";

    // Program 1: Start, INITIALIZE, A, Breakpoint, B.
    dir.write("app/progs/main.kvp",
              "!Quantum program progs/main.kvp\r\n@INITIALIZE.MI\r\n@A.MI\r\n!BREAKPOINT\r\n@B.MI\r\n");
    SetProgram(1, "progs/main.kvp",
               {{"Start", kIconStart}, {"INITIALIZE", kIconMI}, {"A", kIconMI},
                {"Breakpoint", kIconBreakpoint}, {"B", kIconMI}});
  }

  void TearDown() override {
    ASSERT_EQ(chdir(savedCwd_.c_str()), 0);
    unsetenv("ORVEX_ENGINE");
    unsetenv("ORVEX_FAKE_LOG");
    unsetenv("ORVEX_FAKE_SCRIPT");
  }

  void AddMI(const std::string& name, const std::string& content) {
    MicroInstruction& mi = ws.MITable(++ws.MICount);
    mi.InUse = true;
    mi.Name = name;
    dir.write("app/MI/demo/" + name, content);
  }

  void SetProgram(int slot, const std::string& name, std::vector<ProgramRow> rows) {
    ProgramSlot& p = ws.Program(slot);
    p.Name = name;
    p.Rows = std::move(rows);
    p.Caption = NameWithoutExtension(FileNameOf(name));
    p.Status = "Program ready";
    p.Visible = true;
  }

  void Script(const std::string& lines) { dir.write("script.txt", lines); }

  // The stand-in engine's calls so far, one line each.
  std::vector<std::string> Calls() const {
    if (!dir.exists("calls.log")) return {};
    return SplitLines(dir.read("calls.log"));
  }

  std::string CurrentDirectory() const {
    char cwd[PATH_MAX];
    return getcwd(cwd, sizeof cwd) ? std::string(cwd) : std::string();
  }

  TempDir dir;
  std::string app;
  ScriptedDialogs dialogs;
  Workspace ws;
  RecordingUi ui;

private:
  std::string savedCwd_;
};

// True when `line` contains `part`.
inline bool Has(const std::string& line, const std::string& part) {
  return line.find(part) != std::string::npos;
}

} // namespace orvex::test
