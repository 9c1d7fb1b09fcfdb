// The run context behind kv3dll: the program tree, the position in it, the state vector and
// the open log and output files, kept between calls.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/engine_error.h"
#include "engine/gates.h"
#include "engine/kernels.h"
#include "engine/parallel.h"
#include "engine/product_formula.h"
#include "engine/program_tree.h"
#include "engine/state_vector.h"
#include "engine/trace_buffer.h"

namespace orvex::engine {

namespace code {
// Flags word 1 names no integrator the engine has (a syntax-class fault, like the MI ones).
inline constexpr int kIntegratorUnknown = -16;
} // namespace code

// The ten arguments of kv3dll, by value, for callers inside C++.
struct CallArgs {
  std::int32_t status = 0;
  std::int32_t progress = 0;
  std::int32_t runMode = 0;       // 0 run, 1 step
  std::int32_t noOutputFiles = 1;
  std::int32_t entry = -1;        // -1 start, -2 abandon, >= 0 continue
  double x[32] = {};
  double y[32] = {};
  double z[32] = {};
  // [0] continuation, [1] integrator (read at a start), [2] progress in thousandths,
  // [3] step granularity
  std::int32_t flags[4] = {};
  char programName[33] = {};

  void SetProgramName(const std::string& name);
};

class Simulator {
public:
  // Kernels on the calling thread alone.
  Simulator();
  // Kernels on `threads` threads (the calling thread among them).
  explicit Simulator(unsigned threads);
  ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  // One call of the engine, with the meaning of kv3dll's arguments. Files are read and
  // written in the current directory.
  void Call(std::int32_t* status, std::int32_t* progress, std::int32_t* runMode,
            std::int32_t* noOutputFiles, std::int32_t* entry, double* x, double* y, double* z,
            std::int32_t* flags, char* programName);
  void Call(CallArgs& a);

  // Largest state the engine will allocate (default: the machine's physical memory).
  void SetMemoryLimit(std::uint64_t bytes) { memoryLimit_ = bytes; }
  // Work after which a run call returns early (default 25 ms; zero: at every opportunity).
  void SetReturnInterval(std::chrono::microseconds interval) { returnInterval_ = interval; }
  // Evolve with one full sweep per factor instead of cache-sized tiles (for comparisons),
  // and without folding any qubit's rotations over a reported interval.
  void SetLiteralSweeps(bool literal) { literal_ = literal; }
  // At most this many sub-steps per batch (0: as the work suggests), for comparisons of runs
  // cut at different places.
  void SetBatchLimit(std::int64_t subSteps) { batchLimit_ = subSteps; }

  bool Active() const { return context_ != nullptr; }
  int Qubits() const;
  const StateVector* State() const;
  double ProgramTime() const;
  // The program time of the values the last return reported. A return that leaves work open
  // (a preparation, a measurement) reports the values measured last, which may be older
  // than ProgramTime().
  double ReportedTime() const;
  // The records of the run (engine/trace_buffer.h): emptied at every start and abandon,
  // recording kept across runs.
  TraceBuffer& Trace() { return trace_; }

  static constexpr const char* kLogName = "kv1dll.log";

private:
  struct Context;
  void CallUnguarded(std::int32_t* status, std::int32_t* progress, std::int32_t* runMode,
                     std::int32_t* noOutputFiles, std::int32_t* entry, double* x, double* y,
                     double* z, std::int32_t* flags, char* programName);
  void Start(std::int32_t* status, std::int32_t noOutputFiles, std::int32_t granularity,
             std::int32_t integrator, const std::string& programName);
  void Continue(std::int32_t* status, std::int32_t* progress, std::int32_t runMode,
                std::int32_t* flags);
  void Report(double* x, double* y, double* z);
  std::int32_t ProgressWord() const;
  void FlushOutputs(std::int32_t* status, std::int32_t* flags);
  void Fail(std::int32_t* status, const EngineError& e);
  void Abandon();

  ParallelFor policy_;
  std::unique_ptr<Context> context_;
  std::uint64_t memoryLimit_;
  std::chrono::microseconds returnInterval_{25000};
  bool literal_ = false;
  std::int64_t batchLimit_ = 0;
  TraceBuffer trace_;
};

} // namespace orvex::engine
