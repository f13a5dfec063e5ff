#include "files/LWriteFile.h"

#include <cstdarg>
#include <cstring>
#include <limits>
#include <port/transfer.h>

#include "strings/LStringFormat.h"

namespace {

bool WriteAll(int nDescriptor, const void* pBytes, unsigned long dwSize) {
    return dwSize == 0 || port_write(nDescriptor, pBytes, dwSize) == static_cast<ssize_t>(dwSize);
}

// The length that stands before a text, in one byte or five.
bool WriteLength(int nDescriptor, unsigned long dwLength) {
    const auto Byte = [dwLength](int nShift) { return static_cast<unsigned char>(dwLength >> nShift); };
    if (dwLength < LStringLenLong) {
        const unsigned char cShort = Byte(0);
        return WriteAll(nDescriptor, &cShort, 1);
    }
    const unsigned char bytes[5] = {LStringLenLong, Byte(0), Byte(8), Byte(16), Byte(24)};
    return dwLength <= std::numeric_limits<std::uint32_t>::max() &&
           WriteAll(nDescriptor, bytes, sizeof bytes);
}

} // namespace

bool LWriteFileRef::WriteString(const char* text) const {
    return WriteAll(nDescriptor, text, std::strlen(text));
}

void LWriteFileRef::WriteLineCRLF(const char* text) const {
    WriteString(text);
    WriteString("\r\n");
}

void LWriteFileRef::WriteLineLF(const char* text) const {
    WriteString(text);
    WriteString("\n");
}

long LWriteFileRef::WriteStringLenUTF8(const char* text) const {
    const unsigned long dwLength = std::strlen(text);
    return WriteLength(nDescriptor, dwLength) ? port_write(nDescriptor, text, dwLength) : -1;
}

std::uint32_t fprintf(LWriteFileRef file, const char* format, ...) {
    LStringLongTemplate<char> lsText;
    LStringLongTemplateWriter<char> writer(lsText);
    va_list arguments;
    va_start(arguments, format);
    const std::uint32_t dwLength = tplprintf(writer, format, arguments);
    va_end(arguments);
    lsText.SetLength(dwLength);
    WriteAll(file.GetDescriptor(), lsText.GetText(), dwLength);
    return dwLength;
}
