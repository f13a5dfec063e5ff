// 64 bytes of UTF-8, or 32 units, at a time. Masks find the characters of a window and tell whether its bytes
// are in order; the first bytes of all characters, then all second bytes and so on, are gathered side by side
// and joined; the joined values are judged by their length. Masked loads and stores take the ends of a text
// the same way as its middle.
//
// What is inline elsewhere is not used here: without optimisation it would be emitted for the vector unit,
// and the linker might take that for the whole program.
#include "strings/internal/LCharsetsKernels.h"

#include <cstdint>
#include <immintrin.h>

namespace {

constexpr std::size_t kWindow = 64;
constexpr int kHighestASCII = 0x7F;

// Bit sets over the bytes of a window: bit i stands for byte i.
using ByteSet = std::uint64_t;

std::size_t AtMost(std::size_t n, std::size_t nMost) {
    return n < nMost ? n : nMost;
}

std::size_t CountOf(ByteSet nBytes) {
    return static_cast<std::size_t>(_mm_popcnt_u64(nBytes));
}

ByteSet First(std::size_t nCount) {
    return _bzhi_u64(~ByteSet{0}, static_cast<unsigned>(nCount));
}

__mmask32 FirstOf32(std::size_t nCount) {
    return _cvtu32_mask32(_bzhi_u32(~0U, static_cast<unsigned>(AtMost(nCount, 32))));
}

__mmask16 FirstOf16(std::size_t nCount) {
    return static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned>(AtMost(nCount, 16))));
}

__m512i Bytes(int n) {
    return _mm512_set1_epi8(static_cast<char>(n));
}
__m512i Words(int n) {
    return _mm512_set1_epi16(static_cast<short>(n));
}
__m512i Values(int n) {
    return _mm512_set1_epi32(n);
}

template <int nHalf>
__m512i WidenHalf(__m512i bytes) {
    return _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(bytes, nHalf));
}

// ---- Decoding ----

// Stores the first nCount of 32 16-bit values.
void StoreWords(unsigned short* dst, __m512i words, std::size_t nCount) {
    _mm512_mask_storeu_epi16(dst, FirstOf32(nCount), words);
}

void StoreWords(wchar_t* dst, __m512i words, std::size_t nCount) {
    const __m512i low = _mm512_cvtepu16_epi32(_mm512_castsi512_si256(words));
    _mm512_mask_storeu_epi32(dst, FirstOf16(nCount), low);
    if (nCount > 16) {
        const __m512i high = _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(words, 1));
        _mm512_mask_storeu_epi32(dst + 16, FirstOf16(nCount - 16), high);
    }
}

// Stores the first nCount of 16 values.
void StoreValues(unsigned short* dst, __m512i values, std::size_t nCount) {
    _mm256_mask_storeu_epi16(dst, FirstOf16(nCount), _mm512_cvtepi32_epi16(values));
}

void StoreValues(wchar_t* dst, __m512i values, std::size_t nCount) {
    _mm512_mask_storeu_epi32(dst, FirstOf16(nCount), values);
}

void StoreASCII(unsigned short* dst, __m512i bytes) {
    _mm512_storeu_si512(dst, WidenHalf<0>(bytes));
    _mm512_storeu_si512(dst + 32, WidenHalf<1>(bytes));
}

void StoreASCII(wchar_t* dst, __m512i bytes) {
    _mm512_storeu_si512(dst, _mm512_cvtepu8_epi32(_mm512_castsi512_si128(bytes)));
    _mm512_storeu_si512(dst + 16, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 1)));
    _mm512_storeu_si512(dst + 32, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 2)));
    _mm512_storeu_si512(dst + 48, _mm512_cvtepu8_epi32(_mm512_extracti32x4_epi32(bytes, 3)));
}

// Stores the first nCount bytes of a window.
template <typename TUnit>
void StoreASCII(TUnit* dst, __m512i bytes, std::size_t nCount) {
    StoreWords(dst, WidenHalf<0>(bytes), nCount);
    if (nCount > 32)
        StoreWords(dst + 32, WidenHalf<1>(bytes), nCount - 32);
}

// The characters that lie whole in a window.
struct Characters {
    std::size_t nBytes; // 0: none, or the bytes are out of order
    ByteSet nFirsts;
    bool bFourBytes; // one of them may have four bytes
};

Characters FindCharacters(__m512i window, std::size_t nWindow) {
    const ByteSet nLead2 = _mm512_cmpge_epu8_mask(window, Bytes(0xC0)); // of two bytes or more, and so on
    const ByteSet nLead3 = _mm512_cmpge_epu8_mask(window, Bytes(0xE0));
    const ByteSet nLead4 = _mm512_cmpge_epu8_mask(window, Bytes(0xF0));
    const ByteSet nLead5 = _mm512_cmpge_epu8_mask(window, Bytes(0xF8));
    const ByteSet nFollowing = _mm512_movepi8_mask(window) & ~nLead2;

    const std::size_t nUnused = kWindow - nWindow;
    const ByteSet nCut = (nLead2 & (ByteSet{1} << 63 >> nUnused)) | (nLead3 & (ByteSet{3} << 62 >> nUnused)) |
                         (nLead4 & (ByteSet{7} << 61 >> nUnused));
    const std::size_t nWhole = nCut == 0 ? nWindow : static_cast<std::size_t>(__builtin_ctzll(nCut));
    // Every byte that a lead asks for must follow, and no other may. The byte behind the last whole character
    // is looked at too: a character before it may ask for it.
    const ByteSet nWanted = (nLead2 << 1) | (nLead3 << 2) | (nLead4 << 3);
    const bool bInOrder = (((nWanted ^ nFollowing) | nLead5) & First(nWhole + 1)) == 0;
    return {bInOrder ? nWhole : 0, First(nWhole) & ~nFollowing, nLead4 != 0};
}

// Byte number i of each of up to 64 characters, side by side. What stands behind the last character repeats
// the first one.
struct Gathered {
    __m512i first, second, third, fourth;
};

Gathered Gather(__m512i window, ByteSet nFirsts) {
    const __m512i byteNumbers =
        _mm512_set_epi64(0x3F3E3D3C3B3A3938, 0x3736353433323130, 0x2F2E2D2C2B2A2928, 0x2726252423222120,
                         0x1F1E1D1C1B1A1918, 0x1716151413121110, 0x0F0E0D0C0B0A0908, 0x0706050403020100);
    const __m512i places = _mm512_maskz_compress_epi8(nFirsts, byteNumbers);
    return {_mm512_permutexvar_epi8(places, window),
            _mm512_permutexvar_epi8(_mm512_add_epi8(places, Bytes(1)), window),
            _mm512_permutexvar_epi8(_mm512_add_epi8(places, Bytes(2)), window),
            _mm512_permutexvar_epi8(_mm512_add_epi8(places, Bytes(3)), window)};
}

// 32 characters of at most three bytes, joined in 16 bits. False when one is overlong or a surrogate.
template <int nHalf>
bool JoinWords(const Gathered& gathered, __m512i* pWords) {
    const __m512i first = WidenHalf<nHalf>(gathered.first);
    const __m512i second = _mm512_and_si512(WidenHalf<nHalf>(gathered.second), Words(0x3F));
    const __m512i third = _mm512_and_si512(WidenHalf<nHalf>(gathered.third), Words(0x3F));
    const __mmask32 nMany = _mm512_cmpge_epu16_mask(first, Words(0xC0));
    const __mmask32 nThree = _mm512_cmpge_epu16_mask(first, Words(0xE0));

    const __m512i high = _mm512_slli_epi16(_mm512_and_si512(first, Words(0x1F)), 6);
    const __m512i two = _mm512_mask_mov_epi16(first, nMany, _mm512_or_si512(high, second));
    const __m512i three = _mm512_or_si512(_mm512_slli_epi16(two, 6), third);
    const __m512i words = _mm512_mask_mov_epi16(two, nThree, three);
    *pWords = words;

    const __m512i smallest = _mm512_mask_mov_epi16(Words(0x80), nThree, Words(0x800));
    const __mmask32 nOverlong = _mm512_mask_cmplt_epu16_mask(nMany, words, smallest);
    const __mmask32 nSurrogates =
        _mm512_cmpeq_epi16_mask(_mm512_and_si512(words, Words(0xF800)), Words(0xD800));
    return (nOverlong | nSurrogates) == 0;
}

// 16 characters of any length, of which the low 128 bits of each vector hold the bytes. False when one is
// overlong, a surrogate or too large.
bool JoinValues(const Gathered& gathered, __m512i* pValues) {
    const auto Widened = [](__m512i bytes) { return _mm512_cvtepu8_epi32(_mm512_castsi512_si128(bytes)); };
    const __m512i low6 = Values(0x3F);
    const __m512i first = Widened(gathered.first);
    const __mmask16 nMany = _mm512_cmpge_epu32_mask(first, Values(0xC0));
    const __mmask16 nThree = _mm512_cmpge_epu32_mask(first, Values(0xE0));
    const __mmask16 nFour = _mm512_cmpge_epu32_mask(first, Values(0xF0));

    const auto Joined = [low6](__m512i value, __m512i bytes) {
        return _mm512_or_si512(_mm512_slli_epi32(value, 6), _mm512_and_si512(bytes, low6));
    };
    const __m512i two = Joined(_mm512_and_si512(first, Values(0x1F)), Widened(gathered.second));
    const __m512i three = Joined(two, Widened(gathered.third));
    const __m512i four = _mm512_and_si512(Joined(three, Widened(gathered.fourth)), Values(0x1FFFFF));
    __m512i values = _mm512_mask_mov_epi32(first, nMany, two);
    values = _mm512_mask_mov_epi32(values, nThree, three);
    values = _mm512_mask_mov_epi32(values, nFour, four);
    *pValues = values;

    __m512i smallest = _mm512_maskz_mov_epi32(nMany, Values(0x80));
    smallest = _mm512_mask_mov_epi32(smallest, nThree, Values(0x800));
    smallest = _mm512_mask_mov_epi32(smallest, nFour, Values(0x10000));
    const __mmask16 nOverlong = _mm512_cmplt_epu32_mask(values, smallest);
    const __mmask16 nTooLarge = _mm512_cmpgt_epu32_mask(values, Values(0x10FFFF));
    const __mmask16 nSurrogates =
        _mm512_cmpeq_epi32_mask(_mm512_and_si512(values, Values(~0x7FF)), Values(0xD800));
    return (nOverlong | nTooLarge | nSurrogates) == 0;
}

template <typename TUnit>
bool DecodeUpToThreeBytes(TUnit* dst, const Gathered& gathered, std::size_t nCount) {
    __m512i words;
    if (!JoinWords<0>(gathered, &words))
        return false;
    StoreWords(dst, words, nCount);
    if (nCount <= 32)
        return true;
    if (!JoinWords<1>(gathered, &words))
        return false;
    StoreWords(dst + 32, words, nCount - 32);
    return true;
}

template <typename TUnit>
bool DecodeUpToFourBytes(TUnit* dst, Gathered gathered, std::size_t nCount) {
    for (std::size_t nDone = 0; nDone < nCount; nDone += 16) {
        __m512i values;
        if (!JoinValues(gathered, &values))
            return false;
        StoreValues(dst + nDone, values, nCount - nDone);
        const auto NextSixteen = [](__m512i bytes) { return _mm512_alignr_epi32(bytes, bytes, 4); };
        gathered = {NextSixteen(gathered.first), NextSixteen(gathered.second), NextSixteen(gathered.third),
                    NextSixteen(gathered.fourth)};
    }
    return true;
}

// Flattened, as Encode is, so that vectors stay in registers between the steps.
template <typename TUnit>
[[gnu::flatten]] LCharsetsDecoded Decode(TUnit* dst, const char* src, std::size_t nBytes) {
    std::size_t nRead = 0;
    std::size_t nWritten = 0;
    while (nRead < nBytes) {
        const std::size_t nWindow = AtMost(nBytes - nRead, kWindow);
        const __m512i window = _mm512_maskz_loadu_epi8(First(nWindow), src + nRead);
        if (_mm512_movepi8_mask(window) == 0) {
            if (nWindow == kWindow)
                StoreASCII(dst + nWritten, window);
            else
                StoreASCII(dst + nWritten, window, nWindow);
            nRead += nWindow;
            nWritten += nWindow;
            continue;
        }
        const Characters characters = FindCharacters(window, nWindow);
        if (characters.nBytes == 0)
            break;
        const std::size_t nCount = CountOf(characters.nFirsts);
        const Gathered gathered = Gather(window, characters.nFirsts);
        const bool bValid = characters.bFourBytes ? DecodeUpToFourBytes(dst + nWritten, gathered, nCount)
                                                  : DecodeUpToThreeBytes(dst + nWritten, gathered, nCount);
        if (!bValid)
            break;
        nRead += characters.nBytes;
        nWritten += nCount;
    }
    if (nRead == nBytes)
        return {nRead, nWritten};
    // Where a window is out of order, the portable form finds the place.
    const LCharsetsDecoded rest = LCharsetsDecodePortable(dst + nWritten, src + nRead, nBytes - nRead);
    return {nRead + rest.nRead, nWritten + rest.nWritten};
}

// ---- Encoding ----

constexpr std::size_t kBlock = 32; // units

// The first nCount of 32 units, as values; zeros behind them.
struct Block {
    __m512i low, high;
};

Block LoadBlock(const wchar_t* src, std::size_t nCount) {
    const __mmask16 nHigh = nCount > 16 ? FirstOf16(nCount - 16) : __mmask16{0};
    return {_mm512_maskz_loadu_epi32(FirstOf16(nCount), src),
            _mm512_maskz_loadu_epi32(nHigh, src + (nCount > 16 ? 16 : 0))};
}

Block LoadBlock(const unsigned short* src, std::size_t nCount) {
    const __m512i units = _mm512_maskz_loadu_epi16(FirstOf32(nCount), src);
    return {_mm512_cvtepu16_epi32(_mm512_castsi512_si256(units)),
            _mm512_cvtepu16_epi32(_mm512_extracti64x4_epi64(units, 1))};
}

bool IsBelow(const Block& block, int nPowerOfTwo) {
    return _mm512_test_epi32_mask(_mm512_or_si512(block.low, block.high), Values(-nPowerOfTwo)) == 0;
}

// 32 values in 16 bits.
__m512i Narrowed(const Block& block) {
    return _mm512_inserti64x4(_mm512_castsi256_si512(_mm512_cvtepi32_epi16(block.low)),
                              _mm512_cvtepi32_epi16(block.high), 1);
}

// The two bytes of each value below 0x800, the second of an ASCII value 0.
__m512i SpreadTwoBytes(__m512i words) {
    const __m512i second = _mm512_slli_epi16(_mm512_and_si512(words, Words(0x3F)), 8);
    const __m512i two = _mm512_or_si512(_mm512_or_si512(_mm512_srli_epi16(words, 6), second), Words(0x80C0));
    return _mm512_mask_mov_epi16(two, _mm512_cmple_epu16_mask(words, Words(kHighestASCII)), words);
}

// The four bytes of each value, those that its length does not ask for 0.
__m512i SpreadFourBytes(__m512i values) {
    const __mmask16 nMany = _mm512_cmpgt_epu32_mask(values, Values(kHighestASCII));
    const __mmask16 nThree = _mm512_cmpge_epu32_mask(values, Values(0x800));
    const __mmask16 nFour = _mm512_cmpge_epu32_mask(values, Values(0x10000));
    // Six bits to a byte, the highest first; then the groups that the value has move to the front.
    const __m512i groups = _mm512_and_si512(
        _mm512_multishift_epi64_epi8(_mm512_set1_epi64(0x20262C3200060C12), values), Bytes(0x3F));
    __m512i surplus = _mm512_mask_mov_epi32(Values(16), nThree, Values(8));
    surplus = _mm512_mask_mov_epi32(surplus, nFour, Values(0));
    __m512i marks = _mm512_mask_mov_epi32(Values(0x80C0), nThree, Values(0x8080E0));
    marks = _mm512_mask_mov_epi32(marks, nFour, Values(static_cast<int>(0x808080F0)));
    return _mm512_mask_or_epi32(values, nMany, _mm512_srlv_epi32(groups, surplus), marks);
}

// Closes the gaps, the 0 bytes, and stores what is left. False when there is no room for it.
bool StoreSqueezed(char* dst, std::size_t nRoom, __m512i bytes, std::size_t* pWritten) {
    const ByteSet nKept = _mm512_test_epi8_mask(bytes, bytes);
    const std::size_t nCount = CountOf(nKept);
    if (nCount > nRoom - *pWritten)
        return false;
    _mm512_mask_storeu_epi8(dst + *pWritten, First(nCount), _mm512_maskz_compress_epi8(nKept, bytes));
    *pWritten += nCount;
    return true;
}

bool StoreASCII(char* dst, std::size_t nRoom, const Block& block, std::size_t nCount, std::size_t* pWritten) {
    if (nCount > nRoom - *pWritten)
        return false;
    const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm512_cvtepi32_epi8(block.low)),
                                                  _mm512_cvtepi32_epi8(block.high), 1);
    _mm256_mask_storeu_epi8(dst + *pWritten, FirstOf32(nCount), bytes);
    *pWritten += nCount;
    return true;
}

// 16 values of any size; a 0 among them gives nothing.
bool StoreValues(char* dst, std::size_t nRoom, __m512i values, LCharsetsEncoded* pDone) {
    const __mmask16 nOutside = _mm512_cmpgt_epu32_mask(values, Values(0x10FFFF));
    values = _mm512_mask_mov_epi32(values, nOutside, Values(0xFFFD));
    if (!StoreSqueezed(dst, nRoom, SpreadFourBytes(values), &pDone->nWritten))
        return false;
    pDone->bReplaced |= nOutside != 0;
    return true;
}

// The first nCount units of the block. False when not all of them had room.
bool StoreBlock(char* dst, std::size_t nRoom, const Block& block, std::size_t nCount,
                LCharsetsEncoded* pDone) {
    std::size_t nStored = 0;
    bool bRoom = true;
    if (IsBelow(block, 0x80)) {
        bRoom = StoreASCII(dst, nRoom, block, nCount, &pDone->nWritten);
    } else if (IsBelow(block, 0x800)) {
        bRoom = StoreSqueezed(dst, nRoom, SpreadTwoBytes(Narrowed(block)), &pDone->nWritten);
    } else {
        bRoom = StoreValues(dst, nRoom, block.low, pDone);
        nStored = bRoom ? AtMost(nCount, 16) : 0;
        bRoom = bRoom && (nCount <= 16 || StoreValues(dst, nRoom, block.high, pDone));
    }
    pDone->nRead += bRoom ? nCount : nStored;
    return bRoom;
}

template <typename TUnit>
[[gnu::flatten]] LCharsetsEncoded Encode(char* dst, std::size_t nRoom, const TUnit* src, std::size_t nUnits) {
    LCharsetsEncoded done = {0, 0, false};
    while (done.nRead < nUnits) {
        const std::size_t nCount = AtMost(nUnits - done.nRead, kBlock);
        if (!StoreBlock(dst, nRoom, LoadBlock(src + done.nRead, nCount), nCount, &done))
            break;
    }
    if (done.nRead == nUnits)
        return done;
    // Where the room ends, the portable form goes on value by value.
    const LCharsetsEncoded rest = LCharsetsEncodePortable(dst + done.nWritten, nRoom - done.nWritten,
                                                          src + done.nRead, nUnits - done.nRead);
    return {done.nRead + rest.nRead, done.nWritten + rest.nWritten, done.bReplaced || rest.bReplaced};
}

} // namespace

constinit const LCharsetsKernels LCharsetsAVX512Kernels = {"AVX-512", Decode<wchar_t>, Decode<unsigned short>,
                                                           Encode<wchar_t>, Encode<unsigned short>};
