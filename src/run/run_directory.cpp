// Laying out the run directory for the engine.
#include "run/run_directory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <set>
#include <vector>

#include "mi/mi_file.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

bool SameDirectory(const std::string& a, const std::string& b) {
  std::error_code ec;
  return !a.empty() && !b.empty() && std::filesystem::equivalent(a, b, ec) && !ec;
}

bool IsAnotherSetsDirectory(const Workspace& ws, const std::string& dir) {
  return !SameDirectory(dir, ws.MISetPath) && FileExists(dir + "qubits.dat");
}

// Adds to `names` (upper case, without extension) every MI that `rows` call, and the MIs of
// the callable programs they call, each program once and no deeper than the engine goes.
void CollectCalledMIs(const Workspace& ws, const std::vector<ProgramRow>& rows, int depth,
                      std::set<std::string>& programs, std::set<std::string>& names) {
  if (depth > 16) return;
  for (const ProgramRow& row : rows) {
    if (row.Icon == kIconMI) {
      names.insert(Upper(row.Text));
      continue;
    }
    if (row.Icon != kIconProgramRow) continue;
    for (int n = 1; n <= ws.MICount; ++n) {
      const MicroInstruction& entry = ws.MITable(n);
      if (!entry.InUse || IsMIName(entry.Name) ||
          Upper(NameWithoutExtension(entry.Name)) != Upper(row.Text))
        continue;
      const std::string target = CallTarget(entry);
      if (!programs.insert(Upper(target)).second) break;
      try {
        CollectCalledMIs(ws, ReadProgramRows(ws.AppDir + target), depth + 1, programs, names);
      } catch (const RuntimeError&) {
        // A program that cannot be read is the engine's to report.
      }
      break;
    }
  }
}

// An MI the program calls that is not in the table although its file is in the set: the
// reader refused it when the set was opened. The run is refused with the reader's reason
// (the engine would only say that it does not exist: it is never copied).
void RefuseUnreadableMIs(const Workspace& ws, int slot) {
  std::set<std::string> programs, names;
  CollectCalledMIs(ws, ws.Program(slot).Rows, 1, programs, names);
  for (const std::string& name : names) {
    bool loaded = false;
    for (int n = 1; n <= ws.MICount && !loaded; ++n) {
      const MicroInstruction& mi = ws.MITable(n);
      loaded = mi.InUse && IsMIName(mi.Name) && Upper(NameWithoutExtension(mi.Name)) == name;
    }
    if (loaded) continue;
    const std::optional<std::string> path = FindPath(ws.MISetPath, name + ".MI");
    if (!path || !FileExists(*path)) continue;
    try {
      MicroInstruction scratch;
      ReadMI(*path, scratch);
    } catch (const RuntimeError& e) {
      throw RuntimeError(e.code(), "The micro instruction file " + FileNameOf(*path) +
                                       " could not be read, so the program cannot run." +
                                       platform::CR + e.description());
    }
  }
}

void DeleteCopies(const std::string& runDir) {
  for (const char* ext : {".MI", ".MP"})
    for (const std::string& name : ListFiles(runDir, ext)) std::remove((runDir + name).c_str());
}

} // namespace

std::string RunDirectoryOf(const Workspace& ws, int slot) {
  std::string dir = ws.AppDir + NormalizeSeparators(DirectoryOf(ws.Program(slot).Name));
  if (auto resolved = ResolvePath(dir)) dir = *resolved;
  if (dir.empty() || dir.back() != '/') dir += '/';
  return dir;
}

bool RefuseAnotherSetsDirectory(const Workspace& ws, int slot) {
  if (!IsAnotherSetsDirectory(ws, RunDirectoryOf(ws, slot))) return false;
  platform::MsgBox(std::string("This program is stored in the directory of another MI set.") +
                       platform::CR + "Running it there would replace that set's micro instructions." +
                       platform::CR + "Save the program in another directory and try again.",
                   platform::Icon::Critical);
  return true;
}

std::string PrepareRunDirectory(Workspace& ws, int slot) {
  const std::string runDir = RunDirectoryOf(ws, slot);
  RefuseUnreadableMIs(ws, slot);
  for (int step = 1; step <= kMaxSteps; ++step) ws.StepTable(step) = 0;

  if (!SameDirectory(runDir, ws.MISetPath)) {
    DeleteCopies(runDir);
    for (int n = 1; n <= ws.MICount; ++n) {
      const MicroInstruction& mi = ws.MITable(n);
      if (!mi.InUse) continue;
      if (IsMIName(mi.Name))
        CopyScratchFile(ws.MISetPath + mi.Name, runDir + mi.Name);
      else
        WriteScratchFile(runDir + mi.Name, "@" + CallTarget(mi) + "\r\n");
    }
  }
  if (chdir(runDir.c_str()) != 0) ThrowFileError(runDir, errno);
  return runDir;
}

void ClearRunDirectory(const Workspace& ws, int slot) {
  const std::string runDir = RunDirectoryOf(ws, slot);
  if (!SameDirectory(runDir, ws.MISetPath) && !IsAnotherSetsDirectory(ws, runDir))
    DeleteCopies(runDir);
}

} // namespace orvex
