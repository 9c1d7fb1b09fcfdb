// The C entry of the engine library (libkv3.so / kv3.dll).
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

void kv3dll(int32_t* status, int32_t* progress, int32_t* runMode, int32_t* noOutputFiles,
            int32_t* entry, double* x, double* y, double* z, int32_t* flags, char* programName);

#ifdef __cplusplus
}
#endif
