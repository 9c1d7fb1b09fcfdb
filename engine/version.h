// Name and version the engine writes at the top of its log.
#pragma once

#include "orvex_version.h"

namespace orvex::engine {
inline constexpr const char* kEngineName = "Orvex simulation engine (kv3)";
inline constexpr const char* kEngineVersion = ORVEX_VERSION_STRING;
} // namespace orvex::engine
