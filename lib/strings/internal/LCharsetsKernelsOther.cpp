#include "strings/internal/LCharsetsKernels.h"

// For processors without kernels of their own.
const LCharsetsKernels* const* LCharsetsKernelsHere() {
    static constexpr const LCharsetsKernels* kList[] = {&LCharsetsPortableKernels, nullptr};
    return kList;
}
