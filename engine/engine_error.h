// The engine's status codes and the error record written to the log.
#pragma once

#include <string>

namespace orvex::engine {

namespace code {
inline constexpr int kOk = 0;
inline constexpr int kLogOpen = -1000;
inline constexpr int kMiMissing = -1001;
inline constexpr int kProgramMissing = -1002;
inline constexpr int kNesting = -1003;
inline constexpr int kAllocation = -1005;
inline constexpr int kNormCheck = -20;
inline constexpr int kOutputFile = -30;

// MI syntax, one code per kind of fault: what the workbench's reader refuses, and the few
// checks the engine makes on top of it.
inline constexpr int kSpinNumberMissing = -1;   // a SPIN header with nothing before "("
inline constexpr int kSpinOutOfRange = -2;      // a qubit index outside 1..32
inline constexpr int kMiTooLarge = -3;          // larger than any file the reader takes
inline constexpr int kFieldNotFinite = -4;
inline constexpr int kPairNumberMissing = -5;   // a pair line with fewer than five commas
inline constexpr int kPairOutOfRange = -6;
inline constexpr int kCouplingNotFinite = -7;
inline constexpr int kFieldStepsNegative = -9;
inline constexpr int kFieldStepsTooLarge = -10;
inline constexpr int kTimeStepNotFinite = -12;
inline constexpr int kIntermediateNegative = -14;
inline constexpr int kIntermediateTooLarge = -15;
inline constexpr int kGroundStateTooLarge = -18;
inline constexpr int kSeedInvalid = -19;
} // namespace code

struct EngineError {
  int code = 0;
  std::string file;  // the file as a program or redirect names it
  int line = 0;      // 1-based; 0 when the fault belongs to no line
  std::string reason;

  explicit operator bool() const { return code != 0; }
  // "error CODE: FILE:LINE: reason"
  std::string LogLine() const {
    return "error " + std::to_string(code) + ": " + file + ":" + std::to_string(line) + ": " +
           reason;
  }
};

} // namespace orvex::engine
