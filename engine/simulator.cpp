// The run protocol: start, continue by step or run (with breakpoints and early returns),
// abandon; the log and the per-qubit output files.
#include "engine/simulator.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
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

// The factor list of a batch of sub-steps. Outside the literal reference, a factor on qubits
// that nothing has touched since their last factor of the same kind is multiplied into that
// one: field halves of neighbouring (sub-)steps become one rotation (one closed form when the
// field is the same, else the product of the two 2x2 matrices), and the two middle pair
// factors, or the outer ones of neighbouring steps without fields, become one. Factors on
// other qubits commute with both, so the product is unchanged.
class FactorList {
public:
  explicit FactorList(bool merge) : merge_(merge) { last_.fill(-1); }

  void Field(int bit, double hx, double hy, double hz, double angle) {
    if (hx == 0 && hy == 0 && hz == 0) return;
    const int i = last_[bit];
    if (merge_ && i >= 0 && ops_[i].kind == Op::Single) {
      Source& s = sources_[i];
      if (s.pure && s.v[0] == hx && s.v[1] == hy && s.v[2] == hz) {
        s.angle += angle;
        ops_[i] = FieldFactor(bit, hx, hy, hz, s.angle);
      } else {
        const Op f = FieldFactor(bit, hx, hy, hz, angle);
        const auto& m = ops_[i].m;
        ops_[i].m = {f.m[0] * m[0] + f.m[1] * m[2], f.m[0] * m[1] + f.m[1] * m[3],
                     f.m[2] * m[0] + f.m[3] * m[2], f.m[2] * m[1] + f.m[3] * m[3],
                     Amp(), Amp(), Amp(), Amp()};
        s.pure = false;
      }
      return;
    }
    Push(FieldFactor(bit, hx, hy, hz, angle), {true, {hx, hy, hz}, angle}, bit, bit);
  }

  void Pair(const Coupling& c, double angle) {
    if (c.jx == 0 && c.jy == 0 && c.jz == 0) return;
    const int a = c.i - 1, b = c.j - 1;
    const int i = last_[a];
    if (merge_ && i >= 0 && i == last_[b] && ops_[i].kind == Op::Pair) {
      Source& s = sources_[i];
      if (s.v[0] == c.jx && s.v[1] == c.jy && s.v[2] == c.jz) {
        s.angle += angle;
        ops_[i] = PairFactor(a, b, c.jx, c.jy, c.jz, s.angle);
        return;
      }
    }
    Push(PairFactor(a, b, c.jx, c.jy, c.jz, angle), {true, {c.jx, c.jy, c.jz}, angle}, a, b);
  }

  std::vector<Op>& Ops() { return ops_; }
  bool Empty() const { return ops_.empty(); }

private:
  struct Source {
    bool pure;         // still the closed form of (v, angle)
    double v[3];       // the field vector or the pair's couplings
    double angle;
  };
  void Push(const Op& op, const Source& s, int a, int b) {
    last_[a] = last_[b] = static_cast<int>(ops_.size());
    ops_.push_back(op);
    sources_.push_back(s);
  }

  bool merge_;
  std::vector<Op> ops_;
  std::vector<Source> sources_;
  std::array<int, kMaxQubits> last_;
};

// Yoshida's triple jump: S(w1 d) S(w0 d) S(w1 d) is of fourth order when S is a symmetric
// second-order step.
const double kW1 = 1.0 / (2.0 - std::cbrt(2.0));
const double kW0 = 1.0 - 2.0 * kW1;

// Calls field(q, mid, h, first) and pair(index, h) for the factors of `count` sub-steps of
// `mi` from sub-step l of main step k, in the product's order: per stage S(t0, h) =
// F(mid, h/2) C(h) F(mid, h/2) with mid = t0 + h/2, the second order one stage per sub-step,
// the fourth order three (Yoshida's triple jump).
template <class Field, class Pair>
void ForEachFactor(const MiFile& mi, int integrator, std::int64_t k, std::int64_t l,
                   std::int64_t count, Field&& field, Pair&& pair) {
  const std::int64_t n = std::max<std::int64_t>(1, mi.intermediateSteps);
  const double tau = mi.timeStep, delta = tau / static_cast<double>(n);
  auto stage = [&](double mid, double h) {
    for (int q = 1; q <= mi.maxQubit; ++q)
      if (mi.HasField(q)) field(q, mid, h, true);
    const std::size_t p = mi.couplings.size();
    for (std::size_t i = 0; i < p; ++i) pair(i, h);
    for (std::size_t i = p; i-- > 0;) pair(i, h);
    for (int q = 1; q <= mi.maxQubit; ++q)
      if (mi.HasField(q)) field(q, mid, h, false);
  };
  for (std::int64_t s = 0; s < count; ++s) {
    const double t0 = static_cast<double>(k) * tau + static_cast<double>(l + s) * delta;
    if (integrator == kFourthOrder) {
      const double h1 = kW1 * delta, h0 = kW0 * delta;
      stage(t0 + h1 / 2, h1);
      stage(t0 + h1 + h0 / 2, h0);
      stage(t0 + delta - h1 / 2, h1);
    } else {
      stage(static_cast<double>(k) * tau + (static_cast<double>(l + s) + 0.5) * delta, delta);
    }
  }
}

// Largest group of coupled qubits that is evolved in its own space: its 2^k x 2^k matrix
// costs 2^k multiply-adds per amplitude when applied.
constexpr int kMaxFoldedGroup = 4;

using DenseMatrix = std::vector<Amp>;  // column-major, dim x dim

DenseMatrix Identity(std::size_t dim) {
  DenseMatrix m(dim * dim);
  for (std::size_t i = 0; i < dim; ++i) m[i * dim + i] = 1;
  return m;
}

DenseMatrix Product(const DenseMatrix& a, const DenseMatrix& b, std::size_t dim) {
  DenseMatrix r(dim * dim);
  for (std::size_t col = 0; col < dim; ++col)
    for (std::size_t k = 0; k < dim; ++k) {
      const Amp f = b[col * dim + k];
      if (f == Amp()) continue;
      for (std::size_t row = 0; row < dim; ++row) r[col * dim + row] += a[k * dim + row] * f;
    }
  return r;
}

// u <- op u, op on the matrix's local bits.
void ApplyToColumns(DenseMatrix& u, std::size_t dim, const Op& op) {
  std::vector<Amp> column(dim);
  for (std::size_t col = 0; col < dim; ++col) {
    std::copy(u.begin() + col * dim, u.begin() + (col + 1) * dim, column.begin());
    ApplyDense(column, op);
    std::copy(column.begin(), column.end(), u.begin() + col * dim);
  }
}

} // namespace

struct Simulator::Context {
  ProgramTree tree;
  StateVector psi;
  std::FILE* log = nullptr;
  std::vector<std::FILE*> out;  // qubitNN.out, index q - 1; empty when not asked for
  Granularity granularity = Granularity::Mi;
  int integrator = kSecondOrder;

  struct Frame {
    const ProgramFile* program;
    std::size_t next;
  };
  std::vector<Frame> stack;

  const MiFile* mi = nullptr;  // the MI being evolved, if any
  // Qubits (bit q - 1) with a field that no coupling of the MI touches: each evolves on its
  // own, so its rotations are multiplied into `idle` (one 2x2 per qubit) over a whole
  // reported interval and applied once, with the batch that ends the interval, or before a
  // measurement inside the interval.
  std::uint32_t idleQubits = 0;
  FactorList idle{true};
  // Small groups of qubits coupled only among themselves, evolved the same way in their own
  // 2^k space: `pending` holds the product of their factors since the last application.
  struct Group {
    std::vector<int> bits;                     // state bits, ascending; local bit j = bits[j]
    std::vector<std::size_t> couplings;        // indices into the MI's couplings
    DenseMatrix pending, step;                 // step: one sub-step's matrix (static fields)
    bool dirty = false;
  };
  std::vector<Group> groups;
  std::array<int, kMaxQubits> groupOf{};       // group index of qubit q - 1, or -1
  std::int64_t k = 0, l = 0;   // next sub-step of it
  std::int64_t batch = 1;      // sub-steps per batch of this MI
  double miStart = 0;          // program time when it started
  double time = 0;             // program time after the last completed sub-step

  // A batch of sub-steps whose factors are partly applied: the call that ran out of time
  // returned between two of its pieces.
  bool batchOpen = false;
  OpsPlan plan;
  std::size_t nextPiece = 0;
  std::int64_t batchCount = 0;

  // A step (step mode) that a call began and left unfinished when its time ran out.
  bool stepOpen = false;

  // Sub-steps of the whole program, nested programs counted at every call, and those done.
  double totalSubSteps = 0, doneSubSteps = 0;
  bool ended = false;

  bool qValid = false;
  Expectations q;
  double measureSeconds = 0;  // what the last measurement of the reported values took
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

  // Applies the idle qubits' pending rotations, so that the state is the literal product's
  // at the last completed sub-step.
  void FlushIdle() {
    if (!idle.Empty()) {
      ApplyOps(ParallelFor(), psi, idle.Ops());
      idle = FactorList(true);
    }
    FlushGroups();
  }
  void FlushGroups() {
    for (Group& g : groups) {
      if (!g.dirty) continue;
      ApplyGroup(ParallelFor(), psi, g.bits, g.pending);
      g.pending = Identity(std::size_t{1} << g.bits.size());
      g.dirty = false;
    }
  }

  void MeasureNow() {
    FlushIdle();
    const auto before = std::chrono::steady_clock::now();
    q = Measure(ParallelFor(), psi);
    measureSeconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - before).count();
    qValid = true;
  }
};

namespace {

double SubStepsOf(const ProgramFile* program, std::map<const ProgramFile*, double>& memo) {
  if (auto it = memo.find(program); it != memo.end()) return it->second;
  double total = 0;
  for (const ProgramEntry& e : program->entries) {
    if (e.kind == ProgramEntry::Mi)
      total += static_cast<double>(e.mi->fieldSteps) *
               static_cast<double>(std::max<std::int64_t>(1, e.mi->intermediateSteps));
    else if (e.kind == ProgramEntry::Call)
      total += SubStepsOf(e.program, memo);
  }
  memo[program] = total;
  return total;
}

} // namespace

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

void Simulator::Abandon() {
  context_.reset();
  trace_.Reset(0);
}

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
  // Inside a batch the state is half-way through its factors: the values are those measured
  // last, at a sub-step boundary.
  if (!c.qValid && !c.batchOpen) c.MeasureNow();
  for (int i = 0; i < c.psi.Qubits() && i < kMaxQubits; ++i) {
    x[i] = (1 - c.q.qubits[i].x) / 2;
    y[i] = (1 - c.q.qubits[i].y) / 2;
    z[i] = (1 - c.q.qubits[i].z) / 2;
  }
}

// Thousandths of the program's sub-steps done; 1000 only once the program has ended.
std::int32_t Simulator::ProgressWord() const {
  if (!context_) return 0;
  const Context& c = *context_;
  if (c.ended) return 1000;
  if (c.totalSubSteps <= 0) return 0;
  const double share = std::floor(1000.0 * c.doneSubSteps / c.totalSubSteps);
  return static_cast<std::int32_t>(std::clamp(share, 0.0, 999.0));
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
  context_ = std::make_unique<Context>();
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
  c.Log("threads: " + std::to_string(EngineThreadCount()));
  c.Log(c.integrator == kFourthOrder
            ? "integrator: fourth order (triple jump of the symmetric second-order step)"
            : "integrator: second order (symmetric product formula)");
  for (const MiFile* mi : c.tree.Mis())
    for (const std::string& w : mi->warnings) c.Log("warning: " + w);
  if (bytes > memoryLimit_ || !c.psi.Allocate(n))
    return Fail(status, {code::kAllocation, name, 0,
                         "cannot allocate the state vector of " + std::to_string(n) +
                             " qubits (" + std::to_string(bytes) + " bytes)"});
  // |0...0>: every qubit at sigma_z = +1.
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
  std::map<const ProgramFile*, double> memo;
  c.totalSubSteps = SubStepsOf(c.tree.Top(), memo);
  c.stack.push_back({c.tree.Top(), 0});
}

void Simulator::Continue(std::int32_t* status, std::int32_t* progress, std::int32_t runMode,
                         std::int32_t* flags) {
  Context& c = *context_;
  const auto began = std::chrono::steady_clock::now();
  // The call returns once this much work is done; when measuring the reported values is
  // expensive (large registers), less often, so that measuring stays about a tenth of a run.
  // An interval of zero returns at every opportunity.
  const auto interval =
      returnInterval_.count() == 0
          ? std::chrono::steady_clock::duration::zero()
          : std::max<std::chrono::steady_clock::duration>(
                returnInterval_, std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                     std::chrono::duration<double>(10 * c.measureSeconds)));
  auto timeUp = [&] { return std::chrono::steady_clock::now() - began >= interval; };

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
  // The record of a completed main step or an initial state: the output files' line and the
  // trace's record, from one measurement.
  auto writeOutput = [&]() -> bool {
    if (c.out.empty() && !trace_.Recording()) return true;
    if (!c.qValid) c.MeasureNow();
    trace_.AddSigma(c.time, c.q.qubits);
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
    if (!c.qValid) c.MeasureNow();
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
    // Sub-steps per batch: about kBatchWork amplitude updates (some 0.1 s), at most kBatchOps
    // factors, at least one. Longer batches share sweeps between sub-steps; a call returns
    // inside a batch when its time is up (showing the values measured last). Batches start
    // at multiples of the size in every main step, whatever the calls, so a run gives the
    // same bits however often it returns.
    // The idle qubits' rotations cost no sweep of their own, only their 2x2 products: at
    // most kFoldFactors of those (a few milliseconds) per batch when the fields oscillate.
    constexpr double kBatchWork = double(1 << 28);
    constexpr double kBatchOps = 4096;
    constexpr double kFoldFactors = double(1 << 16);
    std::uint32_t touched = 0;
    for (const Coupling& p : mi->couplings)
      if (p.jx != 0 || p.jy != 0 || p.jz != 0)
        touched |= (std::uint32_t{1} << (p.i - 1)) | (std::uint32_t{1} << (p.j - 1));
    c.idleQubits = 0;
    int fields = 0, idleFields = 0;
    for (int q = 1; q <= mi->maxQubit; ++q) {
      if (!mi->HasField(q)) continue;
      if (!literal_ && !(touched >> (q - 1) & 1)) {
        c.idleQubits |= std::uint32_t{1} << (q - 1);
        ++idleFields;
      } else {
        ++fields;
      }
    }
    c.idle = FactorList(true);
    const double stages = c.integrator == kFourthOrder ? 3.0 : 1.0;
    const double n = static_cast<double>(std::max<std::int64_t>(1, mi->intermediateSteps));
    // Connected components of the non-zero couplings; one of at most kMaxFoldedGroup qubits
    // is folded when its matrix costs less than its factors over a main step would.
    c.groups.clear();
    c.groupOf.fill(-1);
    double foldWork = idleFields;  // 2x2 products per sub-step and stage
    int pairs = static_cast<int>(mi->couplings.size());
    if (!literal_) {
      std::array<int, kMaxQubits> root;
      for (int q = 0; q < kMaxQubits; ++q) root[q] = q;
      auto find = [&](int q) {
        while (root[q] != q) q = root[q] = root[root[q]];
        return q;
      };
      for (const Coupling& p : mi->couplings)
        if (p.jx != 0 || p.jy != 0 || p.jz != 0) root[find(p.i - 1)] = find(p.j - 1);
      std::map<int, Context::Group> byRoot;
      for (int b = 0; b < kMaxQubits; ++b)
        if (touched >> b & 1) byRoot[find(b)].bits.push_back(b);
      for (std::size_t i = 0; i < mi->couplings.size(); ++i) {
        const Coupling& p = mi->couplings[i];
        if (p.jx != 0 || p.jy != 0 || p.jz != 0) byRoot[find(p.i - 1)].couplings.push_back(i);
      }
      for (auto& [r, g] : byRoot) {
        const int k = static_cast<int>(g.bits.size());
        if (k > kMaxFoldedGroup) continue;
        int groupFields = 0;
        for (int b : g.bits) groupFields += mi->HasField(b + 1) ? 1 : 0;
        const double factors =
            stages * (2.0 * groupFields + 2.0 * static_cast<double>(g.couplings.size()));
        const double dim = std::ldexp(1.0, k);
        if (dim > n * factors / 2) continue;
        for (int b : g.bits) c.groupOf[b] = static_cast<int>(c.groups.size());
        fields -= groupFields;
        pairs -= static_cast<int>(g.couplings.size());
        foldWork += factors * dim * dim / 32;
        g.pending = Identity(static_cast<std::size_t>(dim));
        c.groups.push_back(std::move(g));
      }
    }
    const double perSub = stages * (fields + 2.0 * pairs) + 1.0;
    const double byWork = kBatchWork / (perSub * static_cast<double>(c.psi.Size()));
    const double byFold =
        mi->StaticFields() || foldWork == 0 ? n : kFoldFactors / (stages * foldWork);
    c.batch = static_cast<std::int64_t>(
        std::clamp(std::min({byWork, kBatchOps / perSub, byFold}), 1.0, n));
    if (fields == 0 && pairs == 0)
      c.batch = static_cast<std::int64_t>(std::clamp(byFold, 1.0, n));
    if (batchLimit_ > 0) c.batch = std::min(c.batch, batchLimit_);
    if (mi->initial != InitialState::None) {
      switch (mi->initial) {
      case InitialState::SpinUp: SetSpinUp(c.psi); break;
      case InitialState::SpinDown: SetSpinDown(c.psi); break;
      case InitialState::Random: SetRandom(c.psi, mi->seed); break;
      case InitialState::Ground: SetGroundState(c.psi, *mi); break;
      case InitialState::None: break;
      }
      // Measured now, so that a return inside the next batch reports this state.
      c.MeasureNow();
      if (!writeOutput()) return false;
    }
    if (mi->fieldSteps == 0) return finishMi();
    return true;
  };
  // Prepares the factors of `count` sub-steps from the current one (never past the end of
  // the main step) as an open batch.
  // `endsInterval`: the batch ends a reported interval (the main step, or the sub-step that
  // a step of all-steps granularity reports), so the folded qubits' evolution is applied
  // with it.
  auto openBatch = [&](std::int64_t count, bool endsInterval) {
    const MiFile& mi = *c.mi;
    FactorList list(!literal_);
    const bool fixed = mi.StaticFields();
    // A group's factors on its local bits, for the group's own matrix.
    std::vector<FactorList> groupLists(c.groups.size(), FactorList(true));
    auto local = [&](const Coupling& p, int g) {
      Coupling l = p;
      const auto& bits = c.groups[g].bits;
      l.i = static_cast<int>(std::find(bits.begin(), bits.end(), p.i - 1) - bits.begin()) + 1;
      l.j = static_cast<int>(std::find(bits.begin(), bits.end(), p.j - 1) - bits.begin()) + 1;
      return l;
    };
    // An idle qubit's two halves of a stage meet (nothing acts on it in between): one
    // rotation by the whole angle, taken with the first half. A folded group with static
    // fields takes its sub-step's matrix instead of its factors.
    auto field = [&](int q, double mid, double h, bool first) {
      const bool idle = c.idleQubits >> (q - 1) & 1;
      const int g = c.groupOf[q - 1];
      if ((idle && !first) || (g >= 0 && fixed)) return;
      double hx, hy, hz;
      mi.FieldAt(q, mid, hx, hy, hz);
      if (g >= 0) {
        const auto& bits = c.groups[g].bits;
        const int b = static_cast<int>(std::find(bits.begin(), bits.end(), q - 1) - bits.begin());
        groupLists[g].Field(b, hx, hy, hz, h / 2);
      } else {
        (idle ? c.idle : list).Field(q - 1, hx, hy, hz, idle ? h : h / 2);
      }
    };
    auto pair = [&](std::size_t i, double h) {
      const Coupling& p = mi.couplings[i];
      const int g = c.groupOf[p.i - 1];
      if (g < 0)
        list.Pair(p, h / 2);
      else if (!fixed)
        groupLists[g].Pair(local(p, g), h / 2);
    };
    ForEachFactor(mi, c.integrator, c.k, c.l, count, field, pair);
    // The groups' matrices: a static sub-step's to the power `count`, else the product.
    for (std::size_t g = 0; g < c.groups.size(); ++g) {
      Context::Group& group = c.groups[g];
      const std::size_t dim = std::size_t{1} << group.bits.size();
      if (fixed) {
        if (group.step.empty()) {
          FactorList one(true);
          auto oneField = [&](int q, double mid, double h, bool) {
            if (c.groupOf[q - 1] != static_cast<int>(g)) return;
            double hx, hy, hz;
            mi.FieldAt(q, mid, hx, hy, hz);
            const auto& bits = group.bits;
            one.Field(static_cast<int>(std::find(bits.begin(), bits.end(), q - 1) - bits.begin()),
                      hx, hy, hz, h / 2);
          };
          auto onePair = [&](std::size_t i, double h) {
            if (c.groupOf[mi.couplings[i].i - 1] == static_cast<int>(g))
              one.Pair(local(mi.couplings[i], static_cast<int>(g)), h / 2);
          };
          ForEachFactor(mi, c.integrator, 0, 0, 1, oneField, onePair);
          group.step = Identity(dim);
          for (const Op& op : one.Ops()) ApplyToColumns(group.step, dim, op);
        }
        DenseMatrix power = Identity(dim), base = group.step;
        for (std::int64_t e = count; e > 0; e >>= 1) {
          if (e & 1) power = Product(base, power, dim);
          if (e > 1) base = Product(base, base, dim);
        }
        group.pending = Product(power, group.pending, dim);
      } else {
        for (const Op& op : groupLists[g].Ops()) ApplyToColumns(group.pending, dim, op);
      }
      group.dirty = true;
    }
    // The state now lags behind the sub-steps done by the folded qubits' pending evolution.
    if (!c.idle.Empty() || !c.groups.empty()) c.qValid = false;
    if (endsInterval && !c.idle.Empty()) {
      list.Ops().insert(list.Ops().end(), c.idle.Ops().begin(), c.idle.Ops().end());
      c.idle = FactorList(true);
    }
    if (endsInterval) c.FlushGroups();
    if (literal_) {
      // The reference: one full sweep per factor, all at once.
      c.plan = OpsPlan();
      for (const Op& op : list.Ops()) ApplyLiteral(ParallelFor(), c.psi, op);
    } else {
      c.plan = OpsPlan(c.psi.Qubits(), list.Ops());
    }
    if (!list.Ops().empty()) c.qValid = false;
    c.nextPiece = 0;
    c.batchCount = count;
    c.batchOpen = true;
  };
  // Applies pieces of the open batch until it is done (true) or the time is up (false).
  // A finished batch advances the position; the MI may end with it.
  auto advanceBatch = [&](bool& ok) -> bool {
    while (c.nextPiece < c.plan.Pieces()) {
      c.plan.ApplyPiece(ParallelFor(), c.psi, c.nextPiece++);
      if (c.nextPiece < c.plan.Pieces() && timeUp()) return false;
    }
    c.batchOpen = false;
    c.plan = OpsPlan();
    const MiFile& mi = *c.mi;
    const std::int64_t n = std::max<std::int64_t>(1, mi.intermediateSteps);
    const double tau = mi.timeStep, delta = tau / static_cast<double>(n);
    c.l += c.batchCount;
    c.doneSubSteps += static_cast<double>(c.batchCount);
    if (c.l == n) {
      c.l = 0;
      ++c.k;
      c.time = c.miStart + static_cast<double>(c.k) * tau;
      if (!(ok = writeOutput())) return true;
      if (c.k == mi.fieldSteps) ok = finishMi();
    } else {
      c.time = c.miStart + static_cast<double>(c.k) * tau + static_cast<double>(c.l) * delta;
    }
    return true;
  };
  // The batch that starts at the current sub-step: up to the next multiple of the MI's batch
  // size, or a single sub-step.
  auto batchFromHere = [&](bool single) {
    const std::int64_t n = std::max<std::int64_t>(1, c.mi->intermediateSteps);
    if (single) return std::int64_t{1};
    return std::min(c.batch - c.l % c.batch, n - c.l);
  };
  // Opens the batch from the current sub-step; `single` for one sub-step that is reported.
  auto openFromHere = [&](bool single) {
    const std::int64_t count = batchFromHere(single);
    const std::int64_t n = std::max<std::int64_t>(1, c.mi->intermediateSteps);
    openBatch(count, single || c.l + count == n);
  };
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
  auto end = [&] {
    *progress = 0;
    c.ended = true;
  };

  if (runMode == 1) {
    // One step of the run's granularity; a call that runs out of time returns with flags[0]
    // set and the step open, and the next call finishes it.
    bool ok = true;
    if (!c.stepOpen && !c.batchOpen) {
      if (!c.mi) {
        if (!beginNext(ok)) {
          end();
          return;
        }
        if (!ok) return;
      }
    }
    c.stepOpen = true;
    for (;;) {
      if (c.batchOpen) {
        const bool wasLast = c.mi && c.l + c.batchCount == std::max<std::int64_t>(
                                                               1, c.mi->intermediateSteps);
        if (!advanceBatch(ok)) {
          flags[0] = 1;
          return;
        }
        if (!ok) return;
        // Done with the step?
        if (c.granularity == Granularity::SubStep ||
            (c.granularity == Granularity::MainStep && wasLast) || !c.mi)
          break;
      } else if (!c.mi) {
        break;  // a zero-step MI, which counts as one step
      } else {
        openFromHere(c.granularity == Granularity::SubStep);
        continue;
      }
      if (timeUp()) {
        flags[0] = 1;
        return;
      }
    }
    c.stepOpen = false;
    if (anythingLeft()) {
      *progress = 1;
    } else {
      end();
    }
    return;
  }

  // Run: to the next breakpoint or the end, returning early (between two batches, or inside
  // one) once the interval has passed.
  c.stepOpen = false;
  for (;;) {
    if (c.batchOpen) {
      bool ok = true;
      if (!advanceBatch(ok)) {
        flags[0] = 1;
        return;
      }
      if (!ok) return;
    } else if (c.mi) {
      openFromHere(false);
      continue;
    } else {
      const MiFile* mi = nullptr;
      const Item it = next(c.stack, mi);
      if (it == Item::End) {
        end();
        return;
      }
      if (it == Item::Breakpoint) {
        // Halt with the position after the breakpoint, so going on passes it.
        *progress = 1;
        return;
      }
      if (!beginMi(mi)) return;
    }
    if (timeUp()) {
      flags[0] = 1;
      return;
    }
  }
}

} // namespace orvex::engine
