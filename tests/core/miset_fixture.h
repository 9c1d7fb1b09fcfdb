// Shared pieces of the MI-set tests: a workspace in a fresh application directory, MI file
// text, and a window stand-in that records which editors were opened and closed. The set
// chooser and name prompt are questions of the user port, answered by ScriptedDialogs.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "miset/miset_ui.h"
#include "support/test_support.h"
#include "workspace/workspace.h"

namespace orvex::test {

class ScriptedUi : public MISetUi {
public:
  bool closeMIEditor(int editorSlot, bool save) override {
    closed.emplace_back(editorSlot, save);
    if (!closeResult) return false;
    // What the real editor does on closing.
    ws->MIEditorOpen(editorSlot) = false;
    for (auto& [mi, ed] : opened)
      if (ed == editorSlot) ws->MITable(mi).IsOpen = false;
    return true;
  }
  bool openMIEditor(int miSlot, int editorSlot) override {
    opened.emplace_back(miSlot, editorSlot);
    return true;
  }
  void unloadQubitWindow() override { ++qubitWindowUnloads; }
  void openCallableProgram(const std::string& relativePath) override {
    programsOpened.push_back(relativePath);
  }
  void miSlotsMoved(const std::vector<int>& newIndexOf) override { lastMove = newIndexOf; }

  Workspace* ws = nullptr;
  bool closeResult = true;
  std::vector<std::pair<int, int>> opened;  // (MI slot, editor slot)
  std::vector<std::pair<int, bool>> closed;  // (editor slot, save)
  int qubitWindowUnloads = 0;
  std::vector<std::string> programsOpened;
  std::vector<int> lastMove;
};

// A small MI file with a description and one recognisable field value for qubit 1.
inline std::string MIText(const std::string& about, double hx0 = 0) {
  return "!Micro instruction \r\nHEISENBERG INTERACTION\r\nEND\r\nSPIN : 1 (Hx0, ...)\r\n" +
         std::to_string(hx0) + ", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, \r\nEND\r\nNO CHECK NORM\r\n!ABOUT\r\n!" +
         about + "\r\n!END\r\n";
}

// A workspace whose application directory is a fresh temporary directory.
struct SetFixture : ::testing::Test {
  SetFixture() {
    ws.AppDir = dir.path();
    ui.ws = &ws;
  }
  // Writes a file of set `set` (relative to MI/<set>/).
  void put(const std::string& set, const std::string& file, const std::string& bytes) {
    dir.write("MI/" + set + "/" + file, bytes);
  }
  std::vector<std::string> rowTexts() const {
    std::vector<std::string> t;
    for (const auto& r : ws.MIList.Rows) t.push_back(r.Text);
    return t;
  }
  std::vector<std::string> rowKeys() const {
    std::vector<std::string> t;
    for (const auto& r : ws.MIList.Rows) t.push_back(r.Key);
    return t;
  }
  // Every record 1..MICount is listed once and in use: the keys are consecutive.
  void expectConsecutiveKeys() const {
    ASSERT_EQ(ws.MIList.Rows.size(), static_cast<std::size_t>(ws.MICount) + 1);
    std::vector<bool> seen(ws.MICount + 1, false);
    for (std::size_t r = 1; r < ws.MIList.Rows.size(); ++r) {
      const std::string& key = ws.MIList.Rows[r].Key;
      ASSERT_EQ(key.substr(0, 2), "MI");
      const int k = std::stoi(key.substr(2));
      ASSERT_GE(k, 1);
      ASSERT_LE(k, ws.MICount);
      EXPECT_FALSE(seen[k]) << key;
      seen[k] = true;
      EXPECT_TRUE(ws.MITable(k).InUse);
    }
  }
  int rowOf(const std::string& text) const {
    for (std::size_t r = 0; r < ws.MIList.Rows.size(); ++r)
      if (ws.MIList.Rows[r].Text == text) return static_cast<int>(r);
    return -1;
  }

  TempDir dir;
  Workspace ws;
  ScriptedUi ui;
};

} // namespace orvex::test
