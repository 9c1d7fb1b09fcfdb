// The enabling rule of the run state.
#include "run/run_commands.h"

namespace orvex {

RunCommandStates RunCommandStatesFor(bool enabled) {
  RunCommandStates s;
  s.FileMenu = s.SettingsMenu = s.WindowMenu = enabled;
  s.SizeItems = s.StepItems = enabled;
  s.MainToolbar = s.MIListWindow = s.MIListToolbar = enabled;
  s.BackItem = !enabled;
  s.ToolsMenu = s.HelpMenu = enabled;
  s.EditorButtons[kButtonClear] = enabled;
  s.EditorButtons[kButtonSave] = enabled;
  s.EditorButtons[kButtonUpdateMI] = enabled;
  s.EditorButtons[kButtonRun] = s.EditorButtons[kButtonStep] = true;
  s.EditorButtons[kButtonBack] = s.EditorButtons[kButtonRemove] = true;
  return s;
}

} // namespace orvex
