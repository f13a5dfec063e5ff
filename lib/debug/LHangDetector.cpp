#include "debug/LHangDetector.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <port/bsd.h>
#include <port/transfer.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "base/internal/LIdentity.h"
#include "debug/LDebugThread.h"
#include "files/LFile.h"
#include "strings/LStringFormat.h"

namespace {

// The marker's content: when its run started, in seconds since 1970 and in milliseconds truncated to 32 bits,
// both little-endian.
constexpr unsigned long kMarkerSize = 8;
constexpr mode_t kMarkerMode = 0666;
constexpr unsigned long kTimeTextSize = 32;

void StoreLittleEndian(unsigned char* pOut, std::uint32_t dwValue) {
    for (int i = 0; i < 4; ++i)
        pOut[i] = static_cast<unsigned char>(dwValue >> (8 * i));
}

void ComposeMarker(unsigned char* pOut) {
    const time_t nSeconds = time(nullptr);
    timeval now{};
    gettimeofday(&now, nullptr);
    const std::int64_t nMilliseconds = std::int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
    StoreLittleEndian(pOut, static_cast<std::uint32_t>(nSeconds));
    StoreLittleEndian(pOut + 4, static_cast<std::uint32_t>(nMilliseconds));
}

const char* GetLoginName() {
    const char* szName = getenv("LOGNAME");
    if (szName == nullptr || *szName == '\0')
        szName = getenv("USER");
    return szName == nullptr ? "" : szName;
}

void Report(const unsigned char* pMarker) {
    std::uint32_t dwSeconds = 0;
    for (int i = 3; i >= 0; --i)
        dwSeconds = dwSeconds << 8 | pMarker[i];
    const time_t nStarted = static_cast<std::int32_t>(dwSeconds);
    tm fields{};
    char szTime[kTimeTextSize];
    strftime(szTime, sizeof szTime, "%Y-%m-%d %H:%M:%S", gmtime_r(&nStarted, &fields));
    OutputDebugStringF("the previous run, started %s UTC, ended without its clean end\n", szTime);
}

} // namespace

// A name with a separator would lead out of the folder.
void LHangDetector::_MakePath() {
    char szName[LPathBufferSize];
    tplsnprintf(szName, sizeof szName, "_%s_rl_%s", LGetIdentity().szName, GetLoginName());
    for (char* pSlash = strchr(szName, '/'); pSlash != nullptr; pSlash = strchr(pSlash, '/'))
        *pSlash = '_';
    char szFolder[LPathBufferSize];
    LFile::GetTempFolder(szFolder);
    LFile::_MakeFilePath(szPath, szFolder, szName, "");
}

// Made and locked in one step: a marker that stands and is not locked is of a run that is over. The descriptor
// is kept, and the lock with it, until `Destroy` or until the process ends in whatever way.
void LHangDetector::InitAndTest() {
    unsigned char marker[kMarkerSize];
    ComposeMarker(marker);
    _MakePath();
    fdMarker.reset();
    fdMarker.reset(
        port_open(szPath, O_RDWR | O_CREAT | O_EXCL | O_TRUNC | O_EXLOCK | O_NONBLOCK, kMarkerMode));
    if (!fdMarker)
        return _ReportStale();
    // A forked child has the descriptor too; the marker is not its own to delete.
    nProcess = getpid();
    [[maybe_unused]] const ssize_t nWritten = port_write(fdMarker.get(), marker, sizeof marker);
}

// Deleted under the exclusive lock, which is had only of the file that has the name: nobody else deletes it, and
// nobody makes a new one under its name, in between.
void LHangDetector::_ReportStale() {
    const port::UniqueFd fdStale(port_open(szPath, O_RDONLY | O_EXLOCK | O_NONBLOCK));
    if (!fdStale)
        return;
    unsigned char marker[kMarkerSize] = {};
    const bool bWhole = read(fdStale.get(), marker, sizeof marker) == sizeof marker;
    unlink(szPath);
    if (bWhole)
        Report(marker);
}

// Somebody may have cleared the temporary folder, and another run made its marker there.
bool LHangDetector::_IsOwn() const {
    struct stat open {};
    struct stat named {};
    return nProcess == getpid() && fstat(fdMarker.get(), &open) == 0 && stat(szPath, &named) == 0 &&
           open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

void LHangDetector::Destroy() {
    if (fdMarker && _IsOwn())
        unlink(szPath);
    fdMarker.reset();
}

void LDebugHangDetectorInit() {
    gLHangDetector.InitAndTest();
}

void LDebugHangDetectorDestroy() {
    gLHangDetector.Destroy();
}
