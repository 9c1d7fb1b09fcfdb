// Walking a program as the engine does, to place the marks and the status line of a halted run.
#include "run/run_position.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>

#include "mi/mi_file.h"
#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

constexpr int kMaxNesting = 16;
// The reader keeps a time step given in units of 2π divided by this; the engine gets it back.
constexpr double kTwoPi = 6.28318530717958;

// The program file a callable-program row `name` stands for, through its redirect.
std::optional<std::string> CalledProgram(const std::string& runDir, const std::string& name) {
  auto redirect = FindPath(runDir, name + ".MP");
  if (!redirect || !FileExists(*redirect)) return std::nullopt;
  const auto lines = SplitLines(ReadWholeFile(*redirect));
  if (lines.empty()) return std::nullopt;
  const auto at = lines[0].find('@');
  if (at == std::string::npos) return std::nullopt;
  const std::string target = NormalizeSeparators(Trim(lines[0].substr(at + 1)));
  if (target.empty()) return std::nullopt;
  for (std::filesystem::path dir = runDir;; dir = dir.parent_path()) {
    std::string base = dir.string();
    if (base.empty() || base.back() != '/') base += '/';
    if (auto found = FindPath(base, target); found && FileExists(*found)) return found;
    if (dir == dir.parent_path() || dir.empty()) break;
  }
  return std::nullopt;
}

class Walker {
public:
  Walker(const std::string& runDir, std::size_t limit) : runDir_(runDir), limit_(limit) {}

  bool Walk(const std::vector<ProgramRow>& rows, int topRow, int depth,
            std::vector<WalkEvent>& out) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const int row = topRow >= 0 ? topRow : static_cast<int>(i);
      switch (rows[i].Icon) {
        case kIconMI:
        case kIconBreakpoint: {
          if (out.size() >= limit_) return false;
          WalkEvent e;
          e.row = row;
          e.breakpoint = rows[i].Icon == kIconBreakpoint;
          if (!e.breakpoint && !Describe(rows[i].Text, e)) return false;
          out.push_back(std::move(e));
          break;
        }
        case kIconProgramRow: {
          if (depth >= kMaxNesting) return false;
          auto program = CalledProgram(runDir_, rows[i].Text);
          if (!program) return false;
          if (!Walk(ReadProgramRows(*program), row, depth + 1, out)) return false;
          break;
        }
        default:
          break;  // the "Start" row
      }
    }
    return true;
  }

private:
  // m, n and τ of the MI `name` from its copy in the run directory, each file read once.
  bool Describe(const std::string& name, WalkEvent& e) {
    const std::string key = Lower(name);
    auto known = mis_.find(key);
    if (known == mis_.end()) {
      auto path = FindPath(runDir_, name + ".MI");
      if (!path || !FileExists(*path)) return false;
      auto mi = std::make_unique<MicroInstruction>();
      ReadMI(*path, *mi);
      if (mi->FieldSteps < 0) return false;  // the engine refuses to run it
      WalkEvent info;
      info.mainSteps = mi->FieldSteps;
      info.subSteps = std::max<std::int64_t>(1, mi->IntermediateSteps);
      info.timeStep = mi->TimeStepInPi == 1 ? mi->TimeStep * kTwoPi : mi->TimeStep;
      known = mis_.emplace(key, info).first;
    }
    e.name = name;
    e.mainSteps = known->second.mainSteps;
    e.subSteps = known->second.subSteps;
    e.timeStep = known->second.timeStep;
    return true;
  }

  std::string runDir_;
  std::size_t limit_;
  std::map<std::string, WalkEvent> mis_;
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
    std::vector<WalkEvent> walk;
    Walker walker(runDir, limit);
    if (!walker.Walk(ws.Program(slot).Rows, -1, 1, walk)) return std::nullopt;
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
