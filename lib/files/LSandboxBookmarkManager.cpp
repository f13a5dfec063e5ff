#include "files/LSandboxBookmarkManager.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <port/bsd.h>
#include <strings.h>
#include <sys/stat.h>

#include "base/LPtr.h"
#include "files/LFile.h"
#include "platform/LCFString.h"
#include "strings/LCharsets.h"

namespace {

constexpr char kKeysName[] = "SECURITY_BOOKMARK_KEYS";

using Items = LList<LSandboxBookmarkItem>;

bool IsRegularFile(const char* szPath) {
    struct stat status;
    return stat(szPath, &status) == 0 && S_ISREG(status.st_mode);
}

bool IsSamePath(const LSandboxBookmarkItem& item, const char* szPath) {
    return strcasecmp(item.szPath, szPath) == 0;
}

bool IsAtOrBelow(const LSandboxBookmarkItem& item, const char* szPath) {
    return strncasecmp(item.szPath, szPath, std::strlen(item.szPath)) == 0;
}

// The first item that meets the condition, or null.
template <typename Condition>
LSandboxBookmarkItem* FindItem(const Items& items, Condition condition) {
    LSandboxBookmarkItem* pItem = items.GetFirst();
    while (pItem != nullptr && !condition(*pItem))
        pItem = pItem->pNext;
    return pItem;
}

LSandboxBookmarkItem* FindPath(const Items& items, const char* szPath) {
    return FindItem(items, [szPath](const auto& item) { return IsSamePath(item, szPath); });
}

// False, with no path, when it is too long.
bool CopyPath(LSandboxBookmarkItem& item, const char* szPath) {
    if (strlcpy(item.szPath, szPath, sizeof item.szPath) < sizeof item.szPath)
        return true;
    *item.szPath = '\0';
    return false;
}

NSRef<NSData> MakeBookmark(const LSandboxBookmarkItem& item) {
    return item.pURL ? item.pURL->bookmarkDataWithOptions(NSURLBookmarkCreationWithSecurityScope)
                     : NSRef<NSData>();
}

// A key as it is kept everywhere; null when it is no text, or one that the settings cannot hold.
NSRef<NSString> KeyFrom(const char* szKey) {
    char szCut[LPathBufferSize];
    if (szKey == nullptr)
        return {};
    utf8strlcpy(szCut, szKey, sizeof szCut);
    if (!CFPropertyListIsValid(LCFString(szCut).Get(), kCFPropertyListXMLFormat_v1_0))
        return {};
    return NSString::stringWithUTF8String(szCut);
}

void StoreFolder(void (*pGetFolder)(char*), LStringLongTemplate<char>& lsOut) {
    lsOut.GrowToSize(LPathBufferSize);
    pGetFolder(lsOut.GetData());
    lsOut.SetLength(static_cast<std::uint32_t>(std::strlen(lsOut.GetData())));
}

// By errno's value. Of any other failure nobody knows whether it lasts.
bool IsGone(int nError) {
    return nError == ENOENT || nError == ENOTDIR || nError == EINVAL;
}

NSUserDefaults& Settings() {
    return *NSUserDefaults::standardUserDefaults();
}

} // namespace

bool LSandboxBookmarkItem::StartAccessingSecurityScopedResource() {
    if (bAccessStarted)
        return true;
    if (!pURL || !pURL->respondsToSelector("startAccessingSecurityScopedResource"))
        return false;
    pURL->startAccessingSecurityScopedResource();
    bAccessStarted = true;
    return true;
}

bool LSandboxBookmarkItem::StopAccessingSecurityScopedResource() {
    if (!bAccessStarted)
        return true;
    if (!pURL || !pURL->respondsToSelector("stopAccessingSecurityScopedResource"))
        return false;
    pURL->stopAccessingSecurityScopedResource();
    bAccessStarted = false;
    return true;
}

bool LSandboxBookmarkItem::_FindKey(const char* szCutKey, unsigned long& dwIndex) const {
    for (dwIndex = 0; dwIndex < lsKeys.GetCount(); ++dwIndex)
        if (std::strcmp(lsKeys[static_cast<std::uint32_t>(dwIndex)], szCutKey) == 0)
            return true;
    return false;
}

bool LSandboxBookmarkItem::AddKey(const char* szKey) {
    char szCutKey[LPathBufferSize];
    unsigned long dwIndex = 0;
    utf8strlcpy(szCutKey, szKey, sizeof szCutKey);
    if (_FindKey(szCutKey, dwIndex))
        return false;
    const std::size_t dwSize = std::strlen(szCutKey) + 1;
    strlcpy(lsKeys.Add(dwSize), szCutKey, dwSize);
    ++nRetainCount;
    return true;
}

bool LSandboxBookmarkItem::RemoveKey(const char* szKey) {
    char szCutKey[LPathBufferSize];
    unsigned long dwIndex = 0;
    utf8strlcpy(szCutKey, szKey, sizeof szCutKey);
    if (!_FindKey(szCutKey, dwIndex))
        return false;
    lsKeys.Delete(dwIndex);
    if (nRetainCount != 0)
        --nRetainCount;
    return true;
}

LSandboxBookmarkManager* LSandboxBookmarkManager::pInstance = nullptr;

LSandboxBookmarkManager::LSandboxBookmarkManager() : pKeys(NSMutableArray::array()) {
    StoreFolder(LFile::GetUserDownloadFolderNonSandboxed, lsDownloadFolder);
    StoreFolder(LFile::GetUserVideoFolderNonSandboxed, lsVideoFolder);
    StoreFolder(LFile::GetUserMusicFolderNonSandboxed, lsMusicFolder);
    StoreFolder(LFile::GetUserPicturesFolderNonSandboxed, lsPicturesFolder);
    InstanceLoadBookmarksFromFile();
}

// The keys were stored when they changed; only what could not be saved then is left.
LSandboxBookmarkManager::~LSandboxBookmarkManager() {
    Settings().synchronize();
}

void LSandboxBookmarkManager::Create() {
    if (pInstance == nullptr)
        pInstance = new LSandboxBookmarkManager;
}

void LSandboxBookmarkManager::Destroy() {
    delete pInstance;
    pInstance = nullptr;
}

const Items& LSandboxBookmarkManager::_ListOf(const char* szPath) const {
    return IsRegularFile(szPath) ? loFiles : loFolders;
}

Items& LSandboxBookmarkManager::_ListOf(const char* szPath) {
    return IsRegularFile(szPath) ? loFiles : loFolders;
}

bool LSandboxBookmarkManager::AddFilePath(const char* szPath, NSURL* pURL, bool bAddFlag, bool bSave,
                                          const char* szKey) {
    return pInstance->InstanceAddFilePath(szPath, pURL, bSave, bAddFlag, szKey);
}

bool LSandboxBookmarkManager::InstanceAddFilePath(const char* szPath, NSURL* pURL, bool bSave, bool bAddFlag,
                                                  const char* szKey) {
    LPtr<LSandboxBookmarkItem> item(new LSandboxBookmarkItem);
    if (!CopyPath(*item, szPath))
        return false;
    if (IsAccessAllowedByEntitlement(szPath, false))
        return true;
    Items& items = LFile::Exists(szPath) ? _ListOf(szPath) : loFiles;
    if (FindPath(items, szPath) != nullptr)
        return true;
    item->pURL = NSRef<NSURL>::retained(pURL);
    if (!item->StartAccessingSecurityScopedResource())
        return false;
    item->bAddFlag = bAddFlag;
    LSandboxBookmarkItem& added = *item;
    items.AddHead(item.Release());
    if (bSave && InstanceSaveBookmarkToFile(added, szKey))
        _AddSavedKey(added, szKey);
    return true;
}

bool LSandboxBookmarkManager::AddFilePathToSettings(const char* szPath, bool bFlag, const char* szKey) {
    return pInstance->InstanceAddFilePathToSettings(szPath, bFlag, szKey);
}

bool LSandboxBookmarkManager::InstanceAddFilePathToSettings(const char* szPath, bool, const char* szKey) {
    if (IsAccessAllowedByEntitlement(szPath, false))
        return false;
    LSandboxBookmarkItem* const pItem = InstanceGetBookmark(szPath);
    if (pItem == nullptr || !InstanceSaveBookmarkToFile(*pItem, szKey))
        return false;
    _AddSavedKey(*pItem, szKey);
    return true;
}

bool LSandboxBookmarkManager::StartAccessingSecurityScopedResource(const char* szPath) {
    LSandboxBookmarkItem* const pItem =
        FindItem(pInstance->_ListOf(szPath), [szPath](const LSandboxBookmarkItem& item) {
            return IsSamePath(item, szPath) && !item.bAccessStarted;
        });
    return pItem != nullptr && pItem->StartAccessingSecurityScopedResource();
}

bool LSandboxBookmarkManager::StopAccessingSecurityScopedResource(const char* szPath) {
    LSandboxBookmarkItem* const pItem =
        FindItem(pInstance->_ListOf(szPath), [szPath](const LSandboxBookmarkItem& item) {
            return IsSamePath(item, szPath) && item.bAccessStarted;
        });
    return pItem != nullptr && pItem->StopAccessingSecurityScopedResource();
}

bool LSandboxBookmarkManager::IsAccessStarted(const char* szPath) {
    const auto isStartedFile = [szPath](const LSandboxBookmarkItem& item) {
        return item.bAccessStarted && IsSamePath(item, szPath);
    };
    const auto isStartedFolder = [szPath](const LSandboxBookmarkItem& item) {
        return item.bAccessStarted && IsAtOrBelow(item, szPath);
    };
    return (IsRegularFile(szPath) && FindItem(pInstance->loFiles, isStartedFile) != nullptr) ||
           FindItem(pInstance->loFolders, isStartedFolder) != nullptr;
}

void LSandboxBookmarkManager::Retain(const char* szPath) {
    LSandboxBookmarkItem* const pItem = pInstance->InstanceGetBookmark(szPath);
    if (pItem != nullptr)
        ++pItem->nRetainCount;
}

void LSandboxBookmarkManager::Release(const char* szPath) {
    Items& items = pInstance->_ListOf(szPath);
    LSandboxBookmarkItem* const pItem = FindPath(items, szPath);
    if (pItem == nullptr)
        return;
    if (pItem->nRetainCount > 1)
        --pItem->nRetainCount;
    else
        delete items.Detach(pItem);
}

bool LSandboxBookmarkManager::IsAccessAllowedByEntitlement(const char* szPath, bool) {
    char szRealPath[LPathBufferSize];
    return LFile::IsPathInSandbox(szPath) && !LFile::MakeNonSandboxedFilePath(szRealPath, szPath);
}

LSandboxBookmarkItem* LSandboxBookmarkManager::InstanceGetBookmark(const char* szPath) const {
    return FindPath(_ListOf(szPath), szPath);
}

LSandboxBookmarkItem* LSandboxBookmarkManager::InstanceGetParentBookmark(const char* szPath) const {
    return FindItem(loFolders, [szPath](const auto& item) { return IsAtOrBelow(item, szPath); });
}

void LSandboxBookmarkManager::InstanceLoadBookmarksFromFile() {
    if (const NSRef<NSMutableArray> stored = Settings().arrayForKey(kKeysName))
        pKeys->addObjectsFromArray(*stored);
    bool bChanged = false;
    _LoadBookmarks(*pKeys->mutableCopy(), bChanged);
    if (!bChanged)
        return;
    InstanceSaveBookmarksToFile(true);
    InstanceSaveBookmarksToFile(false);
}

bool LSandboxBookmarkManager::InstanceLoadBookmark(NSString* pKey, bool& bChanged) {
    const NSRef<NSMutableArray> keys = NSMutableArray::array();
    keys->addObject(NSRef<NSString>::retained(pKey));
    return _LoadBookmarks(*keys, bChanged);
}

// However many are gone or stale, they are looked for together and saved once.
bool LSandboxBookmarkManager::_LoadBookmarks(const NSMutableArray& keys, bool& bChanged) {
    const NSRef<NSMutableArray> removed = NSMutableArray::array();
    bool bAllLoaded = true;
    bool bAnyStale = false;
    bChanged = false;
    {
        const NSURL::port_SharedSearch search;
        for (unsigned long i = 0; i < keys.count(); ++i) {
            NSString& key = *keys.objectAtIndex(i);
            const LoadResult eResult = _LoadBookmark(key, bChanged);
            bAllLoaded &= eResult == LoadDone || eResult == LoadStale;
            bAnyStale |= eResult == LoadStale;
            if (eResult == LoadRemoved)
                _RemoveKey(key, *removed);
        }
    }
    if (bAnyStale || removed->count() != 0)
        Settings().synchronize();
    const unsigned long dwRemoved = removed->count();
    if (bAnyStale) {
        _DropUnsaved(loFiles, *removed);
        _DropUnsaved(loFolders, *removed);
    }
    if (removed->count() != dwRemoved) {
        bChanged = true;
        bAllLoaded = false;
        Settings().synchronize();
    }
    pKeys->removeObjectsInArray(*removed);
    return bAllLoaded;
}

LSandboxBookmarkManager::LoadResult LSandboxBookmarkManager::_LoadBookmark(NSString& key, bool& bChanged) {
    const char* const szKey = key.UTF8String();
    const NSRef<NSData> bookmark = Settings().dataForKey(szKey);
    if (!bookmark || bookmark->length() == 0)
        return Settings().port_isReadable(nullptr) ? LoadRemoved : LoadFailed;
    LPtr<LSandboxBookmarkItem> item(new LSandboxBookmarkItem);
    const LoadResult eResult = _ResolveBookmark(*bookmark, szKey, *item);
    bChanged |= eResult == LoadRemoved;
    if (eResult != LoadDone && eResult != LoadStale)
        return eResult;
    if (!item->StartAccessingSecurityScopedResource())
        return LoadFailed;
    item->bSavedToSettings = eResult == LoadDone;
    Items& items = _ListOf(item->szPath);
    items.AddHead(item.Release());
    return eResult;
}

LSandboxBookmarkManager::LoadResult LSandboxBookmarkManager::_ResolveBookmark(const NSData& bookmark,
                                                                              const char* szKey,
                                                                              LSandboxBookmarkItem& item) {
    bool bStale = false;
    item.pURL =
        NSURL::URLByResolvingBookmarkData(bookmark, NSURLBookmarkResolutionWithSecurityScope, &bStale);
    if (!item.pURL)
        return IsGone(errno) ? LoadRemoved : LoadFailed;
    item.bAddFlag = true;
    item.AddKey(szKey);
    struct stat status;
    if (!CopyPath(item, item.pURL->fileSystemRepresentation()) ||
        (stat(item.szPath, &status) != 0 && !IsGone(errno)))
        return LoadFailed;
    if (!LFile::Exists(item.szPath))
        return LoadRemoved;
    if (!bStale)
        return LoadDone;
    const NSRef<NSData> fresh = MakeBookmark(item);
    if (!fresh)
        return LoadRemoved;
    Settings().setObject(*fresh, szKey);
    return LoadStale;
}

void LSandboxBookmarkManager::_RemoveKey(NSString& key, NSMutableArray& removed) {
    Settings().removeObjectForKey(key.UTF8String());
    Settings().port_editArray(nullptr, key.UTF8String(), kKeysName);
    removed.addObject(NSRef<NSString>::retained(&key));
}

void LSandboxBookmarkManager::_DropUnsaved(Items& items, NSMutableArray& removed) {
    LSandboxBookmarkItem* pNext = nullptr;
    for (LSandboxBookmarkItem* pItem = items.GetFirst(); pItem != nullptr; pItem = pNext) {
        pNext = pItem->pNext;
        if (pItem->bSavedToSettings || pItem->lsKeys.GetCount() == 0)
            continue;
        const NSRef<NSString> key = NSString::stringWithUTF8String(pItem->lsKeys[0]);
        pItem->bSavedToSettings = Settings().port_isSaved(key->UTF8String());
        if (pItem->bSavedToSettings)
            continue;
        _RemoveKey(*key, removed);
        delete items.Detach(pItem);
    }
}

void LSandboxBookmarkManager::InstanceSaveBookmarksToFile(bool bFiles) {
    for (const LSandboxBookmarkItem* pItem = (bFiles ? loFiles : loFolders).GetFirst(); pItem != nullptr;
         pItem = pItem->pNext) {
        const NSRef<NSData> bookmark = pItem->bSavedToSettings ? MakeBookmark(*pItem) : NSRef<NSData>();
        if (!bookmark)
            continue;
        for (std::uint32_t i = 0; i < pItem->lsKeys.GetCount(); ++i)
            Settings().setObject(*bookmark, pItem->lsKeys[i]);
    }
    Settings().synchronize();
}

bool LSandboxBookmarkManager::InstanceSaveBookmarkToFile(LSandboxBookmarkItem& item, const char* szKey) {
    const NSRef<NSString> key = KeyFrom(szKey);
    const NSRef<NSData> bookmark = MakeBookmark(item);
    if (!key || !bookmark || !Settings().port_saveListed(*bookmark, key->UTF8String(), kKeysName))
        return false;
    item.bSavedToSettings = true;
    return true;
}

// The key came into the settings with its bookmark.
void LSandboxBookmarkManager::_AddSavedKey(LSandboxBookmarkItem& item, const char* szKey) {
    const NSRef<NSString> key = KeyFrom(szKey);
    if (!pKeys->containsObject(*key))
        pKeys->addObject(key);
    item.AddKey(szKey);
    Settings().synchronize();
}

void LSandboxBookmarkManager::InstanceAddKey(const char* szKey) {
    const NSRef<NSString> key = KeyFrom(szKey);
    if (!key || pKeys->containsObject(*key))
        return;
    pKeys->addObject(key);
    Settings().port_editArray(key->UTF8String(), nullptr, kKeysName);
    Settings().synchronize();
}
