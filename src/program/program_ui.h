// The hooks of the program operations are the run controller's: one interface for the windows.
#pragma once

#include "run/run_ui.h"

namespace orvex {
using ProgramUi = RunUi;
} // namespace orvex
