// The accuracy check. Both runs go through the run controller in a workspace of their own
// whose home is a scratch directory holding copies of the set (its MI files, callable-program
// redirects and qubits.dat), the program and the callable programs' files; the second run's
// copies have their intermediate steps doubled.
#include "run/accuracy_check.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <optional>
#include <system_error>

#include "mi/mi_format.h"
#include "miset/open_miset.h"
#include "miset/qubits_file.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "program/program_table.h"
#include "run/run_controller.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex {

namespace {

constexpr int kSlot = 1;

// The port of the check's runs: what they would show in message boxes is collected (the
// first critical one ends the check); their progress goes on to the caller's port, as the
// part of the whole check done (the run as written the first half, the doubled one the
// second), and so do the pauses for the user interface between engine calls.
class CheckPort : public platform::HeadlessPort {
public:
  CheckPort() : installed_(*this) {}

  platform::Answer message(const std::string& text, platform::Icon icon,
                           platform::Buttons buttons, const std::string& detail) override {
    std::string line;
    for (char c : text) line += c == platform::CR ? ' ' : c;
    if (!detail.empty()) line += " (" + detail + ")";
    if (icon == platform::Icon::Critical) {
      if (!failed) error = line;
      failed = true;
    } else {
      notes.push_back(line);
    }
    return HeadlessPort::message(text, icon, buttons, detail);
  }
  void progress(const std::string& text, std::optional<double> fraction) override {
    if (fraction) fraction = (run + std::clamp(*fraction, 0.0, 1.0)) / 2;
    if (fraction && onFraction) onFraction(*fraction);
    platform::PortBelow(this).progress(text, fraction);
  }
  void keepResponsive() override { platform::PortBelow(this).keepResponsive(); }

  bool failed = false;
  std::string error;
  std::vector<std::string> notes;
  int run = 0;  // 0 the run as written, 1 the doubled one
  std::function<void(double)> onFraction;

private:
  platform::ScopedUserPort installed_;
};

// Goes back to the directory the check began in, and removes the scratch home.
class Scratch {
public:
  Scratch() {
    char buffer[4096];
    if (getcwd(buffer, sizeof buffer)) cwd_ = buffer;
    std::string pattern = (fs::temp_directory_path() / "orvex-check-XXXXXX").string();
    if (mkdtemp(pattern.data())) home_ = pattern + "/";
  }
  ~Scratch() {
    if (!cwd_.empty() && chdir(cwd_.c_str()) != 0) {
      // The directory went meanwhile; nothing to go back to.
    }
    std::error_code ec;
    if (!home_.empty()) fs::remove_all(home_, ec);
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const std::string& home() const { return home_; }

private:
  std::string cwd_, home_;
};

// A relative path that stays inside the directory it is taken against.
bool StaysInside(const std::string& relative) {
  if (relative.empty() || IsSeparator(relative[0])) return false;
  const fs::path p(NormalizeSeparators(relative));
  for (const fs::path& part : p)
    if (part == "..") return false;
  return true;
}

void CopyInto(const std::string& from, const std::string& to) {
  fs::create_directories(fs::path(to).parent_path());
  fs::copy_file(from, to, fs::copy_options::overwrite_existing);
}

// The final Q of every qubit of the set after running `program` (relative to `home`) to its
// end, through every breakpoint.
std::vector<std::array<double, 3>> RunToEnd(const std::string& home, const std::string& setDir,
                                            const std::string& program, int order, RunUi& ui,
                                            CheckPort& dialogs) {
  Workspace ws;
  ws.AppDir = home;
  ws.MISetPath = setDir;
  LoadSetFiles(ws);
  const auto rows = ReadProgramForOpening(home + program);
  if (!rows) {
    dialogs.failed = true;
    dialogs.error = program + " is not a quantum program";
    return {};
  }
  ProgramSlot& p = ws.Program(kSlot);
  p.Rows = {ProgramRow{"Start", kIconStart}};
  p.Rows.insert(p.Rows.end(), rows->begin(), rows->end());
  p.Name = program;
  p.Caption = NameWithoutExtension(FileNameOf(program));
  p.Status = "Program ready";
  ws.NoOutputFiles = 1;
  ws.StepGranularity = 0;
  ws.AnimateQubits = 0;
  ws.Integrator = order == 4 ? kIntegratorFourthOrder : kIntegratorSecondOrder;

  RunProgram(ws, ui, kSlot, kModeRun);
  for (int halts = 0; !dialogs.failed && ws.RunningProgram == kSlot; ++halts) {
    if (halts > 1000000) {
      dialogs.failed = true;
      dialogs.error = "the run does not end";
      break;
    }
    RunProgram(ws, ui, kSlot, kModeRun);
  }
  std::vector<std::array<double, 3>> q;
  if (!dialogs.failed)
    for (int k = 1; k <= ws.NumberOfQubits; ++k)
      q.push_back({ws.QubitX(kSlot, k), ws.QubitY(kSlot, k), ws.QubitZ(kSlot, k)});
  // The engine lets go of the finished run (its log lies in the scratch directory).
  ResetProgram(ws, ui, kSlot);
  return q;
}

// Whether the MI's intermediate steps change its result: it lasts a while and has a coupling
// or an oscillating field (static fields alone rotate each qubit exactly).
bool StepsMatter(const MicroInstruction& mi) {
  if (mi.FieldSteps <= 0 || mi.TimeStep == 0) return false;
  for (double j : mi.JData)
    if (j != 0) return true;
  for (int q = 1; q <= 32; ++q)
    for (int k : {1, 4, 7})  // Hx1, Hy1, Hz1
      if (mi.Field(q, k) != 0) return true;
  return false;
}

} // namespace

double EstimatedError(double deviation, int order) {
  const double f = order == 4 ? 16.0 : 4.0;
  return deviation * f / (f - 1.0);
}

double StepFactorFor(double error, double target, int order) {
  // An error at the level of rounding tells nothing about the steps.
  if (!(error > kRoundingLevel)) return 0;
  return std::pow(error / target, 1.0 / (order == 4 ? 4.0 : 2.0));
}

std::string DoubleIntermediateSteps(const std::string& text, const std::string& source) {
  MicroInstruction mi;
  MIReadTrace trace;
  ParseMI(text, mi, source, &trace);
  const std::int64_t n = std::max<std::int64_t>(1, mi.IntermediateSteps);
  if (2 * n > std::numeric_limits<std::int32_t>::max())
    throw RuntimeError(ErrorNumber::Overflow,
                       "Overflow: " + source + " has too many intermediate steps to double");
  const std::string doubled = std::to_string(2 * n);
  std::vector<std::string> lines = SplitLines(text);
  std::string out;
  if (trace.intermediateLine > 0) {
    // The value line keeps its comment: only the leading number changes.
    std::string& line = lines[static_cast<std::size_t>(trace.intermediateLine - 1)];
    std::size_t from = line.find_first_not_of(" \t");
    if (from == std::string::npos) from = line.size();
    std::size_t to = line.find_first_of(";( !", from);
    if (to == std::string::npos) to = line.size();
    while (to > from && (line[to - 1] == '\t' || line[to - 1] == '\r')) --to;
    line.replace(from, to - from, doubled);
  } else {
    out = "NUMBER OF INTERMEDIATE TIME STEPS\r\n" + doubled + "\r\nEND\r\n";
  }
  for (const std::string& line : lines) out += line + "\r\n";
  MicroInstruction check;
  ParseMI(out, check, source);
  if (check.IntermediateSteps != 2 * n)
    throw RuntimeError(ErrorNumber::Overflow,
                       "Overflow: the intermediate steps of " + source + " cannot be doubled");
  return out;
}

AccuracyReport CheckAccuracy(const Workspace& ws, const std::string& programPath, int order,
                             const std::function<void(double)>& onFraction) {
  AccuracyReport report;
  report.order = order == 4 ? 4 : 2;
  if (ws.RunningProgram != -1 || ws.EngineBusy) {
    report.error = "a quantum program is running or halted; reset it first";
    return report;
  }
  if (ws.MISetPath.empty() || !DirectoryExists(ws.MISetPath)) {
    report.error = "no MI set is open";
    return report;
  }
  const auto program = ResolvePath(programPath);
  if (!program || !FileExists(*program)) {
    report.error = "program file " + programPath + " not found";
    return report;
  }

  // The runs' workspace is the check's own: no window shows its program.
  RunUi runUi;
  CheckPort dialogs;
  dialogs.onFraction = onFraction;
  Scratch scratch;
  if (scratch.home().empty()) {
    report.error = "cannot create a scratch directory";
    return report;
  }
  try {
    // The set: its files (not our own temporaries), under the same name.
    std::string setName = ws.MISetPath;
    while (!setName.empty() && IsSeparator(setName.back())) setName.pop_back();
    setName = FileNameOf(setName);
    const std::string setDir = scratch.home() + "MI/" + setName + "/";
    fs::create_directories(setDir);
    std::vector<std::string> miFiles;
    for (const auto& entry : fs::directory_iterator(ws.MISetPath)) {
      const std::string name = entry.path().filename().string();
      if (!entry.is_regular_file() || IsOwnTemporary(name)) continue;
      CopyInto(entry.path().string(), setDir + name);
      if (name.size() > 3 && Upper(name.substr(name.size() - 3)) == ".MI") miFiles.push_back(name);
      if (name.size() > 3 && Upper(name.substr(name.size() - 3)) == ".MP") {
        // The callable program it names, at the same place under the scratch home.
        MicroInstruction mp;
        ReadMPFile(entry.path().string(), mp);
        const std::string target = CallTarget(mp);
        const auto found = target.empty() ? std::nullopt : FindPath(ws.AppDir, target);
        if (found && StaysInside(target) && FileExists(*found))
          CopyInto(*found, scratch.home() + NormalizeSeparators(target));
      }
    }
    // The program: at its place under the home, or beside it when it lies elsewhere.
    std::string relative = FileNameOf(*program);
    if (program->rfind(ws.AppDir, 0) == 0 && StaysInside(program->substr(ws.AppDir.size())))
      relative = program->substr(ws.AppDir.size());
    CopyInto(*program, scratch.home() + relative);

    // The MIs whose steps the advice names: the program's own calls, or every MI of the set
    // when it calls another program (whose MIs it does not list).
    std::vector<std::string> called;
    bool callsPrograms = false;
    for (const ProgramRow& row : ParseProgram(ReadWholeFile(*program))) {
      if (row.Icon == kIconProgramRow) callsPrograms = true;
      if (row.Icon != kIconMI) continue;
      for (const std::string& name : miFiles)
        if (Upper(name) == Upper(row.Text + ".MI") &&
            std::find(called.begin(), called.end(), name) == called.end())
          called.push_back(name);
    }
    if (callsPrograms) called = miFiles;
    std::sort(called.begin(), called.end());
    for (const std::string& name : called) {
      MicroInstruction mi;
      ParseMI(ReadWholeFile(setDir + name), mi, name);
      if (StepsMatter(mi)) report.steps.push_back({name, std::max<std::int64_t>(1, mi.IntermediateSteps)});
    }

    const auto asWritten =
        RunToEnd(scratch.home(), setDir, relative, report.order, runUi, dialogs);
    if (!dialogs.failed) {
      for (const std::string& name : miFiles)
        WriteWholeFile(setDir + name,
                       DoubleIntermediateSteps(ReadWholeFile(setDir + name), name));
    }
    dialogs.run = 1;
    const auto doubled =
        dialogs.failed ? asWritten
                       : RunToEnd(scratch.home(), setDir, relative, report.order, runUi, dialogs);
    report.notes = dialogs.notes;
    if (dialogs.failed) {
      report.error = dialogs.error;
      return report;
    }
    for (std::size_t i = 0; i < asWritten.size() && i < doubled.size(); ++i) {
      QubitAccuracy a;
      a.qubit = static_cast<int>(i) + 1;
      a.asWritten = asWritten[i];
      a.doubled = doubled[i];
      for (int c = 0; c < 3; ++c)
        a.deviation = std::max(a.deviation, std::abs(a.asWritten[static_cast<std::size_t>(c)] -
                                                     a.doubled[static_cast<std::size_t>(c)]));
      a.estimatedError = EstimatedError(a.deviation, report.order);
      a.factorFor1e3 = StepFactorFor(a.estimatedError, 1e-3, report.order);
      a.factorFor1e6 = StepFactorFor(a.estimatedError, 1e-6, report.order);
      if (a.deviation > report.maxDeviation || report.qubits.empty()) {
        report.maxDeviation = a.deviation;
        report.estimatedError = a.estimatedError;
      }
      report.qubits.push_back(a);
    }
    const double for1e3 = StepFactorFor(report.estimatedError, 1e-3, report.order);
    const double for1e6 = StepFactorFor(report.estimatedError, 1e-6, report.order);
    auto steps = [](std::int64_t n, double factor) -> std::int64_t {
      if (!(factor > 0)) return 0;
      // No MI holds more steps than its 32-bit count: the advice stops there.
      const double wanted = std::min(std::ceil(static_cast<double>(n) * factor),
                                     double(std::numeric_limits<std::int32_t>::max()));
      return std::max<std::int64_t>(1, static_cast<std::int64_t>(wanted));
    };
    for (MIStepAdvice& advice : report.steps) {
      advice.nFor1e3 = steps(advice.n, for1e3);
      advice.nFor1e6 = steps(advice.n, for1e6);
    }
    report.ok = true;
  } catch (const RuntimeError& e) {
    report.error = e.description();
  } catch (const std::exception& e) {
    report.error = e.what();
  }
  return report;
}

} // namespace orvex
