#include "strings/internal/LCharsetsKernels.h"

constinit const LCharsetsKernels LCharsetsPortableKernels = {
    "portable", LCharsetsDecodePortable<wchar_t>, LCharsetsDecodePortable<unsigned short>,
    LCharsetsEncodePortable<wchar_t>, LCharsetsEncodePortable<unsigned short>};

const LCharsetsKernels& LCharsetsFastestKernels() {
    static const LCharsetsKernels& fastest = []() -> const LCharsetsKernels& {
        LCharsetsKernels const* const* ppWalk = LCharsetsKernelsHere();
        while (ppWalk[1] != nullptr)
            ++ppWalk;
        return **ppWalk;
    }();
    return fastest;
}
