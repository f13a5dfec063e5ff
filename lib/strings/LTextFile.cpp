#include "strings/LTextFile.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <port/UniqueFd.h>
#include <port/bsd.h>
#include <port/files.h>
#include <port/transfer.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "files/LFile.h"
#include "strings/LCharsets.h"
#include "strings/internal/LCharsetsKernels.h"
#include "strings/internal/LCharsetsUnits.h"
#include "threads/LLockFile.h"

namespace {

constexpr unsigned int kReadLockTimeout = 1000; // milliseconds
constexpr unsigned int kWriteLockTimeout = 500;
constexpr int kMostOpenings = 10; // of a file that others replace each time

constexpr off_t kLargestFile = std::numeric_limits<std::uint32_t>::max() - 1; // leaves room for a terminator
constexpr unsigned long kPieceSize = 32768; // bytes that are worked on while they are in the nearest cache
constexpr unsigned long kBytesOfUnit = 3;   // the longest sequence of a 16-bit unit

constexpr std::array<char, 3> kMarkUTF8 = {'\xEF', '\xBB', '\xBF'};
constexpr char16_t kMarkUnit = 0xFEFF;

constexpr std::array<char, 2> kMarkHere = std::bit_cast<std::array<char, 2>>(kMarkUnit);
constexpr std::array<char, 2> kMarkSwapped = {kMarkHere[1], kMarkHere[0]};

using Start = std::array<char, 3>; // the bytes of the longest mark

class InputFile {
public:
    // Without blocking: nobody may ever write into a pipe in the place of the file.
    explicit InputFile(const char* path) : file(port_open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY)) {
        if (!file)
            return;
        flocktimed(file.get(), LOCK_SH | LOCK_NB, kReadLockTimeout);
        struct stat status;
        if (fstat(file.get(), &status) == 0 && status.st_size <= kLargestFile)
            dwLeft = static_cast<unsigned long>(status.st_size);
    }

    bool IsOpen() const { return static_cast<bool>(file); }
    // Bytes to the end that the file had when it was opened.
    unsigned long GetLeft() const { return dwLeft; }

    // The first bytes, with zeros for those that are not there. They are still to be read.
    Start GetStart() const {
        Start start = {};
        [[maybe_unused]] const ssize_t nIgnored =
            pread(file.get(), start.data(), std::min(start.size(), dwLeft), 0);
        return start;
    }

    // Reads as much of size bytes as there is.
    unsigned long Read(char* pTo, unsigned long size) {
        const unsigned long dwWanted = std::min(size, dwLeft);
        unsigned long dwDone = 0;
        ssize_t nRead = 1;
        while (dwDone < dwWanted && nRead > 0) {
            nRead = port_read(file.get(), pTo + dwDone, dwWanted - dwDone);
            dwDone += static_cast<unsigned long>(std::max<ssize_t>(nRead, 0));
        }
        dwLeft -= dwDone;
        return dwDone;
    }

    // Passes the mark when the file begins with it; nothing has been read yet.
    template <std::size_t N>
    bool SkipMark(const Start& start, const std::array<char, N>& mark) {
        if (!BeginsWith(start, mark))
            return false;
        lseek(file.get(), N, SEEK_SET);
        dwLeft -= N;
        return true;
    }

    template <std::size_t N>
    static bool BeginsWith(const Start& start, const std::array<char, N>& mark) {
        return std::equal(mark.begin(), mark.end(), start.begin());
    }

private:
    port::UniqueFd file;
    unsigned long dwLeft = 0;
};

// Makes room for so many bytes and a terminator, without the old text.
char* Prepare(LStringLongTemplate<char>& text, unsigned long dwBytes) {
    text.SetLength(0);
    text.GrowToSize(dwBytes + 1);
    return text.GetData();
}

void LoadBytes(InputFile& file, LStringLongTemplate<char>& text) {
    char* const pTo = Prepare(text, file.GetLeft());
    text.SetLength(static_cast<std::uint32_t>(file.Read(pTo, file.GetLeft())));
}

// What stands between the mark and the first 0 byte. The mark is read, too, and the text moved over it while it is in
// the nearest cache: the kernel is a third slower where file and memory are aligned differently.
void LoadMarkedText(InputFile& file, LStringLongTemplate<char>& text) {
    char* const pTo = Prepare(text, file.GetLeft());
    unsigned long dwDone = 0;
    unsigned long dwLength = 0;
    unsigned long dwRead;
    unsigned long dwText;
    do {
        const char* const pPiece = pTo + dwDone;
        dwRead = file.Read(pTo + dwDone, kPieceSize);
        dwText = strnlen(pPiece, dwRead);
        const unsigned long dwMark = dwDone == 0 ? std::min(dwText, kMarkUTF8.size()) : 0;
        std::memmove(pTo + dwLength, pPiece + dwMark, dwText - dwMark);
        dwLength += dwText - dwMark;
        dwDone += dwText;
    } while (dwRead != 0 && dwText == dwRead);
    text.SetLength(static_cast<std::uint32_t>(dwLength));
}

// Exchanges the bytes of every unit, a word of them at a time.
void SwapUnits(char* pBytes, unsigned long dwUnits) {
    constexpr unsigned long kUnitsOfWord = sizeof(std::uint64_t) / sizeof(char16_t);
    constexpr std::uint64_t kLowBytes = 0x00FF00FF00FF00FF;
    for (; dwUnits >= kUnitsOfWord; dwUnits -= kUnitsOfWord, pBytes += sizeof(std::uint64_t)) {
        std::uint64_t qwUnits;
        std::memcpy(&qwUnits, pBytes, sizeof qwUnits);
        qwUnits = (qwUnits & kLowBytes) << 8 | (qwUnits >> 8 & kLowBytes);
        std::memcpy(pBytes, &qwUnits, sizeof qwUnits);
    }
    for (; dwUnits != 0; --dwUnits, pBytes += sizeof(char16_t))
        std::swap(pBytes[0], pBytes[1]);
}

enum class Order { Here, Swapped };
enum class OddByte { Drop, PadWithZero };

// The units before the first 0 unit, as UTF-8. Only the last piece can have an odd byte.
void LoadUnits(InputFile& file, Order order, OddByte oddByte, LStringLongTemplate<char>& text) {
    const unsigned long dwRoom = kBytesOfUnit * ((file.GetLeft() + 1) / 2);
    char* const pTo = Prepare(text, dwRoom);
    unsigned long dwLength = 0;
    alignas(unsigned short) char piece[kPieceSize];
    const auto* const pUnits = reinterpret_cast<const unsigned short*>(piece);
    unsigned long dwUnits;
    unsigned long dwText;
    do {
        unsigned long dwRead = file.Read(piece, kPieceSize);
        if (dwRead % 2 != 0 && oddByte == OddByte::PadWithZero)
            piece[dwRead++] = '\0';
        dwUnits = dwRead / 2;
        if (order == Order::Swapped)
            SwapUnits(piece, dwUnits);
        dwText = LCharsetsUnitCount(pUnits, dwUnits);
        dwLength += LCharsetsEncode(pTo + dwLength, dwRoom - dwLength, pUnits, dwText).nWritten;
    } while (dwUnits != 0 && dwText == dwUnits);
    text.SetLength(static_cast<std::uint32_t>(dwLength));
}

// UTF-16 behind its mark; false when there is none.
bool LoadMarkedUnits(InputFile& file, const Start& start, OddByte oddByte, LStringLongTemplate<char>& text) {
    const bool bHere = file.SkipMark(start, kMarkHere);
    if (!bHere && !file.SkipMark(start, kMarkSwapped))
        return false;
    LoadUnits(file, bHere ? Order::Here : Order::Swapped, oddByte, text);
    return true;
}

// A file that a saver works on, under its lock if that can be had in time.
class OutputFile {
public:
    OutputFile(const char* szFilePath, int nFlags) : szPath(szFilePath), bNew(access(szPath, F_OK) != 0) {
        for (int n = 0; n < kMostOpenings && !_Open(nFlags); ++n) {
        }
    }

    bool IsOpen() const { return static_cast<bool>(file); }

    // Behind the old text, which stays as it was when not all can be written.
    bool Append(const void* pBytes, unsigned long dwSize) const {
        if (port_write_all(file.get(), pBytes, dwSize))
            return true;
        if (bLocked) // others may have added something too
            _Undo();
        return false;
    }

    // In place of the old text. A file that has one, and no other name, is replaced by a new file that takes the name:
    // nothing that fails, and no end of the process, costs the old text.
    bool Replace(const void* pBytes, unsigned long dwSize) const {
        if (S_ISREG(status.st_mode) && status.st_nlink == 1 && status.st_size != 0) {
            if (port_replace_file(szPath, pBytes, dwSize, false))
                return true;
            if (_IsFaultOfTheDisk(errno))
                return false;
        }
        return _Overwrite(pBytes, dwSize);
    }

private:
    // False when somebody replaced the file while its lock was waited for.
    bool _Open(int nFlags) {
        file.reset(port_open(szPath, O_RDWR | nFlags, 0666));
        if (!file)
            return true;
        bLocked = flocktimed(file.get(), LOCK_EX | LOCK_NB, kWriteLockTimeout) == 0;
        if (fstat(file.get(), &status) != 0)
            status = {};
        struct stat named;
        return !bLocked || (stat(szPath, &named) == 0 && _IsThis(named));
    }

    bool _IsThis(const struct stat& other) const {
        return other.st_dev == status.st_dev && other.st_ino == status.st_ino;
    }

    // What no other way of writing overcomes; the rest is a matter of rights and names.
    static bool _IsFaultOfTheDisk(int nError) {
        constexpr std::array kFaults = {ENOSPC, EDQUOT, EIO, EFBIG, ENOMEM, EMFILE, ENFILE};
        return std::find(kFaults.begin(), kFaults.end(), nError) != kFaults.end();
    }

    // An old text goes when there is room for the new one.
    bool _Overwrite(const void* pBytes, unsigned long dwSize) const {
        const bool bWritten = (status.st_size == 0 || port_reserve(file.get(), dwSize)) &&
                              port_write_all(file.get(), pBytes, dwSize);
        if (bWritten)
            _CutTo(static_cast<off_t>(dwSize));
        else
            _Undo();
        return bWritten;
    }

    // A file that was made for a text that could not be written goes.
    void _Undo() const {
        struct stat named;
        _CutTo(status.st_size);
        if (bNew && lstat(szPath, &named) == 0 && _IsThis(named))
            unlink(szPath);
    }

    // A device has no length to cut.
    void _CutTo(off_t nSize) const { [[maybe_unused]] const int nIgnored = ftruncate(file.get(), nSize); }

    const char* const szPath;
    const bool bNew;
    port::UniqueFd file;
    struct stat status = {}; // as it was found
    bool bLocked = false;
};

bool ReplaceBytes(const char* path, const void* pBytes, unsigned long dwSize) {
    const OutputFile file(path, O_CREAT);
    return file.IsOpen() && file.Replace(pBytes, dwSize);
}

int SaveBytes(const char* path, const char* pBytes, unsigned long dwSize) {
    return ReplaceBytes(path, pBytes, dwSize) ? LFile::SetFileAttributeTextEncodingUTF8(path) : -1;
}

// Whoever adds without a lock must not overwrite what others add meanwhile.
int AppendBytes(const char* path, const char* pBytes, unsigned long dwSize) {
    const OutputFile file(path, O_CREAT | O_APPEND);
    return file.IsOpen() && file.Append(pBytes, dwSize) ? LFile::SetFileAttributeTextEncodingUTF8(path) : -1;
}

// The lock of the old file keeps other savers out; a new one appears whole. What may not be written is not replaced.
bool SaveBytesSafely(const char* path, const char* pBytes, unsigned long dwSize) {
    const OutputFile old(path, 0);
    if ((!old.IsOpen() && errno != ENOENT) || !port_replace_file(path, pBytes, dwSize, true))
        return false;
    LFile::SetFileAttributeTextEncodingUTF8(path);
    return true;
}

} // namespace

int LLoadText(const char* path, LStringLongTemplate<char>& text) {
    InputFile file(path);
    if (file.IsOpen())
        LoadBytes(file, text);
    return file.IsOpen() ? 1 : 0;
}

int LLoadTextAsUTF16(const char* path, LStringLongTemplate<char>& text) {
    InputFile file(path);
    if (file.IsOpen())
        LoadUnits(file, Order::Here, OddByte::Drop, text);
    return file.IsOpen() ? 1 : 0;
}

int LLoadTextUnicode(const char* path, LStringLongTemplate<char>& text) {
    InputFile file(path);
    if (file.IsOpen() && !LoadMarkedUnits(file, file.GetStart(), OddByte::Drop, text))
        LoadUnits(file, Order::Here, OddByte::Drop, text);
    return file.IsOpen() ? 1 : 0;
}

bool LLoadTextAutoChar(const char* path, LStringLongTemplate<char>& text) {
    InputFile file(path);
    if (!file.IsOpen())
        return false;
    const Start start = file.GetStart();
    if (LoadMarkedUnits(file, start, OddByte::PadWithZero, text))
        return true;
    if (InputFile::BeginsWith(start, kMarkUTF8))
        LoadMarkedText(file, text);
    else
        LoadBytes(file, text);
    return true;
}

int LSaveText(const char* path, const char* text) {
    return SaveBytes(path, text, std::strlen(text));
}

int LSaveText(const char* path, const LStringLongTemplate<char>& text) {
    return SaveBytes(path, text.GetText(), text.GetLength());
}

bool LSaveTextSafe(const char* path, const char* text) {
    return SaveBytesSafely(path, text, std::strlen(text));
}

bool LSaveTextSafe(const char* path, const LStringLongTemplate<char>& text) {
    return SaveBytesSafely(path, text.GetText(), text.GetLength());
}

int LSaveAppendText(const char* path, const char* text) {
    return AppendBytes(path, text, std::strlen(text));
}

int LSaveAppendText(const char* path, const LStringLongTemplate<char>& text) {
    return AppendBytes(path, text.GetText(), text.GetLength());
}

int LSaveTextAsUnicodeBOM(const char* path, const LStringLongTemplate<char>& text) {
    const unsigned long dwLength = std::strlen(text.GetText());
    const auto units = std::make_unique_for_overwrite<unsigned short[]>(dwLength + 2); // mark and terminator
    units[0] = kMarkUnit;
    LCopyUnicodeFromUTF8(units.get() + 1, text.GetText(), dwLength + 1);
    const unsigned long dwUnits = 1 + LCharsetsUnitCount(units.get() + 1, dwLength);
    return ReplaceBytes(path, units.get(), dwUnits * sizeof units[0]) ? 0 : -1;
}
