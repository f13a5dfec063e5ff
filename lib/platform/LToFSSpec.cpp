#include "platform/LToFSSpec.h"

#include "platform/LCFRef.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <port/bsd.h>

namespace {

// Bytes of the longest path that a file specification can stand for, its volume's name in front.
constexpr std::size_t kLongestText = kPortPathSize + sizeof(Str255);

// A text that grows at its front.
class LTextFromEnd {
public:
    // False, and nothing is added, when there is no room.
    bool Prepend(std::string_view text) {
        const auto nRoom = static_cast<std::size_t>(pBegin - szText);
        if (text.size() > nRoom)
            return false;
        pBegin -= text.size();
        std::copy(text.begin(), text.end(), pBegin);
        return true;
    }

    char* GetBegin() { return pBegin; }
    char* GetEnd() { return szText + kLongestText; }

private:
    char szText[kLongestText + 1] = {};
    char* pBegin = szText + kLongestText;
};

std::string_view FromPascalString(const unsigned char* pText) {
    return {reinterpret_cast<const char*>(pText + 1), pText[0]};
}

// Puts the names of the folder and of those above it in front, each with its ":".
void PrependFolders(LTextFromEnd& text, SInt16 nVolume, SInt32 nFolder) {
    for (bool bRoot = false; !bRoot;) {
        Str255 name;
        CInfoPBRec block = {};
        block.dirInfo.ioNamePtr = name;
        block.dirInfo.ioVRefNum = nVolume;
        block.dirInfo.ioFDirIndex = -1;
        block.dirInfo.ioDrDirID = nFolder;
        if (PBGetCatInfoSync(&block) != noErr || !text.Prepend(":") || !text.Prepend(FromPascalString(name)))
            return;
        bRoot = nFolder == fsRtDirID;
        nFolder = block.dirInfo.ioDrParID;
    }
}

// The file specification of an item that does not exist yet.
OSErr MakeNewItem(const char* szPath, FSSpec* pSpec) {
    const LCFRef<CFStringRef> path(
        CFStringCreateWithCString(kCFAllocatorDefault, szPath, CFStringGetSystemEncoding()));
    if (!path)
        return memFullErr;
    const LCFRef<CFURLRef> item(
        CFURLCreateWithFileSystemPath(kCFAllocatorDefault, path.Get(), kCFURLPOSIXPathStyle, false));
    if (!item)
        return memFullErr;
    const LCFRef<CFURLRef> folder(CFURLCreateCopyDeletingLastPathComponent(kCFAllocatorDefault, item.Get()));
    if (!folder)
        return memFullErr;
    FSRef folderRef;
    if (!CFURLGetFSRef(folder.Get(), &folderRef))
        return fnfErr;
    FSCatalogInfo info;
    const OSErr nError =
        FSGetCatalogInfo(&folderRef, kFSCatInfoVolume | kFSCatInfoNodeID, &info, nullptr, pSpec, nullptr);
    if (nError != noErr)
        return nError;
    const LCFRef<CFStringRef> name(CFURLCopyLastPathComponent(item.Get()));
    if (!name)
        return memFullErr;
    if (!CFStringGetPascalString(name.Get(), pSpec->name, sizeof pSpec->name, CFStringGetSystemEncoding()))
        return fnfErr;
    pSpec->parID = static_cast<SInt32>(info.nodeID);
    return noErr;
}

} // namespace

LToFSSpec::LToFSSpec(const char* szPath) : bValid(CStringToFSSpec(szPath, &fsSpec) == noErr) {}

OSErr LToFSSpec::CStringToFSSpec(const char* szPath, FSSpec* pSpec) {
    FSRef ref;
    if (FSPathMakeRef(reinterpret_cast<const UInt8*>(szPath), &ref, nullptr) == noErr)
        return FSGetCatalogInfo(&ref, kFSCatInfoNone, nullptr, nullptr, pSpec, nullptr);
    return MakeNewItem(szPath, pSpec);
}

void LToFSSpec::GetString(char* szOut, unsigned long dwSize) const {
    if (dwSize == 0)
        return;
    szOut[0] = '\0';
    if (!bValid)
        return;
    LTextFromEnd text;
    text.Prepend(FromPascalString(fsSpec.name));
    if (fsSpec.parID != fsRtParID)
        PrependFolders(text, fsSpec.vRefNum, fsSpec.parID);
    std::replace(text.GetBegin(), text.GetEnd(), ':', '/');
    if (const char* const pPath = std::strchr(text.GetBegin(), '/'); pPath != nullptr)
        strlcpy(szOut, pPath, dwSize);
}
