// Where things are.
#include "files/LFile.h"

#include <CoreServices/CoreServices.h>
#include <Foundation/Foundation.h>
#include <cerrno>
#include <port/bsd.h>
#include <port/internal/exported.h>
#include <port/user.h>
#include <sys/stat.h>
#include <unistd.h>

#include "base/LLimits.h"
#include "base/internal/LIdentity.h"
#include "platform/LCFURL.h"
#include "strings/LStringFormat.h"

namespace {

constexpr char kSharedFolderName[] = "Shared";
constexpr char kAllUsersApplications[] = "/Applications";
constexpr char kMountedVolumes[] = "/Volumes";
constexpr char kHelpInBundle[] = "/Contents/Resources/help";

struct PlaceRow {
    unsigned int dwDirectory; // an NSSearchPathDirectory
    const char* szFallback;   // below the home folder
};

// In the order of LFile::Place.
constexpr PlaceRow kPlaces[] = {
    {NSCachesDirectory, "Library/Caches"},
    {NSMusicDirectory, "Music"},
    {NSMoviesDirectory, "Movies"},
    {NSPicturesDirectory, "Pictures"},
    {NSApplicationDirectory, "Applications"},
    {NSDocumentDirectory, "Documents"},
    {NSDesktopDirectory, "Desktop"},
    {NSDownloadsDirectory, "Downloads"},
    {NSApplicationSupportDirectory, "Library/Application Support"},
};

void CopyPath(char* szOut, const NSRef<NSString>& path) {
    strlcpy(szOut, path ? path->fileSystemRepresentation() : "", LPathBufferSize);
}

} // namespace

template <typename>
void GetUserSpecialFolder(char* szOut, unsigned int dwDirectory, const char* szFallback) {
    const auto found = NSSearchPathForDirectoriesInDomains(static_cast<NSSearchPathDirectory>(dwDirectory),
                                                           NSUserDomainMask, true);
    if (!found.empty())
        return CopyPath(szOut, found.front());
    char szHome[LPathBufferSize];
    LFile::GetUserFolder(szHome);
    LFile::_MakeFilePath(szOut, szHome[0] != '\0' ? szHome : "/", szFallback, "");
    if (!LFile::Exists(szOut))
        mkdir(szOut, 0777);
}
template PORT_EXPORTED void GetUserSpecialFolder<>(char*, unsigned int, const char*);

void LFile::_GetPlace(char* szOut, Place ePlace) {
    GetUserSpecialFolder(szOut, kPlaces[ePlace].dwDirectory, kPlaces[ePlace].szFallback);
}

void LFile::GetUserFolder(char* szOut) {
    CopyPath(szOut, NSHomeDirectory());
}

void LFile::GetUserFolderNonSandboxed(char* szOut) {
    const auto user = port::userEntry(getuid());
    strlcpy(szOut, user ? user->pw_dir : "", LPathBufferSize);
}

void LFile::GetUserDataFolderApp(char* szOut) {
    char szFolder[LPathBufferSize];
    GetUserDataFolder(szFolder);
    _MakeFilePath(szOut, szFolder, LGetIdentity().szName, "");
    mkdir(szOut, 0777);
}

void LFile::GetUserDataFolderApp(char* szOut, const char*) {
    GetUserDataFolderApp(szOut);
}

void LFile::GetUserDataFolderAppSubFolder(const char* szSubFolder, char* szOut) {
    char szFolder[LPathBufferSize];
    GetUserDataFolderApp(szFolder);
    _MakeFilePath(szOut, szFolder, szSubFolder, "");
    mkdir(szOut, 0777);
}

void LFile::GetSharedDataFolderApp(char* szOut) {
    GetUserDataFolderAppSubFolder(kSharedFolderName, szOut);
}

void LFile::GetSharedDataFolderAppSubFolder(const char* szSubFolder, char* szOut) {
    char szFolder[LPathBufferSize];
    GetSharedDataFolderApp(szFolder);
    _MakeFilePath(szOut, szFolder, szSubFolder, "");
    if (Exists(szOut))
        return;
    mkdir(szOut, 0777);
    SetFolderSecurityAllAccess(szOut);
}

void LFile::GetApplicationsFolder(char* szOut) {
    const auto found = NSSearchPathForDirectoriesInDomains(NSApplicationDirectory, NSLocalDomainMask, true);
    if (found.empty())
        strlcpy(szOut, kAllUsersApplications, LPathBufferSize);
    else
        CopyPath(szOut, found.front());
}

bool LFile::GetInstalledApplicationExePath(char* szOut, const char* szName) {
    char szFolder[LPathBufferSize];
    GetUserApplicationsFolder(szFolder);
    _MakeFilePath(szOut, szFolder, szName, "");
    if (Exists(szOut))
        return true;
    GetApplicationsFolder(szFolder);
    _MakeFilePath(szOut, szFolder, szName, "");
    return Exists(szOut);
}

void LFile::GetProgramExecutablePath(char* szOut) {
    CFBundleRef pBundle = CFBundleGetMainBundle();
    LCFURL(pBundle != nullptr ? CFBundleCopyBundleURL(pBundle) : nullptr).GetPath(szOut, LPathBufferSize);
}

void LFile::GetHelpFolder(char* szOut) {
    const NSRef<NSString> bundle = NSBundle::mainBundle()->bundlePath();
    if (bundle)
        tplsnprintf(szOut, LPathBufferSize, "%s%s", bundle->fileSystemRepresentation(), kHelpInBundle);
    else
        szOut[0] = '\0';
}

void LFile::GetMountedDrivesFolder(char* szOut) {
    FSRef folder;
    if (FSFindFolder(kOnSystemDisk, kVolumesFolderType, false, &folder) != noErr ||
        FSRefMakePath(&folder, reinterpret_cast<UInt8*>(szOut), LPathBufferSize) != noErr)
        strlcpy(szOut, kMountedVolumes, LPathBufferSize);
}

void LFile::GetNetworkSharesFolder(char* szOut) {
    GetMountedDrivesFolder(szOut);
}

void LFile::GetCurrentDirectory(char* szOut) {
    if (getcwd(szOut, LPathBufferSize) == nullptr)
        szOut[0] = '\0';
}

int LFile::SetCurrentDirectory(const char* szPath) {
    return chdir(szPath);
}
