// Engine runs in a scratch copy of a set.
#include "cli/scratch_run.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <numbers>
#include <system_error>

#include "mi/mi_format.h"
#include "platform/appdir.h"
#include "program/program_file.h"
#include "workspace/errors.h"
#include "workspace/file_bytes.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace fs = std::filesystem;

namespace orvex::cli {

std::string WithSlash(std::string dir) {
  if (!dir.empty() && dir.back() != '/') dir += '/';
  return dir;
}

std::string AbsoluteCanonical(const std::string& path) {
  std::error_code ec;
  const fs::path p = fs::weakly_canonical(fs::absolute(path, ec), ec);
  return ec ? path : p.string();
}

std::optional<std::string> MIFileOf(const std::string& setDir, const std::string& name) {
  if (name.find_first_of("/\\") != std::string::npos) return std::nullopt;
  for (const std::string& n : {name, name + ".MI"}) {
    if (n.size() < 3 || Upper(n.substr(n.size() - 3)) != ".MI") continue;
    if (const auto found = FindPath(setDir, n); found && FileExists(*found))
      return fs::path(*found).filename().string();
  }
  return std::nullopt;
}

std::string PrepareMI(const std::vector<int>& qubits, int j, const std::string& name) {
  const int k = static_cast<int>(qubits.size());
  MicroInstruction mi;
  mi.Name = name;
  int top = 1;
  for (int t = 0; t < k; ++t) {
    top = std::max(top, qubits[static_cast<std::size_t>(t)]);
    if ((j >> (k - 1 - t)) & 1) mi.Field(qubits[static_cast<std::size_t>(t)], Hx0) = 1;
  }
  mi.FieldSteps = 1;
  mi.IntermediateSteps = 1;
  mi.TimeStep = std::numbers::pi;
  mi.Description = "basis state of the fidelity command";
  return FormatMI(mi, top, 0);
}

std::optional<std::string> HomeDirectory(const std::string& option, std::string& error) {
  std::string home = option;
  if (home.empty()) {
    const char* env = std::getenv("ORVEX_HOME");
    home = env && *env ? env : platform::ExecutableDirectory();
  }
  home = WithSlash(AbsoluteCanonical(home));
  if (!DirectoryExists(home)) {
    error = "home directory " + home + " does not exist";
    return std::nullopt;
  }
  return home;
}

std::optional<std::string> SetDirectory(const std::string& home, const std::string& set,
                                        std::string& error) {
  const bool oneName = !set.empty() && set != "." && set != ".." &&
                       set.find_first_of("/\\") == std::string::npos;
  const auto dir = oneName ? FindPath(home, "MI/" + set) : std::nullopt;
  if (!dir || !DirectoryExists(*dir)) {
    error = "MI set '" + set + "' not found in " + home + "MI/";
    return std::nullopt;
  }
  return WithSlash(*dir);
}

std::optional<std::string> ProgramTextFor(const std::string& what, const std::string& setDir,
                                          std::string& error) {
  if (const auto mi = MIFileOf(setDir, what)) return "@" + *mi + "\r\n";
  // A callable program of the set (its ".MP" redirect), as a program calls it.
  if (what.find_first_of("/\\") == std::string::npos) {
    for (const std::string& n : {what, what + ".MP"}) {
      if (n.size() < 3 || Upper(n.substr(n.size() - 3)) != ".MP") continue;
      if (const auto found = FindPath(setDir, n); found && FileExists(*found))
        return "@" + fs::path(*found).filename().string() + "\r\n";
    }
  }
  const auto found = ResolvePath(AbsoluteCanonical(what));
  if (!found || !FileExists(*found)) {
    error = what + " is neither an MI of the set nor a program file";
    return std::nullopt;
  }
  try {
    return ReadWholeFile(*found);
  } catch (const RuntimeError& e) {
    error = e.description();
    return std::nullopt;
  }
}

bool CopySetInto(const std::string& home, const std::string& setDir, const std::string& dir,
                 std::string& error) {
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(setDir, ec)) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_regular_file() || IsOwnTemporary(name)) continue;
    if (!fs::copy_file(entry.path(), dir + name, ec)) {
      error = "cannot copy " + entry.path().string() + ": " + ec.message();
      return false;
    }
    if (name.size() > 3 && Upper(name.substr(name.size() - 3)) == ".MP") {
      // The callable program it names (relative to the home), at the same place here.
      MicroInstruction mp;
      try {
        ReadMPFile(entry.path().string(), mp);
      } catch (const RuntimeError&) {
        continue;  // the run names the fault when the program calls it
      }
      const std::string target = NormalizeSeparators(CallTarget(mp));
      const auto found = target.empty() ? std::nullopt : FindPath(home, target);
      bool inside = !target.empty() && target[0] != '/';
      for (const fs::path& part : fs::path(target))
        if (part == "..") inside = false;
      if (found && inside && FileExists(*found)) {
        fs::create_directories(fs::path(dir + target).parent_path(), ec);
        fs::copy_file(*found, dir + target, fs::copy_options::overwrite_existing, ec);
        ec.clear();
      }
    }
  }
  if (ec) {
    error = "cannot read the set " + setDir + ": " + ec.message();
    return false;
  }
  return true;
}

ScratchSet::ScratchSet(const std::string& home, const std::string& setDir,
                       const std::string& under) {
  std::error_code ec;
  const fs::path parent = under.empty() ? fs::temp_directory_path(ec) : fs::path(under);
  std::string pattern = (parent / "orvex-scratch-XXXXXX").string();
  if (ec || !mkdtemp(pattern.data())) {
    error_ = "cannot create a scratch directory";
    return;
  }
  dir_ = pattern + "/";
  if (!CopySetInto(home, setDir, dir_, error_)) {
    fs::remove_all(dir_, ec);
    dir_.clear();
  }
}

ScratchSet::~ScratchSet() {
  std::error_code ec;
  if (!dir_.empty()) fs::remove_all(dir_, ec);
}

bool RunToEnd(engine::Simulator& sim, const std::string& dir, const std::string& program,
              int order, std::vector<std::array<double, 3>>& last, std::string& error) {
  char cwd[4096];
  const bool haveCwd = getcwd(cwd, sizeof cwd) != nullptr;
  if (chdir(dir.c_str()) != 0) {
    error = "cannot enter " + dir;
    return false;
  }
  sim.SetReturnInterval(std::chrono::hours(1));
  engine::CallArgs a;
  a.entry = -1;
  a.runMode = 0;
  a.noOutputFiles = 1;
  a.flags[1] = order == 4 ? engine::kFourthOrder : engine::kSecondOrder;
  a.SetProgramName(program);
  bool ok = true;
  for (long calls = 0;; ++calls) {
    sim.Call(a);
    if (a.status != 0) {
      std::string line;
      try {
        for (const std::string& l : SplitLines(ReadWholeFile(dir + engine::Simulator::kLogName)))
          if (!l.empty()) line = l;
      } catch (const RuntimeError&) {
      }
      error = "engine error " + std::to_string(a.status) + (line.empty() ? "" : ": " + line);
      ok = false;
      break;
    }
    if (a.flags[0] == 0 && a.progress == 0) break;
    if (calls > 100000000) {
      error = "the run does not end";
      ok = false;
      break;
    }
  }
  if (ok) {
    last.clear();
    for (int q = 0; q < sim.Qubits() && q < 32; ++q) last.push_back({a.x[q], a.y[q], a.z[q]});
  }
  if (haveCwd && chdir(cwd) != 0) {
    // The directory went meanwhile; nothing to go back to.
  }
  return ok;
}

std::optional<GateMatrix> GateMap(const ScratchSet& scratch, const std::string& programText,
                                  const std::vector<int>& qubits, int order, std::string& error) {
  const char* prepareName = "orvex-prepare.MI";
  const char* programName = "orvex-fidelity.kvp";
  const int k = static_cast<int>(qubits.size()), d = 1 << k;
  GateMatrix m(d);
  WriteWholeFile(scratch.Dir() + programName, std::string("@") + prepareName + "\r\n" + programText);
  for (int j = 0; j < d; ++j) {
    WriteWholeFile(scratch.Dir() + prepareName, PrepareMI(qubits, j, prepareName));
    engine::Simulator sim(engine::DefaultThreadCount());
    std::vector<std::array<double, 3>> q;
    if (!RunToEnd(sim, scratch.Dir(), programName, order, q, error)) return std::nullopt;
    const engine::StateVector* psi = sim.State();
    if (!psi) {
      error = "the engine holds no state after the run";
      return std::nullopt;
    }
    // The preparation leaves i^(flips) |j>: that phase is not the pulse's.
    Complex phase = 1;
    for (int t = 0; t < k; ++t)
      if ((j >> (k - 1 - t)) & 1) phase *= Complex(0, 1);
    for (int r = 0; r < d; ++r) {
      std::uint64_t index = 0;
      for (int t = 0; t < k; ++t)
        if ((r >> (k - 1 - t)) & 1) index |= std::uint64_t{1} << (qubits[static_cast<std::size_t>(t)] - 1);
      m(r, j) = index < psi->Size() ? psi->Get(index) / phase : Complex(0);
    }
  }
  return m;
}

} // namespace orvex::cli
