// The Qt-free side of the MI editor: the number rule of its cells and fields, the name rule,
// and store-and-close into the MI table (the window only collects the values).
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

// The editor's initial-state choices; the list position is the InitialState value.
inline constexpr std::array<const char*, 4> kInitialStateChoices = {
    "Ground state", "All qubits |0>", "All qubits |1>", "Random state"};
// The field columns in the editor's order (FieldColumnMap maps them to parameters).
inline constexpr std::array<const char*, 12> kFieldColumnHeaders = {
    "Hx_0", "Hx_1", "f_x", "phi_x", "Hy_0", "Hy_1", "f_y", "phi_y", "Hz_0", "Hz_1", "f_z", "phi_z"};
inline constexpr std::array<const char*, 3> kCouplingHeaders = {"Jx", "Jy", "Jz"};

// A cell's text as a number: one number by the Val rule, or else an arithmetic expression
// (EvaluateExpression: "pi/2", "2*pi*0.25") taken as its value; nullopt for anything else.
// An empty cell is not a number.
std::optional<double> ParseNumberCell(const std::string& text);
// A whole number that fits 32 bits ("12", "1E3"); nullopt otherwise.
std::optional<std::int32_t> ParseCountCell(const std::string& text);
// The refusal of a cell or field: names where it is and what it held.
void ReportNotANumber(const std::string& where, const std::string& text);
void ReportNotAWholeNumber(const std::string& where, const std::string& text);

// The name as the editor shows it (without extension) and back: a shown name gets the
// record's ".MI" extension again unless it already ends in ".MI" (any case).
std::string EditableName(const std::string& recordName);
std::string RecordNameFor(const std::string& shownName, const std::string& recordName);
// False, after a message, for an empty name, one with a character a file name cannot hold,
// or one holding "#" or "!" (a program's call of the MI would end there).
bool CheckMIName(const std::string& shownName);
// False, after a message, for a description the MI file cannot give back as it is (written
// and read again it differs: a line break, a line the reader would take for a keyword). An
// empty description is saved as "(none)" and passes.
bool CheckMIDescription(const std::string& description);

// Everything the editor shows, as values.
struct MIEdit {
  int Qubits = 0;    // the number of qubits the editor shows (the set's when it opened)
  std::string Name;  // as shown, without extension
  std::string Description;
  double TimeStep = 0;
  bool TimeStepInPi = false;
  std::int32_t FieldSteps = 0;
  std::int32_t IntermediateSteps = 0;
  bool CheckNorm = false;
  std::int16_t InitialState = AllSpinUp;
  // Field[q - 1][c] for editor column c (FieldColumnMap order); J[p][c] for the pairs i < j
  // in the order (1,2), (1,3), ..., (2,3), ...
  std::vector<std::array<double, 12>> Field;
  std::vector<std::array<double, 3>> J;
};

// The editor's values of MI slot n for `qubits` qubits (the set's number when 0).
MIEdit LoadMIEdit(const Workspace& ws, int n, int qubits = 0);
// The qubit pairs i < j in the editor's row order.
std::vector<std::pair<int, int>> QubitPairs(int qubits);

// Store-and-close with save: checks the name and the initial state, stores the values into
// record n and saves it (SaveMI). Values of qubits beyond the set's number (the number was
// lowered while the editor was open) are not stored. False when refused; the record is unchanged by a refused
// name or initial state (a duplicate name is stored, as SaveMI keeps it).
bool StoreMIEdit(Workspace& ws, int n, const MIEdit& edit);
// The editor in `editorSlot` showing MI n has closed.
void ReleaseMIEditor(Workspace& ws, int editorSlot, int n);

} // namespace orvex
