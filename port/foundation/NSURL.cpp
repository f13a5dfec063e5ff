#include <cerrno>
#include <cstring>
#include <unistd.h>
#include <utility>

#include "corefoundation/CFURL.h"
#include "foundation/BookmarkSearch.h"
#include "foundation/Copied.h"
#include <Foundation/Foundation.h>

namespace {

thread_local port::BookmarkSearch* sharedSearch = nullptr;

} // namespace

NSURL::NSURL(const char* path) : path_(port::copied(path, std::strlen(path) + 1)) {}

NSRef<NSURL> NSURL::fileURLWithPath(const char* path) {
    const port::CFRef<CFURLRef> url = port::makeURL(path != nullptr ? path : "", false);
    return url ? NSRef<NSURL>(new NSURL(url.get()->path.c_str())) : NSRef<NSURL>();
}

NSRef<NSData> NSURL::bookmarkDataWithOptions(NSURLBookmarkCreationOptions) const {
    port::BookmarkRecord record;
    if (!port::makeBookmark(path_.get(), record))
        return {};
    const std::string bytes = port::encodeBookmark(record);
    return NSData::dataWithBytes(bytes.data(), bytes.size());
}

NSRef<NSURL> NSURL::URLByResolvingBookmarkData(const NSData& bookmark, NSURLBookmarkResolutionOptions,
                                               bool* isStale) {
    *isStale = false;
    const auto record =
        port::decodeBookmark({reinterpret_cast<const char*>(bookmark.bytes()), bookmark.length()});
    bool stale = false;
    std::string path;
    int error = EINVAL;
    if (record && sharedSearch != nullptr)
        error = sharedSearch->find(*record, path, stale);
    else if (record)
        error = port::BookmarkSearch().find(*record, path, stale);
    if (error != 0) {
        errno = error;
        return {};
    }
    *isStale = stale;
    return fileURLWithPath(path.c_str());
}

NSURL::port_SharedSearch::port_SharedSearch()
    : search_(new port::BookmarkSearch), before_(std::exchange(sharedSearch, search_.get())) {}

NSURL::port_SharedSearch::~port_SharedSearch() {
    sharedSearch = before_;
}

bool NSURL::respondsToSelector(const char* selector) const {
    return std::strcmp(selector, "startAccessingSecurityScopedResource") == 0 ||
           std::strcmp(selector, "stopAccessingSecurityScopedResource") == 0;
}

bool NSURL::startAccessingSecurityScopedResource() {
    return ::access(path_.get(), R_OK) == 0;
}
