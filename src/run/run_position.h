// Where a halted run stands. The engine does not report its position, so it is derived: the
// program is walked the way the engine walks it (every MI call and breakpoint in order, called
// programs expanded in place), each MI with its main steps m, intermediate steps n and time
// step τ from its file in the run directory, and every halt advances the position by what the
// engine does in one call loop: a run to the next breakpoint, a step by one MI, one main step
// or one intermediate step, as the run's granularity says.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

// One MI call or breakpoint of the walk, with the row of the top program it belongs to (a
// call of another program tags everything inside it with the calling row).
struct WalkEvent {
  bool breakpoint = false;
  int row = 0;                  // 0-based row of the editor's list
  std::string name;             // the MI as the program line names it; "" for a breakpoint
  std::int64_t mainSteps = 0;   // m; an MI of 0 main steps still counts as one step
  std::int64_t subSteps = 1;    // max(1, n): intermediate steps per main step
  double timeStep = 0;          // τ, the length of one main step
};

// A place in the walk: `event` events wholly passed, and `done` intermediate steps (out of
// mainSteps x subSteps) of walk[event] when that MI is under way (0 otherwise). A finished MI
// is always counted as passed, never as under way with all its steps done.
struct RunPosition {
  int event = 0;
  std::int64_t done = 0;
  friend bool operator==(const RunPosition&, const RunPosition&) = default;
};

// The walk of the program in `slot`: its editor rows (saved before every run, so the engine
// reads the same) with every program row expanded through the ".MP" redirect in `runDir`
// and the program file it names (looked up in `runDir` and then in each ancestor, as the
// engine does); MI files are read from `runDir`. nullopt when an MI or called program cannot
// be read, the nesting goes deeper than 16, or the walk exceeds `limit` events.
std::optional<std::vector<WalkEvent>> WalkProgram(const Workspace& ws, int slot,
                                                  const std::string& runDir,
                                                  std::size_t limit = 30000);

// The position after the next halt from `from`. Mode 0 (run): after the next breakpoint, the
// MI under way finished first. Mode 1 (step), by the granularity word of EngineFlags(3): 0 to
// the end of the next MI (or of the one under way), -1 one main step on, 1 one intermediate
// step on; breakpoints are passed over. nullopt when nothing is left to halt at (the program
// then ends).
std::optional<RunPosition> NextHalt(const std::vector<WalkEvent>& walk, RunPosition from,
                                    int mode, int granularityWord);

// The row marked at `at`: the MI under way, else the last event passed; 0 ("Start") before
// the first. -1 when the position lies beyond the walk.
int RowAt(const std::vector<WalkEvent>& walk, RunPosition at);

// The program time at `at`: the durations m·τ of the MIs passed plus the part of the MI
// under way.
double ProgramTimeAt(const std::vector<WalkEvent>& walk, RunPosition at);

// The status line of a halted run: "A, main step 3 of 10, t = 0.3" (with ", intermediate
// step 5 of 8" when halted inside a main step), "Breakpoint, t = 1.5", "Start, t = 0".
std::string PositionText(const std::vector<WalkEvent>& walk, RunPosition at);

} // namespace orvex
