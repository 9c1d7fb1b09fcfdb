// "mi normalize" and "program normalize": read a file the way the workbench reads it and
// print exactly what the workbench would write back, without touching the disk.
#include <cstdio>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "mi/mi_file.h"
#include "miset/qubits_file.h"
#include "program/program_file.h"
#include "workspace/errors.h"
#include "workspace/numbers.h"
#include "workspace/paths.h"

namespace orvex::cli {

namespace {

const char* const kMiUsage = "usage: orvex-cli mi normalize FILE [--qubits N]\n";
const char* const kProgramUsage = "usage: orvex-cli program normalize FILE\n";

int Usage(const char* usage) {
  std::fputs(usage, stderr);
  return 2;
}

int Fail(const std::string& file, const std::string& reason) {
  std::fprintf(stderr, "orvex-cli: %s: %s\n", file.c_str(), reason.c_str());
  return 2;
}

void Print(const std::string& bytes) {
  std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  std::fflush(stdout);
}

// The whole argument must be a decimal integer.
std::optional<int> ParseCount(const std::string& text) {
  std::size_t used = 0;
  double v = Val(text, used);
  if (used == 0 || used != text.size() || v != Int(v)) return std::nullopt;
  if (v < 1 || v > kMaxQubits) return std::nullopt;
  return static_cast<int>(v);
}

// The seed written after "INITIAL STATE: RANDOM", so a random initial state normalises to
// the same bytes instead of a fresh seed. nullopt when the file holds no usable seed.
std::optional<double> SeedOf(const std::string& text) {
  const std::vector<std::string> lines = SplitLines(text);
  std::optional<double> seed;
  for (std::size_t i = 0; i + 1 < lines.size(); ++i) {
    const std::string u = Trim(Upper(lines[i]));
    if (u.find("INITIAL STATE") == std::string::npos) continue;
    // The same precedence as the reader: the last line naming a state decides.
    auto has = [&u](const char* what) { return u.find(what) != std::string::npos; };
    if (has(": GROUND STATE") || has(": SPIN UP") || has(": SPIN DOWN")) {
      seed.reset();
      continue;
    }
    if (!has(": RANDOM")) continue;
    seed.reset();
    double v = Val(lines[i + 1]);
    if (v == Int(v) && v >= 1 && v <= 278332379) seed = v;
  }
  return seed;
}

} // namespace

int MiNormalize(const Args& args) {
  std::optional<std::string> file;
  std::optional<int> qubits;
  for (std::size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--qubits") {
      if (i + 1 >= args.size() || qubits) return Usage(kMiUsage);
      qubits = ParseCount(args[++i]);
      if (!qubits) return Usage(kMiUsage);
    } else if (!file && !args[i].empty() && args[i][0] != '-') {
      file = args[i];
    } else {
      return Usage(kMiUsage);
    }
  }
  if (!file) return Usage(kMiUsage);

  try {
    const std::string text = ReadWholeFile(*file);
    MicroInstruction mi;
    mi.Name = FileNameOf(*file);  // INITIALIZE.MI keeps its initial-state lines
    ParseMI(text, mi, *file);

    Workspace ws;
    if (qubits) {
      ws.NumberOfQubits = static_cast<std::int16_t>(*qubits);
    } else {
      ws.MISetPath = DirectoryOf(NormalizeSeparators(*file));
      // Read qubits.dat only when it is a file: the reader writes one in place of anything
      // else (a dangling link, say), and normalising never writes.
      const std::optional<std::string> qubitsFile = FindPath(ws.MISetPath, "qubits.dat");
      if (qubitsFile && FileExists(*qubitsFile)) ReadQubitsFile(ws);
      else ws.NumberOfQubits = 2;
    }

    // A random generator value that reproduces the file's seed: Int(r * 278332379) + 1.
    double rnd = ws.Rnd();
    if (std::optional<double> seed = SeedOf(text)) rnd = (*seed - 0.5) / 278332379.0;
    Print(FormatMI(mi, ws.NumberOfQubits, rnd));
    return 0;
  } catch (const RuntimeError& e) {
    return Fail(*file, e.description());
  }
}

int ProgramNormalize(const Args& args) {
  if (args.size() != 1 || args[0].empty() || args[0][0] == '-') return Usage(kProgramUsage);
  const std::string& file = args[0];
  try {
    Print(FormatProgram(NormalizeSeparators(file), ReadProgramRows(file)));
    return 0;
  } catch (const RuntimeError& e) {
    return Fail(file, e.description());
  }
}

} // namespace orvex::cli
