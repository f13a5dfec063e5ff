#include "strings/LCharsets.h"

#include "strings/internal/LCharsetsKernels.h"
#include "strings/internal/LCharsetsUnits.h"

#include <cstring>

namespace {

// Values of which the end is looked for before they are encoded: they are still in the nearest cache then.
constexpr unsigned long kValuesAtOnce = 4096;

// Why the decoder stopped at the byte number nRead. The limit is asked first, by the length that the lead byte
// announces, whatever follows it.
int Verdict(const char* pStopped, unsigned long nRead, unsigned long limit) {
    if (*pStopped == 0)
        return LCharsetsDone;
    return LCharsetsSequenceLength(*pStopped) >= limit - nRead ? LCharsetsLimitReached : LCharsetsInvalid;
}

// Encodes into n bytes, terminator included, a cut last sequence too. Returns the bytes before the terminator.
unsigned long EncodeUnits(char* dst, unsigned long n, const unsigned short* src, unsigned long nUnits) {
    const unsigned long nRoom = n - 1;
    const LCharsetsEncoded whole = LCharsetsEncode(dst, nRoom, src, nUnits);
    unsigned long nBytes = whole.nWritten;
    if (whole.nRead < nUnits) {
        char sequence[4];
        LCharsetsEncode(sequence, sizeof sequence, src + whole.nRead, 1);
        std::memcpy(dst + nBytes, sequence, nRoom - nBytes);
        nBytes = nRoom;
    }
    dst[nBytes] = 0;
    return nBytes;
}

// Encodes into dst, grown to n bytes.
void EncodeString(LStringLongTemplate<char>& dst, unsigned long n, const unsigned short* src,
                  unsigned long nUnits) {
    dst.SetLength(0);
    dst.GrowToSize(n);
    dst.SetLength(static_cast<std::uint32_t>(EncodeUnits(dst.GetData(), n, src, nUnits)));
}

} // namespace

int LCopyUTF32FromUTF8Native(wchar_t* dst, const char* src, unsigned long limit) {
    if (limit == 0)
        return LCharsetsLimitReached;
    const LCharsetsDecoded done = LCharsetsDecode(dst, src, strnlen(src, limit - 1));
    LCharsetsStoreUnit<wchar_t>(dst + done.nWritten, 0);
    return Verdict(src + done.nRead, done.nRead, limit);
}

int LCopyUTF32FromUTF8(wchar_t* dst, const char* src, unsigned long limit) {
    return LCopyUTF32FromUTF8Native(dst, src, limit);
}

int LCopyUTF8FromUTF32Native(char* dst, const wchar_t* src, unsigned long) {
    bool bReplaced = false;
    unsigned long nValues;
    do {
        nValues = LCharsetsUnitCount(src, kValuesAtOnce);
        const LCharsetsEncoded done = LCharsetsEncode(dst, 4 * nValues, src, nValues);
        bReplaced |= done.bReplaced;
        src += nValues;
        dst += done.nWritten;
    } while (nValues == kValuesAtOnce);
    *dst = 0;
    return bReplaced ? LCharsetsInvalid : LCharsetsDone;
}

int LCopyUTF8FromUTF32(char* dst, const wchar_t* src, unsigned long unused) {
    return LCopyUTF8FromUTF32Native(dst, src, unused);
}

void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src, unsigned long n) {
    if (n == 0)
        return;
    const LCharsetsDecoded done = LCharsetsDecode(dst, src, strnlen(src, n - 1));
    LCharsetsStoreUnit<unsigned short>(dst + done.nWritten, 0);
}

void LCopyUnicodeFromUTF8(unsigned short* dst, const char* src) {
    LCopyUnicodeFromUTF8(dst, src, LPathBufferSize);
}

void LCopyUnicodeFromUTF8(LStringLongTemplate<unsigned short>& dst, const LStringLongTemplate<char>& src) {
    const unsigned long n = src.GetLength() + 1UL;
    dst.GrowToSize(n);
    LCopyUnicodeFromUTF8(dst.GetData(), src.GetText(), n);
    dst.SetLength(static_cast<std::uint32_t>(LCharsetsUnitCount(dst.GetData(), src.GetLength())));
}

void LCopyUTF8FromUnicode(char* dst, const unsigned short* src, unsigned long n) {
    if (n != 0)
        EncodeUnits(dst, n, src, LCharsetsUnitCount(src, n - 1));
}

void LCopyUTF8FromUnicode(char* dst, const unsigned short* src) {
    LCopyUTF8FromUnicode(dst, src, LPathBufferSize);
}

void LCopyUTF8FromUnicode(LStringLongTemplate<char>& dst, const LStringLongTemplate<unsigned short>& src) {
    const unsigned long nUnits = LCharsetsUnitCount(src.GetText(), src.GetLength());
    EncodeString(dst, 6UL * src.GetLength() + 1, src.GetText(), nUnits);
}

void LCopyFromUnicode(LStringLongTemplate<char>& dst, const unsigned short* src) {
    const unsigned long nUnits = LCharsetsUnitCount(src, ~0UL);
    EncodeString(dst, 6 * nUnits + 1, src, nUnits);
}

void LCopyUnicodeFromUTF32(unsigned short* dst, const wchar_t* src, unsigned long n) {
    if (n == 0)
        return;
    const unsigned long nValues = LCharsetsUnitCount(src, n - 1);
    LCharsetsConvertUnits(dst, src, nValues);
    LCharsetsStoreUnit<unsigned short>(dst + nValues, 0);
}

void LCopyUTF32FromUnicode(wchar_t* dst, const unsigned short* src, unsigned long n) {
    if (n == 0)
        return;
    const unsigned long nUnits = LCharsetsUnitCount(src, n - 1);
    LCharsetsConvertUnits(dst, src, nUnits);
    LCharsetsStoreUnit<wchar_t>(dst + nUnits, 0);
}

unsigned long LCopyToBigEndianUnicode(unsigned short* dst, const unsigned short* src, unsigned long n,
                                      bool terminate) {
    const auto StoreBigEndian = [dst](unsigned long nIndex, unsigned nUnit) {
        unsigned char const bytes[2] = {static_cast<unsigned char>(nUnit >> 8),
                                        static_cast<unsigned char>(nUnit)};
        std::memcpy(dst + nIndex, bytes, sizeof bytes);
    };
    unsigned long nUnits = 0;
    for (; nUnits < n; ++nUnits) {
        const unsigned short nUnit = LCharsetsLoadUnit(src + nUnits);
        if (nUnit == 0)
            break;
        StoreBigEndian(nUnits, nUnit);
    }
    if (terminate) {
        LCharsetsStoreUnit<unsigned short>(dst + nUnits, 0);
        return nUnits;
    }
    while (nUnits < n)
        StoreBigEndian(nUnits++, ' ');
    return n;
}
