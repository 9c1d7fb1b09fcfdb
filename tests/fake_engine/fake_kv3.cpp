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
// Built with FAKE_ENGINE_EXTRAS it also exports the optional entries kv3record, kv3trace and
// kv3state, fed by lines that follow a call line in the script and belong to that call:
//   T TIME X1 Y1 Z1 [X2 Y2 Z2 ...]   a trace record the call produces (kept only while
//                                    recording is on; emptied by a start and a clean-up call)
//   A N RE0 IM0 RE1 IM1 ...          the amplitudes of N qubits after the call
// A clean-up call drops the amplitudes (no run context: kv3state returns 0).
//
// Calls with *entry == -2 (clean-up and reset) take no script line: they answer status 0,
// progress 0, flags[0] 0, as the real engine does. Which script line an ordinary call takes
// is the number of ordinary calls already in the log, so a fresh log restarts the script
// (without ORVEX_FAKE_LOG a counter in the library is used).
#include <unistd.h>

#include <algorithm>
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

struct Record {
  double time = 0;
  std::vector<double> q;  // x, y, z per qubit
};
bool recording = false;
std::vector<Record> pending;
std::vector<double> amplitudes;
int amplitudeQubits = 0;

bool Attached(const std::string& line) { return line.size() > 1 && (line[0] == 'T' || line[0] == 'A') && line[1] == ' '; }

// The lines attached to call line `index` (see the header).
void ApplyAttached(const std::vector<std::string>& all, int index) {
  int call = -1;
  for (const std::string& line : all) {
    if (!Attached(line)) {
      ++call;
      continue;
    }
    if (call != index) continue;
    std::istringstream in(line.substr(2));
    if (line[0] == 'T') {
      Record r;
      in >> r.time;
      double v;
      while (in >> v) r.q.push_back(v);
      if (recording) pending.push_back(r);
    } else {
      in >> amplitudeQubits;
      amplitudes.clear();
      double v;
      while (in >> v) amplitudes.push_back(v);
    }
  }
}

std::vector<std::string> AllScriptLines() {
  std::vector<std::string> lines;
  std::ifstream in(Env("ORVEX_FAKE_SCRIPT"));
  std::string line;
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::size_t first = line.find_first_not_of(" \t");
    if (first == std::string::npos || line[first] == '#') continue;
    lines.push_back(line.substr(first));
  }
  return lines;
}

std::vector<std::string> ScriptLines() {
  std::vector<std::string> lines;
  for (const std::string& line : AllScriptLines())
    if (!Attached(line)) lines.push_back(line);
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

  if (cleanUp || *entry == -1) pending.clear();
  if (cleanUp) {
    amplitudes.clear();
    amplitudeQubits = 0;
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
  ApplyAttached(AllScriptLines(), index);
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

#ifdef FAKE_ENGINE_EXTRAS
extern "C" __attribute__((visibility("default"))) void kv3record(std::int32_t on) {
  recording = on != 0;
}

extern "C" __attribute__((visibility("default"))) std::int32_t kv3trace(std::int32_t capacity,
                                                                       double* times, double* q,
                                                                       std::int32_t* qubits) {
  std::int32_t n = 0;
  for (const Record& r : pending) n = std::max<std::int32_t>(n, static_cast<std::int32_t>(r.q.size() / 3));
  *qubits = n;
  std::int32_t k = 0;
  for (; k < capacity && k < static_cast<std::int32_t>(pending.size()); ++k) {
    times[k] = pending[static_cast<std::size_t>(k)].time;
    for (std::size_t i = 0; i < 96; ++i)
      q[static_cast<std::size_t>(k) * 96 + i] =
          i < pending[static_cast<std::size_t>(k)].q.size() ? pending[static_cast<std::size_t>(k)].q[i] : 0.0;
  }
  pending.erase(pending.begin(), pending.begin() + k);
  return k;
}

extern "C" __attribute__((visibility("default"))) std::int32_t kv3state(std::int32_t capacity,
                                                                       double* out,
                                                                       std::int32_t* qubits) {
  *qubits = amplitudeQubits;
  if (amplitudes.empty()) return 0;
  const std::int32_t states = std::int32_t{1} << amplitudeQubits;
  if (states > capacity) return -states;
  for (std::int32_t b = 0; b < 2 * states; ++b)
    out[b] = static_cast<std::size_t>(b) < amplitudes.size() ? amplitudes[static_cast<std::size_t>(b)] : 0.0;
  return states;
}
#endif
