// The program tree of a run: the top program, the programs it calls through ".MP"
// redirects, and every MI they name, all loaded and checked before anything is evolved.
// Which lines call what, how names are found and how deep programs may nest is the
// workbench's program walk (program/program_walk.h), the same that places the marks of a
// halted run.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "engine/engine_error.h"
#include "engine/mi_file.h"

namespace orvex::engine {

struct ProgramFile;

struct ProgramEntry {
  enum Kind { Mi, Call, Breakpoint } kind = Mi;
  int line = 0;
  std::string text;                      // the name as written after "@"
  const MiFile* mi = nullptr;            // Mi
  const ProgramFile* program = nullptr;  // Call
};

struct ProgramFile {
  std::string name;  // as named by the caller (or the top program name)
  std::filesystem::path path;
  std::vector<ProgramEntry> entries;
};

class ProgramTree {
public:
  // Loads `programName` from `runDir` and everything it reaches.
  EngineError Load(const std::filesystem::path& runDir, const std::string& programName);

  const ProgramFile* Top() const { return top_; }
  // Register size: the largest qubit index of every MI reached (at least 1).
  int Qubits() const { return qubits_; }
  const std::vector<const MiFile*>& Mis() const { return misInOrder_; }

private:
  std::vector<std::unique_ptr<ProgramFile>> programs_;
  std::map<std::filesystem::path, std::unique_ptr<MiFile>> mis_;
  std::vector<const MiFile*> misInOrder_;
  const ProgramFile* top_ = nullptr;
  int qubits_ = 1;
};

} // namespace orvex::engine
