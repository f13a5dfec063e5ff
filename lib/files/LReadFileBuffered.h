// Reading a file through a buffer, with a look ahead and with seeking.
//
// Thread-safety: none; an object belongs to one thread. All operations block with the file.
//
// The reader does not own the descriptor: who opened it closes it, after the reader's last use. -1 means that
// no file is open; there is nothing to read then. The descriptor's own offset is behind what is buffered, so
// nobody else reads from it meanwhile. Positions and sizes are bytes.
#pragma once

#include <cstdint>
#include <cstring>

#pragma GCC visibility push(default)

constexpr std::uint32_t LReadFileBufferSize = 8192; // bytes read ahead
constexpr unsigned long LReadFileDirect = 257;      // from so many bytes on they go straight to the caller

class LReadFileBuffered {
public:
    explicit LReadFileBuffered(int nFileDescriptor = -1) : nDescriptor(nFileDescriptor) {}
    LReadFileBuffered(const LReadFileBuffered&) = delete;
    LReadFileBuffered& operator=(const LReadFileBuffered&) = delete;

    int GetDescriptor() const { return nDescriptor; }

    // Returns how many bytes were delivered: less than size only at the end of the file or on an error.
    unsigned long Read(void* buffer, unsigned long size) {
        if (size > dwCount - dwPosition) [[unlikely]]
            return _ReadOn(static_cast<char*>(buffer), size);
        _Take(buffer, size);
        return size;
    }

    // As Read, but the position stays. A descriptor that cannot seek loses what does not fit the buffer.
    unsigned long Peek(void* buffer, unsigned long size);

    // One line, without its end, which is CR, LF or CR LF. At most size - 1 bytes are stored, and always a
    // terminator (size is at least 1); the rest of a longer line is dropped, and what lies behind the
    // terminator is unspecified. True when a line ended, or when the file did behind at least one byte; else
    // false, and the text is empty.
    bool ReadLine(char* buffer, unsigned long size);

    // 0 when the size cannot be asked.
    unsigned long long GetFileSizeBytes64() const;
    // The position of the next byte to be delivered.
    unsigned long long Tell64() const;

    // The buffer is emptied, also when the descriptor cannot seek.
    void Seek(unsigned int position) { Seek64(position); }
    void Seek64(unsigned long long position);
    // Relative to the position.
    void SeekOffset64(long long offset);

private:
    // The next bytes of the buffer, which holds as many. The usual sizes of single values are copied as such.
    void _Take(void* buffer, unsigned long size) {
        const char* pFrom = szBuffer + dwPosition;
        dwPosition += static_cast<std::uint32_t>(size);
        switch (size) {
        case 1:
            std::memcpy(buffer, pFrom, 1);
            break;
        case 2:
            std::memcpy(buffer, pFrom, 2);
            break;
        case 4:
            std::memcpy(buffer, pFrom, 4);
            break;
        case 8:
            std::memcpy(buffer, pFrom, 8);
            break;
        default:
            std::memcpy(buffer, pFrom, size);
        }
    }
    unsigned long _ReadOn(char* buffer, unsigned long size);
    bool _ReadLineInParts(char* buffer, unsigned long size);
    bool _Refill();
    unsigned long _TakeText(char* pTo, unsigned long dwRoom);
    void _SkipLineFeed();
    void _Empty() { dwPosition = dwCount = 0; }

    int nDescriptor;
    char szBuffer[LReadFileBufferSize];
    std::uint32_t dwPosition = 0;
    std::uint32_t dwCount = 0;
};

#pragma GCC visibility pop
