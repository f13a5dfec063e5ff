#include "debug/LDebugThread.h"

#include <CoreServices/CoreServices.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <port/bsd.h>
#include <port/internal/exported.h>
#include <port/mach.h>

#include "base/LMainThread.h"
#include "debug/LDebugSignals.h"
#include "strings/LStringFormat.h"

constinit LDebugThreadData lfoundation::gDebugThreadData[LDebugMaxThreads];
constinit port::Atomic<int> lfoundation::gnDebugThreads{0};

namespace {

struct LDebugAS {
    char szStatus[LPathBufferSize];
    std::atomic<std::uint32_t> dwOwner; // 0 for nobody
};

constinit LDebugAS debugAS{};

// The status is written and read without a lock, and a mixture of two texts is allowed, so each byte is on its
// own. Its last byte stays zero, whoever writes meanwhile.
void StoreStatus(const char* szText) {
    for (unsigned long i = 0; i + 1 < sizeof debugAS.szStatus; ++i) {
        std::atomic_ref(debugAS.szStatus[i]).store(szText[i], std::memory_order_relaxed);
        if (szText[i] == '\0')
            return;
    }
}

void LoadStatus(char* szOut) {
    for (unsigned long i = 0; i < sizeof debugAS.szStatus; ++i)
        szOut[i] = std::atomic_ref(debugAS.szStatus[i]).load(std::memory_order_relaxed);
}

const char* TextOrEmpty(const char* szText) {
    return szText == nullptr ? "" : szText;
}

// Without the lock it is reliable for the calling thread's own entry only: nobody else gives that away, and the
// number in use never falls below it.
int FindEntry(std::uint32_t dwThread) {
    const int nUsed = gnDebugThreads.load();
    for (int i = 0; i < nUsed; ++i)
        if (gDebugThreadData[i].dwThread.load() == dwThread)
            return i;
    return -1;
}

// Reserved under the lock, filled without it: neither free nor anybody's, it is found by nobody meanwhile.
int ReserveEntry() {
    const LLockScope scope(loDebugThreads);
    int nEntry = FindEntry(LDebugThreadFree);
    if (nEntry < 0) {
        if (gnDebugThreads.load() == LDebugMaxThreads)
            return -1;
        nEntry = gnDebugThreads.fetch_add(1);
    }
    gDebugThreadData[nEntry].dwThread.store(LDebugThreadReserved);
    return nEntry;
}

// The first characters of the name and the calling thread's digits.
void FormatWithDigits(char* szOut, unsigned long dwSize, const char* szName) {
    const std::uint32_t dwThread = mach_thread_self();
    tplsnprintf(szOut, dwSize, "%s%u%u%u", szName, dwThread % 10, dwThread / 10 % 10, dwThread / 100 % 10);
}

void SetTag(LDebugThreadData& entry, const char* szName) {
    char szBegin[LDebugTagNameLength + 1];
    strlcpy(szBegin, TextOrEmpty(szName), sizeof szBegin);
    FormatWithDigits(entry.szTag, sizeof entry.szTag, szBegin);
}

unsigned int GetVersionPart(OSType selector) {
    SInt32 nVersion = 0;
    Gestalt(selector, &nVersion);
    return static_cast<std::uint8_t>(nVersion);
}

void FormatSystem(char* szOut, unsigned long dwSize) {
    tplsnprintf(szOut, dwSize, "Mac%s%u%02u", "Intel", GetVersionPart(gestaltSystemVersionMajor),
                GetVersionPart(gestaltSystemVersionMinor));
}

void FormatPhase(char* szOut) {
    static constexpr const char* kPhases[] = {"GloIni1", "GuiIni2", "GuiDes3", "GloDes4"};
    if (gwDebugCurrentCommand == 0)
        tplsnprintf(szOut, LPathBufferSize, "Ukn0(LstCmd%d)", static_cast<int>(gwDebugLastCommand));
    else if (gwDebugCurrentCommand <= std::size(kPhases))
        strlcpy(szOut, kPhases[gwDebugCurrentCommand - 1], LPathBufferSize);
    else
        tplsnprintf(szOut, LPathBufferSize, "(Cmd%d)", static_cast<int>(gwDebugCurrentCommand));
}

void FormatState(char* szOut) {
    *szOut = '\0';
    if (debugAS.dwOwner.load() == mach_thread_self())
        LoadStatus(szOut);
    else if (LIsMainThread())
        FormatPhase(szOut);
}

// The caller's tag and last dialog.
void FormatEntry(char* szTag, unsigned long dwSize, char* szDialog) {
    const LLockScope scope(loDebugThreads);
    const int nEntry = FindEntry(mach_thread_self());
    *szDialog = '\0';
    if (nEntry < 0) {
        strlcpy(szTag, "Unknown", dwSize);
        return;
    }
    const LDebugThreadData& entry = gDebugThreadData[nEntry];
    const bool bNumbered = *entry.szTag >= '0' && *entry.szTag <= '9';
    strlcpy(szTag, bNumbered ? "" : entry.szTag, dwSize);
    strlcpy(szDialog, entry.szLastDialog, LDebugDialogSize);
}

} // namespace

void LDebugThreadDataStartThread(const char* szName) {
    const int nEntry = ReserveEntry();
    if (nEntry < 0)
        return;
    LDebugThreadData& entry = gDebugThreadData[nEntry];
    const std::uint32_t dwThread = mach_thread_self();
    if (*TextOrEmpty(szName) == '\0')
        tplsnprintf(entry.szTag, sizeof entry.szTag, "%.4u", dwThread % 10000);
    else
        strlcpy(entry.szTag, szName, LDebugTagNameLength + 1);
    entry.szLastDialog[0] = '\0';
    // Last: the entry is whole when it can be found.
    entry.dwThread.store(dwThread);
}

void LDebugThreadDataStopThread() {
    const LLockScope scope(loDebugThreads);
    const int nEntry = FindEntry(mach_thread_self());
    if (nEntry < 0)
        return;
    gDebugThreadData[nEntry].dwThread.store(LDebugThreadFree);
    int nUsed = gnDebugThreads.load();
    while (nUsed > 0 && gDebugThreadData[nUsed - 1].dwThread.load() == LDebugThreadFree)
        --nUsed;
    gnDebugThreads.store(nUsed);
}

void LDebugThreadSetName(const char* szName) {
    const int nEntry = FindEntry(mach_thread_self());
    if (nEntry >= 0)
        SetTag(gDebugThreadData[nEntry], szName);
}

void LDebugThreadSetLastDialog(const char* szText) {
    const int nEntry = FindEntry(mach_thread_self());
    if (nEntry < 0)
        return;
    LDebugThreadData& entry = gDebugThreadData[nEntry];
    FormatWithDigits(entry.szLastDialog, sizeof entry.szLastDialog, szText);
}

void LDebugThreadStatusSet(const char* szText) {
    StoreStatus(TextOrEmpty(szText));
    debugAS.dwOwner.store(mach_thread_self());
}

void LDebugThreadStatusClear() {
    std::uint32_t dwThread = mach_thread_self();
    debugAS.dwOwner.compare_exchange_strong(dwThread, 0);
}

LBugReportBlockScope::LBugReportBlockScope(const char* szName) : nEntry(FindEntry(mach_thread_self())) {
    if (nEntry < 0)
        return;
    strlcpy(szSavedTag, gDebugThreadData[nEntry].szTag, sizeof szSavedTag);
    SetTag(gDebugThreadData[nEntry], szName);
}

// The thread may have given its entry up inside the block, and another one may have it now.
LBugReportBlockScope::~LBugReportBlockScope() {
    if (nEntry >= 0 && gDebugThreadData[nEntry].dwThread.load() == mach_thread_self())
        strlcpy(gDebugThreadData[nEntry].szTag, szSavedTag, LDebugTagSize);
}

void LDebugGenerateXIString(char* szOut, const char* szText1, const char* szText2) {
    char szSystem[LDebugDialogSize];
    FormatSystem(szSystem, sizeof szSystem);
    char szTag[LDebugTagSize];
    char szDialog[LDebugDialogSize];
    FormatEntry(szTag, sizeof szTag, szDialog);
    char szState[LPathBufferSize];
    FormatState(szState);
    char szDetail[LPathBufferSize];
    tplsnprintf(szDetail, sizeof szDetail, "%s%s%s", szTag, szDialog, szState);
    tplsnprintf(szOut, LPathBufferSize, "%s-%s-%s-%s", szText1, szSystem, szText2, szDetail);
}

template <typename>
void OutputDebugStringF(const char* szFormat, ...) {
    char szLine[LDebugOutputSize];
    va_list arguments;
    va_start(arguments, szFormat);
    vsnprintf(szLine, sizeof szLine, szFormat, arguments);
    va_end(arguments);
    fputs(szLine, stderr);
    fflush(stderr);
}
template PORT_EXPORTED void OutputDebugStringF<>(const char*, ...);
