// Writing text, lines and length-prefixed strings to a file, without a buffer.
//
// Thread-safety: as the descriptor's; the handle keeps no state. All operations block with the file.
//
// The handle owns nothing: who opened the descriptor closes it. -1 means that no file is open; nothing is
// written then. A call that a signal interrupts before it wrote anything is begun anew; one that wrote a part,
// because the disk is full for instance, is not continued.
//
// A length-prefixed string is one byte with the length of the text where that is below 255, else the byte 255
// and the length in 4 bytes, the lowest first; then the text, without a terminator.
#pragma once

#include <cstdint>

#pragma GCC visibility push(default)

constexpr unsigned char LStringLenLong = 255; // the short length that a long one follows

class LWriteFileRef {
public:
    explicit LWriteFileRef(int nFileDescriptor = -1) : nDescriptor(nFileDescriptor) {}

    int GetDescriptor() const { return nDescriptor; }

    // True when every byte was written; without a file only for the empty text. Text is UTF-8 as it is, so
    // both are the same.
    bool WriteString(const char* text) const;
    bool WriteStringUTF8(const char* text) const { return WriteString(text); }

    // The text and a line's end, CR LF or LF. Failures are not told.
    void WriteLineCRLF(const char* text) const;
    void WriteLineLF(const char* text) const;

    // The length-prefixed form. Returns how many bytes of the text were written, or -1: then nothing of it
    // was.
    long WriteStringLenUTF8(const char* text) const;

private:
    int nDescriptor;
};

// Formats with the grammar of LStringFormat.h and writes the text by one call. Returns the length of the text,
// whether or not it could be written.
__attribute__((format(printf, 2, 3))) std::uint32_t fprintf(LWriteFileRef file, const char* format, ...);

#pragma GCC visibility pop
