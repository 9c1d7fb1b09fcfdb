// orvex-cli sweep: a program run over a grid of MI values, one scratch copy of the set per
// point, the final Q of every qubit as CSV.
//
// The points run in child processes (the engine keeps one run context and the current
// directory per process), at most --jobs at a time. Each child writes its rows to a file of
// its own; the parent prints them in point order, so the output does not depend on --jobs.
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
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
const char* kProgramName = "orvex-sweep.kvp";

int Fail(const std::string& message) {
  std::fprintf(stderr, "orvex-cli sweep: %s\n", message.c_str());
  return kFailure;
}

std::string G15(double v) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.15g", v);
  return buffer;
}

struct Job {
  std::string home, setDir, program;
  std::vector<SweepAxis> axes;
  std::vector<std::string> files;  // the MI file of each axis
  int order = 2;
};

// One point, in the child: the rows "values,qubit,Qx,Qy,Qz" or the reason it failed.
bool RunPoint(const Job& job, const std::vector<double>& values, std::string& rows,
              std::string& error) {
  ScratchSet scratch(job.home, job.setDir);
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
    WriteWholeFile(scratch.Dir() + kProgramName, job.program);
  } catch (const RuntimeError& e) {
    error = e.description();
    return false;
  }
  engine::Simulator sim;
  std::vector<std::array<double, 3>> q;
  if (!RunToEnd(sim, scratch.Dir(), kProgramName, job.order, q, error)) return false;
  std::string lead;
  for (double v : values) lead += G15(v) + ",";
  for (std::size_t i = 0; i < q.size(); ++i)
    rows += lead + std::to_string(i + 1) + "," + G15(q[i][0]) + "," + G15(q[i][1]) + "," +
            G15(q[i][2]) + "\n";
  return true;
}

} // namespace

int Sweep(const Args& args) {
  std::string program, set, home, error;
  std::vector<std::string> specs;
  int order = 2;
  long jobs = 1;
  bool progress = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--set" || arg == "--home" || arg == "--vary" || arg == "--order" ||
        arg == "--jobs") {
      if (i + 1 >= args.size()) return Fail(arg + " needs a value");
      const std::string& v = args[++i];
      if (arg == "--set") set = v;
      else if (arg == "--home") home = v;
      else if (arg == "--vary") specs.push_back(v);
      else if (arg == "--order") {
        if (v != "2" && v != "4") return Fail("--order takes 2 or 4, not '" + v + "'");
        order = v == "4" ? 4 : 2;
      } else {
        char* end = nullptr;
        jobs = std::strtol(v.c_str(), &end, 10);
        if (v.empty() || *end != '\0' || jobs < 1 || jobs > 256)
          return Fail("--jobs takes a number from 1 to 256, not '" + v + "'");
      }
    } else if (arg == "--progress") {
      progress = true;
    } else if (!arg.empty() && arg[0] == '-') {
      return Fail("unknown option " + arg);
    } else if (program.empty()) {
      program = arg;
    } else {
      return Fail("more than one program given");
    }
  }
  if (program.empty()) return Fail("no program given");
  if (set.empty()) return Fail("no MI set given (--set NAME)");
  if (specs.empty()) return Fail("nothing to vary (--vary MI:PARAM=START:STOP:COUNT)");
  if (specs.size() > 2) return Fail("at most two --vary");

  Job job;
  job.order = order;
  for (const std::string& spec : specs) {
    auto axis = ParseSweepSpec(spec, error);
    if (!axis) return Fail(error);
    job.axes.push_back(*axis);
  }
  const auto homeDir = HomeDirectory(home, error);
  if (!homeDir) return Fail(error);
  const auto setDir = SetDirectory(*homeDir, set, error);
  if (!setDir) return Fail(error);
  job.home = *homeDir;
  job.setDir = *setDir;
  const auto text = ProgramTextFor(program, *setDir, error);
  if (!text) return Fail(error);
  job.program = *text;
  // Every edit is tried once on the user's text (nothing is written) so that a bad value
  // is named before anything runs.
  const std::vector<std::vector<double>> points = SweepPoints(job.axes);
  try {
    for (std::size_t a = 0; a < job.axes.size(); ++a) {
      const auto file = MIFileOf(*setDir, job.axes[a].mi);
      if (!file) return Fail("MI " + job.axes[a].mi + " is not in the set " + set);
      job.files.push_back(*file);
      const std::string original = ReadWholeFile(*setDir + *file);
      for (int i = 0; i < job.axes[a].count; ++i)
        EditMIText(original, *file, job.axes[a].parameter, job.axes[a].Value(i));
    }
  } catch (const RuntimeError& e) {
    return Fail(e.description());
  }

  std::string pattern = (fs::temp_directory_path() / "orvex-sweep-XXXXXX").string();
  if (!mkdtemp(pattern.data())) return Fail("cannot create a scratch directory");
  const std::string results = pattern + "/";
  auto cleanup = [&] {
    std::error_code ec;
    fs::remove_all(results, ec);
  };
  std::fflush(stdout);
  std::fflush(stderr);
  std::map<pid_t, std::size_t> running;
  std::string failure;
  std::size_t next = 0, finished = 0;
  auto reap = [&] {
    int status = 0;
    const pid_t pid = wait(&status);
    if (pid <= 0) return;
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
  while (next < points.size() || !running.empty()) {
    if (next < points.size() && failure.empty() && running.size() < static_cast<std::size_t>(jobs)) {
      const std::size_t index = next++;
      const pid_t pid = fork();
      if (pid == 0) {
        std::string rows, why;
        const bool ok = RunPoint(job, points[index], rows, why);
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
  if (!failure.empty()) {
    cleanup();
    return Fail(failure);
  }
  std::string out;
  for (std::size_t a = 0; a < job.axes.size(); ++a) out += "value" + std::to_string(a + 1) + ",";
  out += "qubit,Qx,Qy,Qz\n";
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

} // namespace orvex::cli
