// The workspace: the open MI set with its MI table, the open programs, the run state and the
// engine exchange area, the settings. One object, owned by the application (tests make their
// own); every operation takes it as a plain reference. Indexing is 1-based where the user
// counts (slots, qubits) and checked: an index out of range throws the run-time's
// "Subscript out of range" (9), never undefined behaviour.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "workspace/errors.h"

namespace orvex {

inline constexpr int kMaxQubits = 32;
inline constexpr int kMaxMIs = 500;
inline constexpr int kMaxPrograms = 10;
inline constexpr int kMaxMIEditors = 10;
inline constexpr int kMaxRows = 1000;
inline constexpr int kMaxSteps = 1000;
// The engine's integrators, as word 1 of EngineFlags asks for them at a start.
inline constexpr std::int32_t kIntegratorSecondOrder = 0;
inline constexpr std::int32_t kIntegratorFourthOrder = 4;
inline constexpr int kFieldParameters = 12;
// The ground state is computed only for registers up to this size.
inline constexpr int kMaxGroundStateQubits = 8;

// Field parameter indices, in the file's order.
enum FieldParameter : int {
  Hx0 = 0, Hx1 = 1, OmegaX = 2, Hy0 = 3, Hy1 = 4, OmegaY = 5,
  Hz0 = 6, Hz1 = 7, OmegaZ = 8, PhiX = 9, PhiY = 10, PhiZ = 11,
};

// InitialState values; the MI editor's choices stand in this order.
enum InitialStateKind : std::int16_t {
  GroundState = 0, AllSpinUp = 1, AllSpinDown = 2, RandomState = 3,
};

// One point of a program's trace: the program time and Q of every qubit, qubit q's x, y, z at
// Q[3(q - 1) + 0, 1, 2].
struct TracePoint {
  double Time = 0;
  std::array<double, 3 * 32> Q{};
};
// The points of one program's run, oldest first, over `Qubits` qubits; `Marker` is the
// program time marked while the run is halted (negative: none).
// `Wanted`: someone looks at every main step (an open trace window, a traced command-line or
// script run), so a run started from idle asks the engine for its records; otherwise it takes
// one point per engine call, which costs nothing. `FromEngine`: the current run's points are
// the engine's records (decided at its start, kept until it ends).
struct ProgramTrace {
  int Qubits = 0;
  std::vector<TracePoint> Points;
  bool Wanted = false;
  bool FromEngine = false;
  double Marker = -1;
  int Revision = 0;  // bumped on every change, for the windows that draw it
};

// One micro instruction: the fields of an MI file plus the list's bookkeeping flags.
struct MicroInstruction {
  bool InUse = false;
  bool IsOpen = false;
  bool IsNew = false;
  std::string Name;         // file name inside the set directory, extension included
  std::string Description;  // "!ABOUT" text; for a callable program "Run: " + program path
  std::array<double, 32 * 32 * 3> JData{};   // J(i, j, c) at (i-1) + 32(j-1) + 1024c
  std::array<double, 32 * 12> FieldData{};   // Field(q, k) at (q-1) + 32k
  std::int32_t IntermediateSteps = 0;
  std::int32_t FieldSteps = 0;
  double TimeStep = 0;
  std::int32_t TimeStepInPi = 0;
  std::int16_t InitialState = 0;
  bool CheckNorm = false;

  // Checked access: i, j, q in 1..32, c in 0..2, k in 0..11.
  double& J(int i, int j, int c);
  double J(int i, int j, int c) const;
  double& Field(int q, int k);
  double Field(int q, int k) const;

  // Zeroes every coupling and field value and the scalar fields; the flags and names stay.
  void ClearData();
};

// One row of the MI list window: key "MI" + slot ("" for the breakpoint row), the text shown
// and the icon number (1 MI, 19 callable program; the breakpoint row uses 2).
struct MIListRow {
  std::string Key;
  std::string Text;
  int Icon = 1;
};

inline constexpr int kIconMI = 1;
inline constexpr int kIconBreakpoint = 2;
inline constexpr int kIconStart = 12;
inline constexpr int kIconProgramRow = 14;
inline constexpr int kIconCallableProgram = 19;

// What the MI list window shows; the window renders it and is told of changes through
// Workspace::MIListChanged.
struct MIListModel {
  std::string Caption = "Micro Instructions";
  std::vector<MIListRow> Rows;  // Rows[0] is the "Breakpoint" row once a set is open
  std::string Status;           // the status bar text
  int Selected = -1;            // 0-based row index, -1 when none
};

// One row of a program editor: its text and its kind (the icon number).
struct ProgramRow {
  std::string Text;
  int Icon = kIconMI;
};

// One slot of the program table. The program's content is its rows (Rows[0] is the "Start"
// row); the program editor window renders the slot and reports edits back into it.
struct ProgramSlot {
  std::string Name;      // "" free, "New" unnamed, else the path relative to the app directory
  bool Changed = false;  // edited since the last save
  std::vector<ProgramRow> Rows;
  std::string Caption;   // the editor's caption: file name without directory and extension
  std::string Status;    // the first column header: "New program", "Program ready", ...
  int CurrentRow = -1;   // 0-based row marked as current while halted, -1 for none
  bool Visible = false;  // the editor window is shown
};

class Workspace {
public:
  Workspace();

  // --- the open MI set ---------------------------------------------------------------
  std::string AppDir;     // the application directory, always ending in "/"
  std::string MISetPath;  // the open set's directory, ending in "/"; "" before one is open
  std::int16_t NumberOfQubits = 2;
  std::int16_t MICount = 0;

  // MITable(n) for n in 1..500.
  MicroInstruction& MITable(int n);
  const MicroInstruction& MITable(int n) const;

  // Editor column c (Hx_0, Hx_1, f_x, phi_x, Hy_0, ...) to Field parameter index.
  static constexpr std::array<std::int16_t, 12> FieldColumnMap = {0, 1, 2, 9, 3, 4, 5, 10, 6, 7, 8, 11};

  MIListModel MIList;
  std::function<void()> MIListChanged;  // set by the MI list window; may be empty
  void NotifyMIListChanged() { if (MIListChanged) MIListChanged(); }

  // Open-MI-editor slots 1..10: the slot's flag; the windows themselves belong to the GUI.
  bool& MIEditorOpen(int slot);

  // --- programs ---------------------------------------------------------------------------
  ProgramSlot& Program(int slot);  // 1..10
  const ProgramSlot& Program(int slot) const;
  std::int16_t& ProgramQubits(int slot);
  double& QubitX(int slot, int q);  // slot 1..10, q 1..32
  double& QubitY(int slot, int q);
  double& QubitZ(int slot, int q);
  std::string FileDialogDir;  // where the next program file dialog starts

  // --- run state ----------------------------------------------------------------------------
  std::int16_t RunningProgram = -1;
  std::int16_t& CurrentStep(int slot);  // 1..10; -1 when not started
  std::int16_t& StepTable(int step);    // 1..1000
  double& HistoryX(int q, int step);    // q 1..32, step 1..1000
  double& HistoryY(int q, int step);
  double& HistoryZ(int q, int step);
  bool EngineBusy = false;
  bool Closing = false;
  // Where the run stood after recorded step k (index k - 1) when StepTable(k) says it is
  // known: walk events passed and intermediate steps done in the MI under way
  // (run/run_position.h).
  std::array<std::int32_t, kMaxSteps> StepEvent{};
  std::array<std::int64_t, kMaxSteps> StepDone{};
  // The program time of recorded step k (index k - 1), where the trace marks it.
  std::array<double, kMaxSteps> StepTime{};
  // Set by Pause while the call loop runs: the run halts at the engine's next early return.
  bool PauseRequested = false;
  // The trace of each program slot's current run (index slot - 1; run/run_trace.h).
  std::array<ProgramTrace, kMaxPrograms> Traces{};

  // --- engine exchange area (binary-visible: 32-bit words and doubles) -------------------
  std::int32_t EngineError = 0;
  std::array<std::int32_t, 10> EngineProgress{};  // per program slot, 0-based
  std::int32_t RunMode = 0;
  std::int32_t NoOutputFiles = 1;
  std::array<std::int32_t, 10> EngineEntry{};     // per program slot, 0-based
  std::array<std::int32_t, 4> EngineFlags{};
  std::array<double, 32> StartX{}, StartY{}, StartZ{};
  std::array<double, 32> EngineX{}, EngineY{}, EngineZ{};
  std::string EngineProgramName = std::string(32, ' ');

  // --- settings (live for the process, never persisted) ------------------------------------
  std::int32_t AnimateQubits = 0;
  std::int32_t StepGranularity = 0;  // 0 program steps, 1 main steps, 2 all steps
  int QubitSize = 1;                 // 0 small, 1 normal, 2 large, 3 very large
  std::int32_t Integrator = 0;       // EngineFlags word 1 at a start (kIntegrator...)

  // Uniform in [0, 1): the run-time's random generator (seeds of random initial states).
  double Rnd();
  void Randomize(std::uint64_t seed) { rng_ = seed ? seed : 0x9E3779B97F4A7C15ull; }

private:
  std::vector<MicroInstruction> table_;
  std::array<bool, kMaxMIEditors> editorOpen_{};
  std::array<ProgramSlot, kMaxPrograms> programs_{};
  std::array<std::int16_t, kMaxPrograms> programQubits_{};
  std::array<double, kMaxPrograms * kMaxQubits> qubitX_{}, qubitY_{}, qubitZ_{};
  std::array<std::int16_t, kMaxPrograms> currentStep_{};
  std::array<std::int16_t, kMaxSteps> stepTable_{};
  std::vector<double> historyX_, historyY_, historyZ_;
  std::uint64_t rng_;
};

// Text up to (not including) the last "."; the whole text when it has none.
std::string NameWithoutExtension(const std::string& name);

// True when the name, upper-cased and without its extension, is "INITIALIZE".
bool IsInitializeMI(const std::string& name);

// True when the last two characters of the name, upper-cased, are "MI" (an MI file rather
// than a callable program entry).
bool IsMIName(const std::string& name);

} // namespace orvex
