// Laying out the run directory for the engine.
#include "run/run_directory.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>

#include "platform/dialogs.h"
#include "program/program_file.h"
#include "workspace/errors.h"
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
  for (int step = 1; step <= kMaxSteps; ++step) ws.StepTable(step) = 0;

  if (!SameDirectory(runDir, ws.MISetPath)) {
    DeleteCopies(runDir);
    for (int n = 1; n <= ws.MICount; ++n) {
      const MicroInstruction& mi = ws.MITable(n);
      if (!mi.InUse) continue;
      if (IsMIName(mi.Name))
        CopyWholeFile(ws.MISetPath + mi.Name, runDir + mi.Name);
      else
        WriteWholeFile(runDir + mi.Name, "@" + CallTarget(mi) + "\r\n");
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
