// The body of a bundle, and how an executable's path tells its bundle.
//
// Thread-safety: any thread; Info.plist is read under a once-flag.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "corefoundation/CFObject.h"

struct __CFBundle final : port::CFObject {
    // `executable` is known for the main bundle and empty for others. An unbundled one has no Info.plist.
    __CFBundle(std::string path, std::string executable, bool isBundled);

    CFDictionaryRef info();
    std::string executablePath(); // empty when there is none
    std::string identifier();     // empty when there is none, or it is no Unicode

    const std::string folder;
    const bool bundled;

private:
    std::string executable_;
    std::mutex reading_; // no once_flag: the C library takes memory to let an exception through
    port::CFRef<CFDictionaryRef> info_;
};

namespace port {

// "/x/Y.app" of "/x/Y.app/Contents/MacOS/name"; empty for any other path.
std::string_view bundleFolderOfExecutable(std::string_view executable);

// The bundle at an absolute path without a slash at its end; null when there is no folder.
CFRef<CFBundleRef> bundleAt(const std::string& path);

} // namespace port
