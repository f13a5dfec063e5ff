// The body of a file URL: an absolute path without trailing slash.
//
// Thread-safety: immutable.
#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "corefoundation/CFObject.h"

struct __CFURL final : port::CFObject {
    __CFURL(std::string absolutePath, bool folder)
        : CFObject(port::CFKind::URL), path(std::move(absolutePath)), isDirectory(folder) {}
    bool equals(const CFObject& other) const override;

    const std::string path;
    const bool isDirectory;
};

namespace port {

// Null for an empty path and for one with a zero byte; a relative one is completed by the working folder.
CFRef<CFURLRef> makeURL(std::string_view path, bool isDirectory);

} // namespace port
