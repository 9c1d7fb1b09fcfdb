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

#ifdef __cplusplus
}
#endif
