// Walking a program as the engine does, through the program walk the engine itself loads its
// tree with, to place the marks and the status line of a halted run.
#include "run/run_position.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>

#include "mi/mi_file.h"
#include "program/program_file.h"
#include "program/program_walk.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

// The reader keeps a time step given in units of 2π divided by this; the engine gets it back.
constexpr double kTwoPi = 6.28318530717958;

// Expands the program tree in place into the events of a run, reading each MI file once.
class Expander {
public:
  explicit Expander(std::size_t limit) : limit_(limit) {}

  // The lines of `program`, each event tagged with `row`, or with the row `rowOf` gives for
  // its line when `row` is negative (the top program).
  bool Expand(const ProgramWalk::Program& program, int row, const std::map<int, int>& rowOf,
              std::vector<WalkEvent>& out) {
    for (const ProgramWalk::Line& line : program.lines) {
      const int at = row >= 0 ? row : rowOf.at(line.line);
      if (line.kind == ProgramLine::Call) {
        // Calls cost nothing in events, so they have a budget of their own.
        if (++calls_ > limit_ || !Expand(*line.program, at, rowOf, out)) return false;
        continue;
      }
      if (out.size() >= limit_) return false;
      WalkEvent e;
      e.row = at;
      e.breakpoint = line.kind == ProgramLine::Breakpoint;
      if (!e.breakpoint && !Describe(line, e)) return false;
      out.push_back(std::move(e));
    }
    return true;
  }

private:
  // m, n and τ of the MI from its file, each file read once.
  bool Describe(const ProgramWalk::Line& line, WalkEvent& e) {
    auto known = mis_.find(line.file);
    if (known == mis_.end()) {
      auto mi = std::make_unique<MicroInstruction>();
      ReadMI(line.file.string(), *mi);
      if (mi->FieldSteps < 0) return false;  // the engine refuses to run it
      WalkEvent info;
      info.mainSteps = mi->FieldSteps;
      info.subSteps = std::max<std::int64_t>(1, mi->IntermediateSteps);
      info.timeStep = mi->TimeStepInPi == 1 ? mi->TimeStep * kTwoPi : mi->TimeStep;
      known = mis_.emplace(line.file, info).first;
    }
    e.name = NameWithoutExtension(line.text);
    e.mainSteps = known->second.mainSteps;
    e.subSteps = known->second.subSteps;
    e.timeStep = known->second.timeStep;
    return true;
  }

  std::size_t limit_;
  std::size_t calls_ = 0;
  std::map<std::filesystem::path, WalkEvent> mis_;
};

std::int64_t TotalSubSteps(const WalkEvent& e) { return e.mainSteps * e.subSteps; }

// `done` steps into MI `event`: the MI counts as passed once all of them are done.
RunPosition Normalized(const std::vector<WalkEvent>& walk, int event, std::int64_t done) {
  if (done >= TotalSubSteps(walk[event])) return {event + 1, 0};
  return {event, done};
}

std::string FormatTime(double t) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.6g", t);
  return buf;
}

} // namespace

std::optional<std::vector<WalkEvent>> WalkProgram(const Workspace& ws, int slot,
                                                  const std::string& runDir, std::size_t limit) {
  try {
    // The rows as the saver writes them, which is what the engine reads: the top program
    // walks through the same reading rules as every program it calls.
    const ProgramSlot& program = ws.Program(slot);
    std::map<int, int> rowOf;  // line of the written file -> row of the editor's list
    int line = 1;             // the header
    for (std::size_t i = 0; i < program.Rows.size(); ++i) {
      const int icon = program.Rows[i].Icon;
      if (icon == kIconMI || icon == kIconProgramRow || icon == kIconBreakpoint)
        rowOf[++line] = static_cast<int>(i);
    }
    const std::string name = FileNameOf(program.Name);
    ProgramWalk tree;
    if (tree.LoadText(runDir, name, FormatProgram(name, program.Rows))) return std::nullopt;
    std::vector<WalkEvent> walk;
    if (!Expander(limit).Expand(*tree.Top(), -1, rowOf, walk)) return std::nullopt;
    return walk;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<RunPosition> NextHalt(const std::vector<WalkEvent>& walk, RunPosition from,
                                    int mode, int granularityWord) {
  const int size = static_cast<int>(walk.size());
  if (from.event < 0 || from.event > size || from.done < 0) return std::nullopt;
  const bool underWay = from.done > 0 && from.event < size;
  if (mode == 0) {
    // A run finishes the MI under way, then stops after the next breakpoint.
    for (int i = underWay ? from.event + 1 : from.event; i < size; ++i)
      if (walk[i].breakpoint) return RunPosition{i + 1, 0};
    return std::nullopt;
  }
  int event = from.event;
  std::int64_t done = underWay ? from.done : 0;
  if (!underWay) {
    while (event < size && walk[event].breakpoint) ++event;  // a breakpoint is never a step
    if (event >= size) return std::nullopt;
    if (walk[event].mainSteps == 0) return RunPosition{event + 1, 0};  // one step all the same
  }
  const WalkEvent& mi = walk[event];
  switch (granularityWord) {
    case 0:
      return RunPosition{event + 1, 0};
    case -1:  // to the end of the main step under way, or through the next one
      return Normalized(walk, event, (done / mi.subSteps + 1) * mi.subSteps);
    case 1:
      return Normalized(walk, event, done + 1);
    default:
      return std::nullopt;
  }
}

int RowAt(const std::vector<WalkEvent>& walk, RunPosition at) {
  const int size = static_cast<int>(walk.size());
  if (at.event < 0 || at.event > size) return -1;
  if (at.done > 0 && at.event < size) return walk[at.event].row;
  return at.event == 0 ? 0 : walk[at.event - 1].row;
}

double ProgramTimeAt(const std::vector<WalkEvent>& walk, RunPosition at) {
  double t = 0;
  const int passed = std::clamp(at.event, 0, static_cast<int>(walk.size()));
  for (int i = 0; i < passed; ++i)
    if (!walk[i].breakpoint) t += static_cast<double>(walk[i].mainSteps) * walk[i].timeStep;
  if (at.done > 0 && passed < static_cast<int>(walk.size())) {
    const WalkEvent& mi = walk[passed];
    t += static_cast<double>(at.done) * mi.timeStep / static_cast<double>(mi.subSteps);
  }
  return t;
}

std::string PositionText(const std::vector<WalkEvent>& walk, RunPosition at) {
  const std::string time = "t = " + FormatTime(ProgramTimeAt(walk, at));
  const int size = static_cast<int>(walk.size());
  if (at.event < 0 || at.event > size) return "";
  if (at.done > 0 && at.event < size) {
    const WalkEvent& mi = walk[at.event];
    const std::int64_t whole = at.done / mi.subSteps, part = at.done % mi.subSteps;
    std::string text = mi.name + ", main step " + std::to_string(part ? whole + 1 : whole) +
                       " of " + std::to_string(mi.mainSteps);
    if (part)
      text += ", intermediate step " + std::to_string(part) + " of " + std::to_string(mi.subSteps);
    return text + ", " + time;
  }
  if (at.event == 0) return "Start, " + time;
  const WalkEvent& last = walk[at.event - 1];
  if (last.breakpoint) return "Breakpoint, " + time;
  return last.name + ", main step " + std::to_string(last.mainSteps) + " of " +
         std::to_string(last.mainSteps) + ", " + time;
}

} // namespace orvex
