// A gate-fidelity job as the workbench hands it to `orvex-cli fidelity` in a process of its
// own: the target gates offered, the chosen qubits, the command's arguments, and the reading
// of what the command prints. Qt-free, so the dialog stays a thin front end.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "run/fidelity.h"
#include "workspace/workspace.h"

namespace orvex {

// A target gate as offered to the user: the command's name for it, the label shown (UTF-8),
// whether it takes an angle, and the number of qubits it needs (0: any, as a tensor power).
struct FidelityTarget {
  const char* name;
  const char* label;
  bool takesAngle;
  int qubits;
};
const std::vector<FidelityTarget>& FidelityTargets();

struct FidelityRequest {
  std::string what;         // an MI of the set (by name) or a program file
  std::string set;          // the set's name under home/MI/
  std::string home;         // the application directory
  std::vector<int> qubits;  // 1..4 of them, the first the most significant bit
  std::string target;       // FidelityTarget::name
  double angle = 0;         // radians, for targets that take one
  bool zPhases = false;
  int order = 2;            // 2 or 4
};

// The arguments after the program name.
std::vector<std::string> FidelityArguments(const FidelityRequest& request);

// "1,2" (blanks allowed around the numbers): distinct qubits of a register of `registerSize`,
// one to four of them. False with `error` set.
bool ParseQubitList(const std::string& text, int registerSize, std::vector<int>& qubits,
                    std::string& error);

// The qubits an MI acts on (a field parameter or a coupling not zero), ascending, at most the
// first four; qubit 1 when it acts on none.
std::vector<int> QubitsActedOn(const MicroInstruction& mi, int registerSize);

// What a fidelity job measures: an MI of the open set or a whole program. A program with
// unsaved edits is measured as the editor holds it: `programText` is then written to a
// temporary file for the command (never to the user's file) and `what` is left empty.
struct FidelitySubject {
  std::string what;          // the MI's name, or the program file's full path
  std::string programText;   // the text to measure instead of a file, "" for none
  std::string title;         // how the dialog names it
  std::vector<int> qubits;   // the qubits proposed
};

// The MI named `name` (with or without ".MI", any case); its qubits as QubitsActedOn.
FidelitySubject FidelitySubjectForMI(const Workspace& ws, const std::string& name);
// The program of `slot` (1..10): its file when saved, else its rows; qubit 1 proposed.
FidelitySubject FidelitySubjectForProgram(const Workspace& ws, int slot);

struct FidelityResult {
  GateMatrix map;
  std::vector<double> phasesBefore, phasesAfter;  // one per qubit when z phases were fitted
  double fidelity = 0;
  double leakage = 0;
};

// Reads the command's standard output: the map, one row per line of "re+imi" amplitudes, then
// "z phase before/after qubit Q: PHI" lines when the phases were fitted, then
// "fidelity F, leakage L". Lines of any other kind are passed over. nullopt with `error` set
// when the map is not square with a power-of-two size or the fidelity line is missing.
std::optional<FidelityResult> ParseFidelityOutput(const std::string& text, std::string& error);

} // namespace orvex
