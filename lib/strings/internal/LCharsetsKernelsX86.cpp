#include "strings/internal/LCharsetsKernels.h"

// The flags that the sources of the two vector forms are compiled with are the features asked for here.
const LCharsetsKernels* const* LCharsetsKernelsHere() {
    static const LCharsetsKernels* const* const pHere = [] {
        static LCharsetsKernels const* pList[4] = {&LCharsetsPortableKernels};
        int nCount = 1;
        __builtin_cpu_init();
        if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2") &&
            __builtin_cpu_supports("popcnt")) {
            pList[nCount++] = &LCharsetsAVX2Kernels;
            if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
                __builtin_cpu_supports("avx512vbmi2"))
                pList[nCount++] = &LCharsetsAVX512Kernels;
        }
        return pList;
    }();
    return pHere;
}
