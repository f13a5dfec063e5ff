#include "LLoginHelperNotify.h"

#include <cstring>
#include <utility>

#include "LLoginHelper.h"
#include "LSettingQueue.h"
#include "LoginHelperContract.h"
#include "base/LLimits.h"
#include "files/LFile.h"
#include "platform/LCFString.h"
#include "xpc/LXPCServer.h"

// What a message asks for. Texts that are absent, or were sent as another type, are null.
struct LLoginHelperNotify::Request {
    bool bNewConnection = false;
    bool bSetLaunch = false;
    bool bQuery = false;
    bool bLaunchOn = false;
    const char* szBundleId = nullptr;
    const char* szBundlePath = nullptr;
};

namespace {

// Bytes, terminator included: a longer path names nothing that can exist, and is not kept.
constexpr std::size_t kStoredPathLimit = 4096;

bool IsKey(const LXPCDataListable& item, const char* szKey) {
    return strcmp(item.szName, szKey) == 0;
}

const char* GetText(const LXPCDataListable& item) {
    return reinterpret_cast<const char*>(item.nValue);
}

bool IsMainApp(const char* szBundleId, const char* szBundlePath) {
    if (szBundleId == nullptr || szBundlePath == nullptr)
        return false;
    char szName[LPathBufferSize];
    LFile::_GetFileNameFromPath(szName, szBundlePath);
    return strcmp(szName, LMainAppDisplayName) == 0 && strcmp(szBundleId, LMainAppIdentifier) == 0;
}

} // namespace

void LLoginHelperNotify::EvConnectionError(long connection, LXPCErrorType type) {
    if (type == LXPCErrorTypeConnectionInterrupted)
        return;
    if (LXPCMachServer* pServer = pDelegate->getXPCServer())
        pServer->Disconnect(connection);
}

void LLoginHelperNotify::EvMessageReceived(long connection, long message,
                                           const LList<LXPCDataListable>& items) {
    Request request;
    for (const LXPCDataListable* pItem = items.GetFirst(); pItem != nullptr; pItem = pItem->pNext) {
        if (IsKey(*pItem, LKeyTestConnection)) {
            _SendReply(connection, message, LReplyTestConnection, true);
            break;
        }
        if (IsKey(*pItem, LKeyNewConnection)) {
            request.bNewConnection = true;
        } else if (IsKey(*pItem, LKeyMainAppBundleId)) {
            request.szBundleId = GetText(*pItem);
        } else if (IsKey(*pItem, LKeyMainAppBundlePath)) {
            request.szBundlePath = GetText(*pItem);
        } else if (IsKey(*pItem, LKeyLaunchAtLogin)) {
            request.bSetLaunch = true;
            request.bLaunchOn = pItem->nValue != 0;
        } else if (IsKey(*pItem, LKeyQueryLaunchAtLogin)) {
            request.bQuery = true;
        } else if (IsKey(*pItem, LKeyShutdownHelper)) {
            pDelegate->shutdownHelper();
        }
    }
    if (request.bNewConnection) {
        if (IsMainApp(request.szBundleId, request.szBundlePath))
            _SendReply(connection, message, LReplyNewConnection, true);
    } else if (request.bSetLaunch) {
        _SetLaunchAtLogin(connection, message, request);
    } else if (request.bQuery) {
        _SendReply(connection, message, LReplyQueryLaunchAtLogin,
                   NSUserDefaults::standardUserDefaults()->boolForKey(LSettingLaunchAtLogin));
    }
}

void LLoginHelperNotify::EvInvalidConnectionAttempt() {
    pDelegate->shutdownHelper();
}

void LLoginHelperNotify::_SetLaunchAtLogin(long connection, long message, const Request& request) {
    const LXPCMachServer* pServer = pDelegate->getXPCServer();
    if (pServer == nullptr)
        return;
    NSRef<NSString> pPath;
    if (request.bLaunchOn) {
        // A path that is missing, endless, no UTF-8 or holds what no settings file can is answered like any
        // other mismatch: not at all.
        if (request.szBundlePath == nullptr || strlen(request.szBundlePath) >= kStoredPathLimit)
            return;
        pPath = NSString::stringWithUTF8String(request.szBundlePath);
        if (!pPath ||
            !CFPropertyListIsValid(LCFString(pPath->UTF8String()).Get(), kCFPropertyListXMLFormat_v1_0))
            return;
    }
    QueueSettingChange({std::move(pPath), LXPCLateReply(*pServer, connection, message)});
}

void LLoginHelperNotify::_SendReply(long connection, long message, const char* szKey, bool bValue) {
    LXPCMachServer* pServer = pDelegate->getXPCServer();
    if (pServer == nullptr)
        return;
    LList<LXPCDataListable> loReply;
    loReply.AddHead(CreateXPCData(LXPCDictionaryKeyListable(szKey, LXPCDataTypeBool), bValue ? 1 : 0, 0));
    pServer->SendReply(connection, message, loReply);
}
