// Start, Step, Back and Reset over the engine library.
#include "run/run_controller.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
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
#include "run/run_trace.h"
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

// Marks of StepTable: 0 nothing recorded, 1 recorded at an unknown position, 2 recorded at the
// position kept in StepEvent/StepDone.
constexpr std::int16_t kMarkUnknown = 1, kMarkKnown = 2;

std::optional<RunPosition> PositionOfStep(Workspace& ws, int index) {
  if (index < 1 || index > kMaxSteps || ws.StepTable(index) != kMarkKnown) return std::nullopt;
  return RunPosition{ws.StepEvent[index - 1], ws.StepDone[index - 1]};
}

// The row and the status line for a recorded position; -1 and "" when it cannot be told
// (the "Start" row is known without a walk).
std::pair<int, std::string> Describe(const Workspace& ws, int slot,
                                     const std::optional<RunPosition>& position) {
  if (!position) return {-1, ""};
  auto walk = WalkProgram(ws, slot, RunDirectoryOf(ws, slot));
  if (!walk) return {*position == RunPosition{} ? 0 : -1, ""};
  return {RowAt(*walk, *position), PositionText(*walk, *position)};
}

using QubitValues = std::array<double, kMaxQubits>;

// Appends the state x, y, z as the next recorded step, at `position` (nullopt: unknown).
void RecordStep(Workspace& ws, int slot, const std::optional<RunPosition>& position,
                const QubitValues& x, const QubitValues& y, const QubitValues& z, double time) {
  int index = RecordedSteps(ws) + 1;
  if (index > kMaxSteps) {  // full: the oldest entry goes
    for (int k = 1; k < kMaxSteps; ++k) {
      ws.StepTable(k) = ws.StepTable(k + 1);
      ws.StepEvent[k - 1] = ws.StepEvent[k];
      ws.StepDone[k - 1] = ws.StepDone[k];
      ws.StepTime[k - 1] = ws.StepTime[k];
      for (int q = 1; q <= kMaxQubits; ++q) {
        ws.HistoryX(q, k) = ws.HistoryX(q, k + 1);
        ws.HistoryY(q, k) = ws.HistoryY(q, k + 1);
        ws.HistoryZ(q, k) = ws.HistoryZ(q, k + 1);
      }
    }
    index = kMaxSteps;
  }
  for (int q = 1; q <= kMaxQubits; ++q) {
    ws.HistoryX(q, index) = x[q - 1];
    ws.HistoryY(q, index) = y[q - 1];
    ws.HistoryZ(q, index) = z[q - 1];
  }
  ws.StepTable(index) = position ? kMarkKnown : kMarkUnknown;
  ws.StepEvent[index - 1] = position ? position->event : 0;
  ws.StepDone[index - 1] = position ? position->done : 0;
  ws.StepTime[index - 1] = time;
  ws.CurrentStep(slot) = static_cast<std::int16_t>(index - 1);
}

// The start of a run from idle, recorded as the first entry: the register |0…0> the engine
// begins with, Q = (½, ½, 0) for every qubit, at the "Start" row. Whatever the displays
// showed before (another run's end, nothing at all) is not the program's start.
void RecordStart(Workspace& ws, int slot) {
  QubitValues half, zero;
  half.fill(0.5);
  zero.fill(0.0);
  RecordStep(ws, slot, RunPosition{}, half, half, zero, 0.0);
}

// Where a halt from `from` stands, with its row and status line (see the header).
struct Halt {
  std::optional<RunPosition> position;
  int row = -1;
  std::string text;
  double time = -1;  // program time; negative when unknown
};
Halt PlaceHalt(const Workspace& ws, int slot, const std::optional<RunPosition>& from, int mode,
               std::int32_t granularityWord) {
  if (!from) return {};
  auto walk = WalkProgram(ws, slot, RunDirectoryOf(ws, slot));
  if (!walk) return {};
  auto position = NextHalt(*walk, *from, mode, granularityWord);
  if (!position) return {};
  return {position, RowAt(*walk, *position), PositionText(*walk, *position),
          ProgramTimeAt(*walk, *position)};
}

// The program goes back to idle after a failed run; the engine holds no run of it any more.
void EndRunAfterFailure(Workspace& ws, RunUi& ui, int slot) {
  ws.EngineBusy = false;
  if (ws.RunningProgram != slot) return;
  platform::ShowProgress("");
  ws.RunningProgram = -1;
  ws.CurrentStep(slot) = -1;
  ws.EngineEntry[slot - 1] = -1;
  ProgramSlot& program = ws.Program(slot);
  program.CurrentRow = -1;
  program.Status = "Program ready";
  ui.enableRunCommands(slot, true);
  ui.programChanged(slot);
}

// Program times for the trace of a stand-in engine without trace records: where the call loop
// began, and the whole program's length (both negative when the walk cannot be made).
struct TraceClock {
  double from = -1, total = -1;
};
TraceClock ClockFor(const Workspace& ws, int slot, const std::optional<RunPosition>& from) {
  TraceClock clock;
  auto walk = WalkProgram(ws, slot, RunDirectoryOf(ws, slot));
  if (!walk) return clock;
  clock.total = ProgramTimeAt(*walk, RunPosition{static_cast<int>(walk->size()), 0});
  if (from) clock.from = ProgramTimeAt(*walk, *from);
  return clock;
}

// The time of a point from a call that returned early: the engine's progress word applied
// to the program's length, never before where the loop began.
double EstimatedTime(const TraceClock& clock, std::int32_t thousandths, const ProgramTrace& trace) {
  const double last = trace.Points.empty() ? 0.0 : trace.Points.back().Time;
  if (clock.total < 0) return last;
  const double t = clock.total * std::clamp(thousandths, 0, 1000) / 1000.0;
  return std::max({t, clock.from, 0.0});
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
    ProgramTrace& trace = ws.Traces[static_cast<std::size_t>(slot - 1)];
    if (fromIdle) {
      ws.EngineFlags.fill(0);
      ws.EngineFlags[1] = ws.Integrator;
      const int g = ws.StepGranularity;
      ws.EngineFlags[3] = (g >= 0 && g <= 2) ? kGranularityWord[g] : 0;
      RecordStart(ws, slot);
      ClearTrace(trace);
    }
    // The engine goes on from the last recorded position, whichever one Back shows.
    const auto from = PositionOfStep(ws, RecordedSteps(ws));
    const std::int32_t granularityWord = ws.EngineFlags[3];
    trace.Marker = -1;

    ws.RunningProgram = static_cast<std::int16_t>(slot);
    ws.PauseRequested = false;  // a Pause from here on (the enabling processes events) counts
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
    const EngineExtras extras = EngineLibrary::Extras();
    if (fromIdle) {
      // Records cost a measurement per main step: the engine keeps them only when wanted.
      trace.FromEngine = trace.Wanted && extras.trace && extras.record;
      if (extras.record) extras.record(trace.FromEngine ? 1 : 0);
    }
    const bool engineTraces = trace.FromEngine;
    if (fromIdle) {
      if (!engineTraces) {  // the register the engine starts from, as RecordStart has it
        QubitValues half, zero;
        half.fill(0.5);
        zero.fill(0.0);
        AppendTracePoint(trace, 0.0, ws.NumberOfQubits, half.data(), half.data(), zero.data());
      }
    }
    const TraceClock clock = engineTraces ? TraceClock{} : ClockFor(ws, slot, from);
    const auto began = std::chrono::steady_clock::now();
    platform::ShowProgress(RunningText(0, 0), 0.0);
    bool paused = false;
    do {
      CallEngine(engine, ws, slot, &ws.EngineError, &ws.EngineEntry[slot - 1], ws.EngineX.data(),
                 ws.EngineY.data(), ws.EngineZ.data());
      // A failed call's arrays hold nothing of this run (a start that failed before the
      // register was built writes none): they are never shown.
      if (ws.EngineError == 0) {
        if (engineTraces)
          DrainEngineTrace(extras, trace);
        else
          AppendTracePoint(trace, EstimatedTime(clock, ws.EngineFlags[2], trace),
                           ws.NumberOfQubits, ws.EngineX.data(), ws.EngineY.data(),
                           ws.EngineZ.data());
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - began;
        platform::ShowProgress(RunningText(ws.EngineFlags[2], elapsed.count()),
                               std::clamp(ws.EngineFlags[2], 0, 1000) / 1000.0);
        if (ws.AnimateQubits > 0) {
          CopyEngineState(ws, slot);
          ui.updateQubitDisplay(slot);
          ui.qubitWindowFrame();
        }
      }
      platform::KeepResponsive();
      // Stopped by the user: the run is abandoned as by Reset.
      if (ws.RunningProgram == slot && platform::CancelRequested()) ResetProgram(ws, ui, slot);
      if (ws.RunningProgram != slot) break;  // reset from an event processed meanwhile
      // Pause: the engine returned early and keeps its context; the run halts here.
      if (ws.PauseRequested && ws.EngineFlags[0] > 0 && ws.EngineError == 0) paused = true;
    } while (!paused && ws.EngineFlags[0] > 0 && ws.EngineError == 0);
    ws.PauseRequested = false;
    ws.EngineBusy = false;
    if (ws.RunningProgram != slot) return;  // the reset did the bookkeeping
    if (ws.EngineError != 0) {
      // The program keeps the state it showed before this call loop.
      HandleEngineError(ws, ui, slot, engine);
      ui.updateQubitDisplay(slot);
      return;
    }

    ws.StartX = ws.EngineX;
    ws.StartY = ws.EngineY;
    ws.StartZ = ws.EngineZ;
    CopyEngineState(ws, slot);
    const bool halted = paused || ws.EngineProgress[slot - 1] > 0;
    // A paused run stands somewhere inside its MI: its position is not known.
    const Halt halt =
        halted && !paused ? PlaceHalt(ws, slot, from, mode, granularityWord) : Halt{};
    if (!engineTraces && !trace.Points.empty()) {  // the last call's point at its known time
      if (halt.time >= 0) trace.Points.back().Time = halt.time;
      else if (!halted && clock.total >= 0) trace.Points.back().Time = clock.total;
    }
    const double haltTime =
        halt.time >= 0 ? halt.time : (trace.Points.empty() ? 0.0 : trace.Points.back().Time);
    RecordStep(ws, slot, halt.position, ws.StartX, ws.StartY, ws.StartZ, haltTime);
    trace.Marker = halted ? haltTime : -1;
    ++trace.Revision;

    program.Status = "Program halted";
    program.CurrentRow = halt.row;
    platform::ShowProgress(halt.text);
    if (!halted) {
      program.Status = "Program has finished";
      program.CurrentRow = -1;
      ws.CurrentStep(slot) = -1;
      ws.EngineEntry[slot - 1] = -1;
      ws.RunningProgram = -1;
      platform::ShowProgress("");
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
  const auto [row, text] = Describe(ws, slot, PositionOfStep(ws, index));
  ProgramTrace& trace = ws.Traces[static_cast<std::size_t>(slot - 1)];
  trace.Marker = ws.StepTime[index - 1];
  ++trace.Revision;
  ws.Program(slot).CurrentRow = row;
  platform::ShowProgress(text);
  ui.programChanged(slot);
  ui.updateQubitDisplay(slot);
}

bool PauseProgram(Workspace& ws, int slot) {
  if (!ws.EngineBusy || ws.RunningProgram != slot || ws.RunMode != kModeRun) return false;
  ws.PauseRequested = true;
  return true;
}

void ResetProgram(Workspace& ws, RunUi& ui, int slot) {
  ProgramSlot& program = ws.Program(slot);
  program.CurrentRow = -1;
  ui.programChanged(slot);

  // While another program's run is on, only this slot's marks and boxes are cleared: the
  // engine, the status line and the qubit window belong to that run.
  const bool otherRunOn = ws.RunningProgram > 0 && ws.RunningProgram != slot;
  if (!otherRunOn) {
    ws.EngineEntry[slot - 1] = -2;
    ws.RunningProgram = -1;
    ui.enableRunCommands(slot, true);
    platform::ShowProgress("");
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
  ClearTrace(ws.Traces[static_cast<std::size_t>(slot - 1)]);
  ui.updateQubitDisplay(slot);
  if (!otherRunOn) ui.refreshQubitWindow();
  program.Status = "Program reset";
  ui.programChanged(slot);
}

std::string RunningText(std::int32_t thousandths, double seconds) {
  const int percent = std::clamp(thousandths, 0, 1000) / 10;
  const long total = seconds > 0 ? static_cast<long>(seconds) : 0;
  char clock[32];
  if (total >= 3600)
    std::snprintf(clock, sizeof clock, "%ld:%02ld:%02ld", total / 3600, total / 60 % 60, total % 60);
  else
    std::snprintf(clock, sizeof clock, "%ld:%02ld", total / 60, total % 60);
  return "Running\xE2\x80\xA6 " + std::to_string(percent) + " % (" + clock + ")";
}

bool QueryClosePrograms(Workspace& ws, RunUi& ui) {
  if (ws.RunningProgram > 0) ResetProgram(ws, ui, ws.RunningProgram);
  return AskToSavePrograms(ws, ui);
}

void RemoveMIButton(Workspace& ws, RunUi& ui, int slot, int selectedRow) {
  if (ws.RunningProgram == slot) {
    ResetProgram(ws, ui, slot);
    return;
  }
  if (RemoveRow(ws, slot, selectedRow)) ui.programChanged(slot);
}

} // namespace orvex
