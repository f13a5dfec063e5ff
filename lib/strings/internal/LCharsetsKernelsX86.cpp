#include "strings/internal/LCharsetsKernels.h"

#include <sys/platform/x86.h>

// The flags that the source of the vector form is compiled with are the features asked for here. The C library knows
// them; the compiler's own question would be put to the processor at the start of each program, and on a virtual
// machine that takes as long as loading a library.
const LCharsetsKernels* const* LCharsetsKernelsHere() {
    static const LCharsetsKernels* const* const pHere = [] {
        static LCharsetsKernels const* pList[3] = {&LCharsetsPortableKernels};
        if (CPU_FEATURE_ACTIVE(AVX2) && CPU_FEATURE_ACTIVE(BMI2) && CPU_FEATURE_ACTIVE(POPCNT) &&
            CPU_FEATURE_ACTIVE(AVX512F) && CPU_FEATURE_ACTIVE(AVX512BW) && CPU_FEATURE_ACTIVE(AVX512VL) &&
            CPU_FEATURE_ACTIVE(AVX512_VBMI) && CPU_FEATURE_ACTIVE(AVX512_VBMI2))
            pList[1] = &LCharsetsAVX512Kernels;
        return pList;
    }();
    return pHere;
}
