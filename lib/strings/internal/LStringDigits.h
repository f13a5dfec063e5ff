// Decimal digits. Internal to the strings.
//
// Thread-safety: touches only its arguments.
#pragma once

#include <array>
#include <cstring>

constexpr auto LDigitPairs = [] {
    std::array<std::array<char, 2>, 100> pairs{};
    for (unsigned i = 0; i < 100; ++i)
        pairs[i] = {static_cast<char>('0' + i / 10), static_cast<char>('0' + i % 10)};
    return pairs;
}();

// Stores the number's digits before pEnd and returns where they begin.
template <typename TUnsigned>
char* LStoreDecimal(char* pEnd, TUnsigned nValue) {
    while (nValue >= 100) {
        pEnd -= 2;
        std::memcpy(pEnd, LDigitPairs[nValue % 100].data(), 2);
        nValue /= 100;
    }
    if (nValue >= 10) {
        pEnd -= 2;
        std::memcpy(pEnd, LDigitPairs[nValue].data(), 2);
    } else
        *--pEnd = static_cast<char>('0' + nValue);
    return pEnd;
}
