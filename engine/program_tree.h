// The program tree of a run: the top program, the programs it calls through ".MP"
// redirects, and every MI they name, all loaded and checked before anything is evolved.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/engine_error.h"
#include "engine/mi_file.h"

namespace orvex::engine {

inline constexpr int kMaxNesting = 16;

struct ProgramFile;

struct ProgramEntry {
  enum Kind { Mi, Call, Breakpoint } kind = Mi;
  int line = 0;
  std::string text;                  // the name as written after "@"
  const MiFile* mi = nullptr;        // Mi
  const ProgramFile* program = nullptr;  // Call
};

struct ProgramFile {
  std::string name;  // as named by the caller (or the top program name)
  std::filesystem::path path;
  std::vector<ProgramEntry> entries;
};

// Finds `name` below `dir`: each component ("\" and "/" both separate) matched exactly or,
// failing that, without regard to letter case.
std::optional<std::filesystem::path> ResolveName(const std::filesystem::path& dir,
                                                 const std::string& name);

// Lines of a program file that matter to the engine (calls and breakpoints), by the
// program file reading rules.
std::vector<ProgramEntry> ParseProgramLines(const std::string& text);

class ProgramTree {
public:
  // Loads `programName` from `runDir` and everything it reaches.
  EngineError Load(const std::filesystem::path& runDir, const std::string& programName);

  const ProgramFile* Top() const { return top_; }
  // Register size: the largest qubit index of every MI reached (at least 1).
  int Qubits() const { return qubits_; }
  const std::vector<const MiFile*>& Mis() const { return misInOrder_; }

private:
  EngineError LoadProgram(const std::filesystem::path& path, const std::string& name, int depth,
                          std::vector<std::filesystem::path>& stack, const ProgramFile*& out);
  EngineError ResolveCall(const ProgramFile& caller, const ProgramEntry& entry,
                          std::filesystem::path& target, std::string& targetName);

  std::filesystem::path runDir_;
  std::map<std::filesystem::path, std::unique_ptr<ProgramFile>> programs_;
  std::map<std::filesystem::path, int> height_;  // programs fully checked: nesting below them
  std::map<std::filesystem::path, std::unique_ptr<MiFile>> mis_;
  std::vector<const MiFile*> misInOrder_;
  const ProgramFile* top_ = nullptr;
  int qubits_ = 1;
};

} // namespace orvex::engine
