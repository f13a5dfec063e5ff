#include "xpc/LXPCClient.h"

#include <cstring>
#include <memory>
#include <port/bsd.h>

#include "xpc/internal/LXPCEndpointState.h"
#include "xpc/internal/LXPCHandles.h"

namespace {

unsigned char FoldCase(char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Not strcasecmp, which follows the locale. Both names as cut to what a record holds.
bool IsSameName(const char* szName, const char* szOther) {
    if (strncmp(szName, szOther, LPathBufferSize - 1) == 0) // as it mostly is
        return true;
    for (unsigned long n = 0; n < LPathBufferSize - 1; n++) {
        if (FoldCase(szName[n]) != FoldCase(szOther[n]))
            return false;
        if (szName[n] == '\0')
            break;
    }
    return true;
}

} // namespace

LXPCConnectionClient::LXPCConnectionClient(long connection, const char* szServiceName,
                                           unsigned long dwServiceNumber)
    : LXPCConnection(connection, 1), dwNumber(dwServiceNumber) {
    strlcpy(szName, szServiceName, sizeof(szName));
}

bool LXPCConnectionClient::Matches(const char* szServiceName, unsigned long dwServiceNumber) const {
    return dwNumber == dwServiceNumber && IsSameName(szName, szServiceName);
}

LXPCClient::LXPCClient(LXPCEventNotify* pSink) : LXPCBase(port::Reference(new LXPCEndpointState(pSink))) {}

// The events end first, for they may use the records.
LXPCClient::~LXPCClient() {
    _CloseEvents();
    loConnections.Clear();
}

bool LXPCClient::Connect(const char* szServiceName, unsigned long dwNumber, bool bMachService) {
    xpc_connection_t pConnection = bMachService
                                       ? xpc_connection_create_mach_service(szServiceName, nullptr, 0)
                                       : xpc_connection_create(szServiceName, nullptr);
    if (pConnection == nullptr)
        return false;
    auto pRecord = std::make_unique<LXPCConnectionClient>(LXPCHandle(pConnection), szServiceName, dwNumber);
    LXPCConnectionClient& record = *pRecord;
    // Listed before it runs: the first event may come on a worker before this call returns, and ask for the
    // connection.
    loConnections.AddHead(pRecord.release());
    SetupConnectionHandlerAndResume(record);
    return true;
}

void LXPCClient::Disconnect(const char* szServiceName, unsigned long dwNumber) {
    delete loConnections.Detach(_Find(szServiceName, dwNumber));
}

void LXPCClient::Suspend(const char* szServiceName, unsigned long dwNumber) {
    if (LXPCConnectionClient* pRecord = _Find(szServiceName, dwNumber))
        pRecord->Suspend();
}

void LXPCClient::Resume(const char* szServiceName, unsigned long dwNumber) {
    if (LXPCConnectionClient* pRecord = _Find(szServiceName, dwNumber))
        pRecord->Resume();
}

void LXPCClient::SendMessage(const char* szServiceName, unsigned long dwNumber, const LXPCData* pItems,
                             unsigned long dwCount, bool bWantReply) {
    const LXPCConnectionClient* pRecord = _Find(szServiceName, dwNumber);
    if (pRecord == nullptr)
        return;
    LList<LXPCDataListable> loItems;
    for (const LXPCData* pItem = pItems; pItem != pItems + dwCount; pItem++)
        loItems.AddHead(new LXPCDataListable(*pItem));
    LXPCBase::SendMessage(pRecord->GetHandle(), loItems, bWantReply);
}

LXPCConnectionClient* LXPCClient::_Find(const char* szServiceName, unsigned long dwNumber) const {
    for (LXPCConnectionClient* pRecord = loConnections.GetFirst(); pRecord != nullptr;
         pRecord = static_cast<LXPCConnectionClient*>(pRecord->pNext))
        if (pRecord->Matches(szServiceName, dwNumber))
            return pRecord;
    return nullptr;
}
