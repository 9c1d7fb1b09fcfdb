// orvex-cli run: opens an MI set as the workbench does, puts one program into a program slot
// and drives it through the same run controller (run mode, every breakpoint continued) until
// it ends, then prints every qubit's Qx, Qy, Qz (with --trace also every main step's, as
// csv). orvex-cli check: the accuracy check of run/accuracy_check.h, printed as a table.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "miset/open_miset.h"
#include "miset/qubits_file.h"
#include "platform/appdir.h"
#include "platform/dialogs.h"
#include "program/program_file.h"
#include "program/program_table.h"
#include "run/accuracy_check.h"
#include "run/engine_library.h"
#include "run/run_trace.h"
#include "run/run_controller.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"
#include "workspace/workspace.h"

namespace orvex::cli {

namespace {

enum class Format { Table, Csv, Json };

struct RunOptions {
  std::string program;
  std::string set;
  std::string home;
  int granularity = 0;  // StepGranularity: 0 program, 1 main, 2 all steps
  std::int32_t integrator = kIntegratorSecondOrder;  // --order 2 or 4
  bool stepping = false;  // --step given: go step by step instead of breakpoint to breakpoint
  bool outputFiles = false;
  bool progress = false;  // --progress: the run's status line on standard error
  Format format = Format::Table;
  std::string trace;  // --trace FILE: the records of every main step as csv
  std::vector<std::string> given;  // the options named, for commands that take fewer
};

constexpr int kFailure = 2;

const char* command = "run";

int Fail(const std::string& message) {
  std::fprintf(stderr, "orvex-cli %s: %s\n", command, message.c_str());
  return kFailure;
}

// Parses "--name value" and "--name=value" options; nullopt with `error` set on bad input.
std::optional<RunOptions> ParseRunOptions(const Args& args, std::string& error) {
  RunOptions options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    std::string arg = args[i];
    std::optional<std::string> inlineValue;
    if (arg.rfind("--", 0) == 0) {
      if (auto eq = arg.find('='); eq != std::string::npos) {
        inlineValue = arg.substr(eq + 1);
        arg.erase(eq);
      }
    }
    auto value = [&]() -> std::optional<std::string> {
      if (inlineValue) return inlineValue;
      if (i + 1 < args.size()) return args[++i];
      error = "option " + arg + " needs a value";
      return std::nullopt;
    };
    if (arg.rfind("--", 0) == 0) options.given.push_back(arg);
    if (arg == "--set" || arg == "--home" || arg == "--step" || arg == "--format" ||
        arg == "--order" || arg == "--trace") {
      auto v = value();
      if (!v) return std::nullopt;
      if (arg == "--trace") {
        if (v->empty()) { error = "--trace needs a file name"; return std::nullopt; }
        options.trace = *v;
      } else if (arg == "--set") {
        options.set = *v;
      } else if (arg == "--home") {
        options.home = *v;
      } else if (arg == "--step") {
        options.stepping = true;
        if (*v == "program") options.granularity = 0;
        else if (*v == "main") options.granularity = 1;
        else if (*v == "all") options.granularity = 2;
        else { error = "--step takes program, main or all, not '" + *v + "'"; return std::nullopt; }
      } else if (arg == "--order") {
        if (*v == "2") options.integrator = kIntegratorSecondOrder;
        else if (*v == "4") options.integrator = kIntegratorFourthOrder;
        else { error = "--order takes 2 or 4, not '" + *v + "'"; return std::nullopt; }
      } else {
        if (*v == "table") options.format = Format::Table;
        else if (*v == "csv") options.format = Format::Csv;
        else if (*v == "json") options.format = Format::Json;
        else { error = "--format takes table, csv or json, not '" + *v + "'"; return std::nullopt; }
      }
    } else if (arg == "--output-files" && !inlineValue) {
      options.outputFiles = true;
    } else if (arg == "--progress" && !inlineValue) {
      options.progress = true;
    } else if (arg.rfind("--", 0) == 0) {
      error = "unknown option " + arg;
      return std::nullopt;
    } else if (options.program.empty()) {
      options.program = arg;
    } else {
      error = "more than one program given ('" + options.program + "', '" + arg + "')";
      return std::nullopt;
    }
  }
  if (options.program.empty()) error = "no program given";
  else if (options.set.empty()) error = "no MI set given (--set NAME)";
  if (!error.empty()) return std::nullopt;
  return options;
}

std::string WithSlash(std::string dir) {
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir;
}

std::string Absolute(const std::string& path) {
  if (!path.empty() && path[0] == '/') return path;
  char cwd[4096];
  if (!getcwd(cwd, sizeof cwd)) return path;
  return WithSlash(cwd) + path;
}

// The path without "." and ".." components, links resolved as far as the path exists.
std::string Canonical(const std::string& path) {
  std::error_code ec;
  const std::filesystem::path p = std::filesystem::weakly_canonical(path, ec);
  return ec ? path : p.string();
}

std::string Lines(std::string text) {
  for (char& c : text)
    if (c == platform::CR) c = '\n';
  return text;
}

// A message's lines as one line, for warnings that should read as a single line.
std::string OneLine(const std::string& text) {
  std::string line;
  for (char c : text) {
    if (c == platform::CR || c == '\n') c = ' ';
    if (c == ' ' && (line.empty() || line.back() == ' ')) continue;
    line += c;
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return line;
}

std::string Number(double v);

// --trace: the engine's records (one per completed main step and initial state), which the
// run controller drains into the program's trace after every engine call; taken from there
// after every call (so the trace never fills and thins) and kept as csv rows
// "t,qubit,Qx,Qy,Qz" until the run is over.
class TraceRecorder {
public:
  // False with `error` when the engine cannot be loaded or keeps no trace records (a
  // stand-in engine without kv3trace: its points would be estimates, not records).
  bool Open(std::string& error) {
    try {
      if (!EngineLibrary::Extras().trace) {
        error = "the engine " + EngineLibrary::DefaultPath() +
                " keeps no trace records (it lacks kv3record/kv3trace)";
        return false;
      }
    } catch (const RuntimeError& e) {
      error = e.description();
      return false;
    }
    csv_ = "t,qubit,Qx,Qy,Qz\n";
    return true;
  }
  void Take(ProgramTrace& trace) {
    for (const TracePoint& point : trace.Points) {
      const std::string t = Number(point.Time) + ",";
      for (int q = 0; q < trace.Qubits; ++q) {
        const std::size_t k = 3 * static_cast<std::size_t>(q);
        csv_ += t + std::to_string(q + 1) + "," + Number(point.Q[k]) + "," +
                Number(point.Q[k + 1]) + "," + Number(point.Q[k + 2]) + "\n";
      }
    }
    trace.Points.clear();
  }
  const std::string& Csv() const { return csv_; }

private:
  std::string csv_;
};

// The command line's user port, installed while it lives: the shared headless port, whose
// messages become lines on standard error as they come (a critical one means the run
// failed). The status line of the run goes there too, at most five times a second: in place
// on a terminal, and one line each otherwise when --progress asks for it. Between engine calls the
// trace records are taken out (--trace).
class CliPort : public platform::HeadlessPort {
public:
  CliPort(const Workspace& ws, bool showProgress, TraceRecorder* recorder = nullptr,
          ProgramTrace* trace = nullptr)
      : ws_(ws), tty_(isatty(STDERR_FILENO) == 1), show_(showProgress || tty_), recorder_(recorder),
        trace_(trace), installed_(*this) {
    onMessage = [this](const Message& m) { print(m); };
  }
  ~CliPort() override { clear(); }

  void keepResponsive() override;
  void progress(const std::string& text, std::optional<double> fraction) override {
    if (!show_ || text.empty() || !fraction) return;
    const auto now = std::chrono::steady_clock::now();
    if (shown_ && now - last_ < std::chrono::milliseconds(200)) return;
    last_ = now;
    if (tty_) std::fprintf(stderr, "\r%-60s", text.c_str());
    else std::fprintf(stderr, "%s\n", text.c_str());
    shown_ = true;
  }
  // Ends the status line on a terminal before other output.
  void clear() {
    if (shown_ && tty_) std::fprintf(stderr, "\r%60s\r", "");
    shown_ = false;
  }

private:
  void print(const Message& m) {
    clear();
    if (m.text.empty())
      std::fprintf(stderr, "engine error %d\n", static_cast<int>(ws_.EngineError));
    else if (m.icon == platform::Icon::Exclamation)
      std::fprintf(stderr, "warning: %s\n", OneLine(m.text).c_str());
    else
      std::fprintf(stderr, "%s\n", Lines(m.text).c_str());
    if (!m.detail.empty()) std::fprintf(stderr, "reason: %s\n", m.detail.c_str());
  }

  const Workspace& ws_;
  bool tty_;
  bool show_;
  TraceRecorder* recorder_;
  ProgramTrace* trace_;
  bool shown_ = false;
  std::chrono::steady_clock::time_point last_{};
  platform::ScopedUserPort installed_;
};

void CliPort::keepResponsive() {
  if (recorder_ && trace_) recorder_->Take(*trace_);
}

std::string Number(double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.15g", v);
  return buffer;
}

void PrintResult(Workspace& ws, int slot, Format format);

// Text as a JSON string.
std::string JsonString(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char buffer[8];
      std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
      out += buffer;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

// Text as a CSV field: quoted when it holds a comma, a quote or a line end.
std::string CsvField(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  std::string out = "\"";
  for (char c : text) {
    if (c == '"') out += '"';
    out += c;
  }
  return out + "\"";
}

// One step of a stepped run with the qubits' values after it. The table format gives each
// step a heading line and its own table; csv is one table with the step in front of every
// row; json is one array of steps (opened by the first, closed by EndSteps).
void PrintStep(Workspace& ws, int slot, Format format, int step, const std::string& name) {
  const int n = ws.NumberOfQubits;
  if (format == Format::Csv) {
    if (step == 1) std::printf("step,name,qubit,Qx,Qy,Qz\n");
    for (int q = 1; q <= n; ++q)
      std::printf("%d,%s,%d,%s,%s,%s\n", step, CsvField(name).c_str(), q,
                  Number(ws.QubitX(slot, q)).c_str(), Number(ws.QubitY(slot, q)).c_str(),
                  Number(ws.QubitZ(slot, q)).c_str());
  } else if (format == Format::Json) {
    auto json = [](double v) { return std::isfinite(v) ? Number(v) : std::string("null"); };
    std::printf("%s\n  {\"step\": %d, \"name\": %s, \"qubits\": [", step == 1 ? "[" : ",", step,
                JsonString(name).c_str());
    for (int q = 1; q <= n; ++q)
      std::printf("%s\n    {\"qubit\": %d, \"Qx\": %s, \"Qy\": %s, \"Qz\": %s}", q > 1 ? "," : "",
                  q, json(ws.QubitX(slot, q)).c_str(), json(ws.QubitY(slot, q)).c_str(),
                  json(ws.QubitZ(slot, q)).c_str());
    std::printf("\n  ]}");
  } else {
    std::printf("%sstep %d%s%s\n", step == 1 ? "" : "\n", step, name.empty() ? "" : ": ",
                name.c_str());
    PrintResult(ws, slot, format);
  }
  std::fflush(stdout);
}

void EndSteps(Format format, int steps) {
  if (format == Format::Json) std::printf(steps > 0 ? "\n]\n" : "[]\n");
}

void PrintResult(Workspace& ws, int slot, Format format) {
  const int n = ws.NumberOfQubits;
  std::vector<std::array<std::string, 4>> cells;
  for (int q = 1; q <= n; ++q)
    cells.push_back({std::to_string(q), Number(ws.QubitX(slot, q)), Number(ws.QubitY(slot, q)),
                     Number(ws.QubitZ(slot, q))});
  const std::array<std::string, 4> header = {"qubit", "Qx", "Qy", "Qz"};
  if (format == Format::Csv) {
    std::printf("qubit,Qx,Qy,Qz\n");
    for (auto& c : cells) std::printf("%s,%s,%s,%s\n", c[0].c_str(), c[1].c_str(), c[2].c_str(), c[3].c_str());
  } else if (format == Format::Json) {
    std::printf("[");
    for (std::size_t i = 0; i < cells.size(); ++i) {
      auto json = [](double v) { return std::isfinite(v) ? Number(v) : std::string("null"); };
      const int q = static_cast<int>(i) + 1;
      std::printf("%s\n  {\"qubit\": %d, \"Qx\": %s, \"Qy\": %s, \"Qz\": %s}", i ? "," : "", q,
                  json(ws.QubitX(slot, q)).c_str(), json(ws.QubitY(slot, q)).c_str(),
                  json(ws.QubitZ(slot, q)).c_str());
    }
    std::printf("\n]\n");
  } else {
    std::array<std::size_t, 4> width{};
    for (int k = 0; k < 4; ++k) {
      width[k] = header[k].size();
      for (auto& c : cells) width[k] = std::max(width[k], c[k].size());
    }
    auto row = [&](const std::array<std::string, 4>& c) {
      std::printf("%-*s", static_cast<int>(width[0]), c[0].c_str());
      for (int k = 1; k < 4; ++k) std::printf("  %*s", static_cast<int>(width[k]), c[k].c_str());
      std::printf("\n");
    };
    row(header);
    for (auto& c : cells) row(c);
  }
}

// The home directory of the options (--home, else $ORVEX_HOME, else the workbench's own
// application directory: the executable's, or the per-user one of an installed copy) as one
// plain absolute path; nullopt after the message when it does not exist.
std::optional<std::string> HomeOf(const RunOptions& options) {
  std::string home = options.home;
  if (home.empty()) {
    const char* env = std::getenv("ORVEX_HOME");
    if (env && *env) home = env;
    else try {
      home = platform::ResolveAppDir("", platform::ExecutableDirectory());
    } catch (const RuntimeError& e) {
      Fail(e.what());
      return std::nullopt;
    }
  }
  // Any spelling of the directory ("." , "./", "../bin", a link) becomes one plain absolute
  // path, so that program names made relative to it need no "." or ".." of their own.
  home = WithSlash(Canonical(Absolute(home)));
  if (!DirectoryExists(home)) {
    Fail("home directory " + home + " does not exist");
    return std::nullopt;
  }
  return home;
}

// The set directory of --set under the home, ending in "/"; nullopt after the message.
std::optional<std::string> SetDirectoryOf(const RunOptions& options, const std::string& home) {
  // A set is one directory of the container: ".." or a path would open (and write
  // qubits.dat into) a directory that is no MI set.
  const bool oneName = options.set != "." && options.set != ".." &&
                       options.set.find_first_of("/\\") == std::string::npos;
  const auto setDir = oneName ? FindPath(home, "MI/" + options.set) : std::nullopt;
  if (!setDir || !DirectoryExists(*setDir)) {
    Fail("MI set '" + options.set + "' not found in " + home + "MI/");
    return std::nullopt;
  }
  return WithSlash(*setDir);
}

// Where --trace writes, refused before anything runs when it cannot be a file.
std::optional<std::string> TracePathOf(const RunOptions& options) {
  const std::string path = Canonical(Absolute(options.trace));
  std::error_code ec;
  if (std::filesystem::is_directory(path, ec)) {
    Fail("trace file " + options.trace + " is a directory");
    return std::nullopt;
  }
  const std::filesystem::path parent = std::filesystem::path(path).parent_path();
  if (!std::filesystem::is_directory(parent, ec)) {
    Fail("cannot write the trace file " + options.trace + ": directory " + parent.string() +
         " does not exist");
    return std::nullopt;
  }
  return path;
}

} // namespace

int Run(const Args& args) {
  command = "run";
  std::string error;
  auto parsed = ParseRunOptions(args, error);
  if (!parsed) return Fail(error);
  const RunOptions& options = *parsed;

  const auto home = HomeOf(options);
  if (!home) return kFailure;
  std::optional<std::string> tracePath;
  TraceRecorder trace;
  if (!options.trace.empty()) {
    tracePath = TracePathOf(options);
    if (!tracePath) return kFailure;
    if (!trace.Open(error)) return Fail(error);
  }

  Workspace ws;
  ws.AppDir = *home;
  const int slot = 1;
  CliPort dialogs(ws, options.progress, tracePath ? &trace : nullptr, &ws.Traces[slot - 1]);
  RunUi ui;
  ws.Traces[slot - 1].Wanted = tracePath.has_value();
  int stepsPrinted = 0;
  try {
    const auto setDir = SetDirectoryOf(options, ws.AppDir);
    if (!setDir) return kFailure;
    ws.MISetPath = *setDir;
    LoadSetFiles(ws);  // as the workbench opens it; its boxes arrive as messages

    const auto found = ResolvePath(Absolute(options.program));
    if (!found || !FileExists(*found))
      return Fail("program file " + options.program + " not found");
    const std::string program = Canonical(*found);
    const auto rows = ReadProgramForOpening(program);
    if (!rows) return Fail("program file " + options.program + " is not a quantum program");
    ProgramSlot& p = ws.Program(slot);
    p.Rows = {ProgramRow{"Start", kIconStart}};
    p.Rows.insert(p.Rows.end(), rows->begin(), rows->end());
    p.Name = RelativePath(program, ws.AppDir);
    p.Caption = NameWithoutExtension(FileNameOf(p.Name));
    p.Status = "Program ready";

    ws.NoOutputFiles = options.outputFiles ? 0 : 1;
    ws.StepGranularity = options.granularity;
    ws.Integrator = options.integrator;
    ws.AnimateQubits = 0;

    // Breakpoint to breakpoint, or with --step one step of the chosen granularity at a time:
    // every halt is reported and the run goes on to the end. A stepped run reports each step
    // with the qubits' values after it, the last step (the one that ends the run) included.
    const int mode = options.stepping ? kModeStep : kModeRun;
    int halts = 0;
    RunProgram(ws, ui, slot, mode);
    while (!dialogs.failed() && ws.RunningProgram == slot) {
      dialogs.clear();
      ++halts;
      if (!options.stepping) {
        std::fprintf(stderr, "halted at breakpoint %d\n", halts);
      } else {
        const int row = p.CurrentRow;
        const bool known = row > 0 && row < static_cast<int>(p.Rows.size());
        PrintStep(ws, slot, options.format, halts, known ? p.Rows[row].Text : std::string());
        stepsPrinted = halts;
      }
      RunProgram(ws, ui, slot, mode);
    }
    if (options.stepping && !dialogs.failed()) {
      // The step that ended the run belongs to the last call of the program.
      std::string last;
      for (const ProgramRow& row : p.Rows)
        if (row.Icon == kIconMI || row.Icon == kIconProgramRow) last = row.Text;
      dialogs.clear();
      PrintStep(ws, slot, options.format, halts + 1, last);
      stepsPrinted = halts + 1;
    }
    dialogs.clear();
  } catch (const RuntimeError& e) {
    dialogs.clear();
    if (stepsPrinted > 0) EndSteps(options.format, stepsPrinted);
    return Fail(e.description() + ", errorcode: " + std::to_string(e.number()));
  } catch (const std::exception& e) {
    dialogs.clear();
    if (stepsPrinted > 0) EndSteps(options.format, stepsPrinted);
    return Fail(e.what());
  }
  if (options.stepping && (stepsPrinted > 0 || !dialogs.failed()))
    EndSteps(options.format, stepsPrinted);  // json stays well formed
  if (dialogs.failed()) return kFailure;
  if (!options.stepping) PrintResult(ws, slot, options.format);
  if (tracePath) {
    trace.Take(ws.Traces[slot - 1]);
    try {
      WriteWholeFile(*tracePath, trace.Csv());
    } catch (const RuntimeError& e) {
      return Fail("cannot write the trace file " + options.trace + ": " + e.description());
    }
  }
  return 0;
}

int Check(const Args& args) {
  command = "check";
  std::string error;
  auto parsed = ParseRunOptions(args, error);
  if (!parsed) return Fail(error);
  const RunOptions& options = *parsed;
  for (const std::string& option : options.given)
    if (option != "--set" && option != "--home" && option != "--order" && option != "--progress")
      return Fail("option " + option + " does not apply to check");

  const auto home = HomeOf(options);
  if (!home) return kFailure;
  Workspace ws;
  ws.AppDir = *home;
  const auto setDir = SetDirectoryOf(options, ws.AppDir);
  if (!setDir) return kFailure;
  ws.MISetPath = *setDir;
  const auto found = ResolvePath(Absolute(options.program));
  if (!found || !FileExists(*found)) return Fail("program file " + options.program + " not found");
  const std::string program = Canonical(*found);
  if (!ReadProgramForOpening(program))
    return Fail("program file " + options.program + " is not a quantum program");

  const int order = options.integrator == kIntegratorFourthOrder ? 4 : 2;
  CliPort dialogs(ws, options.progress);
  const AccuracyReport report = CheckAccuracy(ws, program, order);
  dialogs.clear();
  for (const std::string& note : report.notes) std::fprintf(stderr, "warning: %s\n", note.c_str());
  if (!report.ok) return Fail(report.error);

  auto g = [](double v) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.6g", v);
    return std::string(buffer);
  };
  auto factor = [&](double f) { return f > 0 ? g(f) : std::string("-"); };
  std::printf("accuracy of %s, order %d: n and 2n intermediate steps compared, Q = (1 - <sigma>)/2\n",
              FileNameOf(program).c_str(), order);
  std::printf("deviation = max over x, y, z of |Q_n - Q_2n|; error = %s of it; n factor: error ~ n^-%d\n",
              order == 4 ? "16/15" : "4/3", order);
  std::vector<std::array<std::string, 5>> rows = {
      {"qubit", "deviation", "error", "n factor for 1e-3", "n factor for 1e-6"}};
  for (const QubitAccuracy& q : report.qubits)
    rows.push_back({std::to_string(q.qubit), g(q.deviation), g(q.estimatedError),
                    factor(q.factorFor1e3), factor(q.factorFor1e6)});
  std::array<std::size_t, 5> width{};
  for (const auto& r : rows)
    for (std::size_t k = 0; k < 5; ++k) width[k] = std::max(width[k], r[k].size());
  for (const auto& r : rows) {
    std::printf("%-*s", static_cast<int>(width[0]), r[0].c_str());
    for (std::size_t k = 1; k < 5; ++k) std::printf("  %*s", static_cast<int>(width[k]), r[k].c_str());
    std::printf("\n");
  }
  if (!report.steps.empty()) {
    std::printf("intermediate steps n of each MI called, as written and to reach an error of 1e-3 "
                "and 1e-6 (all grown by the same factor):\n");
    for (const MIStepAdvice& mi : report.steps) {
      auto n = [](std::int64_t v) { return v > 0 ? std::to_string(v) : std::string("-"); };
      std::printf("  %s  n = %s  for 1e-3: %s  for 1e-6: %s\n", mi.name.c_str(), n(mi.n).c_str(),
                  n(mi.nFor1e3).c_str(), n(mi.nFor1e6).c_str());
    }
  }
  std::printf("max deviation %s, estimated error %s\n", g(report.maxDeviation).c_str(),
              g(report.estimatedError).c_str());
  return 0;
}

} // namespace orvex::cli
