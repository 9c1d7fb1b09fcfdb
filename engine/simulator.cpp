// The run protocol: start, continue by step or run (with breakpoints and early returns),
// abandon; the log and the per-qubit output files.
#include "engine/simulator.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>

#include "engine/initial_states.h"
#include "workspace/numbers.h"
#include "engine/parallel.h"
#include "engine/program_cursor.h"
#include "engine/version.h"

namespace orvex::engine {

void CallArgs::SetProgramName(const std::string& name) {
  std::memset(programName, ' ', 32);
  std::memcpy(programName, name.data(), std::min<std::size_t>(name.size(), 32));
  programName[32] = '\0';
}

namespace {

std::uint64_t PhysicalMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGE_SIZE);
  if (pages <= 0 || page <= 0) return std::uint64_t{1} << 62;
  return static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(page);
}

// A number with 15 significant digits, as the log writes them.
std::string G15(double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.15g", v);
  return buf;
}

enum class Granularity { Mi, MainStep, SubStep };

// "qubitNN.out" with the qubit number in two digits.
std::string OutputName(int q) {
  return std::string("qubit") + (q < 10 ? "0" : "") + std::to_string(q) + ".out";
}

} // namespace

struct Simulator::Context {
  explicit Context(Simulator& sim) : owner(sim) {}

  using Clock = std::chrono::steady_clock;
  // The returns a call makes once the reported values are measured.
  enum class Return { None, Early, StepDone, Breakpoint, End };

  Simulator& owner;  // its settings, threads and trace
  ProgramTree tree;
  StateVector psi;
  std::FILE* log = nullptr;
  std::vector<std::FILE*> out;  // qubitNN.out, index q - 1; empty when not asked for
  Granularity granularity = Granularity::Mi;
  int integrator = kSecondOrder;

  ProgramCursor cursor;
  // The formula of the MI begun last, with the open batch if any: a call that ran out of
  // time returned between two of its pieces.
  std::unique_ptr<ProductFormula> formula;
  std::int64_t batchCount = 0;  // sub-steps of the open batch
  bool batchEndsMain = false;   // the open batch ends a main step
  bool batchDone = false;       // a batch (or an MI's beginning) was just done: look at the time

  // A step (step mode) that a call began and left unfinished when its time ran out.
  bool stepOpen = false;

  // Work that a call leaves open when its time runs out, in pieces; the next call finishes
  // it before anything else, in this order: the state's preparation (at a start or for an
  // initial state), the measurement of the reported values, then what waits for those.
  StatePreparation prep;
  std::size_t prepNext = 0;
  bool prepOpen = false;
  bool measureOpen = false;  // the pending folded evolution, then the measurement, begun
  bool measuring = false;    // ... past the folded evolution
  Measurement measurement;
  std::size_t measureNext = 0;
  double measureWork = 0;
  bool measureDue = false;  // measure before going on (an initial state is reported)
  bool recordDue = false;   // a main step or an initial state awaits its output line
  bool finishDue = false;   // a finished MI awaits its log line and norm check
  Return due = Return::None;

  bool qValid = false;
  Expectations q;
  double qTime = 0;  // the program time q belongs to
  double measureSeconds = 0;  // what the last measurement of the reported values took
  Clock::time_point measuredAt;  // when it ended
  EngineError error;

  ~Context() {
    for (std::FILE* f : out)
      if (f) std::fclose(f);
    if (log) std::fclose(log);
  }

  void Log(const std::string& line) {
    if (!log) return;
    std::fputs(line.c_str(), log);
    std::fputc('\n', log);
    std::fflush(log);
  }

  void Fail(std::int32_t* status, const EngineError& e) {
    *status = e.code;
    error = e;
    Log(e.LogLine());
  }

  bool BatchOpen() const { return formula && formula->IsOpen(); }

  void Prepare(StatePreparation p) {
    prep = std::move(p);
    prepNext = 0;
    prepOpen = true;
    qValid = false;
  }

  // Brings the reported values up to date: applies the folded evolution still pending, so
  // that the state is the literal product's at the last completed sub-step, then measures;
  // both in pieces, at least one per call. False when the time ran out first.
  template <class TimeUp>
  bool Measured(const TimeUp& timeUp);
  // Finishes the work left open (see above); false when the time ran out first, `ok` false
  // on a failure.
  template <class TimeUp>
  bool Settle(const TimeUp& timeUp, std::int32_t* status, bool& ok);
  // Makes the return that was due, and clears it.
  void MakeReturn(std::int32_t* progress, std::int32_t* flags);

  // The record of a completed main step or an initial state: the output files' line and the
  // trace's record, from one measurement.
  bool WriteOutput(std::int32_t* status);
  bool FinishMi(std::int32_t* status);
  void BeginMi(const MiFile* mi);
  // Opens the batch that starts at the current sub-step: up to the next multiple of the MI's
  // batch size (never past the end of the main step), or, `single`, one sub-step that is
  // reported.
  void OpenFromHere(bool single);
  // Applies pieces of the open batch until it is done (true) or the time is up (false). A
  // finished batch advances the position and leaves the records it completes due.
  template <class TimeUp>
  bool AdvanceBatch(const TimeUp& timeUp);
  // Begins the next MI, passing over breakpoints; false at the end of the program.
  bool BeginNext();
};

template <class TimeUp>
bool Simulator::Context::Measured(const TimeUp& timeUp) {
  if (qValid || psi.Empty()) return true;
  measureOpen = true;
  for (;;) {
    if (!measuring) {
      if (formula && !formula->FlushNext(owner.policy_, psi)) {
        if (timeUp()) return false;
        continue;
      }
      measurement = Measurement(psi.Qubits());
      measureNext = 0;
      measureWork = 0;
      measuring = true;
    }
    if (measureNext < measurement.Pieces()) {
      const auto before = Clock::now();
      measurement.MeasurePiece(owner.policy_, psi, measureNext++);
      measuredAt = Clock::now();
      measureWork += std::chrono::duration<double>(measuredAt - before).count();
    }
    if (measureNext == measurement.Pieces()) {
      q = measurement.Result();
      qTime = cursor.Time();
      measurement = Measurement();
      measureSeconds = measureWork;
      measuring = measureOpen = false;
      qValid = true;
      return true;
    }
    if (timeUp()) return false;
  }
}

template <class TimeUp>
bool Simulator::Context::Settle(const TimeUp& timeUp, std::int32_t* status, bool& ok) {
  ok = true;
  if (prepOpen) {
    while (prepNext < prep.Pieces()) {
      prep.ApplyPiece(owner.policy_, psi, prepNext++);
      if (prepNext < prep.Pieces() && timeUp()) return false;
    }
    prep = StatePreparation();
    prepOpen = false;
  }
  const bool record = recordDue && (!out.empty() || owner.trace_.Recording());
  if ((measureOpen || measureDue || record || finishDue || due != Return::None) &&
      !Measured(timeUp))
    return false;
  measureDue = false;
  if (recordDue) {
    recordDue = false;
    if (!(ok = WriteOutput(status))) return true;
  }
  if (finishDue) {
    finishDue = false;
    ok = FinishMi(status);
  }
  return true;
}

void Simulator::Context::MakeReturn(std::int32_t* progress, std::int32_t* flags) {
  switch (due) {
  case Return::None: break;
  case Return::Early: flags[0] = 1; break;
  case Return::StepDone:
    stepOpen = false;
    *progress = cursor.AnythingLeft() ? 1 : 0;
    if (*progress == 0) cursor.End();
    break;
  case Return::Breakpoint:
    // Halt with the position after the breakpoint, so going on passes it.
    *progress = 1;
    break;
  case Return::End:
    *progress = 0;
    cursor.End();
    break;
  }
  due = Return::None;
}

bool Simulator::Context::WriteOutput(std::int32_t* status) {
  TraceBuffer& trace = owner.trace_;
  if (out.empty() && !trace.Recording()) return true;
  const double time = cursor.Time();
  trace.AddSigma(time, q.qubits);
  for (std::size_t i = 0; i < out.size(); ++i) {
    const Bloch& b = q.qubits[i];
    if (std::fprintf(out[i], "%.15g %.15g %.15g %.15g\n", time, (1 - b.x) / 2, (1 - b.y) / 2,
                     (1 - b.z) / 2) < 0) {
      Fail(status, {code::kOutputFile, OutputName(static_cast<int>(i) + 1), 0,
                    "cannot write the output file"});
      return false;
    }
  }
  return true;
}

bool Simulator::Context::FinishMi(std::int32_t* status) {
  const MiFile& mi = *cursor.Mi();
  cursor.Finish();
  const double tau = mi.timeStep;
  Log("MI " + mi.name + ": " + std::to_string(mi.fieldSteps) + " main steps, " +
      std::to_string(mi.intermediateSteps) + " intermediate steps, time step " +
      G15(tau) + ", duration " +
      G15(tau * static_cast<double>(mi.fieldSteps)) + ", norm " +
      G15(q.norm2));
  if (mi.checkNorm && !(std::abs(q.norm2 - 1.0) <= 1e-9)) {
    Fail(status, {code::kNormCheck, mi.name, 0,
                  "norm check failed: |psi|^2 = " + G15(q.norm2)});
    return false;
  }
  return true;
}

void Simulator::Context::BeginMi(const MiFile* mi) {
  cursor.Begin(mi);
  formula = std::make_unique<ProductFormula>(*mi, integrator, psi.Qubits(), owner.literal_,
                                             owner.batchLimit_);
  const int n = psi.Qubits();
  if (mi->initial != InitialState::None) {
    switch (mi->initial) {
    case InitialState::SpinUp: Prepare(StatePreparation::Basis(n, 0)); break;
    case InitialState::SpinDown: Prepare(StatePreparation::Basis(n, psi.Size() - 1)); break;
    case InitialState::Random: Prepare(StatePreparation::Random(n, mi->seed)); break;
    case InitialState::Ground:
      SetGroundState(psi, *mi);
      qValid = false;
      break;
    case InitialState::None: break;
    }
    // Measured before the evolution, so that a return inside the next batch reports this
    // state.
    measureDue = recordDue = true;
  }
  if (mi->fieldSteps == 0) finishDue = true;
}

void Simulator::Context::OpenFromHere(bool single) {
  const std::int64_t n = cursor.SubStepsPerMain(), l = cursor.SubStep();
  const std::int64_t batch = formula->Batch();
  batchCount = single ? 1 : std::min(batch - l % batch, n - l);
  batchEndsMain = l + batchCount == n;
  if (formula->Open(cursor.MainStep(), l, batchCount, single || batchEndsMain)) qValid = false;
}

template <class TimeUp>
bool Simulator::Context::AdvanceBatch(const TimeUp& timeUp) {
  while (!formula->ApplyNext(owner.policy_, psi))
    if (timeUp()) return false;
  if (cursor.Advance(batchCount)) {
    recordDue = true;
    if (cursor.MiDone()) finishDue = true;
  }
  return true;
}

bool Simulator::Context::BeginNext() {
  const MiFile* mi = nullptr;
  for (;;) {
    const ProgramCursor::Item it = cursor.Next(mi);
    if (it == ProgramCursor::Item::End) return false;
    if (it == ProgramCursor::Item::Mi) break;
  }
  BeginMi(mi);
  return true;
}

Simulator::Simulator() : Simulator(1) {}
Simulator::Simulator(unsigned threads) : policy_(threads), memoryLimit_(PhysicalMemory()) {}
Simulator::~Simulator() = default;

int Simulator::Qubits() const { return context_ ? context_->psi.Qubits() : 0; }
const StateVector* Simulator::State() const {
  // No state until its preparation at the start is done.
  return context_ && !context_->psi.Empty() && !context_->prepOpen ? &context_->psi : nullptr;
}
double Simulator::ProgramTime() const { return context_ ? context_->cursor.Time() : 0.0; }
double Simulator::ReportedTime() const { return context_ ? context_->qTime : 0.0; }

void Simulator::Call(CallArgs& a) {
  Call(&a.status, &a.progress, &a.runMode, &a.noOutputFiles, &a.entry, a.x, a.y, a.z, a.flags,
       a.programName);
}

void Simulator::Abandon() {
  context_.reset();
  trace_.Reset(0);
}

void Simulator::Fail(std::int32_t* status, const EngineError& e) {
  if (context_)
    context_->Fail(status, e);
  else
    *status = e.code;
}

void Simulator::Report(double* x, double* y, double* z) {
  if (!context_ || context_->psi.Empty()) return;
  Context& c = *context_;
  // The values measured last: a return that leaves work open (inside a batch, a preparation
  // or a measurement) reports those of the last completed measurement.
  for (int i = 0; i < c.psi.Qubits() && i < kMaxQubits; ++i) {
    x[i] = (1 - c.q.qubits[i].x) / 2;
    y[i] = (1 - c.q.qubits[i].y) / 2;
    z[i] = (1 - c.q.qubits[i].z) / 2;
  }
}

// Thousandths of the program's sub-steps done; 1000 only once the program has ended.
std::int32_t Simulator::ProgressWord() const {
  if (!context_) return 0;
  return context_->cursor.Thousandths();
}

void Simulator::FlushOutputs(std::int32_t* status, std::int32_t* flags) {
  if (!context_) return;
  Context& c = *context_;
  // The lines of a call reach the files here; a write that fails (a full disk) shows only
  // now, since the lines themselves go into the streams' buffers.
  for (std::size_t i = 0; i < c.out.size(); ++i) {
    if (std::fflush(c.out[i]) == 0 && !std::ferror(c.out[i])) continue;
    if (*status == 0) {
      flags[0] = 0;
      Fail(status, {code::kOutputFile, OutputName(static_cast<int>(i) + 1), 0,
                    "cannot write the output file"});
    }
    return;
  }
}

void Simulator::Call(std::int32_t* status, std::int32_t* progress, std::int32_t* runMode,
                     std::int32_t* noOutputFiles, std::int32_t* entry, double* x, double* y,
                     double* z, std::int32_t* flags, char* programName) {
  // Nothing may escape into the caller (a GUI thread): a failed allocation becomes the
  // allocation code, any other failure the file code, each logged with its reason.
  try {
    CallUnguarded(status, progress, runMode, noOutputFiles, entry, x, y, z, flags, programName);
  } catch (const std::bad_alloc&) {
    flags[0] = 0;
    Fail(status, {code::kAllocation, "(engine)", 0, "out of memory"});
  } catch (const std::exception& e) {
    flags[0] = 0;
    Fail(status, {code::kProgramMissing, "(engine)", 0, e.what()});
  }
  flags[2] = ProgressWord();
}

void Simulator::CallUnguarded(std::int32_t* status, std::int32_t* progress,
                              std::int32_t* runMode, std::int32_t* noOutputFiles,
                              std::int32_t* entry, double* x, double* y, double* z,
                              std::int32_t* flags, char* programName) {
  *status = 0;
  if (*entry == -2) {
    Abandon();
    flags[0] = 0;
    *progress = 0;
    return;
  }
  flags[0] = 0;
  if (*entry == -1 || !context_) {
    std::string name(programName ? std::string(programName, strnlen(programName, 32)) : "");
    Start(status, *noOutputFiles, flags[3], flags[1], name);
    if (*status != 0) {
      Report(x, y, z);
      return;
    }
    *entry = 0;
  }
  if (context_->error) {
    *status = context_->error.code;
    Report(x, y, z);
    return;
  }
  Continue(status, progress, *runMode, flags);
  FlushOutputs(status, flags);
  Report(x, y, z);
}

void Simulator::Start(std::int32_t* status, std::int32_t noOutputFiles, std::int32_t granularity,
                      std::int32_t integrator, const std::string& programName) {
  Abandon();
  std::FILE* log = std::fopen(kLogName, "w");
  if (!log) {
    *status = code::kLogOpen;
    return;
  }
  context_ = std::make_unique<Context>(*this);
  Context& c = *context_;
  c.log = log;
  c.granularity = granularity == -1  ? Granularity::MainStep
                  : granularity == 1 ? Granularity::SubStep
                                     : Granularity::Mi;
  c.Log(std::string(kEngineName) + " version " + kEngineVersion);
  const std::string name(Trim(programName));
  c.Log("program: " + name);
  if (integrator != kSecondOrder && integrator != kFourthOrder)
    return Fail(status, {code::kIntegratorUnknown, name, 0,
                         "unknown integrator " + std::to_string(integrator) +
                             " in flags word 1 (0 = second order, 4 = fourth order)"});
  c.integrator = integrator;
  std::error_code ec;
  const std::filesystem::path runDir = std::filesystem::current_path(ec);
  if (auto e = c.tree.Load(runDir, name)) return Fail(status, e);
  const int n = c.tree.Qubits();
  const std::uint64_t bytes = StateVector::BytesFor(n);
  trace_.Reset(n);
  c.Log("qubits: " + std::to_string(n));
  c.Log("state vector: " + std::to_string(std::uint64_t{1} << n) + " amplitudes, " +
        std::to_string(bytes) + " bytes");
  c.Log("threads: " + std::to_string(policy_.Threads()));
  c.Log(c.integrator == kFourthOrder
            ? "integrator: fourth order (triple jump of the symmetric second-order step)"
            : "integrator: second order (symmetric product formula)");
  for (const MiFile* mi : c.tree.Mis())
    for (const std::string& w : mi->warnings) c.Log("warning: " + w);
  if (bytes > memoryLimit_ || !c.psi.AllocateUnset(n))
    return Fail(status, {code::kAllocation, name, 0,
                         "cannot allocate the state vector of " + std::to_string(n) +
                             " qubits (" + std::to_string(bytes) + " bytes)"});
  // |0...0>, written in pieces by the calls that follow: every qubit at sigma_z = +1.
  c.Prepare(StatePreparation::Basis(n, 0));
  c.q.qubits.assign(n, Bloch{0, 0, 1});
  c.q.norm2 = 1;
  c.qValid = true;
  if (noOutputFiles == 0) {
    for (int q = 1; q <= n; ++q) {
      const std::string file = OutputName(q);
      std::FILE* f = std::fopen(file.c_str(), "w");
      if (f) c.out.push_back(f);
      if (!f || std::fputs("# t Qx Qy Qz\n", f) < 0)
        return Fail(status, {code::kOutputFile, file, 0, "cannot create the output file"});
    }
  }
  c.cursor = ProgramCursor(c.tree.Top());
}

void Simulator::Continue(std::int32_t* status, std::int32_t* progress, std::int32_t runMode,
                         std::int32_t* flags) {
  Context& c = *context_;
  using Clock = std::chrono::steady_clock;
  using Return = Context::Return;
  const auto began = Clock::now();
  // A return inside a batch, a preparation or a measurement measures nothing: it comes once
  // the call has worked for the return interval. A return between batches measures the
  // reported values; when that is expensive (large registers) it waits until ten times the
  // last measurement's cost has passed since it, so that measuring stays about a tenth of a
  // run, and until then the call goes on into the next batch and returns inside it. An
  // interval of zero returns at every opportunity.
  auto timeUp = [&] { return Clock::now() - began >= returnInterval_; };
  auto timeToReport = [&] {
    const auto now = Clock::now();
    return now - began >= returnInterval_ &&
           (returnInterval_.count() == 0 ||
            now - c.measuredAt >= std::chrono::duration<double>(10 * c.measureSeconds));
  };
  bool ok = true;
  // First the work a call left open when its time ran out, then the return that was due;
  // false when this call returns.
  auto settled = [&] {
    if (!c.Settle(timeUp, status, ok)) {
      flags[0] = 1;
      return false;
    }
    if (!ok) return false;
    if (c.due == Return::None) return true;
    c.MakeReturn(progress, flags);
    return false;
  };

  if (runMode == 1) {
    // One step of the run's granularity; a call that runs out of time returns with flags[0]
    // set and the step open, and the next call finishes it.
    for (;;) {
      if (!settled()) return;
      if (c.batchDone) {
        c.batchDone = false;
        if (c.granularity == Granularity::SubStep ||
            (c.granularity == Granularity::MainStep && c.batchEndsMain) || !c.cursor.Mi()) {
          c.due = Return::StepDone;
          continue;
        }
        if (timeToReport()) {
          c.due = Return::Early;
          continue;
        }
      }
      if (c.BatchOpen()) {
        if (!c.AdvanceBatch(timeUp)) {
          flags[0] = 1;
          return;
        }
        c.batchDone = true;
      } else if (!c.stepOpen && !c.cursor.Mi()) {
        if (!c.BeginNext()) {
          c.due = Return::End;
          continue;
        }
        c.stepOpen = true;
      } else if (!c.cursor.Mi()) {
        c.due = Return::StepDone;  // a zero-step MI, which counts as one step
      } else {
        c.stepOpen = true;
        c.OpenFromHere(c.granularity == Granularity::SubStep);
      }
    }
  }

  // Run: to the next breakpoint or the end, returning early (between two batches, or inside
  // one) once the interval has passed.
  c.stepOpen = false;
  if (c.due == Return::StepDone) c.due = Return::None;
  for (;;) {
    if (!settled()) return;
    if (c.batchDone) {
      c.batchDone = false;
      if (timeToReport()) {
        c.due = Return::Early;
        continue;
      }
    }
    if (c.BatchOpen()) {
      if (!c.AdvanceBatch(timeUp)) {
        flags[0] = 1;
        return;
      }
      c.batchDone = true;
    } else if (c.cursor.Mi()) {
      c.OpenFromHere(false);
    } else {
      const MiFile* mi = nullptr;
      const ProgramCursor::Item it = c.cursor.Next(mi);
      if (it == ProgramCursor::Item::End) {
        c.due = Return::End;
      } else if (it == ProgramCursor::Item::Breakpoint) {
        c.due = Return::Breakpoint;
      } else {
        c.BeginMi(mi);
        c.batchDone = true;
      }
    }
  }
}

} // namespace orvex::engine
