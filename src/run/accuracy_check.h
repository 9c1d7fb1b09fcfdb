// The accuracy check: a program run twice in a scratch copy of its MI set, as written and with
// every MI's intermediate steps doubled, and the difference of the final qubit values as the
// measure of the integration error. The user's files are only read. Qt-free; the command line
// and the workbench call the same code.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "workspace/workspace.h"

namespace orvex {

struct QubitAccuracy {
  int qubit = 0;                      // 1..N
  std::array<double, 3> asWritten{};  // Qx, Qy, Qz at the end of the run as written
  std::array<double, 3> doubled{};    // the same with every MI's intermediate steps doubled
  double deviation = 0;               // max over x, y, z of |Q_n - Q_2n|
  double estimatedError = 0;          // error of the run as written: deviation * 2^p/(2^p-1)
  // Factor by which the intermediate steps would have to grow for an error of 1e-3 and 1e-6
  // (error proportional to n^-p): below 1 when fewer steps would do, 0 when no error shows.
  double factorFor1e3 = 0;
  double factorFor1e6 = 0;
};

// The intermediate steps of one MI the program calls: as written, and what reaches an error
// of 1e-3 and 1e-6 when every MI's steps grow by the same factor (0: no error shows).
struct MIStepAdvice {
  std::string name;  // the MI's file name
  std::int64_t n = 1;  // max(1, intermediate steps) as written
  std::int64_t nFor1e3 = 0;
  std::int64_t nFor1e6 = 0;
};

struct AccuracyReport {
  bool ok = false;
  std::string error;               // why the check could not be made (ok false)
  std::vector<std::string> notes;  // warnings met while the copies were read
  int order = 2;                   // 2 or 4
  std::vector<QubitAccuracy> qubits;  // every qubit of the set
  double maxDeviation = 0;
  double estimatedError = 0;       // of the qubit with the largest deviation
  // The MIs the program calls (every MI of the set when it calls another program) whose
  // steps change their result (a coupling or an oscillating field over some time), by name.
  std::vector<MIStepAdvice> steps;
};

// Checks the program at `programPath` (any path; the workspace's AppDir is the home whose
// callable programs the set refers to) with the open set of `ws` (MISetPath) and the
// integrator of `order` (2 or 4). Refused while a program of `ws` runs or is halted (the
// engine has one run context; the caller keeps Start and Step disabled while the check runs).
// The two runs take place in a workspace of the check's own, slot 1; their progress reaches the
// user port as the part of the whole check done (the status line of each run, the first run
// up to one half), and the port is asked to keep the user interface responsive between engine
// calls, possibly from the check's thread. Leaves the current directory as it was and removes
// its scratch directory. On a worker thread it needs the user interface to wait (a modal
// window): for its duration it installs its own user port (every message box, from any
// thread, is collected into the report instead of shown) and holds the current directory and
// the engine's run context. `onFraction`, when set, gets the same part done as a number, from
// the check's thread.
AccuracyReport CheckAccuracy(const Workspace& ws, const std::string& programPath, int order,
                             const std::function<void(double)>& onFraction = {});

// The MI text with its intermediate steps n replaced by 2 * max(1, n) (a sub-step count of 0
// runs as 1), every other line kept; the text is read by the MI reader and the result read
// back to confirm it. Throws the reader's RuntimeError, or RuntimeError 6 (overflow) when 2n
// does not fit.
std::string DoubleIntermediateSteps(const std::string& text, const std::string& source);

// The error estimate of a deviation between step counts n and 2n for an integrator of order
// p: deviation * 2^p / (2^p - 1); and the factor on n that reaches `target`.
double EstimatedError(double deviation, int order);
// 0 for an error at or below kRoundingLevel (no error shows).
inline constexpr double kRoundingLevel = 1e-12;
double StepFactorFor(double error, double target, int order);

} // namespace orvex
