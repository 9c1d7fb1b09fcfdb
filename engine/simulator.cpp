// The run protocol: start, continue by step or run (with breakpoints and early returns),
// abandon; the log and the per-qubit output files.
#include "engine/simulator.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>

#include "engine/initial_states.h"
#include "engine/numbers.h"
#include "engine/parallel.h"
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

std::string Format(const char* fmt, double v) {
  char buf[64];
  std::snprintf(buf, sizeof buf, fmt, v);
  return buf;
}

enum class Granularity { Mi, MainStep, SubStep };

// "qubitNN.out" with the qubit number in two digits.
std::string OutputName(int q) {
  return std::string("qubit") + (q < 10 ? "0" : "") + std::to_string(q) + ".out";
}

} // namespace

struct Simulator::Context {
  ProgramTree tree;
  StateVector psi;
  std::FILE* log = nullptr;
  std::vector<std::FILE*> out;  // qubitNN.out, index q - 1; empty when not asked for
  Granularity granularity = Granularity::Mi;

  struct Frame {
    const ProgramFile* program;
    std::size_t next;
  };
  std::vector<Frame> stack;

  const MiFile* mi = nullptr;  // the MI being evolved, if any
  std::int64_t k = 0, l = 0;   // next sub-step of it
  double miStart = 0;          // program time when it started
  double time = 0;             // program time after the last completed sub-step
  bool qValid = false;
  Expectations q;
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
};

Simulator::Simulator() : memoryLimit_(PhysicalMemory()) {}
Simulator::~Simulator() = default;

int Simulator::Qubits() const { return context_ ? context_->psi.Qubits() : 0; }
const StateVector* Simulator::State() const {
  return context_ && !context_->psi.Empty() ? &context_->psi : nullptr;
}
double Simulator::ProgramTime() const { return context_ ? context_->time : 0.0; }

void Simulator::Call(CallArgs& a) {
  Call(&a.status, &a.progress, &a.runMode, &a.noOutputFiles, &a.entry, a.x, a.y, a.z, a.flags,
       a.programName);
}

void Simulator::Abandon() { context_.reset(); }

void Simulator::Fail(std::int32_t* status, const EngineError& e) {
  *status = e.code;
  if (context_) {
    context_->error = e;
    context_->Log(e.LogLine());
  }
}

void Simulator::Report(double* x, double* y, double* z) {
  if (!context_ || context_->psi.Empty()) return;
  Context& c = *context_;
  if (!c.qValid) {
    c.q = Measure(ParallelFor(), c.psi);
    c.qValid = true;
  }
  for (int i = 0; i < c.psi.Qubits() && i < kMaxQubits; ++i) {
    x[i] = (1 - c.q.qubits[i].x) / 2;
    y[i] = (1 - c.q.qubits[i].y) / 2;
    z[i] = (1 - c.q.qubits[i].z) / 2;
  }
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
    Start(status, *noOutputFiles, flags[3], name);
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
                      const std::string& programName) {
  Abandon();
  std::FILE* log = std::fopen(kLogName, "w");
  if (!log) {
    *status = code::kLogOpen;
    return;
  }
  context_ = std::make_unique<Context>();
  Context& c = *context_;
  c.log = log;
  c.granularity = granularity == -1  ? Granularity::MainStep
                  : granularity == 1 ? Granularity::SubStep
                                     : Granularity::Mi;
  c.Log(std::string(kEngineName) + " version " + kEngineVersion);
  const std::string name(Trim(programName));
  c.Log("program: " + name);
  std::error_code ec;
  const std::filesystem::path runDir = std::filesystem::current_path(ec);
  if (auto e = c.tree.Load(runDir, name)) return Fail(status, e);
  const int n = c.tree.Qubits();
  const std::uint64_t bytes = StateVector::BytesFor(n);
  c.Log("qubits: " + std::to_string(n));
  c.Log("state vector: " + std::to_string(std::uint64_t{1} << n) + " amplitudes, " +
        std::to_string(bytes) + " bytes");
  c.Log("threads: " + std::to_string(EngineThreadCount()));
  if (bytes > memoryLimit_ || !c.psi.Allocate(n))
    return Fail(status, {code::kAllocation, name, 0,
                         "cannot allocate the state vector of " + std::to_string(n) +
                             " qubits (" + std::to_string(bytes) + " bytes)"});
  if (noOutputFiles == 0) {
    for (int q = 1; q <= n; ++q) {
      const std::string file = OutputName(q);
      std::FILE* f = std::fopen(file.c_str(), "w");
      if (f) c.out.push_back(f);
      if (!f || std::fputs("# t Qx Qy Qz\n", f) < 0)
        return Fail(status, {code::kOutputFile, file, 0, "cannot create the output file"});
    }
  }
  c.stack.push_back({c.tree.Top(), 0});
}

void Simulator::Continue(std::int32_t* status, std::int32_t* progress, std::int32_t runMode,
                         std::int32_t* flags) {
  Context& c = *context_;
  const auto began = std::chrono::steady_clock::now();

  enum class Item { Mi, Breakpoint, End };
  // Moves the position to the next MI call or breakpoint (descending into called programs
  // and leaving finished ones).
  auto next = [](std::vector<Context::Frame>& stack, const MiFile*& mi) {
    while (!stack.empty()) {
      Context::Frame& f = stack.back();
      if (f.next >= f.program->entries.size()) {
        stack.pop_back();
        continue;
      }
      const ProgramEntry& e = f.program->entries[f.next++];
      if (e.kind == ProgramEntry::Breakpoint) return Item::Breakpoint;
      if (e.kind == ProgramEntry::Mi) {
        mi = e.mi;
        return Item::Mi;
      }
      stack.push_back({e.program, 0});
    }
    return Item::End;
  };
  auto anythingLeft = [&] {
    if (c.mi) return true;
    auto copy = c.stack;
    const MiFile* mi = nullptr;
    for (;;) {
      Item it = next(copy, mi);
      if (it == Item::Mi) return true;
      if (it == Item::End) return false;
    }
  };
  auto writeOutput = [&]() -> bool {
    if (c.out.empty()) return true;
    if (!c.qValid) {
      c.q = Measure(ParallelFor(), c.psi);
      c.qValid = true;
    }
    for (std::size_t i = 0; i < c.out.size(); ++i) {
      const Bloch& b = c.q.qubits[i];
      if (std::fprintf(c.out[i], "%.15g %.15g %.15g %.15g\n", c.time, (1 - b.x) / 2,
                       (1 - b.y) / 2, (1 - b.z) / 2) < 0) {
        Fail(status, {code::kOutputFile, OutputName(static_cast<int>(i) + 1), 0,
                      "cannot write the output file"});
        return false;
      }
    }
    return true;
  };
  auto finishMi = [&]() -> bool {
    const MiFile& mi = *c.mi;
    c.mi = nullptr;
    if (!c.qValid) {
      c.q = Measure(ParallelFor(), c.psi);
      c.qValid = true;
    }
    const double tau = mi.timeStep;
    c.Log("MI " + mi.name + ": " + std::to_string(mi.fieldSteps) + " main steps, " +
          std::to_string(mi.intermediateSteps) + " intermediate steps, time step " +
          Format("%.15g", tau) + ", duration " +
          Format("%.15g", tau * static_cast<double>(mi.fieldSteps)) + ", norm " +
          Format("%.15g", c.q.norm2));
    if (mi.checkNorm && !(std::abs(c.q.norm2 - 1.0) <= 1e-9)) {
      Fail(status, {code::kNormCheck, mi.name, 0,
                    "norm check failed: |psi|^2 = " + Format("%.15g", c.q.norm2)});
      return false;
    }
    return true;
  };
  auto beginMi = [&](const MiFile* mi) -> bool {
    c.mi = mi;
    c.k = c.l = 0;
    c.miStart = c.time;
    if (mi->initial != InitialState::None) {
      switch (mi->initial) {
      case InitialState::SpinUp: SetSpinUp(c.psi); break;
      case InitialState::SpinDown: SetSpinDown(c.psi); break;
      case InitialState::Random: SetRandom(c.psi, mi->seed); break;
      case InitialState::Ground: SetGroundState(c.psi, *mi); break;
      case InitialState::None: break;
      }
      c.qValid = false;
      if (!writeOutput()) return false;
    }
    if (mi->fieldSteps == 0) return finishMi();
    return true;
  };
  // Evolves the active MI by up to `want` intermediate steps, never past the end of the
  // current main step; `done` gets the number taken. All factors of the batch go to the
  // kernels in one list, so the tiled sweeps may span several intermediate steps.
  auto subSteps = [&](std::int64_t want, std::int64_t& done) -> bool {
    const MiFile& mi = *c.mi;
    const std::int64_t n = std::max<std::int64_t>(1, mi.intermediateSteps);
    // A batch holds at most about kBatchOps factors, so its list stays small.
    constexpr std::int64_t kBatchOps = 4096;
    const std::int64_t perStep =
        2 * static_cast<std::int64_t>(mi.maxQubit + mi.couplings.size()) + 1;
    const std::int64_t count = std::max<std::int64_t>(
        1, std::min({want, n - c.l, kBatchOps / perStep}));
    done = count;
    const double tau = mi.timeStep, delta = tau / static_cast<double>(n);
    const double theta = delta / 2;
    auto fieldOps = [&](double t, double angle, std::vector<Op>& out) {
      for (int q = 1; q <= mi.maxQubit; ++q) {
        if (!mi.HasField(q)) continue;
        double hx, hy, hz;
        mi.FieldAt(q, t, hx, hy, hz);
        if (hx == 0 && hy == 0 && hz == 0) continue;
        out.push_back(FieldFactor(q - 1, hx, hy, hz, angle));
      }
    };
    // C(delta): the pairs forward, then backward, each over delta/2. Outside the literal
    // reference the two middle factors (the same pair) are one factor over delta.
    std::vector<Op> pairs;
    const std::size_t p = mi.couplings.size();
    for (std::size_t i = 0; i < p; ++i) {
      const Coupling& cp = mi.couplings[i];
      const bool middle = !literal_ && i + 1 == p;
      pairs.push_back(PairFactor(cp.i - 1, cp.j - 1, cp.jx, cp.jy, cp.jz, middle ? delta : theta));
    }
    for (std::size_t i = literal_ ? p : p - (p > 0 ? 1 : 0); i-- > 0;) {
      const Coupling& cp = mi.couplings[i];
      pairs.push_back(PairFactor(cp.i - 1, cp.j - 1, cp.jx, cp.jy, cp.jz, theta));
    }
    std::vector<Op> ops;
    if (!literal_ && mi.StaticFields()) {
      // Static fields: F(delta/2) F(delta/2) of neighbouring intermediate steps is F(delta).
      std::vector<Op> half, full;
      fieldOps(0.0, theta, half);
      fieldOps(0.0, delta, full);
      ops = half;
      for (std::int64_t s = 0; s < count; ++s) {
        ops.insert(ops.end(), pairs.begin(), pairs.end());
        if (s + 1 < count) ops.insert(ops.end(), full.begin(), full.end());
      }
      ops.insert(ops.end(), half.begin(), half.end());
    } else {
      std::vector<Op> fields;
      for (std::int64_t s = 0; s < count; ++s) {
        const double t =
            static_cast<double>(c.k) * tau + (static_cast<double>(c.l + s) + 0.5) * delta;
        fields.clear();
        fieldOps(t, theta, fields);
        ops.insert(ops.end(), fields.begin(), fields.end());
        ops.insert(ops.end(), pairs.begin(), pairs.end());
        ops.insert(ops.end(), fields.begin(), fields.end());
      }
    }
    if (literal_) {
      for (const Op& op : ops) ApplyLiteral(ParallelFor(), c.psi, op);
    } else {
      ApplyOps(ParallelFor(), c.psi, ops);
    }
    if (!ops.empty()) c.qValid = false;
    c.l += count;
    if (c.l == n) {
      c.l = 0;
      ++c.k;
      c.time = c.miStart + static_cast<double>(c.k) * tau;
      if (!writeOutput()) return false;
      if (c.k == mi.fieldSteps) return finishMi();
    } else {
      c.time = c.miStart + static_cast<double>(c.k) * tau + static_cast<double>(c.l) * delta;
    }
    return true;
  };
  constexpr std::int64_t kWholeMainStep = std::int64_t{1} << 62;
  // Starts the next MI, passing over breakpoints; false at the end of the program.
  auto beginNext = [&](bool& ok) {
    const MiFile* mi = nullptr;
    for (;;) {
      Item it = next(c.stack, mi);
      if (it == Item::End) return false;
      if (it == Item::Mi) break;
    }
    ok = beginMi(mi);
    return true;
  };

  if (runMode == 1) {
    bool ok = true;
    std::int64_t done = 0;
    switch (c.granularity) {
    case Granularity::Mi:
      if (!c.mi && !beginNext(ok)) break;
      while (ok && c.mi) ok = subSteps(kWholeMainStep, done);
      break;
    case Granularity::MainStep:
      if (!c.mi) {
        if (!beginNext(ok) || !ok || !c.mi) break;
      }
      ok = subSteps(kWholeMainStep, done);
      break;
    case Granularity::SubStep:
      if (!c.mi) {
        if (!beginNext(ok) || !ok || !c.mi) break;
      }
      ok = subSteps(1, done);
      break;
    }
    if (!ok) return;
    *progress = anythingLeft() ? 1 : 0;
    return;
  }

  // Run: batches of intermediate steps sized from the time the last batch took, so the call
  // returns close to the interval.
  std::int64_t batch = 1;
  for (;;) {
    if (c.mi) {
      const auto before = std::chrono::steady_clock::now();
      std::int64_t done = 0;
      if (!subSteps(batch, done)) return;
      const auto after = std::chrono::steady_clock::now();
      const double perStep = std::chrono::duration<double>(after - before).count() /
                             static_cast<double>(done);
      const double left = std::chrono::duration<double>(returnInterval_).count() -
                          std::chrono::duration<double>(after - began).count();
      batch = perStep > 0 ? static_cast<std::int64_t>(
                                std::clamp(left / perStep, 1.0, 1048576.0))
                          : 1048576;
    } else {
      const MiFile* mi = nullptr;
      const Item it = next(c.stack, mi);
      if (it == Item::End) {
        *progress = 0;
        return;
      }
      if (it == Item::Breakpoint) {
        // Halt with the position after the breakpoint, so going on passes it.
        *progress = 1;
        return;
      }
      if (!beginMi(mi)) return;
    }
    if (std::chrono::steady_clock::now() - began >= returnInterval_) {
      flags[0] = 1;
      return;
    }
  }
}

} // namespace orvex::engine
