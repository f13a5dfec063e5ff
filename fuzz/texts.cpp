// Texts of the platform: bytes in each encoding, read back in each, and as the path of a URL. What was made says the
// same again, and what does not fit leaves an empty text.
#include <CoreFoundation/CoreFoundation.h>
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "corefoundation/CFObject.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using String = port::CFRef<CFStringRef>;
using URL = port::CFRef<CFURLRef>;

constexpr CFStringEncoding kEncodings[] = {kCFStringEncodingUTF8, kCFStringEncodingUnicode,
                                           kCFStringEncodingISOLatin1, kCFStringEncodingWindowsLatin1};
constexpr std::size_t kMostPerUnit = 4; // bytes, in any encoding

void require(bool holds) {
    if (!holds)
        std::abort();
}

String made(std::string_view bytes, CFStringEncoding encoding) {
    return String(CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(bytes.data()),
                                          static_cast<CFIndex>(bytes.size()), encoding, false));
}

// What fits exactly is written, and one byte less is refused.
void checkRoom(CFStringRef text, CFStringEncoding encoding, std::size_t bytes, std::size_t terminator) {
    std::vector<char> room(bytes + terminator, '#');
    require(CFStringGetCString(text, room.data(), static_cast<CFIndex>(room.size()), encoding));
    require(!CFStringGetCString(text, room.data(), static_cast<CFIndex>(room.size() - 1), encoding));
    std::vector<unsigned char> pascal(std::min<std::size_t>(bytes, 255) + 1);
    const bool fits =
        CFStringGetPascalString(text, pascal.data(), static_cast<CFIndex>(pascal.size()), encoding);
    require(fits == (bytes <= 255) && pascal[0] == (fits ? bytes : 0));
}

void checkText(CFStringRef text) {
    const auto length = static_cast<std::size_t>(CFStringGetLength(text));
    std::vector<UniChar> units(length);
    CFStringGetCharacters(text, {0, CFStringGetLength(text)}, units.data());
    const String same(
        CFStringCreateWithCharacters(kCFAllocatorDefault, units.data(), CFStringGetLength(text)));
    require(!same || CFEqual(same.get(), text));
    for (const CFStringEncoding encoding : kEncodings) {
        std::vector<char> room(kMostPerUnit * length + sizeof(UniChar));
        if (!CFStringGetCString(text, room.data(), static_cast<CFIndex>(room.size()), encoding))
            continue;
        if (std::find(units.begin(), units.end(), 0) != units.end())
            continue; // where it ends cannot be told
        const std::size_t terminator = encoding == kCFStringEncodingUnicode ? sizeof(UniChar) : 1;
        const std::size_t bytes =
            encoding == kCFStringEncodingUnicode ? length * terminator : std::strlen(room.data());
        checkRoom(text, encoding, bytes, terminator);
        const String back = made({room.data(), bytes}, encoding);
        require(back && CFEqual(back.get(), text));
    }
}

void checkURL(std::string_view path, bool isFolder) {
    URL url(CFURLCreateFromFileSystemRepresentation(kCFAllocatorDefault,
                                                    reinterpret_cast<const UInt8*>(path.data()),
                                                    static_cast<CFIndex>(path.size()), isFolder));
    require(static_cast<bool>(url) == (!path.empty() && path.find('\0') == path.npos));
    for (std::size_t before = ~std::size_t{0}; url;) {
        require(static_cast<bool>(CFURLHasDirectoryPath(url.get())) == isFolder);
        std::vector<UInt8> room(path.size() + 5000);
        require(CFURLGetFileSystemRepresentation(url.get(), true, room.data(),
                                                 static_cast<CFIndex>(room.size())));
        const std::size_t length = std::strlen(reinterpret_cast<const char*>(room.data()));
        require(room[0] == '/' && !CFURLGetFileSystemRepresentation(url.get(), true, room.data(),
                                                                    static_cast<CFIndex>(length)));
        const String name(CFURLCopyLastPathComponent(url.get()));
        const String all(CFURLCopyFileSystemPath(url.get(), kCFURLPOSIXPathStyle));
        require(!all || length == 1 || name); // a part of what is UTF-8 is
        if (length >= before || length == 1)
            break; // nothing is above
        before = length;
        url = URL(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, url.get()));
        isFolder = true;
    }
}

} // namespace

// The first byte chooses encoding and kind of URL, the rest is the text.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0)
        return 0;
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    checkURL(bytes, (data[0] & 4) != 0);
    const String text = made(bytes, kEncodings[data[0] % std::size(kEncodings)]);
    if (!text)
        return 0;
    checkText(text.get());
    const URL url(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, text.get(), kCFURLPOSIXPathStyle, false));
    if (url)
        require(CFStringGetLength(text.get()) > 0);
    return 0;
}
