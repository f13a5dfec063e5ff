// Writing to a file through a buffer: bytes, text, lines, formatted text.
//
// Thread-safety: none; an object belongs to one thread. What goes on from the buffer to the file blocks with it.
//
// The writer does not own the descriptor: who opened it closes it, after Flush or the writer's destruction. -1 means
// that no file is open; writing fails then. Nobody else writes to the descriptor meanwhile, unless it appends.
//
// What was taken is on its way, not in the file: whether it arrived is told by Flush. After the first failure, a full
// disk for instance, nothing more is written, and every operation says so; how much of the last buffer is in the file
// is not known then.
#pragma once

#include <cstdint>
#include <cstring>

#pragma GCC visibility push(default)

constexpr std::uint32_t LWriteFileBufferSize = 8192; // bytes that are written at once

class LWriteFileBuffered {
public:
    explicit LWriteFileBuffered(int nFileDescriptor = -1) : nDescriptor(nFileDescriptor) {}
    LWriteFileBuffered(const LWriteFileBuffered&) = delete;
    LWriteFileBuffered& operator=(const LWriteFileBuffered&) = delete;
    // Writes what is left, without a word about a failure.
    ~LWriteFileBuffered() { Flush(); }

    int GetDescriptor() const { return nDescriptor; }

    // True while nothing failed.
    bool Write(const void* bytes, unsigned long size) {
        if (size > LWriteFileBufferSize - dwCount) [[unlikely]]
            return _WriteOn(static_cast<const char*>(bytes), size);
        std::memcpy(szBuffer + dwCount, bytes, size);
        dwCount += static_cast<std::uint32_t>(size);
        return !bFailed;
    }

    // Without the terminator. Text is UTF-8 as it is.
    bool WriteString(const char* text) { return Write(text, std::strlen(text)); }
    // The text and a line's end, CR LF or LF.
    bool WriteLineCRLF(const char* text) { return WriteString(text) && Write("\r\n", 2); }
    bool WriteLineLF(const char* text) { return WriteString(text) && Write("\n", 1); }

    // Hands everything to the file; it is on the disk when the system puts it there. False when anything failed since
    // the beginning.
    bool Flush();

private:
    friend std::uint32_t fprintf(LWriteFileBuffered& file, const char* format, ...);

    bool _WriteOn(const char* pBytes, unsigned long size);

    int nDescriptor;
    char szBuffer[LWriteFileBufferSize];
    std::uint32_t dwCount = 0;
    bool bFailed = false;
};

// Formats with the grammar of LStringFormat.h. Returns the length of the text, whether or not it can be written.
__attribute__((format(printf, 2, 3))) std::uint32_t fprintf(LWriteFileBuffered& file, const char* format,
                                                            ...);

#pragma GCC visibility pop
