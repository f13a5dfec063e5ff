// The application of the bookmark tests: each run of it is one life of a program that keeps access to files.
//
// usage: bookmark_host                     says the items: kind, path, retain count, keys
//        bookmark_host (KEY PATH)...       adds the paths; says each key when its bookmark is saved, else "-"
#include <cstdio>

#include "files/LSandboxBookmarkManager.h"

namespace {

bool add(const char* szKey, const char* szPath) {
    const NSRef<NSURL> url = NSURL::fileURLWithPath(szPath);
    if (!LSandboxBookmarkManager::AddFilePath(szPath, url.get(), true, true, szKey))
        return false;
    const LSandboxBookmarkItem* const pItem = LSandboxBookmarkManager::pInstance->InstanceGetBookmark(szPath);
    return pItem != nullptr && pItem->bAccessStarted && pItem->bSavedToSettings;
}

void list(const char* szKind, const LList<LSandboxBookmarkItem>& items) {
    for (const LSandboxBookmarkItem* pItem = items.GetFirst(); pItem != nullptr; pItem = pItem->pNext) {
        std::printf("%s %s %lu", szKind, pItem->szPath, pItem->nRetainCount);
        for (std::uint32_t i = 0; i < pItem->lsKeys.GetCount(); ++i)
            std::printf(" %s", pItem->lsKeys[i]);
        std::puts(pItem->bAccessStarted && pItem->bSavedToSettings && pItem->bAddFlag ? "" : " (not well)");
    }
}

} // namespace

int main(int argc, char* argv[]) {
    LSandboxBookmarkManager::Create();
    for (int i = 1; i + 1 < argc; i += 2) {
        std::puts(add(argv[i], argv[i + 1]) ? argv[i] : "-");
        std::fflush(stdout);
    }
    if (argc == 1) {
        list("file", LSandboxBookmarkManager::pInstance->loFiles);
        list("folder", LSandboxBookmarkManager::pInstance->loFolders);
    }
    LSandboxBookmarkManager::Destroy();
}
