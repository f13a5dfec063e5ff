// Shell commands whose standard streams are connected to this process.
//
// Thread-safety: an object belongs to one thread. Descriptors are close-on-exec: a command started meanwhile
// by another thread does not hold them open.
//
// Opening fails only when no pipe or process can be had; the object is then not open. A command that does not
// exist is reported by the shell itself, on its streams and by its exit status. A command starts with default signal
// handling, no signal blocked, and no descriptor but the three standard ones, those of this process where it has no
// pipe.
#pragma once

#include <cstdio>
#include <port/UniqueFd.h>
#include <sys/types.h>

#pragma GCC visibility push(default)

// One stream of a command.
class LPipeStream {
public:
    LPipeStream(const LPipeStream&) = delete;
    LPipeStream& operator=(const LPipeStream&) = delete;

    // -1 when not open.
    int GetDescriptor() const { return nDescriptor; }
    FILE* GetStream() const { return pStream; }

    // Waits for the command's end. Its status as `waitpid` gives it; -1 when not open or when it cannot be
    // had.
    int Close();

protected:
    LPipeStream() = default;
    // Waits for the command's end.
    ~LPipeStream() { Close(); }
    bool _OpenStream(const char* szCommandLine, bool bReads);

private:
    FILE* pStream = nullptr;
    int nDescriptor = -1;
    pid_t process = -1;
};

// Reads what the command writes.
class LPipeIn : public LPipeStream {
public:
    bool _Open(const char* szCommandLine) { return _OpenStream(szCommandLine, true); }
};

// Writes what the command reads.
class LPipeOut : public LPipeStream {
public:
    bool _Open(const char* szCommandLine) { return _OpenStream(szCommandLine, false); }
};

// Both streams of a command.
class LPipeInOut {
public:
    LPipeInOut() = default;
    LPipeInOut(const LPipeInOut&) = delete;
    LPipeInOut& operator=(const LPipeInOut&) = delete;
    // Does not wait: a command that has not ended is left to itself, and leaves no zombie when it ends.
    ~LPipeInOut();

    // The two sizes are not used.
    bool _Open(const char* szCommandLine, unsigned long dwReadSize, unsigned long dwWriteSize);

    // Reads the command's standard output, writes its standard input; -1 when not open.
    int GetReadDescriptor() const { return readEnd.get(); }
    int GetWriteDescriptor() const { return writeEnd.get(); }
    pid_t GetProcess() const { return process; }

    // Tells the command that its input has ended.
    void CloseWriteEnd() { writeEnd.reset(); }
    // Closes both ends and waits for the command's end. Its status as `waitpid` gives it, -1 when not open.
    int Close();

private:
    port::UniqueFd readEnd;
    port::UniqueFd writeEnd;
    pid_t process = -1;
};

#pragma GCC visibility pop
