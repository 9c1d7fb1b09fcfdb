// The workspace object: checked 1-based access to its tables, and the name helpers.
#include "workspace/workspace.h"

#include <random>

#include "workspace/numbers.h"

namespace orvex {

namespace {

// Index checks: every table access goes through these, so a bad index is the run-time's
// "Subscript out of range" rather than memory corruption.
inline void Check(int value, int low, int high) {
  if (value < low || value > high) ThrowSubscriptOutOfRange();
}

} // namespace

double& MicroInstruction::J(int i, int j, int c) {
  Check(i, 1, kMaxQubits);
  Check(j, 1, kMaxQubits);
  Check(c, 0, 2);
  return JData[(i - 1) + 32 * (j - 1) + 1024 * c];
}

double MicroInstruction::J(int i, int j, int c) const {
  return const_cast<MicroInstruction*>(this)->J(i, j, c);
}

double& MicroInstruction::Field(int q, int k) {
  Check(q, 1, kMaxQubits);
  Check(k, 0, kFieldParameters - 1);
  return FieldData[(q - 1) + 32 * k];
}

double MicroInstruction::Field(int q, int k) const {
  return const_cast<MicroInstruction*>(this)->Field(q, k);
}

void MicroInstruction::ClearData() {
  JData.fill(0);
  FieldData.fill(0);
  IntermediateSteps = 0;
  FieldSteps = 0;
  TimeStep = 0;
  TimeStepInPi = 0;
  InitialState = 0;
  CheckNorm = false;
}

Workspace::Workspace()
    : table_(kMaxMIs),
      historyX_(kMaxQubits * kMaxSteps),
      historyY_(kMaxQubits * kMaxSteps),
      historyZ_(kMaxQubits * kMaxSteps) {
  currentStep_.fill(-1);
  EngineEntry.fill(-1);
  std::random_device rd;
  std::uint64_t seed = (static_cast<std::uint64_t>(rd()) << 32) ^ rd();
  Randomize(seed);
}

MicroInstruction& Workspace::MITable(int n) {
  Check(n, 1, kMaxMIs);
  return table_[n - 1];
}

const MicroInstruction& Workspace::MITable(int n) const {
  Check(n, 1, kMaxMIs);
  return table_[n - 1];
}

bool& Workspace::MIEditorOpen(int slot) {
  Check(slot, 1, kMaxMIEditors);
  return editorOpen_[slot - 1];
}

ProgramSlot& Workspace::Program(int slot) {
  Check(slot, 1, kMaxPrograms);
  return programs_[slot - 1];
}

const ProgramSlot& Workspace::Program(int slot) const {
  Check(slot, 1, kMaxPrograms);
  return programs_[slot - 1];
}

std::int16_t& Workspace::ProgramQubits(int slot) {
  Check(slot, 1, kMaxPrograms);
  return programQubits_[slot - 1];
}

double& Workspace::QubitX(int slot, int q) {
  Check(slot, 1, kMaxPrograms);
  Check(q, 1, kMaxQubits);
  return qubitX_[(slot - 1) * kMaxQubits + (q - 1)];
}

double& Workspace::QubitY(int slot, int q) {
  Check(slot, 1, kMaxPrograms);
  Check(q, 1, kMaxQubits);
  return qubitY_[(slot - 1) * kMaxQubits + (q - 1)];
}

double& Workspace::QubitZ(int slot, int q) {
  Check(slot, 1, kMaxPrograms);
  Check(q, 1, kMaxQubits);
  return qubitZ_[(slot - 1) * kMaxQubits + (q - 1)];
}

std::int16_t& Workspace::CurrentStep(int slot) {
  Check(slot, 1, kMaxPrograms);
  return currentStep_[slot - 1];
}

std::int16_t& Workspace::StepTable(int step) {
  Check(step, 1, kMaxSteps);
  return stepTable_[step - 1];
}

double& Workspace::HistoryX(int q, int step) {
  Check(q, 1, kMaxQubits);
  Check(step, 1, kMaxSteps);
  return historyX_[(step - 1) * kMaxQubits + (q - 1)];
}

double& Workspace::HistoryY(int q, int step) {
  Check(q, 1, kMaxQubits);
  Check(step, 1, kMaxSteps);
  return historyY_[(step - 1) * kMaxQubits + (q - 1)];
}

double& Workspace::HistoryZ(int q, int step) {
  Check(q, 1, kMaxQubits);
  Check(step, 1, kMaxSteps);
  return historyZ_[(step - 1) * kMaxQubits + (q - 1)];
}

double Workspace::Rnd() {
  // splitmix64: small, fast and good enough for seeds; the top 53 bits give [0, 1).
  std::uint64_t z = (rng_ += 0x9E3779B97F4A7C15ull);
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  z ^= z >> 31;
  return static_cast<double>(z >> 11) * (1.0 / 9007199254740992.0);
}

std::string NameWithoutExtension(const std::string& name) {
  std::string::size_type dot = name.rfind('.');
  return dot == std::string::npos ? name : name.substr(0, dot);
}

bool IsInitializeMI(const std::string& name) {
  return Upper(NameWithoutExtension(name)) == "INITIALIZE";
}

bool IsMIName(const std::string& name) {
  return name.size() >= 2 && Upper(name.substr(name.size() - 2)) == "MI";
}

} // namespace orvex
