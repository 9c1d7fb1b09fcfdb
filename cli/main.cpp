// orvex-cli: the headless command line. Normalises MI and program files and runs programs
// through the engine exactly as the workbench does.
#include <cstdio>
#include <string>

#include "cli/commands.h"

namespace {

const char* kUsage =
    "usage: orvex-cli mi normalize FILE [--qubits N]\n"
    "       orvex-cli program normalize FILE\n"
    "       orvex-cli run PROGRAM --set NAME [--home DIR] [--step program|main|all]\n"
    "                 [--output-files] [--format table|csv|json] [--order 2|4]\n"
    "                 [--trace FILE.csv]\n"
    "       orvex-cli check PROGRAM --set NAME [--home DIR] [--order 2|4]\n"
    "       orvex-cli fidelity MI-OR-PROGRAM --set NAME [--home DIR] --qubits 1,2\n"
    "                 --target GATE [--angle RADIANS] [--z-phases] [--order 2|4]\n"
    "                 (GATE: I X Y Z H S T SX RX RY RZ CNOT CZ SWAP ISWAP SQRTSWAP CPHASE;\n"
    "                 the qubit listed first is the most significant bit: CNOT on 1,2 has\n"
    "                 control 1; the other qubits start in |0>)\n"
    "       orvex-cli sweep PROGRAM --set NAME [--home DIR] --vary MI:PARAM=START:STOP:COUNT\n"
    "                 [--vary ...] [--order 2|4] [--jobs N] [--progress]\n"
    "                 (PARAM: Hx0@Q ... phi_z@Q, Jx@I-J, Jy@I-J, Jz@I-J, TimeStep,\n"
    "                 FieldSteps, IntermediateSteps; CSV on standard output)\n"
    "       orvex-cli sweep PROGRAM --set NAME [--home DIR] --vary ... [--order 2|4]\n"
    "                 --plan DIR   (a directory per point and DIR/commands, one line each)\n"
    "       orvex-cli sweep --point DIR/point-NNNN   (runs one point of a plan)\n"
    "       orvex-cli sweep --collect DIR   (the CSV of the whole plan)\n";

} // namespace

int main(int argc, char** argv) {
  orvex::cli::Args args(argv + 1, argv + argc);
  if (args.empty() || args[0] == "--help" || args[0] == "-h") {
    std::fputs(kUsage, args.empty() ? stderr : stdout);
    return args.empty() ? 2 : 0;
  }
  const std::string& command = args[0];
  if (command == "run") return orvex::cli::Run({args.begin() + 1, args.end()});
  if (command == "check") return orvex::cli::Check({args.begin() + 1, args.end()});
  if (command == "fidelity") return orvex::cli::Fidelity({args.begin() + 1, args.end()});
  if (command == "sweep") return orvex::cli::Sweep({args.begin() + 1, args.end()});
  if (args.size() >= 2 && args[1] == "normalize") {
    orvex::cli::Args rest(args.begin() + 2, args.end());
    if (command == "mi") return orvex::cli::MiNormalize(rest);
    if (command == "program") return orvex::cli::ProgramNormalize(rest);
  }
  std::fprintf(stderr, "orvex-cli: unknown command '%s'\n%s", command.c_str(), kUsage);
  return 2;
}
