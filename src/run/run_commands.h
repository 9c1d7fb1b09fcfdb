// Which commands are available while a program runs or is halted, as data: the workbench
// applies it to its menus and tool bars, tests check it without a display.
#pragma once

#include <array>

namespace orvex {

// The program editor's tool bar, by position (1-based); the texts are the tool tips.
inline constexpr std::array<const char*, 8> kEditorButtonTips = {
    "", "Clear program", "Save program", "Update MI", "Run", "Step", "Back", "Remove MI"};
inline constexpr int kButtonClear = 1, kButtonSave = 2, kButtonUpdateMI = 3, kButtonRun = 4,
                     kButtonStep = 5, kButtonBack = 6, kButtonRemove = 7;

struct RunCommandStates {
  // Main window menus: "&File", "&Settings", "&Window", "&Tools", "&Help".
  bool FileMenu = true, SettingsMenu = true, WindowMenu = true, ToolsMenu = true, HelpMenu = true;
  bool SizeItems = true;  // the four qubit-size items
  bool StepItems = true;  // the three step-granularity items
  bool MainToolbar = true;
  bool MIListWindow = true;
  bool MIListToolbar = true;
  bool BackItem = false;  // "&Back" of the Tools menu: available exactly while a run is on
  // The editor's buttons 1..7 (index 0 unused) for the editor of the slot concerned.
  std::array<bool, 8> EditorButtons{true, true, true, true, true, true, true, true};
};

// The states for `enabled` (true: idle after a finish or reset; false: running or halted).
//
// The editor's buttons: the run control (4, "Run", which shows "Stop" during a run) stays
// enabled. So do Step (5), Back (6) and Remove MI (7): while a program runs or is halted the
// whole Tools menu is off, and these buttons are then the only way to continue stepping, to
// step back and to reset (Remove MI resets the running program). What remains, and follows
// `enabled`, are the buttons that change the program under the engine: Clear program (1),
// Save program (2) and Update MI (3).
RunCommandStates RunCommandStatesFor(bool enabled);

} // namespace orvex
