// The exported entry kv3dll: one run context for the whole library, kept between calls.
#include "engine/kv3dll.h"

#include "engine/simulator.h"

extern "C" KV3_EXPORT void KV3_CALL kv3dll(int32_t* status, int32_t* progress,
                                           int32_t* runMode, int32_t* noOutputFiles,
                                           int32_t* entry, double* x, double* y, double* z,
                                           int32_t* flags, char* programName) {
  static orvex::engine::Simulator simulator;
  simulator.Call(status, progress, runMode, noOutputFiles, entry, x, y, z, flags, programName);
}
