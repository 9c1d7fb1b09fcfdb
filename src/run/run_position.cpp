// Walking a program as the engine does, to place the marks of a halted run.
#include "run/run_position.h"

#include <exception>
#include <filesystem>

#include "program/program_file.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

constexpr int kMaxNesting = 16;

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

bool Walk(const std::vector<ProgramRow>& rows, std::size_t first, int topRow,
          const std::string& runDir, int depth, std::size_t limit,
          std::vector<WalkEvent>& out) {
  for (std::size_t i = first; i < rows.size(); ++i) {
    const int row = topRow >= 0 ? topRow : static_cast<int>(i);
    switch (rows[i].Icon) {
      case kIconMI:
      case kIconBreakpoint:
        if (out.size() >= limit) return false;
        out.push_back({rows[i].Icon == kIconBreakpoint, row});
        break;
      case kIconProgramRow: {
        if (depth >= kMaxNesting) return false;
        auto program = CalledProgram(runDir, rows[i].Text);
        if (!program) return false;
        if (!Walk(ReadProgramRows(*program), 0, row, runDir, depth + 1, limit, out)) return false;
        break;
      }
      default:
        break;  // the "Start" row
    }
  }
  return true;
}

} // namespace

std::optional<std::vector<WalkEvent>> WalkProgram(const Workspace& ws, int slot,
                                                  const std::string& runDir, std::size_t limit) {
  try {
    std::vector<WalkEvent> walk;
    if (!Walk(ws.Program(slot).Rows, 0, -1, runDir, 1, limit, walk)) return std::nullopt;
    return walk;
  } catch (const std::exception&) {
    return std::nullopt;
  }
}

std::optional<int> NextHalt(const std::vector<WalkEvent>& walk, int from, int mode) {
  const bool wantBreakpoint = mode == 0;
  for (int i = std::max(from, 0); i < static_cast<int>(walk.size()); ++i)
    if (walk[i].breakpoint == wantBreakpoint) return i + 1;
  return std::nullopt;
}

int RowAt(const std::vector<WalkEvent>& walk, int position) {
  if (position <= 0 || position > static_cast<int>(walk.size())) return 0;
  return walk[position - 1].row;
}

} // namespace orvex
