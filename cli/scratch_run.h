// Engine runs in a scratch directory for the analysis commands (fidelity, sweep): the set's
// files are copied there, the copies may be edited, and the engine (linked in, not loaded)
// runs a program from there. The user's files are only read.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "engine/simulator.h"
#include "run/fidelity.h"

namespace orvex::cli {

// `dir` ending in "/".
std::string WithSlash(std::string dir);
// `path` made absolute and canonical as far as it exists; `path` itself when that fails.
std::string AbsoluteCanonical(const std::string& path);

// The file name of an MI of the set: `name` itself or with ".MI", found without regard to case.
std::optional<std::string> MIFileOf(const std::string& setDir, const std::string& name);

// The MI, named `name`, that takes |0...0> to i^(flips) |j> on the chosen qubits (qubit listed
// first is the most significant bit of j): a field along x on each qubit to flip, for a time
// of pi, which is exactly i sigma_x.
std::string PrepareMI(const std::vector<int>& qubits, int j, const std::string& name);

// The home directory (--home, else $ORVEX_HOME, else the executable's directory) and the set
// directory under it, both absolute and ending in "/"; nullopt with `error` set.
std::optional<std::string> HomeDirectory(const std::string& option, std::string& error);
std::optional<std::string> SetDirectory(const std::string& home, const std::string& set,
                                        std::string& error);

// The program text to run for MI-OR-PROGRAM: "@NAME" when it names an MI of the set (with or
// without ".MI") or one of its callable programs (with or without ".MP"), else the text of the
// program file. nullopt with `error` set.
std::optional<std::string> ProgramTextFor(const std::string& what, const std::string& setDir,
                                          std::string& error);

// Copies the set's files into the existing directory `dir` (ending in "/"), and the callable
// programs its ".MP" redirects name at their place relative to `home`, so that a run in `dir`
// needs nothing outside it. False with `error` set.
bool CopySetInto(const std::string& home, const std::string& setDir, const std::string& dir,
                 std::string& error);

// A fresh directory under the temporary directory holding such a copy (CopySetInto), removed
// with the object.
class ScratchSet {
public:
  // The copy goes into a new directory under `under` (ending in "/"), or under the system's
  // temporary directory when it is empty.
  ScratchSet(const std::string& home, const std::string& setDir, const std::string& under = "");
  ~ScratchSet();
  ScratchSet(const ScratchSet&) = delete;
  ScratchSet& operator=(const ScratchSet&) = delete;
  bool Ok() const { return !dir_.empty(); }
  const std::string& Dir() const { return dir_; }  // ends in "/"
  const std::string& Error() const { return error_; }

private:
  std::string dir_, error_;
};

// The map the program `programText` performs on the chosen qubits (the first listed the most
// significant bit), the other qubits starting in |0> and projected back onto it: one run in
// `scratch` from each basis state of the chosen qubits, prepared by PrepareMI, with the
// integrator of `order`. nullopt with `error` set; throws the file errors.
std::optional<GateMatrix> GateMap(const ScratchSet& scratch, const std::string& programText,
                                  const std::vector<int>& qubits, int order, std::string& error);

// Runs `program` (a file name inside `dir`) to its end, through every breakpoint, with the
// integrator of `order` (2 or 4), the current directory set to `dir` for the run and put back
// after. `last` gets the values the engine reported at the end: Q = (1 - <sigma>)/2 for x, y,
// z of every qubit. False with `error` (the engine's code and the last line of its log).
bool RunToEnd(engine::Simulator& sim, const std::string& dir, const std::string& program,
              int order, std::vector<std::array<double, 3>>& last, std::string& error);

} // namespace orvex::cli
