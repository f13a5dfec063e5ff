// Says what the library knows of the machine and of this program, and keeps hold of a file from run to run,
// wherever it is moved.
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include <base/LLimits.h>
#include <files/LFile.h>
#include <files/LSandboxBookmarkManager.h>
#include <platform/LApplicationQueries.h>
#include <platform/LMachineQueries.h>
#include <platform/LProcessUtilities.h>

#include "../Example.h"

namespace {

constexpr Example example{"machine",
                          "Usage: machine [FILE]\n"
                          "Says what is known of the machine, and keeps hold of FILE from run to run.\n"};

constexpr char szFileKey[] = "MACHINE_EXAMPLE_FILE";

void PrintMachine() {
    char szSize[LPathBufferSize];
    LFile::GetSizeFormattedBytes(LMemoryGetPhysicalMemorySize(), szSize);
    std::printf("machine    %s bits, %s of memory\n", LIsOS64Bit() ? "64" : "32", szSize);
    LStringListTemplate<char> lsDevices;
    LMachineGetGPUDescriptions(lsDevices);
    for (std::uint32_t i = 0; i < lsDevices.GetCount(); ++i)
        std::printf("graphics   %s\n", lsDevices[i]);
}

void PrintProgram() {
    char szPath[LPathBufferSize];
    LFile::GetProgramExecutablePath(szPath);
    std::printf("program    %s, %s\n", szPath, LIsApplicationBundled() ? "a bundle" : "no bundle");
    std::printf("user       %s, locale %s\n",
                LIsUserAdministrator() ? "an administrator" : "no administrator", LGetLocale(0));
    kinfo_proc* pProcesses = nullptr;
    std::printf("processes  %lu\n", LGetBSDProcessList(&pProcesses));
    std::free(pProcesses);
}

// Only one file is kept: what was granted under the key before goes.
bool KeepFile(const char* szArgument) {
    char szFolder[LPathBufferSize];
    char szPath[LPathBufferSize];
    LFile::GetCurrentDirectory(szFolder);
    LFile::MakeAbsoluteFilePath(szPath, szFolder, szArgument, "");
    if (LSandboxBookmarkManager::IsAccessAllowedByEntitlement(szPath, false)) {
        std::printf("file       %s is in the home folder and needs no bookmark\n", szPath);
        return true;
    }
    const NSRef<NSURL> url = NSURL::fileURLWithPath(szPath);
    return LFile::Exists(szPath) &&
           LSandboxBookmarkManager::AddFilePath(szPath, url.get(), true, false, nullptr) &&
           LSandboxBookmarkManager::AddFilePathToSettings(szPath, true, szFileKey);
}

void PrintFile(const LList<LSandboxBookmarkItem>& items) {
    for (const LSandboxBookmarkItem* pItem = items.GetFirst(); pItem != nullptr; pItem = pItem->pNext)
        std::printf("file       %s\n", pItem->szPath);
}

} // namespace

int main(int argc, char** argv) {
    LUnixAppInitCommon(argc, argv);
    example.AnswerQuestions(gargc, gargv);
    if (gargc > 2)
        return example.TellUsage();
    PrintMachine();
    PrintProgram();
    LSandboxBookmarkManager::Create();
    bool bKept = true;
    if (gargc > 1) {
        bKept = KeepFile(gargv[1]);
        if (!bKept)
            std::fprintf(stderr, "machine: cannot keep %s\n", gargv[1]);
    } else {
        PrintFile(LSandboxBookmarkManager::pInstance->loFiles);
        PrintFile(LSandboxBookmarkManager::pInstance->loFolders);
    }
    LSandboxBookmarkManager::Destroy();
    return bKept ? EXIT_SUCCESS : EXIT_FAILURE;
}
