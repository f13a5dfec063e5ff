#include "strings/internal/LStringDouble.h"

#include "strings/internal/LStringDigits.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <langinfo.h>

namespace {

using Wide = unsigned __int128;

constexpr int kFractionBits = 52;
constexpr int kExponentBias = 1023;
constexpr int kMostScale = 22;     // 53 bits times this power of ten, and a bit, fit into 128
constexpr int kMostPrecision = 15; // with as many places again for a small number's zeros fits into 64
constexpr int kMostShift = 75;     // 53 bits so far up fit into 128

constexpr auto kPowers = [] {
    std::array<Wide, kMostScale + 1> powers{1};
    for (std::size_t i = 1; i < powers.size(); ++i)
        powers[i] = 10 * powers[i - 1];
    return powers;
}();

std::uint64_t Power(int nPlaces) {
    return static_cast<std::uint64_t>(kPowers[static_cast<std::size_t>(nPlaces)]);
}

// Not by `fegetround`, for which a program would have to load the library of mathematics.
bool RoundsToNearest() {
    static constinit volatile double nTiny = 0x1p-60;
    const double nRead = nTiny;
    return 1 + nRead == 1 - nRead;
}

// A positive number is nDigits times 2 to the nShift.
struct Binary {
    explicit Binary(double nValue) {
        const auto qwBits = std::bit_cast<std::uint64_t>(nValue);
        const int nField = static_cast<int>(qwBits >> kFractionBits);
        qwDigits = qwBits & ((std::uint64_t{1} << kFractionBits) - 1);
        if (nField != 0)
            qwDigits |= std::uint64_t{1} << kFractionBits;
        nShift = std::max(nField, 1) - kExponentBias - kFractionBits;
    }

    std::uint64_t qwDigits;
    int nShift;
};

// Halves go to the even number. False when that has more than 64 bits.
bool Round(Wide wWhole, Wide wTwiceRest, Wide wDivisor, std::uint64_t& qwRounded) {
    qwRounded = static_cast<std::uint64_t>(wWhole);
    if (wWhole >= UINT64_MAX)
        return false;
    if (wTwiceRest > wDivisor || (wTwiceRest == wDivisor && qwRounded % 2 != 0))
        ++qwRounded;
    return true;
}

bool Multiply(const Binary& number, Wide wPower, std::uint64_t& qwRounded) {
    const Wide wProduct = number.qwDigits * wPower;
    if (number.nShift >= 0)
        return number.nShift < 64 && wProduct >> (64 - number.nShift) == 0 &&
               Round(wProduct << number.nShift, 0, 1, qwRounded);
    const int nPlaces = -number.nShift;
    if (nPlaces >= 128) // less than a half
        return Round(0, 0, 1, qwRounded);
    const Wide wOne = Wide{1} << nPlaces;
    return Round(wProduct >> nPlaces, (wProduct & (wOne - 1)) << 1, wOne, qwRounded);
}

bool Divide(const Binary& number, Wide wPower, std::uint64_t& qwRounded) {
    if (number.nShift > kMostShift || number.nShift < -kFractionBits)
        return false;
    const Wide wNumber = Wide{number.qwDigits} << std::max(number.nShift, 0);
    const Wide wDivisor = wPower << std::max(-number.nShift, 0);
    const Wide wWhole = wNumber / wDivisor;
    return Round(wWhole, (wNumber - wWhole * wDivisor) << 1, wDivisor, qwRounded);
}

// The number times 10 to the nScale, rounded. False when it, or what takes part, is too large.
bool Scale(const Binary& number, int nScale, std::uint64_t& qwRounded) {
    if (std::abs(nScale) > kMostScale)
        return false;
    const Wide wPower = kPowers[static_cast<std::size_t>(std::abs(nScale))];
    return nScale >= 0 ? Multiply(number, wPower, qwRounded) : Divide(number, wPower, qwRounded);
}

// One digit, and so many places behind it, times 10 to the nExponent. The exponent that the bits tell is the right one
// or one less, and one more again where all digits are rounded up.
bool ScaleToOneDigit(double nValue, int nPlaces, std::uint64_t& qwDigits, int& nExponent) {
    qwDigits = 0;
    nExponent = 0;
    if (nValue == 0)
        return true;
    const Binary number(nValue);
    constexpr int kLog = 78913; // of 2 to the base of 10, times 2 to the 18
    nExponent = ((number.nShift + kFractionBits) * kLog) >> 18;
    for (;; ++nExponent) {
        if (!Scale(number, nPlaces - nExponent, qwDigits))
            return false;
        if (qwDigits < Power(nPlaces + 1))
            return true;
    }
}

// Null when the point would have to be longer than a character.
char* StorePlaces(char* pEnd, std::uint64_t qwDigits, int nPlaces) {
    if (nPlaces == 0)
        return LStoreDecimal(pEnd, qwDigits);
    const char* const szPoint = nl_langinfo(RADIXCHAR);
    if (szPoint[0] == 0 || szPoint[1] != 0)
        return nullptr;
    char* const pPlaces = pEnd - nPlaces;
    for (char* p = LStoreDecimal(pEnd, qwDigits % Power(nPlaces)); p > pPlaces;)
        *--p = '0';
    pEnd = pPlaces;
    *--pEnd = szPoint[0];
    return LStoreDecimal(pEnd, qwDigits / Power(nPlaces));
}

char* StoreExponent(char* pEnd, char nConversion, int nExponent) {
    char* p = LStoreDecimal(pEnd, static_cast<unsigned>(std::abs(nExponent)));
    if (p == pEnd - 1)
        *--p = '0';
    *--p = nExponent < 0 ? '-' : '+';
    *--p = nConversion;
    return p;
}

void DropZeros(std::uint64_t& qwDigits, int& nPlaces) {
    for (; nPlaces > 0 && qwDigits % 10 == 0; --nPlaces)
        qwDigits /= 10;
}

} // namespace

char* LStoreDouble(char* pEnd, char nConversion, int nPrecision, double nValue) {
    int nPlaces = nPrecision < 0 ? 6 : nPrecision;
    if (nPlaces > kMostPrecision || !RoundsToNearest())
        return nullptr;
    std::uint64_t qwDigits;
    const char nKind = static_cast<char>(nConversion | 0x20);
    if (nKind == 'f')
        return Scale(Binary(nValue), nPlaces, qwDigits) ? StorePlaces(pEnd, qwDigits, nPlaces) : nullptr;
    if (nKind == 'g')
        nPlaces = std::max(nPlaces, 1) - 1;
    int nExponent;
    if (!ScaleToOneDigit(nValue, nPlaces, qwDigits, nExponent))
        return nullptr;
    if (nKind == 'g') {
        const bool bPlain = nExponent >= -4 && nExponent <= nPlaces;
        nPlaces -= bPlain ? nExponent : 0;
        DropZeros(qwDigits, nPlaces);
        if (bPlain)
            return StorePlaces(pEnd, qwDigits, nPlaces);
    }
    pEnd = StoreExponent(pEnd, static_cast<char>((nConversion & 0x20) | 'E'), nExponent);
    return StorePlaces(pEnd, qwDigits, nPlaces);
}
