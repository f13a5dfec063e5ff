// Access to files that the user granted, kept across restarts: the URLs of the granted paths, their users, and
// their bookmarks in the settings. Beside it the parser of file-type filters for file panels; the paths of the
// sandbox itself are LFile's.
//
// Thread-safety: none; all of it belongs to the main thread. What loads, stores or looks for a file blocks with
// the file system.
//
// Paths are terminated bytes, at most 259 of them; a longer one is refused with false. They are compared without
// regard to case. Keys are terminated UTF-8 and cut to 259 bytes. Nothing reports an error but by false.
#pragma once

#include <Foundation/Foundation.h>

#include "base/LLimits.h"
#include "base/LList.h"
#include "strings/LString.h"
#include "strings/LStringList.h"

#pragma GCC visibility push(default)

// One granted path. Its destruction stops the access, if it was started.
class LSandboxBookmarkItem {
public:
    LSandboxBookmarkItem() = default;
    LSandboxBookmarkItem(const LSandboxBookmarkItem&) = delete;
    LSandboxBookmarkItem& operator=(const LSandboxBookmarkItem&) = delete;
    ~LSandboxBookmarkItem() { StopAccessingSecurityScopedResource(); }

    // True when the access is started, or stopped, afterwards, whatever the URL answers to the request. False,
    // with nothing changed, when there is no URL or it knows no such request.
    bool StartAccessingSecurityScopedResource();
    bool StopAccessingSecurityScopedResource();

    // Adds a key, and one to the retain count; false when the item has the key.
    bool AddKey(const char* szKey);
    // Removes a key, and one from the retain count unless that is 0; false when the item has no such key.
    bool RemoveKey(const char* szKey);

    LSandboxBookmarkItem* pNext = nullptr;
    char szPath[LPathBufferSize] = "";
    NSRef<NSURL> pURL;
    bool bAccessStarted = false;
    bool bAddFlag = false;         // the caller's own
    bool bSavedToSettings = false; // a bookmark is stored under each of the keys
    LStringListTemplate<char> lsKeys;
    unsigned long nRetainCount = 0; // keys, and users by Retain

private:
    bool _FindKey(const char* szCutKey, unsigned long& dwIndex) const;
};

// The granted paths of this process. Regular files are in one list, all else in the other; which list a path
// belongs to is what it is at the time of the call. A path that does not exist counts as a folder, but
// AddFilePath adds it as a file.
class LSandboxBookmarkManager {
public:
    // Makes the instance, unless there is one, and loads the bookmarks. One whose file is known to be gone is
    // removed from the settings; one whose file cannot be looked for now, or has a longer path than an item takes,
    // is left there without an item; one whose file was renamed, moved or replaced is renewed. Other processes'
    // keys stay. For files that are elsewhere folders are read for about a second in all, a file system that hangs
    // aside; what was not come to by then is looked for the next time.
    static void Create();
    // Stops all access; the keys and bookmarks stay in the settings.
    static void Destroy();

    // All that follow work on the instance, which must exist.

    // Starts access to the URL and keeps both; with bSave its bookmark is stored under szKey, which may else be
    // null. pURL is retained. True when the path is accessible: it needs no bookmark, or has an item, or got
    // one, even if the bookmark could not be stored (then the item is not saved). False when the access cannot
    // be started or the path is too long. What is stored is on the disk at the return, and for that the whole of the
    // settings is written: the work of n such calls grows with the square of n, and the bookmark of a folder is cheaper
    // than those of thousands of files in it.
    static bool AddFilePath(const char* szPath, NSURL* pURL, bool bAddFlag, bool bSave, const char* szKey);
    // Stores the bookmark of a path that has an item under the key. The flag is not used. False when the path
    // needs no bookmark or has no item, or when it cannot be stored.
    static bool AddFilePathToSettings(const char* szPath, bool bFlag, const char* szKey);

    // Starts the path's access if it is not started, or stops it if it is; else false.
    static bool StartAccessingSecurityScopedResource(const char* szPath);
    static bool StopAccessingSecurityScopedResource(const char* szPath);
    // True for a file with started access, and for a path that begins with that of a folder with started access:
    // a folder /a/b covers /a/bc too.
    static bool IsAccessStarted(const char* szPath);

    // Adds a user to the path's item, if it has one, and takes one off. The last one to go takes the item with
    // it; its bookmarks stay in the settings.
    static void Retain(const char* szPath);
    static void Release(const char* szPath);

    // True when the path needs no bookmark: it lies in the sandbox and stands for no place outside. The flag is
    // not used.
    static bool IsAccessAllowedByEntitlement(const char* szPath, bool bFlag);

    // Null before Create and after Destroy.
    static LSandboxBookmarkManager* pInstance;

    // What the static members do; note the order of the flags.
    bool InstanceAddFilePath(const char* szPath, NSURL* pURL, bool bSave, bool bAddFlag, const char* szKey);
    bool InstanceAddFilePathToSettings(const char* szPath, bool bFlag, const char* szKey);

    void InstanceLoadBookmarksFromFile();
    // Makes the item of the bookmark under the key and starts its access. False when that fails; what cannot be
    // found, or not be renewed, is then removed from the settings, and bChanged tells that a record was.
    bool InstanceLoadBookmark(NSString* pKey, bool& bChanged);
    // Stores fresh bookmarks of the saved items, of files or of folders, under all their keys.
    void InstanceSaveBookmarksToFile(bool bFiles);
    // Stores the bookmark of the item under the key, and the key among the others, on the disk when this returns;
    // other changes of the settings have no part in it. False when it cannot be made or stored; then nothing of it
    // is kept.
    bool InstanceSaveBookmarkToFile(LSandboxBookmarkItem& item, const char* szKey);
    void InstanceAddKey(const char* szKey);

    // The item of the path; the newest item of a folder whose path begins the given one. Null when there is
    // none; the manager keeps owning it.
    LSandboxBookmarkItem* InstanceGetBookmark(const char* szPath) const;
    LSandboxBookmarkItem* InstanceGetParentBookmark(const char* szPath) const;

    // The items, newest first, for those who look.
    LList<LSandboxBookmarkItem> loFiles;
    LList<LSandboxBookmarkItem> loFolders;
    // Every key that holds a bookmark.
    NSRef<NSMutableArray> pKeys;
    // The user's folders outside the sandbox.
    LStringLongTemplate<char> lsDownloadFolder;
    LStringLongTemplate<char> lsVideoFolder;
    LStringLongTemplate<char> lsMusicFolder;
    LStringLongTemplate<char> lsPicturesFolder;

private:
    // LoadStale has an item whose fresh bookmark waits to be saved. LoadFailed leaves the key, LoadRemoved is the
    // caller's to remove.
    enum LoadResult { LoadDone, LoadStale, LoadFailed, LoadRemoved };

    LSandboxBookmarkManager();
    ~LSandboxBookmarkManager();

    void _AddSavedKey(LSandboxBookmarkItem& item, const char* szKey);
    LList<LSandboxBookmarkItem>& _ListOf(const char* szPath);
    const LList<LSandboxBookmarkItem>& _ListOf(const char* szPath) const;
    // True when all of them have items.
    bool _LoadBookmarks(const NSMutableArray& keys, bool& bChanged);
    // Sets bChanged when a record is to be removed; else it stays.
    LoadResult _LoadBookmark(NSString& key, bool& bChanged);
    // Fills the item. LoadRemoved when nothing is found or no fresh bookmark can be made, LoadFailed when the file
    // cannot be looked for now.
    LoadResult _ResolveBookmark(const NSData& bookmark, const char* szKey, LSandboxBookmarkItem& item);
    // Removes the key from the settings and adds it to those that were.
    static void _RemoveKey(NSString& key, NSMutableArray& removed);
    // Marks the items whose fresh bookmarks were saved; the others go, with their keys.
    static void _DropUnsaved(LList<LSandboxBookmarkItem>& items, NSMutableArray& removed);
};

// Adds the extensions of a filter to the array, without their dots. The filter is a list of pairs of terminated
// texts, a description and its patterns ("*.mp4;*.mov"), ended by an empty text. The extension "*" is left out,
// and so is one that is no well-formed UTF-8; of a longer one 259 bytes are taken.
void ParseFileTypes(NSMutableArray* pTypes, const char* szFilter);

#pragma GCC visibility pop
