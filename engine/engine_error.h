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

// MI syntax, one code per kind of fault.
inline constexpr int kSpinNumberMissing = -1;
inline constexpr int kSpinOutOfRange = -2;
inline constexpr int kFieldNumberMissing = -3;
inline constexpr int kFieldNotFinite = -4;
inline constexpr int kPairNumberMissing = -5;
inline constexpr int kPairOutOfRange = -6;
inline constexpr int kCouplingNotFinite = -7;
inline constexpr int kFieldStepsMissing = -8;
inline constexpr int kFieldStepsNegative = -9;
inline constexpr int kFieldStepsNotWhole = -10;
inline constexpr int kTimeStepMissing = -11;
inline constexpr int kTimeStepNotFinite = -12;
inline constexpr int kIntermediateMissing = -13;
inline constexpr int kIntermediateNegative = -14;
inline constexpr int kIntermediateNotWhole = -15;
inline constexpr int kSeedMissing = -16;
inline constexpr int kInitialStateUnknown = -17;
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
