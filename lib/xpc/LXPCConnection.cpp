#include "xpc/LXPCConnection.h"

#include "xpc/internal/LXPCHandles.h"

LXPCConnection::~LXPCConnection() {
    if (IsValid()) {
        // A suspended connection would hold its last events back for ever.
        Resume();
        Cancel();
    }
    Release();
}

void LXPCConnection::Resume() {
    if (!bSuspended)
        return;
    // The flag first: an event may destroy the record as soon as the connection runs.
    bSuspended = false;
    if (IsValid())
        xpc_connection_resume(LXPCConnectionObject(nConnection));
}

// Where it is called from an event, that one is the last until the resume; from elsewhere one may still run.
void LXPCConnection::Suspend() {
    if (bSuspended)
        return;
    bSuspended = true;
    if (IsValid())
        xpc_connection_suspend(LXPCConnectionObject(nConnection));
}

void LXPCConnection::Cancel() {
    if (IsValid())
        xpc_connection_cancel(LXPCConnectionObject(nConnection));
}

void LXPCConnection::Retain() {
    if (IsValid())
        xpc_retain(LXPCObject(nConnection));
    dwRetainCount++;
}

void LXPCConnection::Release() {
    if (dwRetainCount == 0)
        return;
    dwRetainCount--;
    if (IsValid())
        xpc_release(LXPCObject(nConnection));
}
