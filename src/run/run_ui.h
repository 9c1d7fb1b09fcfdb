// What the run controller and the program operations need from the windows around them. The
// operations stay Qt-free; the workbench implements these hooks with its windows, the command
// line and the tests with their own. Every hook defaults to doing nothing, which is what a
// workbench without windows needs. The run's status line and the handling of pending events
// between engine calls go through the user port (platform/dialogs.h).
#pragma once

#include <string>

namespace orvex {

class RunUi {
public:
  virtual ~RunUi() = default;

  // --- run controller --------------------------------------------------------------------
  // Repaint the qubit boxes of `slot` from QubitX/Y/Z(slot, q) for q in 1..ProgramQubits(slot)
  // (no boxes when ProgramQubits is 0).
  virtual void updateQubitDisplay(int /*slot*/) {}
  // Apply RunCommandStatesFor(enabled) (run/run_commands.h) to the editor of `slot`, the MI
  // list, the menus and the tool bars, then process pending events once.
  virtual void enableRunCommands(int /*slot*/, bool /*enabled*/) {}
  // The slot's Status, CurrentRow, Caption, Rows or Changed changed: refresh its editor.
  // While ws.EngineBusy and ws.RunningProgram == slot the editor's run control shows "Stop";
  // RunProgram ignores a second start then, so that control is best wired to ResetProgram.
  virtual void programChanged(int /*slot*/) {}
  // One frame of the animated qubit window from EngineX/Y/Z (while the call loop runs with
  // AnimateQubits on).
  virtual void qubitWindowFrame() {}
  // Repaint the qubit window after a reset.
  virtual void refreshQubitWindow() {}

  // --- program table -----------------------------------------------------------------------
  // Show (create when needed) the editor of `slot`; the slot's Visible flag is already set.
  virtual void showEditor(int /*slot*/) {}
  // Arrange the program editor windows in the frame.
  virtual void arrangeWindows() {}
};

} // namespace orvex
