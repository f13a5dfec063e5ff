// The portable decoder. Text of mixed lengths is decoded without a jump that depends on it: what each byte of
// a window would be the lead of is worked out side by side, all of it is stored one behind the other, and
// what begins no character is overwritten by the next.
#include "strings/internal/LCharsetsKernels.h"
#include "strings/internal/LCharsetsVectors.h"

#include <bit>

namespace {

using Bytes = LCharsetsBytes;
using Words = LCharsetsWords;
using Values = LCharsetsValues;
using Pairs = LCharsetsPairs;

constexpr std::size_t kWindow = sizeof(Bytes);
constexpr std::size_t kStretch = 5 * kWindow; // bytes that are decoded alike, by the longest sequence in them
constexpr std::size_t kBehind = 4;            // bytes behind a window that are looked at with it
constexpr std::size_t kWord = sizeof(std::uint64_t);

// ---- One sequence ----

// What the lead and the marks of the following bytes add up to, by the length of the sequence.
constexpr std::uint32_t kMarksOf2 = 0x00003080;
constexpr std::uint32_t kMarksOf3 = 0x000E2080;
constexpr std::uint32_t kMarksOf4 = 0x03C82080;

constexpr std::uint32_t kHighestValue = 0x10FFFF;

struct Sequence {
    std::size_t nLength; // 0: ill-formed, or not whole
    std::uint32_t nValue;
};

bool IsFollowing(unsigned char byte) {
    return (byte & 0xC0) == 0x80;
}

// One sequence that does not begin with an ASCII byte. Judging the value by its length finds the overlong
// forms, the surrogates and what is too large without a look at the second byte.
Sequence DecodeSequence(const unsigned char* p, std::size_t nBytes) {
    if (p[0] < 0xE0) {
        if (p[0] < 0xC2 || nBytes < 2 || !IsFollowing(p[1]))
            return {};
        return {2, (std::uint32_t{p[0]} << 6) + p[1] - kMarksOf2};
    }
    if (p[0] < 0xF0) {
        if (nBytes < 3 || !IsFollowing(p[1]) || !IsFollowing(p[2]))
            return {};
        const std::uint32_t nValue =
            (std::uint32_t{p[0]} << 12) + (std::uint32_t{p[1]} << 6) + p[2] - kMarksOf3;
        return {nValue < 0x800 || (nValue & 0xF800) == 0xD800 ? 0U : 3U, nValue};
    }
    if (p[0] >= 0xF8 || nBytes < 4 || !IsFollowing(p[1]) || !IsFollowing(p[2]) || !IsFollowing(p[3]))
        return {};
    const std::uint32_t nValue = (std::uint32_t{p[0]} << 18) + (std::uint32_t{p[1]} << 12) +
                                 (std::uint32_t{p[2]} << 6) + p[3] - kMarksOf4;
    return {nValue < 0x10000 || nValue > kHighestValue ? 0U : 4U, nValue};
}

bool IsASCIIWord(const unsigned char* p) {
    return (LCharsetsLoad<std::uint64_t>(p) & 0x8080808080808080) == 0;
}

// ---- Four sequences of one length ----

// Whether two of them stand at p, as far as its eight bytes tell.
template <std::size_t nLength>
bool IsRun(const unsigned char* p) {
    constexpr std::uint64_t kMask = nLength == 3 ? 0xC0F0C0C0F0C0C0F0 : 0xC0C0C0F8C0C0C0F8;
    constexpr std::uint64_t kMarks = nLength == 3 ? 0x80E08080E08080E0 : 0x808080F0808080F0;
    return (LCharsetsLoad<std::uint64_t>(p) & kMask) == kMarks;
}

// False when they are not there or one of them is at fault.
template <std::size_t nLength, typename TUnit>
bool DecodeRun(TUnit* dst, const unsigned char* p) {
    const auto Lane = [p](std::size_t i) { return LCharsetsLoad<std::uint32_t>(p + i * nLength); };
    const Values bytes = {Lane(0), Lane(1), Lane(2), Lane(3)};
    Values values;
    Values faults;
    if constexpr (nLength == 3) {
        values = (bytes & 0x0F) << 12 | (bytes >> 2 & 0xFC0) | (bytes >> 16 & 0x3F);
        faults = (bytes & 0xC0C0F0) ^ 0x8080E0;
        faults |= ~LCharsetsAbove(values, 0x7FF) | Values((values & 0xF800) == 0xD800);
    } else {
        values = (bytes & 0x07) << 18 | (bytes << 4 & 0x3F000) | (bytes >> 10 & 0xFC0) | (bytes >> 24 & 0x3F);
        faults = (bytes & 0xC0C0C0F8) ^ 0x808080F0;
        faults |= ~LCharsetsAbove(values, 0xFFFF) | LCharsetsAbove(values, kHighestValue);
    }
    if (LCharsetsAny(faults))
        return false;
    LCharsetsStore(dst, __builtin_convertvector(values, typename LCharsetsVectorOf<TUnit, 4>::Type));
    return true;
}

// ---- A window ----

// Lanes n places up, or down; zeros move in.
template <int n>
Bytes Up(Bytes bytes) {
    return __builtin_shufflevector(Bytes{}, bytes, 16 - n, 17 - n, 18 - n, 19 - n, 20 - n, 21 - n, 22 - n,
                                   23 - n, 24 - n, 25 - n, 26 - n, 27 - n, 28 - n, 29 - n, 30 - n, 31 - n);
}
template <int n>
Bytes Down(Bytes bytes) {
    return __builtin_shufflevector(bytes, Bytes{}, n, n + 1, n + 2, n + 3, n + 4, n + 5, n + 6, n + 7, n + 8,
                                   n + 9, n + 10, n + 11, n + 12, n + 13, n + 14, n + 15);
}

Bytes Following(Bytes bytes) {
    return LCharsetsVectorOf<std::int8_t, 16>::Type(bytes) < -0x40;
}

// Bytes that the characters of the window take behind it; more than three when the window is at fault. The
// window begins with a character.
template <int nLongest>
std::size_t BytesBehind(const unsigned char* p) {
    const Bytes first = LCharsetsLoad<Bytes>(p);
    const Bytes lead2 = LCharsetsAtLeast(first, 0xC0); // of two bytes or more, and so on
    Bytes wanted = Up<1>(lead2);
    Bytes behind = Down<15>(lead2);
    Bytes faults = (first & 0xFE) == 0xC0;
    if constexpr (nLongest > 2) {
        const Bytes second = LCharsetsLoad<Bytes>(p + 1);
        const Bytes lead3 = LCharsetsAtLeast(first, 0xE0);
        const Bytes fromA0 = LCharsetsAtLeast(second, 0xA0);
        wanted |= Up<2>(lead3);
        behind |= Down<14>(lead3);
        faults |= (Bytes(first == 0xE0) & ~fromA0) | (Bytes(first == 0xED) & fromA0);
        if constexpr (nLongest > 3) {
            const Bytes lead4 = LCharsetsAtLeast(first, 0xF0);
            const Bytes from90 = LCharsetsAtLeast(second, 0x90);
            wanted |= Up<3>(lead4);
            behind |= Down<13>(lead4);
            faults |= (Bytes(first == 0xF0) & ~from90) | (Bytes(first == 0xF4) & from90);
            faults |= LCharsetsAtLeast(first, 0xF5);
        }
    }
    faults |= wanted ^ Following(first);
    const auto nBehind = static_cast<std::uint32_t>(LCharsetsPairs(behind)[0]);
    const auto nNext = LCharsetsLoad<std::uint32_t>(p + kWindow);
    if (LCharsetsAny(faults) || ((nNext ^ 0x808080) & 0xC0C0C0 & nBehind) != 0)
        return kWindow;
    return (nBehind & 0x010101) * 0x010101 >> 16 & 3;
}

// The 8 values that the bytes of a half would be the leads of: their low 16 bits, and what is above them.
struct Joined {
    Words low, high;
};

template <int nLongest, int nHalf>
Joined Join(const unsigned char* p) {
    const auto Byte = [p](int n) { return LCharsetsWiden<nHalf * 8>(LCharsetsLoad<Bytes>(p + n)); };
    const Words first = Byte(0);
    const Words second = Byte(1);
    const Words two = (first & 0x1F) << 6 | (second & 0x3F);
    Joined joined = {two, {}};
    if constexpr (nLongest > 2) {
        const Words three = two << 6 | (Byte(2) & 0x3F);
        joined.low = LCharsetsSelect(LCharsetsAbove(first, 0xDF), three, two);
        if constexpr (nLongest > 3) {
            const Words four = three << 6 | (Byte(3) & 0x3F);
            const Words lead4 = LCharsetsAbove(first, 0xEF);
            joined.low = LCharsetsSelect(lead4, four, joined.low);
            joined.high = ((first & 7) << 2 | (second >> 4 & 3)) & lead4;
        }
    }
    joined.low = LCharsetsSelect(LCharsetsAbove(first, 0x7F), joined.low, first);
    return joined;
}

// Stores values by twos, each two where the byte before says that they go: the first of the two is left out
// where `skipped` says so.
void StorePairs(unsigned short* dst, const Joined& joined, Values skipped, std::uint64_t nPlaces) {
    const Values both = Values(joined.low);
    const auto pairs = LCharsetsPairs(LCharsetsSelect(skipped, both >> 16, both));
#pragma GCC unroll 4
    for (int i = 0; i < 4; ++i)
        LCharsetsStore(dst + (nPlaces >> 16 * i & 0xFF),
                       static_cast<std::uint32_t>(pairs[i / 2] >> 32 * (i % 2)));
}

void StorePairs(wchar_t* dst, const Joined& joined, Values skipped, std::uint64_t nPlaces) {
    const auto& [low, high] = joined;
    const auto Store = [dst, nPlaces](int n, Pairs both, Pairs skip) {
        const Pairs pairs = LCharsetsSelect(skip, both >> 32, both);
        LCharsetsStore(dst + (nPlaces >> 32 * n & 0xFF), pairs[0]);
        LCharsetsStore(dst + (nPlaces >> (32 * n + 16) & 0xFF), pairs[1]);
    };
    Store(0, Pairs(__builtin_shufflevector(low, high, 0, 8, 1, 9, 2, 10, 3, 11)),
          Pairs(__builtin_shufflevector(skipped, skipped, 0, 0, 1, 1)));
    Store(1, Pairs(__builtin_shufflevector(low, high, 4, 12, 5, 13, 6, 14, 7, 15)),
          Pairs(__builtin_shufflevector(skipped, skipped, 2, 2, 3, 3)));
}

// Returns how many characters begin in the half.
template <int nLongest, int nHalf, typename TUnit>
std::size_t StoreHalf(TUnit* dst, const unsigned char* p) {
    const Bytes following = Following(LCharsetsLoad<Bytes>(p));
    // The characters up to each of the eight bytes, that byte counted.
    const std::uint64_t nCounts = LCharsetsPairs(following + 1)[nHalf] * 0x0101010101010101;
    constexpr int n = nHalf * 8;
    const auto twice =
        Words(__builtin_shufflevector(following, following, n, n, n + 1, n + 1, n + 2, n + 2, n + 3, n + 3,
                                      n + 4, n + 4, n + 5, n + 5, n + 6, n + 6, n + 7, n + 7));
    const auto skipped = Values(__builtin_shufflevector(twice, twice, 0, 0, 2, 2, 4, 4, 6, 6));
    StorePairs(dst, Join<nLongest, nHalf>(p), skipped, nCounts << 8);
    return nCounts >> 56;
}

// ---- The text ----

// The largest byte of each lane.
Bytes LargestOf(const unsigned char* pStretch) {
    auto largest = LCharsetsLoad<Bytes>(pStretch);
#pragma GCC unroll 5
    for (std::size_t i = kWindow; i < kStretch; i += kWindow) {
        const auto bytes = LCharsetsLoad<Bytes>(pStretch + i);
        largest = largest > bytes ? largest : bytes;
    }
    return largest;
}

// Decodes the windows that begin in a stretch and lie in it. False when one is at fault.
template <int nLongest, typename TUnit>
bool DecodeStretch(TUnit* dst, const unsigned char* src, LCharsetsDecoded* pDone) {
    const std::size_t nEnd = pDone->nRead + kStretch;
    while (pDone->nRead + kWindow <= nEnd) {
        const unsigned char* const p = src + pDone->nRead;
        TUnit* const pTo = dst + pDone->nWritten;
        if (nLongest >= 3 && IsRun<3>(p) && DecodeRun<3>(pTo, p)) {
            *pDone = {pDone->nRead + 12, pDone->nWritten + 4};
            continue;
        }
        if (nLongest >= 4 && IsRun<4>(p) && DecodeRun<4>(pTo, p)) {
            *pDone = {pDone->nRead + 16, pDone->nWritten + 4};
            continue;
        }
        const std::size_t nBehind = BytesBehind<nLongest>(p);
        if (nBehind == kWindow)
            return false;
        const std::size_t nLow = StoreHalf<nLongest, 0>(pTo, p);
        const std::size_t nHigh = StoreHalf<nLongest, 1>(pTo + nLow, p);
        *pDone = {pDone->nRead + kWindow + nBehind, pDone->nWritten + nLow + nHigh};
    }
    return true;
}

// As long as whole stretches are left and in order.
template <typename TUnit>
[[gnu::noinline, gnu::flatten]] LCharsetsDecoded DecodeStretches(TUnit* dst, const unsigned char* src,
                                                                 std::size_t nBytes) {
    LCharsetsDecoded done = {0, 0};
    bool bInOrder = true;
    while (bInOrder && nBytes - done.nRead >= kStretch + kBehind) {
        const unsigned char* const p = src + done.nRead;
        const Bytes largest = LargestOf(p);
        if (!LCharsetsAny(LCharsetsAtLeast(largest, 0x80))) {
#pragma GCC unroll 5
            for (std::size_t i = 0; i < kStretch; i += kWindow)
                LCharsetsStoreWidened(dst + done.nWritten + i, LCharsetsLoad<Bytes>(p + i));
            done = {done.nRead + kStretch, done.nWritten + kStretch};
        } else if (!LCharsetsAny(LCharsetsAtLeast(largest, 0xE0))) {
            bInOrder = DecodeStretch<2>(dst, src, &done);
        } else if (!LCharsetsAny(LCharsetsAtLeast(largest, 0xF0))) {
            bInOrder = DecodeStretch<3>(dst, src, &done);
        } else {
            bInOrder = DecodeStretch<4>(dst, src, &done);
        }
    }
    return done;
}

// As many of the last nLeft of nBytes bytes as are looked at together, if they are ASCII. Less than a word is
// taken together with what stands before it.
template <typename TUnit>
std::size_t DecodeASCII(TUnit* dst, const unsigned char* p, std::size_t nLeft, std::size_t nBytes) {
    if (nLeft >= kWindow) {
        if (!IsASCIIWord(p) || !IsASCIIWord(p + kWord))
            return 0;
        LCharsetsStoreWidened(dst, LCharsetsLoad<Bytes>(p));
        return kWindow;
    }
    const std::size_t nBefore = nLeft < kWord ? kWord - nLeft : 0;
    if (nBytes < kWord || !IsASCIIWord(p - nBefore))
        return 0;
    LCharsetsStoreHalfWidened(dst - nBefore, LCharsetsLoad<std::uint64_t>(p - nBefore));
    return kWord - nBefore;
}

} // namespace

// Flattened, as the encoder is: a call a character would cost as much as the character.
template <typename TUnit>
[[gnu::flatten]] LCharsetsDecoded LCharsetsDecodePortable(TUnit* dst, const char* src, std::size_t nBytes) {
    const auto* const pSource = reinterpret_cast<const unsigned char*>(src);
    LCharsetsDecoded done = {0, 0};
    if (std::endian::native == std::endian::little && nBytes >= kStretch + kBehind)
        done = DecodeStretches(dst, pSource, nBytes);
    auto [nRead, nWritten] = done;
    while (nRead < nBytes) {
        const std::size_t nASCII = DecodeASCII(dst + nWritten, pSource + nRead, nBytes - nRead, nBytes);
        if (nASCII != 0) {
            nRead += nASCII;
            nWritten += nASCII;
            continue;
        }
        while (nRead < nBytes && pSource[nRead] < 0x80)
            LCharsetsStoreUnit<TUnit>(dst + nWritten++, pSource[nRead++]);
        while (nRead < nBytes && pSource[nRead] >= 0x80) {
            const Sequence sequence = DecodeSequence(pSource + nRead, nBytes - nRead);
            if (sequence.nLength == 0)
                return {nRead, nWritten};
            LCharsetsStoreUnit(dst + nWritten++, static_cast<TUnit>(sequence.nValue));
            nRead += sequence.nLength;
        }
    }
    return {nRead, nWritten};
}

template LCharsetsDecoded LCharsetsDecodePortable(wchar_t*, const char*, std::size_t);
template LCharsetsDecoded LCharsetsDecodePortable(unsigned short*, const char*, std::size_t);
