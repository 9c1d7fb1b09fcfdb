// The exported entries: kv3dll and its optional companions, sharing one run context for the
// whole library, kept between calls.
#include "engine/kv3dll.h"

#include "engine/parallel.h"
#include "engine/simulator.h"
#include "engine/state_copy.h"

namespace {

// The one place the library chooses its threads: ORVEX_THREADS, else every core.
orvex::engine::Simulator& Engine() {
  static orvex::engine::Simulator simulator(orvex::engine::DefaultThreadCount());
  return simulator;
}

} // namespace

extern "C" KV3_EXPORT void KV3_CALL kv3dll(int32_t* status, int32_t* progress,
                                           int32_t* runMode, int32_t* noOutputFiles,
                                           int32_t* entry, double* x, double* y, double* z,
                                           int32_t* flags, char* programName) {
  Engine().Call(status, progress, runMode, noOutputFiles, entry, x, y, z, flags, programName);
}

extern "C" KV3_EXPORT void KV3_CALL kv3record(int32_t on) {
  Engine().Trace().SetRecording(on != 0);
}

extern "C" KV3_EXPORT int32_t KV3_CALL kv3trace(int32_t capacity, double* times, double* q,
                                                int32_t* qubits) {
  orvex::engine::TraceBuffer& trace = Engine().Trace();
  if (qubits) *qubits = trace.Qubits();
  if (capacity <= 0 || !times || !q) return 0;
  return static_cast<int32_t>(trace.Take(static_cast<std::size_t>(capacity), times, q));
}

extern "C" KV3_EXPORT int32_t KV3_CALL kv3state(int32_t capacity, double* amplitudes,
                                                int32_t* qubits) {
  return orvex::engine::CopyState(Engine(), capacity, amplitudes, qubits);
}
