// What a problem report tells of a process at work: for each thread a short tag and the last dialog that it
// showed, one global status text, and the phase that the main thread is in.
//
// Thread-safety: everything may be called from any thread. What is about "the caller" reads and writes the
// calling thread's own entry. The table is changed under `loDebugThreads`; a thread without an entry is passed
// over. Nothing blocks but for that lock, which is never held for long, and OutputDebugStringF, which writes.
//
// The digits of a thread are the last three of its Mach thread's number in reverse order: 123 for 4321.
// A null text counts as empty; a text that does not fit is cut, by bytes.
#pragma once

#include <cstdint>
#include <port/Atomic.h>

#include "base/LLimits.h"
#include "debug/LDebugSignals.h"
#include "threads/LLockObject.h"

#pragma GCC visibility push(default)

constexpr int LDebugMaxThreads = 64;             // entries; a thread more than that has none
constexpr unsigned long LDebugTagSize = 8;       // bytes, terminator included, as the two below
constexpr unsigned long LDebugDialogSize = 32;   //
constexpr unsigned long LDebugOutputSize = 512;  // of a line of OutputDebugStringF
constexpr unsigned long LDebugTagNameLength = 4; // characters that a tag keeps of a name

// Values of `dwThread` that no thread has.
constexpr std::uint32_t LDebugThreadFree = 0xFFFFFFFFU;
constexpr std::uint32_t LDebugThreadReserved = 0xFFFFFFFEU; // being filled

struct LDebugThreadData {
    port::Atomic<std::uint32_t> dwThread{LDebugThreadFree}; // the Mach thread
    char szLastDialog[LDebugDialogSize] = {};
    char szTag[LDebugTagSize] = {};
};

// The table, its lock, and how many entries from its beginning are in use.
inline namespace lfoundation {
extern LDebugThreadData gDebugThreadData[LDebugMaxThreads];
extern port::Atomic<int> gnDebugThreads;
extern LLockObject loDebugThreads;
} // namespace lfoundation

// The phase of the main thread, for it alone to change: 1 and 2 while the program and its user interface are
// initialised, 3 and 4 while they are taken down, from 5 on the command that runs, 0 when it is not known.
inline namespace lfoundation {
extern std::uint32_t gwDebugCurrentCommand; // 1 at load time
extern std::uint32_t gwDebugLastCommand;    // 0 at load time
} // namespace lfoundation

// Gives the caller an entry with the first four characters of the name as its tag; without a name, with the
// last four digits of its number. A thread that ends without StopThread keeps its entry.
void LDebugThreadDataStartThread(const char* szName);
// Frees the caller's entry.
void LDebugThreadDataStopThread();

// The tag becomes the first four characters of the name and the thread's digits.
void LDebugThreadSetName(const char* szName);
// The last dialog becomes the text and the thread's digits, cut to 31 characters.
void LDebugThreadSetLastDialog(const char* szText);

// The global status becomes the text, cut to 259 characters, and the caller its owner. Two threads that set
// it at once may leave a mixture of their texts.
void LDebugThreadStatusSet(const char* szText);
// Takes the status back when the caller owns it.
void LDebugThreadStatusClear();

// The caller's tag is another one, made as by LDebugThreadSetName, for the life of a block; blocks nest.
class LBugReportBlockScope {
public:
    explicit LBugReportBlockScope(const char* szName);
    LBugReportBlockScope(const LBugReportBlockScope&) = delete;
    LBugReportBlockScope& operator=(const LBugReportBlockScope&) = delete;
    ~LBugReportBlockScope();

private:
    char szSavedTag[LDebugTagSize] = {};
    std::int32_t nEntry; // -1 when the thread has none
};

// Writes where the caller is into a buffer of LPathBufferSize bytes, which overlaps neither text: text1, the
// system, text2, and the caller's tag, last dialog and state, with "-" between the four. The state is the
// global status if the caller owns it, else the main thread's phase on the main thread. A tag of digits only
// and what there is not are left out; a thread without an entry has the tag "Unknown".
void LDebugGenerateXIString(char* szOut, const char* szText1, const char* szText2);

// Prints to standard error, with the platform's printf, and flushes it; cut at 511 characters.
// A template, so that it yields to a program's own function of that name.
template <typename = void>
void OutputDebugStringF(const char* szFormat, ...) __attribute__((format(printf, 1, 2)));

#pragma GCC visibility pop
