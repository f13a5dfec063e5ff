// 32 bytes of UTF-8, or 8 units, at a time, in the manner of the AVX-512 form: masks find the characters and
// tell whether the bytes are in order, shuffles gather them, the joined values are judged by their length.
// Shuffles take their pattern from a table, eight bytes to a pattern. The ends of a text are left to the
// portable form.
//
// What is inline elsewhere is not used here: without optimisation it would be emitted for the vector unit,
// and the linker might take that for the whole program.
#include "strings/internal/LCharsetsKernels.h"

#include <cstdint>
#include <cstring>
#include <immintrin.h>

namespace {

constexpr std::size_t kWindow = 32;
constexpr std::size_t kPiece = 8;      // bytes that one pattern of the table is for
constexpr std::size_t kReadBeyond = 8; // bytes behind a window that are loaded with its last piece

constexpr std::size_t kStretch = 256; // bytes that the portable form decodes in between

// Bit sets over the bytes of a window: bit i stands for byte i.
using ByteSet = std::uint32_t;

ByteSet First(unsigned nCount) {
    return _bzhi_u32(~0U, nCount);
}

// Row m: the places of the bits that are set in m, in ascending order, then 0x80, which shuffles to 0.
struct PlacesTable {
    std::uint64_t rows[256] = {};

    constexpr PlacesTable() {
        for (unsigned nMask = 0; nMask < 256; ++nMask) {
            std::uint64_t nRow = 0x8080808080808080;
            for (int nBit = 7; nBit >= 0; --nBit)
                if ((nMask >> nBit & 1) != 0)
                    nRow = nRow << 8 | static_cast<unsigned>(nBit);
            rows[nMask] = nRow;
        }
    }
};
constexpr PlacesTable kPlaces;

__m128i Places(unsigned nMask) {
    return _mm_cvtsi64_si128(static_cast<long long>(kPlaces.rows[nMask & 0xFF]));
}

__m256i Bytes(int n) {
    return _mm256_set1_epi8(static_cast<char>(n));
}
__m256i Words(int n) {
    return _mm256_set1_epi16(static_cast<short>(n));
}
__m256i Values(int n) {
    return _mm256_set1_epi32(n);
}

ByteSet TopBits(__m256i bytes) {
    return static_cast<ByteSet>(_mm256_movemask_epi8(bytes));
}

template <typename TPointer>
__m256i Load(const TPointer* src) {
    return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(src));
}

template <typename TPointer>
__m128i LoadHalf(const TPointer* src) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(src));
}

void StoreWords(unsigned short* dst, __m128i words) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst), words);
}
void StoreWords(wchar_t* dst, __m128i words) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_cvtepu16_epi32(words));
}

// ---- Decoding ----

template <typename TUnit>
void StoreASCII(TUnit* dst, const char* src) {
    for (std::size_t i = 0; i < kWindow; i += kPiece)
        StoreWords(dst + i, _mm_cvtepu8_epi16(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src + i))));
}

// The characters that lie whole in a window.
struct Characters {
    std::size_t nBytes; // 0: the bytes are out of order
    ByteSet nFirsts;
    bool bFourBytes; // one of them may have four bytes
};

// `least` is the smallest byte of a class; unsigned bytes have no comparison of their own.
ByteSet AtLeast(__m256i window, int least) {
    return TopBits(_mm256_cmpeq_epi8(_mm256_max_epu8(window, Bytes(least)), window));
}

Characters FindCharacters(__m256i window) {
    const ByteSet nLead2 = AtLeast(window, 0xC0); // of two bytes or more, and so on
    const ByteSet nLead3 = AtLeast(window, 0xE0);
    const ByteSet nLead4 = AtLeast(window, 0xF0);
    const ByteSet nLead5 = AtLeast(window, 0xF8);
    const ByteSet nFollowing = TopBits(window) & ~nLead2;

    const ByteSet nCut = (nLead2 & 1U << 31) | (nLead3 & 3U << 30) | (nLead4 & 7U << 29);
    const unsigned nWhole = nCut != 0 ? static_cast<unsigned>(__builtin_ctz(nCut)) : kWindow;
    // Every byte that a lead asks for must follow, and no other may. The byte behind the last whole character
    // is looked at too: a character before it may ask for it.
    const ByteSet nWanted = (nLead2 << 1) | (nLead3 << 2) | (nLead4 << 3);
    const bool bInOrder = (((nWanted ^ nFollowing) | nLead5) & First(nWhole + 1)) == 0;
    return {bInOrder ? nWhole : 0, First(nWhole) & ~nFollowing, nLead4 != 0};
}

// The characters of two pieces, of at most three bytes each, joined in 16 bits, eight lanes to a piece; lanes
// behind the last character are 0. Faults are added to *pFaults as bits that are set: overlong forms,
// surrogates.
__m256i JoinWords(const char* src, ByteSet nFirsts, __m256i* pFaults) {
    const __m256i pieces =
        _mm256_inserti128_si256(_mm256_castsi128_si256(LoadHalf(src)), LoadHalf(src + kPiece), 1);
    const __m256i places = _mm256_or_si256(
        _mm256_cvtepu8_epi16(_mm_unpacklo_epi64(Places(nFirsts), Places(nFirsts >> kPiece))), Words(0x8000));
    const auto Following = [&](int n) {
        return _mm256_and_si256(_mm256_shuffle_epi8(pieces, _mm256_add_epi16(places, Words(n))), Words(0x3F));
    };
    const __m256i first = _mm256_shuffle_epi8(pieces, places);
    const __m256i many = _mm256_cmpgt_epi16(first, Words(0xBF));
    const __m256i three = _mm256_cmpgt_epi16(first, Words(0xDF));

    const __m256i high = _mm256_slli_epi16(_mm256_and_si256(first, Words(0x1F)), 6);
    __m256i words = _mm256_blendv_epi8(first, _mm256_or_si256(high, Following(1)), many);
    words = _mm256_blendv_epi8(words, _mm256_or_si256(_mm256_slli_epi16(words, 6), Following(2)), three);

    const __m256i smallest = _mm256_blendv_epi8(_mm256_and_si256(many, Words(0x80)), Words(0x800), three);
    const __m256i overlong = _mm256_subs_epu16(smallest, words);
    const __m256i surrogates = _mm256_cmpeq_epi16(_mm256_and_si256(words, Words(0xF800)), Words(0xD800));
    *pFaults = _mm256_or_si256(*pFaults, _mm256_or_si256(overlong, surrogates));
    return words;
}

std::size_t CountOf(ByteSet nBytes) {
    return static_cast<std::size_t>(_mm_popcnt_u32(nBytes & 0xFF));
}

// The characters of a window, joined.
struct Window {
    __m256i words[2];
    ByteSet nFirsts;
};

// False when one of the characters is at fault.
bool JoinWindow(const char* src, ByteSet nFirsts, Window* pWindow) {
    __m256i faults = _mm256_setzero_si256();
    *pWindow = {
        {JoinWords(src, nFirsts, &faults), JoinWords(src + 2 * kPiece, nFirsts >> 2 * kPiece, &faults)},
        nFirsts};
    return _mm256_testz_si256(faults, faults) != 0;
}

// Returns the count, 0 of an empty window. Up to eight units behind the last one are overwritten.
template <typename TUnit>
std::size_t StoreWindow(TUnit* dst, const Window& window) {
    std::size_t nCount = 0;
    if (window.nFirsts == 0)
        return nCount;
    ByteSet nFirsts = window.nFirsts;
    for (const __m256i words : window.words) {
        StoreWords(dst + nCount, _mm256_castsi256_si128(words));
        nCount += CountOf(nFirsts);
        StoreWords(dst + nCount, _mm256_extracti128_si256(words, 1));
        nCount += CountOf(nFirsts >> kPiece);
        nFirsts >>= 2 * kPiece;
    }
    return nCount;
}

// The same, and nothing else is written.
template <typename TUnit>
std::size_t StoreWindowExactly(TUnit* dst, const Window& window) {
    if (window.nFirsts == 0)
        return 0;
    TUnit units[kWindow + kPiece];
    const std::size_t nCount = StoreWindow(units, window);
    std::memcpy(dst, units, nCount * sizeof(TUnit));
    return nCount;
}

// A window is stored when the next one is known to be in order, which has more than the eight characters that
// it overwrites. Flattened, as Encode is, so that vectors stay in registers between the steps.
template <typename TUnit>
[[gnu::flatten, gnu::noinline]] LCharsetsDecoded DecodeWindows(TUnit* dst, const char* src,
                                                               std::size_t nBytes) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    Window last = {}; // joined, not stored
    while (nBytes - nRead >= kWindow + kReadBeyond) {
        const __m256i window = Load(src + nRead);
        if (TopBits(window) == 0) {
            nWritten += StoreWindow(dst + nWritten, last);
            last.nFirsts = 0;
            StoreASCII(dst + nWritten, src + nRead);
            nRead += kWindow;
            nWritten += kWindow;
            continue;
        }
        const Characters characters = FindCharacters(window);
        if (characters.nBytes == 0)
            break;
        if (characters.bFourBytes) {
            nWritten += StoreWindowExactly(dst + nWritten, last);
            last.nFirsts = 0;
            // Few of these fit in a vector: the portable form is faster, once the upper halves of the
            // registers are cleared for it, which g++ forgets here.
            _mm256_zeroupper();
            const std::size_t nStretch = nBytes - nRead < kStretch ? nBytes - nRead : kStretch;
            const LCharsetsDecoded done = LCharsetsDecodePortable(dst + nWritten, src + nRead, nStretch);
            if (done.nRead == 0)
                break;
            nRead += done.nRead;
            nWritten += done.nWritten;
            continue;
        }
        Window next;
        if (!JoinWindow(src + nRead, characters.nFirsts, &next))
            break;
        nWritten += StoreWindow(dst + nWritten, last);
        last = next;
        nRead += characters.nBytes;
    }
    nWritten += StoreWindowExactly(dst + nWritten, last);
    const LCharsetsDecoded rest = LCharsetsDecodePortable(dst + nWritten, src + nRead, nBytes - nRead);
    return {nRead + rest.nRead, nWritten + rest.nWritten};
}

// A short text does not pay for the room that vectors take.
template <typename TUnit>
LCharsetsDecoded Decode(TUnit* dst, const char* src, std::size_t nBytes) {
    return nBytes < kWindow + kReadBeyond ? LCharsetsDecodePortable(dst, src, nBytes)
                                          : DecodeWindows(dst, src, nBytes);
}

// ---- Encoding ----

constexpr std::size_t kBlock = 8;         // units
constexpr std::size_t kBytesOfBlock = 32; // at most
constexpr std::size_t kASCIIBlock = 32;   // units

__m256i LoadValues(const wchar_t* src) {
    return Load(src);
}
__m256i LoadValues(const unsigned short* src) {
    return _mm256_cvtepu16_epi32(LoadHalf(src));
}

bool IsBelow(__m256i values, int nPowerOfTwo) {
    return _mm256_testz_si256(values, Values(-nPowerOfTwo)) != 0;
}

// The low 16 bits of 16 values below 0x8000.
__m256i Narrowed(__m256i low, __m256i high) {
    return _mm256_permute4x64_epi64(_mm256_packus_epi32(low, high), 0xD8);
}

// Stores 32 units when all are ASCII.
template <typename TUnit>
bool StoreIfASCII(char* dst, const TUnit* src) {
    const __m256i a = LoadValues(src);
    const __m256i b = LoadValues(src + 8);
    const __m256i c = LoadValues(src + 16);
    const __m256i d = LoadValues(src + 24);
    if (!IsBelow(_mm256_or_si256(_mm256_or_si256(a, b), _mm256_or_si256(c, d)), 0x80))
        return false;
    const __m256i bytes = _mm256_packus_epi16(Narrowed(a, b), Narrowed(c, d));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), _mm256_permute4x64_epi64(bytes, 0xD8));
    return true;
}

// The two bytes of each of eight values below 0x800, the second of an ASCII value 0.
__m128i SpreadTwoBytes(__m256i values) {
    const __m128i words =
        _mm_packus_epi32(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
    const __m128i second = _mm_slli_epi16(_mm_and_si128(words, _mm_set1_epi16(0x3F)), 8);
    const __m128i marks = _mm_set1_epi16(static_cast<short>(0x80C0));
    const __m128i two = _mm_or_si128(_mm_or_si128(_mm_srli_epi16(words, 6), second), marks);
    return _mm_blendv_epi8(words, two, _mm_cmpgt_epi16(words, _mm_set1_epi16(0x7F)));
}

// The four bytes of each value, those that its length does not ask for 0.
__m256i SpreadFourBytes(__m256i values) {
    const __m256i many = _mm256_cmpgt_epi32(values, Values(0x7F));
    const __m256i three = _mm256_cmpgt_epi32(values, Values(0x7FF));
    const __m256i four = _mm256_cmpgt_epi32(values, Values(0xFFFF));
    // Six bits to a byte, the highest first; then the groups that the value has move to the front.
    const auto Group = [&](int nRight, int nLeft) {
        __m256i const group = _mm256_and_si256(_mm256_srli_epi32(values, nRight), Values(0x3F));
        return _mm256_slli_epi32(group, nLeft);
    };
    const __m256i groups = _mm256_or_si256(_mm256_or_si256(Group(18, 0), Group(12, 8)),
                                           _mm256_or_si256(Group(6, 16), Group(0, 24)));
    __m256i surplus = _mm256_blendv_epi8(Values(16), Values(8), three);
    surplus = _mm256_andnot_si256(four, surplus);
    __m256i marks = _mm256_blendv_epi8(Values(0x80C0), Values(0x8080E0), three);
    marks = _mm256_blendv_epi8(marks, Values(static_cast<int>(0x808080F0)), four);
    const __m256i bytes = _mm256_or_si256(_mm256_srlv_epi32(groups, surplus), marks);
    return _mm256_blendv_epi8(values, bytes, many);
}

// Closes the gaps, the 0 bytes, stores what is left, and returns its length. Stores eight bytes a piece, the
// last of which lie within the 16 bytes of the block even when all gaps stand before them.
std::size_t StoreSqueezed(char* dst, __m128i bytes) {
    const unsigned nGaps =
        static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())));
    const unsigned nKept = ~nGaps;
    const std::size_t nLow = CountOf(nKept);
    const __m128i low = _mm_shuffle_epi8(bytes, Places(nKept));
    const __m128i high = _mm_shuffle_epi8(_mm_unpackhi_epi64(bytes, bytes), Places(nKept >> kPiece));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst), low);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(dst + nLow), high);
    return nLow + CountOf(nKept >> kPiece);
}

std::size_t StoreBlock(char* dst, __m256i values) {
    if (IsBelow(values, 0x800))
        return StoreSqueezed(dst, SpreadTwoBytes(values));
    const __m256i bytes = SpreadFourBytes(values);
    const std::size_t nLow = StoreSqueezed(dst, _mm256_castsi256_si128(bytes));
    return nLow + StoreSqueezed(dst + nLow, _mm256_extracti128_si256(bytes, 1));
}

bool IsOutside(__m256i values) {
    const __m256i replaced = _mm256_max_epu32(values, Values(0x110000));
    return _mm256_movemask_epi8(_mm256_cmpeq_epi32(replaced, values)) != 0;
}

template <typename TUnit>
[[gnu::flatten]] LCharsetsEncoded Encode(char* dst, std::size_t nRoom, const TUnit* src, std::size_t nUnits) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    while (nUnits - nRead >= kBlock && nRoom - nWritten >= kBytesOfBlock) {
        if (nUnits - nRead >= kASCIIBlock && StoreIfASCII(dst + nWritten, src + nRead)) {
            nRead += kASCIIBlock;
            nWritten += kASCIIBlock;
            continue;
        }
        const __m256i values = LoadValues(src + nRead);
        if (IsOutside(values))
            break;
        nWritten += StoreBlock(dst + nWritten, values);
        nRead += kBlock;
    }
    const LCharsetsEncoded rest =
        LCharsetsEncodePortable(dst + nWritten, nRoom - nWritten, src + nRead, nUnits - nRead);
    return {nRead + rest.nRead, nWritten + rest.nWritten, rest.bReplaced};
}

} // namespace

constinit const LCharsetsKernels LCharsetsAVX2Kernels = {"AVX2", Decode<wchar_t>, Decode<unsigned short>,
                                                         Encode<wchar_t>, Encode<unsigned short>};
