// Name and version the engine writes at the top of its log.
#pragma once

namespace orvex::engine {
inline constexpr const char* kEngineName = "Orvex simulation engine (kv3)";
inline constexpr const char* kEngineVersion = "1.0.0";
} // namespace orvex::engine
