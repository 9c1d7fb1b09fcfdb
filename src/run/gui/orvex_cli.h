// Where the windows that run the command line (gate fidelity, sweeps) find orvex-cli.
#pragma once

#include <QString>

namespace orvex {

// The path of orvex-cli: beside the running executable, else on the search path; "" when
// neither has it.
QString OrvexCliPath();

} // namespace orvex
