// The simulation engine, loaded at run time by path so that any library honouring the kv3dll
// contract can stand in (the real engine, a test double). Qt-free.
#pragma once

#include <cstdint>
#include <string>

namespace orvex {

// The engine's single entry (C linkage). x, y, z hold 32 doubles (qubit q at q - 1), flags 4
// words, programName 33 writable bytes: 32 characters padded with blanks, then a NUL.
using Kv3Entry = void (*)(std::int32_t* status, std::int32_t* progress, std::int32_t* runMode,
                          std::int32_t* noOutputFiles, std::int32_t* entry, double* x, double* y,
                          double* z, std::int32_t* flags, char* programName);

// The engine's optional entries, looked up by name; null when the library lacks them.
//   kv3record(on): recording of trace records on/off, set before the start call.
//   kv3trace(capacity, times, q, qubits): moves up to `capacity` pending records, oldest first,
//     out of the engine (times[k], q[(k*32 + q-1)*3 + c] = Q of qubit q, c = x, y, z; *qubits =
//     N); returns the number moved. Records: one per completed main step and per initial-state
//     MI, emptied at each start and reset.
//   kv3state(capacity, amplitudes, qubits): the 2^N amplitudes as re, im pairs (basis index
//     b = sum of bit_q 2^(q-1)) when 2^N <= capacity; returns 2^N, 0 without a run context,
//     -(2^N) when the capacity is too small.
using Kv3Record = void (*)(std::int32_t on);
using Kv3Trace = std::int32_t (*)(std::int32_t capacity, double* times, double* q,
                                  std::int32_t* qubits);
using Kv3State = std::int32_t (*)(std::int32_t capacity, double* amplitudes, std::int32_t* qubits);
struct EngineExtras {
  Kv3Record record = nullptr;
  Kv3Trace trace = nullptr;
  Kv3State state = nullptr;
};

// The run-time's "Error in loading DLL", raised when the library or its entry is missing.
inline constexpr int kErrorLoadingLibrary = 48;

class EngineLibrary {
public:
  // Where the engine is looked for: $ORVEX_ENGINE when set and non-empty (a relative path
  // with a "/" taken against $PWD, the directory the process was started in; a bare name is
  // searched as the loader does), else "libkv3.so" beside the running executable.
  static std::string DefaultPath();
  // The entry `kv3dll` of the library at `path`. A library is opened once per path and stays
  // loaded for the life of the process. Throws RuntimeError 48 ("Error in loading DLL ...",
  // naming the path and the loader's reason) when it cannot be loaded or lacks the entry.
  static Kv3Entry Load(const std::string& path);
  // Load(DefaultPath()).
  static Kv3Entry Load() { return Load(DefaultPath()); }
  // The optional entries of the library at `path` (loaded as Load does, same errors).
  static EngineExtras Extras(const std::string& path);
  static EngineExtras Extras() { return Extras(DefaultPath()); }
};

} // namespace orvex
