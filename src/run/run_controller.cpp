// Start, Step, Back and Reset over the engine library.
#include "run/run_controller.h"

#include <cstring>
#include <exception>
#include <new>
#include <utility>

#include "platform/dialogs.h"
#include "program/program_table.h"
#include "run/engine_library.h"
#include "run/engine_messages.h"
#include "run/run_directory.h"
#include "run/run_position.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex {

namespace {

using platform::CR;

// EngineFlags word 3 for StepGranularity 0 (program steps), 1 (main steps), 2 (all steps).
constexpr std::int32_t kGranularityWord[3] = {0, -1, 1};

// Run-time error numbers for failures that are not RuntimeErrors.
constexpr int kOutOfMemory = 7;
constexpr int kInternalError = 51;

// One call of the engine with the slot's progress word and the shared words of the exchange
// area; the 32-character program name goes in and is copied back.
void CallEngine(Kv3Entry engine, Workspace& ws, int slot, std::int32_t* status,
                std::int32_t* entry, double* x, double* y, double* z) {
  char name[33];
  std::string field = ws.EngineProgramName;
  field.resize(32, ' ');
  std::memcpy(name, field.data(), 32);
  name[32] = '\0';
  engine(status, &ws.EngineProgress[slot - 1], &ws.RunMode, &ws.NoOutputFiles, entry, x, y, z,
         ws.EngineFlags.data(), name);
  std::string back(name, strnlen(name, 32));
  back.resize(32, ' ');
  ws.EngineProgramName = back;
}

// Marks of StepTable: 0 nothing recorded, 1 recorded at an unknown position, else 2 + the
// position in the program's walk (run/run_position.h).
std::int16_t MarkOf(int position) { return static_cast<std::int16_t>(position >= 0 ? position + 2 : 1); }
int PositionOf(std::int16_t mark) { return mark >= 2 ? mark - 2 : -1; }

// The row shown for a recorded mark; -1 when the position is unknown or cannot be placed.
int RowOfMark(const Workspace& ws, int slot, std::int16_t mark) {
  const int position = PositionOf(mark);
  if (position <= 0) return position;  // 0: the "Start" row; -1: unknown
  auto walk = WalkProgram(ws, slot, RunDirectoryOf(ws, slot));
  return walk ? RowAt(*walk, position) : -1;
}

// Appends the state in StartX/Y/Z as the next recorded step, at walk position `position`.
void RecordStep(Workspace& ws, int slot, int position) {
  int index = RecordedSteps(ws) + 1;
  if (index > kMaxSteps) {  // full: the oldest entry goes
    for (int k = 1; k < kMaxSteps; ++k) {
      ws.StepTable(k) = ws.StepTable(k + 1);
      for (int q = 1; q <= kMaxQubits; ++q) {
        ws.HistoryX(q, k) = ws.HistoryX(q, k + 1);
        ws.HistoryY(q, k) = ws.HistoryY(q, k + 1);
        ws.HistoryZ(q, k) = ws.HistoryZ(q, k + 1);
      }
    }
    index = kMaxSteps;
  }
  for (int q = 1; q <= kMaxQubits; ++q) {
    ws.HistoryX(q, index) = ws.StartX[q - 1];
    ws.HistoryY(q, index) = ws.StartY[q - 1];
    ws.HistoryZ(q, index) = ws.StartZ[q - 1];
  }
  ws.StepTable(index) = MarkOf(position);
  ws.CurrentStep(slot) = static_cast<std::int16_t>(index - 1);
}

// The walk position a halt reaches from position `from`, and its row; -1 for both when it
// cannot be told (see the header).
std::pair<int, int> DeriveHalt(const Workspace& ws, int slot, int from, int mode,
                               std::int32_t granularityWord) {
  if (from < 0 || (mode == kModeStep && granularityWord != 0)) return {-1, -1};
  auto walk = WalkProgram(ws, slot, RunDirectoryOf(ws, slot));
  if (!walk) return {-1, -1};
  auto position = NextHalt(*walk, from, mode);
  if (!position) return {-1, -1};
  return {*position, RowAt(*walk, *position)};
}

// The program goes back to idle after a failed run; the engine holds no run of it any more.
void EndRunAfterFailure(Workspace& ws, RunUi& ui, int slot) {
  ws.EngineBusy = false;
  if (ws.RunningProgram != slot) return;
  ws.RunningProgram = -1;
  ws.CurrentStep(slot) = -1;
  ws.EngineEntry[slot - 1] = -1;
  ProgramSlot& program = ws.Program(slot);
  program.CurrentRow = -1;
  program.Status = "Program ready";
  ui.enableRunCommands(slot, true);
  ui.programChanged(slot);
}

void ReportExecutionError(Workspace& ws, RunUi& ui, int slot, const std::string& description,
                          int number) {
  EndRunAfterFailure(ws, ui, slot);
  platform::MsgBox(ExecutionErrorText(description, number), platform::Icon::Critical);
}

// After an ordinary call returned a non-zero status: flags zeroed, the clean-up call (a local
// status, a local entry of -2, the start arrays), then the message.
void HandleEngineError(Workspace& ws, RunUi& ui, int slot, Kv3Entry engine) {
  const std::int32_t code = ws.EngineError;
  ws.EngineFlags.fill(0);
  std::int32_t status = 0;
  std::int32_t entry = -2;
  CallEngine(engine, ws, slot, &status, &entry, ws.StartX.data(), ws.StartY.data(),
             ws.StartZ.data());
  const std::string detail = EngineLogReason(RunDirectoryOf(ws, slot));
  EndRunAfterFailure(ws, ui, slot);
  platform::MsgBox(EngineMessage(code), platform::Icon::Critical, platform::Buttons::OK, detail);
}

void CopyEngineState(Workspace& ws, int slot) {
  for (int q = 1; q <= ws.NumberOfQubits; ++q) {
    ws.QubitX(slot, q) = ws.EngineX[q - 1];
    ws.QubitY(slot, q) = ws.EngineY[q - 1];
    ws.QubitZ(slot, q) = ws.EngineZ[q - 1];
  }
  ws.ProgramQubits(slot) = ws.NumberOfQubits;
}

} // namespace

std::string EngineProgramNameFor(const std::string& programName) {
  std::string name = FileNameOf(programName);
  name.resize(32, ' ');
  return name;
}

int RecordedSteps(Workspace& ws) {
  int n = 0;
  while (n < kMaxSteps && ws.StepTable(n + 1) != 0) ++n;
  return n;
}

std::string ExecutionErrorText(const std::string& description, int number) {
  return std::string("An error occurred during execution.") + CR + description +
         ", errorcode: " + std::to_string(number);
}

void RunProgram(Workspace& ws, RunUi& ui, int slot, int mode) {
  ProgramSlot& program = ws.Program(slot);
  if (program.Name.empty()) return;  // a free slot holds no program
  if (ws.RunningProgram >= 0 && ws.RunningProgram != slot) {
    platform::MsgBox(std::string("Another quantum program is currently running,") + CR +
                         "unable to start program!",
                     platform::Icon::Critical);
    return;
  }
  if (ws.EngineBusy) {  // Start or Step of this program again, processed inside its call loop
    platform::Beep();
    return;
  }
  if (Lower(program.Name) == "new" || program.Changed) {
    if (!SaveProgram(ws, ui, slot, false)) return;
  }
  const bool fromIdle = ws.RunningProgram == -1;
  if (fromIdle) {
    if (RefuseAnotherSetsDirectory(ws, slot)) return;
    PrepareRunDirectory(ws, slot);
  }

  ws.EngineProgramName = EngineProgramNameFor(program.Name);
  for (int q = 1; q <= ws.NumberOfQubits; ++q) {
    ws.StartX[q - 1] = ws.QubitX(slot, q);
    ws.StartY[q - 1] = ws.QubitY(slot, q);
    ws.StartZ[q - 1] = ws.QubitZ(slot, q);
  }

  try {
    ws.RunMode = mode;
    ws.EngineError = 0;
    ws.EngineProgress[slot - 1] = 1;
    if (ws.CurrentStep(slot) == -1 || fromIdle) ws.EngineEntry[slot - 1] = -1;
    if (fromIdle) {
      ws.EngineFlags.fill(0);
      const int g = ws.StepGranularity;
      ws.EngineFlags[3] = (g >= 0 && g <= 2) ? kGranularityWord[g] : 0;
      RecordStep(ws, slot, 0);  // the start state, at the "Start" row
    }
    const int from = PositionOf(ws.StepTable(RecordedSteps(ws)));
    const std::int32_t granularityWord = ws.EngineFlags[3];

    ws.RunningProgram = static_cast<std::int16_t>(slot);
    ws.EngineBusy = true;  // the editor's run control shows "Stop" from here
    program.CurrentRow = -1;
    program.Status = "Program is running";
    ui.programChanged(slot);
    ui.enableRunCommands(slot, false);
    if (ws.RunningProgram != slot) {  // reset while the enabling processed events
      ws.EngineBusy = false;
      return;
    }

    const Kv3Entry engine = EngineLibrary::Load();
    do {
      CallEngine(engine, ws, slot, &ws.EngineError, &ws.EngineEntry[slot - 1], ws.EngineX.data(),
                 ws.EngineY.data(), ws.EngineZ.data());
      if (ws.AnimateQubits > 0) {
        CopyEngineState(ws, slot);
        ui.updateQubitDisplay(slot);
        ui.qubitWindowFrame();
      }
      ui.processEvents();
      if (ws.RunningProgram != slot) break;  // reset from an event processed meanwhile
    } while (ws.EngineFlags[0] > 0 && ws.EngineError == 0);
    ws.EngineBusy = false;
    if (ws.RunningProgram != slot) return;  // the reset did the bookkeeping
    if (ws.EngineError != 0) {
      // The engine's arrays may still hold another run's values (a start that failed before
      // the register was built writes none), so the program keeps the state it showed.
      HandleEngineError(ws, ui, slot, engine);
      ui.updateQubitDisplay(slot);
      return;
    }

    ws.StartX = ws.EngineX;
    ws.StartY = ws.EngineY;
    ws.StartZ = ws.EngineZ;
    CopyEngineState(ws, slot);
    const bool halted = ws.EngineProgress[slot - 1] > 0;
    const auto [position, row] =
        halted ? DeriveHalt(ws, slot, from, mode, granularityWord) : std::pair<int, int>{-1, -1};
    RecordStep(ws, slot, position);

    program.Status = "Program halted";
    program.CurrentRow = row;
    if (!halted) {
      program.Status = "Program has finished";
      program.CurrentRow = -1;
      ws.CurrentStep(slot) = -1;
      ws.EngineEntry[slot - 1] = -1;
      ws.RunningProgram = -1;
      ui.enableRunCommands(slot, true);
    }
    ui.programChanged(slot);
    ui.updateQubitDisplay(slot);
  } catch (const RuntimeError& e) {
    ReportExecutionError(ws, ui, slot, e.description(), e.number());
  } catch (const std::bad_alloc&) {
    ReportExecutionError(ws, ui, slot, "Out of memory", kOutOfMemory);
  } catch (const std::exception& e) {
    ReportExecutionError(ws, ui, slot, e.what(), kInternalError);
  }
}

void StepBack(Workspace& ws, RunUi& ui, int slot) {
  if (ws.EngineBusy) {
    platform::Beep();
    return;
  }
  if (slot <= 0 || slot != ws.RunningProgram) {  // "&Back" passes RunningProgram, -1 when idle
    platform::MsgBox("Cannot step back, start this Quantum Program and try again",
                     platform::Icon::Critical);
    return;
  }
  std::int16_t& step = ws.CurrentStep(slot);
  if (step <= 0) {  // the oldest recorded state is shown already
    platform::Beep();
    return;
  }
  --step;
  const int index = step + 1;
  for (int q = 1; q <= ws.NumberOfQubits; ++q) {
    ws.QubitX(slot, q) = ws.HistoryX(q, index);
    ws.QubitY(slot, q) = ws.HistoryY(q, index);
    ws.QubitZ(slot, q) = ws.HistoryZ(q, index);
  }
  ws.Program(slot).CurrentRow = RowOfMark(ws, slot, ws.StepTable(index));
  ui.programChanged(slot);
  ui.updateQubitDisplay(slot);
}

void ResetProgram(Workspace& ws, RunUi& ui, int slot) {
  ProgramSlot& program = ws.Program(slot);
  program.CurrentRow = -1;
  ui.programChanged(slot);

  const bool otherRunOn = ws.RunningProgram > 0 && ws.RunningProgram != slot;
  if (!otherRunOn) {
    ws.EngineEntry[slot - 1] = -2;
    ws.RunningProgram = -1;
    ui.enableRunCommands(slot, true);
    ws.EngineFlags.fill(0);
    ws.EngineProgramName = EngineProgramNameFor(program.Name);
    std::int32_t status = 0;
    try {
      CallEngine(EngineLibrary::Load(), ws, slot, &status, &ws.EngineEntry[slot - 1],
                 ws.StartX.data(), ws.StartY.data(), ws.StartZ.data());
    } catch (const RuntimeError& e) {
      platform::MsgBox(ExecutionErrorText(e.description(), e.number()), platform::Icon::Critical);
    }
  }
  ws.EngineEntry[slot - 1] = -1;
  ws.CurrentStep(slot) = -1;
  ws.ProgramQubits(slot) = 0;
  ui.updateQubitDisplay(slot);
  ui.refreshQubitWindow();
  program.Status = "Program reset";
  ui.programChanged(slot);
}

} // namespace orvex
