// Fuzz driver for the file readers: feeds generated, mutated and random bytes to the MI
// reader, the engine's MI adapter and the program reader, and checks that none crashes or
// throws anything but the run-time errors it documents, and that writing what was read is a
// fixed point after one round whenever the writers can carry the record (file_generators.h).
// CTest runs each target for a few seconds; run longer by hand:
//   fuzz_files <mi|engine|program> <seconds> [seed]     e.g.  fuzz_files mi 600
// A failing input is written to fuzz-failure.bin in the current directory.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>

#include "engine/mi_file.h"
#include "fuzz/file_generators.h"
#include "mi/mi_format.h"
#include "program/program_file.h"

namespace {

using orvex::MicroInstruction;

[[noreturn]] void Fail(const std::string& why, const std::string& input) {
  std::fprintf(stderr, "fuzz failure: %s\n", why.c_str());
  if (std::FILE* f = std::fopen("fuzz-failure.bin", "wb")) {
    std::fwrite(input.data(), 1, input.size(), f);
    std::fclose(f);
    std::fprintf(stderr, "input written to fuzz-failure.bin (%zu bytes)\n", input.size());
  }
  std::exit(1);
}

// The reader takes the text or refuses it with a run-time error; what it takes, written and
// read again, writes the same bytes.
void CheckMiReader(const std::string& x) {
  MicroInstruction once;
  once.Name = "INITIALIZE.MI";
  try {
    orvex::ParseMI(x, once);
  } catch (const orvex::RuntimeError&) {
    return;
  }
  if (!orvex::fuzz::WritableDescription(once)) return;
  const std::string first = orvex::FormatMI(once, 4, 0.25);
  MicroInstruction twice;
  twice.Name = "INITIALIZE.MI";
  try {
    orvex::ParseMI(first, twice);
  } catch (const orvex::RuntimeError& e) {
    Fail("the reader refuses what the writer wrote: " + e.description(), x);
  }
  if (orvex::FormatMI(twice, 4, 0.25) != first) Fail("write(read(x)) is no fixed point", x);
}

// The adapter answers with an MI or a syntax code; an MI it takes, written back by the
// workbench, is taken too and evolves the same way.
void CheckEngine(const std::string& x) {
  namespace engine = orvex::engine;
  engine::MiFile f;
  const engine::EngineError e = engine::ParseMi("x.MI", x, f);
  if (e) {
    if (e.code > -1 || e.code < -19) Fail("not a syntax code: " + e.LogLine(), x);
    return;
  }
  MicroInstruction mi;
  orvex::MIReadTrace trace;
  orvex::ParseMI(x, mi, "", &trace);
  const std::string rewritten = orvex::FormatMI(mi, trace.maxQubit, 0.25);
  engine::MiFile g;
  const engine::EngineError e2 = engine::ParseMi("x.MI", rewritten, g);
  if (e2) Fail("the engine refuses the rewrite: " + e2.LogLine(), x);
  // The writer prints 15 significant digits.
  auto close = [](double a, double b) {
    return std::fabs(a - b) <= 1e-14 * std::max(std::fabs(a), std::fabs(b));
  };
  bool same = f.maxQubit == g.maxQubit && f.fieldSteps == g.fieldSteps &&
              f.intermediateSteps == g.intermediateSteps && close(f.timeStep, g.timeStep) &&
              f.couplings.size() == g.couplings.size();
  for (std::size_t q = 0; same && q < f.field.size(); ++q)
    for (std::size_t k = 0; same && k < f.field[q].size(); ++k)
      same = close(f.field[q][k], g.field[q][k]);
  for (std::size_t k = 0; same && k < f.couplings.size(); ++k) {
    const engine::Coupling &a = f.couplings[k], &b = g.couplings[k];
    same = a.i == b.i && a.j == b.j && close(a.jx, b.jx) && close(a.jy, b.jy) &&
           close(a.jz, b.jz);
  }
  if (!same) Fail("the rewrite evolves differently", x);
}

void CheckProgram(const std::string& x) {
  const std::vector<orvex::ProgramRow> rows = orvex::ParseProgram(x);
  if (!orvex::fuzz::WritableNames(rows)) return;
  const std::string first = orvex::FormatProgram("p.kvp", rows);
  if (orvex::FormatProgram("p.kvp", orvex::ParseProgram(first)) != first)
    Fail("program write(read(x)) is no fixed point", x);
}

} // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: %s <mi|engine|program> <seconds> [seed]\n", argv[0]);
    return 2;
  }
  const std::string target = argv[1];
  void (*check)(const std::string&) = target == "mi"        ? CheckMiReader
                                      : target == "engine"  ? CheckEngine
                                      : target == "program" ? CheckProgram
                                                            : nullptr;
  if (!check) {
    std::fprintf(stderr, "unknown target %s\n", target.c_str());
    return 2;
  }
  const double seconds = std::atof(argv[2]);
  orvex::fuzz::Rng rng(argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1);
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  long runs = 0;
  std::string x;
  do {
    for (int k = 0; k < 64; ++k, ++runs) {
      const std::string seed = target == "program" ? orvex::fuzz::GenerateProgram(rng)
                                                   : orvex::fuzz::GenerateMi(rng).text;
      switch (runs % 4) {
      case 0: x = seed; break;
      case 3: x = orvex::fuzz::RandomBytes(rng); break;
      default: x = orvex::fuzz::Mutate(rng, seed); break;
      }
      try {
        check(x);
      } catch (const std::exception& e) {
        Fail(std::string("unexpected exception: ") + e.what(), x);
      }
    }
  } while (std::chrono::steady_clock::now() < end);
  std::printf("%s: %ld inputs, no failure\n", target.c_str(), runs);
  return 0;
}
