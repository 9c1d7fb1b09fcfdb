// A stand-in engine for tests: exports kv3dll, records every call and answers from a script.
//
// Call log (file named by ORVEX_FAKE_LOG; one line appended per call, values as passed in):
//   status=S progress=P runMode=R noOutputFiles=N entry=E flags=F0,F1,F2,F3
//   q1=X,Y,Z name=<program name, trailing blanks trimmed> cwd=<current directory>
//
// Script (file named by ORVEX_FAKE_SCRIPT; one line per ordinary call, in order; blank lines
// and lines starting with "#" are skipped):
//   STATUS PROGRESS FLAGS0 ENTRY [w2=W] [X1 Y1 Z1 [X2 Y2 Z2 ...]] [| REASON]
// The call returns *status = STATUS, *progress = PROGRESS, flags[0] = FLAGS0, *entry = ENTRY
// and writes the given qubit values into x, y, z (qubits not given keep what was passed in).
// FLAGS0 = 1 is an early return ("call again"), in step mode as in run mode. "w2=W" writes W
// into flags[2], the engine's progress through the program in thousandths; without it the
// word keeps what was passed in.
// With "| REASON" the line "error STATUS: program.kvp:1: REASON" is appended to kv1dll.log in
// the current directory. An ordinary call beyond the script ends the program: status 0,
// progress 0, flags[0] 0, entry 0.
//
// Calls with *entry == -2 (clean-up and reset) take no script line: they answer status 0,
// progress 0, flags[0] 0, as the real engine does. Which script line an ordinary call takes
// is the number of ordinary calls already in the log, so a fresh log restarts the script
// (without ORVEX_FAKE_LOG a counter in the library is used).
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

int counterWithoutLog = 0;

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

int OrdinaryCallsLogged(const std::string& logPath) {
  std::ifstream in(logPath);
  std::string line;
  int n = 0;
  while (std::getline(in, line))
    if (!line.empty() && line.find(" entry=-2 ") == std::string::npos) ++n;
  return n;
}

std::vector<std::string> ScriptLines() {
  std::vector<std::string> lines;
  std::ifstream in(Env("ORVEX_FAKE_SCRIPT"));
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    lines.push_back(line);
  }
  return lines;
}

std::string Trimmed(const char* name) {
  std::string s(name);
  while (!s.empty() && s.back() == ' ') s.pop_back();
  return s;
}

} // namespace

extern "C" __attribute__((visibility("default"))) void kv3dll(
    std::int32_t* status, std::int32_t* progress, std::int32_t* runMode,
    std::int32_t* noOutputFiles, std::int32_t* entry, double* x, double* y, double* z,
    std::int32_t* flags, char* programName) {
  const std::string logPath = Env("ORVEX_FAKE_LOG");
  const bool cleanUp = *entry == -2;
  int index = 0;
  if (!cleanUp) index = logPath.empty() ? counterWithoutLog++ : OrdinaryCallsLogged(logPath);

  if (!logPath.empty()) {
    char cwd[PATH_MAX] = "";
    if (!getcwd(cwd, sizeof cwd)) cwd[0] = '\0';
    std::ofstream log(logPath, std::ios::app);
    log << "status=" << *status << " progress=" << *progress << " runMode=" << *runMode
        << " noOutputFiles=" << *noOutputFiles << " entry=" << *entry << " flags=" << flags[0]
        << ',' << flags[1] << ',' << flags[2] << ',' << flags[3] << " q1=" << x[0] << ','
        << y[0] << ',' << z[0] << " name=" << Trimmed(programName) << " cwd=" << cwd << '\n';
  }

  if (cleanUp) {
    *status = 0;
    *progress = 0;
    flags[0] = 0;
    return;
  }
  const std::vector<std::string> script = ScriptLines();
  if (index >= static_cast<int>(script.size())) {
    *status = 0;
    *progress = 0;
    flags[0] = 0;
    *entry = 0;
    return;
  }
  std::string line = script[index];
  std::string reason;
  if (auto bar = line.find('|'); bar != std::string::npos) {
    reason = line.substr(bar + 1);
    while (!reason.empty() && reason.front() == ' ') reason.erase(reason.begin());
    line.erase(bar);
  }
  std::istringstream in(line);
  std::int32_t s = 0, p = 0, f0 = 0, e = 0;
  in >> s >> p >> f0 >> e;
  *status = s;
  *progress = p;
  flags[0] = f0;
  *entry = e;
  if (in >> std::ws && in.peek() == 'w') {
    std::string word;
    in >> word;
    if (word.rfind("w2=", 0) == 0) flags[2] = std::atoi(word.c_str() + 3);
  }
  double v[3];
  for (int q = 0; q < 32 && (in >> v[0] >> v[1] >> v[2]); ++q) {
    x[q] = v[0];
    y[q] = v[1];
    z[q] = v[2];
  }
  if (!reason.empty()) {
    std::ofstream log("kv1dll.log", std::ios::app);
    log << "error " << s << ": program.kvp:1: " << reason << "\r\n";
  }
}
