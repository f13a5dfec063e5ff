// One XPC connection: its handle, its suspension and the references held on it.
//
// Thread-safety: none; the list that owns the record guards it.
#pragma once

#pragma GCC visibility push(default)

class LXPCConnection {
public:
    // The handle is an XPC connection carried in a long, -1 for none; it is borrowed, no reference is taken.
    // XPC connections are created suspended, and so is the record.
    explicit LXPCConnection(long connection = -1) : nConnection(connection) {}
    LXPCConnection(const LXPCConnection&) = delete;
    LXPCConnection& operator=(const LXPCConnection&) = delete;
    // Resumes the connection when it is suspended, cancels it, and gives back one reference when the retain
    // count is not 0, whatever the count. Does not wait: an event may still be running, and a last "invalid"
    // error may still come.
    virtual ~LXPCConnection();

    bool IsValid() const { return nConnection != -1; }
    long GetHandle() const { return nConnection; }
    bool IsSuspended() const { return bSuspended; }
    unsigned long GetRetainCount() const { return dwRetainCount; }

    // Balanced by the flag: repeated calls do nothing. Once the connection is resumed its events may arrive,
    // and one of them may destroy the record before `Resume` has returned.
    void Resume();
    void Suspend();
    // Asynchronous; ends the connection for good.
    void Cancel();
    // One more, or one less, XPC reference on the handle. `Release` at count 0 does nothing.
    void Retain();
    void Release();

    LXPCConnection* pNext = nullptr;

protected:
    // For a handle whose reference the record takes over.
    LXPCConnection(long connection, unsigned long dwOwnedReferences)
        : nConnection(connection), dwRetainCount(dwOwnedReferences) {}

private:
    long nConnection;
    bool bSuspended = true;
    unsigned long dwRetainCount = 0;
};

#pragma GCC visibility pop
