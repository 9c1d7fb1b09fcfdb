// orvex-cli sweep: a program run over a grid of MI values, one copy of the set per point, the
// final Q of every qubit as CSV.
//
// A direct sweep runs the points in child processes (the engine keeps one run context and the
// current directory per process), at most --jobs at a time. Each child writes its rows to a
// file of its own; the parent prints them in point order, so the output does not depend on
// --jobs.
//
// A planned sweep (--plan DIR) runs nothing: it writes one self-contained directory per point
// (the edited copy of the set, the callable programs, the program and the point's values) and
// a file of command lines, one per point, for GNU parallel, a job array or a plain shell.
// Each line runs "sweep --point" on one directory, which leaves its rows there; "--collect"
// joins them into the CSV the direct sweep prints. Both kinds of point run through RunPoint.
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "cli/commands.h"
#include "cli/scratch_run.h"
#include "run/sweep.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex::cli {

namespace {

constexpr int kFailure = 2;
// The files of a point directory, beside the copy of the set.
const char* kProgramName = "orvex-sweep.kvp";
const char* kPointFile = "orvex-point.txt";    // the order and the values of the point
const char* kResultFile = "orvex-result.csv";  // the rows, once the point has run
const char* kErrorFile = "orvex-error.txt";    // why the point failed
// The files of a plan directory.
const char* kPlanFile = "plan.txt";
const char* kCommandsFile = "commands";
const char* kPlanMagic = "orvex-cli sweep plan";

int Fail(const std::string& message) {
  std::fprintf(stderr, "orvex-cli sweep: %s\n", message.c_str());
  return kFailure;
}

// `v` with `digits` significant digits.
std::string Digits(double v, int digits) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.*g", digits, v);
  return buffer;
}
std::string G15(double v) { return Digits(v, 15); }

struct Options {
  std::string program, set, home, plan, point, collect;
  std::vector<std::string> specs;
  int order = 2;
  long jobs = 1;
  bool jobsGiven = false, progress = false;
};

struct Job {
  std::string home, setDir, program;
  std::vector<SweepAxis> axes;
  std::vector<std::string> files;  // the MI file of each axis
  int order = 2;
};

std::string Header(std::size_t axes) {
  std::string header;
  for (std::size_t a = 0; a < axes; ++a) header += "value" + std::to_string(a + 1) + ",";
  return header + "qubit,Qx,Qy,Qz\n";
}

// Writes the point's edits of the MIs and the program into `dir`, which holds a copy of the
// set (its files at the top).
bool EditPoint(const Job& job, const std::vector<double>& values, const std::string& dir,
               std::string& error) {
  try {
    std::map<std::string, std::string> edited;
    for (std::size_t a = 0; a < job.axes.size(); ++a) {
      const std::string& file = job.files[a];
      auto it = edited.find(file);
      if (it == edited.end()) it = edited.emplace(file, ReadWholeFile(dir + file)).first;
      it->second = EditMIText(it->second, file, job.axes[a].parameter, values[a]);
    }
    for (const auto& [file, text] : edited) WriteWholeFile(dir + file, text);
    WriteWholeFile(dir + kProgramName, job.program);
  } catch (const RuntimeError& e) {
    error = e.description();
    return false;
  }
  return true;
}

// Runs the program prepared in `dir` (EditPoint): the rows "values,qubit,Qx,Qy,Qz" or the
// reason it failed. Every point, direct or planned, runs here, so both give the same bytes.
bool RunPoint(const std::string& dir, const std::vector<double>& values, int order,
              std::string& rows, std::string& error) {
  engine::Simulator sim(engine::DefaultThreadCount());
  std::vector<std::array<double, 3>> q;
  if (!RunToEnd(sim, dir, kProgramName, order, q, error)) return false;
  std::string lead;
  for (double v : values) lead += G15(v) + ",";
  for (std::size_t i = 0; i < q.size(); ++i)
    rows += lead + std::to_string(i + 1) + "," + G15(q[i][0]) + "," + G15(q[i][1]) + "," +
            G15(q[i][2]) + "\n";
  return true;
}

// `text` quoted for a POSIX shell when it holds anything but plain path characters.
std::string ShellQuoted(const std::string& text) {
  bool plain = !text.empty();
  for (char c : text)
    if (!std::isalnum(static_cast<unsigned char>(c)) &&
        std::string("/._-+,:@%=").find(c) == std::string::npos)
      plain = false;
  if (plain) return text;
  std::string quoted = "'";
  for (char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

// The orvex-cli that writes a plan runs its points: its absolute path, so that the points run
// the same build (and engine) as a direct sweep would, whatever PATH a batch system or a
// remote shell has. The plain name, found on PATH, only when the path is unknown.
std::string ThisExecutable() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  return ec || exe.empty() ? "orvex-cli" : exe.string();
}

std::string PointName(std::size_t index, std::size_t count) {
  const int width = std::max<int>(4, static_cast<int>(std::to_string(count).size()));
  return "point-" + std::string(width - std::to_string(index + 1).size(), '0') +
         std::to_string(index + 1);
}

// The signal that asked a direct sweep to stop, or 0.
volatile std::sig_atomic_t stopSignal = 0;
extern "C" void AskToStop(int signal) { stopSignal = signal; }

// While a direct sweep runs, an interrupt, hang-up or termination (unless ignored already)
// only asks it to stop, so that it can end its points and take its scratch directory away;
// the points' processes get the former actions back.
class StopSignals {
public:
  StopSignals() {
    struct sigaction ask {};
    ask.sa_handler = AskToStop;  // no SA_RESTART: a waiting wait() returns at once
    sigemptyset(&ask.sa_mask);
    for (std::size_t k = 0; k < kSignals.size(); ++k) {
      sigaction(kSignals[k], nullptr, &saved_[k]);
      if (saved_[k].sa_handler != SIG_IGN) sigaction(kSignals[k], &ask, nullptr);  // kept ignored
    }
  }
  ~StopSignals() { Restore(); }
  void Restore() const {
    for (std::size_t k = 0; k < kSignals.size(); ++k) sigaction(kSignals[k], &saved_[k], nullptr);
  }

private:
  static constexpr std::array<int, 3> kSignals = {SIGINT, SIGHUP, SIGTERM};
  std::array<struct sigaction, 3> saved_{};
};

// The direct sweep: the points in child processes, the CSV on stdout. Each point works in a
// copy of the set inside the sweep's own scratch directory, which goes away as a whole however
// the sweep ends: with its table, with an error, or stopped by a signal (the points still
// running are ended first, and the process then ends by that signal).
int RunDirect(const Job& job, const std::vector<std::vector<double>>& points, long jobs,
              bool progress) {
  std::error_code tempError;
  const fs::path temp = fs::temp_directory_path(tempError);
  std::string pattern = (temp / "orvex-sweep-XXXXXX").string();
  if (tempError || !mkdtemp(pattern.data())) return Fail("cannot create a scratch directory");
  const std::string results = pattern + "/";
  auto cleanup = [&] {
    std::error_code ec;
    fs::remove_all(results, ec);
  };
  stopSignal = 0;
  const StopSignals signals;
  std::fflush(stdout);
  std::fflush(stderr);
  std::map<pid_t, std::size_t> running;
  std::string failure;
  std::size_t next = 0, finished = 0;
  auto reap = [&] {
    int status = 0;
    const pid_t pid = wait(&status);
    if (pid <= 0) return;  // a signal (see StopSignals)
    const auto it = running.find(pid);
    if (it == running.end()) return;
    if ((!WIFEXITED(status) || WEXITSTATUS(status) != 0) && failure.empty()) {
      std::string why;
      try {
        why = ReadWholeFile(results + std::to_string(it->second) + ".err");
      } catch (const RuntimeError&) {
        why = "the run of point " + std::to_string(it->second + 1) + " ended abnormally";
      }
      failure = why;
    } else if (WIFEXITED(status) && WEXITSTATUS(status) == 0 && progress) {
      // One line per finished point, in finishing order, for a caller that shows progress.
      std::fprintf(stderr, "point %zu of %zu\n", ++finished, points.size());
      std::fflush(stderr);
    }
    running.erase(it);
  };
  while (!stopSignal && (next < points.size() || !running.empty())) {
    if (next < points.size() && failure.empty() && running.size() < static_cast<std::size_t>(jobs)) {
      const std::size_t index = next++;
      const pid_t pid = fork();
      if (pid == 0) {
        signals.Restore();
        std::string rows, why;
        bool ok = false;
        {
          ScratchSet scratch(job.home, job.setDir, results);
          if (!scratch.Ok()) why = scratch.Error();
          else ok = EditPoint(job, points[index], scratch.Dir(), why) &&
                    RunPoint(scratch.Dir(), points[index], job.order, rows, why);
        }
        try {
          WriteWholeFile(results + std::to_string(index) + (ok ? ".csv" : ".err"), ok ? rows : why);
        } catch (const RuntimeError&) {
          _exit(3);
        }
        _exit(ok ? 0 : 1);
      }
      if (pid < 0) {
        failure = "cannot start a process for a point";
        continue;
      }
      running[pid] = index;
      continue;
    }
    if (running.empty()) break;
    reap();
  }
  if (stopSignal) {
    for (const auto& [pid, index] : running) kill(pid, SIGTERM);
    while (!running.empty()) {
      int status = 0;
      const pid_t pid = waitpid(-1, &status, 0);
      if (pid > 0) running.erase(pid);
      else if (errno != EINTR) break;
    }
    cleanup();
    std::fputs("orvex-cli sweep: stopped by a signal; nothing was written\n", stderr);
    std::fflush(stderr);
    signals.Restore();
    std::raise(stopSignal);
    return 128 + stopSignal;  // the signal's action was to ignore it
  }
  if (!failure.empty()) {
    cleanup();
    return Fail(failure);
  }
  std::string out = Header(job.axes.size());
  try {
    for (std::size_t i = 0; i < points.size(); ++i)
      out += ReadWholeFile(results + std::to_string(i) + ".csv");
  } catch (const RuntimeError& e) {
    cleanup();
    return Fail(e.description());
  }
  cleanup();
  std::fputs(out.c_str(), stdout);
  return 0;
}

// --plan DIR: a directory per point, the command lines and the plan --collect reads. DIR must
// be new or empty; a plan that cannot be written whole is taken away again.
int WritePlan(const Job& job, const std::vector<std::vector<double>>& points,
              const Options& options) {
  const std::string target = AbsoluteCanonical(options.plan);
  const std::string dir = WithSlash(target);
  std::error_code ec;
  const auto status = fs::status(target, ec);
  bool created = false;
  if (fs::exists(status)) {
    if (!fs::is_directory(status))
      return Fail(options.plan + " is not a directory; nothing was written");
    if (!fs::is_empty(dir, ec) || ec)
      return Fail("the plan directory " + options.plan +
                  " is not empty; a plan goes into a new or empty directory, nothing was written");
  } else {
    created = fs::create_directories(dir, ec);
    if (!created) return Fail("cannot create the plan directory " + options.plan);
  }
  auto undo = [&](const std::string& why) {
    std::error_code ignored;
    if (created) {
      fs::remove_all(dir, ignored);
    } else {
      for (const auto& entry : fs::directory_iterator(dir, ignored))
        fs::remove_all(entry.path(), ignored);
    }
    return Fail(why + "; the plan was not written");
  };

  const std::string exe = ShellQuoted(ThisExecutable());
  std::string commands;
  std::string plan = std::string(kPlanMagic) + "\nheader " + Header(job.axes.size());
  plan += "program " + options.program + "\nset " + job.setDir + "\n";
  for (const std::string& spec : options.specs) plan += "vary " + spec + "\n";
  plan += "order " + std::to_string(job.order) + "\n";
  for (std::size_t i = 0; i < points.size(); ++i) {
    const std::string name = PointName(i, points.size());
    const std::string pointDir = dir + name + "/";
    std::string error;
    if (!fs::create_directory(pointDir, ec)) return undo("cannot create " + pointDir);
    if (!CopySetInto(job.home, job.setDir, pointDir, error) ||
        !EditPoint(job, points[i], pointDir, error))
      return undo(error);
    // The values in full precision, so the point prints exactly what a direct sweep prints.
    std::string values;
    for (double v : points[i]) values += (values.empty() ? "" : ",") + Digits(v, 17);
    try {
      WriteWholeFile(pointDir + kPointFile,
                     "order " + std::to_string(job.order) + "\nvalues " + values + "\n");
    } catch (const RuntimeError& e) {
      return undo(e.description());
    }
    commands += exe + " sweep --point " + ShellQuoted(dir + name) + "\n";
    plan += "point " + name + "\n";
  }
  try {
    WriteWholeFile(dir + kCommandsFile, commands);
    WriteWholeFile(dir + kPlanFile, plan);
  } catch (const RuntimeError& e) {
    return undo(e.description());
  }
  const std::string where = ShellQuoted(dir.substr(0, dir.size() - 1));
  std::printf("planned %zu points in %s: run the lines of %s/%s (for example with "
              "parallel), then orvex-cli sweep --collect %s\n",
              points.size(), where.c_str(), where.c_str(), kCommandsFile, where.c_str());
  return 0;
}

// --point DIR: runs one point of a plan in its directory and leaves the rows there (or why it
// failed). A rerun starts afresh.
int RunPlannedPoint(const std::string& given) {
  const std::string dir = WithSlash(AbsoluteCanonical(given));
  const std::string name = fs::path(dir).parent_path().filename().string();
  int order = 0;
  std::vector<double> values;
  bool readable = true;
  try {
    for (const std::string& line : SplitLines(ReadWholeFile(dir + kPointFile))) {
      if (line.rfind("order ", 0) == 0) order = line == "order 4" ? 4 : line == "order 2" ? 2 : 0;
      if (line.rfind("values ", 0) != 0) continue;
      std::stringstream cells(line.substr(7));
      std::string cell;
      while (std::getline(cells, cell, ',')) {
        char* end = nullptr;
        values.push_back(std::strtod(cell.c_str(), &end));
        if (cell.empty() || *end != '\0') readable = false;
      }
    }
  } catch (const RuntimeError& e) {
    return Fail(given + " is not a point of a sweep plan: " + e.description());
  }
  if (order == 0 || values.empty() || values.size() > 2 || !readable)
    return Fail(given + " is not a point of a sweep plan");
  std::error_code ec;
  fs::remove(dir + kResultFile, ec);
  fs::remove(dir + kErrorFile, ec);
  std::string rows, error;
  if (RunPoint(dir, values, order, rows, error)) {
    try {
      WriteWholeFile(dir + kResultFile, rows);
      return 0;
    } catch (const RuntimeError& e) {
      error = e.description();
    }
  }
  try {
    WriteWholeFile(dir + kErrorFile, error + "\n");
  } catch (const RuntimeError&) {
  }
  return Fail(name + ": " + error);
}

// --collect DIR: the CSV of a direct sweep from the points' rows, or every point that has no
// rows, by name.
int Collect(const std::string& given) {
  const std::string dir = WithSlash(AbsoluteCanonical(given));
  std::vector<std::string> lines;
  try {
    lines = SplitLines(ReadWholeFile(dir + kPlanFile));
  } catch (const RuntimeError&) {
    return Fail(given + " holds no sweep plan (no " + kPlanFile + ")");
  }
  if (lines.empty() || lines[0] != kPlanMagic) return Fail(dir + kPlanFile + " is not a sweep plan");
  std::string out;
  std::vector<std::string> problems;
  std::size_t count = 0;
  for (const std::string& line : lines) {
    if (line.rfind("header ", 0) == 0) out = line.substr(7) + "\n";
    if (line.rfind("point ", 0) != 0) continue;
    ++count;
    const std::string name = line.substr(6);
    const std::string pointDir = dir + name + "/";
    if (FileExists(pointDir + kResultFile)) {
      try {
        out += ReadWholeFile(pointDir + kResultFile);
        continue;
      } catch (const RuntimeError& e) {
        problems.push_back(name + ": " + e.description());
        continue;
      }
    }
    std::string why;
    try {
      for (const std::string& l : SplitLines(ReadWholeFile(pointDir + kErrorFile)))
        if (!l.empty() && why.empty()) why = l;
      problems.push_back(name + " failed: " + why);
    } catch (const RuntimeError&) {
      problems.push_back(name + " has not run");
    }
  }
  if (out.empty() || count == 0) return Fail(dir + kPlanFile + " is not a sweep plan");
  if (!problems.empty()) {
    for (const std::string& p : problems) std::fprintf(stderr, "orvex-cli sweep: %s\n", p.c_str());
    return Fail(std::to_string(problems.size()) + " of " + std::to_string(count) +
                " points have no result; nothing was collected");
  }
  std::fputs(out.c_str(), stdout);
  return 0;
}

} // namespace

int Sweep(const Args& args) {
  Options o;
  std::string error;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--set" || arg == "--home" || arg == "--vary" || arg == "--order" ||
        arg == "--jobs" || arg == "--plan" || arg == "--point" || arg == "--collect") {
      if (i + 1 >= args.size()) return Fail(arg + " needs a value");
      const std::string& v = args[++i];
      if (arg == "--set") o.set = v;
      else if (arg == "--home") o.home = v;
      else if (arg == "--vary") o.specs.push_back(v);
      else if (arg == "--plan") o.plan = v;
      else if (arg == "--point") o.point = v;
      else if (arg == "--collect") o.collect = v;
      else if (arg == "--order") {
        if (v != "2" && v != "4") return Fail("--order takes 2 or 4, not '" + v + "'");
        o.order = v == "4" ? 4 : 2;
      } else {
        char* end = nullptr;
        o.jobs = std::strtol(v.c_str(), &end, 10);
        o.jobsGiven = true;
        if (v.empty() || *end != '\0' || o.jobs < 1 || o.jobs > 256)
          return Fail("--jobs takes a number from 1 to 256, not '" + v + "'");
      }
    } else if (arg == "--progress") {
      o.progress = true;
    } else if (!arg.empty() && arg[0] == '-') {
      return Fail("unknown option " + arg);
    } else if (o.program.empty()) {
      o.program = arg;
    } else {
      return Fail("more than one program given");
    }
  }
  if (!o.point.empty() || !o.collect.empty()) {
    const char* option = o.point.empty() ? "--collect" : "--point";
    if (args.size() != 2) return Fail(std::string(option) + " DIR takes no other argument");
    return o.point.empty() ? Collect(o.collect) : RunPlannedPoint(o.point);
  }
  if (!o.plan.empty() && (o.jobsGiven || o.progress))
    return Fail("--plan runs nothing, so --jobs and --progress do not apply");
  if (o.program.empty()) return Fail("no program given");
  if (o.set.empty()) return Fail("no MI set given (--set NAME)");
  if (o.specs.empty()) return Fail("nothing to vary (--vary MI:PARAM=START:STOP:COUNT)");
  if (o.specs.size() > 2) return Fail("at most two --vary");

  Job job;
  job.order = o.order;
  for (const std::string& spec : o.specs) {
    auto axis = ParseSweepSpec(spec, error);
    if (!axis) return Fail(error);
    job.axes.push_back(*axis);
  }
  const auto homeDir = HomeDirectory(o.home, error);
  if (!homeDir) return Fail(error);
  const auto setDir = SetDirectory(*homeDir, o.set, error);
  if (!setDir) return Fail(error);
  job.home = *homeDir;
  job.setDir = *setDir;
  const auto text = ProgramTextFor(o.program, *setDir, error);
  if (!text) return Fail(error);
  job.program = *text;
  // Every edit is tried once on the user's text (nothing is written) so that a bad value
  // is named before anything runs.
  const std::vector<std::vector<double>> points = SweepPoints(job.axes);
  try {
    for (std::size_t a = 0; a < job.axes.size(); ++a) {
      const auto file = MIFileOf(*setDir, job.axes[a].mi);
      if (!file) return Fail("MI " + job.axes[a].mi + " is not in the set " + o.set);
      job.files.push_back(*file);
      const std::string original = ReadWholeFile(*setDir + *file);
      for (int i = 0; i < job.axes[a].count; ++i)
        EditMIText(original, *file, job.axes[a].parameter, job.axes[a].Value(i));
    }
  } catch (const RuntimeError& e) {
    return Fail(e.description());
  }
  return o.plan.empty() ? RunDirect(job, points, o.jobs, o.progress) : WritePlan(job, points, o);
}

} // namespace orvex::cli
