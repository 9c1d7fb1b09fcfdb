// The subcommands of orvex-cli; each takes the arguments after its own name and returns the
// process exit status (0 success, 2 failure with a one-line message on standard error).
#pragma once

#include <string>
#include <vector>

namespace orvex::cli {

using Args = std::vector<std::string>;

int MiNormalize(const Args& args);       // orvex-cli mi normalize FILE [--qubits N]
int ProgramNormalize(const Args& args);  // orvex-cli program normalize FILE
int Run(const Args& args);               // orvex-cli run PROGRAM --set NAME [...]
int Check(const Args& args);             // orvex-cli check PROGRAM --set NAME [...]
int Fidelity(const Args& args);          // orvex-cli fidelity MI-OR-PROGRAM --set NAME [...]
int Sweep(const Args& args);             // orvex-cli sweep PROGRAM --set NAME --vary SPEC [...]

} // namespace orvex::cli
