#include "strings/internal/LCharsetsKernels.h"

#include <sys/platform/x86.h>

// The flags that the sources of the two vector forms are compiled with are the features asked for here. The C library
// knows them; the compiler's own question would be put to the processor at the start of each program, and on a virtual
// machine that takes as long as loading a library.
const LCharsetsKernels* const* LCharsetsKernelsHere() {
    static const LCharsetsKernels* const* const pHere = [] {
        static LCharsetsKernels const* pList[4] = {&LCharsetsPortableKernels};
        int nCount = 1;
        if (CPU_FEATURE_ACTIVE(AVX2) && CPU_FEATURE_ACTIVE(BMI2) && CPU_FEATURE_ACTIVE(POPCNT)) {
            pList[nCount++] = &LCharsetsAVX2Kernels;
            if (CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512BW) && CPU_FEATURE_ACTIVE(AVX512VL) &&
                CPU_FEATURE_ACTIVE(AVX512_VBMI) && CPU_FEATURE_ACTIVE(AVX512_VBMI2))
                pList[nCount++] = &LCharsetsAVX512Kernels;
        }
        return pList;
    }();
    return pHere;
}
