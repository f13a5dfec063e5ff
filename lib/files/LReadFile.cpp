#include "files/LReadFile.h"

#include <algorithm>
#include <port/transfer.h>
#include <unistd.h>

#include "base/LLimits.h"
#include "files/LWriteFile.h"
#include "files/internal/LLineEnd.h"
#include "strings/LStringFormat.h"

namespace {

// Takes the other character of a line's end of two; what it is not goes back.
void SkipSecondLineEnd(int nDescriptor, char first) {
    char second;
    if (port_read(nDescriptor, &second, 1) == 1 && (second == first || !LIsLineEnd(second)))
        lseek(nDescriptor, -1, SEEK_CUR);
}

// Feeds one line to the writer, with the result of ReadLine.
template <typename Writer>
bool ReadLineTo(Writer& writer, int nDescriptor) {
    bool bAny = false;
    char next;
    while (port_read(nDescriptor, &next, 1) == 1) {
        if (LIsLineEnd(next)) {
            SkipSecondLineEnd(nDescriptor, next);
            return true;
        }
        writer.AddChar(next);
        bAny = true;
    }
    return bAny;
}

// The length that stands before a text; 0 when it is not whole.
unsigned long ReadLength(int nDescriptor) {
    unsigned char cShort = 0;
    if (port_read(nDescriptor, &cShort, 1) != 1 || cShort != LStringLenLong)
        return cShort;
    unsigned char bytes[4];
    if (port_read(nDescriptor, bytes, sizeof bytes) != static_cast<ssize_t>(sizeof bytes))
        return 0;
    unsigned long dwLength = 0;
    for (std::size_t i = sizeof bytes; i-- != 0;)
        dwLength = dwLength << 8 | bytes[i];
    return dwLength;
}

} // namespace

bool LReadFileRef::ReadLine(char* buffer, unsigned long size) const {
    LFixedLengthStringWriterTemplate<char> writer(buffer, static_cast<std::uint32_t>(size - 1));
    const bool bRead = ReadLineTo(writer, nDescriptor);
    buffer[writer.GetCount()] = '\0';
    return bRead;
}

bool LReadFileRef::ReadLine(LStringLongTemplate<char>& line) const {
    line.SetLength(0);
    LStringLongTemplateWriter<char> writer(line);
    const bool bRead = ReadLineTo(writer, nDescriptor);
    line.SetLength(writer.GetCount());
    return bRead;
}

void LReadFileRef::ReadStringLenUTF8(char* buffer) const {
    const unsigned long dwLength = ReadLength(nDescriptor);
    const long nRead = ReadStringUTF8(buffer, std::min(dwLength, LPathBufferSize - 1));
    const unsigned long dwRead = static_cast<unsigned long>(std::max(nRead, 0L));
    if (dwLength > dwRead)
        lseek(nDescriptor, static_cast<off_t>(dwLength - dwRead), SEEK_CUR);
}

long LReadFileRef::ReadStringUTF8(char* buffer, unsigned long size) const {
    const long nRead = port_read(nDescriptor, buffer, size);
    buffer[std::max(nRead, 0L)] = '\0';
    return nRead;
}
