// The run controller: Start, Step, Back and Reset of one quantum program at a time, driving the
// engine (run/engine_library.h) through the workspace's exchange area and keeping the run state
// of every open program. Qt-free; the windows are told what happened through RunUi, the user
// through the user port (platform/dialogs.h).
//
// Step history. Entry k (1..1000) of HistoryX/Y/Z holds the qubit state of recorded step k,
// StepTable(k) its mark: 0 nothing recorded, 1 a position that cannot be told, 2 the position
// in StepEvent/StepDone (run/run_position.h). A start from idle records the register the
// engine starts from, |0…0> (Q = ½, ½, 0 for every qubit), as entry 1 at the "Start" row and
// sets CurrentStep to 0; every completed RunProgram (a halt or the finish)
// appends one entry after the last recorded one and sets CurrentStep to that entry's index
// - 1, so CurrentStep + 1 indexes the entry shown. When the table is full the oldest entry is
// dropped. Back moves CurrentStep one entry down (never below 0, the oldest entry kept) and
// restores its state, row and status line without calling the engine; continuing afterwards
// appends after the last recorded entry, since the engine goes on from where it stopped.
//
// Current row and status line. The engine does not report its position, so the controller
// derives it from the position of the last recorded entry and the run's granularity
// (run/run_position.h): a run halts after the next breakpoint, a step after the next MI, main
// step or intermediate step; called programs are expanded, their MIs and breakpoints marking
// the calling row. The row is shown in ProgramSlot::CurrentRow while halted (-1 otherwise, and
// when a walk cannot be made: an MI or called program unreadable), the MI, "main step k of m"
// and the program time in the run's status line (the user port's progress, "" when no run is
// on). While the call loop runs the status line shows the engine's progress word (EngineFlags
// word 2) and the time taken (RunningText), the word also as the part done; between engine
// calls the port keeps the user interface responsive, and a stop the user asked for there
// resets the run.
//
// Trace. Every call loop adds to Workspace::Traces of the slot (run/run_trace.h): the engine's
// trace records, drained after every call, when it has kv3trace (recording is switched on
// before the start call), else one point per successful call with the values it returned, at
// the program time of the halt for the last call and estimated from the progress word for
// early returns. A start from idle and Reset empty it; the trace's Marker is the program time
// of the step shown while halted (Back moves it), StepTime keeping it per recorded step.
//
// Failed calls. The arrays of a call that returned an error are never copied into the
// displays, animated or not: the program keeps what it showed.
//
// Errors. An engine error (non-zero status) makes the clean-up call, returns the program to
// idle ("Program ready", commands enabled: the engine has abandoned the run) and then shows
// the mapped message with the log's reason as detail. A run-time error while the engine is
// driven (the library missing included) shows "An error occurred during execution." and
// returns the program to idle the same way. Errors of the save and of the run-directory
// preparation, which come before the engine is driven, are thrown to the caller (RuntimeError).
#pragma once

#include <cstdint>
#include <string>

#include "run/run_ui.h"
#include "workspace/workspace.h"

namespace orvex {

inline constexpr int kModeRun = 0;
inline constexpr int kModeStep = 1;

// Start (mode 0: to the next breakpoint or the end) or Step (mode 1) the program in `slot`.
// Refused with a message when another program runs or is halted; a program that is new or
// changed is saved first (nothing runs when that save does not complete). A call while the
// engine call loop is running (from an event processed inside it) only beeps.
void RunProgram(Workspace& ws, RunUi& ui, int slot, int mode);

// Back: restores the state recorded one step earlier. Refused with a message when `slot` is
// not the running program; at the oldest recorded step it only beeps.
void StepBack(Workspace& ws, RunUi& ui, int slot);

// Pause: while the call loop of `slot` runs in run mode, asks it to stop at the engine's next
// early return. The engine keeps its context and the program is halted there as at a
// breakpoint (its row and position unknown): Start continues, Step and Back work from there.
// Returns false (and does nothing) when no run of `slot` is under way.
bool PauseProgram(Workspace& ws, int slot);

// Reset: back to idle, the engine told to abandon the run, the qubit display emptied
// (ProgramQubits 0), the qubit window and the status line cleared, status "Program reset".
// While another program's run is on, that run (with the qubit window and the status line) is
// left alone and only this slot's marks and display are cleared.
void ResetProgram(Workspace& ws, RunUi& ui, int slot);

// The main window's close: a program that runs or is halted is reset first, then
// AskToSavePrograms (program/program_table.h) asks about every unsaved program. True when the
// user went through every question.
bool QueryClosePrograms(Workspace& ws, RunUi& ui);
// The editor's "Remove MI" button: resets the run when this program is the running one,
// otherwise removes the selected row.
void RemoveMIButton(Workspace& ws, RunUi& ui, int slot, int selectedRow);

// The engine's program name field: FileNameOf(programName) padded with blanks, cut at 32.
std::string EngineProgramNameFor(const std::string& programName);

// The status line while the call loop runs: "Running… 43 % (0:12)", from the engine's progress
// in thousandths (clamped to 0…1000) and the seconds since the loop began (h:mm:ss past an
// hour).
std::string RunningText(std::int32_t thousandths, double seconds);

// The number of recorded steps of the current run (consecutive marked StepTable entries).
int RecordedSteps(Workspace& ws);

// The message of a run-time error inside a run: "An error occurred during execution." CR
// description ", errorcode: " number.
std::string ExecutionErrorText(const std::string& description, int number);

} // namespace orvex
