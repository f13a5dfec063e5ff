#include "files/LReadFileBuffered.h"

#include <algorithm>
#include <port/transfer.h>
#include <sys/stat.h>
#include <unistd.h>

#include "files/internal/LByteBlock.h"
#include "files/internal/LLineEnd.h"

namespace {

// The number of bytes before the first line's end, at most n; the target stores the n bytes, or less.
template <typename Target>
unsigned long TakeUntilLineEnd(const char* pFrom, unsigned long n, Target target) {
    unsigned long i = 0;
    for (; n - i >= LByteBlock::kSize; i += LByteBlock::kSize) {
        const LByteBlock block(pFrom + i);
        target.Store(i, block);
        if (const std::uint64_t qwLineEnds = block.Find('\n', '\r'); qwLineEnds != 0)
            return i + LByteBlock::CountBefore(qwLineEnds);
    }
    for (; i < n && !LIsLineEnd(pFrom[i]); ++i)
        target.Store(i, pFrom[i]);
    return i;
}

struct StoreAt {
    char* pTo;
    void Store(unsigned long i, const LByteBlock& block) const { block.Store(pTo + i); }
    void Store(unsigned long i, char character) const { pTo[i] = character; }
};

struct Drop {
    template <typename Bytes>
    void Store(unsigned long, Bytes) const {}
};

unsigned long Counted(ssize_t nResult) {
    return static_cast<unsigned long>(std::max<ssize_t>(nResult, 0));
}

} // namespace

bool LReadFileBuffered::_Refill() {
    dwPosition = 0;
    dwCount = static_cast<std::uint32_t>(Counted(port_read(nDescriptor, szBuffer, sizeof szBuffer)));
    return dwCount != 0;
}

unsigned long LReadFileBuffered::_ReadOn(char* buffer, unsigned long size) {
    unsigned long dwDone = 0;
    for (;;) {
        const unsigned long dwBuffered = std::min<unsigned long>(size - dwDone, dwCount - dwPosition);
        _Take(buffer + dwDone, dwBuffered);
        dwDone += dwBuffered;
        if (dwDone == size)
            return dwDone;
        if (size - dwDone >= LReadFileDirect)
            return dwDone + Counted(port_read(nDescriptor, buffer + dwDone, size - dwDone));
        if (!_Refill())
            return dwDone;
    }
}

unsigned long LReadFileBuffered::Peek(void* buffer, unsigned long size) {
    char* const pTo = static_cast<char*>(buffer);
    const unsigned long dwBuffered = std::min<unsigned long>(size, dwCount - dwPosition);
    std::memcpy(pTo, szBuffer + dwPosition, dwBuffered);
    if (dwBuffered == size)
        return size;
    const unsigned long dwRead = Counted(port_read(nDescriptor, pTo + dwBuffered, size - dwBuffered));
    unsigned long dwKept = 0;
    if (dwBuffered == 0) {
        dwKept = std::min<unsigned long>(dwRead, sizeof szBuffer);
        std::memcpy(szBuffer, pTo, dwKept);
        dwPosition = 0;
        dwCount = static_cast<std::uint32_t>(dwKept);
    }
    if (dwRead > dwKept)
        lseek(nDescriptor, -static_cast<off_t>(dwRead - dwKept), SEEK_CUR);
    return dwBuffered + dwRead;
}

// Stores text up to a line's end or the end of the buffer, at most dwRoom bytes of it, and passes all of it.
// Returns the bytes stored.
unsigned long LReadFileBuffered::_TakeText(char* pTo, unsigned long dwRoom) {
    const char* const pFrom = szBuffer + dwPosition;
    const unsigned long dwHere = dwCount - dwPosition;
    const unsigned long dwMost = std::min(dwHere, dwRoom);
    const unsigned long dwStored = TakeUntilLineEnd(pFrom, dwMost, StoreAt{pTo});
    unsigned long dwPassed = dwStored;
    if (dwStored == dwMost)
        dwPassed += TakeUntilLineEnd(pFrom + dwStored, dwHere - dwStored, Drop{});
    dwPosition += static_cast<std::uint32_t>(dwPassed);
    return dwStored;
}

// Mostly all of the line is buffered and fits.
bool LReadFileBuffered::ReadLine(char* buffer, unsigned long size) {
    const char* const pFrom = szBuffer + dwPosition;
    const unsigned long dwMost = std::min<unsigned long>(dwCount - dwPosition, size - 1);
    const unsigned long dwStored = TakeUntilLineEnd(pFrom, dwMost, StoreAt{buffer});
    if (dwStored == dwMost) [[unlikely]]
        return _ReadLineInParts(buffer, size);
    buffer[dwStored] = '\0';
    dwPosition += static_cast<std::uint32_t>(dwStored + 1);
    if (pFrom[dwStored] == '\r')
        _SkipLineFeed();
    return true;
}

bool LReadFileBuffered::_ReadLineInParts(char* buffer, unsigned long size) {
    char* pTo = buffer;
    char* const pLast = buffer + size - 1;
    bool bAny = false;
    while (dwPosition != dwCount || _Refill()) {
        pTo += _TakeText(pTo, static_cast<unsigned long>(pLast - pTo));
        if (dwPosition != dwCount) {
            *pTo = '\0';
            if (szBuffer[dwPosition++] == '\r')
                _SkipLineFeed();
            return true;
        }
        bAny = true;
    }
    *pTo = '\0';
    return bAny;
}

void LReadFileBuffered::_SkipLineFeed() {
    if ((dwPosition != dwCount || _Refill()) && szBuffer[dwPosition] == '\n')
        ++dwPosition;
}

unsigned long long LReadFileBuffered::GetFileSizeBytes64() const {
    struct stat status;
    return fstat(nDescriptor, &status) == 0 ? static_cast<unsigned long long>(status.st_size) : 0;
}

unsigned long long LReadFileBuffered::Tell64() const {
    const off_t nOffset = std::max<off_t>(lseek(nDescriptor, 0, SEEK_CUR), 0);
    return static_cast<unsigned long long>(nOffset) - (dwCount - dwPosition);
}

void LReadFileBuffered::Seek64(unsigned long long position) {
    lseek(nDescriptor, static_cast<off_t>(position), SEEK_SET);
    _Empty();
}

void LReadFileBuffered::SeekOffset64(long long offset) {
    lseek(nDescriptor, offset - static_cast<long long>(dwCount - dwPosition), SEEK_CUR);
    _Empty();
}
