#include "files/LWriteFileBuffered.h"

#include <cstdarg>
#include <port/transfer.h>
#include <utility>

#include "strings/LStringFormat.h"

bool LWriteFileBuffered::Flush() {
    const std::uint32_t dwWaiting = std::exchange(dwCount, 0);
    bFailed = bFailed || (dwWaiting != 0 && !port_write_all(nDescriptor, szBuffer, dwWaiting));
    return !bFailed;
}

// The buffer goes full, so that the file is written in whole buffers; what would fill another one goes straight on.
bool LWriteFileBuffered::_WriteOn(const char* pBytes, unsigned long size) {
    const unsigned long dwRoom = LWriteFileBufferSize - dwCount;
    std::memcpy(szBuffer + dwCount, pBytes, dwRoom);
    dwCount = LWriteFileBufferSize;
    const unsigned long dwLeft = size - dwRoom;
    const unsigned long dwDirect = dwLeft - dwLeft % LWriteFileBufferSize;
    bFailed = !Flush() || (dwDirect != 0 && !port_write_all(nDescriptor, pBytes + dwRoom, dwDirect));
    return !bFailed && Write(pBytes + dwRoom + dwDirect, dwLeft - dwDirect);
}

// Mostly the text fits where it is to stand; one that fills the room may have been cut there.
std::uint32_t fprintf(LWriteFileBuffered& file, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    const std::uint32_t dwRoom = LWriteFileBufferSize - file.dwCount;
    LFixedLengthStringWriterTemplate<char> writer(file.szBuffer + file.dwCount, dwRoom);
    std::uint32_t dwLength = tplprintf(writer, format, arguments);
    if (dwLength < dwRoom) {
        file.dwCount += dwLength;
    } else {
        LStringLongTemplate<char> lsText;
        LStringLongTemplateWriter<char> whole(lsText);
        dwLength = tplprintf(whole, format, again);
        lsText.SetLength(dwLength);
        file.Write(lsText.GetText(), dwLength);
    }
    va_end(again);
    va_end(arguments);
    return dwLength;
}
