// The Python module `orvex`: MI sets, programs and the engine driven from a script, with
// results as numpy arrays. Every operation goes through the code the command line uses (the
// set opening, the run controller, the accuracy check, the scratch runs of the analysis
// commands), so a script gets the command line's numbers bit for bit.
#include <dlfcn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cerrno>
#include <cmath>
#include <complex>
#include <cstring>
#include <map>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <numbers>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "cli/scratch_run.h"
#include "mi/mi_file.h"
#include "mi/mi_format.h"
#include "miset/open_miset.h"
#include "miset/qubits_file.h"
#include "platform/appdir.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "run/accuracy_check.h"
#include "run/engine_library.h"
#include "run/fidelity.h"
#include "program/program_table.h"
#include "run/run_controller.h"
#include "run/sweep.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace py = pybind11;
namespace fs = std::filesystem;
using namespace orvex;
using orvex::cli::AbsoluteCanonical;
using orvex::cli::MIFileOf;
using orvex::cli::PrepareMI;
using orvex::cli::WithSlash;

namespace {

// Raised to Python as orvex.Error.
class Error : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

// Ctrl+C seen while the GIL was released; raised as KeyboardInterrupt once it is held again.
struct Interrupted {};

// The directory of this module's shared object.
std::string ModuleDirectory() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&ModuleDirectory), &info) && info.dli_fname)
    return WithSlash(fs::path(AbsoluteCanonical(info.dli_fname)).parent_path().string());
  return "";
}

// Where the executables of this copy lie: the module's own directory in a build tree (the
// engine, MI/ and progs/ beside it), else the bin directory of the installed prefix.
std::string ProgramDirectory() {
  const std::string dir = ModuleDirectory();
  if (FileExists(dir + "libkv3.so")) return dir;
  return WithSlash(AbsoluteCanonical(dir + ORVEX_PY_BIN_FROM_MODULE));
}

// With the GIL held, the messages the workbench would have shown in boxes, collected by the
// headless port (which answers a question as the command line does): warnings become Python
// warnings, the first error an orvex.Error.
void Deliver(platform::HeadlessPort& port) {
  const std::vector<std::string> warnings = port.warnings(), errors = port.errors();
  port.messages.clear();
  for (const std::string& w : warnings)
    if (PyErr_WarnEx(PyExc_UserWarning, w.c_str(), 1) < 0) throw py::error_already_set();
  if (!errors.empty()) throw Error(errors.front());
}

// Runs `f` with the GIL released and `port` installed, then delivers its messages;
// RuntimeError becomes orvex.Error with the run-time's description.
template <typename F>
auto Guarded(platform::HeadlessPort& port, F&& f) {
  std::optional<decltype(f())> result;
  std::optional<std::string> failure;
  bool interrupted = false;
  {
    platform::ScopedUserPort installed(port);
    py::gil_scoped_release release;
    try {
      result.emplace(f());
    } catch (const RuntimeError& e) {
      failure = e.description();
    } catch (const Interrupted&) {
      interrupted = true;
    }
  }
  if (interrupted) {
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw py::error_already_set();
  }
  if (failure) throw Error(*failure);
  Deliver(port);
  return std::move(*result);
}

template <typename F>
auto Guarded(F&& f) {
  platform::HeadlessPort port;
  return Guarded(port, std::forward<F>(f));
}

// ---- MI sets ----------------------------------------------------------------------------

struct SetData {
  Workspace ws;
  std::string home;  // the directory holding MI/<set>, ending in "/"
  std::string name;
};

class MISet;

class MI {
public:
  MI(std::shared_ptr<SetData> set, int slot) : set_(std::move(set)), slot_(slot) {}
  MicroInstruction& Record() const { return set_->ws.MITable(slot_); }
  int Qubits() const { return set_->ws.NumberOfQubits; }
  std::string Name() const { return Record().Name; }

  py::array_t<double> Fields() const {
    const int n = Qubits();
    py::array_t<double> a({n, kFieldParameters});
    auto v = a.mutable_unchecked<2>();
    for (int q = 1; q <= n; ++q)
      for (int k = 0; k < kFieldParameters; ++k) v(q - 1, k) = Record().Field(q, k);
    return a;
  }
  void SetFields(const py::array_t<double, py::array::forcecast>& a) {
    const int n = Qubits();
    if (a.ndim() != 2 || a.shape(0) != n || a.shape(1) != kFieldParameters)
      throw py::value_error("fields must have the shape (" + std::to_string(n) + ", 12)");
    auto v = a.unchecked<2>();
    for (int q = 1; q <= n; ++q)
      for (int k = 0; k < kFieldParameters; ++k) Record().Field(q, k) = v(q - 1, k);
  }
  py::array_t<double> Couplings() const {
    const int n = Qubits();
    py::array_t<double> a({n, n, 3});
    auto v = a.mutable_unchecked<3>();
    for (int i = 1; i <= n; ++i)
      for (int j = 1; j <= n; ++j)
        for (int c = 0; c < 3; ++c) v(i - 1, j - 1, c) = i < j ? Record().J(i, j, c) : 0.0;
    return a;
  }
  // Only the pairs i < j are the file's; the rest of the array is not looked at.
  void SetCouplings(const py::array_t<double, py::array::forcecast>& a) {
    const int n = Qubits();
    if (a.ndim() != 3 || a.shape(0) != n || a.shape(1) != n || a.shape(2) != 3)
      throw py::value_error("couplings must have the shape (" + std::to_string(n) + ", " +
                            std::to_string(n) + ", 3)");
    auto v = a.unchecked<3>();
    for (int i = 1; i <= n; ++i)
      for (int j = i + 1; j <= n; ++j)
        for (int c = 0; c < 3; ++c) Record().J(i, j, c) = v(i - 1, j - 1, c);
  }
  double TimeStep() const { return TimeStepRadians(Record()); }
  void SetTimeStep(double radians) {
    Record().TimeStep = radians;
    Record().TimeStepInPi = 0;
  }
  static std::int32_t Count(long long v, const char* what) {
    if (v < 0 || v > 2147483647LL)
      throw py::value_error(std::string(what) + " must be a whole number from 0 to 2147483647");
    return static_cast<std::int32_t>(v);
  }
  // Writes the record through the MI writer, safely (temporary file and rename).
  void Save() {
    Guarded([&] {
      WriteMI(set_->ws, slot_);
      return 0;
    });
  }

private:
  std::shared_ptr<SetData> set_;
  int slot_;
};

class MISet {
public:
  explicit MISet(const std::string& path) : data_(std::make_shared<SetData>()) {
    const std::string dir = WithSlash(AbsoluteCanonical(path));
    if (!DirectoryExists(dir)) throw Error("MI set directory " + dir + " does not exist");
    data_->ws.MISetPath = dir;
    data_->name = SetNameOf(dir);
    data_->home = WithSlash(fs::path(dir).parent_path().parent_path().parent_path().string());
    data_->ws.AppDir = data_->home;
    Guarded([&] {
      LoadSetFiles(data_->ws);
      return 0;
    });
  }
  int Qubits() const { return data_->ws.NumberOfQubits; }
  const std::string& Path() const { return data_->ws.MISetPath; }
  const std::string& Name() const { return data_->name; }
  const std::string& Home() const { return data_->home; }
  // The MIs of the set in table order, without ".MI".
  std::vector<std::string> Names() const {
    std::vector<std::string> names;
    for (int k = 1; k <= data_->ws.MICount; ++k) {
      const MicroInstruction& mi = data_->ws.MITable(k);
      if (mi.InUse && IsMIName(mi.Name)) names.push_back(NameWithoutExtension(mi.Name));
    }
    return names;
  }
  // The MI `name`, with or without ".MI", letter case ignored.
  int SlotOf(const std::string& name) const {
    for (const std::string& n : {name, name + ".MI"})
      for (int k = 1; k <= data_->ws.MICount; ++k) {
        const MicroInstruction& mi = data_->ws.MITable(k);
        if (mi.InUse && IsMIName(mi.Name) && Upper(mi.Name) == Upper(n)) return k;
      }
    throw py::key_error("MI " + name + " is not in the set " + data_->name);
  }
  MI Get(const std::string& name) const { return MI(data_, SlotOf(name)); }
  void Save(const std::string& name) { Get(name).Save(); }

private:
  std::shared_ptr<SetData> data_;
};

// ---- programs ---------------------------------------------------------------------------

struct Program {
  std::string path;  // absolute
  std::vector<ProgramRow> rows;
};

std::string KindOf(int icon) {
  switch (icon) {
    case kIconMI: return "mi";
    case kIconProgramRow: return "program";
    case kIconBreakpoint: return "breakpoint";
    default: return "other";
  }
}

Program OpenProgram(const std::string& given) {
  Program p;
  platform::HeadlessPort dialogs;
  platform::ScopedUserPort installed(dialogs);
  std::optional<std::vector<ProgramRow>> rows;
  try {
    const auto found = ResolvePath(AbsoluteCanonical(given));
    if (!found || !FileExists(*found)) throw Error("program file " + given + " not found");
    p.path = AbsoluteCanonical(*found);
    rows = ReadProgramForOpening(p.path);
  } catch (const RuntimeError& e) {
    throw Error(e.description());
  }
  // The workbench's message on a file that is no program is a warning box; here it fails.
  if (!rows)
    throw Error(dialogs.warnings().empty() ? "program file " + given + " is not a quantum program"
                                           : dialogs.warnings().front());
  Deliver(dialogs);
  p.rows = *rows;
  return p;
}

// The program argument of run, trace and check: a Program or a path.
std::string ProgramPathOf(const py::object& program) {
  if (py::isinstance<Program>(program)) return program.cast<const Program&>().path;
  return OpenProgram(py::str(program)).path;
}

// ---- where a run takes place ------------------------------------------------------------

struct Place {
  std::string home, setDir;
};

// The home (the argument, else the set's own, else $ORVEX_HOME, else the workbench's
// application directory) and the set directory of a set given as an MISet or a name.
Place PlaceOf(const py::object& set, const std::optional<std::string>& home) {
  Place place;
  std::string error;
  if (py::isinstance<MISet>(set)) {
    const MISet& s = set.cast<const MISet&>();
    place.home = home ? *home : s.Home();
    const auto h = cli::HomeDirectory(place.home, error);
    if (!h) throw Error(error);
    place.home = *h;
    place.setDir = home ? "" : s.Path();
    if (place.setDir.empty()) {
      const auto d = cli::SetDirectory(place.home, s.Name(), error);
      if (!d) throw Error(error);
      place.setDir = *d;
    }
    return place;
  }
  std::string h = home ? *home : "";
  if (h.empty()) {
    const char* env = std::getenv("ORVEX_HOME");
    if (env && *env) h = env;
    else try {
      h = platform::ResolveAppDir("", ProgramDirectory());
    } catch (const RuntimeError& e) {
      throw Error(e.description());
    }
  }
  const auto dir = cli::HomeDirectory(h, error);
  if (!dir) throw Error(error);
  place.home = *dir;
  const auto setDir = cli::SetDirectory(place.home, py::str(set), error);
  if (!setDir) throw Error(error);
  place.setDir = *setDir;
  return place;
}

std::int32_t IntegratorOf(int order) {
  if (order == 2) return kIntegratorSecondOrder;
  if (order == 4) return kIntegratorFourthOrder;
  throw py::value_error("order takes 2 or 4, not " + std::to_string(order));
}

// The headless port of a run, between engine calls: trace records taken out as they come, and
// Ctrl+C seen (with the GIL held for the moment of the check), a stop that resets the run.
class ScriptRunPort : public platform::HeadlessPort {
public:
  ScriptRunPort(Workspace& ws, int slot, bool trace) : ws_(ws), slot_(slot), trace_(trace) {}
  void keepResponsive() override { Take(); }
  bool cancelRequested() override {
    if (interrupted_ || ws_.RunningProgram != slot_) return false;
    py::gil_scoped_acquire gil;
    if (PyErr_CheckSignals() < 0) {
      interrupted_ = true;
      PyErr_Clear();
    }
    return interrupted_;
  }
  void Take() {
    if (!trace_) return;
    ProgramTrace& t = ws_.Traces[static_cast<std::size_t>(slot_ - 1)];
    if (t.Qubits > 0) qubits = t.Qubits;
    points.insert(points.end(), t.Points.begin(), t.Points.end());
    t.Points.clear();
  }
  bool Interrupted() const { return interrupted_; }
  std::vector<TracePoint> points;
  int qubits = 0;

private:
  Workspace& ws_;
  int slot_;
  bool trace_;
  bool interrupted_ = false;
};

// The run controller moves into the program's directory for the engine; a script keeps its
// own current directory, so it is put back after the run.
class KeepCurrentDirectory {
public:
  KeepCurrentDirectory() {
    std::error_code ec;
    dir_ = fs::current_path(ec);
  }
  ~KeepCurrentDirectory() {
    std::error_code ec;
    if (!dir_.empty()) fs::current_path(dir_, ec);
  }

private:
  fs::path dir_;
};

struct RunResult {
  std::vector<std::array<double, 3>> q;
  std::vector<TracePoint> points;
  int traceQubits = 0;
};

// The command line's run: the set opened as the workbench opens it, the program put into
// slot 1 and run through the run controller, every breakpoint continued, to its end.
RunResult RunToEndOfProgram(const py::object& program, const py::object& set,
                            const std::optional<std::string>& home, int order, bool trace) {
  // The home first: the workbench's own application directory is seeded on its first use.
  const Place place = PlaceOf(set, home);
  const std::string path = ProgramPathOf(program);
  const std::int32_t integrator = IntegratorOf(order);
  if (trace) {
    const EngineExtras extras = Guarded([] { return EngineLibrary::Extras(); });
    if (!extras.trace)
      throw Error("the engine " + EngineLibrary::DefaultPath() +
                  " keeps no trace records (it lacks kv3record/kv3trace)");
  }
  Workspace ws;
  ws.AppDir = place.home;
  ws.MISetPath = place.setDir;
  const int slot = 1;
  ScriptRunPort port(ws, slot, trace);
  RunUi ui;
  ws.Traces[slot - 1].Wanted = trace;
  KeepCurrentDirectory keep;
  RunResult result = Guarded(port, [&] {
    LoadSetFiles(ws);  // as the workbench opens it; its boxes arrive as messages
    const auto rows = ReadProgramForOpening(path);
    if (!rows) return RunResult{};
    ProgramSlot& p = ws.Program(slot);
    p.Rows = {ProgramRow{"Start", kIconStart}};
    p.Rows.insert(p.Rows.end(), rows->begin(), rows->end());
    p.Name = RelativePath(path, ws.AppDir);
    p.Caption = NameWithoutExtension(FileNameOf(p.Name));
    p.Status = "Program ready";
    ws.NoOutputFiles = 1;
    ws.StepGranularity = 0;
    ws.Integrator = integrator;
    ws.AnimateQubits = 0;
    RunProgram(ws, ui, slot, kModeRun);
    while (!port.Interrupted() && ws.RunningProgram == slot && !port.failed())
      RunProgram(ws, ui, slot, kModeRun);
    port.Take();
    RunResult r;
    for (int q = 1; q <= ws.NumberOfQubits; ++q)
      r.q.push_back({ws.QubitX(slot, q), ws.QubitY(slot, q), ws.QubitZ(slot, q)});
    r.points = std::move(port.points);
    r.traceQubits = port.qubits;
    return r;
  });
  if (port.Interrupted()) {
    PyErr_SetNone(PyExc_KeyboardInterrupt);
    throw py::error_already_set();
  }
  return result;
}

py::array_t<double> QArray(const std::vector<std::array<double, 3>>& q) {
  py::array_t<double> a({static_cast<py::ssize_t>(q.size()), py::ssize_t{3}});
  auto v = a.mutable_unchecked<2>();
  for (std::size_t i = 0; i < q.size(); ++i)
    for (int c = 0; c < 3; ++c) v(static_cast<py::ssize_t>(i), c) = q[i][static_cast<std::size_t>(c)];
  return a;
}

py::array_t<double> Run(const py::object& program, const py::object& set,
                        std::optional<std::string> home, int order) {
  return QArray(RunToEndOfProgram(program, set, home, order, false).q);
}

py::tuple Trace(const py::object& program, const py::object& set,
                std::optional<std::string> home, int order) {
  const RunResult r = RunToEndOfProgram(program, set, home, order, true);
  const auto t = static_cast<py::ssize_t>(r.points.size());
  const py::ssize_t n = r.traceQubits;
  py::array_t<double> times(t);
  py::array_t<double> q({t, n, py::ssize_t{3}});
  auto tv = times.mutable_unchecked<1>();
  auto qv = q.mutable_unchecked<3>();
  for (py::ssize_t k = 0; k < t; ++k) {
    const TracePoint& p = r.points[static_cast<std::size_t>(k)];
    tv(k) = p.Time;
    for (py::ssize_t i = 0; i < n; ++i)
      for (int c = 0; c < 3; ++c) qv(k, i, c) = p.Q[static_cast<std::size_t>(3 * i + c)];
  }
  return py::make_tuple(times, q);
}

py::dict Check(const py::object& program, const py::object& set,
               std::optional<std::string> home, int order) {
  IntegratorOf(order);
  // The home first: the workbench's own application directory is seeded on its first use.
  const Place place = PlaceOf(set, home);
  const std::string path = ProgramPathOf(program);
  Workspace ws;
  ws.AppDir = place.home;
  ws.MISetPath = place.setDir;
  const AccuracyReport report = Guarded([&] { return CheckAccuracy(ws, path, order); });
  for (const std::string& note : report.notes)
    if (PyErr_WarnEx(PyExc_UserWarning, note.c_str(), 1) < 0) throw py::error_already_set();
  if (!report.ok) throw Error(report.error);
  const auto n = static_cast<py::ssize_t>(report.qubits.size());
  py::array_t<double> deviation(n), error(n), f3(n), f6(n);
  std::vector<std::array<double, 3>> written, doubled;
  for (py::ssize_t i = 0; i < n; ++i) {
    const QubitAccuracy& q = report.qubits[static_cast<std::size_t>(i)];
    deviation.mutable_at(i) = q.deviation;
    error.mutable_at(i) = q.estimatedError;
    f3.mutable_at(i) = q.factorFor1e3;
    f6.mutable_at(i) = q.factorFor1e6;
    written.push_back(q.asWritten);
    doubled.push_back(q.doubled);
  }
  py::dict d;
  d["order"] = report.order;
  d["deviation"] = deviation;
  d["error"] = error;
  d["factor_1e3"] = f3;
  d["factor_1e6"] = f6;
  d["as_written"] = QArray(written);
  d["doubled"] = QArray(doubled);
  d["max_deviation"] = report.maxDeviation;
  d["estimated_error"] = report.estimatedError;
  return d;
}

// ---- gate fidelity ----------------------------------------------------------------------

// The map the pulse performs on the chosen qubits (the others start in |0>), as the command
// line's fidelity computes it: column j is the state the program leaves from basis state j,
// its phase i per flipped qubit divided out. Returns (F, leakage, M (2^k, 2^k) complex).
py::tuple Fidelity(const py::object& what, const py::object& set, const std::vector<int>& qubits,
                   const std::string& target, std::optional<double> angle, bool zPhases,
                   std::optional<std::string> home, int order) {
  IntegratorOf(order);
  if (qubits.empty() || qubits.size() > 4)
    throw py::value_error("qubits takes one to four qubit numbers");
  for (std::size_t a = 0; a < qubits.size(); ++a) {
    if (qubits[a] < 1 || qubits[a] > 32) throw py::value_error("qubit numbers run from 1 to 32");
    for (std::size_t b = 0; b < a; ++b)
      if (qubits[a] == qubits[b])
        throw py::value_error("qubit " + std::to_string(qubits[a]) + " is listed twice");
  }
  const std::string name = Upper(target);
  if ((name == "RX" || name == "RY" || name == "RZ" || name == "CPHASE") && !angle)
    throw py::value_error("target " + target + " needs an angle");
  const int k = static_cast<int>(qubits.size()), d = 1 << k;
  std::string error;
  const auto u = TargetGate(target, angle.value_or(0), k, error);
  if (!u) throw py::value_error(error);
  const std::string whatText = py::isinstance<MI>(what) ? what.cast<const MI&>().Name()
                               : py::isinstance<Program>(what) ? what.cast<const Program&>().path
                                                               : std::string(py::str(what));
  const Place place = PlaceOf(set, home);
  const GateMatrix m = Guarded([&] {
    std::string why;
    const auto program = cli::ProgramTextFor(whatText, place.setDir, why);
    if (!program) throw Error(why);
    cli::ScratchSet scratch(place.home, place.setDir);
    if (!scratch.Ok()) throw Error(scratch.Error());
    auto map = cli::GateMap(scratch, *program, qubits, order, why);
    if (!map) throw Error(why);
    return *map;
  });
  double f = AverageGateFidelity(m, *u);
  if (zPhases) f = OptimiseZPhases(m, *u).fidelity;
  py::array_t<std::complex<double>> matrix({d, d});
  auto v = matrix.mutable_unchecked<2>();
  for (int r = 0; r < d; ++r)
    for (int c = 0; c < d; ++c) v(r, c) = m(r, c);
  return py::make_tuple(f, Leakage(m), matrix);
}

// ---- sweeps -----------------------------------------------------------------------------

struct SweepJob {
  std::string home, setDir, program;
  std::vector<SweepAxis> axes;
  std::vector<std::string> files;  // the MI file of each axis
  int order = 2;
};

// One point in its own scratch copy of the set, as the command line runs it.
bool RunSweepPoint(const SweepJob& job, const std::vector<double>& values,
                   std::vector<std::array<double, 3>>& q, std::string& error) {
  cli::ScratchSet scratch(job.home, job.setDir);
  if (!scratch.Ok()) {
    error = scratch.Error();
    return false;
  }
  try {
    std::map<std::string, std::string> edited;
    for (std::size_t a = 0; a < job.axes.size(); ++a) {
      const std::string& file = job.files[a];
      auto it = edited.find(file);
      if (it == edited.end()) it = edited.emplace(file, ReadWholeFile(scratch.Dir() + file)).first;
      it->second = EditMIText(it->second, file, job.axes[a].parameter, values[a]);
    }
    for (const auto& [file, text] : edited) WriteWholeFile(scratch.Dir() + file, text);
    WriteWholeFile(scratch.Dir() + "orvex-sweep.kvp", job.program);
  } catch (const RuntimeError& e) {
    error = e.description();
    return false;
  }
  engine::Simulator sim(engine::DefaultThreadCount());
  return cli::RunToEnd(sim, scratch.Dir(), "orvex-sweep.kvp", job.order, q, error);
}

// Runs the points, `jobs` child processes at a time when jobs > 1 (the engine keeps one run
// context and the current directory per process); a child hands its values back through a
// pipe. Ctrl+C is looked at between points.
std::vector<std::vector<std::array<double, 3>>> RunSweepPoints(
    const SweepJob& job, const std::vector<std::vector<double>>& points, int jobs) {
  std::vector<std::vector<std::array<double, 3>>> results(points.size());
  auto interrupted = [] {
    py::gil_scoped_acquire gil;
    if (PyErr_CheckSignals() == 0) return false;
    PyErr_Clear();
    return true;
  };
  if (jobs <= 1) {
    for (std::size_t i = 0; i < points.size(); ++i) {
      if (interrupted()) throw Interrupted();
      std::string error;
      if (!RunSweepPoint(job, points[i], results[i], error)) throw Error(error);
    }
    return results;
  }
  struct Child {
    std::size_t index;
    int fd;
  };
  std::map<pid_t, Child> running;
  std::string failure;
  std::size_t next = 0;
  auto readAll = [](int fd) {
    std::string bytes;
    char buffer[4096];
    for (;;) {
      const ssize_t got = read(fd, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) break;
      bytes.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return bytes;
  };
  auto reap = [&] {
    // The first child's pipe read to its end, then the child waited for.
    const auto it = running.begin();
    const std::string bytes = readAll(it->second.fd);
    int status = 0;
    while (waitpid(it->first, &status, 0) < 0 && errno == EINTR) {
    }
    const bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    auto& q = results[it->second.index];
    if (ok && bytes.size() % sizeof(std::array<double, 3>) == 0) {
      q.resize(bytes.size() / sizeof(std::array<double, 3>));
      std::memcpy(q.data(), bytes.data(), bytes.size());
    } else if (failure.empty()) {
      failure = !ok && !bytes.empty() ? bytes
                : "the run of point " + std::to_string(it->second.index + 1) + " ended abnormally";
    }
    running.erase(it);
  };
  bool stop = false;
  while (next < points.size() || !running.empty()) {
    if (!stop && interrupted()) stop = true;
    if (!stop && next < points.size() && failure.empty() &&
        running.size() < static_cast<std::size_t>(jobs)) {
      int fds[2];
      if (pipe(fds) != 0) {
        failure = "cannot start a process for a point";
        continue;
      }
      const std::size_t index = next++;
      const pid_t pid = fork();
      if (pid == 0) {
        close(fds[0]);
        std::vector<std::array<double, 3>> q;
        std::string error;
        const bool ok = RunSweepPoint(job, points[index], q, error);
        const std::string bytes = ok ? std::string(reinterpret_cast<const char*>(q.data()),
                                                   q.size() * sizeof(q[0]))
                                     : error;
        for (std::size_t done = 0; done < bytes.size();) {
          const ssize_t put = write(fds[1], bytes.data() + done, bytes.size() - done);
          if (put <= 0) _exit(3);
          done += static_cast<std::size_t>(put);
        }
        _exit(ok ? 0 : 1);
      }
      close(fds[1]);
      if (pid < 0) {
        close(fds[0]);
        failure = "cannot start a process for a point";
        continue;
      }
      running[pid] = Child{index, fds[0]};
      continue;
    }
    if (running.empty()) break;
    reap();
  }
  if (stop) throw Interrupted();
  if (!failure.empty()) throw Error(failure);
  return results;
}

py::tuple Sweep(const py::object& program, const py::object& set,
                const std::vector<std::string>& vary, std::optional<std::string> home, int order,
                int jobs) {
  IntegratorOf(order);
  if (vary.empty()) throw py::value_error("nothing to vary (MI:PARAM=START:STOP:COUNT)");
  if (vary.size() > 2) throw py::value_error("at most two parameters to vary");
  if (jobs < 1 || jobs > 256) throw py::value_error("jobs takes a number from 1 to 256");
  SweepJob job;
  job.order = order;
  std::string error;
  for (const std::string& spec : vary) {
    auto axis = ParseSweepSpec(spec, error);
    if (!axis) throw py::value_error(error);
    job.axes.push_back(*axis);
  }
  const std::string what = py::isinstance<Program>(program) ? program.cast<const Program&>().path
                                                            : std::string(py::str(program));
  const Place place = PlaceOf(set, home);
  job.home = place.home;
  job.setDir = place.setDir;
  const std::vector<std::vector<double>> points = SweepPoints(job.axes);
  std::vector<std::vector<std::array<double, 3>>> q;
  Guarded([&] {
    std::string why;
    const auto text = cli::ProgramTextFor(what, job.setDir, why);
    if (!text) throw Error(why);
    job.program = *text;
    // Every edit is tried once on the user's text (nothing is written) so that a bad value
    // is named before anything runs.
    for (std::size_t a = 0; a < job.axes.size(); ++a) {
      const auto file = MIFileOf(job.setDir, job.axes[a].mi);
      if (!file) throw Error("MI " + job.axes[a].mi + " is not in the set " + SetNameOf(job.setDir));
      job.files.push_back(*file);
      const std::string original = ReadWholeFile(job.setDir + *file);
      for (int i = 0; i < job.axes[a].count; ++i)
        EditMIText(original, *file, job.axes[a].parameter, job.axes[a].Value(i));
    }
    q = RunSweepPoints(job, points, jobs);
    return 0;
  });
  const auto p = static_cast<py::ssize_t>(points.size());
  const auto axes = static_cast<py::ssize_t>(job.axes.size());
  const auto n = static_cast<py::ssize_t>(q.empty() ? 0 : q.front().size());
  py::array_t<double> values({p, axes});
  py::array_t<double> qs({p, n, py::ssize_t{3}});
  auto vv = values.mutable_unchecked<2>();
  auto qv = qs.mutable_unchecked<3>();
  for (py::ssize_t i = 0; i < p; ++i) {
    for (py::ssize_t a = 0; a < axes; ++a)
      vv(i, a) = points[static_cast<std::size_t>(i)][static_cast<std::size_t>(a)];
    const auto& row = q[static_cast<std::size_t>(i)];
    if (static_cast<py::ssize_t>(row.size()) != n) throw Error("the points differ in their qubits");
    for (py::ssize_t k = 0; k < n; ++k)
      for (int c = 0; c < 3; ++c) qv(i, k, c) = row[static_cast<std::size_t>(k)][static_cast<std::size_t>(c)];
  }
  return py::make_tuple(values, qs);
}

} // namespace

PYBIND11_MODULE(orvex, m) {
  m.doc() = "MI sets, programs and the simulation engine of the Orvex workbench";
  static py::exception<Error> error(m, "Error", PyExc_RuntimeError);
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const Error& e) {
      PyErr_SetString(error.ptr(), e.what());
    } catch (const RuntimeError& e) {
      PyErr_SetString(error.ptr(), e.description().c_str());
    }
  });
  // The engine beside the executables of this copy, unless the environment names one.
  if (const char* env = std::getenv("ORVEX_ENGINE"); !env || !*env) {
    const std::string dir = ProgramDirectory();
    std::string engine = dir + "libkv3.so";
    if (!FileExists(engine)) engine = AbsoluteCanonical(dir + ORVEX_PY_ENGINE_FROM_BIN);
    setenv("ORVEX_ENGINE", engine.c_str(), 1);
  }

  // The demo sets and programs this copy brings (a build tree's bin/, an installed
  // share/orvex/), "" when there are none.
  m.attr("bundle_directory") = platform::BundleDirectory(ProgramDirectory());

  py::class_<MI>(m, "MI", "One micro instruction of an MI set; edits are saved with save()")
      .def_property_readonly("name", &MI::Name)
      .def_property("fields", &MI::Fields, &MI::SetFields,
                    "(N, 12) array: Hx0 Hx1 Omega_x Hy0 Hy1 Omega_y Hz0 Hz1 Omega_z phi_x "
                    "phi_y phi_z per qubit")
      .def_property("couplings", &MI::Couplings, &MI::SetCouplings,
                    "(N, N, 3) array: Jx, Jy, Jz of the pair i < j at [i, j]")
      .def_property("time_step", &MI::TimeStep, &MI::SetTimeStep, "time step in radians")
      .def_property(
          "field_steps", [](const MI& mi) { return mi.Record().FieldSteps; },
          [](MI& mi, long long v) { mi.Record().FieldSteps = MI::Count(v, "field_steps"); })
      .def_property(
          "intermediate_steps", [](const MI& mi) { return mi.Record().IntermediateSteps; },
          [](MI& mi, long long v) {
            mi.Record().IntermediateSteps = MI::Count(v, "intermediate_steps");
          })
      .def_property(
          "description", [](const MI& mi) { return mi.Record().Description; },
          [](MI& mi, const std::string& v) { mi.Record().Description = v; })
      .def("save", &MI::Save, "writes the MI file as the workbench's editor does");

  py::class_<MISet>(m, "MISet", "An MI set directory, opened as the workbench opens it")
      .def(py::init<const std::string&>(), py::arg("path"))
      .def_property_readonly("qubits", &MISet::Qubits)
      .def_property_readonly("names", &MISet::Names)
      .def_property_readonly("name", &MISet::Name)
      .def_property_readonly("path", &MISet::Path)
      .def("__getitem__", &MISet::Get)
      .def("__contains__", [](const MISet& s, const std::string& name) {
        try {
          s.SlotOf(name);
          return true;
        } catch (const py::key_error&) {
          return false;
        }
      })
      .def("save", &MISet::Save, py::arg("name"));

  py::class_<Program>(m, "Program", "A quantum program file")
      .def(py::init([](const std::string& path) { return OpenProgram(path); }), py::arg("path"))
      .def_readonly("path", &Program::path)
      .def_property_readonly("rows", [](const Program& p) {
        py::list rows;
        for (const ProgramRow& r : p.rows) rows.append(py::make_tuple(KindOf(r.Icon), r.Text));
        return rows;
      });

  m.def("run", &Run, py::arg("program"), py::arg("set"), py::arg("home") = py::none(),
        py::arg("order") = 2, "runs the program to its end; (N, 3) array of Qx, Qy, Qz");
  m.def("trace", &Trace, py::arg("program"), py::arg("set"), py::arg("home") = py::none(),
        py::arg("order") = 2, "runs the program; (times (T,), Q (T, N, 3)) of every main step");
  m.def("check", &Check, py::arg("program"), py::arg("set"), py::arg("home") = py::none(),
        py::arg("order") = 2, "the accuracy check: n and 2n intermediate steps compared");
  m.def("fidelity", &Fidelity, py::arg("mi"), py::arg("set"), py::arg("qubits"), py::arg("target"),
        py::arg("angle") = py::none(), py::arg("z_phases") = false, py::arg("home") = py::none(),
        py::arg("order") = 2,
        "the map of an MI or program on the chosen qubits against an ideal gate; "
        "(fidelity, leakage, M)");
  m.def("sweep", &Sweep, py::arg("program"), py::arg("set"), py::arg("vary"),
        py::arg("home") = py::none(), py::arg("order") = 2, py::arg("jobs") = 1,
        "the program over a grid of MI values (MI:PARAM=START:STOP:COUNT, one or two); "
        "(values (P, axes), Q (P, N, 3))");
}
