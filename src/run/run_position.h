// Where a halted run stands. The engine does not report its position, so it is derived: the
// program is walked the way the engine walks it at program-step granularity (every MI call and
// breakpoint in order, called programs expanded in place), and a halt is placed after the
// next breakpoint (a run) or the next MI call (a step) from the position of the last halt.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

// One MI call or breakpoint of the walk, with the row of the top program it belongs to (a
// call of another program tags everything inside it with the calling row).
struct WalkEvent {
  bool breakpoint = false;
  int row = 0;  // 0-based row of the editor's list
};

// The walk of the program in `slot`: its editor rows (saved before every run, so the engine
// reads the same) with every program row expanded through the ".MP" redirect in `runDir`
// and the program file it names (looked up in `runDir` and then in each ancestor, as the
// engine does). nullopt when a called program cannot be read, the nesting goes deeper than 16,
// or the walk exceeds `limit` events.
std::optional<std::vector<WalkEvent>> WalkProgram(const Workspace& ws, int slot,
                                                  const std::string& runDir,
                                                  std::size_t limit = 30000);

// From position `from` (the number of events already passed), the position after the next
// halt: after the next breakpoint for mode 0 (run), after the next MI call for mode 1 (step).
// nullopt when the walk holds none (the program then ends).
std::optional<int> NextHalt(const std::vector<WalkEvent>& walk, int from, int mode);

// The row shown for position `position`: the row of the last event passed, 0 ("Start")
// before the first.
int RowAt(const std::vector<WalkEvent>& walk, int position);

} // namespace orvex
