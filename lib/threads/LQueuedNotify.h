// Notifications from any thread, delivered on the main thread: bare ones, and ones with a code and a payload.
//
// Thread-safety: posting may be done on any thread at any time. Closing is done on the main thread, on which
// the notifications arrive, in its event loop.
//
// A subclass closes its notifications before it is destroyed; nothing arrives afterwards. What is posted to a
// closed object is dropped.
#pragma once

#include <port/Unique.h>

#include "threads/LThreadRunOnMainThread.h"

#pragma GCC visibility push(default)

class LThreadQueuedNotify {
public:
    LThreadQueuedNotify() = default;
    LThreadQueuedNotify(const LThreadQueuedNotify&) = delete;
    LThreadQueuedNotify& operator=(const LThreadQueuedNotify&) = delete;
    virtual ~LThreadQueuedNotify() = default;

    // Called on the main thread, once for each post.
    virtual void EvQueuedNotify() = 0;

    void PostQueueNotify();
    // Drops what was not yet delivered.
    void ThreadQueuedNotifyDestroy() { runner.ThreadRunOnMainThreadDestroy(); }

private:
    LThreadRunOnMainThread runner;
};

class LThreadQueuedNotifyData : public LThreadRunOnMainThreadData {
public:
    explicit LThreadQueuedNotifyData(LThreadQueuedNotify& receiver) : notify(receiver) {}
    void MainThreadFunction() override { notify.EvQueuedNotify(); }

private:
    LThreadQueuedNotify& notify;
};

class LQueuedNotifyDataHandler {
public:
    LQueuedNotifyDataHandler() = default;
    LQueuedNotifyDataHandler(const LQueuedNotifyDataHandler&) = delete;
    LQueuedNotifyDataHandler& operator=(const LQueuedNotifyDataHandler&) = delete;
    virtual ~LQueuedNotifyDataHandler() = default;

    // Called on the main thread, once for each post. The data lives for the call.
    virtual void EvQueuedNotifyData(unsigned int dwCode, const void* pData, unsigned long dwSize) = 0;

    // Copies `dwSize` bytes of the data, so that the sender's buffer may be reused at once. Without data (null)
    // the size is a plain number, delivered as it is. False when it is dropped.
    bool PostNotifyFromSender(unsigned int dwCode, const void* pData, unsigned long dwSize);
    // Drops what was not yet delivered.
    void QueuedNotifyDataHandlerDestroy() { runner.ThreadRunOnMainThreadDestroy(); }

private:
    LThreadRunOnMainThread runner;
};

class LQueuedNotifyDataHandlerData : public LThreadRunOnMainThreadData {
public:
    LQueuedNotifyDataHandlerData(LQueuedNotifyDataHandler& receiver, unsigned int dwNotifyCode,
                                 const void* pSource, unsigned long dwSourceSize);
    void MainThreadFunction() override { handler.EvQueuedNotifyData(dwCode, pData.get(), dwSize); }

private:
    LQueuedNotifyDataHandler& handler;
    unsigned int dwCode;
    port::Unique<unsigned char[]> pData;
    unsigned long dwSize;
};

#pragma GCC visibility pop
