// The C entry of the engine library (libkv3.so / kv3.dll).
#pragma once

#include <stdint.h>

// Callee-pops convention where the platform has one (32-bit Windows).
#if defined(_WIN32) && !defined(_WIN64)
#define KV3_CALL __stdcall
#else
#define KV3_CALL
#endif

#if defined(_WIN32)
#define KV3_EXPORT __declspec(dllexport)
#else
#define KV3_EXPORT __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

void KV3_CALL kv3dll(int32_t* status, int32_t* progress, int32_t* runMode,
                     int32_t* noOutputFiles, int32_t* entry, double* x, double* y, double* z,
                     int32_t* flags, char* programName);

// Optional entries beside kv3dll (a caller looks them up by name and does without them when a
// stand-in engine lacks them).
//
// The trace: one record per completed main step and per initial-state MI, the very values
// (and times) the output files qubitNN.out get, kept whether or not those files are written,
// but only while recording is on. Recording is off by default (and costs nothing then);
// kv3record(1) turns it on, kv3record(0) off; call it before the start call; it is kept
// across runs.
void KV3_CALL kv3record(int32_t on);
// Moves up to `capacity` pending records, oldest first, out of the engine's buffer and
// returns how many: times[k] is the program time of record k, q[(k*32 + qubit-1)*3 + c] Q of
// that qubit (c = 0, 1, 2 for x, y, z; Q = (1 - <sigma>)/2 as in x, y, z; entries above N are
// 0), so times holds `capacity` doubles and q 96 * `capacity`. *qubits = N of the run (0 when
// there is none). The buffer is emptied at every start (entry -1) and clean-up or reset (-2).
int32_t KV3_CALL kv3trace(int32_t capacity, double* times, double* q, int32_t* qubits);
// Copies the register's current amplitudes, 2^N complex numbers as (re, im) pairs (so
// `amplitudes` holds 2 * capacity doubles), basis index b = sum of bit_q * 2^(q-1), when
// 2^N <= capacity, and returns 2^N; returns 0 (and *qubits = 0) when no run context exists,
// -(2^N) when capacity is too small (nothing copied; INT32_MIN for N >= 31). *qubits = N.
// After a call that returned inside a sub-step (large registers) the amplitudes are those of
// the half-applied sub-step.
int32_t KV3_CALL kv3state(int32_t capacity, double* amplitudes, int32_t* qubits);

#ifdef __cplusplus
}
#endif
